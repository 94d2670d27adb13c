#include "Binding.h"

namespace orvacam::python {

namespace {

Header readHeader(const py::bytes& path) {
  const std::filesystem::path name = pathOf(path);
  const WithoutGil others;
  return Header::read(name);
}

Header parseHeader(const py::bytes& bytes) {
  const std::string_view view = bytes;
  return Header::parse(view.data(), view.size());
}

/// Nanoseconds since 1970, UTC.
py::object timeOf(const Header& header) {
  const auto time = header.time();
  if (!time) return py::none();
  return py::int_(static_cast<std::int64_t>(time->time_since_epoch().count()));
}

template <typename Value>
py::object orNone(const std::optional<Value>& value) {
  return value ? py::cast(*value) : py::none();
}

py::tuple sizeOf(const Header& header) {
  const Size size = header.frame_size();
  return py::make_tuple(size.width, size.height);
}

py::tuple regionOf(const Header& header) {
  const Region region = header.image_region();
  return py::make_tuple(region.x, region.y, region.width, region.height);
}

py::list keyTable() {
  py::list table;
  for (const Key& key : keys())
    table.append(py::make_tuple(key.name, key.unit, static_cast<int>(key.kind), key.number, key.first_version,
                                key.last_version));
  return table;
}

}  // namespace

void bindHeader(py::module_& module) {
  py::class_<Header> header(module, "Header");
  makeHereAlone(header);
  header.def_static("parse", &parseHeader)
      .def_static("read", &readHeader)
      .def("of_plane", [](const Header& h, const std::string& plane) { return h.of_plane(plane); })
      .def("version", &Header::version)
      .def("model", &Header::model)
      .def("serial", &Header::serial)
      .def("sensor", &Header::sensor)
      .def("hdr", &Header::hdr)
      .def("exposure_seconds", &Header::exposure_seconds)
      .def("temperature_celsius", [](const Header& h) { return orNone(h.temperature_celsius()); })
      .def("set_point_celsius", [](const Header& h) { return orNone(h.set_point_celsius()); })
      .def("time", &timeOf)
      .def("number", [](const Header& h, const std::string& key) { return h.number(key); })
      .def("text", [](const Header& h, const std::string& key) { return h.text(key); })
      .def("to_text", &Header::to_text)
      .def("to_json", &Header::to_json)
      .def("tobytes", [](const Header& h) { return py::bytes(h.bytes().data(), h.bytes().size()); })
      .def("frame_size", &sizeOf)
      .def("image_region", &regionOf)
      .def("start_row", &Header::start_row);
  module.def("keys", &keyTable);
}

}  // namespace orvacam::python
