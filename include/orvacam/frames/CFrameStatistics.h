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
/// Results are exact up to 2^32 - 1 pixels, where the pixel count wraps. Objects are 400 KB large,
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
  static constexpr unsigned int s_uiValues = 65536;
  static constexpr unsigned int s_uiSpareEntries = 34816;

  struct extremes_t {
    unsigned short usMinimum, usMaximum;
  };

  /// Pixels of each value, from which all sums follow exactly. Entries are cleared when they come within the
  /// range of values, not before, so that an object costs nothing to make.
  ///
  /// Neighbours in long rows of a plane with little noise are counted in pairs, one addition for both: the
  /// window of values within which that is done follows the plane.
  class counts_t {
   public:
    counts_t();
    counts_t(const counts_t& other);
    counts_t& operator=(const counts_t& other);

    void Clear();
    /// Makes room for the values uiFirst to uiLast.
    void Cover(unsigned int uiFirst, unsigned int uiLast);
    /// Counts at least one pixel, with room for its value, and tells the smallest and the largest.
    extremes_t Add(const unsigned short* pPixels, unsigned long ulCount);
    /// The entries of values; behind them, s_uiSpareEntries more, unless pairs are counted.
    unsigned int* GetEntries() { return m_Entries; }
    /// The counts of these values, each at its place.
    void CopyTo(double* pHistogram, unsigned int uiFirst, unsigned int uiLast) const;
    /// Brings all counts to the entries of values.
    void Fold();

   private:
    template <typename Take>
    void DoForEachPair(const Take& take) const;
    extremes_t DoAddOneByOne(const unsigned short* pPixels, unsigned long ulCount);
    extremes_t DoAddPairs(const unsigned short* pPixels, unsigned long ulCount);
    void DoChooseWindow(const unsigned short* pPixels, unsigned long ulCount);

    unsigned int m_uiFirst;  ///< above m_uiLast when no value is covered
    unsigned int m_uiLast;
    bool m_bPairs;  ///< whether pairs are counted now, in a window from m_usWindow on
    unsigned short m_usWindow;
    unsigned long m_ulPixelsOfWindow;  ///< that were added since it was chosen
    unsigned long m_ulUntilChoice;     ///< pixels to be added before a window is looked for
    unsigned int m_Entries[s_uiValues + s_uiSpareEntries];
  };

  /// Takes the extremes of a run of pixels that starts at a point; whether one is new. Positions within a run
  /// are looked for only where it brings a new extreme, which few runs do.
  template <typename FindFirst>
  bool DoExtend(const extremes_t& extremes, const int_point_t& start, const FindFirst& findFirst) {
    const bool newMaximum = extremes.usMaximum > m_uiMax;
    const bool newMinimum = extremes.usMinimum < m_uiMin;
    if (newMaximum) {
      m_uiMax = extremes.usMaximum;
      m_MaxPoint = {start.x + static_cast<int>(findFirst(extremes.usMaximum)), start.y};
    }
    if (newMinimum) {
      m_uiMin = extremes.usMinimum;
      m_MinPoint = {start.x + static_cast<int>(findFirst(extremes.usMinimum)), start.y};
    }
    return newMaximum || newMinimum;
  }

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
