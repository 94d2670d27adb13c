// orvacam stack: many frames become one.

#include <algorithm>
#include <map>

#include "Commands.h"
#include "Corrections.h"
#include "ForEach.h"
#include "PlaneFile.h"
#include "files/Names.h"

namespace tool {

namespace {

struct StackOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  OutputOptions outputs;
  std::string output, format, method = "mean", type = "float32", plane;
  bool force = false;
};

/// The frames so far, and what a file says of them together.
class Stacking {
 public:
  explicit Stacking(const StackOptions& options)
      : m_options(options),
        m_corrections(options.corrections),
        m_stack(options.method == "sum" ? orvacam::Stack::Method::sum : orvacam::Stack::Method::mean) {
    m_stack.decoder(m_corrections.decoder()).allow_unlike(options.force);
    if (!options.plane.empty()) m_stack.plane(options.plane);
    m_facts.sum = options.method == "sum";
  }

  void add(const orvacam::Frame& frame);
  Product result();

 private:
  void hold(Product& product) const;

  const StackOptions& m_options;
  Corrections m_corrections;
  orvacam::Stack m_stack;
  std::optional<orvacam::Header> m_first;
  std::string m_plane;
  files::StackFacts m_facts;
};

/// The plane that is stacked: merged, else image, else low.
std::string stackedPlane(const std::vector<std::string>& planes) {
  for (const char* const name : {"merged", "image", "low"})
    if (std::find(planes.begin(), planes.end(), name) != planes.end()) return name;
  return "image";
}

void Stacking::add(const orvacam::Frame& frame) {
  m_corrections.requireApplicable(frame);
  m_stack.add(frame);
  const orvacam::Header& header = frame.header();
  if (!m_first) {
    m_first = header;
    m_plane = m_options.plane.empty() ? stackedPlane(frame.planes()) : m_options.plane;
  }
  ++m_facts.frames;
  m_facts.exposure += header.exposure_seconds();
  if (const auto time = header.time()) {
    const auto end = *time + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                 std::chrono::duration<double>(header.exposure_seconds()));
    m_facts.earliest = m_facts.earliest ? std::min(*m_facts.earliest, *time) : *time;
    m_facts.end = m_facts.end ? std::max(*m_facts.end, end) : end;
  }
}

/// The pixels in the type that was asked for.
void Stacking::hold(Product& product) const {
  if (m_options.type == "uint16") {
    const auto pixels = std::make_shared<const orvacam::Plane>(m_stack.result_u16());
    product.raster = files::rasterOf(*pixels);
    product.owner = pixels;
  } else if (m_options.type == "float32") {
    const auto pixels = std::make_shared<const orvacam::Image<float>>(m_stack.result());
    product.raster = files::rasterOf(*pixels);
    product.owner = pixels;
  } else {
    const orvacam::Image<std::uint64_t> sums = m_stack.sums();
    const auto pixels =
        std::make_shared<std::vector<double>>(std::size_t{sums.size().width} * sums.size().height);
    const double divisor = m_facts.sum ? 1 : static_cast<double>(m_facts.frames);
    std::transform(sums.data(), sums.data() + pixels->size(), pixels->begin(),
                   [&](std::uint64_t sum) { return static_cast<double>(sum) / divisor; });
    product.raster = {sums.size(), files::Raster::F64, pixels->data()};
    product.owner = pixels;
  }
}

Product Stacking::result() {
  Product product;
  product.header = m_first.value();
  product.subject = files::subjectOf(*m_first, m_plane);
  product.subject.stack = m_facts;
  m_corrections.describe(product.subject, *m_first);
  hold(product);
  product.subject.history.push_back(m_options.method + " of " + std::to_string(m_facts.frames) + " frames");
  finish(product.subject, m_options.outputs.reproducible);
  return product;
}

void refuseTwins(const std::vector<Input>& inputs) {
  std::map<Identity, std::string> seen;
  for (const Input& input : inputs) {
    const Identity identity = identityOf(input.path);
    if (identity == Identity{0, 0}) continue;
    const auto [at, isNew] = seen.emplace(identity, input.path);
    if (!isNew)
      throw Failure(input.path + " is the same file as " + at->second + " and would be stacked twice");
  }
}

int stack(const StackOptions& options) {
  const auto format = options.format.empty()
                          ? options.output == "-" ? Format::Fits : formatOfPath(options.output)
                          : formatNamed(options.format);
  if (!format)
    throw UsageError("-o: " + options.output + " should end in .fits, .fit, .fts, .tif, .tiff or .npy");
  const std::vector<Input> inputs = inputsOf(options.inputs);
  Targets targets;
  for (const Input& input : inputs)
    targets.isInput(input.path);
  addInputs(targets, options.corrections);
  targets.claim(options.output);
  return attemptCode(options.output, [&] {
    refuseTwins(inputs);
    Stacking frames(options);
    // A mean without one of its frames would be another mean.
    const int code = untilFailure(inputs, [&](const Input& input) { frames.add(readFrame(input.path)); });
    if (code != Good) return code;
    if (options.output != "-") files::OutputFile::cleanUp(files::folderOf(options.output));
    const Style style{*format, false, false};
    writeContent(options.output, contentOf({frames.result()}, style, files::stemOf(options.output)),
                 options.outputs.overwrite);
    return code;
  });
}

void describe(Command& c, StackOptions& o) {
  addInputs(c, o.inputs);
  c.add("-o,--output", &o.output,
        "The file to write: .fits, .fit, .fts, .tif, .tiff or .npy; - for FITS on standard output",
        fileValue())
      .required();
  c.add("-f,--format", &o.format, "Format, whatever the extension", oneOf("FORMAT", {"fits", "tiff", "npy"}));
  c.add("--method", &o.method, "How frames become one", oneOf("METHOD", {"mean", "sum"}));
  c.add("--dtype", &o.type, "Type of the pixels; uint16 is the mean without its fraction",
        oneOf("TYPE", {"float32", "float64", "uint16"}));
  c.add("--plane", &o.plane, "Stack this plane", oneOf("PLANE", planeNames()));
  c.add("--force", o.force, "Stack frames whose settings differ; sensor, mode and size never may");
  addCorrections(c, o.corrections);
  addOutputs(c, o.outputs, false);
}

int checked(const StackOptions& o) {
  requireApart(o.corrections);
  if (o.type == "uint16" && o.method == "sum") throw UsageError("--dtype: uint16 holds no sum");
  return stack(o);
}

}  // namespace

Command stackCommand() {
  return commandOf<StackOptions>(
      "stack", "Mean or sum of frames that are alike: the merged planes of HDR frames, else the only one.",
      {"orvacam stack night/ -o mean.fits"}, describe, checked);
}

}  // namespace tool
