#ifndef ORVACAM_TOOL_OPTIONS_H
#define ORVACAM_TOOL_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "Command.h"

// Options that several commands have, as plain values, and how they stand on the command line.

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

/// FILE..., --recursive, --files-from, -0.
void addInputs(Command& command, InputOptions& options,
               const std::string& what = "Raw frames, folders of them, or - for standard input");
/// --jobs, for a command that works on its inputs with forEach.
void addJobs(Command& command);
/// --progress, --log; addInputs has them.
void addSpeech(Command& command);
/// --dsnu, --prnu, --bias, --thresholds, --calibration.
void addCorrections(Command& command, CorrectionOptions& options);
/// The same without --bias, which changes what is merged.
void addMergeCorrections(Command& command, CorrectionOptions& options);
/// --thresholds alone.
void addThresholds(Command& command, CorrectionOptions& options);
/// --overwrite, --skip-existing where frames can be skipped, --reproducible.
void addOutputs(Command& command, OutputOptions& options, bool canSkip);

/// --memory: a number of bytes; K, M, G and T stand for powers of 1024.
void addMemory(Command& command, std::uint64_t& bytes);

/// Throws UsageError for what does not go together.
void requireApart(const CorrectionOptions& options);
/// Throws UsageError where corrections of the merge are given and only other planes are made; none means all.
void requireMerged(const CorrectionOptions& options, const Names& planes, const std::string& option);
void requireApart(const OutputOptions& options);

/// "low", "high", "merged", "image".
Names planeNames();
/// The cameras that can be simulated.
Names cameraNames();
/// The read-out modes that cameras may have.
Names modeNames();
/// The sensors that have gain tables.
Names sensorNames();

}  // namespace tool

#endif  // ORVACAM_TOOL_OPTIONS_H
