#include "face/FileBytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "face/Failure.h"
#include "support/AlignedMemory.h"

namespace orvacam::face {

namespace {

[[noreturn]] void failIo(const char* path, const char* what, int error) {
  char reason[256] = "";
  const char* const text = strerror_r(error, reason, sizeof reason);
  throw Failure{ORVA_IO, std::string(what) + ": " + text, 0, 0, path, error};
}

/// A file that is open for reading.
class OpenFile {
 public:
  explicit OpenFile(const char* path)
      : m_path(path), m_file(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    if (m_file < 0) failIo(path, "cannot be opened", errno);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { close(m_file); }

  std::uint64_t size() const {
    struct stat status {};
    if (fstat(m_file, &status) != 0) failIo(m_path, "cannot be read", errno);
    if (S_ISDIR(status.st_mode)) failIo(m_path, "is no regular file", EISDIR);
    if (!S_ISREG(status.st_mode)) failIo(m_path, "is no regular file", EINVAL);
    return static_cast<std::uint64_t>(status.st_size);
  }
  /// Reads so many bytes, or as many as there are.
  std::size_t read(unsigned char* target, std::size_t length) const {
    std::size_t done = 0;
    while (done < length) {
      const ssize_t got = ::read(m_file, target + done, length - done);
      if (got == 0) break;
      if (got < 0 && errno != EINTR) failIo(m_path, "cannot be read", errno);
      if (got > 0) done += static_cast<std::size_t>(got);
    }
    return done;
  }

 private:
  const char* m_path;
  int m_file;
};

}  // namespace

std::unique_ptr<unsigned char, FreeMemory> allocateBytes(std::size_t length) {
  std::unique_ptr<unsigned char, FreeMemory> bytes(allocateAligned(length));
  if (bytes == nullptr) throw std::bad_alloc();
  return bytes;
}

namespace {

FileBytes readStartOf(const OpenFile& file, std::uint64_t size) {
  FileBytes start;
  const std::size_t most = std::min<std::uint64_t>(size, startLength);
  start.bytes = allocateBytes(most);
  start.length = file.read(start.bytes.get(), most);
  return start;
}

}  // namespace

FileBytes readStart(const char* path) {
  const OpenFile file(path);
  return readStartOf(file, file.size());
}

FileBytes readFile(const char* path, Accept accept) {
  const OpenFile file(path);
  const std::uint64_t size = file.size();
  FileBytes start = readStartOf(file, size);
  accept(start.bytes.get(), start.length);
  if (start.length < startLength || size <= startLength) return start;
  FileBytes whole{allocateBytes(size), start.length};
  std::memcpy(whole.bytes.get(), start.bytes.get(), start.length);
  whole.length += file.read(whole.bytes.get() + start.length, size - start.length);
  return whole;
}

}  // namespace orvacam::face
