#ifndef ORVACAM_FRAMES_CFRAMESTATISTICS_H
#define ORVACAM_FRAMES_CFRAMESTATISTICS_H

#include <orvacam/types/export.h>
#include <orvacam/types/plane_stats.h>

namespace orvacam {
class PairStatistics;
}

/// Accumulates the pixels of one 16-bit plane and computes its mean, spread, mode, extremes with their
/// positions, and two clip points of its histogram.
///
/// The histogram has an entry for each value from 0 to 65534; 65535 counts in the sums and extremes alone.
/// Results are exact up to 2^32 - 1 pixels, where the pixel count wraps. Objects are half a megabyte large,
/// of which only the entries of values between the extremes are ever touched. One object is used by one
/// thread at a time.
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
  static constexpr unsigned int s_uiBanks = 2;
  static constexpr unsigned int s_uiBankStride = 65536 + 272;

  /// Pixels of each value, from which all sums follow exactly. Neighbouring pixels, often equal, are counted
  /// in different banks. Entries are cleared when they come within the range of values, not before, so that
  /// an object costs nothing to make.
  class counts_t {
   public:
    counts_t();
    counts_t(const counts_t& other);
    counts_t& operator=(const counts_t& other);

    void Clear();
    /// Makes room for the values uiFirst to uiLast.
    void Cover(unsigned int uiFirst, unsigned int uiLast);
    unsigned int* GetBanks() { return m_Banks; }
    /// Of a value between the first and the last covered.
    unsigned long Of(unsigned int uiValue) const;
    /// The counts of these values, each at its place.
    void CopyTo(double* pHistogram, unsigned int uiFirst, unsigned int uiLast) const;
    /// Brings the counts of values together in the first bank, and returns it; of no values when the first is
    /// above the last.
    const unsigned int* Fold(unsigned int uiFirst, unsigned int uiLast);

   private:
    void DoZero(unsigned int uiFirst, unsigned int uiLast);

    unsigned int m_uiFirst;  ///< above m_uiLast when no value is covered
    unsigned int m_uiLast;
    unsigned int m_Banks[s_uiBanks * s_uiBankStride];
  };

  double m_dLowClipFraction;
  double m_dHighClipFraction;
  unsigned short m_usLowClip;
  unsigned short m_usHighClip;
  counts_t m_Counts;
  double m_dMean;
  double m_dMidpoint;
  double m_dMode;
  double m_dStdDev;
  unsigned int m_uiCount;
  int_point_t m_MaxPoint;
  unsigned int m_uiMax;
  int_point_t m_MinPoint;
  unsigned int m_uiMin;

  /// Counts the planes of a pair and their merge together, with fewer additions.
  friend class orvacam::PairStatistics;
};

#endif  // ORVACAM_FRAMES_CFRAMESTATISTICS_H
