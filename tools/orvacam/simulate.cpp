// orvacam simulate: a raw frame of a night sky.

#include <orvacam.hpp>

#include "Commands.h"
#include "Inputs.h"
#include "PlaneFile.h"
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
  fields.exposure = given.exposure;
  fields.frameNumber = given.frameNumber;
  if (camera.ccd) fields.quadrants = options.quadrants;

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

Content contentOf(const std::vector<unsigned char>& bytes) {
  return tool::contentOf(std::string(bytes.begin(), bytes.end()));
}

int simulate(const SimulateOptions& options) {
  const sim::Camera* const camera = sim::findCamera(options.camera);
  const sim::HeaderFields fields = headerOf(*camera, options);
  Targets targets;
  for (const std::string& path : {options.output, options.dsnu, options.prnu})
    if (!path.empty()) targets.claim(path);
  const std::vector<unsigned char> frame =
      sim::encodeFrame(fields, options.version, sim::exposeSky(*camera, fields, options.sky));
  requireDecodable(frame);
  Outcome outcome;
  const auto write = [&](const std::string& path, const std::vector<unsigned char>& bytes) {
    if (path != "-") files::OutputFile::cleanUp(files::folderOf(path));
    outcome.add(attempt(path, [&] { writeContent(path, contentOf(bytes), options.overwrite); }));
  };
  write(options.output, frame);
  if (!options.dsnu.empty()) write(options.dsnu, sim::dsnuFile(*camera, fields, options.sky));
  if (!options.prnu.empty()) write(options.prnu, sim::prnuFile(*camera, fields, options.sky));
  return outcome.code();
}

void describe(Command& c, SimulateOptions& o) {
  sim::HeaderFields& f = o.geometry;
  c.add("CAMERA", &o.camera, "The camera", oneOf("CAMERA", cameraNames())).required().anyCase();
  c.add("-o,--output", &o.output, "The file to write", fileValue()).required();
  c.add("--mode", &o.mode, "Read-out mode", oneOf("MODE", {"single", "hdr", "16bit", "cms"}));
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
  c.add("--exposure", &f.exposure, "Exposure in 10 us periods", wholeNumber());
  c.add("--frame-number", &f.frameNumber, "Number of the frame", wholeNumber(0, 65535));
  c.add("--quadrants", &o.quadrants, "Amplifiers in use (CCD): 0x20 UL, 0x10 UR, 0x08 LL, 0x04 LR",
        wholeNumber(0, 0x3C));
  c.add("--seed", &o.sky.seed, "Another sky", wholeNumber(0, 9007199254740991));
  c.add("--stars", &o.sky.stars, "Number of stars", wholeNumber(0, 100000));
  c.add("--background", &o.sky.background, "Electrons per pixel", number(0, 1e9));
  c.add("--dsnu", &o.dsnu, "Also write the DSNU file that undoes the fixed pattern", fileValue());
  c.add("--prnu", &o.prnu, "Also write the PRNU file that undoes the fixed pattern", fileValue());
  c.add("--overwrite", o.overwrite, "Replace files that exist");
}

}  // namespace

Command simulateCommand() {
  return commandOf<SimulateOptions>("simulate", "Make a raw frame of a night sky.",
                                    {"orvacam simulate GSENSE400 --mode hdr -o frame.raw"}, describe,
                                    simulate);
}

}  // namespace tool
