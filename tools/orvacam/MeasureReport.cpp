#include "MeasureReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "files/Json.h"

namespace tool {

namespace files = orvacam::files;
namespace science = orvacam::science;

namespace {

using science::CurvePoint;
using science::DarkLevel;
using science::Estimate;
using science::formatted;
using science::MeasuredPlane;
using science::PlaneTransfer;

constexpr const char* method = "EMVA 1288, linear model, release 4.0";

/// What is told of each plane.
constexpr struct {
  const char *name, *label, *unit;
  Estimate PlaneTransfer::*value;
} rows[] = {{"gain_e_per_adu", "system gain", "e-/ADU", &PlaneTransfer::gain},
            {"read_noise_e", "read noise", "e-", &PlaneTransfer::readNoise},
            {"read_noise_adu", "read noise", "ADU", &PlaneTransfer::readNoiseAdu},
            {"offset_adu", "offset", "ADU", &PlaneTransfer::offset},
            {"dark_current_e_per_s", "dark current", "e-/s", &PlaneTransfer::darkCurrent},
            {"dark_current_adu_per_s", "dark current", "ADU/s", &PlaneTransfer::darkCurrentAdu},
            {"saturation_e", "saturation capacity", "e-", &PlaneTransfer::saturation},
            {"saturation_adu", "saturation", "ADU", &PlaneTransfer::saturationAdu},
            {"sensitivity_threshold_e", "sensitivity threshold", "e-", &PlaneTransfer::threshold},
            {"dynamic_range_db", "dynamic range", "dB", &PlaneTransfer::dynamicRange},
            {"snr_max_db", "best signal to noise", "dB", &PlaneTransfer::bestSnr},
            {"linearity_error_percent", "linearity error", "%", &PlaneTransfer::linearityError},
            {"dsnu_e", "DSNU1288", "e-", &PlaneTransfer::dsnu},
            {"dsnu_row_e", "  of rows", "e-", &PlaneTransfer::dsnuRow},
            {"dsnu_column_e", "  of columns", "e-", &PlaneTransfer::dsnuColumn},
            {"dsnu_pixel_e", "  of pixels", "e-", &PlaneTransfer::dsnuPixel},
            {"prnu_percent", "PRNU1288", "%", &PlaneTransfer::prnu},
            {"prnu_row_percent", "  of rows", "%", &PlaneTransfer::prnuRow},
            {"prnu_column_percent", "  of columns", "%", &PlaneTransfer::prnuColumn},
            {"prnu_pixel_percent", "  of pixels", "%", &PlaneTransfer::prnuPixel},
            {"prnu_local_percent", "  less surroundings", "%", &PlaneTransfer::prnuLocal}};

std::string padded(const std::string& text, std::size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

std::string notesOf(const std::vector<science::Note>& notes, const std::string& about) {
  std::string text;
  for (const science::Note& note : notes)
    text += about + ": " + note.text + "\n";
  return text;
}

std::string textOf(const science::ChangeOver& change, const orvacam::MergeInfo& merge) {
  std::string text = "\nmerge, from high to low gain at " + std::to_string(merge.high_threshold) + " ADU:\n";
  const auto line = [&text](const char* label, const char* unit, const std::string& value) {
    text += padded(std::string("  ") + label, 24) + padded(unit, 8) + value + "\n";
  };
  line(
      "gain ratio", "",
      shown(change.ratio, 6) +
          (merge.gain_ratio > 0 ? ", the merge uses " + formatted("%.6g", merge.gain_ratio) : std::string()));
  line("offsets apart", "ADU", shown(change.offset, 6));
  line("slope, low to high", "", shown(change.slope, 6));
  line("step", "ADU", shown(change.step, 6));
  line("lift below", "ADU",
       shown(change.lift, 6) + (std::isfinite(change.lifted) ? ", " + formatted("%.3g", 100 * change.lifted) +
                                                                   " % of the pixels from the low gain"
                                                             : std::string()));
  line("step", "sigma", std::isfinite(change.stepInNoise) ? formatted("%.3g", change.stepInNoise) : "-");
  if (change.step.known()) line("the response is", "", change.straight() ? "straight" : "not straight");
  return text + notesOf(change.notes, "  note");
}

// ---- JSON

files::JsonObject& add(files::JsonObject& object, const std::string& name, const Estimate& estimate) {
  return object.number(name, estimate.value)
      .number(name + "_error", estimate.known() ? estimate.error : science::unknown);
}

std::string jsonOf(const std::vector<science::Note>& notes) {
  files::JsonList list;
  for (const science::Note& note : notes)
    list.raw(files::JsonObject().text("field", note.field).text("text", note.text).str());
  return list.str();
}

std::string jsonOf(const CurvePoint& point) {
  return files::JsonObject()
      .number("exposure_seconds", point.exposure)
      .number("mean_adu", point.moments.meanOfBoth())
      .number("signal_adu", point.signal)
      .number("variance_adu2", point.moments.variance)
      .number("variance_adu2_error", point.moments.varianceError)
      .number("excess_variance_adu2", point.excess.value)
      .number("excess_variance_adu2_error", point.excess.error)
      .number("at_full_scale", point.moments.atFull)
      .truth("fitted", point.fitted)
      .truth("saturated", point.saturated)
      .truth("near_change_over", point.between)
      .number("from_low_gain", point.fromLow)
      .number("deviation_percent", point.deviation)
      .str();
}

std::string jsonOf(const DarkLevel& dark) {
  return files::JsonObject()
      .number("exposure_seconds", dark.exposure)
      .whole("frames", static_cast<std::int64_t>(dark.frameMeans.size()))
      .number("mean_adu", dark.mean())
      .number("variance_adu2", dark.variance.value)
      .number("variance_adu2_error", dark.variance.error)
      .number("at_zero", dark.atZero)
      .str();
}

std::string jsonOf(const MeasuredPlane& plane) {
  const PlaneTransfer& t = plane.transfer;
  files::JsonObject object;
  for (const auto& row : rows)
    add(object, row.name, t.*row.value);
  files::JsonList curve, darks;
  for (const CurvePoint& point : t.curve)
    curve.raw(jsonOf(point));
  for (const DarkLevel& dark : t.darks)
    darks.raw(jsonOf(dark));
  return object.number("read_noise_limit_e", t.readNoiseLimit)
      .number("full_scale_adu", plane.fullScale)
      .number("prnu_signal_adu", t.prnuSignal)
      .number("uniformity_exposure_seconds", t.uniformityExposure)
      .whole("prnu_frames", static_cast<std::int64_t>(t.flatFrames))
      .whole("dsnu_frames", static_cast<std::int64_t>(t.darkFrames))
      .raw("curve", curve.str())
      .raw("darks", darks.str())
      .raw("notes", jsonOf(t.notes))
      .str();
}

std::string ratioJson(const science::ChangeOver& change, double table) {
  files::JsonObject object;
  object.number("table", table > 0 ? table : science::unknown);
  return add(object, "measured", change.ratio).str();
}

std::string jsonOf(const science::ChangeOver& change, const orvacam::MergeInfo& merge) {
  files::JsonObject object;
  object.number("ratio", merge.gain_ratio > 0 ? merge.gain_ratio : science::unknown)
      .whole("high_threshold", merge.high_threshold)
      .whole("difference_threshold", merge.difference_threshold);
  add(object, "offset_adu", change.offset);
  add(object, "slope", change.slope);
  add(object, "step_adu", change.step);
  add(object, "lift_adu", change.lift);
  return object.number("lifted", change.lifted)
      .number("noise_adu", change.noise)
      .number("step_sigma", change.stepInNoise)
      .raw("straight", change.step.known() ? (change.straight() ? "true" : "false") : "null")
      .raw("notes", jsonOf(change.notes))
      .str();
}

std::string csvNumber(double number) {
  return std::isfinite(number) ? files::jsonNumber(number) : "";
}

}  // namespace

std::string textOf(const science::CameraMeasurement& measured) {
  constexpr std::size_t labels = 24, units = 8, values = 26;
  std::string text = "Photon transfer of " + std::to_string(measured.flats) + " flats and " +
                     std::to_string(measured.darks) + " darks by " + method +
                     "; the light is not known in photons.\n";
  std::string line = padded("", labels + units), notes;
  for (const MeasuredPlane& plane : measured.planes)
    line += padded(plane.name, values);
  const auto finish = [&text](std::string whole) {
    whole.erase(whole.find_last_not_of(' ') + 1);
    text += whole + "\n";
  };
  finish(line);
  for (const auto& row : rows) {
    line = padded(row.label, labels) + padded(row.unit, units);
    for (const MeasuredPlane& plane : measured.planes)
      line += padded(shown(plane.transfer.*row.value, 6), values);
    finish(line);
  }
  for (const MeasuredPlane& plane : measured.planes)
    notes += notesOf(plane.transfer.notes, plane.name);
  if (!notes.empty()) text += "\n" + notes;
  if (measured.changeOver) text += textOf(*measured.changeOver, measured.merge);
  return text;
}

std::string jsonOf(const science::CameraMeasurement& measured, double tableRatio) {
  files::JsonObject planes;
  for (const MeasuredPlane& plane : measured.planes)
    planes.raw(plane.name, jsonOf(plane));
  const auto& change = measured.changeOver;
  return files::JsonObject()
      .text("schema", "orvacam.measure/1")
      .text("method", method)
      .raw("planes", planes.str())
      .raw("ratio", change ? ratioJson(*change, tableRatio) : "null")
      .raw("merge", change ? jsonOf(*change, measured.merge) : "null")
      .whole("frames", static_cast<std::int64_t>(measured.flats + measured.darks))
      .whole("flats", static_cast<std::int64_t>(measured.flats))
      .whole("darks", static_cast<std::int64_t>(measured.darks))
      .str();
}

std::string csvOf(const science::CameraMeasurement& measured) {
  std::string text =
      "plane,exposure_seconds,mean_adu,signal_adu,variance_adu2,variance_adu2_error,excess_variance_adu2,"
      "excess_variance_adu2_error,at_full_scale,fitted,saturated,near_change_over,from_low_gain,deviation_"
      "percent\n";
  for (const MeasuredPlane& plane : measured.planes)
    for (const CurvePoint& p : plane.transfer.curve) {
      text += plane.name;
      for (const double value : {p.exposure, p.moments.meanOfBoth(), p.signal, p.moments.variance,
                                 p.moments.varianceError, p.excess.value, p.excess.error, p.moments.atFull})
        text += "," + csvNumber(value);
      for (const bool truth : {p.fitted, p.saturated, p.between})
        text += truth ? ",1" : ",0";
      text += "," + csvNumber(p.fromLow) + "," + csvNumber(p.deviation) + "\n";
    }
  return text;
}

}  // namespace tool
