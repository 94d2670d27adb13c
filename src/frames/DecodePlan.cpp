#include "frames/DecodePlan.h"

#include <orvacam/types/device_types.h>

#include <limits>

namespace orvacam {

namespace {

// What a header can make us allocate: see the documentation of IFrame.
constexpr std::uint64_t alwaysAllowedPlane = 8UL << 20;
constexpr std::uint64_t largestPlaneToSource = 64;
constexpr std::uint64_t largestPlane = std::numeric_limits<std::uint32_t>::max();

using Axis = FrameGeometry::Axis;

std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  return a > largest - b ? largest : a + b;
}

/// The first reason, in the order of Refusal.
Refusal refusalOf(const DecodePlan& plan) {
  const Refusal ofPlanes = refusalOfPlanes(plan.facts.geometry, plan.bytesGiven);
  if (ofPlanes != Refusal::None) return ofPlanes;
  if (plan.imagePixels > plan.planePixels) return Refusal::ImageExceedsPlane;
  if (plan.refusal != Refusal::None) return plan.refusal;
  if (plan.streamPixels > plan.planePixels) return Refusal::StreamExceedsPlane;
  return plan.isWhole() || plan.whenShort == WhenShort::IsLeftUncopied ? Refusal::None : Refusal::SourceEnds;
}

}  // namespace

FrameFacts::FrameFacts(const CFrameMetaData& metaData)
    : geometry(metaData),
      bits(metaData.Value(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH).GetValueUint()),
      hdr(metaData.Value(ORVA_META_KEY_HDR_MODE).GetValueBool()),
      sampled(metaData.Value(ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE).GetValueBool()),
      amplifiers(metaData.Value(ORVA_META_KEY_SENSOR_READ_QUADRANTS).GetValueUint() & AllAmplifiers) {}

Refusal refusalOfPlanes(const FrameGeometry& geometry, std::uint64_t bytesGiven) {
  const std::uint64_t planeBytes = 2 * geometry.planePixels();
  if (geometry.fault()) return Refusal::NoGeometry;
  if (planeBytes > largestPlane) return Refusal::PlaneTooLarge;
  const bool inProportion =
      planeBytes <= alwaysAllowedPlane || planeBytes / largestPlaneToSource <= bytesGiven;
  return inProportion ? Refusal::None : Refusal::OutOfProportion;
}

// ---- What sensors share

StreamLayout singleStream(const FrameFacts& facts) {
  const Axis& columns = facts.geometry.binnedColumns();
  const Axis& rows = facts.geometry.binnedRows();
  const unsigned int width = narrow(columns.frame());
  return {
      {{narrow(rows.before), 0, width, 0, 0, false},
       {narrow(rows.image), narrow(columns.before), narrow(columns.image), narrow(columns.after), 0, false},
       {narrow(rows.after), 0, width, 0, 0, false}}};
}

DecodePlan planOf(const FrameFacts& facts) {
  DecodePlan plan(facts);
  plan.merges = facts.hdr;
  plan.planePixels = facts.geometry.planePixels();
  plan.imagePixels = facts.geometry.binnedImagePixels();
  plan.firstByte = facts.geometry.headerLength();
  return plan;
}

DecodePlan packedPair(const FrameFacts& facts, const StreamLayout& stream) {
  DecodePlan plan = planOf(facts);
  plan.kind = StreamKind::PackedPair;
  plan.stream = stream;
  plan.planes = plan.biased = BothPlanes;
  plan.streamPixels = stream.pixelsOfEach();
  plan.streamBytes = stream.bytes();
  return plan;
}

DecodePlan packedSingle(const FrameFacts& facts) {
  DecodePlan plan = planOf(facts);
  plan.kind = StreamKind::PackedSingle;
  plan.stream = singleStream(facts);
  plan.streamPixels = plan.stream.pixelsOfOne();
  plan.streamBytes = plan.stream.bytes();
  return plan;
}

DecodePlan plain16(const FrameFacts& facts, std::uint64_t pixels, WhenShort whenShort) {
  DecodePlan plan = planOf(facts);
  plan.kind = StreamKind::Plain16;
  plan.streamPixels = pixels;
  plan.streamBytes = 2 * pixels;
  plan.whenShort = whenShort;
  return plan;
}

DecodePlan undecoded(const FrameFacts& facts, Refusal refusal) {
  DecodePlan plan = planOf(facts);
  plan.planes = NoPlane;
  plan.refusal = refusal;
  return plan;
}

// ---- Against the bytes that there are

DecodePlan makePlan(PlanMaker maker, const CFrameMetaData& metaData, std::uint64_t bytesGiven,
                    bool hasHeader) {
  DecodePlan plan = maker(FrameFacts(metaData));
  if (plan.takesBarePixels && !hasHeader) plan.firstByte = 0;
  plan.bytesNeeded = plan.streamBytes == 0 ? 0 : sum(plan.firstByte, plan.streamBytes);
  plan.bytesGiven = bytesGiven;
  plan.refusal = refusalOf(plan);
  return plan;
}

DecodePlan makePlan(const CFrameMetaData& metaData, std::uint64_t bytesGiven, bool hasHeader) {
  unsigned int device = ORVA_DEVICE_UNKNOWN;
  metaData.GetDeviceType(device);
  return makePlan(planMakerOf(device), metaData, bytesGiven, hasHeader);
}

}  // namespace orvacam
