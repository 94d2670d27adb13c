#include <orvacam/frames/CFrameStatistics.h>

#include <algorithm>
#include <cmath>

#include "kernels/Kernels.h"

namespace kernels = orvacam::kernels;

static_assert(sizeof(unsigned long) == sizeof(std::uint64_t));

CFrameStatistics::CFrameStatistics()
    : m_dLowClipFraction(0.05),
      m_dHighClipFraction(0.001),
      m_usLowClip(0),
      m_usHighClip(0),
      m_Counts{},
      m_uiMax(0),
      m_uiMin(1) {
  Reset();
}

void CFrameStatistics::Reset() {
  // Only values between the extremes have counts.
  if (m_uiMin <= m_uiMax) std::fill(m_Counts + m_uiMin, m_Counts + m_uiMax + 1, 0UL);
  m_dMean = m_dMidpoint = m_dMode = m_dStdDev = 0.0;
  m_uiCount = 0;
  m_MaxPoint = m_MinPoint = int_point_t{0, 0};
  m_uiMax = 0;
  m_uiMin = 65535;
}

void CFrameStatistics::AddPixel(unsigned short usValue, const int_point_t& position) {
  ++m_uiCount;
  ++m_Counts[usValue];
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
  kernel.countPixels(pPixels, ulCount, m_Counts);
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
  // Sums of integers are exact; they are rounded once, as doubles.
  unsigned __int128 sum = 0;
  __int128 squares = 0;
  for (unsigned int value = m_uiMin; value <= m_uiMax; ++value) {
    // Intended: the square is a 32-bit product read as signed, negative from 46341 on.
    const auto square = static_cast<int>(value * value);
    sum += static_cast<unsigned __int128>(m_Counts[value]) * value;
    squares += static_cast<__int128>(m_Counts[value]) * square;
  }
  const double count = m_uiCount;
  const auto total = static_cast<double>(sum);
  m_dMean = total / count;
  m_dMidpoint = m_uiMin + ((m_uiMax + 1 - m_uiMin) >> 1);
  m_dStdDev = std::sqrt((static_cast<double>(squares) - total * total / count) / count);
  m_dMode = 0.0;
  if (m_uiMin > m_uiMax) return;

  // The value 65535 has no histogram entry.
  const auto entry = [this](unsigned int value) { return value < s_uiHistogramSize ? m_Counts[value] : 0UL; };
  unsigned long passed = 0;
  unsigned long largest = 0;
  for (unsigned int value = m_uiMin; value <= m_uiMax; ++value) {
    if (entry(value) > largest) {
      largest = entry(value);
      m_dMode = value;
    }
    if (m_dLowClipFraction * count > static_cast<double>(passed))
      m_usLowClip = static_cast<unsigned short>(value);
    passed += entry(value);
  }
  passed = 0;
  for (unsigned int value = m_uiMax + 1; value-- > m_uiMin;) {
    if (m_dHighClipFraction * count > static_cast<double>(passed))
      m_usHighClip = static_cast<unsigned short>(value);
    passed += entry(value);
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
  if (stats.pHistogram != nullptr)
    std::copy_n(m_Counts, std::min(stats.uiHistogramSize, s_uiHistogramSize), stats.pHistogram);
}
