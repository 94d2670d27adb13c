#ifndef ORVACAM_TOOL_FRAME_READER_H
#define ORVACAM_TOOL_FRAME_READER_H

#include <map>
#include <memory>
#include <orvacam.hpp>
#include <string>
#include <vector>

#include "Inputs.h"
#include "Progress.h"

namespace tool {

/// Frames go back to the system when they are done with: on the heap, small pieces between them would keep
/// their memory, more of it the more frames there are. For commands that read many, before the first.
void freeFramesAtOnce();

/// The frames that names stand for, which are read more than once. Throws UsageError for standard input,
/// science::Refused, Failure.
std::vector<std::string> framesToReread(const std::string& command, const InputOptions& options);

/// Reads frames and knows each again, so that none counts twice. What it remembers is claimed before the
/// first is read: between frames that come and go it would keep their memory from being used again.
class FrameReader {
 public:
  /// Every path, before the first is read. Throws science::Refused for a file that comes twice, whatever its
  /// names.
  void claim(const std::string& path);
  /// Throws what reading does, and science::Refused for a copy of another frame.
  orvacam::Frame read(const std::string& path);
  /// Ends the line of progress, which counts each frame once.
  void end() { m_progress.reset(); }

 private:
  orvacam::Frame readNew(const std::string& path, std::string& sum) const;

  std::map<Identity, std::string> m_files;
  std::unique_ptr<Progress> m_progress;
  std::map<std::string, std::string> m_sums;  // by path, SHA-256; blank until it is read
};

}  // namespace tool

#endif  // ORVACAM_TOOL_FRAME_READER_H
