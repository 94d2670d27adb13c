#include "Options.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <orvacam.hpp>

#include "Program.h"
#include "simulator/Scene.h"

namespace tool {

namespace {

/// Two whole numbers with a comma between them.
bool readPair(const std::string& text, unsigned& first, unsigned& second) {
  char rest = 0;
  return text.find_first_not_of("0123456789,") == std::string::npos && text.size() <= 11 &&
         std::sscanf(text.c_str(), "%u,%u%c", &first, &second, &rest) == 2 && first <= 65535 &&
         second <= 65535;
}

/// Bytes, with K, M, G or T behind them for powers of 1024.
std::uint64_t bytesIn(const std::string& text) {
  constexpr std::string_view suffixes = "KMGT";
  const char* const end = text.data() + text.size();
  std::uint64_t bytes = 0;
  const auto read = std::from_chars(text.data(), end, bytes);
  const std::size_t power = read.ptr + 1 == end ? suffixes.find(*read.ptr) + 1 : 0;
  const bool isWhole = read.ptr == end || power != 0;
  constexpr std::uint64_t most = std::uint64_t{1} << 60;
  if (read.ec != std::errc() || !isWhole || bytes == 0 || bytes > most >> 10 * power)
    throw UsageError("--memory: '" + text + "' is no size as 500M or 2G");
  return bytes << 10 * power;
}

}  // namespace

void addInputs(Command& command, InputOptions& o, const std::string& what) {
  command.add("FILE", &o.files, what, framesValue().words());
  command.add("-r,--recursive", o.recursive, "Take folders with what lies below them");
  command.add("--files-from", &o.list, "A file that names inputs, one a line; - for standard input",
              fileValue("LIST"));
  command.add("-0", o.nulEnded, "Names in the list end with a NUL");
  addSpeech(command);
}

void addJobs(Command& command) {
  // What the help says is the same on every machine.
  command
      .add("-j,--jobs", &settings().jobs, "Work on so many frames beside each other",
           wholeNumber(1, maximalJobs))
      .standard = "as many as there are processors";
}

void addSpeech(Command& command) {
  command.add("--progress", &settings().progress,
              "How far it is, on standard error: a line on a terminal, always, never, or JSON",
              oneOf("WHEN", {"auto", "always", "never", "json"}));
  command.add("--log", &settings().log, "Append messages, and what became of each input, to a file",
              fileValue());
}

namespace {

void addReferences(Command& command, CorrectionOptions& o) {
  command.add("--dsnu", &o.dsnu, "Reference file of dark signal non-uniformity, for the merge", fileValue());
  command.add("--prnu", &o.prnu, "Reference file of photo response non-uniformity, for the merge",
              fileValue());
}

}  // namespace

void addThresholds(Command& command, CorrectionOptions& o) {
  const auto readThresholds = [&o](const std::string& text) {
    if (!readPair(text, o.high, o.difference))
      throw UsageError("--thresholds: '" + text + "' is not HIGH,DIFFERENCE, each 0 to 65535");
    o.hasThresholds = true;
  };
  command.add("--thresholds", readThresholds, "The merge's high and difference thresholds, in counts",
              textValue("HIGH,DIFFERENCE"));
}

namespace {

void addMergeSettings(Command& command, CorrectionOptions& o) {
  addThresholds(command, o);
  command.add("--calibration", &o.calibration, "The camera's stored calibration block: gain ratios",
              fileValue());
}

}  // namespace

void addCorrections(Command& command, CorrectionOptions& o) {
  addReferences(command, o);
  command.add("--bias", &o.bias, "Bias file: its planes are subtracted before merging", fileValue());
  addMergeSettings(command, o);
}

void addMergeCorrections(Command& command, CorrectionOptions& o) {
  addReferences(command, o);
  addMergeSettings(command, o);
}

void addOutputs(Command& command, OutputOptions& o, bool canSkip) {
  command.add("--overwrite", o.overwrite, "Replace files that exist");
  if (canSkip) command.add("--skip-existing", o.skipExisting, "Make only what is missing");
  command.add("--reproducible", o.reproducible, "The same bytes on any day: no time of writing");
}

void addMemory(Command& command, std::uint64_t& bytes) {
  command
      .add(
          "--memory", [&bytes](const std::string& text) { bytes = bytesIn(text); },
          "Take no more memory: what does not fit is read again, a band of rows at a time", textValue("SIZE"))
      .standard = "1G";
}

void requireApart(const CorrectionOptions& o) {
  requireApart(!o.bias.empty(), "--bias", !o.dsnu.empty(), "--dsnu");
}

void requireMerged(const CorrectionOptions& o, const Names& planes, const std::string& option) {
  if (planes.empty() || std::find(planes.begin(), planes.end(), "merged") != planes.end()) return;
  requireApart(!o.dsnu.empty(), "--dsnu", true, option + " without merged, to which it would apply,");
  requireApart(!o.prnu.empty(), "--prnu", true, option + " without merged, to which it would apply,");
  requireApart(o.hasThresholds, "--thresholds", true, option + " without merged, to which they would apply,");
}

void requireApart(const OutputOptions& o) {
  requireApart(o.skipExisting, "--skip-existing", o.overwrite, "--overwrite");
}

Names planeNames() {
  return {"low", "high", "merged", "image"};
}

Names cameraNames() {
  Names names;
  for (const orvacam::simulator::Camera& camera : orvacam::simulator::cameras())
    names.emplace_back(camera.name);
  return names;
}

Names modeNames() {
  return {"single", "hdr", "16bit", "cms"};
}

Names sensorNames() {
  Names names = orvacam::sensors();
  for (const char* const other : {"LUMORA420", "LUMORA533", "LUMORA571"})
    names.emplace_back(other);
  return names;
}

}  // namespace tool
