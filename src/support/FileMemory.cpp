#include "support/FileMemory.h"

#include <sys/stat.h>

#include <cstring>

#include "support/AlignedMemory.h"

namespace orvacam {

std::size_t regularFileSize(std::FILE* stream) {
  struct stat status {};
  if (stream == nullptr || fstat(fileno(stream), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  return status.st_size > 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

bool readWhole(std::FILE* stream, OwnedMemory& memory) {
  const std::size_t length = regularFileSize(stream);
  if (length == 0) return false;
  if (memory.bytes == nullptr || memory.length != length) {
    memory = OwnedMemory();  // before there is more
    memory.bytes.reset(allocateAligned(length + 1));
    if (memory.bytes == nullptr) return false;
    memory.length = length;
  }
  std::rewind(stream);
  const std::size_t read = std::fread(memory.bytes.get(), 1, length, stream);
  std::memset(memory.bytes.get() + read, 0, length + 1 - read);
  return read == length;
}

}  // namespace orvacam
