#ifndef ORVACAM_SRC_FRAMES_PAIR_STATISTICS_H
#define ORVACAM_SRC_FRAMES_PAIR_STATISTICS_H

#include <orvacam/frames/CFrameStatistics.h>

#include "frames/CountWindows.h"
#include "kernels/Kernels.h"
#include "merge/MergeTerms.h"

namespace orvacam {

/// Where a run of image pixels lies: the low-gain ones at (x, 2 * y) and the high-gain ones at (x, 2 * y +
/// 1), as the sensor sends the rows, the merged ones at (mergedX, mergedY).
struct RunPlace {
  int x, y, mergedX, mergedY;
};

/// Memory that is needed next.
struct BytesAhead {
  const void* first;
  std::size_t count;
};

/// Gathers the statistics of a low-gain and a high-gain plane of 12-bit pixels and of their merge together.
///
/// Counting is one addition however it is done. Where most pixels of both planes are close to a sky or a dark
/// level, one addition a pixel does for three planes: values that occur together within two windows are
/// counted together, and what they merge to follows. Windows follow the frame.
///
/// Elsewhere two additions do, where all pixels have the same correction terms: a low-gain or high-gain pixel
/// is counted apart when the merge took it, and such counts, put at the corrected values, are the merged
/// plane's. Else there are three.
class PairStatistics {
 public:
  /// Three accumulators that were reset; the first two hold other counts until finish. The terms outlive
  /// this.
  PairStatistics(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged,
                 const MergeTerms& terms, std::size_t pixels);
  PairStatistics(const PairStatistics&) = delete;
  PairStatistics& operator=(const PairStatistics&) = delete;

  /// What a kernel shall note of the next run of at most mergeBlock image pixels.
  kernels::PairNotes& notes();

  /// Adds a run of image pixels with its notes. Meanwhile the memory may be asked for what comes next.
  void add(const kernels::PackedPair& run, const RunPlace& place, const BytesAhead& ahead);

  /// Brings the counts to their values.
  void finish();

 private:
  struct Windows {
    CountWindow low, high;
    CountWindow difference;  ///< of merged minus high-gain pixel; no bits where it follows from the two
    unsigned int bits() const { return low.bits + high.bits + difference.bits; }
  };

  void countMarked(const kernels::PackedPair& run, const RunPlace& place, const BytesAhead& ahead);
  void correct(unsigned int type, unsigned short* pixels, std::size_t count) const;
  void putTaken(CFrameStatistics& plane, const unsigned short* corrected);
  static void unmark(CFrameStatistics& plane);

  void chooseWindows(std::size_t pixels);
  bool mergesWithinExtremes(const kernels::PairPlaces& where) const;
  void placeWithinExtremes();
  void countPlaces(const kernels::PackedPair& run, const RunPlace& place, const BytesAhead& ahead);
  void countOutside(const kernels::PackedPair& run, std::size_t outside, const RunPlace& place);
  void mergeBatch(std::size_t pixels);
  template <typename Times>
  void countBatch(std::size_t pixels, const Times& times);
  void leaveWindows();
  unsigned int* together() { return m_low.m_Counts.GetEntries() + kernels::markedEntries; }

  const kernels::KernelTable& m_kernel;
  CFrameStatistics& m_low;
  CFrameStatistics& m_high;
  CFrameStatistics& m_merged;
  const MergeTerms& m_terms;
  kernels::PairNotes m_notes;
  Windows m_windows{};
  bool m_inWindows = false;  ///< whether pixels are counted together now
  std::size_t m_pixelsInWindows = 0;
  std::size_t m_pixelsToJudge = 0;  ///< since it was last seen whether the windows fit
  std::size_t m_outsideToJudge = 0;
  std::size_t m_pixelsUntilChoice;  ///< before windows are looked for
  unsigned short m_lowPixels[mergeBlock];
  unsigned short m_highPixels[mergeBlock];
  unsigned short m_mergedPixels[mergeBlock];
  unsigned short m_places[mergeBlock];
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_PAIR_STATISTICS_H
