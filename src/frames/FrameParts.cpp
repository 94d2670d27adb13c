#include "frames/FrameParts.h"

namespace orvacam {

namespace {

/// Never made: names the members that a class derived from IFrame may name.
class Members : public IFrame {
 public:
  static FrameParts of(IFrame& frame) {
    return {frame.*&Members::m_pMetaData,
            frame.*&Members::m_pSource,
            frame.*&Members::m_ulSourceLength,
            frame.*&Members::m_bSourceIncomplete,
            frame.*&Members::m_pWorkBuffer1,
            frame.*&Members::m_pWorkBuffer2,
            frame.*&Members::m_pWorkBuffer3,
            frame.*&Members::m_uiWorkSize,
            frame.*&Members::m_uiWorkSizeWithHeader,
            frame.*&Members::m_uiMergeLeadingBytes,
            frame.*&Members::m_bMergeStatistics,
            frame.*&Members::m_LowStatistics,
            frame.*&Members::m_HighStatistics,
            frame.*&Members::m_MergedStatistics,
            frame.*&Members::m_uiMergeImageFormat,
            frame.*&Members::m_pLog,
            frame.*&Members::m_pMergeAlgo,
            frame.*&Members::m_UserMergeBuffers};
  }
};

}  // namespace

FrameParts partsOf(IFrame& frame) {
  return Members::of(frame);
}

void lendSource(IFrame& frame, const OwnedMemory& file, bool whole) {
  frame.FreeSourceImageBuffer();
  const FrameParts parts = partsOf(frame);
  parts.source = file.bytes.get();
  parts.sourceLength = file.length;
  parts.sourceIncomplete = !whole;
}

}  // namespace orvacam
