// The header as text.

#include <orvacam/metadata/CFrameMetaData.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "metadata/HeaderFields.h"
#include "metadata/TextLines.h"
#include "metadata/Values.h"
#include "support/NumberText.h"
#include "support/WideText.h"

using namespace orvacam::header;
using orvacam::fixedText;
using orvacam::text::Line;
using orvacam::text::Rule;

namespace {

/// printf for integers, which look the same in every locale.
template <typename... Integers>
std::string print(const char* format, Integers... values) {
  char text[96];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

std::string decimal(unsigned int value) {
  return print("%d", static_cast<int>(value));
}

std::string decimalAndHex(unsigned int value) {
  return print("%d (0x%x)", static_cast<int>(value), value);
}

std::string flag(bool value) {
  return value ? "TRUE" : "FALSE";
}

/// A GPS position: degrees, minutes and hemisphere flag are neighbouring keys.
std::string position(const CMetaValues* degrees, const char* positive, const char* negative) {
  return fixedText(degrees[0].GetValueDouble()) + " deg " + fixedText(degrees[1].GetValueDouble(), 4) +
         " min " + (degrees[2].GetValueBool() ? positive : negative);
}

/// Copies what fits in front of a closing zero and clears the rest; the length of the whole text, like
/// snprintf.
int deliver(std::string_view text, char* pText, unsigned int uiSize) {
  if (uiSize > 0) {
    std::memset(pText, 0, uiSize);
    text.copy(pText, uiSize - 1);
  }
  return static_cast<int>(text.size());
}

/// Date, time of day and nanoseconds of the capture.
void printTime(char* pText, std::size_t size, const char* format, const CFrameMetaData& header) {
  const unsigned int date = header.Value(ORVA_META_KEY_CAPTURE_DATE).GetValueUint();
  const unsigned long seconds = header.Value(ORVA_META_KEY_CAPTURE_TIME).GetValueUint64();
  const unsigned int nanoseconds = header.Value(ORVA_META_KEY_CAPTURE_TIME_NSECS).GetValueUint();
  std::snprintf(pText, size, format, static_cast<int>(date >> 16), static_cast<int>(date >> 8 & 255),
                static_cast<int>(date & 255), static_cast<int>(seconds / 3600),
                static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60),
                static_cast<int>(nanoseconds));
}

std::string paddingText(const unsigned char* padding, unsigned int count) {
  std::string text;
  for (unsigned int i = 0; i < count; ++i)
    text += print(i == 0 ? "%02d" : ", %02d", int{padding[i]});
  return text;
}

/// What a line shows of its value, and of the neighbours where it shows several.
std::string render(const Line& line, const CMetaValues* value) {
  const unsigned int word = value->GetValueUint();
  const int number = value->GetValueInt();
  switch (line.rule) {
    case Rule::Decimal:
      return decimal(word);
    case Rule::Signed:
      return print("%d", number);
    case Rule::Hex:
      return print("0x%x", word);
    case Rule::Hex8:
      return print("0x%08x", word);
    case Rule::DecimalAndHex:
      return decimalAndHex(word);
    case Rule::Text:
      return std::string(orvacam::textOf(*value));
    case Rule::Flag:
      return flag(value->GetValueBool());
    case Rule::Tenths6:
      return fixedText(number / 10.0);
    case Rule::Tenths:
      return fixedText(number / 10.0, 1);
    case Rule::TenthsAndHex:
      return fixedText(word / 10.0, 1) + print(" (0x%x)", word);
    case Rule::Hundredths:
      return fixedText(word / 100.0, 3);
    case Rule::Thousandths:
      return fixedText(number / 1000.0, 3);
    case Rule::Percent:
      return fixedText(word / 2.55, 1);
    case Rule::Year:
      return decimal(word >> 16);
    case Rule::Month:
      return decimal(word >> 8 & 255);
    case Rule::Day:
      return decimal(word & 255);
    case Rule::Bit:
      return flag((word & line.bit) != 0);
    case Rule::ReservedBytes:
      return print("[0x%x, 0x%x]", word >> 8, word & 255);
    case Rule::Seconds:
      return fixedText(value[0].GetValueDouble() + value[1].GetValueDouble() / 1e9) + " secs";
    case Rule::Exposure: {
      char clock[64];
      CFrameMetaData::GetClockFromUsecs(word * 10UL, clock, sizeof clock);
      return clock + print(", %d (10usec periods)", static_cast<int>(word));
    }
    case Rule::Latitude:
      return position(value, "N", "S");
    case Rule::Longitude:
      return position(value, "E", "W");
    default:
      return {};
  }
}

/// The lines of a version, from a header's values and padding.
std::string renderLines(const CFrameMetaData& header, const CMetaValues* values, const unsigned char* padding,
                        unsigned int version, bool withPadding) {
  const unsigned int held = values[ORVA_META_KEY_METADATA_VERSION].GetValueUint();
  std::string text;
  for (const Line& line : orvacam::text::lines) {
    const char* const label = line.labels[version - 1];
    if (label == nullptr || (line.rule == Rule::Padding && !withPadding)) continue;
    text += label;
    if (line.rule == Rule::Padding) {
      text += paddingText(padding, paddingOf(version > 2 && held == 3 ? V34 : V2));
    } else if (line.rule == Rule::CaptureTime) {
      char time[64];
      header.TimeMetaToString2(time, sizeof time);
      text += time;
    } else {
      text += render(line, &values[line.key]);
    }
    text += '\n';
  }
  return text;
}

}  // namespace

// ---- Times

void CFrameMetaData::TimeMetaToString2(char* pText, unsigned int uiSize) const {
  if (pText == nullptr) return;
  char text[96];  // headers are written also when there is no memory
  const char* const format = m_bCaptureTimeValid ? "%04d/%02d/%02d %02d:%02d:%02d.%09d"
                                                 : "ERROR: %04d/%02d/%02d %02d:%02d:%02d.%09d";
  printTime(text, sizeof text, format, *this);
  deliver(text, pText, uiSize);
}

void CFrameMetaData::GetCaptureDate(char* pText, unsigned int uiSize) const {
  if (pText == nullptr || uiSize == 0) return;
  std::memset(pText, 0, uiSize);
  printTime(pText, uiSize, "%04d-%02d-%02dT%02d:%02d:%02d.%09d", *this);
}

void CFrameMetaData::GetClockFromUsecs(unsigned long ulUsecs, char* pText, unsigned int uiSize) {
  if (pText == nullptr || uiSize == 0) return;
  const unsigned long seconds = ulUsecs / 1000000;
  std::snprintf(pText, uiSize, "%d:%d.%d.%06d", static_cast<int>(seconds / 3600),
                static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60),
                static_cast<int>(ulUsecs % 1000000));
}

// ---- Lines

int CFrameMetaData::DoToString1(char* pText, unsigned int uiSize) {
  return pText == nullptr ? -1 : deliver(renderLines(*this, m_Values, m_Padding, 1, true), pText, uiSize);
}

int CFrameMetaData::DoToString2(char* pText, unsigned int uiSize) {
  return pText == nullptr ? -1 : deliver(renderLines(*this, m_Values, m_Padding, 2, true), pText, uiSize);
}

int CFrameMetaData::DoToString3(char* pText, unsigned int uiSize, bool bPadding) {
  return pText == nullptr ? -1 : deliver(renderLines(*this, m_Values, m_Padding, 3, bPadding), pText, uiSize);
}

int CFrameMetaData::DoToString4(char* pText, unsigned int uiSize) {
  const int length = DoToString3(pText, uiSize, false);
  if (length <= 0) return length;
  const std::string block = renderLines(*this, m_Values, m_Padding, 4, true);
  const auto used = static_cast<unsigned int>(length);
  if (used < uiSize) deliver(block, pText + used, uiSize - used);
  return length + static_cast<int>(block.size());
}

int CFrameMetaData::DoToString(char* pText, unsigned int uiSize) try {
  switch (m_Values[ORVA_META_KEY_METADATA_VERSION].GetValueUint()) {
    case 1:
      return DoToString1(pText, uiSize);
    case 2:
      return DoToString2(pText, uiSize);
    case 3:
      return DoToString3(pText, uiSize, true);
    default:
      return DoToString4(pText, uiSize);
  }
} catch (const std::exception&) {
  return -1;
}

int CFrameMetaData::ToString(char* pText, unsigned int uiSize) {
  return DoToString(pText, uiSize);
}

int CFrameMetaData::ToString(wchar_t* pText, unsigned int uiSize) {
  if (pText == nullptr) return -1;
  constexpr unsigned int mostText = 32768;
  const std::unique_ptr<char[]> text(new (std::nothrow) char[mostText]);
  if (text == nullptr) return -1;
  const int length = DoToString(text.get(), mostText);
  if (length < 0) return length;
  std::wmemset(pText, L'\0', uiSize);
  orvacam::narrowToWide(text.get(), pText, uiSize);
  return length;
}
