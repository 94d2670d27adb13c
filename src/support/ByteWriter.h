#ifndef ORVACAM_SRC_SUPPORT_BYTE_WRITER_H
#define ORVACAM_SRC_SUPPORT_BYTE_WRITER_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orvacam {

/// Writes into a caller's buffer at given offsets and refuses (false, nothing written) what does not fit.
class ByteWriter {
 public:
  ByteWriter(unsigned char* bytes, std::size_t size) : m_begin(bytes), m_size(bytes != nullptr ? size : 0) {}

  std::size_t size() const { return m_size; }

  /// The low `count` (1 to 8) bytes of a value, most significant byte first.
  bool putUint(std::size_t offset, unsigned int count, std::uint64_t value) {
    if (count == 0 || count > 8 || !fits(offset, count)) return false;
    for (unsigned int i = 0; i < count; ++i)
      m_begin[offset + i] = static_cast<unsigned char>(value >> (8 * (count - 1 - i)));
    return true;
  }

  bool putBytes(std::size_t offset, const void* bytes, std::size_t count) {
    if (!fits(offset, count)) return false;
    if (count > 0) std::memcpy(m_begin + offset, bytes, count);
    return true;
  }

 private:
  bool fits(std::size_t offset, std::size_t count) const {
    return offset <= m_size && count <= m_size - offset;
  }

  unsigned char* m_begin;
  std::size_t m_size;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_BYTE_WRITER_H
