// orvacam measure: what a camera is, from pairs of flats and darks.

#include <iostream>

#include "Commands.h"
#include "Corrections.h"
#include "FrameReader.h"
#include "Inputs.h"
#include "MeasureReport.h"
#include "PlaneFile.h"

namespace tool {

namespace science = orvacam::science;

namespace {

struct MeasureOptions {
  std::vector<std::string> flats, darks;
  CorrectionOptions corrections;
  std::string folder;
  bool json = false, overwrite = false;
};

/// Throws UsageError, science::Refused.
std::vector<std::string> framesOf(const std::vector<std::string>& names) {
  InputOptions options;
  options.files = names;
  return framesToReread("measure", options);
}

/// As the gains in the header have it, whatever the corrections.
double tableRatio(const science::CameraMeasurement& measured) {
  return orvacam::Decoder().merge_info(measured.first.value()).gain_ratio;
}

int measured(const MeasureOptions& options) {
  const std::vector<std::string> flats = framesOf(options.flats), darks = framesOf(options.darks);
  const std::string curve = options.folder.empty() ? "" : options.folder + "/photon_transfer.csv";
  Corrections corrections(options.corrections);
  FrameReader reader;
  const auto read = [&](const std::string& path) {
    orvacam::Frame frame = reader.read(path);
    try {
      corrections.requireApplicable(frame);
    } catch (const Failure& failure) {
      throw science::Refused(path, failure.what());
    }
    return frame;
  };
  Targets targets;
  addInputs(targets, options.corrections);
  for (const auto* const paths : {&flats, &darks})
    for (const std::string& path : *paths) {
      targets.isInput(path);
      reader.claim(path);
    }
  if (!curve.empty()) targets.claim(curve);
  const science::CameraMeasurement result =
      science::measureCamera({flats, darks, read, corrections.decoder()});
  reader.end();
  std::cout << (options.json ? jsonOf(result, tableRatio(result)) + "\n" : textOf(result));
  if (curve.empty()) return Good;
  return attempt(curve, [&] {
    prepareFolder(options.folder);
    writeContent(curve, contentOf(csvOf(result)), options.overwrite);
  });
}

int measure(const MeasureOptions& options) {
  requireNamed(options.folder, "--output");
  freeFramesAtOnce();
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
  addSpeech(c);
}

}  // namespace

Command measureCommand() {
  return commandOf<MeasureOptions>(
      "measure", "Measure gain, noise, linearity and uniformity of a camera (EMVA 1288).",
      {"orvacam measure --flats flats/ --darks darks/ -o report"}, describe, measure);
}

}  // namespace tool
