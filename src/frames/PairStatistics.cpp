#include "frames/PairStatistics.h"

#include <algorithm>

namespace orvacam {

namespace {

constexpr unsigned int pixelValues = kernels::takenMark;  // of 12 bits

/// The count of a value that may be marked.
unsigned int countOf(const unsigned int* banks, unsigned int value) {
  unsigned int count = 0;
  for (unsigned int bank = 0; bank < kernels::markedBanks; ++bank)
    count += banks[bank * kernels::markedBankStride + value];
  return count;
}

}  // namespace

PairStatistics::PairStatistics(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged)
    : m_kernel(kernels::active()), m_low(low), m_high(high), m_merged(merged) {
  static_assert(kernels::markedEntries <= kernels::countEntries);
  for (CFrameStatistics* plane : {&m_low, &m_high})
    std::fill_n(plane->m_Counts.GetBanks(), kernels::markedEntries, 0U);
}

/// Positions are looked for only where a run brings a new extreme, which few runs do.
template <typename FindFirst>
void PairStatistics::addExtremes(CFrameStatistics& statistics, const Extremes& extremes, std::size_t pixels,
                                 int x, int y, const FindFirst& findFirst) {
  statistics.m_uiCount += static_cast<unsigned int>(pixels);
  if (extremes.maximum > statistics.m_uiMax) {
    statistics.m_uiMax = extremes.maximum;
    statistics.m_MaxPoint = {x + static_cast<int>(findFirst(extremes.maximum)), y};
  }
  if (extremes.minimum < statistics.m_uiMin) {
    statistics.m_uiMin = extremes.minimum;
    statistics.m_MinPoint = {x + static_cast<int>(findFirst(extremes.minimum)), y};
  }
}

void PairStatistics::add(const kernels::PackedPair& run, int x, int y, int mergedX, int mergedY) {
  const std::size_t pixels = 2 * run.pairs;
  if (pixels == 0) return;
  m_kernel.countMarked(run.countedLow, pixels, m_low.m_Counts.GetBanks());
  m_kernel.countMarked(run.countedHigh, pixels, m_high.m_Counts.GetBanks());
  const kernels::PairExtremes& extremes = *run.extremes;
  if (run.countedMerged != nullptr) {
    m_merged.m_Counts.Cover(extremes.mergedMinimum, extremes.mergedMaximum);
    m_kernel.countPixels(run.countedMerged, pixels, m_merged.m_Counts.GetBanks());
  }
  const auto firstMarkedOrNot = [&](const std::uint16_t* counted) {
    return [this, counted, pixels](std::uint16_t value) {
      return std::min(
          m_kernel.findFirst(counted, pixels, value),
          m_kernel.findFirst(counted, pixels, static_cast<std::uint16_t>(value | kernels::takenMark)));
    };
  };
  addExtremes(m_low, {extremes.lowMinimum, extremes.lowMaximum}, pixels, x, 2 * y,
              firstMarkedOrNot(run.countedLow));
  addExtremes(m_high, {extremes.highMinimum, extremes.highMaximum}, pixels, x, 2 * y + 1,
              firstMarkedOrNot(run.countedHigh));
  addExtremes(m_merged, {extremes.mergedMinimum, extremes.mergedMaximum}, pixels, mergedX, mergedY,
              [&](std::uint16_t value) { return m_kernel.findFirst(run.merged, pixels, value); });
}

/// Puts the counts of the pixels that the merge took of a plane at their corrected values.
void PairStatistics::putTaken(CFrameStatistics& plane, const unsigned short* corrected) {
  const unsigned int* const marked = plane.m_Counts.GetBanks();
  unsigned int* const counts = m_merged.m_Counts.GetBanks();
  for (unsigned int value = plane.m_uiMin; value <= plane.m_uiMax; ++value)
    if (const unsigned int taken = countOf(marked, pixelValues + value)) counts[corrected[value]] += taken;
}

/// Marked and other counts become the plane's, in the order of its own banks.
void PairStatistics::unmark(CFrameStatistics& plane) {
  if (plane.m_uiMin > plane.m_uiMax) return;
  const unsigned int* const marked = plane.m_Counts.GetBanks();
  unsigned int counts[pixelValues];
  for (unsigned int value = plane.m_uiMin; value <= plane.m_uiMax; ++value)
    counts[value] = countOf(marked, value) + countOf(marked, pixelValues + value);
  plane.m_Counts.Clear();
  plane.m_Counts.Cover(plane.m_uiMin, plane.m_uiMax);
  std::copy(counts + plane.m_uiMin, counts + plane.m_uiMax + 1, plane.m_Counts.GetBanks() + plane.m_uiMin);
}

void PairStatistics::finish(const unsigned short* correctedLow, const unsigned short* correctedHigh) {
  if (m_merged.m_uiCount > 0 && correctedLow != nullptr && correctedHigh != nullptr) {
    m_merged.m_Counts.Cover(m_merged.m_uiMin, m_merged.m_uiMax);
    putTaken(m_low, correctedLow);
    putTaken(m_high, correctedHigh);
  }
  unmark(m_low);
  unmark(m_high);
}

}  // namespace orvacam
