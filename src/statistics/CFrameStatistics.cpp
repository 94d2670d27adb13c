#include <orvacam/statistics/CFrameStatistics.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "statistics/Histogram.h"
#include "statistics/NeighbourCounts.h"
#include "statistics/PlaneCounts.h"

using orvacam::Histogram;
using orvacam::HistogramReader;
using orvacam::NeighbourCounts;

// ---- Life

CFrameStatistics::CFrameStatistics()
    : m_dLowClipFraction(0.05), m_dHighClipFraction(0.001), m_usLowClip(0), m_usHighClip(0) {
  Reset();
}

CFrameStatistics::CFrameStatistics(const CFrameStatistics& other) : CFrameStatistics() {
  *this = other;
}

CFrameStatistics& CFrameStatistics::operator=(const CFrameStatistics& other) {
  if (this == &other) return *this;
  Reset();
  m_dLowClipFraction = other.m_dLowClipFraction;
  m_dHighClipFraction = other.m_dHighClipFraction;
  m_usLowClip = other.m_usLowClip;
  m_usHighClip = other.m_usHighClip;
  m_dMean = other.m_dMean;
  m_dMidpoint = other.m_dMidpoint;
  m_dMode = other.m_dMode;
  m_dStdDev = other.m_dStdDev;
  m_uiCount = other.m_uiCount;
  m_MaxPoint = other.m_MaxPoint;
  m_uiMax = other.m_uiMax;
  m_MinPoint = other.m_MinPoint;
  m_uiMin = other.m_uiMin;
  Histogram histogram(m_Histogram, &m_ulUsedBlocks);
  const auto add = [&](unsigned int value, std::uint32_t times) {
    histogram.add(value, times);
    return true;
  };
  HistogramReader(other.m_Histogram, other.m_ulUsedBlocks).forEach(add);
  if (other.m_pNeighbours != nullptr) other.m_pNeighbours->forEach(add);
  return *this;
}

CFrameStatistics::~CFrameStatistics() = default;

/// Intended: the clip points stay.
void CFrameStatistics::Reset() {
  if (m_pNeighbours != nullptr) m_pNeighbours->reset();
  m_ulUsedBlocks = 0;
  m_dMean = m_dMidpoint = m_dMode = m_dStdDev = 0.0;
  m_uiCount = 0;
  m_MaxPoint = m_MinPoint = int_point_t{0, 0};
  m_uiMax = 0;
  m_uiMin = 65535;
}

// ---- Pixels

void CFrameStatistics::AddPixel(unsigned short usValue, const int_point_t& position) {
  Histogram(m_Histogram, &m_ulUsedBlocks).add(usValue, 1);
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

// ---- Results

void CFrameStatistics::Compute() {
  if (m_pNeighbours != nullptr) m_pNeighbours->fold(Histogram(m_Histogram, &m_ulUsedBlocks));
  const HistogramReader histogram(m_Histogram, m_ulUsedBlocks);
  // Sums of integers are exact, fit 64 bits for as many pixels as the count holds, and are rounded once.
  const HistogramReader::Sums sums = histogram.sums();
  const double count = m_uiCount;
  const auto total = static_cast<double>(sums.values);
  m_dMean = total / count;
  m_dMidpoint = m_uiMin + ((m_uiMax + 1 - m_uiMin) >> 1);
  m_dMode = sums.mode;
  m_dStdDev = std::sqrt((static_cast<double>(sums.squares) - total * total / count) / count);

  // A clip point moves on to each value that occurs, at last the extreme, until enough pixels are passed.
  const auto clipAt = [&](double fraction, unsigned short& clip) {
    return [&clip, limit = fraction * count, passed = 0UL](unsigned int value, std::uint32_t pixels) mutable {
      if (!(limit > static_cast<double>(passed))) return false;
      clip = static_cast<unsigned short>(value);
      if (value < orvacam::histogramEntries) passed += pixels;
      return true;
    };
  };
  histogram.forEach(clipAt(m_dLowClipFraction, m_usLowClip));
  histogram.forEachDown(clipAt(m_dHighClipFraction, m_usHighClip));
}
