// orvacam simulate: a raw frame of a night sky.

#include <orvacam.hpp>

#include "Inputs.h"
#include "PlaneFile.h"
#include "simulator/Scene.h"

namespace tool {

namespace sim = orvacam::simulator;

namespace {

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

}  // namespace

int simulate(const SimulateOptions& options) {
  const sim::Camera* const camera = sim::findCamera(options.camera);
  if (camera == nullptr) {
    std::vector<std::string> names;
    for (const sim::Camera& each : sim::cameras())
      names.emplace_back(each.name);
    const std::string near = nearest(options.camera, names);
    std::string all;
    for (const std::string& name : names)
      all += (all.empty() ? "" : ", ") + name;
    throw UsageError("there is no camera '" + options.camera + "'" +
                     (near.empty() ? "; there are " + all : "; did you mean '" + near + "'?"));
  }
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

}  // namespace tool
