#ifndef ORVACAM_FILES_PARTIAL_STACK_H
#define ORVACAM_FILES_PARTIAL_STACK_H

#include <cstdint>
#include <map>
#include <optional>
#include <orvacam.hpp>
#include <string>
#include <vector>

#include "files/FitsWriter.h"
#include "files/Subject.h"

namespace orvacam::files {

/// What is known of a stack's frames beside their sums.
struct StackRecord {
  std::vector<std::string> frames;         ///< SHA-256 of each file's bytes, in hexadecimal digits
  std::uint64_t exposure = 0;              ///< of all frames, in units of 10 us
  std::optional<Instant> earliest, end;    ///< beginning of the first exposure, end of the last one
  std::optional<double> coldest, warmest;  ///< sensor, degrees Celsius
  bool forced = false;                     ///< frames may be unlike in their settings
  std::optional<MergeFacts> merge;
  double bias = 0;                                 ///< Subject::bias
  std::map<std::string, std::string> corrections;  ///< SHA-256 of reference files by role: "DSNU", ...
  std::vector<std::string> history;                ///< of corrections, as files have it

  /// A frame that was stacked; its bytes are digested where asked for.
  void add(const Frame& frame, bool digest);
  StackFacts facts(bool isSum) const;
};

/// A mean or a sum so far, and what its file says of it.
struct PartialStack {
  StackRecord record;
  Stack stack;

  /// What a file of the stack is about, but for the date.
  Subject subject(bool isSum) const;
};

/// The file of a stack that is not empty: FITS; images SUM and SUMSQ of 64 bits, HEADER (the first frame's,
/// as it came), FRAMES (a digest a row), HISTORY; all else as keywords. Throws what FitsFile does;
/// std::runtime_error for 2^30 frames and more.
FitsFile partialStackFile(const PartialStack& part);

/// Reads one, as a mean or a sum. Every field is checked, and every byte by the units' checksums; memory is
/// taken for what the file really holds. Throws std::runtime_error: what is wrong, without the path.
PartialStack readPartialStack(const std::string& path, Stack::Method method = Stack::Method::mean);

/// Adds the frames of another part. Throws std::runtime_error, and changes nothing: a frame that both have,
/// unlike settings (unless allowed) or corrections.
void addPart(PartialStack& sum, const PartialStack& part, bool allowUnlike);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_PARTIAL_STACK_H
