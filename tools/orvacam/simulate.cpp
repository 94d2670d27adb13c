// orvacam simulate: a raw frame of a night sky.

#include <CLI/CLI.hpp>

#include "common.h"
#include "simulator/Scene.h"

namespace tool {

namespace sim = orvacam::simulator;

namespace {

struct Options {
  std::string camera;
  std::string output;
  std::string mode = "single";
  std::string dsnu;
  std::string prnu;
  unsigned int version = 3;
  sim::HeaderFields geometry;
  unsigned int width = 1024, height = 1024;
  unsigned int quadrants = 0x3C;
  sim::Sky sky;
};

std::string cameraNames() {
  std::string names;
  for (const sim::Camera& camera : sim::cameras())
    names += (names.empty() ? "" : ", ") + std::string(camera.name);
  return names;
}

/// The header of the frame that was asked for. Throws Failure.
sim::HeaderFields headerOf(const sim::Camera& camera, const Options& options) {
  const auto header = sim::headerFor(camera, options.mode);
  if (!header) throw Failure(std::string("the ") + camera.name + " has no mode '" + options.mode + "'");
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
    throw Failure("only header versions 3 and 4 say which amplifiers read a CCD");
  if (written.correlatedMultipleSampling != fields.correlatedMultipleSampling)
    throw Failure("only header versions 3 and 4 tell the mode 'cms'");
  return written;
}

int simulate(const Options& options) {
  const sim::Camera* const camera = sim::findCamera(options.camera);
  if (camera == nullptr) {
    complain(options.camera, "is no camera; there are " + cameraNames());
    return 1;
  }
  sim::HeaderFields fields;
  int exitCode = report(options.output, [&] {
    fields = headerOf(*camera, options);
    writeFile(options.output,
              sim::encodeFrame(fields, options.version, sim::exposeSky(*camera, fields, options.sky)));
  });
  if (exitCode != 0) return exitCode;
  if (!options.dsnu.empty())
    exitCode |=
        report(options.dsnu, [&] { writeFile(options.dsnu, sim::dsnuFile(*camera, fields, options.sky)); });
  if (!options.prnu.empty())
    exitCode |=
        report(options.prnu, [&] { writeFile(options.prnu, sim::prnuFile(*camera, fields, options.sky)); });
  return exitCode;
}

}  // namespace

void addSimulate(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  sim::HeaderFields& f = options->geometry;
  CLI::App* const command = app.add_subcommand("simulate", "Make a raw frame of a night sky.");
  command->add_option("MODEL", options->camera, "The camera: " + cameraNames())->required();
  command->add_option("-o,--output", options->output, "The file to write")->required();
  command->add_option("--mode", options->mode, "single, hdr, 16bit or cms")->capture_default_str();
  command->add_option("--header-version", options->version)->check(CLI::Range(1, 4))->capture_default_str();
  command->add_option("--width", options->width, "Image width")
      ->check(CLI::Range(1, 16384))
      ->capture_default_str();
  command->add_option("--height", options->height, "Image height")
      ->check(CLI::Range(1, 16384))
      ->capture_default_str();
  command->add_option("--pre-pixels", f.preRefPixels, "Reference pixels ahead of each row")
      ->check(CLI::Range(0, 255));
  command->add_option("--post-pixels", f.postRefPixels, "Reference pixels behind each row")
      ->check(CLI::Range(0, 255));
  command->add_option("--pre-rows", f.preRefRows, "Reference rows ahead of the image")
      ->check(CLI::Range(0, 4095));
  command->add_option("--post-rows", f.postRefRows, "Reference rows behind the image")
      ->check(CLI::Range(0, 4095));
  command->add_option("--bin-x", f.horizontalBinning, "Horizontal binning")->check(CLI::Range(1, 255));
  command->add_option("--bin-y", f.verticalBinning, "Vertical binning")->check(CLI::Range(1, 255));
  command->add_option("--low-gain", f.lowGain, "Low gain index")->check(CLI::Range(0, 255));
  command->add_option("--high-gain", f.highGain, "High gain index")->check(CLI::Range(0, 255));
  command->add_option("--exposure", f.exposure, "Exposure in 10 us periods");
  command->add_option("--frame-number", f.frameNumber)->check(CLI::Range(0, 65535));
  command
      ->add_option("--quadrants", options->quadrants,
                   "Amplifiers in use (CCD): 0x20 UL, 0x10 UR, 0x08 LL, 0x04 LR")
      ->check(CLI::Range(0, 0x3C));
  command->add_option("--seed", options->sky.seed)->capture_default_str();
  command->add_option("--stars", options->sky.stars)->check(CLI::Range(0, 100000))->capture_default_str();
  command->add_option("--background", options->sky.background, "Electrons per pixel")->capture_default_str();
  command->add_option("--dsnu", options->dsnu, "Also write the DSNU file that undoes the fixed pattern");
  command->add_option("--prnu", options->prnu, "Also write the PRNU file that undoes the fixed pattern");
  command->callback([options, &exitCode] { exitCode = simulate(*options); });
}

}  // namespace tool
