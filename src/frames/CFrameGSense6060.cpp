#include <orvacam/frames/CFrameGSense6060.h>

#include "frames/Decoding.h"

using namespace orvacam;

StreamLayout orvacam::pairStreamGSense6060(const FrameFacts& facts) {
  StreamLayout stream = singleStream(facts);
  for (StreamSection& section : stream.sections)
    section.rows *= 2;
  stream.sections[1].counted = true;
  return stream;
}

DecodePlan orvacam::planGSense6060(const FrameFacts& facts) {
  // Intended: a pair of planes whether the HDR flag is set or not.
  if (facts.bits == 12) return packedPair(facts, pairStreamGSense6060(facts));
  if (facts.bits != 16) return undecoded(facts, Refusal::PixelSize);
  // Intended: refused, with its statistics computed.
  if (facts.hdr) return undecoded(facts, Refusal::HdrOfSingleImage);
  return plain16(facts, facts.geometry.planePixels(), WhenShort::IsLeftUncopied);
}

int CFrameGSense6060::Unpack(unpacked_images_t* pImages) {
  return unpackFrame(*this, planGSense6060, pImages);
}

int CFrameGSense6060::Merge(unpacked_images_t* pImages) {
  return mergeFrame(*this, planGSense6060, pImages);
}

int CFrameGSense6060::DoUnpack12(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
                                 unsigned long ulHighSize) {
  if (m_pMetaData == nullptr || m_pSource == nullptr) return -1;
  resetStatistics(partsOf(*this));  // this decoder can be called alone
  return decodePair(*this, pairStreamGSense6060, {pLow, ulLowSize}, {pHigh, ulHighSize});
}

int CFrameGSense6060::DoUnpackSingle(unsigned short* pOut, unsigned long ulPixels) {
  if (m_pMetaData == nullptr || FrameFacts(*m_pMetaData).bits != 16) return -1;
  return copyWhole16(*this, {pOut, ulPixels});
}
