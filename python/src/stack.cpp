#include <limits>
#include <set>

#include "Binding.h"
#include "files/PartialStack.h"
#include "files/Sha256.h"
#include "files/Stretch.h"

namespace orvacam::python {

namespace {

/// A stack, and what its file says of its frames.
struct PyStack {
  files::PartialStack part;
  bool savable = false;  ///< frames are digested
  Settings settings;
  InUse use;
};

/// Work on a stack, without the GIL.
template <typename Work>
auto using_(PyStack& self, const Work& work) {
  const WithoutGil others;
  const InUse::Lock lock(self.use);
  return work(self.part.stack);
}

template <typename Result>
py::array taken(PyStack& self, Result (Stack::*take)() const) {
  return readOnlyArray(using_(self, [&](Stack& stack) { return (stack.*take)(); }));
}

void takeDecoder(PyStack& self, PyDecoder& decoder) {
  const WithoutGil others;
  Settings settings = [&] {
    const InUse::Lock lock(decoder.use);
    return decoder.settings;
  }();
  const InUse::Lock lock(self.use);
  self.part.stack.decoder(settings.decoder());
  self.settings = std::move(settings);
}

std::string digestOf(const Plane& low, const Plane& high) {
  std::string bytes;
  for (const Plane& plane : {low, high})
    bytes.append(reinterpret_cast<const char*>(plane.data()),
                 sizeof(std::uint16_t) * plane.size().width * plane.size().height);
  return files::sha256(bytes.data(), bytes.size());
}

/// What the file says of corrections: their digests by role, and as history.
void describeCorrections(files::StackRecord& record, const Settings& settings) {
  const auto add = [&](const char* role, const std::string& text, const std::string& digest) {
    record.corrections[role] = digest;
    record.history.push_back(text);
    record.history.push_back("SHA-256 " + digest);
  };
  if (!settings.biasLow.empty())
    add("BIAS", "bias frame subtracted", digestOf(settings.biasLow, settings.biasHigh));
  if (!settings.dsnu.empty())
    add("DSNU", "DSNU reference: " + settings.dsnu.filename().string(), settings.dsnuDigest);
  if (!settings.prnu.empty())
    add("PRNU", "PRNU reference: " + settings.prnu.filename().string(), settings.prnuDigest);
  if (!settings.calibration.empty())
    add("CALIBRATION", "gain ratio of the calibration block",
        files::sha256(settings.calibration.data(), settings.calibration.size()));
  if (settings.thresholds)
    record.history.push_back("merged with thresholds " + std::to_string(settings.thresholds->first) + ", " +
                             std::to_string(settings.thresholds->second));
}

/// What is known once the first frame is there.
void describe(PyStack& self, const Header& header) {
  files::StackRecord& record = self.part.record;
  const std::string plane = self.part.stack.plane();
  describeCorrections(record, self.settings);
  Decoder withoutPrnu;
  if (self.settings.thresholds)
    withoutPrnu.thresholds(self.settings.thresholds->first, self.settings.thresholds->second);
  const std::string& block = self.settings.calibration;
  if (!block.empty()) withoutPrnu.calibration(block.data(), block.size());
  const MergeInfo merge = withoutPrnu.merge_info(header);
  if (merge.merges)
    record.merge = files::MergeFacts{merge.gain_ratio, !self.settings.prnu.empty(), merge.high_threshold,
                                     merge.difference_threshold, static_cast<int>(merge.type)};
  const Plane& bias = plane == "high" ? self.settings.biasHigh : self.settings.biasLow;
  Region region = header.image_region();
  region.y += header.start_row();
  if (bias.size().width >= region.x + region.width && bias.size().height >= region.y + region.height)
    record.bias = files::medianOf(bias, region);
}

void add(PyStack& self, const PyFrame& frame) {
  using_(self, [&](Stack& stack) {
    stack.add(frame.frame);
    if (!self.savable) return;
    if (stack.count() == 1) describe(self, frame.frame.header());
    self.part.record.add(frame.frame, true);
  });
}

using Sums = py::array_t<std::uint64_t, py::array::c_style>;

/// A plane of sums of the caller's, copied.
Image<std::uint64_t> sumsOf(const py::object& given) {
  if (!py::isinstance<Sums>(given)) throw py::type_error("sums: an array of uint64, row by row in one piece");
  const Sums sums = py::cast<Sums>(given);
  constexpr py::ssize_t most = std::numeric_limits<std::uint32_t>::max();
  if (sums.ndim() != 2 || sums.shape(0) > most || sums.shape(1) > most)
    throw py::value_error("sums: an array of rows and columns");
  return Image<std::uint64_t>::copy(
      {static_cast<std::uint32_t>(sums.shape(1)), static_cast<std::uint32_t>(sums.shape(0))}, sums.data());
}

std::unique_ptr<PyStack> stackOfSums(const Header& first, std::uint64_t count, const py::object& sums,
                                     const py::object& squares, const std::string& plane, int method) {
  Stack stack = Stack::from_sums(first, count, sumsOf(sums), sumsOf(squares), plane,
                                 static_cast<Stack::Method>(method));
  return std::unique_ptr<PyStack>(new PyStack{{{}, std::move(stack)}, false, {}, {}});
}

/// The file of a stack, in memory.
struct SavedStack {
  files::FitsFile file;
};

std::unique_ptr<SavedStack> saved(PyStack& self) {
  if (!self.savable)
    throw py::value_error("a stack that can be saved is a mean or a sum, and digests its frames");
  return using_(self, [&](Stack& stack) {
    stack.header();  // says of an empty one that it is
    const std::vector<std::string>& frames = self.part.record.frames;
    if (std::set<std::string>(frames.begin(), frames.end()).size() != frames.size())
      throw py::value_error("a frame was added twice, and parts that count one twice are not combined");
    return std::unique_ptr<SavedStack>(new SavedStack{files::partialStackFile(self.part)});
  });
}

py::buffer_info bytesOf(const SavedStack& self) {
  return {const_cast<unsigned char*>(static_cast<const unsigned char*>(self.file.data())),
          static_cast<py::ssize_t>(self.file.size()), true};
}

/// Whether it says something of the machine, and nothing of the file that was read.
bool isOfTheMachine(const std::runtime_error& error) {
  const auto* const known = dynamic_cast<const Error*>(&error);
  return known != nullptr && (known->reason() == Reason::io || known->reason() == Reason::out_of_memory);
}

/// Throws Refusal: what is wrong with the file.
std::unique_ptr<PyStack> loaded(const py::bytes& path, int method) {
  const std::filesystem::path name = pathOf(path);
  const WithoutGil others;
  try {
    return std::unique_ptr<PyStack>(new PyStack{
        files::readPartialStack(name.string(), static_cast<Stack::Method>(method)), true, {}, {}});
  } catch (const std::runtime_error& error) {
    if (isOfTheMachine(error)) throw;
    throw Refusal{Reason::not_a_frame, error.what(), name.string()};
  }
}

void merge(PyStack& self, PyStack& part, bool allowUnlike, const py::bytes& path) {
  const std::string name = pathOf(path).string();
  if (&self == &part) throw py::value_error("a stack does not go into itself");
  using_(self, [&](Stack&) {
    const InUse::Lock lock(part.use);
    try {
      files::addPart(self.part, part.part, allowUnlike);
    } catch (const std::runtime_error& error) {
      if (isOfTheMachine(error)) throw;
      throw Refusal{Reason::mismatch, error.what(), name};
    }
  });
}

}  // namespace

void bindStack(py::module_& module) {
  py::class_<SavedStack> savedStack(module, "SavedStack", py::buffer_protocol());
  makeHereAlone(savedStack);
  savedStack.def_buffer(&bytesOf);
  py::class_<PyStack> stack(module, "Stack");
  makeHereAlone(stack);
  stack
      .def_static("make",
                  [](int method, bool savable) {
                    return std::unique_ptr<PyStack>(
                        new PyStack{{{}, Stack(static_cast<Stack::Method>(method))}, savable, {}, {}});
                  })
      .def_static("load", &loaded)
      .def_static("from_sums", &stackOfSums)
      .def("set_plane",
           [](PyStack& self, const std::string& name) { using_(self, [&](Stack& s) { s.plane(name); }); })
      .def("set_decoder", &takeDecoder)
      .def("set_sigma", [](PyStack& self, double low,
                           double high) { using_(self, [&](Stack& s) { s.sigma(low, high); }); })
      .def("allow_unlike",
           [](PyStack& self, bool allow) {
             using_(self, [&](Stack& s) {
               s.allow_unlike(allow);
               self.part.record.forced = allow;
             });
           })
      .def("add", &add)
      .def("save", &saved)
      .def("merge", &merge)
      .def("forced", [](const PyStack& self) { return self.part.record.forced; })
      .def("plane", [](PyStack& self) { return using_(self, [](Stack& s) { return s.plane(); }); })
      .def("count", [](PyStack& self) { return using_(self, [](Stack& s) { return s.count(); }); })
      .def("header", [](PyStack& self) { return using_(self, [](Stack& s) { return s.header(); }); })
      .def("sums", [](PyStack& self) { return taken(self, &Stack::sums); })
      .def("squares", [](PyStack& self) { return taken(self, &Stack::squares); })
      .def("result", [](PyStack& self) { return taken(self, &Stack::result); })
      .def("result_f64", [](PyStack& self) { return taken(self, &Stack::result_f64); })
      .def("result_u16", [](PyStack& self) {
        return readOnlyArray<std::uint16_t>(using_(self, [](Stack& s) { return s.result_u16(); }));
      });
}

}  // namespace orvacam::python
