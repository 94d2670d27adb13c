#include "face/StackContents.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "face/Combine.h"
#include "kernels/Kernels.h"

namespace orvacam::face {

namespace {

/// sum / count, rounded once. Both are below 2^53.
float quotient(std::uint64_t sum, std::uint64_t count) {
  const auto s = static_cast<double>(sum);
  const auto n = static_cast<double>(count);
  double q = s / n;
  const auto rounded = static_cast<float>(q);
  // Where the double is just half way between two floats, the exact quotient says to which side it belongs.
  const double other = static_cast<double>(
      std::nextafter(rounded, q > static_cast<double>(rounded) ? std::numeric_limits<float>::max() : 0.0F));
  if (q - static_cast<double>(rounded) != other - q) return rounded;
  const double rest = std::fma(-q, n, s);
  if (rest == 0.0) return rounded;
  q = std::nextafter(q, rest > 0 ? std::numeric_limits<double>::max() : 0.0);
  return static_cast<float>(q);
}

const std::uint16_t* pixelsOf(const Held<const orva_image>& plane) {
  return plane->as<const std::uint16_t>();
}

/// The smallest or largest value of each pixel.
class StackExtremes : public StackContents {
 public:
  StackExtremes(bool isMinimum, std::size_t pixels)
      : m_isMinimum(isMinimum), m_kept(pixels, isMinimum ? std::uint16_t{65535} : std::uint16_t{0}) {}

  void add(const Held<const orva_image>& plane) override { keep(pixelsOf(plane)); }
  void merge(const StackContents& other) override {
    const auto& kept = static_cast<const StackExtremes&>(other).m_kept;
    if (&kept != &m_kept) keep(kept.data());
  }
  void result(double* values) const override { std::copy(m_kept.begin(), m_kept.end(), values); }
  void result(float* values) const override { std::copy(m_kept.begin(), m_kept.end(), values); }
  void result(std::uint16_t* values) const override { std::copy(m_kept.begin(), m_kept.end(), values); }

 private:
  void keep(const std::uint16_t* pixels) {
    const kernels::KernelTable& table = kernels::active();
    (m_isMinimum ? table.keepLesser : table.keepGreater)(m_kept.data(), pixels, m_kept.size());
  }

  bool m_isMinimum;
  std::vector<std::uint16_t> m_kept;
};

/// All planes.
class StackPlanes : public StackContents {
 public:
  StackPlanes(const StackRule& rule, std::size_t pixels) : m_rule(rule), m_pixels(pixels) {}

  void add(const Held<const orva_image>& plane) override { m_planes.push_back(plane); }
  void merge(const StackContents& other) override {
    std::vector<Held<const orva_image>> both = m_planes;
    const auto& more = static_cast<const StackPlanes&>(other).m_planes;
    both.insert(both.end(), more.begin(), more.end());
    m_planes = std::move(both);
  }
  void result(double* values) const override { each(values); }
  void result(float* values) const override { each(values); }
  void result(std::uint16_t* values) const override { each(values); }

 private:
  static constexpr std::size_t piece = 4096;

  template <typename Value>
  void each(Value* values) const {
    std::array<double, piece> combined{};
    std::vector<const void*> rows(m_planes.size());
    orva_combining how{};
    how.method = m_rule.method;
    how.sigma_low = m_rule.sigmaLow;
    how.sigma_high = m_rule.sigmaHigh;
    for (std::size_t first = 0; first < m_pixels; first += piece) {
      const std::size_t count = std::min(piece, m_pixels - first);
      std::transform(m_planes.begin(), m_planes.end(), rows.begin(),
                     [&](const auto& plane) { return pixelsOf(plane) + first; });
      combine(how, ORVA_PIXEL_U16, rows.data(), rows.size(), count, {0, combined.data(), nullptr, nullptr});
      std::transform(combined.begin(), combined.begin() + count, values + first,
                     [](double value) { return static_cast<Value>(value); });
    }
  }

  StackRule m_rule;
  std::size_t m_pixels;
  std::vector<Held<const orva_image>> m_planes;
};

}  // namespace

void StackSums::add(const Held<const orva_image>& plane) {
  kernels::active().addToMoments(pixelsOf(plane), m_sums.data(), m_squares.data(), m_sums.size());
  ++m_count;
}

void StackSums::merge(const StackContents& other) {
  const auto& more = static_cast<const StackSums&>(other);
  for (std::size_t i = 0; i < m_sums.size(); ++i) {
    m_sums[i] += more.m_sums[i];
    m_squares[i] += more.m_squares[i];
  }
  m_count += more.m_count;
}

void StackSums::result(double* values) const {
  const double divisor = m_isMean ? static_cast<double>(m_count) : 1;
  std::transform(m_sums.begin(), m_sums.end(), values,
                 [&](std::uint64_t sum) { return static_cast<double>(sum) / divisor; });
}

void StackSums::result(float* values) const {
  std::transform(m_sums.begin(), m_sums.end(), values, [&](std::uint64_t sum) {
    return m_isMean ? quotient(sum, m_count) : static_cast<float>(sum);
  });
}

void StackSums::result(std::uint16_t* values) const {
  std::transform(m_sums.begin(), m_sums.end(), values,
                 [&](std::uint64_t sum) { return static_cast<std::uint16_t>(sum / m_count); });
}

std::unique_ptr<StackContents> emptyContents(const StackRule& rule, std::size_t pixels) {
  switch (rule.method) {
    case ORVA_STACK_MEAN:
    case ORVA_STACK_SUM:
      return std::make_unique<StackSums>(rule.method == ORVA_STACK_MEAN, pixels);
    case ORVA_STACK_MINIMUM:
    case ORVA_STACK_MAXIMUM:
      return std::make_unique<StackExtremes>(rule.method == ORVA_STACK_MINIMUM, pixels);
    default:
      return std::make_unique<StackPlanes>(rule, pixels);
  }
}

}  // namespace orvacam::face
