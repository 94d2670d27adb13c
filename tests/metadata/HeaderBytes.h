#ifndef ORVACAM_TESTS_METADATA_HEADER_BYTES_H
#define ORVACAM_TESTS_METADATA_HEADER_BYTES_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "metadata/SettableHeader.h"

/// A header with everything in reach.
class OpenHeader : public SettableHeader {
 public:
  using CFrameMetaData::m_CaptureTimeText;
  using CFrameMetaData::m_OtherMetaData;
  using CFrameMetaData::m_Reserved1;

  double number(int key) const { return m_Values[key].GetValueDouble(); }
  bool flag(int key) const { return m_Values[key].GetValueBool(); }
  std::string text(int key) const {
    int length = 0;
    const unsigned char* const bytes = m_Values[key].GetValue(nullptr, length);
    return bytes == nullptr ? std::string() : std::string(bytes, bytes + length);
  }
  /// Which member of a value is live.
  unsigned int kind(int key) const {
    struct Peek : CMetaValues {
      static unsigned int kindOf(const CMetaValues& value) { return value.*(&Peek::m_uiKind); }
    };
    return Peek::kindOf(m_Values[key]);
  }
};

inline constexpr unsigned int headerSize(unsigned int version) {
  return version == 1 ? 156 : version == 2 ? 246 : 384;
}

/// The bytes of a frame header as a camera would send them.
class HeaderBytes {
 public:
  /// A header that parses: names, a capture time and the flags' idle state.
  explicit HeaderBytes(unsigned int version) : m_Bytes(headerSize(version)) {
    text(0, "Meta").put(4, 2, headerSize(version)).put(6, 2, version);
    text(8, "UNIT TEST").text(48, "SN-0001");
    if (version != 1) put(147, 1, 0xFF).text(152, "2024/01/02 03:04:05.500000000");
  }

  HeaderBytes& put(std::size_t offset, unsigned int count, unsigned long value) {
    for (unsigned int i = 0; i < count; ++i)
      m_Bytes.at(offset + i) = static_cast<unsigned char>(value >> (8 * (count - 1 - i)) & 255);
    return *this;
  }
  HeaderBytes& text(std::size_t offset, const std::string& value) {
    for (std::size_t i = 0; i < value.size(); ++i)
      m_Bytes.at(offset + i) = static_cast<unsigned char>(value[i]);
    return *this;
  }
  HeaderBytes& fill(std::size_t begin, std::size_t end, unsigned char value) {
    for (std::size_t i = begin; i < end; ++i)
      m_Bytes.at(i) = value;
    return *this;
  }
  /// New bytes are zero.
  HeaderBytes& resize(std::size_t size) {
    m_Bytes.resize(size);
    return *this;
  }

  /// Parses from a heap block of exactly as many bytes, so that a read behind them is found; what the parse
  /// does to them comes back here.
  int parseInto(CFrameMetaData& header) {
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[m_Bytes.size()]);
    if (!m_Bytes.empty()) std::memcpy(exact.get(), m_Bytes.data(), m_Bytes.size());
    const int status = header.Parse(exact.get(), static_cast<unsigned int>(m_Bytes.size()));
    if (!m_Bytes.empty()) std::memcpy(m_Bytes.data(), exact.get(), m_Bytes.size());
    return status;
  }

  unsigned char operator[](std::size_t offset) const { return m_Bytes.at(offset); }
  std::size_t size() const { return m_Bytes.size(); }
  const std::vector<unsigned char>& bytes() const { return m_Bytes; }

 private:
  std::vector<unsigned char> m_Bytes;
};

enum class Sign { None, Complement, Magnitude };

/// A field of one number, as the header's layout has it.
struct NumberField {
  unsigned int offset;
  unsigned int bytes;
  int key;
  Sign sign = Sign::None;

  /// What a camera means with the bytes of `word`.
  double meaning(unsigned long word) const {
    const unsigned long top = 1UL << (8 * bytes - 1);
    if (sign == Sign::None || word < top) return static_cast<double>(word);
    return sign == Sign::Complement ? static_cast<double>(word) - 2.0 * static_cast<double>(top)
                                    : -static_cast<double>(word - top);
  }
  unsigned long mask() const { return (1UL << (8 * bytes)) - 1; }
};

inline std::ostream& operator<<(std::ostream& stream, const NumberField& field) {
  return stream << "key " << field.key << " at " << field.offset;
}

/// Every plain number of a header version.
inline std::vector<NumberField> numberFields(unsigned int version) {
  constexpr Sign complement = Sign::Complement, magnitude = Sign::Magnitude;
  using F = NumberField;
  std::vector<NumberField> fields;
  const auto add = [&fields](std::initializer_list<NumberField> more) { fields.insert(fields.end(), more); };
  add({F{79, 1, 72}, F{81, 2, 42}, F{83, 2, 90}, F{85, 4, 22}, F{89, 2, 15, complement},
       F{91, 2, 74, magnitude}, F{93, 1, 27}, F{94, 1, 26}, F{95, 1, 28}});
  add({F{96, 1, 70}, F{97, 1, 71}, F{101, 3, 7}, F{104, 2, 8}, F{114, 2, 83}, F{116, 2, 82}, F{118, 2, 85},
       F{120, 2, 84}});
  add({F{122, 2, 50}, F{124, 2, 49}, F{126, 2, 52}, F{128, 2, 51}, F{130, 2, 81}, F{132, 2, 25},
       F{134, 2, 53}, F{139, 1, 66}});
  add({F{106, 2, 77, magnitude}, F{108, 2, 76, magnitude}, F{110, 2, 45, magnitude},
       F{112, 2, 46, magnitude}});
  if (version <= 2) add({F{99, 1, 5}, F{100, 1, 6}});
  if (version == 1) add({F{152, 4, 89}});
  if (version >= 2)
    add({F{72, 4, 89}, F{76, 2, 78, complement}, F{78, 1, 16}, F{141, 2, 4, complement},
         F{143, 2, 24, complement}, F{148, 2, 80}, F{150, 2, 79}, F{182, 4, 29}, F{186, 4, 33}, F{214, 1, 43},
         F{215, 1, 91}, F{216, 3, 9}, F{219, 2, 10}});
  if (version >= 3)
    add({F{99, 2, 5}, F{145, 2, 6}, F{221, 4, 63, complement}, F{225, 2, 64, complement},
         F{227, 4, 41, complement}});
  if (version == 4)
    add({F{236, 4, 93}, F{240, 1, 94}, F{241, 1, 95}, F{242, 1, 99}, F{243, 1, 96}, F{248, 4, 98}});
  return fields;
}

#endif  // ORVACAM_TESTS_METADATA_HEADER_BYTES_H
