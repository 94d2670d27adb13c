#include "files/KeywordTable.h"

#include <algorithm>
#include <cmath>

#include "files/Json.h"
#include "files/Names.h"

namespace orvacam::files {

namespace {

double raw(const Subject& s, const char* key) {
  return s.fields->number(key).value_or(0);
}

/// A value, unless it is 0 and that means that nobody knows it.
Value unlessZero(double value) {
  return value == 0 ? Value() : Value(value);
}

/// None for what 64 bits do not hold, as cards of other files may say.
Value wholeOf(double value) {
  constexpr double most = 9.2e18;
  return std::fabs(value) < most ? Value(static_cast<std::int64_t>(std::llround(value))) : Value();
}

// The values of single header fields.
Value whole(const Subject& s, const Keyword& row) {
  const auto number = s.fields->number(row.source);
  return number ? wholeOf(*number) : Value();
}

Value wholeUnlessZero(const Subject& s, const Keyword& row) {
  const double number = raw(s, row.source);
  return number == 0 ? Value() : wholeOf(number);
}

Value flag(const Subject& s, const Keyword& row) {
  const auto number = s.fields->number(row.source);
  return number ? Value(*number != 0) : Value();
}

Value tenths(const Subject& s, const Keyword& row) {
  const auto number = s.fields->number(row.source);
  return number ? Value(*number / 10) : Value();
}

Value text(const Subject& s, const Keyword& row) {
  const auto words = s.fields->text(row.source);
  return words ? Value(plainText(*words)) : Value();
}

// Time.
Value exposure(const Subject& s, const Keyword&) {
  return s.exposure();
}

Value dateObs(const Subject& s, const Keyword&) {
  const auto time = s.stack ? s.stack->earliest : s.time;
  return time ? Value(isoTime(*time)) : Value();
}

Value dateEnd(const Subject& s, const Keyword&) {
  return s.stack && s.stack->end ? Value(isoTime(*s.stack->end)) : Value();
}

Value timeSystem(const Subject& s, const Keyword& row) {
  return std::holds_alternative<std::monostate>(dateObs(s, row)) ? Value() : Value("UTC");
}

Value timeSource(const Subject& s, const Keyword& row) {
  if (std::holds_alternative<std::monostate>(dateObs(s, row))) return {};
  return std::string(s.cameraClock ? "CAMERA" : "GPS");
}

Value date(const Subject& s, const Keyword&) {
  return s.date.empty() ? Value() : Value(s.date);
}

// The gain that holds for the plane.
Value wholeOf(const std::optional<double>& number) {
  return number ? wholeOf(*number) : Value();
}

Value gain(const Subject& s, const Keyword&) {
  return wholeOf(s.fields->number(s.highGain() ? "HDRGain" : "LDRGain"));
}

Value gainLow(const Subject& s, const Keyword& row) {
  return s.highGain() ? Value() : whole(s, row);
}

Value gainHigh(const Subject& s, const Keyword& row) {
  return s.highGain() ? whole(s, row) : Value();
}

Value offset(const Subject& s, const Keyword&) {
  if (!s.highGain()) return wholeOf(s.fields->number("BlackLevelAdjust"));
  return s.fields->version() < 2 ? Value() : wholeOf(s.fields->number("BlackLevelAdjustHigh"));
}

Value electronsPerCount(const Subject& s, const Keyword& row) {
  const double countsPer1000 = raw(s, row.source);
  if (s.plane == "image" || countsPer1000 <= 0) return {};
  if (s.plane != "low") return 1000 / countsPer1000;
  return s.merge && s.merge->ratio > 0 ? Value(1000 / countsPer1000 * s.merge->ratio) : Value();
}

// Geometry.
Value pixelWidth(const Subject& s, const Keyword&) {
  return unlessZero(s.pixelWidth());
}

Value pixelHeight(const Subject& s, const Keyword&) {
  return unlessZero(s.pixelHeight());
}

/// "[first column:last column,first row:last row]", from 1.
std::string sectionText(const Region& r) {
  return "[" + std::to_string(r.x + 1) + ":" + std::to_string(r.x + r.width) + "," + std::to_string(r.y + 1) +
         ":" + std::to_string(r.y + r.height) + "]";
}

Value dataSection(const Subject& s, const Keyword&) {
  return sectionText(s.image);
}

Value trimSection(const Subject& s, const Keyword&) {
  return s.hasReferences() ? Value(sectionText(s.image)) : Value();
}

Value biasSection(const Subject& s, const Keyword&) {
  const Region& i = s.image;
  const std::uint32_t below = i.y + i.height, right = i.x + i.width;
  // The first of the largest; rows are the whole width, pixels beside the image as high as it.
  const Region regions[] = {{0, 0, s.size.width, i.y},
                            {0, below, s.size.width, s.size.height - below},
                            {0, i.y, i.x, i.height},
                            {right, i.y, s.size.width - right, i.height}};
  const auto pixels = [](const Region& r) { return std::uint64_t{r.width} * r.height; };
  const Region* const largest =
      std::max_element(std::begin(regions), std::end(regions),
                       [&](const Region& a, const Region& b) { return pixels(a) < pixels(b); });
  return pixels(*largest) == 0 ? Value() : Value(sectionText(*largest));
}

Value rowOrder(const Subject&, const Keyword&) {
  return std::string("TOP-DOWN");
}

// The plane.
Value readout(const Subject& s, const Keyword&) {
  return s.plane == "image" ? Value(std::string("SINGLE")) : Value("HDR-" + upperName(s.plane));
}

Value extensionName(const Subject& s, const Keyword&) {
  return upperName(s.plane);
}

Value saturation(const Subject& s, const Keyword& row) {
  if (s.isCount) return {};
  if (s.plane == "image" && !s.fields->number(row.source)) return {};
  if (s.plane == "merged" && !s.merge) return {};
  const double value = s.saturation();
  return std::floor(value) == value ? wholeOf(value) : Value(value);
}

Value brightnessUnit(const Subject& s, const Keyword&) {
  return std::string(s.isCount ? "count" : "adu");
}

// Stacks.
Value combined(const Subject& s, const Keyword&) {
  return s.stack ? Value(static_cast<std::int64_t>(s.stack->frames)) : Value();
}

Value liveTime(const Subject& s, const Keyword&) {
  return s.stack ? Value(s.stack->exposure) : Value();
}

// The place.
Value degrees(const Subject& s, const Keyword& row) {
  const auto number = s.fields->number(row.source);
  if (raw(s, "GPSLocked") == 0 || !number) return {};
  const auto word = static_cast<std::uint32_t>(*number);
  const double position = (word & 0x7FFFFFFFu) / 600000.0;
  return (word & 0x80000000u) != 0 ? position : -position;
}

// The merge.
Value mergeRatio(const Subject& s, const Keyword&) {
  return s.plane == "merged" && s.merge && !s.merge->prnu ? Value(s.merge->ratio) : Value();
}

Value mergeHigh(const Subject& s, const Keyword&) {
  return s.plane == "merged" && s.merge ? wholeOf(s.merge->high) : Value();
}

Value mergeDifference(const Subject& s, const Keyword&) {
  return s.plane == "merged" && s.merge ? wholeOf(s.merge->difference) : Value();
}

Value mergeType(const Subject& s, const Keyword&) {
  return s.plane == "merged" && s.merge ? wholeOf(s.merge->type) : Value();
}

Value programVersion(const Subject&, const Keyword&) {
  return "liborvacam " + orvacam::version();
}

/// HISTORY stands in the table for its page; its cards come from the subject's list.
Value nothing(const Subject&, const Keyword&) {
  return {};
}

std::string jsonValue(const Value& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return jsonText(*text);
  if (const auto* number = std::get_if<double>(&value)) return jsonNumber(*number);
  if (const auto* integer = std::get_if<std::int64_t>(&value)) return std::to_string(*integer);
  if (const auto* truth = std::get_if<bool>(&value)) return *truth ? "true" : "false";
  return "null";
}

constexpr auto Frame = Keyword::Frame;
constexpr auto Plane = Keyword::Plane;
// clang-format off
constexpr Keyword table[] = {
    {"EXTNAME",  "",      "",                     1, Plane, extensionName,     "plane: LOW, HIGH, MERGED or IMAGE"},
    {"INSTRUME", "",      "CameraModel",          1, Frame, text,              "camera model"},
    {"DETNAM",   "",      "Sensor",               1, Frame, text,              "sensor"},
    {"SERIAL",   "",      "CameraSerialNumber",   1, Frame, text,              "camera serial number"},
    {"EXPTIME",  "s",     "ExposureTime",         1, Frame, exposure,          "exposure; of a sum the total"},
    {"DATE-OBS", "",      "CaptureTime",          1, Frame, dateObs,           "start of the exposure"},
    {"DATE-END", "",      "",                     1, Frame, dateEnd,           "end of the last exposure"},
    {"TIMESYS",  "",      "",                     1, Frame, timeSystem,        "time scale"},
    {"TIMESRC",  "",      "",          2, Frame, timeSource,        "clock behind DATE-OBS: GPS or CAMERA"},
    {"DATE",     "",      "",                     1, Frame, date,              "file written, UTC"},
    {"GAIN",     "",      "LDRGain, HDRGain",     1, Plane, gain,              "gain setting of the plane"},
    {"OFFSET",   "",      "BlackLevelAdjust, BlackLevelAdjustHigh", 1, Plane, offset, "black level setting of the plane"},
    {"EGAIN",    "e-/adu", "HighGainADUe",        3, Plane, electronsPerCount, "electrons per count"},
    {"CCD-TEMP", "degC",  "SensorChipTemp",       1, Frame, tenths,            "sensor chip"},
    {"COOLTEMP", "degC",  "SensorCoolerTemp",     1, Frame, tenths,            "cooler"},
    {"SET-TEMP", "degC",  "TemperatureSetPoint",  2, Frame, tenths,            "set point of the cooler"},
    {"XPIXSZ",   "um",    "HorizontalPixelSize",  2, Frame, pixelWidth,        "width of a binned pixel"},
    {"YPIXSZ",   "um",    "VerticalPixelSize",    2, Frame, pixelHeight,       "height of a binned pixel"},
    {"XBINNING", "",      "HorizontalBinning",    1, Frame, wholeUnlessZero,   "binning of columns"},
    {"YBINNING", "",      "VerticalBinning",      1, Frame, wholeUnlessZero,   "binning of rows"},
    {"ROWORDER", "",      "",                     1, Frame, rowOrder,          "the first row is the top one"},
    {"READOUTM", "",      "",                     1, Plane, readout,           "readout mode of the plane"},
    {"DATASEC",  "",      "",                     1, Plane, dataSection,       "image pixels"},
    {"TRIMSEC",  "",      "",                     1, Plane, trimSection,       "what remains without reference pixels"},
    {"BIASSEC",  "",      "",                     1, Plane, biasSection,       "largest region of reference pixels"},
    {"SATURATE", "adu",   "DataPixelBitDepth",    1, Plane, saturation,        "largest value that counts light"},
    {"BUNIT",    "",      "",                     1, Plane, brightnessUnit,    "unit of the pixels"},
    {"FRAMENUM", "",      "FrameNumber",          1, Frame, whole,             "frame number"},
    {"NCOMBINE", "",      "",                     1, Frame, combined,          "frames in the stack"},
    {"LIVETIME", "s",     "",                     1, Frame, liveTime,          "exposure of all frames of the stack"},
    {"SITELAT",  "deg",   "GPSLatitudeRaw",       2, Frame, degrees,           "latitude, north positive"},
    {"SITELONG", "deg",   "GPSLongitudeRaw",      2, Frame, degrees,           "longitude, east positive"},
    {"MERGRATI", "",      "",                     1, Plane, mergeRatio,        "gain ratio of the merge"},
    {"MERGTHRH", "adu",   "",                     1, Plane, mergeHigh,         "high threshold of the merge"},
    {"MERGTHRD", "adu",   "",                     1, Plane, mergeDifference,   "difference threshold of the merge"},
    {"MERGTYPE", "",      "",                     1, Plane, mergeType,         "0 merge, 1 low gain, 2 high gain"},
    {"VERFIRM",  "",      "FirmwareVersion",      1, Frame, whole,             "firmware version"},
    {"VERAPI",   "",      "",                     1, Frame, programVersion,    "library that wrote the file"},
    {"MDVER",    "",      "MetadataVersion",      1, Frame, whole,             "version of the frame's header"},
    {"FPGATEMP", "degC",  "FPGATemperature",      2, Frame, tenths,            "FPGA"},
    {"BASETEMP", "degC",  "BaseTemperature",      2, Frame, tenths,            "heat sink"},
    {"SENSTEMP", "degC",  "SensorChipTemp",       1, Frame, tenths,            "sensor chip"},
    {"BKSDILL",  "",      "BackSideIlluminated",  2, Frame, flag,              "back-side illuminated"},
    {"BLKLVLAD", "",      "BlackLevelAdjust",     1, Frame, whole,             "black level"},
    {"BLKLVLSN", "",      "BlackLevelSun",        1, Frame, whole,             "black level against the sun"},
    {"DEADPXCR", "",      "DeadPixelCorrection",  1, Frame, flag,              "dead pixels corrected"},
    {"GAINLOW",  "",      "LDRGain",              1, Plane, gainLow,           "low gain setting"},
    {"GAINHIGH", "",      "HDRGain",              1, Plane, gainHigh,          "high gain setting"},
    {"LOWDARK",  "",      "LowDarkCurrent",       1, Frame, flag,              "low dark current"},
    {"LOWNOISE", "",      "LowNoise",             1, Frame, flag,              "low noise"},
    {"GPS_LOCK", "",      "GPSLocked",            2, Frame, flag,              "GPS present at capture"},
    {"GEO_LAT",  "deg",   "GPSLatitudeRaw",       2, Frame, degrees,           "latitude, north positive"},
    {"GEO_LONG", "deg",   "GPSLongitudeRaw",      2, Frame, degrees,           "longitude, east positive"},
    {"HDR-MODE", "",      "HDRMode",              1, Frame, flag,              "captured in HDR mode"},
    {"HRZDIRIN", "",      "HorzScanDirInvert",    1, Frame, flag,              "horizontal scan inverted"},
    {"VRTDIRIN", "",      "VertScanDirInvert",    1, Frame, flag,              "vertical scan inverted"},
    {"ILLSTRDL", "",      "IlluminStartDelay",    1, Frame, whole,             "illumination start delay"},
    {"ILLSTPDL", "",      "IlluminStopDelay",     1, Frame, whole,             "illumination stop delay"},
    {"IMGSTACL", "pixel", "ImageStartColumn",     1, Frame, whole,             "first column on the sensor"},
    {"IMGSTARW", "pixel", "ImageStartRow",        1, Frame, whole,             "first row on the sensor"},
    {"IMGSTPCL", "pixel", "ImageStopColumn",      1, Frame, whole,             "last column on the sensor"},
    {"IMGSTPRW", "pixel", "ImageStopRow",         1, Frame, whole,             "last row on the sensor"},
    {"NONRWALL", "",      "NonRowAllignedImage",  1, Frame, flag,              "image not aligned to rows"},
    {"NUMDTCH",  "",      "NumberOfDataChannels", 1, Frame, whole,             "data channels"},
    {"PXLORDIM", "",      "PixelOrderedImage",    1, Frame, flag,              "pixel ordered"},
    {"PREREFRW", "pixel", "PreReferenceRows",     1, Frame, whole,             "reference rows ahead, unbinned"},
    {"PSTREFRW", "pixel", "PostReferenceRows",    1, Frame, whole,             "reference rows behind, unbinned"},
    {"PRFPXPRW", "pixel", "PreRowRefPixels",      1, Frame, whole,             "reference pixels ahead, unbinned"},
    {"RFPXLPRW", "pixel", "PostRowRefPixels",     1, Frame, whole,             "reference pixels behind, unbinned"},
    {"SNRPXLDP", "bit",   "SensorPixelBitDepth",  1, Frame, whole,             "depth of the sensor's pixels"},
    {"SHUTOPDL", "",      "ShutterOpenDelay",     1, Frame, whole,             "shutter open delay"},
    {"SHUTCLDL", "",      "ShutterCloseDelay",    1, Frame, whole,             "shutter close delay"},
    {"TRKFRMPR", "",      "TrackingFramesPerImageFrame", 1, Frame, whole,      "tracking frames per image frame"},
    {"TRKSTRCL", "pixel", "TrackingStartColumn",  1, Frame, whole,             "first tracking column"},
    {"TRKSTRRW", "pixel", "TrackingStartRow",     1, Frame, whole,             "first tracking row"},
    {"TRKSTPCL", "pixel", "TrackingStopColumn",   1, Frame, whole,             "last tracking column"},
    {"TRKSTPRW", "pixel", "TrackingStopRow",      1, Frame, whole,             "last tracking row"},
    {"HISTORY",  "",      "",                     1, Frame, nothing,           "corrections, reference files with SHA-256, program"},
};
// clang-format on

}  // namespace

const std::vector<Keyword>& keywords() {
  static const std::vector<Keyword> all(std::begin(table), std::end(table));
  return all;
}

std::vector<Card> cardsOf(const Subject& subject) {
  std::vector<Card> cards;
  for (const Keyword& row : keywords()) {
    if (subject.fields->version() < row.since) continue;
    if (subject.plane.empty() && row.scope == Keyword::Plane) continue;
    Value value = row.value(subject, row);
    if (std::holds_alternative<std::monostate>(value)) continue;
    const std::string unit = *row.unit != '\0' ? "[" + std::string(row.unit) + "] " : "";
    cards.push_back({row.name, std::move(value), unit + row.meaning});
  }
  for (const std::string& line : subject.history)
    cards.push_back({"HISTORY", plainText(line), ""});
  return cards;
}

std::string jsonOf(const std::vector<Card>& cards) {
  JsonObject object;
  JsonList history;
  for (const Card& card : cards)
    if (card.keyword == "HISTORY")
      history.raw(jsonValue(card.value));
    else
      object.raw(card.keyword, jsonValue(card.value));
  return object.raw("HISTORY", history.str()).str();
}

std::string descriptionOf(const Header& header, const std::vector<Card>& cards) {
  std::string json = header.to_json();
  const std::size_t end = json.find_last_of('}');
  return asciiJson(json.substr(0, end) + ", \"keywords\": " + jsonOf(cards) + "}");
}

std::string keywordsPage() {
  std::string page =
      "# Keywords\n\n"
      "What the FITS files of `orvacam` say beside the format's own keywords (SIMPLE, BITPIX, NAXIS, BZERO, "
      "BSCALE, "
      "CHECKSUM, DATASUM, ...). The description of TIFF files and `info --json` use the same names. A value "
      "comes from "
      "the frame's header as the camera sent it, under the name in the column \"header value\"; a keyword "
      "without a "
      "source is left out, as is one whose value the header's version does not carry. Keywords marked "
      "\"plane\" differ "
      "between the planes of a frame; in files of several planes the others stand in the empty primary "
      "header, too.\n\n"
      "This page is made from the table in the code: `orvacam_keywords > docs/keywords.md`.\n\n"
      "| keyword | unit | header value | since version | of | meaning |\n|---|---|---|---|---|---|\n";
  for (const Keyword& row : keywords())
    page += "| " + std::string(row.name) + " | " + row.unit + " | " + row.source + " | " +
            std::to_string(row.since) + " | " + (row.scope == Keyword::Plane ? "plane" : "frame") + " | " +
            row.meaning + " |\n";
  return page;
}

}  // namespace orvacam::files
