#ifndef ORVACAM_SRC_SUPPORT_FILE_MEMORY_H
#define ORVACAM_SRC_SUPPORT_FILE_MEMORY_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace orvacam {

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

/// Memory from malloc and its kin, and how many bytes it has. Moved, never copied.
struct OwnedMemory {
  std::unique_ptr<unsigned char, FreeMemory> bytes;
  std::size_t length = 0;
};

/// The bytes of a regular file with at least one byte, 0 for anything else.
std::size_t regularFileSize(std::FILE* stream);

/// Reads a whole file, from its start, into memory that begins on a cache line: into what is there where it
/// has just the length. False for what is not a regular file with at least one byte, with the memory as it
/// was; without memory, with none; and for a file that cannot be read to its end, whose missing bytes are 0.
bool readWhole(std::FILE* stream, OwnedMemory& memory);

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_FILE_MEMORY_H
