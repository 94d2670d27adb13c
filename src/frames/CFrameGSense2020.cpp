#include <orvacam/frames/CFrameGSense2020.h>

#include "frames/Decoding.h"
#include "frames/SampledPixels.h"

using namespace orvacam;

/// Intended: no reference pixels ahead of the rows, although the frame has them.
StreamLayout orvacam::pairStreamGSense2020(const FrameFacts& facts) {
  StreamLayout stream = pairStreamGSense6060(facts);
  stream.sections[1].before = 0;
  return stream;
}

DecodePlan orvacam::planGSense2020(const FrameFacts& facts) {
  if (facts.hdr || facts.bits == 16 || !facts.sampled) return planGSense4040(facts);
  DecodePlan plan = planOf(facts);
  plan.kind = StreamKind::Sampled13;
  plan.streamPixels = plan.planePixels;
  plan.streamBytes = sampledBytes(plan.planePixels);
  return plan;
}

int CFrameGSense2020::Unpack(unpacked_images_t* pImages) {
  return unpackFrame(*this, planGSense2020, pImages);
}

int CFrameGSense2020::Merge(unpacked_images_t* pImages) {
  return mergeFrame(*this, planGSense2020, pImages);
}

int CFrameGSense2020::DoUnpack(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
                               unsigned long ulHighSize) {
  return decodePair(*this, pairStreamGSense2020, {pLow, ulLowSize}, {pHigh, ulHighSize});
}

int CFrameGSense2020::DoUnpackSingle(unsigned short* pOut, unsigned long ulPixels) {
  if (m_pMetaData == nullptr) return -1;
  return FrameFacts(*m_pMetaData).bits == 16 ? copyWhole16(*this, {pOut, ulPixels})
                                             : UnpackImage12to16(pOut, ulPixels);
}

int CFrameGSense2020::DoUnpackCMS(unsigned short* pOut, unsigned long ulPixels) {
  if (m_pMetaData == nullptr) return -1;
  return FrameFacts(*m_pMetaData).bits == 16 ? copyWhole16(*this, {pOut, ulPixels})
                                             : DoUnpackSingle13to16(pOut, ulPixels);
}

int CFrameGSense2020::DoUnpackSingle13to16(unsigned short* pOut, unsigned long ulPixels) {
  if (ulPixels == 0) return 0;
  const FrameParts parts = partsOf(*this);
  if (parts.metaData == nullptr) return -1;
  const SourceBytes source = pixelBytes(parts, parts.metaData->GetBinarizeSize());
  return decodeSampled(source, pOut, ulPixels) == ulPixels ? 0 : -1;
}
