#include "face/PlaneStatistics.h"

#include <algorithm>
#include <cmath>

#include "kernels/Kernels.h"

namespace orvacam::face {

namespace {

constexpr std::size_t values = 65536;
constexpr std::size_t bitsPerWord = 64;
// The library's clip points: 5 % of the pixels below, 0.1 % above.
constexpr double lowClipFraction = 0.05;
constexpr double highClipFraction = 0.001;

}  // namespace

orva_statistics PlaneStatistics::record() const {
  orva_statistics record = numbers;
  record.histogram = histogram.empty() ? nullptr : histogram.data();
  return record;
}

PlaneCounter::PlaneCounter() : m_counts(values), m_occurred(values / bitsPerWord) {}

void PlaneCounter::countValues(const std::uint16_t* row, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t value = row[i];
    ++m_counts[value];
    m_occurred[value / bitsPerWord] |= std::uint64_t{1} << value % bitsPerWord;
  }
}

/// Values that occur, in ascending order.
template <typename Each>
void PlaneCounter::forEachValue(const Each& each) const {
  for (std::size_t word = 0; word < m_occurred.size(); ++word)
    for (std::uint64_t bits = m_occurred[word]; bits != 0; bits &= bits - 1)
      each(word * bitsPerWord + static_cast<std::size_t>(__builtin_ctzll(bits)));
}

void PlaneCounter::summarize(orva_statistics& numbers) const {
  const auto all = static_cast<double>(numbers.count);
  std::uint64_t sum = 0;
  unsigned __int128 squares = 0;
  std::uint64_t largest = 0;
  std::uint64_t below = 0;
  forEachValue([&](std::size_t value) {
    const std::uint64_t here = m_counts[value];
    sum += here * value;
    squares += static_cast<unsigned __int128>(here) * (value * value);
    if (here > largest) {
      largest = here;
      numbers.mode = static_cast<std::uint16_t>(value);
    }
    if (lowClipFraction * all > static_cast<double>(below))
      numbers.clip_low = static_cast<std::uint16_t>(value);
    below += here;
  });
  // From the top: what lies above a value is what does not lie below it, nor has it.
  std::uint64_t passed = 0;
  bool found = false;
  forEachValue([&](std::size_t value) {
    passed += m_counts[value];
    if (!found && highClipFraction * all > static_cast<double>(numbers.count - passed)) {
      numbers.clip_high = static_cast<std::uint16_t>(value);
      found = true;
    }
  });
  numbers.mean = static_cast<double>(sum) / all;
  const unsigned __int128 spread = squares * numbers.count - static_cast<unsigned __int128>(sum) * sum;
  numbers.deviation =
      static_cast<double>(std::sqrt(static_cast<long double>(spread)) / static_cast<long double>(all));
}

void PlaneCounter::clear() {
  forEachValue([&](std::size_t value) { m_counts[value] = 0; });
  std::fill(m_occurred.begin(), m_occurred.end(), 0);
}

std::unique_ptr<const PlaneStatistics> PlaneCounter::count(const std::uint16_t* pixels,
                                                           const orva_geometry& geometry,
                                                           bool withHistogram) {
  auto statistics = std::make_unique<PlaneStatistics>();
  if (withHistogram) statistics->histogram.resize(values);
  orva_statistics& numbers = statistics->numbers;
  numbers.size = sizeof numbers;
  numbers.count = std::uint64_t{geometry.image_width} * geometry.image_height;
  const auto rowAt = [&](std::uint32_t y) { return pixels + std::size_t{y} * geometry.width + geometry.x; };
  numbers.minimum = {0xFFFF, 0, geometry.y};
  numbers.maximum = {0, 0, geometry.y};
  const kernels::KernelTable& kernel = kernels::active();
  for (std::uint32_t y = geometry.y; y < geometry.y + geometry.image_height; ++y) {
    kernels::Extremes extremes{};
    kernel.findExtremes(rowAt(y), geometry.image_width, &extremes);
    if (extremes.minimum < numbers.minimum.value) numbers.minimum = {extremes.minimum, 0, y};
    if (extremes.maximum > numbers.maximum.value) numbers.maximum = {extremes.maximum, 0, y};
    countValues(rowAt(y), geometry.image_width);
  }
  for (orva_extreme* extreme : {&numbers.minimum, &numbers.maximum})
    extreme->x = geometry.x + static_cast<std::uint32_t>(
                                  kernel.findFirst(rowAt(extreme->y), geometry.image_width, extreme->value));
  summarize(numbers);
  if (withHistogram) forEachValue([&](std::size_t value) { statistics->histogram[value] = m_counts[value]; });
  clear();
  return statistics;
}

}  // namespace orvacam::face
