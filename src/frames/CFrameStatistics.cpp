#include <orvacam/frames/CFrameStatistics.h>

#include <algorithm>
#include <cmath>

#include "frames/CountWindows.h"
#include "kernels/Kernels.h"

namespace kernels = orvacam::kernels;

// ---- Counts

namespace {

/// Pixels that are added at once: what is noted of them stays in the cache.
constexpr unsigned long blockPixels = 8192;
/// Shorter runs, and smaller planes, are not worth looking for a window.
constexpr unsigned long shortestOfPairs = 256;
constexpr unsigned long smallestPlane = 65536;
/// A window that soon fits no more is not followed at once: the plane has too much in it.
constexpr unsigned long shortLife = 65536;
constexpr unsigned long pauseAfterShortLife = 262144;

constexpr unsigned int windowValues = 1U << kernels::pairWindowBits;

}  // namespace

CFrameStatistics::counts_t::counts_t() {
  static_assert(kernels::pairEntries <= s_uiSpareEntries);
  Clear();
}

CFrameStatistics::counts_t::counts_t(const counts_t& other) : counts_t() {
  *this = other;
}

CFrameStatistics::counts_t& CFrameStatistics::counts_t::operator=(const counts_t& other) {
  if (this == &other) return *this;
  m_uiFirst = other.m_uiFirst;
  m_uiLast = other.m_uiLast;
  m_bPairs = other.m_bPairs;
  m_usWindow = other.m_usWindow;
  m_ulPixelsOfWindow = other.m_ulPixelsOfWindow;
  m_ulUntilChoice = other.m_ulUntilChoice;
  if (m_uiFirst <= m_uiLast)
    std::copy(other.m_Entries + m_uiFirst, other.m_Entries + m_uiLast + 1, m_Entries + m_uiFirst);
  if (m_bPairs) std::copy_n(other.m_Entries + s_uiValues, kernels::pairEntries, m_Entries + s_uiValues);
  return *this;
}

void CFrameStatistics::counts_t::Clear() {
  m_uiFirst = 1;
  m_uiLast = 0;
  m_bPairs = false;
  m_usWindow = 0;
  m_ulPixelsOfWindow = 0;
  m_ulUntilChoice = smallestPlane;
}

void CFrameStatistics::counts_t::Cover(unsigned int uiFirst, unsigned int uiLast) {
  if (m_uiFirst > m_uiLast) {
    std::fill(m_Entries + uiFirst, m_Entries + uiLast + 1, 0U);
    m_uiFirst = uiFirst;
    m_uiLast = uiLast;
    return;
  }
  if (uiFirst < m_uiFirst) {
    std::fill(m_Entries + uiFirst, m_Entries + m_uiFirst, 0U);
    m_uiFirst = uiFirst;
  }
  if (uiLast > m_uiLast) {
    std::fill(m_Entries + m_uiLast + 1, m_Entries + uiLast + 1, 0U);
    m_uiLast = uiLast;
  }
}

/// Takes each pair of values that occurs, and how often. A place of 0 says nothing: it is also that of the
/// pairs outside the window.
template <typename Take>
void CFrameStatistics::counts_t::DoForEachPair(const Take& take) const {
  const unsigned int* const banks = m_Entries + s_uiValues;
  for (unsigned int place = 1; place < windowValues * windowValues; ++place) {
    unsigned int pairs = 0;
    for (unsigned int bank = 0; bank < kernels::countBanks; ++bank)
      pairs += banks[bank * kernels::pairBankStride + place];
    if (pairs > 0) take(m_usWindow + place % windowValues, m_usWindow + place / windowValues, pairs);
  }
}

void CFrameStatistics::counts_t::CopyTo(double* pHistogram, unsigned int uiFirst, unsigned int uiLast) const {
  std::copy(m_Entries + uiFirst, m_Entries + uiLast + 1, pHistogram + uiFirst);
  if (!m_bPairs) return;
  DoForEachPair([=](unsigned int uiValue, unsigned int uiNext, unsigned int uiPairs) {
    for (const unsigned int value : {uiValue, uiNext})
      if (value >= uiFirst && value <= uiLast) pHistogram[value] += uiPairs;
  });
}

void CFrameStatistics::counts_t::Fold() {
  if (!m_bPairs) return;
  DoForEachPair([this](unsigned int uiValue, unsigned int uiNext, unsigned int uiPairs) {
    m_Entries[uiValue] += uiPairs;
    m_Entries[uiNext] += uiPairs;
  });
  m_bPairs = false;
}

CFrameStatistics::extremes_t CFrameStatistics::counts_t::Add(const unsigned short* pPixels,
                                                             unsigned long ulCount) {
  m_ulUntilChoice -= std::min(m_ulUntilChoice, ulCount);
  if (!m_bPairs && m_ulUntilChoice == 0 && ulCount >= shortestOfPairs) DoChooseWindow(pPixels, ulCount);
  return m_bPairs ? DoAddPairs(pPixels, ulCount) : DoAddOneByOne(pPixels, ulCount);
}

CFrameStatistics::extremes_t CFrameStatistics::counts_t::DoAddOneByOne(const unsigned short* pPixels,
                                                                       unsigned long ulCount) {
  const kernels::KernelTable& kernel = kernels::active();
  kernels::Extremes extremes;
  kernel.findExtremes(pPixels, ulCount, &extremes);
  Cover(extremes.minimum, extremes.maximum);
  kernel.countValues(pPixels, ulCount, m_Entries, 0, pPixels + ulCount, ulCount * sizeof *pPixels);
  return {extremes.minimum, extremes.maximum};
}

CFrameStatistics::extremes_t CFrameStatistics::counts_t::DoAddPairs(const unsigned short* pPixels,
                                                                    unsigned long ulCount) {
  const kernels::KernelTable& kernel = kernels::active();
  unsigned short places[blockPixels / 2];
  unsigned short outside[blockPixels / 2];
  unsigned long pairsOutside = 0;
  extremes_t all = {pPixels[ulCount - 1], pPixels[ulCount - 1]};
  for (unsigned long done = 0; done + 1 < ulCount; done += blockPixels) {
    const unsigned short* const pixels = pPixels + done;
    const unsigned long pairs = std::min(blockPixels, ulCount - done) / 2;
    kernels::Extremes extremes;
    kernel.placePairs(pixels, pairs, m_usWindow, places, &extremes);
    all = {std::min(all.usMinimum, extremes.minimum), std::max(all.usMaximum, extremes.maximum)};
    Cover(all.usMinimum, all.usMaximum);
    kernel.countValues(places, pairs, m_Entries + s_uiValues, kernels::pairBankStride, pixels + 2 * pairs,
                       2 * pairs * sizeof *pixels);
    const unsigned long found = kernel.findEach(places, pairs, 0, outside);
    for (unsigned long i = 0; i < found; ++i) {
      ++m_Entries[pixels[2 * outside[i]]];
      ++m_Entries[pixels[2 * outside[i] + 1]];
    }
    pairsOutside += found;
  }
  if (ulCount % 2 != 0) ++m_Entries[pPixels[ulCount - 1]];
  m_ulPixelsOfWindow += ulCount;
  if (pairsOutside > ulCount / 16) {
    Fold();
    m_ulUntilChoice = m_ulPixelsOfWindow < shortLife ? pauseAfterShortLife : 0;
  }
  return all;
}

/// A window around most of these pixels, if one is wide enough.
void CFrameStatistics::counts_t::DoChooseWindow(const unsigned short* pPixels, unsigned long ulCount) {
  constexpr unsigned long samples = 256;
  int sample[samples];
  for (unsigned long i = 0; i < samples; ++i)
    sample[i] = pPixels[i * ulCount / samples];
  const orvacam::Spread spread = orvacam::spreadOf(sample);
  const orvacam::CountWindow window =
      movedWithin(windowAround(spread, kernels::pairWindowBits), s_uiValues - 1);
  m_bPairs = spread.bits() <= kernels::pairWindowBits;
  m_usWindow = static_cast<unsigned short>(window.first);
  m_ulPixelsOfWindow = 0;
  m_ulUntilChoice = pauseAfterShortLife;
  if (m_bPairs) std::fill_n(m_Entries + s_uiValues, kernels::pairEntries, 0U);
}

// ---- Statistics

CFrameStatistics::CFrameStatistics()
    : m_dLowClipFraction(0.05), m_dHighClipFraction(0.001), m_usLowClip(0), m_usHighClip(0) {
  Reset();
}

void CFrameStatistics::Reset() {
  m_Counts.Clear();
  m_dMean = m_dMidpoint = m_dMode = m_dStdDev = 0.0;
  m_uiCount = 0;
  m_MaxPoint = m_MinPoint = int_point_t{0, 0};
  m_uiMax = 0;
  m_uiMin = 65535;
}

void CFrameStatistics::AddPixel(unsigned short usValue, const int_point_t& position) {
  m_Counts.Cover(usValue, usValue);
  ++m_Counts.GetEntries()[usValue];
  ++m_uiCount;
  if (usValue > m_uiMax) {
    m_uiMax = usValue;
    m_MaxPoint = position;
  }
  if (usValue < m_uiMin) {
    m_uiMin = usValue;
    m_MinPoint = position;
  }
}

void CFrameStatistics::AddPixels(unsigned short usFirst, const int_point_t& firstPosition,
                                 unsigned short usSecond, const int_point_t& secondPosition) {
  AddPixel(usFirst, firstPosition);
  AddPixel(usSecond, secondPosition);
}

void CFrameStatistics::AddRow(const unsigned short* pPixels, unsigned long ulCount, int x, int y) {
  if (pPixels == nullptr || ulCount == 0) return;
  const kernels::KernelTable& kernel = kernels::active();
  const extremes_t extremes = m_Counts.Add(pPixels, ulCount);
  m_uiCount += static_cast<unsigned int>(ulCount);
  DoExtend(extremes, {x, y},
           [&](unsigned short usValue) { return kernel.findFirst(pPixels, ulCount, usValue); });
}

void CFrameStatistics::Compute() {
  // Sums of integers are exact, fit 64 bits for as many pixels as the count holds, and are rounded once.
  unsigned long sum = 0;
  long squares = 0;
  const double count = m_uiCount;
  unsigned long passed = 0;
  unsigned int largest = 0;
  m_dMode = 0.0;
  m_Counts.Fold();
  const unsigned int* const counts = m_Counts.GetEntries();
  for (unsigned int value = m_uiMin; value <= m_uiMax; ++value) {
    const unsigned int pixels = counts[value];
    if (pixels == 0)
      continue;  // the clip point moves on with the next value that occurs, at last the maximum
    // Intended: the square is a 32-bit product read as signed, negative from 46341 on.
    const auto square = static_cast<int>(value * value);
    sum += static_cast<unsigned long>(pixels) * value;
    squares += static_cast<long>(pixels) * square;
    if (m_dLowClipFraction * count > static_cast<double>(passed))
      m_usLowClip = static_cast<unsigned short>(value);
    if (value == s_uiHistogramSize) continue;  // has no histogram entry
    if (pixels > largest) {
      largest = pixels;
      m_dMode = value;
    }
    passed += pixels;
  }
  const auto total = static_cast<double>(sum);
  m_dMean = total / count;
  m_dMidpoint = m_uiMin + ((m_uiMax + 1 - m_uiMin) >> 1);
  m_dStdDev = std::sqrt((static_cast<double>(squares) - total * total / count) / count);

  passed = 0;
  for (unsigned int value = m_uiMax + 1; value-- > m_uiMin;) {
    if (!(m_dHighClipFraction * count > static_cast<double>(passed))) break;
    m_usHighClip = static_cast<unsigned short>(value);
    if (value < s_uiHistogramSize) passed += counts[value];
  }
}

void CFrameStatistics::GetResults(image_plane_stats_t& stats) const {
  stats.uiLowClip = m_usLowClip;
  stats.uiHighClip = m_usHighClip;
  stats.dMean = m_dMean;
  stats.dMidpoint = m_dMidpoint;
  stats.dMode = m_dMode;
  stats.dStdDev = m_dStdDev;
  stats.maxPoint = m_MaxPoint;
  stats.uiMax = m_uiMax;
  stats.minPoint = m_MinPoint;
  stats.uiMin = m_uiMin;
  if (stats.pHistogram == nullptr) return;
  const unsigned int entries = std::min(stats.uiHistogramSize, s_uiHistogramSize);
  std::fill_n(stats.pHistogram, entries, 0.0);
  if (m_uiMin <= m_uiMax && m_uiMin < entries)
    m_Counts.CopyTo(stats.pHistogram, m_uiMin, std::min(m_uiMax, entries - 1));
}
