#ifndef ORVACAM_SRC_MERGE_REFERENCE_MERGE_H
#define ORVACAM_SRC_MERGE_REFERENCE_MERGE_H

#include <orvacam/merge/CHWMergeReferenceFrames.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "merge/MergeTerms.h"
#include "support/AlignedMemory.h"

namespace orvacam {

/// What CHWMergeReferenceFrames hands out: all that decides a merged pixel. It holds as long as nothing
/// changes in the merge.
struct ReferenceMerge {
  kernels::MergeRule rule;
  ReferencePlane terms[allTerms];
  std::uint64_t width, height;  ///< of the reference frames
  std::uint64_t startRow;       ///< of the reference frames, where images start
  bool hasBias;                 ///< whether bias frames are to be subtracted before
  bool byteSwapped;             ///< the planes' pixels are in the other byte order
  CFrameStatistics* statistics;

  /// Pixels, from the start row on, for which every plane has terms; and of a start row within the frames.
  std::uint64_t termsAvailable() const;
  std::uint64_t pixelsAvailable() const;
  /// Whether the kernels' integers give what the rule in doubles does.
  bool fitsKernels() const;
  void takeTerms(MergeTerms& taken) const;
};

ReferenceMerge handOut(CHWMergeReferenceFrames& algorithm);

/// Terms of one plane that has one for each pixel.
struct ReferenceValues {
  std::vector<unsigned short, LineAllocator<unsigned short>> terms;
};

/// Where the merge keeps the terms of a plane.
struct TermSlot {
  std::shared_ptr<const ReferenceValues>& values;
  unsigned short& uniform;
  bool& made;
  bool& areIdentity;  ///< all of the merge's terms
  bool& areCallers;   ///< some of them
};
TermSlot slotOf(CHWMergeReferenceFrames& algorithm, WhichTerms which);

/// What follows the merge of a frame's pixels: the algorithm's metadata describe the merged plane, whose
/// header is written. Its status.
int finishMergedFrame(CHWMergeReferenceFrames& algorithm, unsigned short* merged, unsigned long pixels);

}  // namespace orvacam

#endif  // ORVACAM_SRC_MERGE_REFERENCE_MERGE_H
