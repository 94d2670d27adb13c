// orvacam measure: what a camera is, from pairs of flats and darks.

#include <iostream>
#include <map>

#include "Commands.h"
#include "Corrections.h"
#include "Inputs.h"
#include "MeasureReport.h"
#include "PlaneFile.h"
#include "files/Sha256.h"

namespace tool {

namespace science = orvacam::science;

namespace {

struct MeasureOptions {
  std::vector<std::string> flats, darks;
  CorrectionOptions corrections;
  std::string folder;
  bool json = false, overwrite = false;
};

/// The frames that names stand for. Throws UsageError, science::Refused.
std::vector<std::string> framesOf(const std::vector<std::string>& names) {
  InputOptions options;
  options.files = names;
  std::vector<std::string> paths;
  for (const Input& input : inputsOf(options)) {
    if (input.path == "-")
      throw UsageError("measure: frames are read more than once, which standard input cannot be");
    if (!input.wrong.empty()) throw science::Refused(input.path, input.wrong);
    paths.push_back(input.path);
  }
  return paths;
}

/// Reads frames and knows each again, so that none counts twice. What it remembers is claimed before the
/// first is read: between frames that come and go it would keep their memory from being used again.
class FrameReader {
 public:
  explicit FrameReader(const Corrections& corrections) : m_corrections(corrections) {}

  /// Throws science::Refused for a file that comes twice, whatever its names.
  void claim(const std::string& path) {
    const Identity identity = identityOf(path);
    const auto [first, isNew] = m_files.insert({identity, path});
    if (!isNew && identity != Identity{0, 0})  // reading what is not there will say so
      throw science::Refused(
          path, first->second == path ? "is given twice" : "is given twice, also as " + first->second);
    m_sums.insert({path, std::string(hexDigits, ' ')});
  }

  /// Throws what reading does, and science::Refused for a copy of another frame and for corrections that do
  /// not apply.
  orvacam::Frame operator()(const std::string& path) {
    orvacam::Frame frame = orvacam::Frame::read(path);
    try {
      m_corrections.requireApplicable(frame);
    } catch (const Failure& failure) {
      throw science::Refused(path, failure.what());
    }
    std::string& sum = m_sums.at(path);
    if (sum.front() == ' ') {
      const std::string_view bytes = frame.bytes();
      const std::string own = files::sha256(bytes.data(), bytes.size());
      for (const auto& [other, known] : m_sums)
        if (known == own) throw science::Refused(path, "holds the same frame as " + other);
      sum.replace(0, hexDigits, own);
    }
    return frame;
  }

 private:
  static constexpr std::size_t hexDigits = 64;

  const Corrections& m_corrections;
  std::map<Identity, std::string> m_files;
  std::map<std::string, std::string> m_sums;  // by path, SHA-256; blank until it is read
};

/// As the gains in the header have it, whatever the corrections.
double tableRatio(const science::CameraMeasurement& measured) {
  return orvacam::Decoder().merge_info(measured.first.value()).gain_ratio;
}

int measured(const MeasureOptions& options) {
  const std::vector<std::string> flats = framesOf(options.flats), darks = framesOf(options.darks);
  const std::string curve = options.folder.empty() ? "" : options.folder + "/photon_transfer.csv";
  Corrections corrections(options.corrections);
  FrameReader reader(corrections);
  Targets targets;
  addInputs(targets, options.corrections);
  for (const auto* const paths : {&flats, &darks})
    for (const std::string& path : *paths) {
      targets.isInput(path);
      reader.claim(path);
    }
  if (!curve.empty()) targets.claim(curve);
  const science::CameraMeasurement result = science::measureCamera(
      {flats, darks, [&](const std::string& path) { return reader(path); }, corrections.decoder()});
  std::cout << (options.json ? jsonOf(result, tableRatio(result)) + "\n" : textOf(result));
  if (curve.empty()) return Good;
  return attempt(curve, [&] {
    prepareFolder(options.folder);
    writeContent(curve, contentOf(csvOf(result)), options.overwrite);
  });
}

int measure(const MeasureOptions& options) {
  return attemptCode("", [&]() -> int {
    try {
      return measured(options);
    } catch (const science::Refused& refused) {
      complain(refused.path(), refused.what());
      return Failed;
    }
  });
}

void describe(Command& c, MeasureOptions& o) {
  c.add("--flats", &o.flats, "Flats of rising levels, two or more of each exposure; folders of them",
        framesValue("FRAME").words())
      .required();
  c.add("--darks", &o.darks, "Darks, two or more of each exposure of the flats; folders of them",
        framesValue("FRAME").words())
      .required();
  c.add("-o,--output", &o.folder, "The folder for photon_transfer.csv, made when it is missing",
        folderValue());
  c.add("--json", o.json, "An object with all numbers, their errors and the curves");
  c.add("--overwrite", o.overwrite, "Replace a file that exists");
  addMergeCorrections(c, o.corrections);
}

}  // namespace

Command measureCommand() {
  return commandOf<MeasureOptions>(
      "measure", "Measure gain, noise, linearity and uniformity of a camera (EMVA 1288).",
      {"orvacam measure --flats flats/ --darks darks/ -o report"}, describe, measure);
}

}  // namespace tool
