#ifndef ORVACAM_TOOL_OPTIONS_H
#define ORVACAM_TOOL_OPTIONS_H

#include <string>
#include <vector>

#include "simulator/Header.h"
#include "simulator/Scene.h"

// What the commands are told, as plain values: Options.cpp alone knows how a command line is read.

namespace tool {

struct InputOptions {
  std::vector<std::string> files;
  std::string list;  ///< --files-from
  bool nulEnded = false, recursive = false;
};

struct CorrectionOptions {
  std::string dsnu, prnu, bias, calibration;
  bool hasThresholds = false;
  unsigned high = 0, difference = 0;
};

struct OutputOptions {
  bool overwrite = false, skipExisting = false, reproducible = false;
};

struct ConvertOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  OutputOptions outputs;
  std::string folder, format = "fits", compress, crop = "none";
  std::vector<std::string> planes;
  bool singleFile = false, native = false;
};

struct InfoOptions {
  InputOptions inputs;
  bool json = false, csv = false;
  std::vector<std::string> keys;
};

struct StatsOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  bool json = false, overwrite = false;
  std::string histogram;
};

struct CheckOptions {
  InputOptions inputs;
  bool json = false, strict = false;
};

struct StackOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  OutputOptions outputs;
  std::string output, format, method = "mean", type = "float32", plane;
  bool force = false;
};

struct RoiOptions {
  std::string file, output, format, plane;
  CorrectionOptions corrections;
  OutputOptions outputs;
  unsigned x = 0, y = 0, width = 0, height = 0;
};

struct PreviewOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  OutputOptions outputs;
  std::string folder, plane, stretch = "auto";
  unsigned longest = 2048;
};

struct RepairOptions {
  InputOptions inputs;
  OutputOptions outputs;
  std::string folder, raw, dsnu, prnu;
};

struct GainsOptions {
  std::string sensor, calibration;
  bool backSideIlluminated = false;
};

struct SimulateOptions {
  std::string camera, output, mode = "single", dsnu, prnu;
  unsigned version = 3;
  orvacam::simulator::HeaderFields geometry;
  unsigned width = 1024, height = 1024, quadrants = 0x3C;
  orvacam::simulator::Sky sky;
  bool overwrite = false;
};

// The commands: each gives the exit code.
int convert(const ConvertOptions& options);
int info(const InfoOptions& options);
int stats(const StatsOptions& options);
int check(const CheckOptions& options);
int stack(const StackOptions& options);
int roi(const RoiOptions& options);
int preview(const PreviewOptions& options);
int repair(const RepairOptions& options);
int gains(const GainsOptions& options);
int simulate(const SimulateOptions& options);

/// The whole program but for what a process does once.
int runProgram(int argc, char** argv);

}  // namespace tool

#endif  // ORVACAM_TOOL_OPTIONS_H
