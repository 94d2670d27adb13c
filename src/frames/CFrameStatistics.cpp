#include <orvacam/frames/CFrameStatistics.h>

#include <algorithm>
#include <cmath>

#include "kernels/Kernels.h"

namespace kernels = orvacam::kernels;

// ---- Counts

CFrameStatistics::counts_t::counts_t() : m_uiFirst(1), m_uiLast(0) {}

CFrameStatistics::counts_t::counts_t(const counts_t& other) : counts_t() {
  *this = other;
}

CFrameStatistics::counts_t& CFrameStatistics::counts_t::operator=(const counts_t& other) {
  if (this == &other) return *this;
  m_uiFirst = other.m_uiFirst;
  m_uiLast = other.m_uiLast;
  if (m_uiFirst > m_uiLast) return *this;
  for (unsigned int bank = 0; bank < s_uiBanks; ++bank) {
    const unsigned int start = bank * s_uiBankStride;
    std::copy(other.m_Banks + start + m_uiFirst, other.m_Banks + start + m_uiLast + 1,
              m_Banks + start + m_uiFirst);
  }
  return *this;
}

void CFrameStatistics::counts_t::Clear() {
  m_uiFirst = 1;
  m_uiLast = 0;
}

void CFrameStatistics::counts_t::DoZero(unsigned int uiFirst, unsigned int uiLast) {
  for (unsigned int bank = 0; bank < s_uiBanks; ++bank)
    std::fill(m_Banks + bank * s_uiBankStride + uiFirst, m_Banks + bank * s_uiBankStride + uiLast + 1, 0U);
}

void CFrameStatistics::counts_t::Cover(unsigned int uiFirst, unsigned int uiLast) {
  if (m_uiFirst > m_uiLast) {
    DoZero(uiFirst, uiLast);
    m_uiFirst = uiFirst;
    m_uiLast = uiLast;
    return;
  }
  if (uiFirst < m_uiFirst) {
    DoZero(uiFirst, m_uiFirst - 1);
    m_uiFirst = uiFirst;
  }
  if (uiLast > m_uiLast) {
    DoZero(m_uiLast + 1, uiLast);
    m_uiLast = uiLast;
  }
}

unsigned long CFrameStatistics::counts_t::Of(unsigned int uiValue) const {
  unsigned long count = 0;
  for (unsigned int bank = 0; bank < s_uiBanks; ++bank)
    count += m_Banks[bank * s_uiBankStride + uiValue];
  return count;
}

void CFrameStatistics::counts_t::CopyTo(double* pHistogram, unsigned int uiFirst, unsigned int uiLast) const {
  static_assert(s_uiBanks == 2);
  for (unsigned int value = uiFirst; value <= uiLast; ++value)
    pHistogram[value] = m_Banks[value] + m_Banks[s_uiBankStride + value];
}

const unsigned int* CFrameStatistics::counts_t::Fold(unsigned int uiFirst, unsigned int uiLast) {
  if (uiFirst > uiLast) return m_Banks;
  for (unsigned int bank = 1; bank < s_uiBanks; ++bank) {
    unsigned int* const counts = m_Banks + bank * s_uiBankStride;
    for (unsigned int value = uiFirst; value <= uiLast; ++value)
      m_Banks[value] += counts[value];
    std::fill(counts + uiFirst, counts + uiLast + 1, 0U);
  }
  return m_Banks;
}

// ---- Statistics

CFrameStatistics::CFrameStatistics()
    : m_dLowClipFraction(0.05), m_dHighClipFraction(0.001), m_usLowClip(0), m_usHighClip(0) {
  static_assert(s_uiBanks == kernels::countBanks && s_uiBankStride == kernels::countBankStride);
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
  ++m_Counts.GetBanks()[usValue];
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
  unsigned short minimum = 0;
  unsigned short maximum = 0;
  kernel.findExtremes(pPixels, ulCount, &minimum, &maximum);
  m_Counts.Cover(minimum, maximum);
  kernel.countPixels(pPixels, ulCount, m_Counts.GetBanks());
  m_uiCount += static_cast<unsigned int>(ulCount);
  // Positions are looked for only where a row brings a new extreme, which few rows do.
  if (maximum > m_uiMax) {
    m_uiMax = maximum;
    m_MaxPoint = {x + static_cast<int>(kernel.findFirst(pPixels, ulCount, maximum)), y};
  }
  if (minimum < m_uiMin) {
    m_uiMin = minimum;
    m_MinPoint = {x + static_cast<int>(kernel.findFirst(pPixels, ulCount, minimum)), y};
  }
}

void CFrameStatistics::Compute() {
  // Sums of integers are exact, fit 64 bits for as many pixels as the count holds, and are rounded once.
  unsigned long sum = 0;
  long squares = 0;
  const double count = m_uiCount;
  unsigned long passed = 0;
  unsigned int largest = 0;
  m_dMode = 0.0;
  const unsigned int* const counts = m_Counts.Fold(m_uiMin, m_uiMax);
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
