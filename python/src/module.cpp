// orvacam._core: the library's C++ face for the Python package.

#include "Binding.h"

namespace orvacam::python {

std::filesystem::path pathOf(const py::bytes& path) {
  std::string bytes = path;
  if (bytes.find('\0') != std::string::npos) throw py::value_error("embedded null byte");
  return {std::move(bytes)};
}

namespace {

/// The exception that the package has for a reason. Bytes of paths are the package's to turn into text.
void raise(const Error& error) {
  const py::object factory = py::module_::import("orvacam._errors").attr("_from_reason");
  const py::object exception =
      factory(static_cast<int>(error.reason()), reason_name(error.reason()), error.what(),
              py::bytes(error.path()), error.needed(), error.available(), error.system_error());
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
}

void translate(std::exception_ptr thrown) {
  try {
    if (thrown) std::rethrow_exception(thrown);
  } catch (const Error& error) {
    try {
      raise(error);
    } catch (py::error_already_set& other) {
      other.restore();
    }
  }
}

/// numpy, on which the arrays stand, and this module keep their state once for a process.
void requireMainInterpreter() {
  if (PyInterpreterState_Get() != PyInterpreterState_Main())
    throw py::import_error("orvacam works in the main interpreter alone; use processes");
}

}  // namespace

}  // namespace orvacam::python

PYBIND11_MODULE(_core, module) {
  using namespace orvacam::python;
  requireMainInterpreter();
  py::register_local_exception_translator(translate);
  module.def("require_main_interpreter", &requireMainInterpreter);
  module.def("version", [] { return orvacam::version(); });
  module.def("sensors", [] {
    py::list names;
    for (const std::string& name : orvacam::sensors())
      names.append(py::str(name));
    return names;
  });
  bindHeader(module);
  bindFrame(module);
  bindDecoder(module);
  bindStack(module);
  bindSimulator(module);
  bindFiles(module);
  bindSeries(module);
}
