// The way of a frame: claim planes, decode, subtract bias frames, merge, count, hand over.

#include "frames/Decoding.h"

#include <orvacam/merge/CCustomMergeAlgo.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/support/CLog.h>

#include <algorithm>
#include <cstring>

#include "frames/FramePlanes.h"
#include "frames/OnePassMerge.h"
#include "frames/OwnClasses.h"
#include "frames/Quadrants.h"
#include "frames/RowInterleavedStream.h"
#include "frames/SampledPixels.h"

namespace orvacam {

namespace {

/// What is on the way.
struct Way {
  const DecodePlan& plan;
  FrameParts& parts;
  FramePlanes& planes;
  SourceBytes source;  ///< from the first pixel on
  bool merging;        ///< the planes are merged next

  /// Where pixels of a pair are counted while they are decoded; null for nowhere.
  CFrameStatistics* counted(CFrameStatistics& plane) const {
    return parts.statisticsEnabled && plan.planes == BothPlanes ? &plane : nullptr;
  }
};

void logSizes(const FrameParts& parts) {
  constexpr const char* name = "Unpack";
  unsigned int pixels = 0;
  unsigned int width = 0;
  unsigned int height = 0;
  parts.metaData->GetImageSizePixels(pixels);
  parts.metaData->GetFrameDimensionsBinned(width, height);
  parts.log->log(CLOGLEVEL_ENTRY, L"%s: uiPixelSize= %d\n", name, pixels);
  parts.log->log(CLOGLEVEL_ENTRY, L"%s: uiFrameWidth= %d, uiFrameHeight= %d\n", name, width, height);
}

// ---- Decode: each says how much of its planes it has written

int decodePacked(const Way& way, unsigned int planeCount) {
  const unsigned long pixels = way.planes.pixels();
  PlaneCursor all[] = {{way.planes.low(), pixels, way.counted(way.parts.low)},
                       {way.planes.high(), pixels, way.counted(way.parts.high)}};
  const int result = decodeStream(way.source, way.plan.stream, all, planeCount);
  way.planes.keep(FramePlanes::Low, 2 * all[0].written());
  way.planes.keep(FramePlanes::High, 2 * all[1].written());
  return result;
}

int decodePlain16(const Way& way) {
  const std::size_t there = way.source.length / 2;
  const bool whole = there >= way.plan.streamPixels;
  if (!whole && way.plan.whenShort == WhenShort::IsLeftUncopied) return 0;
  const std::size_t pixels = std::min<std::size_t>(there, way.plan.streamPixels);
  if (pixels > 0) std::memcpy(way.planes.low(), way.source.bytes, 2 * pixels);
  way.planes.keep(FramePlanes::Low, 2 * pixels);
  return whole ? 0 : -1;
}

int decodeSampled13(const Way& way) {
  const std::size_t decoded = decodeSampled(way.source, way.planes.low(), way.planes.pixels());
  way.planes.keep(FramePlanes::Low, 2 * decoded);
  return decoded == way.planes.pixels() ? 0 : -1;
}

int decodeQuadrants(const Way& way) {
  way.planes.clearRest();  // a plane is looked at before it is written
  const FrameGeometry& geometry = way.plan.facts.geometry;
  if (way.plan.streamPixels > way.planes.pixels()) return -1;
  return readAmplifiers(
      {way.source, geometry.columns().frame(), geometry.rows().frame(), way.planes.low(), way.parts.low},
      way.plan.facts.amplifiers);
}

int decode(const Way& way) {
  // Nobody sees a merged plane that was not asked for when ours merge.
  const bool allThere = way.planes.asksFor(FramePlanes::Low) && way.planes.asksFor(FramePlanes::High) &&
                        (way.planes.asksFor(FramePlanes::Merged) || way.merging);
  if (!allThere && way.planes.addWorking() != 0) return -1;
  switch (way.plan.kind) {
    case StreamKind::PackedPair:
      return decodePacked(way, 2);
    case StreamKind::PackedSingle:
      return decodePacked(way, 1);
    case StreamKind::Plain16:
      return decodePlain16(way);
    case StreamKind::Sampled13:
      return decodeSampled13(way);
    case StreamKind::Quadrants:
      return decodeQuadrants(way);
    default:
      return -1;
  }
}

/// Decodes a whole stream and merges it on the way, where the merge is the camera's own and nobody wants to
/// see the planes in between. False, with nothing done, for any other frame.
bool decodeAndMerge(const Way& way) {
  if (!way.plan.merges || !way.plan.isWhole() || way.plan.kind != StreamKind::PackedPair ||
      !way.planes.asksFor(FramePlanes::Merged))
    return false;
  const unsigned long pixels = way.planes.pixels();
  const PairPlanes planes = {way.planes.low(), way.planes.high(), way.planes.mergedPixels(), pixels};
  OnePassMerge pass(way.parts.algorithm, way.plan.facts.geometry, way.plan.stream);
  if (!pass.fits(planes)) return false;
  way.planes.keep(FramePlanes::Low, 2 * pixels);
  way.planes.keep(FramePlanes::High, 2 * pixels);
  way.planes.keep(FramePlanes::Merged, way.parts.leadingBytes + 2 * pixels);
  way.planes.clearRest();
  pass.run(way.source, planes, way.parts.planes.pMergedImage,
           way.parts.statisticsEnabled ? &way.parts.low : nullptr,
           way.parts.statisticsEnabled ? &way.parts.high : nullptr);
  return true;
}

void subtractBias(const Way& way) {
  if (way.parts.algorithm == nullptr) return;
  unsigned int width = 0;
  unsigned int height = 0;
  way.parts.metaData->GetFrameDimensionsBinned(width, height);
  if ((way.plan.biased & LowPlane) != 0)
    way.parts.algorithm->ApplyBiasFrame(way.planes.low(), width, height, way.parts.low, false);
  if ((way.plan.biased & HighPlane) != 0)
    way.parts.algorithm->ApplyBiasFrame(way.planes.high(), width, height, way.parts.high, true);
}

void computeStatistics(const Way& way) {
  if (!way.parts.statisticsEnabled && !way.plan.alwaysCounted) return;
  // Intended: nothing counts the pixels of single images but the subtraction of a bias frame, so that without
  // one this is computed on nothing.
  if ((way.plan.computed & LowPlane) != 0) way.parts.low.Compute();
  if ((way.plan.computed & HighPlane) != 0) way.parts.high.Compute();
}

/// Carries a plan out.
int carryOut(IFrame& frame, PlanMaker maker, unpacked_images_t& images, bool merging) {
  FrameParts parts = partsOf(frame);
  // The façade does not look at the status of reading: the pixels that are missing would pass for zeros.
  if (parts.sourceIncomplete) return -1;
  const DecodePlan plan = makePlan(maker, *parts.metaData, parts.sourceLength, hasHeader(parts));
  FramePlanes planes(frame);
  if (refusalOfPlanes(plan.facts.geometry, plan.bytesGiven) != Refusal::None ||
      planes.claim(images, plan.planePixels) != 0)
    return -1;
  if (plan.logsSizes) logSizes(parts);
  if (plan.refusal == Refusal::ImageExceedsPlane) return -1;

  const Way way = {plan, parts, planes, pixelBytes(parts, plan.firstByte), merging};
  resetStatistics(parts);
  if (plan.logsSizes && plan.kind == StreamKind::PackedPair) logStreamSizes(parts);
  int result = 0;
  if (!merging || !decodeAndMerge(way)) {
    result = decode(way);
    planes.clearRest();
    if (result >= 0) subtractBias(way);
    if (result >= 0 && merging) mergePlanes(frame, images);
  }
  computeStatistics(way);
  return result;
}

}  // namespace

int unpackFrame(IFrame& frame, PlanMaker maker, unpacked_images_t* images) {
  const FrameParts parts = partsOf(frame);
  if (parts.metaData == nullptr || parts.source == nullptr || images == nullptr) return -1;
  return carryOut(frame, maker, *images, false);
}

int mergeFrame(IFrame& frame, PlanMaker maker, unpacked_images_t* images) {
  const FrameParts parts = partsOf(frame);
  if (parts.metaData == nullptr || parts.source == nullptr) return -1;
  if (images == nullptr) return 0;
  if (isOwnClass(frame)) return carryOut(frame, maker, *images, true);
  const int result = frame.Unpack(images);
  if (result >= 0) mergePlanes(frame, *images);
  return result;
}

void mergePlanes(IFrame& frame, const unpacked_images_t& images) {
  const FrameParts parts = partsOf(frame);
  const unpacked_images_t& own = parts.planes;
  const unsigned long pixels = own.ulLowImagePixels;
  if (images.pMergedImage == nullptr || images.ulMergedImagePixels < own.ulHighImagePixels ||
      parts.algorithm == nullptr || !parts.metaData->Value(ORVA_META_KEY_HDR_MODE).GetValueBool())
    return;
  // A merged plane that is there without being asked for has not been checked yet.
  unsigned int leading = 0;
  unsigned int trailing = 0;
  parts.algorithm->GetMergeHeaderSize(static_cast<ORVA_IMAGE_FORMAT>(parts.imageFormat), pixels, 16, leading,
                                      trailing);
  if (images.ulMergedImageSize < 2 * pixels + leading + trailing) return;
  frame.MergeFrame(own.pLowImage, own.pHighImage, images.pMergedImage, pixels);
}

// ---- For the documented steps of the classes

SourceBytes pixelBytes(const FrameParts& parts, std::uint64_t headerBytes) {
  return SourceBytes{parts.source, parts.sourceLength}.from(headerBytes);
}

bool hasHeader(const FrameParts& parts) {
  return CFrameMetaData::IsRCDFrame(parts.source,
                                    static_cast<unsigned int>(std::min(parts.sourceLength, 4UL)));
}

void resetStatistics(const FrameParts& parts) {
  parts.low.Reset();
  parts.high.Reset();
  parts.merged.Reset();
}

void logStreamSizes(const FrameParts& parts) {
  constexpr const char* name = "DoUnpackHDR";
  unsigned int frameWidth = 0;
  unsigned int frameHeight = 0;
  unsigned int width = 0;
  unsigned int height = 0;
  parts.metaData->GetFrameDimensions(frameWidth, frameHeight);
  parts.metaData->GetImageDimensions(width, height);
  parts.log->log(CLOGLEVEL_ENTRY, L"%s: uiTotalFrameWidth= %d, uiTotalFrameHeight= %d\n", name, frameWidth,
                 frameHeight);
  parts.log->log(CLOGLEVEL_ENTRY, L"%s: uiImageWidth= %d, uiImageHeight= %d\n", name, width, height);
}

namespace {

int decodeAlone(const FrameParts& parts, StreamMaker maker, PlaneCursor* planes, unsigned int planeCount) {
  if (parts.metaData == nullptr || parts.source == nullptr) return -1;
  const FrameFacts facts(*parts.metaData);
  const GeometryFault& fault = facts.geometry.fault();
  if (fault) return fault.kind == GeometryFault::ImageEndsBeforeItStarts ? 0 : -1;  // no pixels, or too many
  return decodeStream(pixelBytes(parts, facts.geometry.headerLength()), maker(facts), planes, planeCount);
}

}  // namespace

int decodePair(IFrame& frame, StreamMaker maker, const PlaneRoom& low, const PlaneRoom& high) {
  const FrameParts parts = partsOf(frame);
  PlaneCursor planes[] = {{low.plane, low.pixels, parts.statisticsEnabled ? &parts.low : nullptr},
                          {high.plane, high.pixels, parts.statisticsEnabled ? &parts.high : nullptr}};
  return decodeAlone(parts, maker, planes, 2);
}

int decodeSingle(IFrame& frame, const PlaneRoom& room) {
  PlaneCursor plane(room.plane, room.pixels, nullptr);
  return decodeAlone(partsOf(frame), singleStream, &plane, 1);
}

int copyWhole16(IFrame& frame, const PlaneRoom& room) {
  const FrameParts parts = partsOf(frame);
  const SourceBytes source = pixelBytes(parts, parts.metaData->GetBinarizeSize());
  if (room.pixels > 0 && source.length / 2 >= room.pixels)
    std::memcpy(room.plane, source.bytes, 2 * room.pixels);
  return 0;
}

}  // namespace orvacam
