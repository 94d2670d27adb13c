#include "frames/PairStatistics.h"

#include <algorithm>

namespace orvacam {

namespace {

constexpr unsigned int pixelValues = kernels::takenMark;  // of 12 bits
constexpr unsigned int markedValues = 2 * pixelValues;

}  // namespace

PairStatistics::PairStatistics(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged)
    : m_kernel(kernels::active()), m_low(low), m_high(high), m_merged(merged) {
  m_low.m_Counts.Cover(0, markedValues - 1);
  m_high.m_Counts.Cover(0, markedValues - 1);
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
  m_kernel.countPixels(run.countedLow, pixels, m_low.m_Counts.GetBanks());
  m_kernel.countPixels(run.countedHigh, pixels, m_high.m_Counts.GetBanks());
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
void PairStatistics::putTaken(const CFrameStatistics& plane, const unsigned short* corrected) {
  unsigned int* const counts = m_merged.m_Counts.GetBanks();
  for (unsigned int value = plane.m_uiMin; value <= plane.m_uiMax; ++value)
    if (const unsigned long taken = plane.m_Counts.Of(pixelValues + value))
      counts[corrected[value]] += static_cast<unsigned int>(taken);
}

/// Adds the marked counts to the others.
void PairStatistics::unmark(CFrameStatistics& plane) {
  unsigned int* const banks = plane.m_Counts.GetBanks();
  for (unsigned int bank = 0; bank < kernels::countBanks; ++bank) {
    unsigned int* const counts = banks + bank * kernels::countBankStride;
    for (unsigned int value = 0; value < pixelValues; ++value)
      counts[value] += counts[pixelValues + value];
    std::fill_n(counts + pixelValues, pixelValues, 0U);
  }
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
