// orvacam calibrate: bias files, DSNU and PRNU reference files from raw frames.

#include <cstdlib>
#include <iostream>

#include "CalibrationReport.h"
#include "Commands.h"
#include "FrameReader.h"
#include "files/OutputFile.h"
#include "science/Refused.h"

namespace tool {

namespace science = orvacam::science;
using science::CalibrationKind;

namespace {

struct CalibrateOptions {
  std::string kind;
  InputOptions inputs;
  std::string output, hotPixels, mask, dark, bias, ratio;
  std::optional<double> pedestal;
  CorrectionOptions merge;  ///< its thresholds
  std::uint64_t memory = std::uint64_t{1} << 30;
  bool json = false, overwrite = false;
};

CalibrationKind kindOf(const CalibrateOptions& o) {
  return o.kind == "bias"   ? CalibrationKind::bias
         : o.kind == "dark" ? CalibrationKind::dark
                            : CalibrationKind::flat;
}

/// "table", "measured" or a number.
void readRatio(const CalibrateOptions& o, science::CalibrationSource& source) {
  if (o.ratio.empty() || o.ratio == "table") return;
  if (o.ratio == "measured") {
    if (source.kind != CalibrationKind::flat)
      throw UsageError("--ratio: flats alone show the ratio: 'measured' is for them");
    source.measuredRatio = true;
    return;
  }
  char* end = nullptr;
  const double number = std::strtod(o.ratio.c_str(), &end);
  if (*end != '\0' || !(number > 0) || !(number < 64))
    throw UsageError("--ratio: '" + o.ratio +
                     "' is not 'table', 'measured' or a number above 0 and below 64");
  source.ratio = number;
}

/// What the options ask for. Throws UsageError for what does not go together.
science::CalibrationSource sourceOf(const CalibrateOptions& o) {
  science::CalibrationSource source;
  source.kind = kindOf(o);
  const bool flat = source.kind == CalibrationKind::flat;
  if (!flat && !o.dark.empty()) throw UsageError("--dark: only flats need one");
  if (!flat && !o.bias.empty()) throw UsageError("--bias: only flats need one");
  requireApart(!o.dark.empty(), "--dark", !o.bias.empty(), "--bias");
  // The report goes there.
  for (const auto& [path, option] :
       {std::pair(o.output, "--output"), std::pair(o.hotPixels, "--hot-pixels"), std::pair(o.mask, "--mask")})
    requireNamed(path, option);
  if (flat && o.dark.empty() && o.bias.empty())
    throw UsageError("calibrate flat: needs --dark or --bias, which take the offset off");
  if (o.pedestal && source.kind != CalibrationKind::dark) throw UsageError("--pedestal: it belongs to darks");
  if (!o.ratio.empty() && source.kind == CalibrationKind::bias)
    throw UsageError("--ratio: a bias file has none");
  if (o.merge.hasThresholds && source.kind != CalibrationKind::dark)
    throw UsageError("--thresholds: they limit the pedestal, which belongs to darks");
  if (o.merge.hasThresholds) source.highThreshold = o.merge.high;
  readRatio(o, source);
  if (o.pedestal) source.pedestal = static_cast<unsigned>(*o.pedestal);
  source.dark = o.dark;
  source.bias = o.bias;
  source.memory = o.memory;
  return source;
}

void report(const CalibrateOptions& o, const science::Calibration& result) {
  for (const std::string& warning : result.warnings)
    note(o.output, warning);
  std::cout << (o.json ? jsonOf(result) + "\n" : textOf(result));
}

int calibrated(const CalibrateOptions& o) {
  science::CalibrationSource source = sourceOf(o);
  source.frames = framesToReread("calibrate", o.inputs);
  FrameReader reader;
  Targets targets;
  for (const std::string& path : {o.dark, o.bias})
    if (!path.empty()) targets.isInput(path);
  for (const std::string& path : source.frames)
    targets.isInput(path);
  for (const std::string& path : {o.output, o.hotPixels, o.mask})
    if (!path.empty()) targets.claim(path);
  for (const std::string& path : source.frames)
    reader.claim(path);
  requireAnyWritable({o.output, o.hotPixels, o.mask}, o.overwrite);
  source.read = [&reader](const std::string& path) { return reader.read(path); };
  const science::Calibration result = science::calibrate(source);
  reader.end();
  report(o, result);
  Outcome outcome;
  const auto write = [&](const std::string& path, const Content& content) {
    if (path.empty()) return;
    files::OutputFile::cleanUp(files::folderOf(path));
    outcome.add(attempt(path, [&] { writeContent(path, content, o.overwrite); }));
  };
  write(o.output, contentOf(result.file));
  write(o.hotPixels, contentOf(csvOf(result)));
  if (!o.mask.empty()) write(o.mask, maskOf(result));
  return outcome.code();
}

int calibrate(const CalibrateOptions& options) {
  freeFramesAtOnce();
  return attemptCode("", [&]() -> int {
    try {
      return calibrated(options);
    } catch (const science::Refused& refused) {
      complain(refused.path().empty() ? options.output : refused.path(), refused.what());
      return Failed;
    }
  });
}

void describe(Command& c, CalibrateOptions& o) {
  c.add("KIND", &o.kind, "What the frames are, and so what is made: a bias file, a DSNU file, a PRNU file",
        oneOf("KIND", {"bias", "dark", "flat"}))
      .required();
  addInputs(c, o.inputs, "Raw frames of one kind and setting, two at least, ten to be good; folders of them");
  c.add("-o,--output", &o.output, "The reference file to write", fileValue()).required();
  c.add("--dark", &o.dark, "Of flats: the DSNU file that takes offset and dark current off", fileValue());
  c.add("--bias", &o.bias, "Of flats: the bias file that takes the offset off", fileValue());
  c.add(
      "--pedestal", &o.pedestal,
      "Of darks: counts that stay in the merged image, so that noise is not cut off at 0; the smallest good "
      "number when it is not given",
      wholeNumber(0, 4095));
  addThresholds(c, o.merge);
  c.add("--ratio", &o.ratio,
        "Gain ratio of darks and flats: 'table' (by the header's gains; the usual), a number, or of flats "
        "'measured'",
        textValue("RATIO"));
  c.add("--hot-pixels", &o.hotPixels, "Also list hot, dead and blinking pixels", fileValue("FILE.csv"));
  c.add("--mask", &o.mask, "Also write them as a FITS mask: 1 hot, 2 dead, 4 blinking",
        fileValue("FILE.fits"));
  c.add("--json", o.json, "The report as an object");
  addMemory(c, o.memory);
  c.add("--overwrite", o.overwrite, "Replace files that exist");
}

}  // namespace

Command calibrateCommand() {
  return commandOf<CalibrateOptions>("calibrate",
                                     "Make bias, DSNU and PRNU files of a camera, and say how good it is.",
                                     {"orvacam calibrate dark darks/ -o camera.dsnu",
                                      "orvacam calibrate flat flats/ --dark camera.dsnu -o camera.prnu",
                                      "orvacam convert night/ --dsnu camera.dsnu --prnu camera.prnu -o fits"},
                                     describe, calibrate);
}

}  // namespace tool
