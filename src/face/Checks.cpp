// Everything that a look at a frame can bring up, in one table.

#include <algorithm>
#include <cmath>

#include "face/FrameLook.h"
#include "face/Gains.h"
#include "support/NumberText.h"

namespace orvacam::face {

namespace {

constexpr int mostDegreesOff = 5;
constexpr std::uint64_t largestPlaneBytes = 0xFFFFFFFF;

std::string count(std::uint64_t number) {
  return std::to_string(number);
}

std::string planeText(const FrameLook& look) {
  const FrameGeometry& all = look.geometryFacts();
  return sizeText(all.binnedColumns().frame(), all.binnedRows().frame()) + " pixels";
}

// ---- What the header says

Said isShort(const FrameLook& look) {
  const HeaderValues& header = look.header();
  if (header.statedLength() >= header.neededLength()) return {};
  return "states a header of " + count(header.statedLength()) + " bytes; version " + count(header.version()) +
         " needs " + count(header.neededLength());
}

Said hasNoGeometry(const FrameLook& look) {
  if (look.hasGeometry()) return {};
  return look.geometryFacts().fault().text();
}

// ---- What the sensor does

std::string doesNotSend(const FrameLook& look) {
  return std::string(", which a ") + look.header().sensor() + " does not send";
}

Said isImpossiblePair(const FrameLook& look) {
  if (!look.hasGeometry() || !look.plan().facts.hdr || look.isPair()) return {};
  return "is marked as a pair of two gains, of " + count(look.plan().facts.bits) + " bits" +
         doesNotSend(look);
}

Said isImpossibleDepth(const FrameLook& look) {
  const StreamKind kind = look.plan().kind;
  const unsigned int bits = look.plan().facts.bits;
  const bool possible = kind == StreamKind::PackedSingle                            ? bits == 12
                        : kind == StreamKind::Quadrants || kind == StreamKind::None ? bits == 16
                                                                                    : true;
  if (!look.hasGeometry() || possible) return {};
  return "has pixels of " + count(bits) + " bits" + doesNotSend(look);
}

Said hasNoAmplifier(const FrameLook& look) {
  const bool isCcd = planMakerOf(look.header().device()) == planArgent23084;
  if (!look.hasGeometry() || !isCcd || look.plan().facts.amplifiers != 0) return {};
  return std::string("does not say which amplifiers read its ") + look.header().sensor();
}

// ---- Where the pixels lie

/// Whether pixels come unbinned where planes are binned.
Said isRefusedBinning(const FrameLook& look) {
  const HeaderValues& header = look.header();
  const DecodePlan& plan = look.plan();
  if (!look.hasGeometry() || plan.kind == StreamKind::None) return {};
  if (look.geometryFacts().framePixels() == look.geometryFacts().planePixels()) return {};
  const bool unbinnedPair = look.isPair() && planMakerOf(header.device()) == planGSense400;
  if (!unbinnedPair && plan.kind != StreamKind::Quadrants && plan.imagePixels <= plan.planePixels) return {};
  return "is binned " +
         sizeText(header.number(ORVA_META_KEY_HORIZONTAL_BINNING),
                  header.number(ORVA_META_KEY_VERTICAL_BINNING)) +
         doesNotSend(look);
}

bool isPacked(const FrameLook& look) {
  return look.isPair() || look.plan().kind == StreamKind::PackedSingle;
}

/// Whether a stream's rows are not as long as the plane's.
bool isSheared(const FrameLook& look) {
  if (look.plan().kind == StreamKind::Plain16) return look.plan().streamPixels != look.plan().planePixels;
  if (!isPacked(look)) return false;
  const std::uint64_t width = look.geometryFacts().binnedColumns().frame();
  const auto& sections = look.plan().stream.sections;
  return std::any_of(std::begin(sections), std::end(sections), [&](const StreamSection& section) {
    return section.rows > 0 &&
           std::uint64_t{section.before} + section.pixels + section.after + section.shared != width;
  });
}
Said isMisplaced(const FrameLook& look) {
  if (!look.hasGeometry() || isRefusedBinning(look) || !isSheared(look)) return {};
  const FrameGeometry& all = look.geometryFacts();
  return "states reference regions (" + count(all.binnedColumns().before) + " pixels before and " +
         count(all.binnedColumns().after) + " behind each row, " + count(all.binnedRows().before) +
         " rows before and " + count(all.binnedRows().after) + " behind the image) that the frames of a " +
         look.header().sensor() + " do not carry there";
}

Said hasOddRun(const FrameLook& look) {
  if (!look.hasGeometry() || !isPacked(look)) return {};
  for (const StreamSection& section : look.plan().stream.sections)
    for (const unsigned int run : {section.before, section.pixels, section.after, section.shared})
      if (section.rows > 0 && run % 2 != 0)
        return "has runs of " + count(run) + " pixels, an odd number of pixels that are packed in pairs";
  return {};
}

/// Bits of a pixel in the stream.
unsigned int bitsOf(StreamKind kind) {
  return kind == StreamKind::Plain16 || kind == StreamKind::Quadrants ? 16
         : kind == StreamKind::Sampled13                              ? 13
                                                                      : 12;
}

/// Bytes of the stream's first `rows` rows of a plane, of both planes of a pair.
std::uint64_t bytesOfRows(const FrameLook& look, std::uint64_t rows) {
  const DecodePlan& plan = look.plan();
  const std::uint64_t width = look.geometryFacts().binnedColumns().frame();
  if (!isPacked(look)) return (width * rows * bitsOf(plan.kind) + 7) / 8;
  std::uint64_t bytes = 0;
  for (const StreamSection& section : plan.stream.sections) {
    const std::uint64_t planes = look.isPair() ? 2 : 1;
    const std::uint64_t here = std::min<std::uint64_t>(rows, section.rows / planes);
    bytes += here * bytesPerPair * (planes * section.pairsOfRow() + pairsOf(section.shared));
    rows -= here;
  }
  return bytes;
}

std::uint64_t wholeRows(const FrameLook& look) {
  const DecodePlan& plan = look.plan();
  const std::uint64_t given = plan.bytesGiven > plan.firstByte ? plan.bytesGiven - plan.firstByte : 0;
  std::uint64_t low = 0;
  std::uint64_t high = look.geometryFacts().binnedRows().frame();
  while (low < high) {
    const std::uint64_t middle = (low + high + 1) / 2;
    if (bytesOfRows(look, middle) <= given)
      low = middle;
    else
      high = middle - 1;
  }
  return low;
}

Said lacksPixels(const FrameLook& look) {
  const DecodePlan& plan = look.plan();
  if (!look.hasGeometry() || plan.kind == StreamKind::None || plan.isWhole()) return {};
  return "needs " + count(plan.bytesNeeded) + " bytes (" + planeText(look) + " of " +
         count(bitsOf(plan.kind)) + " bits" + (look.isPair() ? " in two planes" : "") +
         " behind a header of " + count(plan.firstByte) + " bytes), ends at byte " + count(plan.bytesGiven) +
         ": " + count(wholeRows(look)) + " of " + count(look.geometryFacts().binnedRows().frame()) +
         " rows are whole";
}

Said isTooLarge(const FrameLook& look) {
  if (!look.hasGeometry() || 2 * look.plan().planePixels <= largestPlaneBytes) return {};
  return "has planes of " + planeText(look) + ", more than 4 GiB each";
}

// ---- What is odd and can be decoded

Said isUnknownSensor(const FrameLook& look) {
  if (look.header().isKnownSensor()) return {};
  return "names no known sensor: \"" + look.header().model() +
         "\" is taken for a camera that sends 16-bit pixels";
}

Said isUnknownVersion(const FrameLook& look) {
  const unsigned int version = look.header().version();
  if (version >= 1 && version <= 4) return {};
  return "states header version " + count(version) + ", none of 1 to 4; it is read as 4";
}

Said sizesDisagree(const FrameLook& look) {
  const FrameGeometry& all = look.geometryFacts();
  const unsigned int width = look.header().number(ORVA_META_KEY_HORIZONTAL_PIXELS);
  const unsigned int height = look.header().number(ORVA_META_KEY_VERTICAL_PIXELS);
  const bool exceeds =
      (width != 0 && all.binnedColumns().image > width) || (height != 0 && all.binnedRows().image > height);
  if (!look.hasGeometry() || !exceeds) return {};
  return "has an image region of " + sizeText(all.binnedColumns().image, all.binnedRows().image) +
         " pixels and states " + sizeText(width, height);
}

Said lacksMiddleRow(const FrameLook& look) {
  const std::uint64_t rows = look.geometryFacts().rows().frame();
  if (!look.isDecodable() || look.plan().kind != StreamKind::Quadrants ||
      look.plan().facts.amplifiers != AllAmplifiers || rows % 2 == 0)
    return {};
  return "has " + count(rows) + " rows, an odd number, and was read by four amplifiers: row " +
         count(rows / 2) + " of the plane is 0";
}

Said hasTrailingBytes(const FrameLook& look) {
  const std::uint64_t middleRow = lacksMiddleRow(look) ? 2 * look.geometryFacts().columns().frame() : 0;
  if (!look.isDecodable() || look.trailing() == 0 || look.trailing() == middleRow) return {};
  return "has " + count(look.trailing()) + " bytes behind its end at byte " + count(look.end()) +
         (look.isFollowedByFrame() ? ", which begin another frame" : "");
}

Said hasNoTime(const FrameLook& look) {
  if (look.header().time()) return {};
  return "has a capture time that cannot be read or does not exist";
}

Said isWarm(const FrameLook& look) {
  const HeaderValues& header = look.header();
  if (!header.hasSetPoint() || std::fabs(header.temperature() - header.setPoint()) <= mostDegreesOff)
    return {};
  return "was taken at " + fixedText(header.temperature(), 1) + " degrees Celsius, with a set point of " +
         fixedText(header.setPoint(), 1);
}

Said isNotMergeable(const FrameLook& look) {
  if (!look.isDecodable() || !look.wantsMerge()) return {};
  const double ratio = gainRatioOf(look.header(), nullptr);
  if (isMergeable(ratio)) return {};
  return "has a gain ratio of " + fixedText(ratio, 3) +
         ", and the merge holds ratios below 64: the frame yields low and high";
}

Said hasStrayBlock(const FrameLook& look) {
  const HeaderValues& header = look.header();
  if (header.blockEnd() <= header.bytes().size()) return {};
  return "describes a block at bytes " + count(header.blockBegin()) + " to " + count(header.blockEnd()) +
         ", outside the header of " + count(header.bytes().size()) + " bytes";
}

Said isLong(const FrameLook& look) {
  const HeaderValues& header = look.header();
  if (header.statedLength() <= header.neededLength() || header.blockEnd() == header.statedLength()) return {};
  return "states a header of " + count(header.statedLength()) + " bytes, where version " +
         count(header.version()) + " needs " + count(header.neededLength()) + "; its pixels begin behind it";
}

// ---- The table

constexpr Check check(int severity, int reason, const char* id, const char* meaning,
                      Said (*say)(const FrameLook&)) {
  return {{sizeof(orva_finding), severity, reason, id, meaning, 0, 0}, say};
}

}  // namespace

constexpr Check checks[checkCount] = {
    check(ORVA_ERROR, ORVA_BAD_GEOMETRY, "header_too_short",
          "The header states fewer bytes than its version needs.", isShort),
    check(ORVA_ERROR, ORVA_BAD_GEOMETRY, "no_image", "The image stops before it starts, or has no pixels.",
          hasNoGeometry),
    check(
        ORVA_ERROR, ORVA_UNSUPPORTED_SENSOR, "impossible_pair",
        "The header marks a pair of two gains that the sensor does not send: a plain camera, a CCD, 16 bits "
        "of a GSENSE6060.",
        isImpossiblePair),
    check(ORVA_ERROR, ORVA_UNSUPPORTED_SENSOR, "impossible_depth",
          "The pixels have a number of bits that the sensor does not send.", isImpossibleDepth),
    check(ORVA_ERROR, ORVA_UNSUPPORTED_SENSOR, "no_amplifier",
          "The header of a CCD does not say which amplifiers read it. Headers of versions 1 and 2 cannot.",
          hasNoAmplifier),
    check(ORVA_ERROR, ORVA_BAD_GEOMETRY, "impossible_binning",
          "The frame is binned, and the sensor's pixels always come one by one.", isRefusedBinning),
    check(
        ORVA_ERROR, ORVA_BAD_GEOMETRY, "impossible_reference_regions",
        "The header states reference rows or pixels in places where the sensor's frames carry none, so that "
        "rows would be sheared.",
        isMisplaced),
    check(ORVA_ERROR, ORVA_BAD_GEOMETRY, "odd_run",
          "Pixels are packed in pairs, and a row or a part of one has an odd number of them, so that "
          "rows would be sheared.",
          hasOddRun),
    check(ORVA_ERROR, ORVA_TRUNCATED, "pixels_missing", "The frame ends before its last pixel.", lacksPixels),
    check(ORVA_ERROR, ORVA_BAD_GEOMETRY, "too_large", "A plane would take more than 4 GiB.", isTooLarge),
    check(ORVA_WARNING, 0, "unknown_sensor",
          "The model names no known sensor. The frame is decoded as 16-bit pixels behind the header.",
          isUnknownSensor),
    check(ORVA_WARNING, 0, "unknown_version",
          "The header's version is none of 1 to 4. It is read as version 4.", isUnknownVersion),
    check(ORVA_WARNING, 0, "sizes_disagree",
          "The image region is larger than the number of pixels that the header states.", sizesDisagree),
    check(ORVA_WARNING, 0, "middle_row",
          "A CCD of an odd number of rows was read by four amplifiers, which send no middle row: it is 0.",
          lacksMiddleRow),
    check(ORVA_WARNING, 0, "trailing_bytes", "Bytes follow the frame's last pixel, maybe another frame.",
          hasTrailingBytes),
    check(ORVA_WARNING, 0, "no_time", "The capture time cannot be read, or is no date or time that exists.",
          hasNoTime),
    check(ORVA_WARNING, 0, "temperature_off", "The sensor is more than 5 degrees off its set point.", isWarm),
    check(
        ORVA_WARNING, 0, "ratio_too_large",
        "The gain ratio is 64 or more, which the merge's fixed point does not hold. The frame yields low and "
        "high.",
        isNotMergeable),
    check(ORVA_WARNING, 0, "stray_block",
          "The block that a version 4 header describes lies outside the header.", hasStrayBlock),
    check(ORVA_NOTE, 0, "header_longer",
          "The header is longer than its version needs. Pixels begin behind it.", isLong),
};
static_assert(checks[checkCount - 1].kind.size != 0, "there are fewer checks");

}  // namespace orvacam::face
