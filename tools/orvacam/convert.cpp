// orvacam convert: raw frame files become files that everyone reads.

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>

#include "Commands.h"
#include "Corrections.h"
#include "ForEach.h"
#include "PlaneFile.h"
#include "Watch.h"
#include "files/FixedFiles.h"
#include "files/Names.h"

namespace tool {

namespace {

struct ConvertOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  OutputOptions outputs;
  std::string folder, format = "fits", compress, crop = "none";
  std::vector<std::string> planes;
  bool singleFile = false, native = false;
  std::string watched;  ///< the folder of --watch
};

constexpr const char* allPlanes[] = {"low", "high", "merged", "image"};

/// One run: what is the same for every frame.
class Conversion {
 public:
  explicit Conversion(const ConvertOptions& options)
      : m_options(options),
        m_style{formatNamed(options.format).value(), options.compress == "rice", options.singleFile},
        m_skips(options.outputs.skipExisting) {
    if (options.watched.empty()) m_inputs = inputsOf(options.inputs);
  }

  int run();

 private:
  bool oneFile() const { return m_style.extensions || m_style.format == Format::OmeTiff; }
  bool toOutput() const { return m_options.folder == "-"; }
  std::string extension() const;
  std::string target(const Input& input, const std::string& suffix) const;
  std::vector<std::string> targetsOf(const Input& input, const std::vector<std::string>& planes) const;
  std::vector<std::string> chosen(const std::vector<std::string>& planes) const;

  std::vector<std::string> possibleTargets(const Input& input) const;
  void claimTargets();
  bool isDone(const Input& input) const;
  int convertFrame(const Input& input);
  int convertNative(const Input& input);
  Product productOf(const orvacam::Frame& frame, const orvacam::Plane& plane, const std::string& name);
  int write(const std::string& path, const std::vector<Product>& products, const std::string& stem);

  void prepare();
  int convertOne(const Input& input);
  Fate convertArrival(const Arrival& arrival);

  const ConvertOptions& m_options;
  Style m_style;
  bool m_skips;  ///< what is there
  std::vector<Input> m_inputs;
  std::unique_ptr<Corrections> m_corrections;
};

std::string Conversion::extension() const {
  if (m_options.native) return m_style.format == Format::Tiff ? ".tiff" : ".fit";
  return extensionOf(m_style.format, m_style.rice);
}

std::string Conversion::target(const Input& input, const std::string& suffix) const {
  if (toOutput()) return "-";
  return m_options.folder + "/" + input.under + files::stemOf(input.path) + suffix + extension();
}

/// The planes that are written of those that a frame has. Throws Failure.
std::vector<std::string> Conversion::chosen(const std::vector<std::string>& planes) const {
  if (m_options.planes.empty()) return planes;
  std::vector<std::string> wanted;
  for (const char* const name : allPlanes) {
    if (std::find(m_options.planes.begin(), m_options.planes.end(), name) == m_options.planes.end()) continue;
    if (std::find(planes.begin(), planes.end(), name) == planes.end())
      throw Failure("has no plane '" + std::string(name) + "'");
    wanted.emplace_back(name);
  }
  return wanted;
}

std::vector<std::string> Conversion::targetsOf(const Input& input,
                                               const std::vector<std::string>& planes) const {
  if (oneFile() && !m_options.native) return {target(input, "")};
  std::vector<std::string> targets;
  for (const std::string& plane : chosen(planes))
    targets.push_back(target(input, files::suffixOf(plane, planes)));
  return targets;
}

/// All that may come of an input, as far as its name tells.
std::vector<std::string> Conversion::possibleTargets(const Input& input) const {
  std::vector<std::string> paths = {target(input, "")};
  for (const char* const suffix : {"_LOW", "_HIGH", "_MERGED"})
    if (!oneFile()) paths.push_back(target(input, suffix));
  return paths;
}

/// Refuses names that are inputs or that two frames would take. Frames are looked at only where their names
/// alone do not tell: "a.raw" and "a_LOW.raw".
void Conversion::claimTargets() {
  if (toOutput()) return;
  Targets targets;
  for (const Input& input : m_inputs)
    targets.isInput(input.path);
  addInputs(targets, m_options.corrections);
  std::map<std::string, int> wishes;
  std::set<std::string> plain;
  for (const Input& input : m_inputs) {
    if (!input.wrong.empty()) continue;
    for (const std::string& path : possibleTargets(input))
      ++wishes[path];
    if (!plain.insert(target(input, "")).second)
      throw UsageError(target(input, "") + " would be written twice");
  }
  for (const Input& input : m_inputs) {
    if (!input.wrong.empty()) continue;
    const std::vector<std::string> possible = possibleTargets(input);
    const bool doubtful = std::any_of(possible.begin(), possible.end(), [&](const std::string& path) {
      return wishes[path] > 1 || targets.conflicts(path);
    });
    if (!doubtful) continue;
    try {
      for (const std::string& path : targetsOf(input, readFrame(input.path).planes()))
        targets.claim(path);
    } catch (const orvacam::Error&) {
      // It will be said of the frame when its turn comes.
    } catch (const Failure&) {
    }
  }
}

/// Whether all that would be made of a frame is there.
bool Conversion::isDone(const Input& input) const {
  if (!m_skips || input.path == "-" || toOutput()) return false;
  const orvacam::Header header = orvacam::Header::read(input.path);
  const auto there = [&](const std::vector<std::string>& planes) {
    const std::vector<std::string> paths = targetsOf(input, planes);
    return std::all_of(paths.begin(), paths.end(), [](const std::string& path) {
      std::error_code none;
      return std::filesystem::exists(path, none);
    });
  };
  if (header.hdr()) return there({"low", "high", "merged"});
  if (!m_options.planes.empty()) return false;
  return there({"image"}) || there({"low", "high"});
}

Product Conversion::productOf(const orvacam::Frame& frame, const orvacam::Plane& plane,
                              const std::string& name) {
  Product product;
  product.subject = files::subjectOf(frame.header(), name);
  product.header = frame.header();
  m_corrections->describe(product.subject, frame.header());
  product.pixels = plane;
  if (m_options.crop == "image") {
    const orvacam::Region region = product.subject.image;
    product.pixels = files::cropped<std::uint16_t>(plane, region);
    product.subject.size = {region.width, region.height};
    product.subject.image = {0, 0, region.width, region.height};
    product.subject.history.emplace_back("reference rows and pixels left out");
  }
  product.raster = files::rasterOf(*product.pixels);
  finish(product.subject, m_options.outputs.reproducible);
  return product;
}

int Conversion::write(const std::string& path, const std::vector<Product>& products,
                      const std::string& stem) {
  std::error_code none;
  if (m_skips && path != "-" && std::filesystem::exists(path, none)) return Good;
  // A file that cannot be written does not stop the others.
  return attempt(
      path, [&] { writeContent(path, contentOf(products, m_style, stem), m_options.outputs.overwrite); });
}

int Conversion::convertFrame(const Input& input) {
  const orvacam::Frame frame = readFrame(input.path);
  const std::vector<std::string> all = frame.planes();
  orvacam::Planes wanted{false, false, false, false, false, false};
  // A frame without planes says why when it is decoded.
  if (all.empty()) m_corrections->decode(frame, {});
  const std::vector<std::string> names = chosen(all);
  if (toOutput() && names.size() > 1 && !oneFile())
    throw UsageError(
        "-o -: the frame has several planes; --single-file, -f ome-tiff or one of --planes makes one file");
  for (const std::string& name : names)
    (name == "low"      ? wanted.low
     : name == "high"   ? wanted.high
     : name == "merged" ? wanted.merged
                        : wanted.image) = true;
  const orvacam::Decoded decoded = m_corrections->decode(frame, wanted);
  if (!frame.header().time()) note(input.path, "its capture time cannot be read and is left out");
  if (!toOutput() && !input.under.empty()) prepareFolder(m_options.folder + "/" + input.under);

  const std::string stem = files::stemOf(input.path);
  Outcome outcome;
  std::vector<Product> products;
  for (const std::string& name : names) {
    const orvacam::Plane& plane = name == "low"      ? decoded.low
                                  : name == "high"   ? decoded.high
                                  : name == "merged" ? decoded.merged
                                                     : decoded.image;
    products.push_back(productOf(frame, plane, name));
    if (oneFile()) continue;
    outcome.add(write(target(input, files::suffixOf(name, all)), products, stem));
    products.clear();
  }
  if (oneFile()) outcome.add(write(target(input, ""), products, stem));
  return outcome.code();
}

/// The fixed files come into being in a folder of their own: their writer knows of no hidden names.
int Conversion::convertNative(const Input& input) {
  if (!input.under.empty()) prepareFolder(m_options.folder + "/" + input.under);
  const std::string folder = m_options.folder + "/" + input.under;
  const files::WorkFolder work(folder.empty() ? "." : folder);
  std::string source = input.path;
  if (source == "-") {
    source = work.path() + "/frame.raw";
    writeContent(source, contentOf(std::string(readFrame(input.path).bytes())), false);
  }
  // Their writer would copy a day that no calendar has.
  if (!orvacam::Header::read(source).time())
    throw Failure("has a capture time that cannot be, and fixed files need one");
  try {
    orvacam::convert_file(
        source, m_style.format == Format::Tiff ? orvacam::FileFormat::tiff : orvacam::FileFormat::fits,
        work.path() + "/frame.raw", m_options.corrections.dsnu, m_options.corrections.prnu);
  } catch (const orvacam::Error& error) {
    const bool ofInput = error.path() == source || error.path() == m_options.corrections.dsnu ||
                         error.path() == m_options.corrections.prnu;
    if (error.reason() != orvacam::Reason::io || ofInput) throw;
    throw files::WriteError(target(input, ""), error.what());
  }
  Outcome outcome;
  for (const char* const suffix : {"", "_LOW", "_HIGH", "_MERGED"}) {
    const std::string made = work.path() + "/frame" + suffix + extension();
    std::error_code none;
    if (!std::filesystem::exists(made, none)) continue;
    const std::string path = target(input, suffix);
    if (m_skips && std::filesystem::exists(path, none)) continue;
    outcome.add(
        attempt(path, [&] { writeContent(path, contentOf(readAll(made)), m_options.outputs.overwrite); }));
  }
  return outcome.code();
}

void Conversion::prepare() {
  m_corrections = std::make_unique<Corrections>(m_options.corrections);
  if (!toOutput()) prepareFolder(m_options.folder);
  if (m_options.native)
    note("--native",
         m_style.format == Format::Tiff
             ? "standard readers show these TIFF files with a warning and without what the header says"
             : "standard readers refuse these FITS files or show every value 32768 too high");
}

int Conversion::convertOne(const Input& input) {
  if (isDone(input)) return Good;
  return m_options.native ? convertNative(input) : convertFrame(input);
}

/// A frame of a watched folder: what is cut off may be whole when more of it is written.
Fate Conversion::convertArrival(const Arrival& arrival) {
  const std::string& path = arrival.input.path;
  if (files::kindOf(path) != files::FileKind::Raw) return Fate::NoFrame;
  m_skips = m_options.outputs.skipExisting || (arrival.wasThere && !m_options.outputs.overwrite);
  m_inputs = {arrival.input};
  claimTargets();
  try {
    return convertOne(arrival.input) == Good ? Fate::Done : Fate::Failed;
  } catch (const orvacam::Error& error) {
    const bool ofFrame = error.path().empty() || error.path() == path;
    if (ofFrame && error.reason() == orvacam::Reason::truncated) return Fate::Unfinished;
    if (ofFrame && error.system_error() == ENOENT) return Fate::NoFrame;
    throw;
  }
}

int Conversion::run() {
  if (!m_options.watched.empty()) {
    prepare();
    return watchFolder(m_options.watched, m_options.inputs.recursive,
                       [this](const Arrival& arrival) { return convertArrival(arrival); });
  }
  if (toOutput() && m_inputs.size() != 1) throw UsageError("-o -: takes one input");
  claimTargets();
  prepare();
  return forEach(m_inputs, [&](const Input& input, std::string&) {
    requireUsable(input);
    return convertOne(input);
  });
}

int convert(const ConvertOptions& options) {
  return Conversion(options).run();
}

void describe(Command& c, ConvertOptions& o) {
  addInputs(c, o.inputs);
  c.add("--watch", &o.watched, "Convert the frames that are in a folder and those that come, until stopped",
        folderValue());
  addJobs(c);
  c.add("-o,--output", &o.folder, "The folder to write to, made when it is missing; - for standard output",
        folderValue())
      .required();
  c.add("-f,--format", &o.format, "Format of the files", oneOf("FORMAT", formatNames()));
  c.add("--planes", &o.planes, "Write these planes only", oneOf("PLANE,...", planeNames()).commas());
  c.add("--single-file", o.singleFile, "All planes of a frame in one FITS file, as extensions");
  c.add("--compress", &o.compress, "Compress FITS files without loss", oneOf("METHOD", {"rice"}));
  c.add("--crop", &o.crop, "image: leave reference rows and pixels out", oneOf("PART", {"none", "image"}));
  c.add("--native", o.native, "The library's own fixed FITS and TIFF files, for programs that know them");
  addCorrections(c, o.corrections);
  addOutputs(c, o.outputs, true);
}

int checked(const ConvertOptions& o) {
  requireApart(o.corrections);
  requireApart(o.outputs);
  requireMerged(o.corrections, o.planes, "--planes");
  const bool fits = o.format == "fits";
  if (!o.compress.empty() && !fits) throw UsageError("--compress: the format " + o.format + " has none");
  if (o.singleFile && !fits) throw UsageError("--single-file: the format " + o.format + " has none");
  if (o.native && !fits && o.format != "tiff") throw UsageError("--native: there are fits and tiff only");
  requireApart(o.native, "--native", !o.compress.empty(), "--compress");
  requireApart(o.native, "--native", o.crop != "none", "--crop");
  requireApart(o.native, "--native", !o.planes.empty(), "--planes");
  requireApart(o.native, "--native", o.singleFile, "--single-file");
  requireApart(o.native, "--native", o.outputs.reproducible, "--reproducible");
  requireApart(o.native, "--native", !o.corrections.bias.empty(), "--bias");
  requireApart(o.native, "--native", o.corrections.hasThresholds, "--thresholds");
  requireApart(o.native, "--native", !o.corrections.calibration.empty(), "--calibration");
  requireApart(o.native, "--native", o.folder == "-", "-o -");
  const bool watches = !o.watched.empty();
  requireApart(watches, "--watch", !o.inputs.files.empty(), "FILE");
  requireApart(watches, "--watch", !o.inputs.list.empty(), "--files-from");
  requireApart(watches, "--watch", o.folder == "-", "-o -");
  return convert(o);
}

}  // namespace

Command convertCommand() {
  return commandOf<ConvertOptions>(
      "convert", "Convert raw frames to FITS, TIFF, PNG or numpy files.",
      {"orvacam convert night/ -o fits", "orvacam convert frame.raw -o images -f tiff --planes merged",
       "orvacam convert --watch /camera/tonight -o fits --compress rice"},
      describe, checked);
}

}  // namespace tool
