// What stacks of many frames, in bands of rows and on several machines, need beside the stack.

#include "Binding.h"

namespace orvacam::python {

namespace {

using Rows = py::array_t<std::uint16_t, py::array::c_style>;

/// (frames, pixels) into one: the values of each column of it, as doubles.
py::array combined(int method, const py::object& given, double sigmaLow, double sigmaHigh) {
  if (!py::isinstance<Rows>(given)) throw py::type_error("rows: an array of uint16, row by row in one piece");
  const Rows rows = py::cast<Rows>(given);
  if (rows.ndim() != 2) throw py::value_error("rows: an array of frames and pixels");
  if (method < 0 || method > static_cast<int>(Stack::Method::winsorized))
    throw py::value_error("there is no such method");
  const auto frames = static_cast<std::size_t>(rows.shape(0)),
             count = static_cast<std::size_t>(rows.shape(1));
  Combining how;
  how.method = static_cast<Stack::Method>(method);
  how.sigma_low = sigmaLow;
  how.sigma_high = sigmaHigh;
  std::vector<const std::uint16_t*> starts;
  for (std::size_t i = 0; i < frames; ++i)
    starts.push_back(rows.data() + i * count);
  py::array_t<double> values(static_cast<py::ssize_t>(count));
  double* const target = values.mutable_data();
  {
    const WithoutGil others;
    combine(how, starts, count, {target, nullptr, nullptr});
  }
  return std::move(values);
}

}  // namespace

void bindSeries(py::module_& module) {
  module.def("combine", &combined);
  module.def("require_alike", [](const Header& first, const Header& other) { require_alike(first, other); });
}

}  // namespace orvacam::python
