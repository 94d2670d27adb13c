#include "CalibrationReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "files/FitsWriter.h"
#include "files/Json.h"

namespace tool {

namespace science = orvacam::science;
using science::CalibratedPlane;
using science::Calibration;
using science::CalibrationKind;
using science::Estimate;
using science::formatted;

namespace {

Estimate scaled(const Estimate& estimate, double factor) {
  return {estimate.value * factor, estimate.error * factor};
}

/// Without the noise of rounding to whole counts.
Estimate withoutRounding(const Estimate& noise) {
  const double variance = noise.value * noise.value;
  return science::rootOf({variance - 1.0 / 12, 2 * noise.value * noise.error});
}

/// What is told of a plane, under its names in JSON; NaN is not told in text.
struct Row {
  const char *name, *label, *unit;
  Estimate value;
};

Estimate exact(double value) {
  return {value, science::unknown};
}

std::vector<Row> offsetRows(const CalibratedPlane& plane) {
  const Estimate readNoise = withoutRounding(plane.noise);
  const double room = plane.fullScale - plane.level.value;
  const double range = 20 * std::log10(room / readNoise.value);
  return {{"offset_adu", "offset", "ADU", plane.level},
          {"temporal_noise_adu", "noise of a frame", "ADU", plane.noise},
          {"read_noise_adu", "read noise", "ADU", readNoise},
          {"read_noise_e", "", "e-", scaled(readNoise, plane.gain)},
          {"saturation_e", "saturation", "e-", scaled({room, plane.level.error}, plane.gain)},
          {"dynamic_range_db",
           "dynamic range",
           "dB",
           {range, 20 / std::log(10.0) * readNoise.error / readNoise.value}},
          {"fixed_pattern_before_adu", "fixed pattern, before", "ADU", plane.before},
          {"fixed_pattern_after_adu", "  after", "ADU", exact(plane.after)},
          {"column_pattern_adu", "  of columns", "ADU", plane.columns},
          {"row_pattern_adu", "  of rows", "ADU", plane.rows},
          {"pixel_pattern_adu", "  of pixels", "ADU", plane.pixels},
          {"dsnu_e", "DSNU", "e-", scaled(plane.before, plane.gain)},
          {"drift_adu", "drift of the offset", "ADU", exact(plane.drift)}};
}

std::vector<Row> flatRows(const CalibratedPlane& plane) {
  return {{"level_adu", "light above the dark", "ADU", plane.level},
          {"level_e", "", "e-", scaled(plane.level, plane.gain)},
          {"temporal_noise_adu", "noise of a frame", "ADU", plane.noise},
          {"prnu_percent", "fixed pattern, before", "%", plane.before},
          {"prnu_after_percent", "  after", "%", exact(plane.after)},
          {"column_pattern_percent", "  of columns", "%", plane.columns},
          {"row_pattern_percent", "  of rows", "%", plane.rows},
          {"pixel_pattern_percent", "  of pixels", "%", plane.pixels},
          {"drift_adu", "drift of the light", "ADU", exact(plane.drift)}};
}

std::vector<Row> rowsOf(const Calibration& calibration, const CalibratedPlane& plane) {
  return calibration.kind == CalibrationKind::flat ? flatRows(plane) : offsetRows(plane);
}

struct Count {
  const char *name, *label;
  std::uint64_t CalibratedPlane::*value;
};
constexpr Count counts[] = {{"hot_pixels", "hot pixels", &CalibratedPlane::hot},
                            {"dead_pixels", "dead pixels", &CalibratedPlane::dead},
                            {"blinking_pixels", "blinking pixels", &CalibratedPlane::blinking},
                            {"rejected_values", "values left out", &CalibratedPlane::rejected},
                            {"clipped_terms", "terms cut off", &CalibratedPlane::clipped}};

std::string line(const std::string& label, const std::string& value, const char* unit) {
  char text[200];
  std::snprintf(text, sizeof text, "  %-24s%s%s%s\n", label.c_str(), value.c_str(), *unit != '\0' ? " " : "",
                unit);
  return text;
}

std::string ratioText(const Calibration& calibration) {
  if (!std::isfinite(calibration.tableRatio) || calibration.kind == CalibrationKind::bias) return "";
  std::string text =
      "gain ratio:\n" + line("by the header's gains", formatted("%.4f", calibration.tableRatio), "");
  if (calibration.measuredRatio.known()) text += line("measured", shown(calibration.measuredRatio, 4), "");
  return text + line("in the file", formatted("%.4f", calibration.usedRatio), "");
}

const char* kindName(science::OddKind kind) {
  return kind == science::Hot ? "hot" : kind == science::Dead ? "dead" : "blinking";
}

std::string upper(std::string name) {
  for (char& letter : name)
    letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  return name;
}

files::JsonObject& add(files::JsonObject& object, const Row& row) {
  object.number(row.name, row.value.value);
  return object.number(std::string(row.name) + "_error", row.value.error);
}

std::string planeJson(const Calibration& calibration, const CalibratedPlane& plane) {
  files::JsonObject object;
  object.number("gain_e_per_adu", plane.gain);
  for (const Row& row : rowsOf(calibration, plane))
    add(object, row);
  for (const Count& count : counts)
    object.whole(count.name, static_cast<std::int64_t>(plane.*count.value));
  return object.str();
}

}  // namespace

const char* nameOf(CalibrationKind kind) {
  return kind == CalibrationKind::bias ? "bias" : kind == CalibrationKind::dark ? "dark" : "flat";
}

std::string textOf(const Calibration& calibration) {
  std::string text = std::string(nameOf(calibration.kind)) + " from " + std::to_string(calibration.frames) +
                     " frames of a " + calibration.header->sensor() + ", " +
                     formatted("%g", calibration.header->exposure_seconds()) + " s\n";
  for (const CalibratedPlane& plane : calibration.planes) {
    text += plane.name + ":\n";
    for (const Row& row : rowsOf(calibration, plane))
      if (row.value.known()) text += line(row.label, shown(row.value, 4), row.unit);
    for (const Count& count : counts)
      if (plane.*count.value > 0 || count.value == &CalibratedPlane::hot)
        text += line(count.label, std::to_string(plane.*count.value), "");
  }
  text += ratioText(calibration);
  if (calibration.kind == CalibrationKind::dark)
    text += line("pedestal", std::to_string(calibration.pedestal), "ADU") +
            line("  smallest that serves", std::to_string(calibration.smallestPedestal), "ADU");
  return text;
}

std::string jsonOf(const Calibration& calibration) {
  files::JsonObject planes, whole;
  for (const CalibratedPlane& plane : calibration.planes)
    planes.raw(plane.name, planeJson(calibration, plane));
  files::JsonList warnings;
  for (const std::string& warning : calibration.warnings)
    warnings.raw(files::jsonText(warning));
  whole.text("schema", "orvacam.calibrate/1").text("kind", nameOf(calibration.kind));
  whole.whole("frames", static_cast<std::int64_t>(calibration.frames));
  whole.text("sensor", calibration.header->sensor());
  whole.number("exposure_seconds", calibration.header->exposure_seconds());
  whole.raw("planes", planes.str());
  whole.raw("ratio", files::JsonObject()
                         .number("table", calibration.tableRatio)
                         .number("measured", calibration.measuredRatio.value)
                         .number("measured_error", calibration.measuredRatio.error)
                         .number("used", calibration.usedRatio)
                         .str());
  if (calibration.kind == CalibrationKind::dark)
    whole.whole("pedestal_adu", calibration.pedestal)
        .whole("smallest_pedestal_adu", calibration.smallestPedestal);
  return whole.raw("warnings", warnings.str()).str();
}

std::string csvOf(const Calibration& calibration) {
  std::string text = "plane,x,y,kind,value\n";
  for (const science::OddPixel& pixel : calibration.oddPixels)
    text += calibration.planes[pixel.plane].name + "," + std::to_string(pixel.x) + "," +
            std::to_string(pixel.y) + "," + kindName(pixel.kind) + "," + formatted("%.6g", pixel.value) +
            "\n";
  return text;
}

Content maskOf(const Calibration& calibration) {
  std::vector<files::FitsImage> images;
  for (const CalibratedPlane& plane : calibration.planes)
    images.push_back({{{"EXTNAME", upper(plane.name), "plane"},
                       {"HISTORY", std::string("bits: 1 hot, 2 dead, 4 blinking"), ""}},
                      {calibration.size, files::Raster::U8, plane.mask.data()}});
  files::FitsLayout layout;
  layout.extensions = true;
  layout.primary = {{"INSTRUME", calibration.header->model(), "camera"},
                    {"DETNAM", calibration.header->sensor(), "sensor"}};
  return contentOf(files::FitsFile(images, layout));
}

}  // namespace tool
