#include <pybind11/stl.h>

#include <algorithm>
#include <array>

#include "Binding.h"
#include "files/Sha256.h"

namespace orvacam::python {

namespace {

/// Pixels that an array stands on. The buffer is read-only, so that no array over it can be made writable.
template <typename Pixel>
struct Pixels {
  Image<Pixel> image;
};

template <typename Pixel>
py::buffer_info bufferOf(const Pixels<Pixel>& self) {
  const auto height = static_cast<py::ssize_t>(self.image.size().height);
  const auto width = static_cast<py::ssize_t>(self.image.size().width);
  constexpr auto each = static_cast<py::ssize_t>(sizeof(Pixel));
  return {const_cast<Pixel*>(self.image.data()),
          each,
          py::format_descriptor<Pixel>::format(),
          2,
          {height, width},
          {width * each, each},
          true};
}

template <typename Pixel>
void bindPixels(py::module_& module, const char* name) {
  py::class_<Pixels<Pixel>> pixels(module, name, py::buffer_protocol());
  makeHereAlone(pixels);
  pixels.def_buffer([](const Pixels<Pixel>& self) { return bufferOf(self); });
}

/// The planes of a frame, by name.
struct NamedPlane {
  const char* name;
  bool Planes::*wanted;
  Target Targets::*target;
  Plane Decoded::*plane;
};
constexpr std::array<NamedPlane, 4> namedPlanes = {
    {{"low", &Planes::low, &Targets::low, &Decoded::low},
     {"high", &Planes::high, &Targets::high, &Decoded::high},
     {"merged", &Planes::merged, &Targets::merged, &Decoded::merged},
     {"image", &Planes::image, &Targets::image, &Decoded::image}}};

const NamedPlane& planeNamed(const std::string& name) {
  for (const NamedPlane& plane : namedPlanes)
    if (name == plane.name) return plane;
  throw py::value_error("there is no plane '" + name + "'; planes are low, high, merged and image");
}

std::string shapeText(py::ssize_t rows, py::ssize_t columns) {
  return "(" + std::to_string(rows) + ", " + std::to_string(columns) + ")";
}

/// An array that 16-bit pixels can be taken from or put into row by row.
py::array pixelArray(const py::handle& object, const std::string& name) {
  if (!py::isinstance<py::array>(object))
    throw py::type_error(name + " is an array of uint16, not " + Py_TYPE(object.ptr())->tp_name);
  auto array = py::reinterpret_borrow<py::array>(object);
  if (py::hasattr(array, "mask"))
    throw py::type_error(name + " is a masked array, and planes have no mask; its data are an array");
  if (!py::isinstance<py::array_t<std::uint16_t>>(array))
    throw py::type_error(name + " has elements of " + py::str(array.dtype()).cast<std::string>() +
                         ", and planes have uint16 in the machine's byte order");
  if (array.ndim() != 2)
    throw py::value_error(name + " has " + std::to_string(array.ndim()) + " dimensions, and planes have 2");
  return array;
}

/// The caller's memory for a plane.
py::array outArray(const py::handle& object, const std::string& name, const Size& size) {
  py::array array = pixelArray(object, name);
  const auto rows = static_cast<py::ssize_t>(size.height), columns = static_cast<py::ssize_t>(size.width);
  if (array.shape(0) != rows || array.shape(1) != columns)
    throw py::value_error(name + " has the shape " + shapeText(array.shape(0), array.shape(1)) +
                          ", and the planes of the frame have " + shapeText(rows, columns));
  if ((array.flags() & py::array::c_style) == 0)
    throw py::value_error(name + " does not lie row by row in one piece");
  if ((array.flags() & py::detail::npy_api::NPY_ARRAY_ALIGNED_) == 0)
    throw py::value_error(name + " is not aligned");
  if (!array.writeable()) throw py::value_error(name + " is read-only");
  return array;
}

/// What a call to decode is given, checked.
struct Request {
  Planes wanted{false, false, false, false, false, false};
  Targets targets;
  std::vector<std::pair<const NamedPlane*, py::array>> arrays;
};

void requireApart(const Request& request, const Frame& frame) {
  struct Range {
    std::string name;
    std::uintptr_t begin, end;
  };
  std::vector<Range> ranges;
  const std::string_view bytes = frame.bytes();
  const auto start = reinterpret_cast<std::uintptr_t>(bytes.data());
  ranges.push_back({"the bytes of the frame", start, start + bytes.size()});
  for (const auto& [plane, array] : request.arrays) {
    const auto begin = reinterpret_cast<std::uintptr_t>(array.data());
    const std::uintptr_t end = begin + static_cast<std::size_t>(array.nbytes());
    const std::string name = std::string("out['") + plane->name + "']";
    for (const Range& other : ranges)
      if (begin < other.end && other.begin < end) throw py::value_error(name + " overlaps " + other.name);
    ranges.push_back({name, begin, end});
  }
}

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

/// The caller's arrays and, for the other planes, fresh ones.
void addArrays(Request& request, const Frame& frame, const std::vector<std::string>& names,
               const py::dict& out) {
  const Size size = frame.header().frame_size();
  std::size_t used = 0;
  for (const std::string& name : names) {
    const NamedPlane& plane = planeNamed(name);
    if (!out.contains(name)) continue;
    ++used;
    request.arrays.emplace_back(&plane, outArray(out[py::str(name)], "out['" + name + "']", size));
  }
  if (used != out.size())
    throw py::value_error("out names planes that are not among those to decode: " + listed(names));
  requireApart(request, frame);
  for (const std::string& name : names)
    if (!out.contains(name))
      request.arrays.emplace_back(&planeNamed(name), py::array_t<std::uint16_t>({size.height, size.width}));
  for (auto& [plane, array] : request.arrays)
    request.targets.*(plane->target) = {static_cast<std::uint16_t*>(array.mutable_data()),
                                        static_cast<std::size_t>(array.size())};
}

/// The planes that this decoder makes of the frame: references can merge what gains alone do not.
std::vector<std::string> decodedPlanesOf(PyDecoder& self, const Frame& frame) {
  std::vector<std::string> names = frame.planes();
  const bool pair = names.size() == 2;
  if (pair) {
    const WithoutGil others;
    const InUse::Lock lock(self.use);
    if (self.decoder.merge_info(frame.header()).merges) names.emplace_back("merged");
  }
  return names;
}

/// The names of the planes to decode. None stands for all; a frame that has none says why when it is decoded.
std::vector<std::string> wantedPlanes(PyDecoder& self, const Frame& frame,
                                      const std::optional<std::vector<std::string>>& asked) {
  std::vector<std::string> has = decodedPlanesOf(self, frame);
  if (has.empty() || !asked) return has;
  std::vector<std::string> names;
  for (const std::string& name : *asked) {
    planeNamed(name);
    if (std::find(has.begin(), has.end(), name) == has.end())
      throw py::value_error("the frame has no plane '" + name + "'; it has " + listed(has));
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  return names;
}

Decoded run(PyDecoder& self, const Frame& frame, const Request& request) {
  const WithoutGil others;
  const InUse::Lock lock(self.use);
  return self.decoder.decode(frame, request.wanted, request.targets);
}

Request requested(const std::vector<std::string>& names, bool statistics, bool histograms) {
  Request request;
  for (const std::string& name : names)
    request.wanted.*(planeNamed(name).wanted) = true;
  request.wanted.statistics = statistics;
  request.wanted.histograms = histograms;
  return request;
}

/// {name: (array, statistics or None)}
py::dict decode(PyDecoder& self, const PyFrame& frame, const std::optional<std::vector<std::string>>& planes,
                bool statistics, bool histograms, const py::dict& out) {
  const std::vector<std::string> names = wantedPlanes(self, frame.frame, planes);
  Request request = requested(names, statistics, histograms);
  if (!names.empty()) addArrays(request, frame.frame, names, out);
  const Decoded decoded = run(self, frame.frame, request);
  py::dict planesByName;
  for (const auto& [plane, array] : request.arrays) {
    const Plane& pixels = decoded.*(plane->plane);
    planesByName[plane->name] = py::make_tuple(array, statisticsOf(pixels));
  }
  return planesByName;
}

/// One plane over the decoder's own memory, read-only.
py::array decodeKept(PyDecoder& self, const PyFrame& frame, const std::string& name) {
  const std::vector<std::string> names = wantedPlanes(self, frame.frame, std::vector<std::string>{name});
  const Decoded decoded = run(self, frame.frame, requested(names, false, false));
  return readOnlyArray<std::uint16_t>(decoded.*(planeNamed(name).plane));
}

/// SHA-256 of a reference file, which begins as frames do.
std::string digestOf(const std::filesystem::path& path) {
  const Frame file = Frame::read(path);
  return files::sha256(file.bytes().data(), file.bytes().size());
}

// Settings are kept when the decoder has taken them.

void setDsnu(PyDecoder& self, const py::bytes& path) {
  const std::filesystem::path name = pathOf(path);
  const WithoutGil others;
  const InUse::Lock lock(self.use);
  self.decoder.dsnu(name);
  std::string digest = digestOf(name);
  self.settings.dsnu = name;
  self.settings.dsnuDigest = std::move(digest);
}

void setPrnu(PyDecoder& self, const py::bytes& path) {
  const std::filesystem::path name = pathOf(path);
  const WithoutGil others;
  const InUse::Lock lock(self.use);
  self.decoder.prnu(name);
  std::string digest = digestOf(name);
  self.settings.prnu = name;
  self.settings.prnuDigest = std::move(digest);
}

void setBias(PyDecoder& self, const py::object& low, const py::object& high) {
  const Plane lowPlane = copiedPlane(low, "the first bias frame");
  const Plane highPlane = copiedPlane(high, "the second bias frame");
  const WithoutGil others;
  const InUse::Lock lock(self.use);
  self.decoder.bias(lowPlane, highPlane);
  self.settings.biasLow = lowPlane;
  self.settings.biasHigh = highPlane;
}

void setThresholds(PyDecoder& self, unsigned high, unsigned difference) {
  const WithoutGil others;
  const InUse::Lock lock(self.use);
  self.decoder.thresholds(high, difference);
  self.settings.thresholds = {high, difference};
}

void setCalibration(PyDecoder& self, const py::bytes& block) {
  const std::string bytes = block;
  const WithoutGil others;
  const InUse::Lock lock(self.use);
  self.decoder.calibration(bytes.data(), bytes.size());
  self.settings.calibration = bytes;
}

/// How frames with this header are merged, as a dict; None where there is nothing to merge.
py::object mergeInfo(PyDecoder& self, const Header& header) {
  const MergeInfo info = [&] {
    const WithoutGil others;
    const InUse::Lock lock(self.use);
    return self.decoder.merge_info(header);
  }();
  if (!info.merges) return py::none();
  py::dict facts;
  facts["gain_ratio"] = info.gain_ratio;
  facts["high_threshold"] = info.high_threshold;
  facts["difference_threshold"] = info.difference_threshold;
  facts["type"] = info.type;
  facts["dsnu"] = info.dsnu;
  facts["prnu"] = info.prnu;
  facts["bias"] = info.bias;
  return facts;
}

py::tuple extreme(const Extreme& extreme) {
  return py::make_tuple(extreme.value, extreme.x, extreme.y);
}

}  // namespace

Decoder Settings::decoder() const {
  Decoder made;
  made.dsnu(dsnu).prnu(prnu).bias(biasLow, biasHigh);
  if (thresholds) made.thresholds(thresholds->first, thresholds->second);
  if (!calibration.empty()) made.calibration(calibration.data(), calibration.size());
  return made;
}

template <typename Pixel>
py::array readOnlyArray(const Image<Pixel>& image) {
  const py::object owner = py::cast(Pixels<Pixel>{image});
  const Size size = image.size();
  py::array array(py::dtype::of<Pixel>(), {size.height, size.width}, image.data(), owner);
  array.attr("flags").attr("writeable") = false;
  return array;
}
template py::array readOnlyArray(const Image<std::uint16_t>& image);
template py::array readOnlyArray(const Image<std::uint64_t>& image);
template py::array readOnlyArray(const Image<float>& image);
template py::array readOnlyArray(const Image<double>& image);

py::object statisticsOf(const Plane& plane) {
  if (!plane.statistics()) return py::none();
  const Statistics& s = *plane.statistics();
  py::object histogram = py::none();
  if (!s.histogram.empty())
    histogram = py::array_t<std::uint32_t>(static_cast<py::ssize_t>(s.histogram.size()), s.histogram.data());
  return py::make_tuple(s.count, s.mean, s.deviation, s.mode, extreme(s.minimum), extreme(s.maximum),
                        s.clip_low, s.clip_high, histogram);
}

Plane copiedPlane(const py::object& array, const std::string& name) {
  if (array.is_none()) return {};
  const py::array pixels = pixelArray(array, name);
  constexpr py::ssize_t most = 1 << 20;
  if (pixels.shape(0) > most || pixels.shape(1) > most)
    throw py::value_error(name + " has the shape " + shapeText(pixels.shape(0), pixels.shape(1)));
  const auto contiguous = py::array_t<std::uint16_t, py::array::c_style>::ensure(pixels);
  if (!contiguous) {
    PyErr_SetString(PyExc_MemoryError, (name + " does not fit into the memory").c_str());
    throw py::error_already_set();
  }
  const Size size{static_cast<std::uint32_t>(pixels.shape(1)), static_cast<std::uint32_t>(pixels.shape(0))};
  if (size.width == 0 || size.height == 0) throw py::value_error(name + " has no pixels");
  return Plane::copy(size, contiguous.data());
}

void bindDecoder(py::module_& module) {
  bindPixels<std::uint16_t>(module, "Pixels16");
  bindPixels<std::uint64_t>(module, "Pixels64");
  bindPixels<float>(module, "PixelsFloat");
  bindPixels<double>(module, "PixelsDouble");
  py::class_<PyDecoder> decoder(module, "Decoder");
  makeHereAlone(decoder);
  decoder.def_static("make", [] { return std::make_unique<PyDecoder>(); })
      .def("dsnu", &setDsnu)
      .def("prnu", &setPrnu)
      .def("bias", &setBias)
      .def("thresholds", &setThresholds)
      .def("calibration", &setCalibration)
      .def("merge_info", &mergeInfo)
      .def("decode", &decode)
      .def("decode_kept", &decodeKept);
}

}  // namespace orvacam::python
