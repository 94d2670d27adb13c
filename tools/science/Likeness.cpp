#include "science/Likeness.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace orvacam::science {

namespace {

constexpr double mostDegreesApart = 1.0;

constexpr const char* settings[] = {"HDRMode",
                                    "CorrelatedMultipleSample",
                                    "DataPixelBitDepth",
                                    "LDRGain",
                                    "HDRGain",
                                    "GlobalGain",
                                    "BlackLevelAdjust",
                                    "BlackLevelSun",
                                    "BlackLevelAdjustHigh",
                                    "BlackLevelSunHigh",
                                    "HorizontalBinning",
                                    "VerticalBinning",
                                    "ImageStartColumn",
                                    "ImageStartRow",
                                    "ImageStopColumn",
                                    "ImageStopRow"};

std::string differs(const char* field, const std::string& first, const std::string& frame) {
  return std::string(field) + " is " + frame + ", of the first frame " + first;
}

std::string sizeText(const Header& header) {
  const Size all = header.frame_size();
  const Region image = header.image_region();
  return std::to_string(all.width) + " x " + std::to_string(all.height) + " with an image of " +
         std::to_string(image.width) + " x " + std::to_string(image.height) + " at " +
         std::to_string(image.x) + ", " + std::to_string(image.y);
}

/// Binning of 0 means none, as 1 does.
std::string valueOf(const Header& header, const char* field) {
  const std::string text = header.text(field);
  return std::strstr(field, "Binning") != nullptr && text == "0" ? "1" : text;
}

bool carries(const Header& header, const char* field) {
  static const std::vector<Key> all = keys();
  for (const Key& key : all)
    if (key.name == field) return static_cast<int>(header.version()) >= key.first_version;
  return false;
}

std::string degrees(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f degrees Celsius", value);
  return text;
}

}  // namespace

std::string unlikeness(const Header& first, const Header& frame, bool withExposure) {
  if (first.sensor() != frame.sensor()) return differs("the sensor", first.sensor(), frame.sensor());
  if (sizeText(first) != sizeText(frame)) return differs("the size", sizeText(first), sizeText(frame));
  for (const char* const field : settings)
    if (carries(first, field) && carries(frame, field) && valueOf(first, field) != valueOf(frame, field))
      return differs(field, valueOf(first, field), valueOf(frame, field));
  if (withExposure && first.text("ExposureTime") != frame.text("ExposureTime"))
    return differs("ExposureTime", first.text("ExposureTime"), frame.text("ExposureTime"));
  const auto a = first.temperature_celsius(), b = frame.temperature_celsius();
  if (a && b && std::fabs(*a - *b) > mostDegreesApart)
    return differs("SensorChipTemp", degrees(*a), degrees(*b));
  return "";
}

}  // namespace orvacam::science
