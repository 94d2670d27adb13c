#include "face/PlaneStatistics.h"

#include <algorithm>
#include <cmath>

#include "kernels/Kernels.h"

namespace orvacam::face {

namespace {

constexpr std::size_t levels = 65536;
// The library's clip points: 5 % of the pixels below, 0.1 % above.
constexpr double lowClipFraction = 0.05;
constexpr double highClipFraction = 0.001;

}  // namespace

orva_statistics PlaneStatistics::record() const {
  orva_statistics record = numbers;
  record.histogram = histogram.empty() ? nullptr : histogram.data();
  return record;
}

struct PlaneCounter::Runs {
  Runs(const std::uint16_t* plane, const orva_geometry& geometry)
      : pixels(plane + std::size_t{geometry.y} * geometry.width + geometry.x),
        stride(geometry.width),
        length(geometry.image_width),
        count(geometry.image_height) {
    const std::size_t all = length * count;
    if (length != stride || all >= NeighbourCounts::smallestPlane) return;
    length = stride = all;
    count = 1;
  }

  const std::uint16_t* run(std::size_t i) const { return pixels + i * stride; }

  const std::uint16_t* pixels;
  std::size_t stride, length, count;
};

// The counts are cleared block by block, when they are first used. Groups of values are gathered whole.
PlaneCounter::PlaneCounter()
    : m_counts(new std::uint32_t[levels]),
      m_values(new std::uint16_t[levels + kernels::countGroup]),
      m_times(new std::uint32_t[levels + kernels::countGroup]) {}

/// Counts the region and finds the runs of the extremes; their x is the number of the run.
void PlaneCounter::countRuns(const Runs& runs, orva_statistics& numbers) {
  m_usedBlocks = 0;
  m_neighbours.reset();
  const Histogram histogram(m_counts.get(), &m_usedBlocks);
  numbers.minimum = {0xFFFF, 0, 0};
  numbers.maximum = {0, 0, 0};
  for (std::uint32_t i = 0; i < runs.count; ++i) {
    const bool isSmall = i * runs.length < NeighbourCounts::smallestPlane;
    const bool inPairs = !isSmall && runs.length >= NeighbourCounts::shortestRow;
    const std::uint16_t* const run = runs.run(i);
    const kernels::Extremes extremes = inPairs ? m_neighbours.addRow(run, runs.length, histogram)
                                               : countRow(run, runs.length, histogram, isSmall);
    if (extremes.minimum < numbers.minimum.value) numbers.minimum = {extremes.minimum, i, 0};
    if (extremes.maximum > numbers.maximum.value) numbers.maximum = {extremes.maximum, i, 0};
  }
  m_neighbours.fold(histogram);
}

/// Without a branch for each value, as nobody can guess which ones occur.
void PlaneCounter::gatherOccurring() {
  m_occurring = 0;
  for (std::uint64_t left = m_usedBlocks; left != 0; left &= left - 1) {
    const std::size_t block = static_cast<std::size_t>(__builtin_ctzl(left)) << Histogram::blockBits;
    for (std::size_t first = block; first < block + Histogram::blockValues; first += kernels::countGroup) {
      if (!hasCount(m_counts.get() + first)) continue;
      for (std::size_t value = first; value < first + kernels::countGroup; ++value) {
        m_values[m_occurring] = static_cast<std::uint16_t>(value);
        m_times[m_occurring] = m_counts[value];
        m_occurring += m_counts[value] != 0 ? 1U : 0U;
      }
    }
  }
}

void PlaneCounter::summarize(orva_statistics& numbers) const {
  const auto all = static_cast<double>(numbers.count);
  std::uint64_t sum = 0;
  unsigned __int128 squares = 0;
  std::uint32_t largest = 0;
  for (std::size_t i = 0; i < m_occurring; ++i) {
    const std::uint64_t value = m_values[i];
    const std::uint64_t times = m_times[i];
    sum += times * value;
    squares += times * value * value;
    if (m_times[i] > largest) numbers.mode = m_values[i];
    largest = std::max(largest, m_times[i]);
  }
  // A clip point moves on to each value that occurs until enough pixels are passed.
  std::uint64_t passed = 0;
  for (std::size_t i = 0; i < m_occurring && lowClipFraction * all > static_cast<double>(passed); ++i) {
    numbers.clip_low = m_values[i];
    passed += m_times[i];
  }
  passed = 0;
  for (std::size_t i = m_occurring; i > 0 && highClipFraction * all > static_cast<double>(passed); --i) {
    numbers.clip_high = m_values[i - 1];
    passed += m_times[i - 1];
  }
  numbers.mean = static_cast<double>(sum) / all;
  const unsigned __int128 spread = squares * numbers.count - static_cast<unsigned __int128>(sum) * sum;
  numbers.deviation =
      static_cast<double>(std::sqrt(static_cast<long double>(spread)) / static_cast<long double>(all));
}

std::unique_ptr<const PlaneStatistics> PlaneCounter::count(const std::uint16_t* pixels,
                                                           const orva_geometry& geometry,
                                                           bool withHistogram) {
  auto statistics = std::make_unique<PlaneStatistics>();
  if (withHistogram) statistics->histogram.resize(levels);
  orva_statistics& numbers = statistics->numbers;
  numbers.size = sizeof numbers;
  numbers.count = std::uint64_t{geometry.image_width} * geometry.image_height;
  const Runs runs(pixels, geometry);
  countRuns(runs, numbers);
  for (orva_extreme* extreme : {&numbers.minimum, &numbers.maximum}) {
    const std::size_t run = extreme->x;
    const std::size_t place =
        run * geometry.image_width + kernels::active().findFirst(runs.run(run), runs.length, extreme->value);
    extreme->x = geometry.x + static_cast<std::uint32_t>(place % geometry.image_width);
    extreme->y = geometry.y + static_cast<std::uint32_t>(place / geometry.image_width);
  }
  gatherOccurring();
  summarize(numbers);
  if (withHistogram)
    for (std::size_t i = 0; i < m_occurring; ++i)
      statistics->histogram[m_values[i]] = m_times[i];
  return statistics;
}

}  // namespace orvacam::face
