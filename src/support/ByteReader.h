#ifndef ORVACAM_SRC_SUPPORT_BYTE_READER_H
#define ORVACAM_SRC_SUPPORT_BYTE_READER_H

#include <cstddef>
#include <cstdint>

namespace orvacam {

/// Reads integers that come from outside: frame headers, calibration blocks. They are big-endian, as the
/// cameras send them. A read that would pass the end answers false, moves nothing and leaves its target
/// alone.
class ByteReader {
 public:
  /// A null pointer makes an empty reader, whatever the size.
  ByteReader(const unsigned char* bytes, std::size_t size)
      : m_next(bytes), m_remaining(bytes != nullptr ? size : 0) {}

  std::size_t remaining() const { return m_remaining; }

  /// An unsigned integer of 1 to 8 bytes.
  bool readUint(unsigned int count, std::uint64_t& value) {
    if (count == 0 || count > 8 || count > m_remaining) return false;
    std::uint64_t sum = 0;
    for (unsigned int i = 0; i < count; ++i)
      sum = (sum << 8) | *m_next++;
    m_remaining -= count;
    value = sum;
    return true;
  }

  /// A two's complement integer of 1 to 8 bytes, sign-extended from the top bit of its first byte.
  bool readInt(unsigned int count, std::int64_t& value) {
    std::uint64_t bits = 0;
    if (!readUint(count, bits)) return false;
    const unsigned int unused = 64 - 8 * count;
    value = static_cast<std::int64_t>(bits << unused) >> unused;
    return true;
  }

 private:
  const unsigned char* m_next;
  std::size_t m_remaining;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_BYTE_READER_H
