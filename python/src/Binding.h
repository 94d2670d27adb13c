#ifndef ORVACAM_PYTHON_BINDING_H
#define ORVACAM_PYTHON_BINDING_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <orvacam.hpp>
#include <stdexcept>
#include <string>

// What the parts of orvacam._core share. The module is the trust boundary: it checks what it is given,
// whatever the Python side above it has checked.

namespace orvacam::python {

namespace py = pybind11;

/// A path as the system has it. Throws py::value_error: a NUL inside.
std::filesystem::path pathOf(const py::bytes& path);

/// A frame, and what holds its bytes when they are not its own.
struct PyFrame {
  std::shared_ptr<const void> keep;  ///< let go after the frame, while the GIL is held
  Frame frame;
};

/// Lets other threads run Python while it lives. A thread that wants the GIL back when the interpreter has
/// ended stops for good, here and in SignalWatch: Python would end it by unwinding it, which destructors do
/// not survive.
class WithoutGil {
 public:
  WithoutGil() : m_state(PyEval_SaveThread()) {}
  WithoutGil(const WithoutGil&) = delete;
  WithoutGil& operator=(const WithoutGil&) = delete;
  ~WithoutGil();

 private:
  PyThreadState* m_state;
};

/// Python has an exception for the caller, of a signal: unwinds what works without the GIL.
struct Interrupted {};

/// For work that takes long: called often, looks for signals now and then. Throws Interrupted.
class SignalWatch {
 public:
  void operator()();

 private:
  std::chrono::steady_clock::time_point m_next{};
};

/// The one who uses a decoder or a stack: others wait. Waits without the GIL. A process that was forked while
/// it was at work would wait for ever: it is refused.
class InUse {
 public:
  class Lock {
   public:
    explicit Lock(InUse& use) : m_use(use) {
      if (!m_use.m_mutex.try_lock()) {
        if (m_use.m_process != getpid())
          throw std::runtime_error("was at work in another thread when this process was forked");
        m_use.m_mutex.lock();
      }
      m_use.m_process = getpid();
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { m_use.m_mutex.unlock(); }

   private:
    InUse& m_use;
  };

 private:
  std::mutex m_mutex;
  std::atomic<pid_t> m_process{getpid()};  ///< that used it last
};

/// What a decoder was told, to make another one like it.
struct Settings {
  std::filesystem::path dsnu, prnu;
  std::string dsnuDigest, prnuDigest;  ///< SHA-256 of the files
  Plane biasLow, biasHigh;
  std::optional<std::pair<unsigned, unsigned>> thresholds;
  std::string calibration;

  Decoder decoder() const;
};

/// A failure of what has no reasons of its own; becomes an exception of the package as an Error does.
struct Refusal {
  Reason reason;
  std::string text, path;
};

/// A decoder that any thread may call.
struct PyDecoder {
  Decoder decoder;
  Settings settings;
  InUse use;
};

/// An array over pixels that do not change; it cannot be made writable. It holds the image.
template <typename Pixel>
py::array readOnlyArray(const Image<Pixel>& image);

/// Statistics as the Python side takes them: a dict by the names of its class.
py::object statisticsOf(const Plane& plane);

/// An array of 16-bit pixels of the caller's as a plane; None gives an empty one. Throws py::type_error and
/// py::value_error, which begin with `name`.
Plane copiedPlane(const py::object& array, const std::string& name);

/// A class whose objects the module makes. `__new__`, which pybind11 leaves open, would give one of raw
/// memory.
template <typename Class>
void makeHereAlone(Class& made) {
  reinterpret_cast<PyTypeObject*>(made.ptr())->tp_new = [](PyTypeObject*, PyObject*, PyObject*) -> PyObject* {
    PyErr_SetString(PyExc_TypeError, "is made by the module's functions alone");
    return nullptr;
  };
}

void bindHeader(py::module_& module);
void bindFrame(py::module_& module);
void bindDecoder(py::module_& module);
void bindStack(py::module_& module);
void bindSimulator(py::module_& module);
void bindFiles(py::module_& module);
void bindSeries(py::module_& module);
void bindCalibration(py::module_& module);

}  // namespace orvacam::python

#endif  // ORVACAM_PYTHON_BINDING_H
