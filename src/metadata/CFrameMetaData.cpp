// Life cycle, value access and the setters that mark a header as processed.

#include <orvacam/metadata/CFrameMetaData.h>

#include <algorithm>
#include <cstring>

#include "metadata/HeaderFields.h"

using namespace orvacam::header;

namespace {

struct KeyKinds {
  constexpr KeyKinds() {
    for (unsigned int key = 0; key < valueCount; ++key)
      of[key] = kindOf(key);
  }
  char of[valueCount] = {};
};
constexpr KeyKinds kinds;

/// What an unsigned value is in an empty header.
unsigned int emptyNumber(unsigned int key) {
  switch (key) {
    case ORVA_META_KEY_MAGIC_NUMBER:
      return magic;
    case ORVA_META_KEY_HORIZONTAL_BINNING:
    case ORVA_META_KEY_VERTICAL_BINNING:
    case ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE:
    case ORVA_META_KEY_VERTICAL_PIXEL_SIZE:
      return 1;
    case ControlBlockTest:
      return 0xFF;  // none of its inverted flags
    default:
      return 0;
  }
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

/// Sets a flag, and its bit in the byte that is kept whole.
void setFlag(CMetaValues* values, ORVA_META_KEYS key, bool value) {
  values[key].SetValueBool(value);
  for (const Flag& flag : flags) {
    if (flag.key != key) continue;
    CMetaValues& kept = values[flag.byte];
    const bool set = value != flag.whenClear;
    kept.SetValueUint(set ? kept.GetValueUint() | flag.mask : kept.GetValueUint() & ~unsigned{flag.mask});
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
  static_assert(sizeof m_Values / sizeof *m_Values == valueCount);
  for (unsigned int key = 0; key < valueCount; ++key)
    reset(key, m_Values[key]);
  m_OtherMetaData = CFrameOtherMetaData();
  m_bCaptureTimeValid = true;
  std::memset(m_CaptureTimeText, 0, sizeof m_CaptureTimeText);
  std::memset(m_Padding, 0, sizeof m_Padding);
  std::memset(m_Reserved1, 0, sizeof m_Reserved1);
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

bool CFrameMetaData::IsValid() const {
  return m_Values[ORVA_META_KEY_MAGIC_NUMBER].IsEqual(magic);
}

bool CFrameMetaData::IsMerged() const {
  return !m_Values[ORVA_META_KEY_HDR_MODE].GetValueBool() &&
         m_Values[ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH].GetValueUint() == 16;
}

// ---- Marking a header as processed

void CFrameMetaData::SetHDRFrame(bool bValue) {
  setFlag(m_Values, ORVA_META_KEY_HDR_MODE, bValue);
}
void CFrameMetaData::SetPixelEndianFormat(bool bValue) {
  setFlag(m_Values, ORVA_META_KEY_PIXEL_ORDERED_IMAGE, bValue);
}
void CFrameMetaData::SetIsHighFrame(bool bValue) {
  setFlag(m_Values, ORVA_META_KEY_TEST_IS_HIGH_FRAME, bValue);
}
void CFrameMetaData::SetIsMergedFrame(bool bValue) {
  setFlag(m_Values, ORVA_META_KEY_TEST_IS_MERGED_FRAME, bValue);
}
void CFrameMetaData::SetIsStackedFrame(bool bValue) {
  setFlag(m_Values, ORVA_META_KEY_TEST_IS_STACKED_FRAME, bValue);
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
