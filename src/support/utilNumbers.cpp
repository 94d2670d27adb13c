// Bits, byte order, digits and the reader of time strings.

#include <orvacam/support/util.h>

#include <cstring>
#include <string_view>

#include "support/ByteWriter.h"

namespace {

std::uint64_t bytesToUint(const unsigned char* pBuffer, unsigned int uiCount, bool bLittleEndian) {
  std::uint64_t value = 0;
  for (unsigned int i = 0; i < uiCount; ++i)
    value = (value << 8) | pBuffer[bLittleEndian ? uiCount - 1 - i : i];
  return value;
}

/// The digit's value, or the base when the character is no digit of it.
unsigned int digitOf(unsigned char c, unsigned int base) {
  unsigned int digit = base;
  if (c >= '0' && c <= '9') digit = c - '0';
  if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
  if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
  return digit < base ? digit : base;
}

int parseDigits(unsigned char*& pCursor, unsigned int uiCount, unsigned int uiBase, unsigned int& uiValue) {
  uiValue = 0;
  for (unsigned int i = 0; i < uiCount; ++i) {
    uiValue *= uiBase;
    const unsigned int digit = digitOf(*pCursor++, uiBase);
    if (digit == uiBase) return -1;
    uiValue += digit;
  }
  return 0;
}

}  // namespace

unsigned int utilBitPos(unsigned int uiValue) {
  return uiValue == 0 ? 0xFFFFFFFFu : static_cast<unsigned int>(__builtin_ctz(uiValue));
}

short utilBufToInt16(const unsigned char* pBuffer, bool bLittleEndian) {
  return static_cast<short>(utilBufToUint16(pBuffer, bLittleEndian));
}

unsigned short utilBufToUint16(const unsigned char* pBuffer, bool bLittleEndian) {
  return static_cast<unsigned short>(bytesToUint(pBuffer, 2, bLittleEndian));
}

int utilBufToInt32(const unsigned char* pBuffer, bool bLittleEndian) {
  return static_cast<int>(utilBufToUint32(pBuffer, bLittleEndian));
}

unsigned int utilBufToUint32(const unsigned char* pBuffer, bool bLittleEndian) {
  return static_cast<unsigned int>(bytesToUint(pBuffer, 4, bLittleEndian));
}

unsigned int utilBufBCDToUint32(const unsigned char* pBuffer, unsigned int /*uiLength*/) {
  // Intended: always two bytes, whatever the length says.
  return (pBuffer[0] >> 4) * 1000u + (pBuffer[0] & 15u) * 100u + (pBuffer[1] >> 4) * 10u + (pBuffer[1] & 15u);
}

unsigned int utilUint32ToBuf(unsigned int uiValue, unsigned char* pBuffer, unsigned int uiLength) {
  if (pBuffer == nullptr) return 0;
  const unsigned int count = uiLength < 4 ? uiLength : 4;
  orvacam::ByteWriter(pBuffer, count).putUint(0, count, uiValue);
  return count;
}

void utilUint32ToBufBCD(unsigned int uiValue, unsigned char* pBuffer, unsigned int uiLength) {
  if (pBuffer == nullptr) return;
  for (unsigned int i = uiLength; i > 0; --i, uiValue /= 100)
    pBuffer[i - 1] = static_cast<unsigned char>((uiValue / 10 % 10) << 4 | uiValue % 10);
}

int utilParseAsciiDecToNum(unsigned char*& pCursor, unsigned int uiCount, unsigned int& uiValue) {
  return parseDigits(pCursor, uiCount, 10, uiValue);
}

int utilParseAsciiHexToNum(unsigned char*& pCursor, unsigned int uiCount, unsigned int& uiValue) {
  return parseDigits(pCursor, uiCount, 16, uiValue);
}

int utilParseTimeString(char* pText, unsigned int uiLength, unsigned int& uiYear, unsigned int& uiMonth,
                        unsigned int& uiDay, double& dSeconds) {
  if (pText == nullptr) return -1;
  dSeconds = 0.0;
  if (uiLength < 26 || pText[0] == '\0' || pText[0] == ' ') return -1;
  pText[0] = static_cast<char>(pText[0] & 0x7F);

  unsigned int hours = 0;
  unsigned int minutes = 0;
  unsigned int seconds = 0;
  unsigned int ignored = 0;
  const struct {
    unsigned int digits;
    unsigned int& value;
    unsigned int secondsEach;
  } parts[] = {{4, uiYear, 0},   {2, uiMonth, 0},  {2, uiDay, 0},
               {2, hours, 3600}, {2, minutes, 60}, {2, seconds, 1}};

  auto* cursor = reinterpret_cast<unsigned char*>(pText);
  const unsigned char* const end = cursor + uiLength;
  for (const auto& part : parts) {  // 20 characters in all, which the 26 cover
    if (utilParseAsciiDecToNum(cursor, part.digits, part.value) < 0) return -1;
    dSeconds += static_cast<double>(part.value * part.secondsEach);
    ++cursor;  // the separator, whatever it is
  }

  const std::string_view text(pText, strnlen(pText, uiLength));
  const bool noClock = text.find("NOGPS") != text.npos || text.find("ERROR") != text.npos;
  const unsigned int digits = noClock ? 3 : 9;
  const auto room = static_cast<unsigned int>(end - cursor);
  // Where the caller's bytes end inside the fraction, the missing digit is no digit.
  int status = utilParseAsciiDecToNum(cursor, digits < room ? digits : room, ignored);
  if (status == 0 && room < digits) {
    ignored *= 10;
    status = -1;
  }
  // Intended: the 3-digit form is divided by 1e9 too.
  dSeconds += ignored / 1e9;
  return status;
}
