// The readers of times and numbers, the text conversions, and metadata values set from text.

#include <orvacam.h>

#include <cmath>

#include "fuzz_support.h"

namespace {

using fuzz::Bytes;

bool digit(unsigned char c, unsigned int base, unsigned int& value) {
  if (c >= '0' && c <= '9')
    value = c - '0';
  else if (base == 16 && c >= 'A' && c <= 'F')
    value = c - 'A' + 10u;
  else if (base == 16 && c >= 'a' && c <= 'f')
    value = c - 'a' + 10u;
  else
    return false;
  return true;
}

/// A number read by hand: what the cursor, the value and the status must be.
void compareNumber(Bytes& bytes, unsigned int base) {
  unsigned int value = 0, at = 0;
  int status = 0;
  while (at < bytes.size() && status == 0) {
    unsigned int next = 0;
    value *= base;
    if (digit(bytes[at++], base, next))
      value += next;
    else
      status = -1;
  }
  unsigned char* cursor = bytes.data();
  unsigned int read = 0;
  const auto reader = base == 10 ? utilParseAsciiDecToNum : utilParseAsciiHexToNum;
  FUZZ_REQUIRE(reader(cursor, fuzz::length(bytes), read) == status);
  FUZZ_REQUIRE(cursor == bytes.data() + at && read == value);
}

void readTime(const Bytes& bytes) {
  std::vector<char> text(bytes.begin(), bytes.end());
  unsigned int year = 0, month = 0, day = 0;
  double seconds = -1;
  const int status = utilParseTimeString(text.data(), fuzz::length(bytes), year, month, day, seconds);
  FUZZ_REQUIRE(bytes.empty() || (seconds >= 0 && seconds <= 99 * 3661 + 1));
  for (std::size_t i = 0; i < text.size(); ++i)
    FUZZ_REQUIRE(text[i] == static_cast<char>(i == 0 && text.size() >= 26 && bytes[0] != ' ' ? bytes[i] & 0x7F
                                                                                             : bytes[i]));
  if (status < 0) return;
  FUZZ_REQUIRE(bytes.size() >= 26 && year <= 9999 && month <= 99 && day <= 99);
  FUZZ_REQUIRE(year ==
               (bytes[0] & 0x7Fu) % 16 * 1000 + bytes[1] % 16u * 100 + bytes[2] % 16u * 10 + bytes[3] % 16u);
}

void convertTexts(const Bytes& bytes) {
  std::string narrow(bytes.begin(), bytes.end());
  const wchar_t* const wide = utilCharToWideStrStatic(narrow.c_str());
  FUZZ_REQUIRE(std::char_traits<wchar_t>::length(wide) <= 1023);
  FUZZ_REQUIRE(std::strlen(utilWideToMbsStatic(wide)) <= 1023);

  std::wstring values(bytes.size() / 4, L'\0');
  if (!values.empty()) std::memcpy(values.data(), bytes.data(), 4 * values.size());
  std::string converted = "old";
  utilW2S(values, converted);
  FUZZ_REQUIRE(converted.size() <= values.size());
  FUZZ_REQUIRE(std::strlen(utilWideToMbsStatic(values.c_str())) <= 1023);
}

void writeDigits(fuzz::Input input) {
  const unsigned int value = input.number(), count = input.upTo(16);
  Bytes digits(count);
  utilUint32ToBufBCD(value, digits.data(), count);
  unsigned int rest = value;
  for (unsigned int i = count; i > 0; --i, rest /= 100)
    FUZZ_REQUIRE(digits[i - 1] == (rest / 10 % 10 << 4 | rest % 10));
  if (count == 2) FUZZ_REQUIRE(utilBufBCDToUint32(digits.data(), 2) == value % 10000);

  Bytes buffer(std::min(count, 4u));
  FUZZ_REQUIRE(utilUint32ToBuf(value, buffer.data(), count) == buffer.size());
  if (buffer.size() == 4) FUZZ_REQUIRE(utilBufToUint32(buffer.data(), false) == value);
  const unsigned int bit = utilBitPos(value);
  FUZZ_REQUIRE(value == 0 ? bit == 0xFFFFFFFF : value >> bit << bit == value && (value >> bit & 1) == 1);

  std::vector<char> clock(count, 'x');
  CFrameMetaData::GetClockFromUsecs(static_cast<unsigned long>(value) * value, clock.data(), count);
  FUZZ_REQUIRE(count == 0 || std::memchr(clock.data(), 0, count) != nullptr);
  utilOSGetLocalTimeString(clock.data(), count);
  FUZZ_REQUIRE(count == 0 || clock.back() == '\0');
}

void setValues(const Bytes& bytes) {
  const std::string text(bytes.begin(), bytes.end());
  CFrameMetaData header;
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT + 2; ++key)
    header.SetValue(static_cast<ORVA_META_KEYS>(key), text);
  header.SetModelName(text.c_str(), static_cast<unsigned int>(text.size()));
  header.SetSerialNumber(text.c_str(), static_cast<unsigned int>(text.size()));
  Bytes written(384);
  FUZZ_REQUIRE(header.Binarize(written.data(), 384) == 384);
  std::vector<char> rendered(4096);
  for (unsigned int version = 3; version <= 4; ++version) {
    header.SetBinarizeVersion(version);
    FUZZ_REQUIRE(header.ToString(rendered.data(), 4096) > 0);
  }
}

}  // namespace

FUZZ_TARGET(data, size) {
  Bytes bytes = fuzz::copyOf(data, size);
  compareNumber(bytes, 10);
  compareNumber(bytes, 16);
  readTime(bytes);
  convertTexts(bytes);
  writeDigits(fuzz::Input(data, size));
  setValues(bytes);
  return 0;
}
