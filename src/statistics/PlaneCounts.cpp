#include "statistics/PlaneCounts.h"

#include <algorithm>
#include <memory>
#include <new>

#include "statistics/Histogram.h"
#include "statistics/NeighbourCounts.h"

namespace orvacam {

namespace {

struct Extreme {
  unsigned int& value;
  int_point_t& point;
};

/// Never made: names the members that a class derived from the statistics may name.
class Members : public CFrameStatistics {
 public:
  static Histogram histogram(CFrameStatistics& s) {
    return {s.*&Members::m_Histogram, &(s.*&Members::m_ulUsedBlocks)};
  }
  static HistogramReader reader(const CFrameStatistics& s) {
    return {s.*&Members::m_Histogram, s.*&Members::m_ulUsedBlocks};
  }
  static std::unique_ptr<NeighbourCounts>& neighbours(CFrameStatistics& s) {
    return s.*&Members::m_pNeighbours;
  }
  static const NeighbourCounts* neighbours(const CFrameStatistics& s) {
    return (s.*&Members::m_pNeighbours).get();
  }
  static unsigned int& count(CFrameStatistics& s) { return s.*&Members::m_uiCount; }
  static Extreme minimum(CFrameStatistics& s) { return {s.*&Members::m_uiMin, s.*&Members::m_MinPoint}; }
  static Extreme maximum(CFrameStatistics& s) { return {s.*&Members::m_uiMax, s.*&Members::m_MaxPoint}; }

  static void copyNumbers(const CFrameStatistics& s, image_plane_stats_t& stats) {
    stats.uiLowClip = s.*&Members::m_usLowClip;
    stats.uiHighClip = s.*&Members::m_usHighClip;
    stats.dMean = s.*&Members::m_dMean;
    stats.dMidpoint = s.*&Members::m_dMidpoint;
    stats.dMode = s.*&Members::m_dMode;
    stats.dStdDev = s.*&Members::m_dStdDev;
    stats.maxPoint = s.*&Members::m_MaxPoint;
    stats.uiMax = s.*&Members::m_uiMax;
    stats.minPoint = s.*&Members::m_MinPoint;
    stats.uiMin = s.*&Members::m_uiMin;
  }
};

}  // namespace

void addRow(CFrameStatistics& statistics, const std::uint16_t* pixels, std::size_t count, int x, int y) {
  if (pixels == nullptr || count == 0) return;
  const Histogram histogram = Members::histogram(statistics);
  unsigned int& all = Members::count(statistics);
  std::unique_ptr<NeighbourCounts>& neighbours = Members::neighbours(statistics);
  const bool isSmall = all < NeighbourCounts::smallestPlane;
  const bool inPairs = !isSmall && count >= NeighbourCounts::shortestRow;
  if (inPairs && neighbours == nullptr) neighbours.reset(new (std::nothrow) NeighbourCounts());
  const kernels::Extremes extremes = inPairs && neighbours != nullptr
                                         ? neighbours->addRow(pixels, count, histogram)
                                         : countRow(pixels, count, histogram, isSmall);
  all += static_cast<unsigned int>(count);
  // Positions are looked for only where a row brings a new extreme, which few rows do.
  const auto take = [&](const Extreme& extreme, std::uint16_t value) {
    const std::size_t place = kernels::active().findFirst(pixels, count, value);
    extreme.value = value;
    extreme.point = {x + static_cast<int>(place), y};
  };
  const Extreme maximum = Members::maximum(statistics);
  const Extreme minimum = Members::minimum(statistics);
  if (extremes.maximum > maximum.value) take(maximum, extremes.maximum);
  if (extremes.minimum < minimum.value) take(minimum, extremes.minimum);
}

void addCounted(CFrameStatistics& statistics, const CountedPixels& pixels) {
  Histogram histogram = Members::histogram(statistics);
  unsigned int& all = Members::count(statistics);
  if (pixels.times == nullptr) {
    histogram.use(kernels::Extremes{static_cast<std::uint16_t>(Members::minimum(statistics).value),
                                    static_cast<std::uint16_t>(Members::maximum(statistics).value)});
    std::uint32_t* const counts = histogram.counts();
    for (std::size_t i = 0; i < pixels.count; ++i)
      ++counts[pixels.values[i]];
    all += static_cast<unsigned int>(pixels.count);
    return;
  }
  for (std::size_t i = 0; i < pixels.count; ++i) {
    if (pixels.times[i] == 0) continue;
    histogram.add(pixels.values[i], pixels.times[i]);
    all += pixels.times[i];
  }
}

void copyResults(const CFrameStatistics& statistics, image_plane_stats_t& stats) {
  Members::copyNumbers(statistics, stats);
  if (stats.pHistogram == nullptr) return;
  const unsigned int entries = std::min(stats.uiHistogramSize, histogramEntries);
  Members::reader(statistics).copyTo(stats.pHistogram, entries);
  const NeighbourCounts* const neighbours = Members::neighbours(statistics);
  if (neighbours == nullptr) return;
  neighbours->forEach([&](unsigned int value, std::uint32_t times) {
    if (value < entries) stats.pHistogram[value] += times;
  });
}

}  // namespace orvacam
