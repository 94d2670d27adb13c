#ifndef ORVACAM_FUZZ_FUZZ_SUPPORT_H
#define ORVACAM_FUZZ_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

/// Stops the run when something that must hold does not.
#define FUZZ_REQUIRE(condition)                                                       \
  do {                                                                                \
    if (!(condition)) {                                                               \
      std::fprintf(stderr, "%s:%d: must hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                   \
    }                                                                                 \
  } while (false)

namespace fuzz {

/// A copy of exactly the input's size: the parser clears sign bits in the caller's buffer, and a sanitizer
/// sees every byte read too far.
inline std::vector<unsigned char> copyOf(const std::uint8_t* data, std::size_t size) {
  return size == 0 ? std::vector<unsigned char>{} : std::vector<unsigned char>(data, data + size);
}

/// The bytes as a stream for the operations that read files.
class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size) : m_stream(std::tmpfile()) {
    FUZZ_REQUIRE(m_stream != nullptr);
    if (size > 0) FUZZ_REQUIRE(std::fwrite(data, 1, size, m_stream) == size);
    std::rewind(m_stream);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { std::fclose(m_stream); }

  std::FILE* stream() const { return m_stream; }

 private:
  std::FILE* m_stream;
};

}  // namespace fuzz

#endif  // ORVACAM_FUZZ_FUZZ_SUPPORT_H
