// orvacam._core: the library's C++ face for the Python package.

#include <cxxabi.h>

#include "Binding.h"

namespace orvacam::python {

std::filesystem::path pathOf(const py::bytes& path) {
  std::string bytes = path;
  if (bytes.find('\0') != std::string::npos) throw py::value_error("embedded null byte");
  return {std::move(bytes)};
}

namespace {

template <typename Take>
void takeGil(const Take& take) {
  try {
    take();
  } catch (const abi::__forced_unwind&) {  // the interpreter is ending
    for (;;)
      pause();
  }
}

}  // namespace

WithoutGil::~WithoutGil() {
  takeGil([this] { PyEval_RestoreThread(m_state); });
}

void SignalWatch::operator()() {
  constexpr std::chrono::milliseconds each{50};
  const auto now = std::chrono::steady_clock::now();
  if (now < m_next) return;
  m_next = now + each;
  PyGILState_STATE state{};
  takeGil([&state] { state = PyGILState_Ensure(); });
  const bool raised = PyErr_CheckSignals() != 0;
  PyGILState_Release(state);
  if (raised) throw Interrupted{};
}

namespace {

/// The exception that the package has for a reason. Bytes of paths are the package's to turn into text.
void raise(Reason reason, const std::string& text, const std::string& path, std::uint64_t needed = 0,
           std::uint64_t available = 0, int systemError = 0) {
  try {
    const py::object factory = py::module_::import("orvacam._errors").attr("_from_reason");
    const py::object exception = factory(static_cast<int>(reason), reason_name(reason), text, py::bytes(path),
                                         needed, available, systemError);
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
  } catch (py::error_already_set& other) {
    other.restore();
  }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): as pybind11 wants it
void translate(std::exception_ptr thrown) {
  try {
    if (thrown) std::rethrow_exception(thrown);
  } catch (const Error& error) {
    raise(error.reason(), error.what(), error.path(), error.needed(), error.available(),
          error.system_error());
  } catch (const Refusal& refusal) {
    raise(refusal.reason, refusal.text, refusal.path);
  }
}

constexpr const char* mainInterpreterAlone = "orvacam works in the main interpreter alone; use processes";

bool isMainInterpreter() {
  return PyInterpreterState_Get() == PyInterpreterState_Main();
}

/// An interpreter that is not the first to import the module gets it without its being made again.
void requireMainInterpreter() {
  if (!isMainInterpreter()) throw py::import_error(mainInterpreterAlone);
}

void bind(py::module_& module) {
  py::register_local_exception_translator(translate);
  module.def("require_main_interpreter", &requireMainInterpreter);
  module.def("version", [] { return version(); });
  module.def("sensors", [] {
    py::list names;
    for (const std::string& name : sensors())
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
  bindCalibration(module);
}

}  // namespace

}  // namespace orvacam::python

/// numpy, on which the arrays stand, and pybind11 keep their state once for a process: in another interpreter
/// pybind11 would wait for ever, so that the question comes ahead of all that is its.
extern "C" PYBIND11_EXPORT PyObject* PyInit__core() {
  namespace python = orvacam::python;
  namespace py = pybind11;
  if (!python::isMainInterpreter()) {
    PyErr_SetString(PyExc_ImportError, python::mainInterpreterAlone);
    return nullptr;
  }
  PYBIND11_CHECK_PYTHON_VERSION
  PYBIND11_ENSURE_INTERNALS_READY
  static py::module_::module_def definition;
  auto module = py::module_::create_extension_module("_core", nullptr, &definition);
  try {
    python::bind(module);
    return module.ptr();
  }
  PYBIND11_CATCH_INIT_EXCEPTIONS
}
