#ifndef ORVACAM_SRC_FRAMES_PAIR_STATISTICS_H
#define ORVACAM_SRC_FRAMES_PAIR_STATISTICS_H

#include <orvacam/frames/CFrameStatistics.h>

#include "kernels/Kernels.h"

namespace orvacam {

/// Gathers the statistics of a low-gain and a high-gain plane of 12-bit pixels and of their merge together.
///
/// Counting is one addition a pixel however it is done. Where all pixels have the same correction terms two
/// additions do for three planes: a low-gain or high-gain pixel is counted apart when the merge took it, and
/// such counts, put at the corrected values, are the merged plane's.
class PairStatistics {
 public:
  /// Three accumulators that were reset; the first two hold marked counts until finish.
  PairStatistics(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged);

  /// Adds a run of image pixels that a kernel has noted: the low-gain ones at (x, 2 * y) and the high-gain
  /// ones at (x, 2 * y + 1), as the sensor sends the rows, the merged ones at (mergedX, mergedY).
  void add(const kernels::PackedPair& run, int x, int y, int mergedX, int mergedY);

  /// Brings the counts to their values. The corrected values of each 12-bit pixel are needed where the merged
  /// pixels were not counted themselves, else null.
  void finish(const unsigned short* correctedLow, const unsigned short* correctedHigh);

 private:
  struct Extremes {
    unsigned short minimum, maximum;
  };
  template <typename FindFirst>
  static void addExtremes(CFrameStatistics& statistics, const Extremes& extremes, std::size_t pixels, int x,
                          int y, const FindFirst& findFirst);
  void putTaken(CFrameStatistics& plane, const unsigned short* corrected);
  static void unmark(CFrameStatistics& plane);

  const kernels::KernelTable& m_kernel;
  CFrameStatistics& m_low;
  CFrameStatistics& m_high;
  CFrameStatistics& m_merged;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_PAIR_STATISTICS_H
