#ifndef ORVACAM_FUZZ_FUZZ_SUPPORT_H
#define ORVACAM_FUZZ_FUZZ_SUPPORT_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ceilings.h"

/// Stops the run when something that must hold does not.
#define FUZZ_REQUIRE(condition)                                                       \
  do {                                                                                \
    if (!(condition)) {                                                               \
      std::fprintf(stderr, "%s:%d: must hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                   \
    }                                                                                 \
  } while (false)

namespace fuzz {

using Bytes = std::vector<unsigned char>;
using Pixels = std::vector<unsigned short>;

/// A copy of exactly the input's size: the parser clears sign bits in the caller's buffer, and a sanitizer
/// sees every byte read too far.
inline Bytes copyOf(const std::uint8_t* data, std::size_t size) {
  return size == 0 ? Bytes{} : Bytes(data, data + size);
}

inline unsigned int length(const Bytes& bytes) {
  return static_cast<unsigned int>(bytes.size());
}

/// Bytes that look random and are the same for the same bytes: choices that an input makes without spending
/// bytes of its own on them.
inline Bytes choicesOf(const Bytes& bytes, unsigned int seed, std::size_t count) {
  for (const unsigned char byte : bytes)
    seed = (seed ^ byte) * 16777619u;
  Bytes choices(count);
  for (unsigned char& choice : choices) {
    seed = seed * 1664525u + 1013904223u;
    choice = static_cast<unsigned char>(seed >> 24);
  }
  return choices;
}

/// The input, taken from its front. Behind its end there are zeros, so that a short input means something.
/// One argument of a call at a time, as compilers differ in which they take first.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

  unsigned int byte() {
    if (m_size == 0) return 0;
    --m_size;
    return *m_data++;
  }
  unsigned int word() {
    const unsigned int high = byte();
    return high << 8 | byte();
  }
  unsigned int number() {
    const unsigned int high = word();
    return high << 16 | word();
  }
  bool flag() { return (byte() & 1) != 0; }
  /// 0 to limit.
  unsigned int upTo(unsigned int limit) { return (limit < 256 ? byte() : word()) % (limit + 1); }
  /// Small numbers mostly, but also those at which sizes wrap.
  unsigned int hostile() {
    constexpr unsigned int numbers[] = {0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, 0x40000000, 0x10000, 0xFFFF};
    const unsigned int first = byte();
    return first < 250 ? first : numbers[first - 250];
  }
  /// Any number at all, also those that are none.
  double real() {
    const std::uint64_t high = number();
    const std::uint64_t bits = high << 32 | number();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  /// At most this many of the bytes that are left.
  Bytes bytes(std::size_t count) {
    const std::size_t taken = std::min(count, m_size);
    Bytes result = copyOf(m_data, taken);
    m_data += taken;
    m_size -= taken;
    return result;
  }
  Bytes rest() { return bytes(m_size); }
  std::size_t left() const { return m_size; }
  /// Exactly this many pixels.
  Pixels pixels(std::size_t count) {
    Pixels result(count);
    for (unsigned short& pixel : result)
      pixel = static_cast<unsigned short>(word());
    return result;
  }

 private:
  const std::uint8_t* m_data;
  std::size_t m_size;
};

/// The bytes as a file in memory, for the operations that read streams and files.
class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size) : m_stream(open()) {
    if (size > 0) FUZZ_REQUIRE(std::fwrite(data, 1, size, m_stream) == size);
    FUZZ_REQUIRE(std::fflush(m_stream) == 0);
    std::rewind(m_stream);
  }
  explicit MemoryFile(const Bytes& bytes) : MemoryFile(bytes.data(), bytes.size()) {}
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { std::fclose(m_stream); }

  std::FILE* stream() const { return m_stream; }
  /// A name under which the file can be opened again.
  std::wstring path() const { return L"/proc/self/fd/" + std::to_wstring(::fileno(m_stream)); }

 private:
  static std::FILE* open() {
    const int file = ::memfd_create("fuzz", MFD_CLOEXEC);
    FUZZ_REQUIRE(file >= 0);
    std::FILE* const stream = ::fdopen(file, "w+b");
    FUZZ_REQUIRE(stream != nullptr);
    return stream;
  }

  std::FILE* m_stream;
};

}  // namespace fuzz

#endif  // ORVACAM_FUZZ_FUZZ_SUPPORT_H
