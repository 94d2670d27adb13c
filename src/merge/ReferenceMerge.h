#ifndef ORVACAM_SRC_MERGE_REFERENCE_MERGE_H
#define ORVACAM_SRC_MERGE_REFERENCE_MERGE_H

#include <orvacam/merge/CHWMergeReferenceFrames.h>

#include <cstdint>

#include "merge/MergeTerms.h"

namespace orvacam {

/// What CHWMergeReferenceFrames hands out: all that decides a merged pixel. It holds as long as nothing
/// changes in the merge.
struct ReferenceMerge {
  kernels::MergeRule rule;
  ReferencePlane additiveLow, additiveHigh, multiplicativeLow, multiplicativeHigh;
  std::uint64_t width, height;  ///< of the reference frames
  std::uint64_t startRow;       ///< of the reference frames, where images start
  bool hasBias;                 ///< whether bias frames are to be subtracted before
  CFrameStatistics* statistics;

  /// Pixels, from the start row on, for which every plane has terms; and of a start row within the frames.
  std::uint64_t termsAvailable() const;
  std::uint64_t pixelsAvailable() const;
  /// Whether the kernels' integers give what the rule in doubles does.
  bool fitsKernels() const;
  void takeTerms(MergeTerms& terms) const;
};

ReferenceMerge handOut(CHWMergeReferenceFrames& algorithm);

/// What follows the merge of a frame's pixels: the algorithm's metadata describe the merged plane, whose
/// header is written. Its status.
int finishMergedFrame(CHWMergeReferenceFrames& algorithm, unsigned short* merged, unsigned long pixels);

}  // namespace orvacam

#endif  // ORVACAM_SRC_MERGE_REFERENCE_MERGE_H
