#include "simulator/Scene.h"

#include "Binding.h"

namespace orvacam::python {

namespace {

constexpr unsigned largestSide = 16384;

std::string cameraNames() {
  std::string all;
  for (const simulator::Camera& camera : simulator::cameras())
    all += (all.empty() ? "" : ", ") + std::string(camera.name);
  return all;
}

py::bytes simulate(const std::string& name, const std::string& mode, unsigned width, unsigned height,
                   unsigned long seed) {
  const simulator::Camera* const camera = simulator::findCamera(name);
  if (camera == nullptr)
    throw py::value_error("there is no sensor '" + name + "' to simulate; there are " + cameraNames());
  auto fields = simulator::headerFor(*camera, mode);
  if (!fields) throw py::value_error("the " + name + " has no mode '" + mode + "'");
  for (const unsigned side : {width, height})
    if (side == 0 || side > largestSide)
      throw py::value_error("width and height are 1 to " + std::to_string(largestSide));
  fields->width = width;
  fields->height = height;
  std::vector<unsigned char> bytes;
  {
    const WithoutGil others;
    simulator::Sky sky;
    sky.seed = seed;
    constexpr unsigned newestVersion = 4;
    bytes = simulator::encodeFrame(*fields, newestVersion, simulator::exposeSky(*camera, *fields, sky));
    for (const Finding& finding : Frame::view(bytes.data(), bytes.size()).check())
      if (finding.severity == Finding::Severity::error)
        throw py::value_error("such a frame could not be decoded: it " + finding.text);
  }
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

void bindSimulator(py::module_& module) {
  module.def("simulate", &simulate);
}

}  // namespace orvacam::python
