// orvacam simulate: a raw frame of a night sky, or what calibrates the camera.

#include <cmath>
#include <optional>
#include <orvacam.hpp>

#include "Commands.h"
#include "Inputs.h"
#include "PlaneFile.h"
#include "files/Json.h"
#include "simulator/Instrument.h"
#include "simulator/Scene.h"

namespace tool {

namespace sim = orvacam::simulator;

namespace {

struct SimulateOptions {
  std::string camera, output, mode = "single", dsnu, prnu;
  unsigned version = 3;
  sim::HeaderFields geometry;
  unsigned width = 1024, height = 1024, quadrants = 0x3C;
  sim::Sky sky;
  std::string type, truth;  ///< "" for the sky that needs no calibration
  std::optional<double> exposure, level, readNoise, columnNoise;
  unsigned hotPixels = 0, blinking = 0, deadPixels = 0;
  bool overwrite = false;
};

/// The header of the frame that was asked for. Throws UsageError.
sim::HeaderFields headerOf(const sim::Camera& camera, const SimulateOptions& options) {
  const auto header = sim::headerFor(camera, options.mode);
  if (!header)
    throw UsageError("--mode: the " + std::string(camera.name) + " has no mode '" + options.mode + "'");
  sim::HeaderFields fields = *header;
  const sim::HeaderFields& given = options.geometry;
  fields.width = options.width;
  fields.height = options.height;
  fields.preRefPixels = given.preRefPixels;
  fields.postRefPixels = given.postRefPixels;
  fields.preRefRows = given.preRefRows;
  fields.postRefRows = given.postRefRows;
  fields.horizontalBinning = given.horizontalBinning;
  fields.verticalBinning = given.verticalBinning;
  fields.lowGain = given.lowGain;
  fields.highGain = given.highGain;
  if (options.exposure) fields.exposure = static_cast<unsigned>(std::round(*options.exposure * 1e5));
  fields.frameNumber = given.frameNumber;
  if (camera.ccd) fields.quadrants = options.quadrants;
  if (options.type == "bias") fields.exposure = 0;
  if (!options.type.empty()) fields = sim::withGains(camera, fields);

  sim::HeaderFields written = sim::asVersion(fields, options.version);
  if (written.quadrants != fields.quadrants)
    throw UsageError("--header-version: only versions 3 and 4 say which amplifiers read a CCD");
  if (written.correlatedMultipleSampling != fields.correlatedMultipleSampling)
    throw UsageError("--header-version: only versions 3 and 4 tell the mode 'cms'");
  return written;
}

/// Refuses what cannot be decoded again.
void requireDecodable(const std::vector<unsigned char>& bytes) {
  for (const orvacam::Finding& finding : orvacam::Frame::view(bytes.data(), bytes.size()).check())
    if (finding.severity == orvacam::Finding::Severity::error)
      throw UsageError("such a frame could not be decoded: it " + finding.text);
}

Content rawContent(const std::vector<unsigned char>& bytes) {
  return tool::contentOf(std::string(bytes.begin(), bytes.end()));
}

/// What goes together; --truth and the like speak of the camera that --type brings in.
SimulateOptions completed(SimulateOptions o) {
  const bool known =
      !o.truth.empty() || o.readNoise || o.columnNoise || o.hotPixels + o.blinking + o.deadPixels > 0;
  if (o.type.empty() && known) o.type = "light";
  if (o.type == "bias" && o.exposure.value_or(0) > 0) throw UsageError("--exposure: a bias frame has none");
  if (o.level && o.type != "flat") throw UsageError("--level: only flats have one (--type flat)");
  if (o.type.empty()) return o;
  if (!o.dsnu.empty() || !o.prnu.empty())
    throw UsageError(std::string(o.dsnu.empty() ? "--prnu" : "--dsnu") +
                     ": 'orvacam calibrate' makes the reference files of this camera");
  if (o.mode == "cms") throw UsageError("--mode: sampled frames do not show electrons");
  return o;
}

sim::Instrument instrumentOf(const SimulateOptions& o) {
  sim::Instrument instrument;
  instrument.seed = o.sky.seed;
  instrument.readNoise = o.readNoise.value_or(instrument.readNoise);
  instrument.columnNoise = o.columnNoise.value_or(instrument.columnNoise);
  instrument.hotPixels = o.hotPixels;
  instrument.blinking = o.blinking;
  instrument.deadPixels = o.deadPixels;
  return instrument;
}

std::vector<sim::Plane> expose(const sim::Camera& camera, const sim::HeaderFields& fields,
                               const SimulateOptions& options) {
  if (options.type.empty()) return sim::exposeSky(camera, fields, options.sky);
  const sim::FrameType type = options.type == "light"  ? sim::FrameType::Light
                              : options.type == "bias" ? sim::FrameType::Bias
                              : options.type == "dark" ? sim::FrameType::Dark
                                                       : sim::FrameType::Flat;
  const double level = options.level ? *options.level : sim::usualLevel(camera, fields);
  return sim::exposeFrame(camera, fields, instrumentOf(options), type, level, options.sky);
}

std::string places(const std::vector<sim::Place>& all) {
  files::JsonList list;
  for (const sim::Place& place : all)
    list.raw("[" + std::to_string(place.x) + ", " + std::to_string(place.y) + "]");
  return list.str();
}

/// {"schema": "orvacam.truth/1", ...}
std::string truthText(const sim::Truth& truth) {
  files::JsonObject planes;
  for (const sim::PlaneTruth& plane : truth.planes) {
    files::JsonObject values;
    values.number("offset_adu", plane.offset).number("gain_e_per_adu", plane.gain);
    values.number("read_noise_e", plane.readNoise).number("dark_current_e_per_s", plane.darkCurrent);
    values.number("column_noise_e", plane.columnNoise).number("row_noise_e", plane.rowNoise);
    values.number("pixel_noise_e", plane.pixelNoise).number("prnu_percent", plane.responsePercent);
    values.number("saturation_e", (plane.fullScale - plane.offset) * plane.gain);
    values.raw("hot_pixels", places(truth.hot)).raw("blinking_pixels", places(truth.blinking));
    values.raw("dead_pixels", places(truth.dead));
    planes.raw(plane.name, values.str());
  }
  files::JsonObject whole;
  whole.text("schema", "orvacam.truth/1");
  if (truth.ratio > 0) whole.number("ratio", truth.ratio);
  return whole.raw("planes", planes.str()).str() + "\n";
}

int simulate(const SimulateOptions& given) {
  const SimulateOptions options = completed(given);
  const sim::Camera* const camera = sim::findCamera(options.camera);
  const sim::HeaderFields fields = headerOf(*camera, options);
  Targets targets;
  for (const std::string& path : {options.output, options.dsnu, options.prnu, options.truth})
    if (!path.empty()) targets.claim(path);
  const std::vector<unsigned char> frame =
      sim::encodeFrame(fields, options.version, expose(*camera, fields, options));
  requireDecodable(frame);
  Outcome outcome;
  const auto write = [&](const std::string& path, const std::vector<unsigned char>& bytes) {
    if (path != "-") files::OutputFile::cleanUp(files::folderOf(path));
    outcome.add(attempt(path, [&] { writeContent(path, rawContent(bytes), options.overwrite); }));
  };
  write(options.output, frame);
  if (!options.dsnu.empty()) write(options.dsnu, sim::dsnuFile(*camera, fields, options.sky));
  if (!options.prnu.empty()) write(options.prnu, sim::prnuFile(*camera, fields, options.sky));
  if (!options.truth.empty()) {
    const std::string text = truthText(sim::truthOf(*camera, fields, instrumentOf(options)));
    write(options.truth, {text.begin(), text.end()});
  }
  return outcome.code();
}

/// What the frames of a camera with known properties are made of.
void describeInstrument(Command& c, SimulateOptions& o) {
  c.add("--type", &o.type,
        "A frame of a camera that is to be calibrated, with dark current, offsets and noise of its own: the "
        "sky, "
        "or what calibrates it",
        oneOf("TYPE", {"light", "bias", "dark", "flat"}));
  c.add("--level", &o.level,
        "Mean electrons of a flat; half of what the channel of the higher gain holds when it is not given",
        number(0, 1e7, "ELECTRONS"));
  c.add("--read-noise", &o.readNoise,
        "Of the channel of the higher gain (4); the other one has it, too, and half a count",
        number(0, 1e5, "ELECTRONS"));
  c.add("--column-noise", &o.columnNoise, "Deviation of the columns' fixed offsets in the same channel (2)",
        number(0, 1e5, "ELECTRONS"));
  c.add("--hot-pixels", &o.hotPixels, "Pixels with a dark current far above the others'",
        wholeNumber(0, 1000000));
  c.add("--blinking", &o.blinking, "Pixels that read much more in every other frame or so",
        wholeNumber(0, 1000000));
  c.add("--dead-pixels", &o.deadPixels, "Pixels with a tenth of the response", wholeNumber(0, 1000000));
  c.add("--truth", &o.truth, "Also write what is true of this camera: gains, noise, offsets, defects",
        fileValue("FILE.json"));
}

void describe(Command& c, SimulateOptions& o) {
  sim::HeaderFields& f = o.geometry;
  c.add("CAMERA", &o.camera, "The camera", oneOf("CAMERA", cameraNames())).required().anyCase();
  c.add("-o,--output", &o.output, "The file to write", fileValue()).required();
  c.add("--mode", &o.mode, "Read-out mode", oneOf("MODE", modeNames()));
  c.add("--header-version", &o.version, "Version of the frame's header", wholeNumber(1, 4));
  c.add("--width", &o.width, "Image width", wholeNumber(1, 16384));
  c.add("--height", &o.height, "Image height", wholeNumber(1, 16384));
  c.add("--pre-pixels", &f.preRefPixels, "Reference pixels ahead of each row", wholeNumber(0, 255));
  c.add("--post-pixels", &f.postRefPixels, "Reference pixels behind each row", wholeNumber(0, 255));
  c.add("--pre-rows", &f.preRefRows, "Reference rows ahead of the image", wholeNumber(0, 4095));
  c.add("--post-rows", &f.postRefRows, "Reference rows behind the image", wholeNumber(0, 4095));
  c.add("--bin-x", &f.horizontalBinning, "Horizontal binning", wholeNumber(1, 255));
  c.add("--bin-y", &f.verticalBinning, "Vertical binning", wholeNumber(1, 255));
  c.add("--low-gain", &f.lowGain, "Low gain index", wholeNumber(0, 255));
  c.add("--high-gain", &f.highGain, "High gain index", wholeNumber(0, 255));
  c.add("--exposure", &o.exposure, "Exposure; 0 in bias frames, else 1 when it is not given",
        number(0, 42949, "SECONDS"));
  c.add("--frame-number", &f.frameNumber, "Number of the frame: other noise of the same camera and scene",
        wholeNumber(0, 65535));
  c.add("--quadrants", &o.quadrants, "Amplifiers in use (CCD): 0x20 UL, 0x10 UR, 0x08 LL, 0x04 LR",
        wholeNumber(0, 0x3C));
  c.add("--seed", &o.sky.seed, "Another camera under another sky", wholeNumber(0, 9007199254740991));
  c.add("--stars", &o.sky.stars, "Number of stars", wholeNumber(0, 100000));
  c.add("--background", &o.sky.background, "Electrons per pixel", number(0, 1e9));
  describeInstrument(c, o);
  c.add("--dsnu", &o.dsnu, "Also write the DSNU file that undoes the fixed pattern", fileValue());
  c.add("--prnu", &o.prnu, "Also write the PRNU file that undoes the fixed pattern", fileValue());
  c.add("--overwrite", o.overwrite, "Replace files that exist");
}

}  // namespace

Command simulateCommand() {
  return commandOf<SimulateOptions>(
      "simulate", "Make a raw frame: of a night sky, or what calibrates the camera.",
      {"orvacam simulate GSENSE400 --mode hdr -o frame.raw",
       "orvacam simulate GSENSE400 --mode hdr --type dark --exposure 30 -o dark.raw"},
      describe, simulate);
}

}  // namespace tool
