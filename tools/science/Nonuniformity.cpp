#include "science/Nonuniformity.h"

#include <stdexcept>

namespace orvacam::science {

namespace {

/// Variance of these means about their own mean, and its standard error.
Estimate varianceOf(const std::vector<double>& means, double mean) {
  const auto freedom = static_cast<double>(means.size() - 1);
  double squares = 0;
  for (const double each : means)
    squares += square(each - mean);
  const double variance = squares / freedom;
  return {variance, variance * std::sqrt(2 / freedom)};
}

using Kernel = std::vector<double>;

Kernel convolved(const Kernel& a, const Kernel& b) {
  Kernel result(a.size() + b.size() - 1);
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < b.size(); ++j)
      result[i + j] += a[i] * b[j];
  return result;
}

constexpr std::size_t small = 7, large = 11, taps = small + large + 3 - 2;

/// In one direction: `taps` weights.
const Kernel& lowPass() {
  static const Kernel kernel =
      convolved(convolved(Kernel(small, 1.0 / small), Kernel(large, 1.0 / large)), {0.25, 0.5, 0.25});
  return kernel;
}

/// What the high-pass 1 - low-pass leaves of the variance of white noise, and of that of whole rows or
/// columns.
struct Left {
  double white, lines;
};
Left leftByHighPass() {
  double squares = 0;
  for (const double weight : lowPass())
    squares += weight * weight;
  const double middle = lowPass()[lowPass().size() / 2];
  return {1 - 2 * square(middle) + square(squares), 1 - 2 * middle + squares};
}

Estimate minus(const Estimate& a, const Estimate& b, double factor) {
  return {a.value - factor * b.value, std::hypot(a.error, factor * b.error)};
}

}  // namespace

MeanImage::MeanImage(const Region& region)
    : m_region(region), m_sums(std::size_t{region.width} * region.height) {}

void MeanImage::add(const Image<std::uint16_t>& plane) {
  constexpr std::uint64_t most = 65536;  // times 65535 stays below 2^32
  if (m_frames == most) throw std::length_error("more than 65536 frames of one level do not fit");
  for (std::uint32_t y = 0; y < m_region.height; ++y) {
    const std::uint16_t* const row = plane.row(m_region.y + y) + m_region.x;
    std::uint32_t* const sums = m_sums.data() + std::size_t{y} * m_region.width;
    for (std::uint32_t x = 0; x < m_region.width; ++x)
      sums[x] += row[x];
  }
  ++m_frames;
}

SpatialVariance MeanImage::variance(const TemporalVariance& temporal) const {
  SpatialVariance result;
  result.frames = m_frames;
  const std::size_t width = m_region.width, height = m_region.height;
  const auto pixels = static_cast<double>(width * height);
  const auto frames = static_cast<double>(m_frames);
  std::vector<double> rows(height), columns(width);
  for (std::size_t y = 0; y < height; ++y)
    for (std::size_t x = 0; x < width; ++x) {
      const double value = m_sums[y * width + x] / frames;
      rows[y] += value / static_cast<double>(width);
      columns[x] += value / static_cast<double>(height);
    }
  for (const double row : rows)
    result.mean += row / static_cast<double>(height);
  if (width < 2 || height < 2 || m_frames == 0) return result;

  double second = 0, fourth = 0;
  for (std::size_t y = 0; y < height; ++y)
    for (std::size_t x = 0; x < width; ++x) {
      const double rest = square(m_sums[y * width + x] / frames - rows[y] - columns[x] + result.mean);
      second += rest;
      fourth += rest * rest;
    }
  const double freedom = static_cast<double>(width - 1) * static_cast<double>(height - 1);
  const double spread = std::sqrt(std::fmax(fourth / pixels - square(second / pixels), 0) / pixels);
  const Estimate white = {second / freedom, spread * pixels / freedom};  // pixels and the temporal noise left
  result.pixel = minus(white, temporal.pixel(), 1 / frames);
  result.row = minus(minus(varianceOf(rows, result.mean), white, 1 / static_cast<double>(width)),
                     temporal.row, 1 / frames);
  result.column = minus(minus(varianceOf(columns, result.mean), white, 1 / static_cast<double>(height)),
                        temporal.column, 1 / frames);
  result.local = localVariance(temporal);
  result.total = {result.pixel.value + result.row.value + result.column.value,
                  std::hypot(result.pixel.error, result.row.error, result.column.error)};
  return result;
}

/// A row of the mean, low-passed along itself, without the ends.
std::vector<double> MeanImage::smoothedRow(std::size_t y) const {
  const std::size_t width = m_region.width;
  const std::uint32_t* const sums = m_sums.data() + y * width;
  std::vector<double> row(width - taps + 1);
  for (std::size_t x = 0; x < row.size(); ++x) {
    for (std::size_t i = 0; i < taps; ++i)
      row[x] += lowPass()[i] * sums[x + i];
    row[x] /= static_cast<double>(m_frames);
  }
  return row;
}

Estimate MeanImage::localVariance(const TemporalVariance& temporal) const {
  const std::size_t width = m_region.width, height = m_region.height;
  if (width <= taps || height <= taps || m_frames == 0) return {};
  const auto frames = static_cast<double>(m_frames);
  std::vector<std::vector<double>> rows;  // the last `taps` ones, each in its place modulo taps
  const double count = static_cast<double>(width - taps + 1) * static_cast<double>(height - taps + 1);
  double sum = 0, second = 0, fourth = 0;
  for (std::size_t y = 0; y < height; ++y) {
    if (y < taps) rows.emplace_back();
    rows[y % taps] = smoothedRow(y);
    if (y + 1 < taps) continue;
    const std::size_t first = y + 1 - taps, middle = first + taps / 2;
    const std::uint32_t* const sums = m_sums.data() + middle * width + taps / 2;
    for (std::size_t x = 0; x + taps <= width; ++x) {
      double low = 0;
      for (std::size_t i = 0; i < taps; ++i)
        low += lowPass()[i] * rows[(first + i) % taps][x];
      const double rest = sums[x] / frames - low;
      sum += rest, second += square(rest), fourth += square(square(rest));
    }
  }
  const double variance = second / count - square(sum / count);
  const double spread = std::sqrt(std::fmax(fourth / count - square(second / count), 0) / count);
  const auto [white, lines] = leftByHighPass();
  const Estimate left = minus({variance / white, spread / white}, temporal.pixel(), 1 / frames);
  return minus(minus(left, temporal.row, lines / white / frames), temporal.column, lines / white / frames);
}

}  // namespace orvacam::science
