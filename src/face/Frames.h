#ifndef ORVACAM_SRC_FACE_FRAMES_H
#define ORVACAM_SRC_FACE_FRAMES_H

#include <orvacam_c.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "face/FileBytes.h"
#include "face/FrameLook.h"

struct orva_frame : orvacam::face::Counted {
  /// The bytes are the frame's own, or the caller's, who keeps them. Throws orvacam::face::Failure.
  orva_frame(const void* ofCaller, std::size_t length);
  orva_frame(orvacam::face::FileBytes own, std::string fromPath);

  const orvacam::face::HeaderValues& values() const { return header->values(); }
  /// Made when somebody asks. May throw std::bad_alloc.
  const std::vector<orvacam::face::FindingText>& findings() const;

  const orvacam::face::FileBytes memory;
  const unsigned char* const bytes;
  const std::size_t length;
  const std::string path;
  const orvacam::face::Held<const orva_header> header;
  const orvacam::face::FrameLook look;

 private:
  mutable std::once_flag m_looked;
  mutable std::vector<orvacam::face::FindingText> m_findings;
};

namespace orvacam::face {

/// Runs a step on a file; what it throws names the file.
template <typename Step>
auto withPath(const char* path, const Step& step) {
  try {
    return step();
  } catch (Failure& failure) {
    if (path != nullptr) failure.path = path;
    throw;
  }
}

/// The same on a frame, which knows the file that it is from.
template <typename Step>
auto withFrame(const orva_frame& frame, const Step& step) {
  return withPath(frame.path.c_str(), step);
}

/// Accepts what begins as a frame; throws Failure.
void requireHeader(const unsigned char* bytes, std::size_t length);

/// Reads a frame. Throws Failure.
std::unique_ptr<orva_frame> readFrame(const char* path);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_FRAMES_H
