// The header as text.

#include <orvacam/metadata/CFrameMetaData.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "metadata/TextLines.h"
#include "support/NumberText.h"
#include "support/WideText.h"

using orvacam::fixedText;
using orvacam::text::Line;
using orvacam::text::Rule;

namespace {

template <typename... Arguments>
std::string print(const char* format, Arguments... arguments) {
  char text[96];
  std::snprintf(text, sizeof text, format, arguments...);  // integers and short texts only: no locale shows
  return text;
}

std::string decimal(unsigned int value) {
  return print("%d", static_cast<int>(value));
}
std::string hex(unsigned int value) {
  return print("0x%x", value);
}
const char* flag(bool value) {
  return value ? "TRUE" : "FALSE";
}

std::string storedText(const CMetaValues& value) {
  int length = 0;
  const auto* const bytes = reinterpret_cast<const char*>(value.GetValue(nullptr, length));
  if (bytes == nullptr || length <= 0) return {};
  return std::string(bytes, strnlen(bytes, static_cast<unsigned int>(length)));
}

/// Copies as much as fits and clears the rest, like snprintf into a cleared buffer; the whole text's length.
int deliver(const std::string& text, char* pText, unsigned int uiSize) {
  if (uiSize > 0) {
    std::memset(pText, 0, uiSize);
    std::memcpy(pText, text.data(), std::min<std::size_t>(text.size(), uiSize - 1));
  }
  return static_cast<int>(text.size());
}

}  // namespace

void CFrameMetaData::TimeMetaToString2(char* pText, unsigned int uiSize) const {
  if (pText == nullptr) return;
  const unsigned int date = DoUint(ORVA_META_KEY_CAPTURE_DATE);
  const unsigned long seconds = m_Values[ORVA_META_KEY_CAPTURE_TIME].GetValueUint64();
  const std::string text = print(
      "%04d/%02d/%02d %02d:%02d:%02d.%09d", static_cast<int>(date >> 16), static_cast<int>(date >> 8 & 255),
      static_cast<int>(date & 255), static_cast<int>(seconds / 3600), static_cast<int>(seconds / 60 % 60),
      static_cast<int>(seconds % 60), static_cast<int>(DoUint(ORVA_META_KEY_CAPTURE_TIME_NSECS)));
  deliver(m_bCaptureTimeValid ? text : "ERROR: " + text, pText, uiSize);
}

const char* CFrameMetaData::DoRenderPadding() {
  const unsigned int count = DoUint(ORVA_META_KEY_METADATA_VERSION) == 3 ? 152 : 25;
  std::string text;
  for (unsigned int i = 0; i < count; ++i)
    text += print(i == 0 ? "%02d" : ", %02d", int{m_Padding[i]});
  deliver(text, m_PaddingText, sizeof m_PaddingText);
  return m_PaddingText;
}

std::string CFrameMetaData::DoRenderLines(unsigned int uiVersion) {
  const Line* lines = orvacam::text::version4;
  const Line* end = std::end(orvacam::text::version4);
  if (uiVersion == 1) lines = orvacam::text::version1, end = std::end(orvacam::text::version1);
  if (uiVersion == 2) lines = orvacam::text::version2, end = std::end(orvacam::text::version2);
  if (uiVersion == 3) lines = orvacam::text::version3, end = std::end(orvacam::text::version3);
  std::string text;
  for (; lines != end; ++lines)
    text += lines->label + DoRenderValue(static_cast<unsigned int>(lines->rule), lines->key) + "\n";
  return text;
}

std::string CFrameMetaData::DoRenderValue(unsigned int uiRule, unsigned int uiKey) {
  const CMetaValues& value = m_Values[uiKey];
  const unsigned int word = value.GetValueUint();
  const double number = value.GetValueInt();
  const auto position = [this, uiKey](const char* positive, const char* negative) {
    return fixedText(m_Values[uiKey].GetValueDouble()) + " deg " +
           fixedText(m_Values[uiKey + 1].GetValueDouble(), 4) + " min " +
           (m_Values[uiKey + 2].GetValueBool() ? positive : negative);
  };
  const auto quadrant = [word](unsigned int bit) { return std::string(flag((word & bit) != 0)); };
  switch (static_cast<Rule>(uiRule)) {
    case Rule::Decimal:
      return decimal(word);
    case Rule::Hex:
      return hex(word);
    case Rule::Hex8:
      return print("0x%08x", word);
    case Rule::DecimalAndHex:
      return decimal(word) + " (" + hex(word) + ")";
    case Rule::Text:
      return storedText(value);
    case Rule::Flag:
      return flag(value.GetValueBool());
    case Rule::Tenths6:
      return fixedText(number / 10.0);
    case Rule::Tenths:
      return fixedText(number / 10.0, 1);
    case Rule::TenthsAndHex:
      return fixedText(number / 10.0, 1) + " (" + hex(word) + ")";
    case Rule::Hundredths:
      return fixedText(number / 100.0, 3);
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
    case Rule::Seconds:
      return fixedText(value.GetValueDouble() + m_Values[uiKey + 1].GetValueDouble() / 1e9) + " secs";
    case Rule::CaptureTime:
      TimeMetaToString2(m_CaptureTimeLine, sizeof m_CaptureTimeLine);
      return m_CaptureTimeLine;
    case Rule::Exposure:
      GetClockFromUsecs(word * 10UL, m_ExposureClock, sizeof m_ExposureClock);
      return std::string(m_ExposureClock) + ", " + decimal(word) + " (10usec periods)";
    case Rule::ControlBlock:
      return decimal(m_ControlBlock.GetValueUint());
    case Rule::ControlBlock2:
      return decimal(m_ControlBlock2.GetValueUint()) + " (" + hex(m_ControlBlock2.GetValueUint()) + ")";
    case Rule::ControlBlockTest:
      return hex(m_ControlBlockTest.GetValueUint());
    case Rule::ReservedBytes:
      return print("Reserved [0x%x, 0x%x]", unsigned{m_Reserved2[0]}, unsigned{m_Reserved2[1]});
    case Rule::Quadrant20:
      return quadrant(0x20);
    case Rule::Quadrant10:
      return quadrant(0x10);
    case Rule::Quadrant08:
      return quadrant(0x08);
    case Rule::Quadrant04:
      return quadrant(0x04);
    case Rule::Latitude:
      return position("N", "S");
    case Rule::Longitude:
      return position("E", "W");
    case Rule::Padding:
      return DoRenderPadding();
    default:
      return {};
  }
}

int CFrameMetaData::DoToString1(char* pText, unsigned int uiSize) {
  return pText == nullptr ? -1 : deliver(DoRenderLines(1), pText, uiSize);
}

int CFrameMetaData::DoToString2(char* pText, unsigned int uiSize) {
  return pText == nullptr ? -1 : deliver(DoRenderLines(2), pText, uiSize);
}

int CFrameMetaData::DoToString3(char* pText, unsigned int uiSize, bool bPadding) {
  if (pText == nullptr) return -1;
  std::string text = DoRenderLines(3);
  if (bPadding) text += std::string("Padding = ") + DoRenderPadding() + "\n";
  return deliver(text, pText, uiSize);
}

int CFrameMetaData::DoToString4(char* pText, unsigned int uiSize) {
  const int length = DoToString3(pText, uiSize, false);
  if (length <= 0) return length;
  const std::string block = DoRenderLines(4);
  // A text that is cut already leaves no room for the block.
  if (static_cast<unsigned int>(length) < uiSize)
    deliver(block, pText + length, uiSize - static_cast<unsigned int>(length));
  return length + static_cast<int>(block.size());
}

int CFrameMetaData::DoToString(char* pText, unsigned int uiSize) try {
  switch (DoUint(ORVA_META_KEY_METADATA_VERSION)) {
    case 1:
      return DoToString1(pText, uiSize);
    case 2:
      return DoToString2(pText, uiSize);
    case 3:
      return DoToString3(pText, uiSize, true);
    default:
      return DoToString4(pText, uiSize);
  }
} catch (const std::bad_alloc&) {
  return -1;
}

int CFrameMetaData::ToString(char* pText, unsigned int uiSize) {
  return DoToString(pText, uiSize);
}

int CFrameMetaData::ToString(wchar_t* pText, unsigned int uiSize) {
  const int length = DoToString(m_Text, sizeof m_Text);
  if (length < 0 || pText == nullptr) return pText == nullptr ? -1 : length;
  if (uiSize > 0) std::fill_n(pText, uiSize, L'\0');
  orvacam::narrowToWide(m_Text, pText, uiSize);
  return length;
}
