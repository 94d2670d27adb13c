// Life cycle, value access and the setters that mark a header as processed.

#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/support/util.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "metadata/HeaderFields.h"
#include "support/NumberText.h"

using namespace orvacam::header;

namespace {

struct KeyKinds {
  constexpr KeyKinds() {
    for (unsigned int key = 0; key < ORVA_META_KEY_COUNT; ++key)
      of[key] = kindOf(key);
  }
  char of[ORVA_META_KEY_COUNT] = {};
};
constexpr KeyKinds kinds;

/// The value that an unsigned key has in an empty header.
unsigned int emptyNumber(unsigned int key) {
  const bool isOne = key == ORVA_META_KEY_HORIZONTAL_BINNING || key == ORVA_META_KEY_VERTICAL_BINNING ||
                     key == ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE || key == ORVA_META_KEY_VERTICAL_PIXEL_SIZE;
  return isOne ? 1 : 0;
}

void reset(unsigned int key, CMetaValues& value) {
  // Intended: the high-gain black levels are not reset.
  if (key == ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH || key == ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH) return;
  const bool isInfo = key == ORVA_META_KEY_LIB_INFO_STRING || key == ORVA_META_KEY_APP_INFO_STRING;
  switch (kinds.of[key]) {
    case 'u':
      return value.SetValueUint(emptyNumber(key));
    case 'i':
      return value.SetValueInt(0);
    case 'd':
      return value.SetValueDouble(0.0);
    case 't':
      return value.SetValueStr(isInfo ? "Unknown" : "");
    case 'f':
      return value.SetValueBool(false);
    default:
      return;
  }
}

}  // namespace

CFrameMetaData::CFrameMetaData() : m_uiCursor(0), m_bCaptureTimeValid(true) {
  DoInitialize();
}

// Here rather than in every place that copies: it is a lot of code. The check objects to the compiler's own
// loop over the array of values.
// NOLINTBEGIN(bugprone-reserved-identifier)
CFrameMetaData::CFrameMetaData(const CFrameMetaData& other) = default;
CFrameMetaData& CFrameMetaData::operator=(const CFrameMetaData& other) = default;
// NOLINTEND(bugprone-reserved-identifier)

void CFrameMetaData::DoInitialize() {
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT; ++key)
    reset(key, m_Values[key]);
  m_Values[ORVA_META_KEY_MAGIC_NUMBER].SetValueUint(magic);

  m_ControlBlock.SetValueUint(0);
  m_ControlBlock2.SetValueUint(0);
  m_ExtraFlags.SetValueUint(0);
  m_ControlBlockTest.SetValueUint(0xFF);  // none of its inverted flags
  m_OtherMetaData = CFrameOtherMetaData();
  m_bCaptureTimeValid = true;
  std::memset(m_CaptureTimeText, 0, sizeof m_CaptureTimeText);
  std::memset(m_Padding, 0, sizeof m_Padding);
  std::memset(m_Reserved1, 0, sizeof m_Reserved1);
  std::memset(m_Reserved2, 0, sizeof m_Reserved2);
  std::memset(m_RawHeader, 0, sizeof m_RawHeader);
}

void CFrameMetaData::ReInitialize(bool bAsDefaultFrame) {
  DoInitialize();
  if (!bAsDefaultFrame) return;
  constexpr char model[] = "VESTRA VS4040";
  constexpr unsigned int size = 4096;
  m_Values[ORVA_META_KEY_METADATA_LENGTH].SetValueUint(writtenSize);
  m_Values[ORVA_META_KEY_METADATA_VERSION].SetValueUint(3);
  SetModelName(model, sizeof model - 1);
  SetBitsPerPixel(16);
  SetDimensions(size, size);
}

// ---- Values

int CFrameMetaData::GetValue(ORVA_META_KEYS eKey, meta_data_value_t& value) {
  if (eKey >= ORVA_META_KEY_COUNT) return -1;
  const CMetaValues& stored = m_Values[eKey];
  if (stored.IsStringValue()) {
    value.length = sizeof value.text;
    stored.GetValue(value.text, value.length);
  } else {
    value.value = stored.GetValueDouble();
    value.length = -1;
  }
  m_uiCursor = eKey + 1;
  return static_cast<int>(eKey);
}

int CFrameMetaData::GetValueNext(meta_data_value_t& value) {
  return GetValue(static_cast<ORVA_META_KEYS>(m_uiCursor), value);
}

int CFrameMetaData::GetValueUint(const unsigned char* /*pBuffer*/, unsigned int /*uiCount*/,
                                 ORVA_META_KEYS /*eKey*/, unsigned int& /*uiValue*/) {
  return 0;  // intended: callers link it, nobody relies on more
}

const CMetaValues& CFrameMetaData::Value(ORVA_META_KEYS eKey) const {
  return m_Values[eKey < ORVA_META_KEY_COUNT ? eKey : ORVA_META_KEY_MAGIC_NUMBER];
}

void CFrameMetaData::SetValue(ORVA_META_KEYS eKey, const std::string& text) {
  switch (eKey) {
    case ORVA_META_KEY_CAMERA_MODEL:
    case ORVA_META_KEY_CAMERA_SERIAL_NUMBER:
    case ORVA_META_KEY_LIB_INFO_STRING:
    case ORVA_META_KEY_APP_INFO_STRING:
      m_Values[eKey].SetValueStr(text.c_str());
      break;
    case ORVA_META_KEY_CAPTURE_DATE: {
      m_Values[eKey].SetValueStr(text.c_str());
      std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);  // the reader changes its input
      if (DoReadTimeText(buffer.data(), static_cast<unsigned int>(text.size())) < 0)
        m_bCaptureTimeValid = false;
      break;
    }
    default:
      if (eKey < ORVA_META_KEY_COUNT) m_Values[eKey].SetValueDouble(orvacam::parseDouble(text));
  }
}

int CFrameMetaData::DoReadTimeText(char* pText, unsigned int uiLength) {
  unsigned int year = 0;
  unsigned int month = 0;
  unsigned int day = 0;
  double seconds = 0.0;
  if (utilParseTimeString(pText, uiLength, year, month, day, seconds) < 0) return -1;
  const auto wholeSeconds = static_cast<double>(static_cast<unsigned int>(seconds));
  m_Values[ORVA_META_KEY_CAPTURE_DATE].SetValueUint(year * 65536 + month * 256 + day);
  m_Values[ORVA_META_KEY_CAPTURE_TIME].SetValueDouble(wholeSeconds);
  // Intended: the fraction of a double, which may lie a little below the text's: cut to an integer it reads
  // one less.
  m_Values[ORVA_META_KEY_CAPTURE_TIME_NSECS].SetValueDouble((seconds - wholeSeconds) * 1e9);
  return 0;
}

bool CFrameMetaData::IsValid() const {
  return m_Values[ORVA_META_KEY_MAGIC_NUMBER].IsEqual(magic);
}

bool CFrameMetaData::IsMerged() const {
  return !m_Values[ORVA_META_KEY_HDR_MODE].GetValueBool() && DoUint(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH) == 16;
}

// ---- Marking a header as processed

CMetaValues& CFrameMetaData::DoKeptByte(unsigned int uiByte) {
  switch (static_cast<Kept>(uiByte)) {
    case Kept::ControlBlock2:
      return m_ControlBlock2;
    case Kept::ExtraFlags:
      return m_ExtraFlags;
    case Kept::ControlBlockTest:
      return m_ControlBlockTest;
    case Kept::HorizontalBinning:
      return m_Values[ORVA_META_KEY_HORIZONTAL_BINNING];
    default:
      return m_ControlBlock;
  }
}

void CFrameMetaData::DoSetFlag(ORVA_META_KEYS eKey, bool bValue) {
  m_Values[eKey].SetValueBool(bValue);
  for (const Flag& flag : flags) {
    if (flag.key != eKey) continue;
    CMetaValues& kept = DoKeptByte(static_cast<unsigned int>(flag.byte));
    const bool set = bValue != flag.whenClear;
    kept.SetValueUint(set ? kept.GetValueUint() | flag.mask : kept.GetValueUint() & ~unsigned{flag.mask});
  }
}

void CFrameMetaData::SetHDRFrame(bool bValue) {
  DoSetFlag(ORVA_META_KEY_HDR_MODE, bValue);
}
void CFrameMetaData::SetPixelEndianFormat(bool bValue) {
  DoSetFlag(ORVA_META_KEY_PIXEL_ORDERED_IMAGE, bValue);
}
void CFrameMetaData::SetIsHighFrame(bool bValue) {
  DoSetFlag(ORVA_META_KEY_TEST_IS_HIGH_FRAME, bValue);
}
void CFrameMetaData::SetIsMergedFrame(bool bValue) {
  DoSetFlag(ORVA_META_KEY_TEST_IS_MERGED_FRAME, bValue);
}
void CFrameMetaData::SetIsStackedFrame(bool bValue) {
  DoSetFlag(ORVA_META_KEY_TEST_IS_STACKED_FRAME, bValue);
}

void CFrameMetaData::SetBitsPerPixel(unsigned int uiBits) {
  m_Values[ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH].SetValueUint(uiBits);
  m_Values[ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH].SetValueUint(uiBits);
}

void CFrameMetaData::SetModelName(const char* pText, unsigned int uiLength) {
  constexpr unsigned int width = widthOf(ORVA_META_KEY_CAMERA_MODEL);
  if (pText != nullptr) m_Values[ORVA_META_KEY_CAMERA_MODEL].SetValueByte(pText, std::min(uiLength, width));
}

void CFrameMetaData::SetSerialNumber(const char* pText, unsigned int uiLength) {
  constexpr unsigned int width = widthOf(ORVA_META_KEY_CAMERA_SERIAL_NUMBER);
  if (pText != nullptr)
    m_Values[ORVA_META_KEY_CAMERA_SERIAL_NUMBER].SetValueByte(pText, std::min(uiLength, width));
}

void CFrameMetaData::SetDimensions(unsigned int uiStartColumn, unsigned int uiStartRow, unsigned int uiWidth,
                                   unsigned int uiHeight) {
  if (uiWidth == 0 || uiHeight == 0) return;
  m_Values[ORVA_META_KEY_HORIZONTAL_PIXELS].SetValueUint(uiWidth);
  m_Values[ORVA_META_KEY_VERTICAL_PIXELS].SetValueUint(uiHeight);
  m_Values[ORVA_META_KEY_IMAGE_START_COLUMN].SetValueUint(uiStartColumn);
  m_Values[ORVA_META_KEY_IMAGE_START_ROW].SetValueUint(uiStartRow);
  m_Values[ORVA_META_KEY_IMAGE_STOP_COLUMN].SetValueUint(uiStartColumn + uiWidth - 1);
  m_Values[ORVA_META_KEY_IMAGE_STOP_ROW].SetValueUint(uiStartRow + uiHeight - 1);
}

void CFrameMetaData::SetDimensions(unsigned int uiWidth, unsigned int uiHeight) {
  SetDimensions(0, 0, uiWidth, uiHeight);
}
