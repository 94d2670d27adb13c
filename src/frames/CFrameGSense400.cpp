#include <orvacam/frames/CFrameGSense400.h>

#include "frames/Decoding.h"

using namespace orvacam;

/// Intended: this stream is not binned, and the rows behind the image are a frame wide, those ahead of it an
/// image.
StreamLayout orvacam::pairStreamGSense400(const FrameFacts& facts) {
  const FrameGeometry::Axis& columns = facts.geometry.columns();
  const FrameGeometry::Axis& rows = facts.geometry.rows();
  const unsigned int width = narrow(columns.image);
  const unsigned int shared = narrow(columns.after);
  return {{{2 * narrow(rows.before), 0, width, 0, shared, false},
           {2 * narrow(rows.image), 0, width, 0, shared, true},
           {2 * narrow(rows.after), 0, narrow(columns.frame()), 0, shared, false}}};
}

DecodePlan orvacam::planGSense400(const FrameFacts& facts) {
  DecodePlan plan = facts.hdr ? packedPair(facts, pairStreamGSense400(facts)) : packedSingle(facts);
  plan.imagePixels = facts.geometry.imagePixels();  // intended: without binning
  plan.logsSizes = true;
  if (!facts.hdr) plan.biased = plan.computed = LowPlane;
  return plan;
}

int CFrameGSense400::Unpack(unpacked_images_t* pImages) {
  return unpackFrame(*this, planGSense400, pImages);
}

int CFrameGSense400::Merge(unpacked_images_t* pImages) {
  return mergeFrame(*this, planGSense400, pImages);
}

int CFrameGSense400::DoUnpackHDR(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
                                 unsigned long ulHighSize) {
  if (m_pMetaData == nullptr || m_pSource == nullptr) return -1;
  logStreamSizes(partsOf(*this));
  return decodePair(*this, pairStreamGSense400, {pLow, ulLowSize}, {pHigh, ulHighSize});
}
