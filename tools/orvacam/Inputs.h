#ifndef ORVACAM_TOOL_INPUTS_H
#define ORVACAM_TOOL_INPUTS_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <orvacam.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Options.h"
#include "Program.h"

namespace tool {

struct Input {
  std::string path;   ///< "-" for standard input
  std::string under;  ///< the sub-folder that it was found in, kept in the output; ends in "/" or is ""
  std::string wrong;  ///< why it is none: a folder without frames
};

/// Files, folders (the frames directly in them, or below them), lists of names, standard input: in their
/// order. Throws UsageError, Failure.
std::vector<Input> inputsOf(const InputOptions& options);

/// The frame of an input. That of standard input is read once and stays. Throws orvacam::Error, Failure.
orvacam::Frame readFrame(const std::string& path);
constexpr std::uint64_t anyLength = std::uint64_t{1} << 62;  // more than files have
/// All of a file, or of standard input. Throws Failure, also where there is more than the most.
std::string readAll(const std::string& path, std::uint64_t most = anyLength);
/// The most that is read of a calibration block: far more than one has.
constexpr std::uint64_t longestCalibration = std::uint64_t{1} << 20;

/// Which file it is, whatever its names; {0, 0} for none.
using Identity = std::pair<dev_t, ino_t>;
Identity identityOf(const std::string& path);

/// What a run may write to: nothing that it reads, and nothing twice. The log is written to, too.
class Targets {
 public:
  Targets();
  /// Throws UsageError.
  void isInput(const std::string& path);
  /// Throws UsageError.
  void claim(const std::string& path);
  /// Whether claim would throw.
  bool conflicts(const std::string& path) const;

 private:
  std::set<Identity> m_inputs, m_written;
  std::set<std::string> m_paths;
  bool m_standardOutput = false;
};

/// Makes a folder to write to and clears what dead runs left in it. Throws orvacam::files::WriteError.
void prepareFolder(const std::string& path);

}  // namespace tool

#endif  // ORVACAM_TOOL_INPUTS_H
