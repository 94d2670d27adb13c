// Calibrations, whole and in parts.

#include <cstring>
#include <type_traits>

#include "Binding.h"
#include "science/Calibration.h"
#include "science/CalibrationBand.h"
#include "science/Refused.h"

namespace orvacam::python {

namespace {

using science::CalibrationSource;
using science::CombinedPlane;
using science::CombinedRows;
using science::Estimate;
using science::RowSums;

/// As the Python side makes it: kind, paths as bytes, memory, dark, bias, pedestal, ratio.
CalibrationSource sourceOf(const py::dict& given) {
  CalibrationSource source;
  source.pause = SignalWatch();
  const auto kind = given["kind"].cast<std::string>();
  source.kind = kind == "bias"   ? science::CalibrationKind::bias
                : kind == "dark" ? science::CalibrationKind::dark
                                 : science::CalibrationKind::flat;
  for (const py::handle path : given["paths"])
    source.frames.push_back(pathOf(py::cast<py::bytes>(path)).string());
  source.memory = given["memory"].cast<std::uint64_t>();
  source.dark = pathOf(given["dark"].cast<py::bytes>()).string();
  source.bias = pathOf(given["bias"].cast<py::bytes>()).string();
  if (!given["pedestal"].is_none()) source.pedestal = given["pedestal"].cast<unsigned>();
  if (py::isinstance<py::str>(given["ratio"]))
    source.measuredRatio = true;
  else if (!given["ratio"].is_none())
    source.ratio = given["ratio"].cast<double>();
  return source;
}

/// What is refused, as the package's own exception.
template <typename Work>
auto working(const Work& work) {
  try {
    const WithoutGil others;
    return work();
  } catch (const science::Refused& refused) {
    const py::object exception =
        py::module_::import("orvacam._errors").attr("_refused")(refused.what(), py::bytes(refused.path()));
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
    throw py::error_already_set();
  } catch (const Interrupted&) {
    throw py::error_already_set();
  }
}

template <typename Value>
py::bytes rawBytes(const std::vector<Value>& values) {
  static_assert(std::is_trivially_copyable_v<Value>);
  return py::bytes(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(Value));
}

template <typename Value>
std::vector<Value> valuesOf(const py::handle& given, std::size_t count) {
  const std::string_view bytes = py::cast<py::bytes>(given);
  if (bytes.size() != count * sizeof(Value))
    throw py::value_error("a band is not what its rows and columns say");
  std::vector<Value> values(count);
  std::memcpy(values.data(), bytes.data(), bytes.size());
  return values;
}

/// (first row, rows, planes: (means, blinking, sums) as bytes); readable by the same build alone.
py::tuple packed(const CombinedRows& rows) {
  py::list planes;
  for (const CombinedPlane& plane : rows.planes)
    planes.append(py::make_tuple(rawBytes(plane.means), rawBytes(plane.blinking), rawBytes(plane.sums)));
  return py::make_tuple(rows.first, rows.rows, planes);
}

CombinedRows unpacked(const py::tuple& given, Size size, std::size_t planes) {
  CombinedRows rows{given[0].cast<std::uint32_t>(), given[1].cast<std::uint32_t>(), {}};
  const auto parts = given[2].cast<py::list>();
  if (parts.size() != planes || rows.first > size.height || rows.rows > size.height - rows.first)
    throw py::value_error("a band is not of these frames");
  const std::size_t pixels = std::size_t{rows.rows} * size.width;
  for (const py::handle part : parts) {
    const auto three = part.cast<py::tuple>();
    rows.planes.push_back({valuesOf<float>(three[0], pixels), valuesOf<float>(three[1], pixels),
                           valuesOf<RowSums>(three[2], rows.rows)});
  }
  return rows;
}

void addNumber(py::dict& numbers, const char* name, const Estimate& estimate) {
  numbers[name] = estimate.value;
  numbers[(std::string(name) + "_error").c_str()] = estimate.error;
}

py::dict numbersOf(const science::CalibratedPlane& plane) {
  py::dict numbers;
  numbers["gain_e_per_adu"] = plane.gain;
  addNumber(numbers, "level_adu", plane.level);
  addNumber(numbers, "temporal_noise_adu", plane.noise);
  addNumber(numbers, "fixed_pattern_before", plane.before);
  numbers["fixed_pattern_after"] = plane.after;
  addNumber(numbers, "column_pattern", plane.columns);
  addNumber(numbers, "row_pattern", plane.rows);
  addNumber(numbers, "pixel_pattern", plane.pixels);
  numbers["drift_adu"] = plane.drift;
  numbers["hot_pixels"] = plane.hot;
  numbers["dead_pixels"] = plane.dead;
  numbers["blinking_pixels"] = plane.blinking;
  numbers["rejected_values"] = plane.rejected;
  numbers["clipped_terms"] = plane.clipped;
  return numbers;
}

py::dict resultOf(const science::Calibration& made) {
  py::dict result, planes, masks;
  for (const science::CalibratedPlane& plane : made.planes) {
    planes[plane.name.c_str()] = numbersOf(plane);
    py::array_t<std::uint8_t> mask({made.size.height, made.size.width});
    if (plane.mask.size() != static_cast<std::size_t>(mask.size()))
      throw std::runtime_error("a mask of another size");
    std::copy(plane.mask.begin(), plane.mask.end(), mask.mutable_data());
    masks[plane.name.c_str()] = mask;
  }
  py::list odd;
  for (const science::OddPixel& pixel : made.oddPixels)
    odd.append(py::make_tuple(made.planes.at(pixel.plane).name, pixel.x, pixel.y,
                              pixel.kind == science::Hot    ? "hot"
                              : pixel.kind == science::Dead ? "dead"
                                                            : "blinking",
                              pixel.value));
  py::list warnings;
  for (const std::string& warning : made.warnings)
    warnings.append(py::str(warning));
  result["frames"] = made.frames;
  result["planes"] = planes;
  result["masks"] = masks;
  result["odd_pixels"] = odd;
  result["ratio_of_gains"] = made.tableRatio;
  result["ratio"] = made.usedRatio;
  result["measured_ratio"] = py::make_tuple(made.measuredRatio.value, made.measuredRatio.error);
  result["pedestal"] = made.pedestal;
  result["warnings"] = warnings;
  result["file"] = py::bytes(made.file);
  return result;
}

py::dict calibrated(const py::dict& given) {
  const CalibrationSource source = sourceOf(given);
  return resultOf(working([&] { return science::calibrate(source); }));
}

py::tuple calibratedRows(const py::dict& given, std::uint32_t first, std::uint32_t rows) {
  const CalibrationSource source = sourceOf(given);
  return packed(working([&] { return science::combineBand(source, first, rows); }));
}

py::dict calibratedOf(const py::dict& given, const py::list& bands) {
  const CalibrationSource source = sourceOf(given);
  const science::CalibrationSurvey survey = working([&] { return science::surveyFrames(source); });
  std::vector<CombinedRows> rows;
  std::uint32_t next = 0;
  for (const py::handle band : bands) {
    rows.push_back(unpacked(band.cast<py::tuple>(), survey.size, survey.planes.size()));
    if (rows.back().first != next) throw py::value_error("bands are not all rows in their order");
    next += rows.back().rows;
  }
  if (next != survey.size.height) throw py::value_error("bands are not all rows in their order");
  return resultOf(working([&] { return science::finishCalibration(source, survey, rows); }));
}

}  // namespace

void bindCalibration(py::module_& module) {
  module.def("calibrate", &calibrated);
  module.def("calibrate_rows", &calibratedRows);
  module.def("calibrate_finish", &calibratedOf);
}

}  // namespace orvacam::python
