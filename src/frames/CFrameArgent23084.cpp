#include <orvacam/frames/CFrameArgent23084.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include "frames/Decoding.h"
#include "frames/Quadrants.h"

using namespace orvacam;

DecodePlan orvacam::planArgent23084(const FrameFacts& facts) {
  const std::uint64_t width = facts.geometry.columns().frame();
  const std::uint64_t height = facts.geometry.rows().frame();
  DecodePlan plan = facts.amplifiers == 0 ? undecoded(facts, Refusal::NoAmplifier) : planOf(facts);
  plan.merges = false;
  plan.biased = plan.computed = LowPlane;
  plan.alwaysCounted = plan.takesBarePixels = true;
  if (facts.amplifiers == 0) return plan;
  plan.kind = StreamKind::Quadrants;
  plan.streamPixels = facts.geometry.framePixels();  // intended: without binning
  // Intended: all amplifiers read rows in pairs, so that the middle row of an odd number of rows is not sent.
  plan.streamBytes = 2 * width * (facts.amplifiers == AllAmplifiers ? height - height % 2 : height);
  return plan;
}

namespace {

/// The frame into a plane of so many pixels, by these amplifiers; -1 where it has no room or no size.
int readInto(IFrame& object, unsigned short* plane, unsigned long pixels, unsigned int amplifiers) {
  const FrameParts parts = partsOf(object);
  if (parts.metaData == nullptr || plane == nullptr) return -1;
  const DecodePlan plan = makePlan(planArgent23084, *parts.metaData, parts.sourceLength, hasHeader(parts));
  const FrameGeometry& geometry = plan.facts.geometry;
  if (geometry.fault() || geometry.framePixels() > pixels) return -1;
  const CcdFrame frame = {pixelBytes(parts, plan.firstByte), geometry.columns().frame(),
                          geometry.rows().frame(), plane, parts.low};
  return readAmplifiers(frame, amplifiers);
}

}  // namespace

int CFrameArgent23084::Unpack(unpacked_images_t* pImages) {
  return unpackFrame(*this, planArgent23084, pImages);
}

int CFrameArgent23084::Merge(unpacked_images_t* pImages) {
  if (m_pMetaData == nullptr) return -1;
  return pImages == nullptr ? 0 : Unpack(pImages);
}

int CFrameArgent23084::DoUnpackFourQuadrantRead(unsigned short* pOut, unsigned long ulPixels) {
  return readInto(*this, pOut, ulPixels, AllAmplifiers);
}

int CFrameArgent23084::DoUnpackSingleQuadrantRead(unsigned short* pOut, unsigned long ulPixels) {
  if (m_pMetaData == nullptr) return -1;
  const unsigned int amplifiers = FrameFacts(*m_pMetaData).amplifiers;
  // Called for a frame that all amplifiers have read, this takes it for the first one's.
  return readInto(*this, pOut, ulPixels, amplifiers == AllAmplifiers ? UpperLeft : amplifiers);
}

void CFrameArgent23084::DoUnpackSingleUpperLeft(unsigned short* pOut, unsigned long ulPixels) {
  readInto(*this, pOut, ulPixels, UpperLeft);
}
void CFrameArgent23084::DoUnpackSingleUpperRight(unsigned short* pOut, unsigned long ulPixels) {
  readInto(*this, pOut, ulPixels, UpperRight);
}
void CFrameArgent23084::DoUnpackSingleLowerLeft(unsigned short* pOut, unsigned long ulPixels) {
  readInto(*this, pOut, ulPixels, LowerLeft);
}
void CFrameArgent23084::DoUnpackSingleLowerRight(unsigned short* pOut, unsigned long ulPixels) {
  readInto(*this, pOut, ulPixels, LowerRight);
}
