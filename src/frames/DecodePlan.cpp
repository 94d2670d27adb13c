#include "frames/DecodePlan.h"

#include <orvacam/types/device_types.h>

#include <limits>

#include "sensors/Sensors.h"
#include "support/KeyedTable.h"

namespace orvacam {

namespace {

// What a header can make us allocate: see the documentation of IFrame.
constexpr std::uint64_t alwaysAllowedPlane = 8UL << 20;
constexpr std::uint64_t largestPlaneToSource = 64;
constexpr std::uint64_t largestPlane = std::numeric_limits<std::uint32_t>::max();

using Axis = FrameGeometry::Axis;

/// An axis is short enough for 31 bits.
unsigned int narrow(std::uint64_t size) {
  return static_cast<unsigned int>(size);
}

/// The rows of both planes of a pair.
unsigned int ofBoth(std::uint64_t rows) {
  return 2 * narrow(rows);
}

std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  return a > largest - b ? largest : a + b;
}

/// Bytes that the reader of sampled pixels looks at for the first `pixels` ones: see CFrameGSense2020.
std::uint64_t sampledBytes(std::uint64_t pixels) {
  constexpr unsigned char ofBegunGroup[] = {0, 2, 4, 5, 7, 9, 10, 12};
  return 13 * (pixels / 8) + ofBegunGroup[pixels % 8];
}

DecodePlan begin(const FrameFacts& facts) {
  DecodePlan plan(facts);
  plan.merges = facts.hdr;
  plan.planePixels = facts.geometry.planePixels();
  plan.imagePixels = facts.geometry.binnedImagePixels();
  plan.firstByte = facts.geometry.headerLength();
  return plan;
}

DecodePlan packedPair(const FrameFacts& facts, const StreamLayout& stream) {
  DecodePlan plan = begin(facts);
  plan.kind = StreamKind::PackedPair;
  plan.stream = stream;
  plan.planes = plan.biased = BothPlanes;
  plan.streamPixels = stream.pixelsOfEach();
  plan.streamBytes = stream.bytes();
  return plan;
}

DecodePlan packedSingle(const FrameFacts& facts) {
  DecodePlan plan = begin(facts);
  plan.kind = StreamKind::PackedSingle;
  plan.stream = singleStream(facts);
  plan.streamPixels = plan.stream.pixelsOfOne();
  plan.streamBytes = plan.stream.bytes();
  return plan;
}

DecodePlan plain16(const FrameFacts& facts, std::uint64_t pixels, WhenShort whenShort) {
  DecodePlan plan = begin(facts);
  plan.kind = StreamKind::Plain16;
  plan.streamPixels = pixels;
  plan.streamBytes = 2 * pixels;
  plan.whenShort = whenShort;
  return plan;
}

DecodePlan sampled13(const FrameFacts& facts) {
  DecodePlan plan = begin(facts);
  plan.kind = StreamKind::Sampled13;
  plan.streamPixels = plan.planePixels;
  plan.streamBytes = sampledBytes(plan.planePixels);
  return plan;
}

DecodePlan undecoded(const FrameFacts& facts, Refusal refusal) {
  DecodePlan plan = begin(facts);
  plan.planes = NoPlane;
  plan.refusal = refusal;
  return plan;
}

/// The first reason, in the order of Refusal.
Refusal refusalOf(const DecodePlan& plan) {
  const std::uint64_t planeBytes = 2 * plan.planePixels;
  if (plan.facts.geometry.fault()) return Refusal::NoGeometry;
  if (planeBytes > largestPlane) return Refusal::PlaneTooLarge;
  if (planeBytes > alwaysAllowedPlane && planeBytes / largestPlaneToSource > plan.bytesGiven)
    return Refusal::OutOfProportion;
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

// ---- Streams

/// Intended: this stream is not binned, and the rows behind the image are a frame wide, those ahead of it an
/// image.
StreamLayout pairStreamGSense400(const FrameFacts& facts) {
  const Axis& columns = facts.geometry.columns();
  const Axis& rows = facts.geometry.rows();
  const unsigned int width = narrow(columns.image);
  const unsigned int shared = narrow(columns.after);
  return {{{ofBoth(rows.before), 0, width, 0, shared, false},
           {ofBoth(rows.image), 0, width, 0, shared, true},
           {ofBoth(rows.after), 0, narrow(columns.frame()), 0, shared, false}}};
}

/// Intended: no reference pixels ahead of the rows, although the frame has them.
StreamLayout pairStreamGSense2020(const FrameFacts& facts) {
  StreamLayout stream = pairStreamGSense6060(facts);
  stream.sections[1].before = 0;
  return stream;
}

StreamLayout pairStreamGSense6060(const FrameFacts& facts) {
  StreamLayout stream = singleStream(facts);
  for (StreamSection& section : stream.sections)
    section.rows *= 2;
  stream.sections[1].counted = true;
  return stream;
}

StreamLayout singleStream(const FrameFacts& facts) {
  const Axis& columns = facts.geometry.binnedColumns();
  const Axis& rows = facts.geometry.binnedRows();
  const unsigned int width = narrow(columns.frame());
  return {
      {{narrow(rows.before), 0, width, 0, 0, false},
       {narrow(rows.image), narrow(columns.before), narrow(columns.image), narrow(columns.after), 0, false},
       {narrow(rows.after), 0, width, 0, 0, false}}};
}

// ---- Sensors

DecodePlan planGSense400(const FrameFacts& facts) {
  DecodePlan plan = facts.hdr ? packedPair(facts, pairStreamGSense400(facts)) : packedSingle(facts);
  plan.imagePixels = facts.geometry.imagePixels();  // intended: without binning
  plan.logsSizes = true;
  if (!facts.hdr) plan.biased = plan.computed = LowPlane;
  return plan;
}

DecodePlan planGSense2020(const FrameFacts& facts) {
  if (facts.hdr || facts.bits == 16 || !facts.sampled) return planGSense4040(facts);
  return sampled13(facts);
}

DecodePlan planGSense4040(const FrameFacts& facts) {
  if (facts.hdr) return packedPair(facts, pairStreamGSense2020(facts));
  if (facts.bits == 16) return plain16(facts, facts.geometry.planePixels(), WhenShort::IsLeftUncopied);
  return packedSingle(facts);
}

DecodePlan planGSense6060(const FrameFacts& facts) {
  // Intended: a pair of planes whether the HDR flag is set or not.
  if (facts.bits == 12) return packedPair(facts, pairStreamGSense6060(facts));
  if (facts.bits != 16) return undecoded(facts, Refusal::PixelSize);
  if (facts.hdr) return undecoded(facts, Refusal::HdrOfSingleImage);
  return plain16(facts, facts.geometry.planePixels(), WhenShort::IsLeftUncopied);
}

DecodePlan planArgent23084(const FrameFacts& facts) {
  const std::uint64_t width = facts.geometry.columns().frame();
  const std::uint64_t height = facts.geometry.rows().frame();
  DecodePlan plan = facts.amplifiers == 0 ? undecoded(facts, Refusal::NoAmplifier) : begin(facts);
  plan.merges = false;
  plan.biased = plan.computed = LowPlane;
  plan.alwaysCounted = plan.takesBarePixels = true;
  if (facts.amplifiers == 0) return plan;
  plan.kind = StreamKind::Quadrants;
  plan.streamPixels = facts.geometry.framePixels();  // intended: without binning
  // All amplifiers read rows in pairs: the middle row of an odd number of rows is not sent.
  plan.streamBytes = 2 * width * (facts.amplifiers == AllAmplifiers ? height - height % 2 : height);
  return plan;
}

DecodePlan planPlain(const FrameFacts& facts) {
  // Intended: reference pixels and rows are not sent.
  DecodePlan plan = facts.bits == 16
                        ? plain16(facts, facts.geometry.binnedImagePixels(), WhenShort::FillsWhatIsThere)
                        : undecoded(facts, Refusal::PixelSize);
  plan.biased = BothPlanes;  // intended: of the high-gain plane whatever it holds
  plan.takesBarePixels = true;
  return plan;
}

namespace {

struct Planner {
  FrameClass frame;
  PlanMaker maker;
};

constexpr Planner planners[] = {
    {FrameClass::GSense400, planGSense400},
    {FrameClass::GSense2020, planGSense2020},
    {FrameClass::GSense4040, planGSense4040},
    {FrameClass::GSense6060, planGSense6060},
    {FrameClass::Argent23084, planArgent23084},
    {FrameClass::IMX183, planPlain},
    {FrameClass::LSGEN, planPlain},
    {FrameClass::Generic, planPlain},
};
static_assert(hasARowForEach(frameClassCount, planners, &Planner::frame));

}  // namespace

PlanMaker planMakerOf(unsigned int device) {
  return planners[static_cast<unsigned int>(sensorOf(device).frame)].maker;
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
