#ifndef ORVACAM_SRC_IMAGEFILES_FILE_WRITING_H
#define ORVACAM_SRC_IMAGEFILES_FILE_WRITING_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace orvacam {

/// Writes all of it straight from the caller's memory, or says false.
inline bool writeAll(int file, const void* data, std::size_t count) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (count > 0) {
    const ssize_t written = write(file, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_IMAGEFILES_FILE_WRITING_H
