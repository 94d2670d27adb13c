// The pixels of many frames into one, pixel by pixel.

#include "face/Combine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "face/Failure.h"
#include "kernels/Kernels.h"

namespace orvacam::face {

namespace {

constexpr std::size_t columns = kernels::sortedColumns;
constexpr int mostRounds = 20;

/// What is known of a pixel's values once they are one.
struct Pixel {
  double value;
  double deviation;      ///< of the population of values that stay
  std::size_t rejected;  ///< values
};

/// How, and whether deviations are wanted, too.
struct Rule {
  const orva_combining& how;
  bool deviations;
};

/// What became of some pixels. Null: not wanted.
struct Output {
  double* values;
  double* deviations;
  std::uint16_t* rejected;

  void put(std::size_t i, const Pixel& pixel) const {
    if (values != nullptr) values[i] = pixel.value;
    if (deviations != nullptr) deviations[i] = pixel.deviation;
    if (rejected != nullptr)
      rejected[i] = static_cast<std::uint16_t>(std::min<std::size_t>(pixel.rejected, 65535));
  }
};

/// The deviation of n integers from their sum and the sum of their squares: sqrt(n Q - S^2) / n, where the
/// radicand is exact.
double deviationOf(std::uint64_t n, std::uint64_t sum, std::uint64_t squares) {
  const auto radicand =
      static_cast<unsigned __int128>(n) * squares - static_cast<unsigned __int128>(sum) * sum;
  const auto low = static_cast<std::uint64_t>(radicand);
  const double exact = radicand == low ? static_cast<double>(low) : static_cast<double>(radicand);
  return std::sqrt(exact) / static_cast<double>(n);
}

/// A run of a pixel's sorted values.
template <typename Value>
class SortedRun {
 public:
  SortedRun(const Value* column, std::size_t size) : m_column(column), m_end(size) {}

  std::size_t size() const { return m_end - m_begin; }
  std::size_t begin() const { return m_begin; }
  std::size_t end() const { return m_end; }
  double at(std::size_t i) const { return m_column[i * columns]; }
  /// The value that goes.
  Value dropFirst() { return m_column[columns * m_begin++]; }
  Value dropLast() { return m_column[columns * --m_end]; }

 private:
  const Value* m_column;
  std::size_t m_begin = 0, m_end;
};

/// One of integers, and its sums, which are exact.
class IntegerRun : public SortedRun<std::uint16_t> {
 public:
  IntegerRun(const std::uint16_t* column, std::size_t size, std::uint64_t sum, std::uint64_t squares)
      : SortedRun(column, size), m_sum(sum), m_squares(squares) {}

  void dropFirst() { subtract(SortedRun::dropFirst()); }
  void dropLast() { subtract(SortedRun::dropLast()); }
  double sum() const { return static_cast<double>(m_sum); }
  double deviation() const { return deviationOf(size(), m_sum, m_squares); }

 private:
  void subtract(std::uint64_t value) {
    m_sum -= value;
    m_squares -= value * value;
  }

  std::uint64_t m_sum, m_squares;
};

/// One of doubles, whose sums are taken anew.
class DoubleRun : public SortedRun<double> {
 public:
  using SortedRun::SortedRun;

  double sum() const {
    double sum = 0;
    for (std::size_t i = begin(); i < end(); ++i)
      sum += at(i);
    return sum;
  }
  double deviation() const {
    const double mean = sum() / static_cast<double>(size());
    double squares = 0;
    for (std::size_t i = begin(); i < end(); ++i)
      squares += (at(i) - mean) * (at(i) - mean);
    return std::sqrt(squares / static_cast<double>(size()));
  }
};

/// Of sorted values, at least one.
template <typename Run>
double medianOf(const Run& run) {
  const std::size_t upper = run.begin() + run.size() / 2;
  return run.size() % 2 != 0 ? run.at(upper) : (run.at(upper - 1) + run.at(upper)) / 2;
}

/// Values outside median - low * deviation ... median + high * deviation go, until none does. Those that stay
/// are always neighbours, since the values are sorted. Where all would go, the result is the last median.
template <typename Run>
Pixel clipped(Run run, const Rule& rule) {
  const orva_combining& how = rule.how;
  const std::size_t all = run.size();
  double lowest = 0, highest = 0, centre = 0;
  for (int round = 0; round < mostRounds; ++round) {
    centre = medianOf(run);
    const double deviation = run.deviation();
    lowest = centre - how.sigma_low * deviation;
    highest = centre + how.sigma_high * deviation;
    const std::size_t before = run.size();
    while (run.size() > 0 && run.at(run.begin()) < lowest)
      run.dropFirst();
    while (run.size() > 0 && run.at(run.end() - 1) > highest)
      run.dropLast();
    if (run.size() == before || run.size() == 0) break;
  }
  const std::size_t rejected = all - run.size();
  const double sum = run.size() > 0 ? run.sum() : 0;
  const double left = rule.deviations && run.size() > 0 ? run.deviation() : 0;
  if (how.method == ORVA_STACK_WINSORIZED) {
    const double limits =
        static_cast<double>(run.begin()) * lowest + static_cast<double>(all - run.end()) * highest;
    return {(sum + limits) / static_cast<double>(all), left, rejected};
  }
  return {run.size() > 0 ? sum / static_cast<double>(run.size()) : centre, left, rejected};
}

template <typename Run>
Pixel combinedOf(const Run& run, const Rule& rule) {
  if (rule.how.method != ORVA_STACK_MEDIAN) return clipped(run, rule);
  return {medianOf(run), rule.deviations ? run.deviation() : 0, 0};
}

/// Rows of integers as they are.
class IntegerRows {
 public:
  IntegerRows(const Rule& rule, const std::uint16_t* const* rows, std::size_t frames)
      : m_rule(rule), m_method(rule.how.method), m_rows(rows), m_frames(frames), m_table(kernels::active()) {
    if (isTotal() || isExtreme()) return;
    m_columns.resize(frames * columns);
  }

  void combine(std::size_t first, std::size_t count, const Output& out) {
    if (isTotal() || m_method > ORVA_STACK_MAXIMUM || m_rule.deviations) sumUp(first, count);
    if (isTotal())
      total(count, out);
    else if (isExtreme())
      extreme(first, count, out);
    else
      sorted(first, count, out);
  }

 private:
  bool isTotal() const { return m_method == ORVA_STACK_MEAN || m_method == ORVA_STACK_SUM; }
  bool isExtreme() const { return m_method == ORVA_STACK_MINIMUM || m_method == ORVA_STACK_MAXIMUM; }
  void sumUp(std::size_t first, std::size_t count) {
    m_sums.fill(0);
    m_squares.fill(0);
    for (std::size_t f = 0; f < m_frames; ++f)
      m_table.addToMoments(m_rows[f] + first, m_sums.data(), m_squares.data(), count);
  }
  double deviation(std::size_t i) const {
    return m_rule.deviations ? deviationOf(m_frames, m_sums[i], m_squares[i]) : 0;
  }
  void total(std::size_t count, const Output& out) const {
    const double divisor = m_method == ORVA_STACK_SUM ? 1 : static_cast<double>(m_frames);
    for (std::size_t i = 0; i < count; ++i)
      out.put(i, {static_cast<double>(m_sums[i]) / divisor, deviation(i), 0});
  }
  void extreme(std::size_t first, std::size_t count, const Output& out) {
    const auto keep = m_method == ORVA_STACK_MINIMUM ? m_table.keepLesser : m_table.keepGreater;
    std::array<std::uint16_t, columns> kept{};
    std::copy_n(m_rows[0] + first, count, kept.begin());
    for (std::size_t f = 1; f < m_frames; ++f)
      keep(kept.data(), m_rows[f] + first, count);
    for (std::size_t i = 0; i < count; ++i)
      out.put(i, {static_cast<double>(kept[i]), deviation(i), 0});
  }
  void sorted(std::size_t first, std::size_t count, const Output& out) {
    for (std::size_t f = 0; f < m_frames; ++f)
      std::copy_n(m_rows[f] + first, count, m_columns.data() + f * columns);
    m_table.sortColumns16(m_columns.data(), m_frames);
    for (std::size_t i = 0; i < count; ++i)
      out.put(i, combinedOf(IntegerRun(m_columns.data() + i, m_frames, m_sums[i], m_squares[i]), m_rule));
  }

  const Rule m_rule;
  const int m_method;
  const std::uint16_t* const* m_rows;
  std::size_t m_frames;
  const kernels::KernelTable& m_table;
  std::array<std::uint64_t, columns> m_sums{}, m_squares{};
  std::vector<std::uint16_t> m_columns;
};

/// Rows of any kind, as doubles: value * scale + offset.
template <typename Value>
class DoubleRows {
 public:
  DoubleRows(const Rule& rule, const Value* const* rows, std::size_t frames)
      : m_rule(rule), m_how(rule.how), m_rows(rows), m_frames(frames), m_columns(frames * columns) {}

  void combine(std::size_t first, std::size_t count, const Output& out) {
    for (std::size_t f = 0; f < m_frames; ++f)
      convert(f, m_rows[f] + first, count);
    if (m_how.method > ORVA_STACK_SUM) kernels::active().sortColumns64(m_columns.data(), m_frames);
    for (std::size_t i = 0; i < count; ++i)
      out.put(i, pixel(m_columns.data() + i));
  }

 private:
  void convert(std::size_t f, const Value* row, std::size_t count) {
    const double scale = m_how.scales != nullptr ? m_how.scales[f] : 1;
    const double offset = m_how.offsets != nullptr ? m_how.offsets[f] : 0;
    double* const to = m_columns.data() + f * columns;
    double product = 0;  // 0 times an infinity or a NaN is a NaN
    for (std::size_t i = 0; i < count; ++i) {
      to[i] = static_cast<double>(row[i]) * scale + offset;
      product += to[i] * 0.0;
    }
    if (product != 0)
      fail(ORVA_BAD_ARGUMENT, "frame " + std::to_string(f) + " has values that are no finite numbers");
  }
  Pixel pixel(const double* column) const {
    const DoubleRun run(column, m_frames);
    const int method = m_how.method;
    if (method > ORVA_STACK_MAXIMUM || method == ORVA_STACK_MEDIAN) return combinedOf(run, m_rule);
    const double value = method == ORVA_STACK_MINIMUM   ? run.at(0)
                         : method == ORVA_STACK_MAXIMUM ? run.at(m_frames - 1)
                                                        : total(column);
    return {value, m_rule.deviations ? run.deviation() : 0, 0};
  }
  /// In the order of the frames.
  double total(const double* column) const {
    double sum = 0, weights = 0;
    for (std::size_t f = 0; f < m_frames; ++f) {
      const double weight = m_how.weights != nullptr ? m_how.weights[f] : 1;
      sum += weight * column[f * columns];
      weights += weight;
    }
    return m_how.method == ORVA_STACK_SUM ? sum : sum / weights;
  }

  const Rule m_rule;
  const orva_combining& m_how;
  const Value* const* m_rows;
  std::size_t m_frames;
  std::vector<double> m_columns;
};

template <typename Rows>
void combineAll(Rows rows, std::size_t count, const orva_combined& out) {
  const auto from = [](auto* pointer, std::size_t i) { return pointer != nullptr ? pointer + i : nullptr; };
  for (std::size_t first = 0; first < count; first += columns)
    rows.combine(first, std::min(columns, count - first),
                 {from(out.values, first), from(out.deviations, first), from(out.rejected, first)});
}

void requireFinite(const double* values, std::size_t frames, const char* what, double least) {
  for (std::size_t f = 0; f < frames && values != nullptr; ++f)
    if (!std::isfinite(values[f]) || values[f] < least)
      fail(ORVA_BAD_ARGUMENT, std::string("the ") + what + " of frame " + std::to_string(f) + " is " +
                                  std::to_string(values[f]));
}

void requireSensible(const orva_combining& how, std::size_t frames) {
  requireMethod(how.method);
  if (how.method == ORVA_STACK_SIGMA_CLIP || how.method == ORVA_STACK_WINSORIZED)
    requireSigma(how.sigma_low, how.sigma_high);
  if (frames == 0) fail(ORVA_BAD_ARGUMENT, "there are no frames to combine");
  constexpr double any = std::numeric_limits<double>::lowest();
  requireFinite(how.scales, frames, "scale", any);
  requireFinite(how.offsets, frames, "offset", any);
  requireFinite(how.weights, frames, "weight", 0);
  if (how.weights == nullptr) return;
  if (how.method != ORVA_STACK_MEAN) fail(ORVA_BAD_ARGUMENT, "only a mean has weights");
  double sum = 0;
  for (std::size_t f = 0; f < frames; ++f)
    sum += how.weights[f];
  if (sum == 0 || !std::isfinite(sum))
    fail(ORVA_BAD_ARGUMENT, "the weights add up to " + std::to_string(sum));
}

template <typename Value>
const Value* const* typed(const void* const* rows) {
  return reinterpret_cast<const Value* const*>(rows);
}

}  // namespace

void requireMethod(int method) {
  if (method < ORVA_STACK_MEAN || method > ORVA_STACK_WINSORIZED)
    fail(ORVA_BAD_ARGUMENT, std::to_string(method) + " is no method of stacking");
}

void requireSigma(double low, double high) {
  if (!(low > 0) || !(high > 0) || !std::isfinite(low) || !std::isfinite(high))
    fail(ORVA_BAD_ARGUMENT, "limits of " + std::to_string(low) + " and " + std::to_string(high) +
                                " deviations; both have to be above 0");
}

void combine(const orva_combining& how, int type, const void* const* rows, std::size_t frames,
             std::size_t count, const orva_combined& out) {
  requireSensible(how, frames);
  required(rows, "the list of rows");
  for (std::size_t f = 0; f < frames; ++f)
    if (rows[f] == nullptr) fail(ORVA_BAD_ARGUMENT, "row " + std::to_string(f) + " is null");
  const Rule rule{how, out.deviations != nullptr};
  const bool plain = how.scales == nullptr && how.offsets == nullptr && how.weights == nullptr;
  if (type == ORVA_PIXEL_U16 && plain)
    combineAll(IntegerRows(rule, typed<std::uint16_t>(rows), frames), count, out);
  else if (type == ORVA_PIXEL_U16)
    combineAll(DoubleRows<std::uint16_t>(rule, typed<std::uint16_t>(rows), frames), count, out);
  else if (type == ORVA_PIXEL_F64)
    combineAll(DoubleRows<double>(rule, typed<double>(rows), frames), count, out);
  else
    fail(ORVA_BAD_ARGUMENT, "rows have pixels of 16 bits or doubles");
}

}  // namespace orvacam::face

using namespace orvacam::face;

extern "C" {

orva_status orva_combine(const orva_combining* how, int type, const void* const* rows, size_t frames,
                         size_t count, const orva_combined* out) {
  return guarded([&] { combine(taken(how, "the combining"), type, rows, frames, count, taken(out, "out")); });
}
}
