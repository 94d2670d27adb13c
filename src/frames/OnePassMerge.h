#ifndef ORVACAM_SRC_FRAMES_ONE_PASS_MERGE_H
#define ORVACAM_SRC_FRAMES_ONE_PASS_MERGE_H

#include <orvacam/statistics/CFrameStatistics.h>

#include <cstddef>
#include <cstdint>

#include "frames/RowInterleavedStream.h"
#include "merge/FrameRegions.h"
#include "merge/MergeTerms.h"

class CCustomMergeAlgo;
class CHWMergeReferenceFrames;

namespace orvacam {

/// The planes of an HDR pair.
struct PairPlanes {
  unsigned short* low;    ///< null where the plane is not wanted
  unsigned short* high;   ///< the same
  unsigned char* merged;  ///< behind the header of an image file
  unsigned long pixels;   ///< of each
};

/// Unpacks, corrects, merges and counts an HDR frame row pair by row pair, while it is in the cache. The
/// frame contributes its stream, the merge algorithm its rule and terms.
///
/// For frames that need nothing else: the stream is whole and fills the planes, its image pixels are where
/// the metadata has them, no run shares a pair of packed pixels with its neighbour, no bias frame is to be
/// subtracted between unpacking and merging, and the algorithm is the camera's own, with integer arithmetic.
/// All others are unpacked and merged one after the other, which gives the same.
class OnePassMerge {
 public:
  OnePassMerge(CCustomMergeAlgo* algorithm, const FrameGeometry& geometry, const StreamLayout& layout);

  /// Whether these planes can be filled in one pass. Nothing is changed by asking.
  bool fits(const PairPlanes& planes) const;
  /// Does it, from the stream's first byte on; the status of the merge. With statistics, which were reset,
  /// the merged ones are the algorithm's own.
  int run(SourceBytes source, const PairPlanes& planes, unsigned short* mergedBuffer,
          CFrameStatistics* lowStatistics, CFrameStatistics* highStatistics);

 private:
  bool imageIsWhereTheMetaDataHasIt() const;

  CHWMergeReferenceFrames* m_algorithm;  ///< null when it is another
  const StreamLayout& m_layout;
  FrameRegions m_regions;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_ONE_PASS_MERGE_H
