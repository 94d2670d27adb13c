#ifndef ORVACAM_STATISTICS_CFRAMESTATISTICS_H
#define ORVACAM_STATISTICS_CFRAMESTATISTICS_H

#include <orvacam/types/export.h>
#include <orvacam/types/plane_stats.h>

#include <memory>

namespace orvacam {
class NeighbourCounts;
}  // namespace orvacam

/// Accumulates the pixels of one 16-bit plane and computes its mean, spread, mode, extremes with their
/// positions, and two clip points of its histogram.
///
/// The histogram has an entry for each value from 0 to 65534; 65535 counts in the sums and extremes alone.
/// Results are exact up to 2^32 - 1 pixels, where the pixel count wraps.
///
/// An object is 257 KiB large, histogram included; all operations touch only what belongs to the values that
/// occurred. Large planes may take up to 70 KiB more, to count faster; without that memory they are counted
/// slower, with the same results. Nothing throws. One object is used by one thread at a time.
class ORVACAM_API CFrameStatistics {
 public:
  CFrameStatistics();
  CFrameStatistics(const CFrameStatistics& other);
  CFrameStatistics& operator=(const CFrameStatistics& other);
  ~CFrameStatistics();

  /// Forgets all pixels and results; the two clip points keep their values.
  void Reset();

  void AddPixel(unsigned short usValue, const int_point_t& position);
  void AddPixels(unsigned short usFirst, const int_point_t& firstPosition, unsigned short usSecond,
                 const int_point_t& secondPosition);

  /// Computes the results from the pixels added, which frames and merges hand out. Without pixels the mean
  /// and the deviation are not numbers.
  void Compute();

 protected:
  double m_dLowClipFraction;
  double m_dHighClipFraction;
  unsigned short m_usLowClip;
  unsigned short m_usHighClip;
  double m_dMean;
  double m_dMidpoint;
  double m_dMode;
  double m_dStdDev;
  unsigned int m_uiCount;
  int_point_t m_MaxPoint;
  unsigned int m_uiMax;
  int_point_t m_MinPoint;
  unsigned int m_uiMin;

  std::unique_ptr<orvacam::NeighbourCounts> m_pNeighbours;  ///< null until a large plane comes
  unsigned long
      m_ulUsedBlocks;  ///< bit b: whether entries from 1024 b on are in use, else they hold anything
  unsigned int m_Histogram[65536];
};

#endif  // ORVACAM_STATISTICS_CFRAMESTATISTICS_H
