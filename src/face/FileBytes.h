#ifndef ORVACAM_SRC_FACE_FILE_BYTES_H
#define ORVACAM_SRC_FACE_FILE_BYTES_H

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>

#include "support/FileMemory.h"

namespace orvacam::face {

using FileBytes = OwnedMemory;

/// Throws the system's error as a Failure (io).
[[noreturn]] void failIo(const std::string& path, const char* what, int error = errno);

/// A file or folder that is open.
class Descriptor {
 public:
  /// Throws Failure (io).
  Descriptor(const std::string& path, int flags);
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();

  int number() const { return m_number; }

 private:
  int m_number;
};

/// A regular file, read once. Before the rest of it is read, `accept` may look at its start and throw. The
/// path is the system's bytes. Throws Failure: io for the system's errors and for what is no regular file,
/// which is answered at once.
using Accept = void (*)(const unsigned char* start, std::size_t length);
FileBytes readFile(const char* path, Accept accept);

/// The start of a regular file: at most as many bytes as the longest header and a little.
constexpr std::size_t startLength = 65536;
FileBytes readStart(const char* path);

/// Memory that begins on a cache line. Throws std::bad_alloc.
std::unique_ptr<unsigned char, FreeMemory> allocateBytes(std::size_t length);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_FILE_BYTES_H
