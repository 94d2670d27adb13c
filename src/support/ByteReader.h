#ifndef ORVACAM_SRC_SUPPORT_BYTE_READER_H
#define ORVACAM_SRC_SUPPORT_BYTE_READER_H

#include <cstddef>
#include <cstdint>

namespace orvacam {

/// Reads bytes that come from outside: frame headers, calibration blocks, reference files, packed pixels.
/// Knows its start, its end and its position; a read that would pass the end answers false, moves nothing and
/// leaves its target alone. Integers are big-endian, as the cameras send them.
class ByteReader {
 public:
  ByteReader() = default;
  /// A null pointer makes an empty reader, whatever the size.
  ByteReader(const unsigned char* bytes, std::size_t size)
      : m_begin(bytes), m_size(bytes != nullptr ? size : 0) {}

  std::size_t size() const { return m_size; }
  std::size_t position() const { return m_position; }
  std::size_t remaining() const { return m_size - m_position; }
  const unsigned char* current() const { return m_begin == nullptr ? nullptr : m_begin + m_position; }

  bool skip(std::size_t count) {
    if (count > remaining()) return false;
    m_position += count;
    return true;
  }

  /// Hands out the next `count` bytes in place and moves behind them.
  bool take(std::size_t count, const unsigned char*& bytes) {
    if (count > remaining()) return false;
    bytes = current();
    m_position += count;
    return true;
  }

  /// An unsigned integer of 1 to 8 bytes.
  bool readUint(unsigned int count, std::uint64_t& value) {
    const unsigned char* bytes = nullptr;
    if (count == 0 || count > 8 || !take(count, bytes)) return false;
    std::uint64_t sum = 0;
    for (unsigned int i = 0; i < count; ++i)
      sum = (sum << 8) | bytes[i];
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

  /// A reader of `count` bytes from `offset` on that cannot see outside this one; false when they do not lie
  /// inside.
  bool sub(std::size_t offset, std::size_t count, ByteReader& part) const {
    if (offset > m_size || count > m_size - offset) return false;
    part = ByteReader(m_begin == nullptr ? nullptr : m_begin + offset, count);
    return true;
  }

 private:
  const unsigned char* m_begin = nullptr;
  std::size_t m_size = 0;
  std::size_t m_position = 0;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_BYTE_READER_H
