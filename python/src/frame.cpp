#include <cstring>

#include <pybind11/stl.h>

#include "Binding.h"

namespace orvacam::python {

namespace {

/// Bytes of a Python object, held while this lives. They may be another thread's to change.
class Buffer {
 public:
  explicit Buffer(const py::handle& object) {
    if (PyObject_CheckBuffer(object.ptr()) == 0)
      throw py::type_error(std::string("a frame is a path, or bytes of a kind, not ") +
                           Py_TYPE(object.ptr())->tp_name);
    if (PyObject_GetBuffer(object.ptr(), &m_view, PyBUF_C_CONTIGUOUS | PyBUF_FORMAT) != 0) {
      const py::error_already_set why;
      throw py::value_error("the bytes of a frame lie in one piece that can be read; of these: " +
                            std::string(py::str(why.value())));
    }
    std::string format = m_view.format != nullptr ? m_view.format : "B";
    format.erase(0, format.find_first_not_of("@=<>!"));
    if (m_view.itemsize == 1 && (format == "B" || format == "b" || format == "c")) return;
    PyBuffer_Release(&m_view);
    throw py::type_error("a frame has bytes (uint8), not elements of the format '" + format + "'");
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  ~Buffer() { PyBuffer_Release(&m_view); }

  const void* data() const { return m_view.buf; }
  std::size_t size() const { return static_cast<std::size_t>(m_view.len); }

 private:
  Py_buffer m_view{};
};

/// Whether nobody can change the bytes: read-only views of other things can be of memory that changes.
bool isImmutable(const py::handle& object) {
  if (PyBytes_CheckExact(object.ptr())) return true;
  if (!PyMemoryView_Check(object.ptr())) return false;
  PyObject* const base = PyMemoryView_GET_BASE(object.ptr());
  return base != nullptr && PyBytes_CheckExact(base);
}

/// A frame over immutable bytes, or over a copy of others: it is made first, and looked at afterwards.
PyFrame openBytes(const py::object& object) {
  auto buffer = std::make_shared<Buffer>(object);
  const std::size_t length = buffer->size();
  if (isImmutable(object)) {
    Frame frame = Frame::view(buffer->data(), length);
    return {std::move(buffer), std::move(frame)};
  }
  const WithoutGil others;
  const std::shared_ptr<unsigned char[]> copy(new unsigned char[length > 0 ? length : 1]);
  if (length > 0) std::memcpy(copy.get(), buffer->data(), length);
  Frame frame = Frame::view(copy.get(), length);
  return {std::shared_ptr<const void>(copy, copy.get()), std::move(frame)};
}

PyFrame readFrame(const py::bytes& path) {
  const std::filesystem::path name = pathOf(path);
  const WithoutGil others;
  return {nullptr, Frame::read(name)};
}

py::tuple planesOf(const PyFrame& self) {
  return py::tuple(py::cast(self.frame.planes()));
}

/// (severity, id, text, reason) of each finding.
py::list findingsOf(const PyFrame& self) {
  static constexpr const char* severities[] = {"note", "warning", "error"};
  py::list all;
  for (const Finding& finding : self.frame.check()) {
    const bool error = finding.severity == Finding::Severity::error;
    all.append(py::make_tuple(severities[static_cast<int>(finding.severity)], finding.id, finding.text,
                              error ? py::cast(reason_name(finding.reason)) : py::none()));
  }
  return all;
}

py::list findingKinds() {
  static constexpr const char* severities[] = {"note", "warning", "error"};
  py::list all;
  for (const Finding& kind : finding_kinds())
    all.append(py::make_tuple(severities[static_cast<int>(kind.severity)], kind.id, kind.text));
  return all;
}

}  // namespace

void bindFrame(py::module_& module) {
  py::class_<PyFrame> frame(module, "Frame");
  makeHereAlone(frame);
  frame.def_static("read", &readFrame)
      .def_static("open", &openBytes)
      .def("header", [](const PyFrame& self) { return self.frame.header(); })
      .def("planes", &planesOf)
      .def("check", &findingsOf)
      .def("nbytes", [](const PyFrame& self) { return self.frame.bytes().size(); })
      .def("tobytes", [](const PyFrame& self) {
        return py::bytes(self.frame.bytes().data(), self.frame.bytes().size());
      });
  module.def("finding_kinds", &findingKinds);
}

}  // namespace orvacam::python
