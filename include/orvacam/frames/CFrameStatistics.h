#ifndef ORVACAM_FRAMES_CFRAMESTATISTICS_H
#define ORVACAM_FRAMES_CFRAMESTATISTICS_H

#include <orvacam/types/export.h>
#include <orvacam/types/plane_stats.h>

/// Accumulates the pixels of one 16-bit plane and computes its mean, spread, mode, extremes with their
/// positions, and two clip points of its histogram.
///
/// The histogram has an entry for each value from 0 to 65534; 65535 counts in the sums and extremes alone.
/// Objects are half a megabyte large. One object is used by one thread at a time.
class ORVACAM_API CFrameStatistics {
 public:
  CFrameStatistics();

  /// Forgets all pixels and results; the two clip points keep their values.
  void Reset();

  void AddPixel(unsigned short usValue, const int_point_t& position);
  void AddPixels(unsigned short usFirst, const int_point_t& firstPosition, unsigned short usSecond,
                 const int_point_t& secondPosition);
  /// The same as AddPixel for each of ulCount pixels, at (x, y), (x + 1, y) and so on.
  void AddRow(const unsigned short* pPixels, unsigned long ulCount, int x, int y);

  /// Computes the results from the pixels added. Without pixels the mean and the deviation are not numbers.
  void Compute();

  /// Copies the results and, where the record has a histogram, min(its capacity, 65535) of the counts.
  void GetResults(image_plane_stats_t& stats) const;

 protected:
  static constexpr unsigned int s_uiHistogramSize = 65535;
  static constexpr unsigned int s_uiValues = 65536;

  double m_dLowClipFraction;
  double m_dHighClipFraction;
  unsigned short m_usLowClip;
  unsigned short m_usHighClip;
  unsigned long m_Counts[s_uiValues];  ///< pixels of each value; the sums follow from them exactly
  double m_dMean;
  double m_dMidpoint;
  double m_dMode;
  double m_dStdDev;
  unsigned int m_uiCount;
  int_point_t m_MaxPoint;
  unsigned int m_uiMax;
  int_point_t m_MinPoint;
  unsigned int m_uiMin;
};

#endif  // ORVACAM_FRAMES_CFRAMESTATISTICS_H
