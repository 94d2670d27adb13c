// Everything that a look at a frame can bring up, in one table.

#include <cmath>
#include <cstdio>
#include <iterator>

#include "face/FrameLook.h"
#include "face/GainRatio.h"

namespace orvacam::face {

namespace {

constexpr int mostDegreesOff = 5;
constexpr std::uint64_t largestPlaneBytes = 0xFFFFFFFF;

std::string count(std::uint64_t number) {
  return std::to_string(number);
}

std::string decimal(double number, int digits) {
  const auto scale = static_cast<long>(std::pow(10, digits));
  const long scaled = std::lround(number * static_cast<double>(scale));
  char text[64];
  std::snprintf(text, sizeof text, "%s%ld.%0*ld", scaled < 0 ? "-" : "", std::labs(scaled) / scale, digits,
                std::labs(scaled) % scale);
  return text;
}

std::string sizeText(const FrameLook& look) {
  const FrameGeometry& all = look.plan().facts.geometry;
  return count(all.binnedColumns().frame()) + " x " + count(all.binnedRows().frame()) + " pixels";
}

// ---- What the header says

bool isCcd(const FrameLook& look) {
  return planMakerOf(look.header().device()) == planArgent23084;
}

bool isShort(const FrameLook& look) {
  return look.header().statedLength() < look.header().neededLength();
}
std::string sayShort(const FrameLook& look) {
  return "states a header of " + count(look.header().statedLength()) + " bytes; version " +
         count(look.header().version()) + " needs " + count(look.header().neededLength());
}

bool hasNoGeometry(const FrameLook& look) {
  return !look.hasGeometry();
}
std::string sayNoGeometry(const FrameLook& look) {
  return look.plan().facts.geometry.fault().text();
}

// ---- What the sensor does

bool isImpossiblePair(const FrameLook& look) {
  return look.hasGeometry() && look.plan().facts.hdr && !look.isPair();
}
std::string sayImpossiblePair(const FrameLook& look) {
  return "is marked as a pair of two gains, of " + count(look.plan().facts.bits) + " bits, which a " +
         look.header().sensor() + " does not send";
}

bool isImpossibleDepth(const FrameLook& look) {
  if (!look.hasGeometry()) return false;
  const unsigned int bits = look.plan().facts.bits;
  switch (look.plan().kind) {
    case StreamKind::PackedSingle:
      return bits != 12;
    case StreamKind::Quadrants:
    case StreamKind::None:
      return bits != 16;
    default:
      return false;
  }
}
std::string sayImpossibleDepth(const FrameLook& look) {
  return "has pixels of " + count(look.plan().facts.bits) + " bits, which a " + look.header().sensor() +
         " does not send";
}

bool hasNoAmplifier(const FrameLook& look) {
  return look.hasGeometry() && isCcd(look) && look.plan().facts.amplifiers == 0;
}
std::string sayNoAmplifier(const FrameLook& look) {
  return std::string("does not say which amplifiers read its ") + look.header().sensor();
}

// ---- Where the pixels lie

/// Whether pixels come unbinned where planes are binned.
bool isRefusedBinning(const FrameLook& look) {
  if (!look.hasGeometry() || look.plan().kind == StreamKind::None) return false;
  const FrameGeometry& all = look.plan().facts.geometry;
  if (all.framePixels() == all.planePixels()) return false;
  const bool unbinnedPair = look.isPair() && planMakerOf(look.header().device()) == planGSense400;
  return unbinnedPair || look.plan().kind == StreamKind::Quadrants ||
         look.plan().imagePixels > look.plan().planePixels;
}
std::string sayRefusedBinning(const FrameLook& look) {
  const HeaderValues& header = look.header();
  return "is binned " + count(header.number(ORVA_META_KEY_HORIZONTAL_BINNING)) + " x " +
         count(header.number(ORVA_META_KEY_VERTICAL_BINNING)) + ", which a " + header.sensor() +
         " does not send";
}

bool isPacked(const FrameLook& look) {
  return look.isPair() || look.plan().kind == StreamKind::PackedSingle;
}

/// Whether a stream's rows are not as long as the plane's.
bool isMisplaced(const FrameLook& look) {
  if (!look.hasGeometry() || isRefusedBinning(look)) return false;
  if (look.plan().kind == StreamKind::Plain16) return look.plan().streamPixels != look.plan().planePixels;
  if (!isPacked(look)) return false;
  const std::uint64_t width = look.plan().facts.geometry.binnedColumns().frame();
  for (const StreamSection& section : look.plan().stream.sections)
    if (section.rows > 0 &&
        std::uint64_t{section.before} + section.pixels + section.after + section.shared != width)
      return true;
  return false;
}
std::string sayMisplaced(const FrameLook& look) {
  const FrameGeometry& all = look.plan().facts.geometry;
  return "states reference regions (" + count(all.binnedColumns().before) + " pixels before and " +
         count(all.binnedColumns().after) + " behind each row, " + count(all.binnedRows().before) +
         " rows before and " + count(all.binnedRows().after) + " behind the image) that the frames of a " +
         look.header().sensor() + " do not carry there";
}

bool isOdd(const StreamSection& section) {
  return section.rows > 0 && (section.before | section.pixels | section.after | section.shared) % 2 != 0;
}
bool hasOddRun(const FrameLook& look) {
  if (!look.hasGeometry() || !isPacked(look)) return false;
  for (const StreamSection& section : look.plan().stream.sections)
    if (isOdd(section)) return true;
  return false;
}
std::string sayOddRun(const FrameLook& look) {
  for (const StreamSection& section : look.plan().stream.sections)
    for (const unsigned int run : {section.before, section.pixels, section.after, section.shared})
      if (isOdd(section) && run % 2 != 0)
        return "has runs of " + count(run) + " pixels, an odd number of pixels that are packed in pairs";
  return "";
}

bool lacksPixels(const FrameLook& look) {
  return look.hasGeometry() && look.plan().kind != StreamKind::None && !look.plan().isWhole();
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
  const std::uint64_t width = plan.facts.geometry.binnedColumns().frame();
  if (!isPacked(look)) return (width * rows * bitsOf(plan.kind) + 7) / 8;
  std::uint64_t bytes = 0;
  for (const StreamSection& section : plan.stream.sections) {
    const std::uint64_t planes = look.isPair() ? 2 : 1;
    const std::uint64_t here = std::min<std::uint64_t>(rows, section.rows / planes);
    const auto packed = [](std::uint64_t pixels) { return (pixels + 1) / 2 * 3; };
    bytes += here * (planes * (packed(section.before) + packed(section.pixels) + packed(section.after)) +
                     packed(section.shared));
    rows -= here;
  }
  return bytes;
}

std::uint64_t wholeRows(const FrameLook& look) {
  const DecodePlan& plan = look.plan();
  const std::uint64_t given = plan.bytesGiven > plan.firstByte ? plan.bytesGiven - plan.firstByte : 0;
  std::uint64_t low = 0;
  std::uint64_t high = plan.facts.geometry.binnedRows().frame();
  while (low < high) {
    const std::uint64_t middle = (low + high + 1) / 2;
    if (bytesOfRows(look, middle) <= given)
      low = middle;
    else
      high = middle - 1;
  }
  return low;
}

std::string sayLacksPixels(const FrameLook& look) {
  const DecodePlan& plan = look.plan();
  return "needs " + count(plan.bytesNeeded) + " bytes (" + sizeText(look) + " of " +
         count(bitsOf(plan.kind)) + " bits" + (look.isPair() ? " in two planes" : "") +
         " behind a header of " + count(plan.firstByte) + " bytes), ends at byte " + count(plan.bytesGiven) +
         ": " + count(wholeRows(look)) + " of " + count(plan.facts.geometry.binnedRows().frame()) +
         " rows are whole";
}

bool isTooLarge(const FrameLook& look) {
  return look.hasGeometry() && 2 * look.plan().planePixels > largestPlaneBytes;
}
std::string sayTooLarge(const FrameLook& look) {
  return "has planes of " + sizeText(look) + ", more than 4 GiB each";
}

// ---- What is odd and can be decoded

bool isUnknownSensor(const FrameLook& look) {
  return !look.header().isKnownSensor();
}
std::string sayUnknownSensor(const FrameLook& look) {
  return "names no known sensor: \"" + look.header().model() +
         "\" is taken for a camera that sends 16-bit pixels";
}

bool isUnknownVersion(const FrameLook& look) {
  return look.header().version() < 1 || look.header().version() > 4;
}
std::string sayUnknownVersion(const FrameLook& look) {
  return "states header version " + count(look.header().version()) + ", none of 1 to 4; it is read as 4";
}

bool sizesDisagree(const FrameLook& look) {
  if (!look.hasGeometry()) return false;
  const FrameGeometry& all = look.plan().facts.geometry;
  const auto exceeds = [&](std::uint64_t image, ORVA_META_KEYS key) {
    const unsigned int stated = look.header().number(key);
    return stated != 0 && image > stated;
  };
  return exceeds(all.binnedColumns().image, ORVA_META_KEY_HORIZONTAL_PIXELS) ||
         exceeds(all.binnedRows().image, ORVA_META_KEY_VERTICAL_PIXELS);
}
std::string saySizesDisagree(const FrameLook& look) {
  const FrameGeometry& all = look.plan().facts.geometry;
  return "has an image region of " + count(all.binnedColumns().image) + " x " +
         count(all.binnedRows().image) + " pixels and states " +
         count(look.header().number(ORVA_META_KEY_HORIZONTAL_PIXELS)) + " x " +
         count(look.header().number(ORVA_META_KEY_VERTICAL_PIXELS));
}

bool lacksMiddleRow(const FrameLook& look) {
  return look.isDecodable() && look.plan().kind == StreamKind::Quadrants &&
         look.plan().facts.amplifiers == AllAmplifiers && look.plan().facts.geometry.rows().frame() % 2 != 0;
}
std::string sayLacksMiddleRow(const FrameLook& look) {
  const std::uint64_t rows = look.plan().facts.geometry.rows().frame();
  return "has " + count(rows) + " rows, an odd number, and was read by four amplifiers: row " +
         count(rows / 2) + " of the plane is 0";
}

bool hasTrailingBytes(const FrameLook& look) {
  if (!look.isDecodable()) return false;
  const std::uint64_t row = 2 * look.plan().facts.geometry.columns().frame();
  return look.trailing() != 0 && !(lacksMiddleRow(look) && look.trailing() == row);
}
std::string sayTrailingBytes(const FrameLook& look) {
  return "has " + count(look.trailing()) + " bytes behind its end at byte " + count(look.end()) +
         (look.isFollowedByFrame() ? ", which begin another frame" : "");
}

bool hasNoTime(const FrameLook& look) {
  return !look.header().time();
}
std::string sayNoTime(const FrameLook&) {
  return "has a capture time that cannot be read or does not exist";
}

bool isWarm(const FrameLook& look) {
  return look.header().hasSetPoint() &&
         std::fabs(look.header().temperature() - look.header().setPoint()) > mostDegreesOff;
}
std::string sayWarm(const FrameLook& look) {
  return "was taken at " + decimal(look.header().temperature(), 1) +
         " degrees Celsius, with a set point of " + decimal(look.header().setPoint(), 1);
}

bool isNotMergeable(const FrameLook& look) {
  return look.isDecodable() && look.wantsMerge() && !isMergeable(gainRatioOf(look.header(), nullptr));
}
std::string sayNotMergeable(const FrameLook& look) {
  return "has a gain ratio of " + decimal(gainRatioOf(look.header(), nullptr), 3) +
         ", and the merge holds ratios below 64: the frame yields low and high";
}

bool hasStrayBlock(const FrameLook& look) {
  return look.header().blockEnd() > look.header().bytes().size();
}
std::string sayStrayBlock(const FrameLook& look) {
  return "describes a block at bytes " + count(look.header().blockBegin()) + " to " +
         count(look.header().blockEnd()) + ", outside the header of " + count(look.header().bytes().size()) +
         " bytes";
}

bool isLong(const FrameLook& look) {
  const HeaderValues& header = look.header();
  return header.statedLength() > header.neededLength() && header.blockEnd() != header.statedLength();
}
std::string sayLong(const FrameLook& look) {
  return "states a header of " + count(look.header().statedLength()) + " bytes, where version " +
         count(look.header().version()) + " needs " + count(look.header().neededLength()) +
         "; its pixels begin behind it";
}

// ---- The table

constexpr Check error(int reason, const char* id, const char* meaning, bool (*applies)(const FrameLook&),
                      std::string (*say)(const FrameLook&)) {
  return {ORVA_ERROR, reason, id, meaning, applies, say};
}
constexpr Check warning(const char* id, const char* meaning, bool (*applies)(const FrameLook&),
                        std::string (*say)(const FrameLook&)) {
  return {ORVA_WARNING, 0, id, meaning, applies, say};
}
constexpr Check note(const char* id, const char* meaning, bool (*applies)(const FrameLook&),
                     std::string (*say)(const FrameLook&)) {
  return {ORVA_NOTE, 0, id, meaning, applies, say};
}

constexpr Check table[] = {
    error(ORVA_BAD_GEOMETRY, "header_too_short", "The header states fewer bytes than its version needs.",
          isShort, sayShort),
    error(ORVA_BAD_GEOMETRY, "no_image", "The image stops before it starts, or has no pixels.", hasNoGeometry,
          sayNoGeometry),
    error(
        ORVA_UNSUPPORTED_SENSOR, "impossible_pair",
        "The header marks a pair of two gains that the sensor does not send: a plain camera, a CCD, 16 bits "
        "of a GSENSE6060.",
        isImpossiblePair, sayImpossiblePair),
    error(ORVA_UNSUPPORTED_SENSOR, "impossible_depth",
          "The pixels have a number of bits that the sensor does not send.", isImpossibleDepth,
          sayImpossibleDepth),
    error(ORVA_UNSUPPORTED_SENSOR, "no_amplifier",
          "The header of a CCD does not say which amplifiers read it. Headers of versions 1 and 2 cannot.",
          hasNoAmplifier, sayNoAmplifier),
    error(ORVA_BAD_GEOMETRY, "impossible_binning",
          "The frame is binned, and the sensor's pixels always come one by one.", isRefusedBinning,
          sayRefusedBinning),
    error(
        ORVA_BAD_GEOMETRY, "impossible_reference_regions",
        "The header states reference rows or pixels in places where the sensor's frames carry none, so that "
        "rows would be sheared.",
        isMisplaced, sayMisplaced),
    error(ORVA_BAD_GEOMETRY, "odd_run",
          "Pixels are packed in pairs, and a row or a part of one has an odd number of them, so that rows "
          "would be sheared.",
          hasOddRun, sayOddRun),
    error(ORVA_TRUNCATED, "pixels_missing", "The frame ends before its last pixel.", lacksPixels,
          sayLacksPixels),
    error(ORVA_BAD_GEOMETRY, "too_large", "A plane would take more than 4 GiB.", isTooLarge, sayTooLarge),
    warning("unknown_sensor",
            "The model names no known sensor. The frame is decoded as 16-bit pixels behind the header.",
            isUnknownSensor, sayUnknownSensor),
    warning("unknown_version", "The header's version is none of 1 to 4. It is read as version 4.",
            isUnknownVersion, sayUnknownVersion),
    warning("sizes_disagree", "The image region is larger than the number of pixels that the header states.",
            sizesDisagree, saySizesDisagree),
    warning("middle_row",
            "A CCD of an odd number of rows was read by four amplifiers, which send no middle row: it is 0.",
            lacksMiddleRow, sayLacksMiddleRow),
    warning("trailing_bytes", "Bytes follow the frame's last pixel, maybe another frame.", hasTrailingBytes,
            sayTrailingBytes),
    warning("no_time", "The capture time cannot be read, or is no date or time that exists.", hasNoTime,
            sayNoTime),
    warning("temperature_off", "The sensor is more than 5 degrees off its set point.", isWarm, sayWarm),
    warning("ratio_too_large",
            "The gain ratio is 64 or more, which the merge's fixed point does not hold. The frame yields low "
            "and high.",
            isNotMergeable, sayNotMergeable),
    warning("stray_block", "The block that a version 4 header describes lies outside the header.",
            hasStrayBlock, sayStrayBlock),
    note("header_longer", "The header is longer than its version needs. Pixels begin behind it.", isLong,
         sayLong),
};
static_assert(std::size(table) == checkCount);

}  // namespace

Checks checks() {
  return {std::begin(table), std::end(table)};
}

}  // namespace orvacam::face
