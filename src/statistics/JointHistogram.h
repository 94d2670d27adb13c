#ifndef ORVACAM_SRC_STATISTICS_JOINT_HISTOGRAM_H
#define ORVACAM_SRC_STATISTICS_JOINT_HISTOGRAM_H

#include <orvacam/statistics/CFrameStatistics.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "kernels/Kernels.h"
#include "statistics/CountWindows.h"

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

/// Gathers the statistics of a low-gain and a high-gain plane of 12-bit pixels and of their merge together,
/// in one of three ways:
///
/// - In windows, where most pixels of both planes are close to a sky or a dark level: one addition a pixel
///   for three planes. The place (low << lowShift) + (high << highShift), both from their window's first
///   value on, is counted; where the merge does not follow from the two, merged - high is a third part of it.
///   Windows follow the frame, and lie between the extremes seen so far: a new one is always outside.
/// - Marked, where windows do not fit: two additions. A pixel that the merge took is counted apart; such
///   counts, at the corrected values, are the merged plane's. Where pixels have terms of their own, the
///   merged plane is counted by itself.
/// - Each plane by itself, in frames that are too small for more, for runs with a new extreme, and where
///   there is no memory for the other ways: three additions. All ways give the same results.
///
/// About 48 KiB large, and 540 KiB more for frames of at least 131072 pixels.
class JointHistogram {
 public:
  /// The most pixels of a run.
  static constexpr std::size_t mostPixels = 4096;

  /// For three accumulators that were reset, and a frame of so many pixels. `terms` are those of all pixels,
  /// null where each has its own.
  JointHistogram(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged,
                 const kernels::MergeRule& rule, const kernels::UniformTerms* terms, std::size_t pixels);
  JointHistogram(const JointHistogram&) = delete;
  JointHistogram& operator=(const JointHistogram&) = delete;

  /// What a kernel shall note of the next run of image pixels.
  kernels::PairNotes& notes();

  /// Adds a run of image pixels with its notes. Meanwhile the memory may be asked for what comes next.
  void add(const kernels::PackedPair& run, const RunPlace& place, const BytesAhead& ahead);

  /// Brings all counts to the accumulators.
  void finish();

 private:
  static constexpr unsigned int windowBits = 16;  ///< of all windows together

  struct Windows {
    CountWindow low, high;
    CountWindow difference;  ///< of merged - high; no bits where the merge follows from the two
    unsigned int bits() const { return low.bits + high.bits + difference.bits; }
  };
  /// Extremes seen so far.
  struct Ranges {
    kernels::Extremes low, high, merged;
  };
  /// Not cleared before it is used.
  struct Memory {
    std::uint32_t together[std::size_t{1} << windowBits];
    std::uint32_t lowMarks[kernels::markedEntries];
    std::uint32_t highMarks[kernels::markedEntries];
    std::uint32_t times[mostPixels];
  };

  bool isUniform() const { return m_terms != nullptr; }
  bool extendRanges(const Ranges& seen);

  void countEach(const kernels::PackedPair& run, const RunPlace& place, const BytesAhead& ahead);
  void countByThemselves(std::size_t pixels, const RunPlace& place);
  void beginMarks();
  void countMarked(std::size_t pixels, const RunPlace& place, const BytesAhead& ahead);
  void putMarks();
  void putMarksOf(CFrameStatistics& plane, const std::uint32_t* banks, unsigned int mergeType);

  void merge(unsigned int type, const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
             std::size_t pixels) const;
  void chooseWindows(std::size_t pixels);
  bool mergesWithinExtremes(const kernels::PairPlaces& where) const;
  void placeWithinExtremes();
  void countPlaces(const kernels::PackedPair& run, const RunPlace& place, const BytesAhead& ahead);
  void countOutside(const kernels::PackedPair& run, std::size_t outside, const RunPlace& place);
  void leaveWindows();
  void handOver(std::size_t count, const std::uint32_t* times);

  const kernels::KernelTable& m_kernel;
  CFrameStatistics& m_low;
  CFrameStatistics& m_high;
  CFrameStatistics& m_merged;
  const kernels::MergeRule m_rule;
  const kernels::UniformTerms* const m_terms;
  std::unique_ptr<Memory> m_memory;  ///< null for small frames and without memory
  bool m_marking = false;            ///< whether marked pixels are counted when windows do not fit
  WindowWatch m_watch;
  Windows m_windows{};
  Ranges m_ranges;
  kernels::PairNotes m_notes{};
  // From cache lines on, as kernels write them register by register.
  alignas(64) std::uint16_t m_lowPixels[mostPixels];
  alignas(64) std::uint16_t m_highPixels[mostPixels];
  alignas(64) std::uint16_t m_mergedPixels[mostPixels];
  alignas(64) std::uint16_t m_places[mostPixels];
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_STATISTICS_JOINT_HISTOGRAM_H
