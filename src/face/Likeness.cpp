// What frames of one stack have in common.

#include <cmath>
#include <cstring>

#include "face/FrameLook.h"

namespace orvacam::face {

namespace {

constexpr double mostDegreesApart = 1.0;

/// Whether differing values can be allowed.
enum class Kind { Mode, Setting };

constexpr struct {
  ORVA_META_KEYS key;
  Kind kind;
} alike[] = {
    {ORVA_META_KEY_HDR_MODE, Kind::Mode},
    {ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE, Kind::Mode},
    {ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, Kind::Mode},
    {ORVA_META_KEY_EXPOSURE_TIME, Kind::Setting},
    {ORVA_META_KEY_LDR_GAIN, Kind::Setting},
    {ORVA_META_KEY_HDR_GAIN, Kind::Setting},
    {ORVA_META_KEY_GLOBAL_GAIN, Kind::Setting},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST, Kind::Setting},
    {ORVA_META_KEY_BLACK_LEVEL_SUN, Kind::Setting},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH, Kind::Setting},
    {ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH, Kind::Setting},
    {ORVA_META_KEY_HORIZONTAL_BINNING, Kind::Setting},
    {ORVA_META_KEY_VERTICAL_BINNING, Kind::Setting},
    {ORVA_META_KEY_IMAGE_START_COLUMN, Kind::Setting},
    {ORVA_META_KEY_IMAGE_START_ROW, Kind::Setting},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, Kind::Setting},
    {ORVA_META_KEY_IMAGE_STOP_ROW, Kind::Setting},
};

const orva_key& keyOfNumber(ORVA_META_KEYS number) {
  for (const orva_key& key : keys)
    if (key.number == static_cast<int>(number)) return key;
  return keys[0];
}

/// Versions differ in what they carry; what one of two headers lacks is alike.
bool carries(const HeaderValues& header, const orva_key& key) {
  return header.version() < 1 || static_cast<int>(header.version()) >= key.first_version;
}

std::string differs(const char* field, const std::string& first, const std::string& frame) {
  return std::string(field) + " is " + frame + ", of the first frame " + first;
}

std::string placesText(const orva_geometry& g) {
  return sizeText(g.width, g.height) + " with an image of " + sizeText(g.image_width, g.image_height) +
         " at " + std::to_string(g.x) + ", " + std::to_string(g.y);
}

/// Zero and one mean no binning.
std::string comparable(const HeaderValues& header, const orva_key& key) {
  const bool binning =
      key.number == ORVA_META_KEY_HORIZONTAL_BINNING || key.number == ORVA_META_KEY_VERTICAL_BINNING;
  const std::string text = header.text(key);
  return binning && text == "0" ? "1" : text;
}

}  // namespace

std::string unlikeness(const HeaderValues& first, const HeaderValues& frame, int allowed) {
  if (std::strcmp(first.sensor(), frame.sensor()) != 0)
    return differs("the sensor", first.sensor(), frame.sensor());
  const std::string firstSize = placesText(lookAtHeader(first).geometry());
  const std::string frameSize = placesText(lookAtHeader(frame).geometry());
  if (firstSize != frameSize) return differs("the size", firstSize, frameSize);
  for (const auto& field : alike) {
    const orva_key& key = keyOfNumber(field.key);
    if (allowed == ORVA_ALLOW_SETTINGS && field.kind == Kind::Setting) continue;
    if (allowed == ORVA_ALLOW_EXPOSURE && field.key == ORVA_META_KEY_EXPOSURE_TIME) continue;
    if (!carries(first, key) || !carries(frame, key)) continue;
    const std::string expected = comparable(first, key);
    const std::string given = comparable(frame, key);
    if (expected != given) return differs(key.name, expected, given);
  }
  if (allowed != ORVA_ALLOW_SETTINGS &&
      std::fabs(first.temperature() - frame.temperature()) > mostDegreesApart)
    return differs("SensorChipTemp", shortestDigits(first.temperature()) + " degrees Celsius",
                   shortestDigits(frame.temperature()));
  return "";
}

}  // namespace orvacam::face
