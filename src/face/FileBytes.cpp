#include "face/FileBytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "face/Failure.h"
#include "support/AlignedMemory.h"

namespace orvacam::face {

namespace {

std::uint64_t sizeOf(const Descriptor& file, const char* path) {
  struct stat status {};
  if (fstat(file.number(), &status) != 0) failIo(path, "cannot be read");
  if (S_ISDIR(status.st_mode)) failIo(path, "is no regular file", EISDIR);
  if (!S_ISREG(status.st_mode)) failIo(path, "is no regular file", EINVAL);
  return static_cast<std::uint64_t>(status.st_size);
}

/// Reads on until there are so many bytes, or until the file ends.
void readOn(const Descriptor& file, const char* path, std::size_t length, FileBytes& bytes) {
  while (bytes.length < length) {
    const ssize_t got = read(file.number(), bytes.bytes.get() + bytes.length, length - bytes.length);
    if (got == 0) break;
    if (got < 0 && errno != EINTR) failIo(path, "cannot be read");
    if (got > 0) bytes.length += static_cast<std::size_t>(got);
  }
}

FileBytes readStartOf(const Descriptor& file, const char* path, std::uint64_t size) {
  const std::size_t most = std::min<std::uint64_t>(size, startLength);
  FileBytes start{allocateBytes(most), 0};
  readOn(file, path, most, start);
  return start;
}

}  // namespace

void failIo(const std::string& path, const char* what, int error) {
  char reason[256] = "";
  throw Failure{ORVA_IO, std::string(what) + ": " + strerror_r(error, reason, sizeof reason), 0, 0, path,
                error};
}

Descriptor::Descriptor(const std::string& path, int flags)
    : m_number(open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
  if (m_number < 0) failIo(path, "cannot be opened");
}

Descriptor::~Descriptor() {
  close(m_number);
}

std::unique_ptr<unsigned char, FreeMemory> allocateBytes(std::size_t length) {
  std::unique_ptr<unsigned char, FreeMemory> bytes(allocateAligned(length));
  if (bytes == nullptr) throw std::bad_alloc();
  return bytes;
}

FileBytes readStart(const char* path) {
  const Descriptor file(path, O_RDONLY);
  return readStartOf(file, path, sizeOf(file, path));
}

FileBytes readFile(const char* path, Accept accept) {
  const Descriptor file(path, O_RDONLY);
  const std::uint64_t size = sizeOf(file, path);
  FileBytes start = readStartOf(file, path, size);
  accept(start.bytes.get(), start.length);
  if (start.length < startLength || size <= startLength) return start;
  FileBytes whole{allocateBytes(size), start.length};
  std::memcpy(whole.bytes.get(), start.bytes.get(), start.length);
  readOn(file, path, size, whole);
  return whole;
}

}  // namespace orvacam::face
