// Reading a header from bytes.

#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/types/device_types.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>

#include "metadata/FitsCards.h"
#include "metadata/HeaderFields.h"
#include "sensors/Sensors.h"
#include "support/ByteReader.h"

using namespace orvacam::header;
using orvacam::ByteReader;

namespace {

constexpr unsigned char signBit = 0x80;
constexpr double gpsUnitsPerDegree = 600000.0;

/// Takes n bytes off the position; null, with nothing moved, when they are not there.
unsigned char* takeBytes(unsigned char*& pPosition, unsigned int& uiRemaining, unsigned int n) {
  if (pPosition == nullptr || uiRemaining < n) return nullptr;
  unsigned char* const taken = pPosition;
  pPosition += n;
  uiRemaining -= n;
  return taken;
}

/// Hands the next n bytes to `use`; -1 when they are not there.
template <typename Use>
int parse(unsigned char*& pPosition, unsigned int& uiRemaining, unsigned int n, Use use) {
  unsigned char* const bytes = takeBytes(pPosition, uiRemaining, n);
  if (bytes == nullptr) return -1;
  use(bytes);
  return 0;
}

}  // namespace

// ---- Ways in

bool CFrameMetaData::IsRCDFrame(const unsigned char* pBuffer, unsigned int uiLength) {
  return pBuffer != nullptr && uiLength >= 4 && std::memcmp(pBuffer, "Meta", 4) == 0;
}

int CFrameMetaData::Parse(unsigned char* pBuffer, unsigned int uiLength) try {
  m_uiCursor = 0;
  if (IsRCDFrame(pBuffer, uiLength)) return DoParse(pBuffer, uiLength);
  bool end = false;
  return orvacam::fits::isFitsFrame(pBuffer, uiLength)
             ? orvacam::fits::parseMetaData(pBuffer, uiLength, *this, end)
             : -1;
} catch (const std::exception&) {
  return -1;
}

int CFrameMetaData::Parse(std::FILE* pStream) try {
  m_uiCursor = 0;
  if (pStream == nullptr) return -1;
  m_bCaptureTimeValid = true;
  // Intended: what is neither a raw frame nor FITS, or too short, yields 0.
  unsigned char prefix[prefixSize];
  if (std::fseek(pStream, 0, SEEK_SET) != 0 || std::fread(prefix, 1, prefixSize, pStream) != prefixSize)
    return 0;
  if (!IsRCDFrame(prefix, prefixSize))
    return orvacam::fits::isFitsFrame(prefix, prefixSize) ? orvacam::fits::parseMetaData(pStream, *this) : 0;

  unsigned char* position = prefix;
  unsigned int remaining = prefixSize;
  ParseUint(position, remaining, m_Values[ORVA_META_KEY_MAGIC_NUMBER], 4);
  ParseUint(position, remaining, m_Values[ORVA_META_KEY_METADATA_LENGTH], 2);
  ParseUint(position, remaining, m_Values[ORVA_META_KEY_METADATA_VERSION], 2);

  const unsigned int length = DoUint(ORVA_META_KEY_METADATA_LENGTH);
  if (length > s_uiRawHeaderSize) return -1;
  std::memcpy(m_RawHeader, prefix, prefixSize);
  const unsigned int rest = length > prefixSize ? length - prefixSize : 0;
  if (std::fread(m_RawHeader + prefixSize, 1, rest, pStream) != rest) return 0;
  return DoParse(m_RawHeader, length);
} catch (const std::exception&) {
  return -1;
}

int CFrameMetaData::DoParse(unsigned char* pBuffer, unsigned int uiLength) {
  m_bCaptureTimeValid = true;
  m_Values[ORVA_META_KEY_METADATA_LENGTH].SetValueUint(0);
  unsigned char* position = pBuffer;
  unsigned int remaining = uiLength;
  if (ParseUint(position, remaining, m_Values[ORVA_META_KEY_MAGIC_NUMBER], 4) == 0 &&
      ParseUint(position, remaining, m_Values[ORVA_META_KEY_METADATA_LENGTH], 2) == 0)
    ParseUint(position, remaining, m_Values[ORVA_META_KEY_METADATA_VERSION], 2);

  // The version that is held now decides, even when it could not be read. Every unknown version is parsed
  // as 4.
  const unsigned int version = DoUint(ORVA_META_KEY_METADATA_VERSION);
  int result = DoParseFields(position, remaining, version);
  // Intended: every version but 1, 2 and 3 is read as version 4.
  if (result == 0 && setOf(version) == V34 && version != 3) result = DoParseVersion4(pBuffer, uiLength);
  if (result == 0) FixRefPixels();

  const unsigned int stated = DoUint(ORVA_META_KEY_METADATA_LENGTH);
  const unsigned int kept = std::min({stated != 0 ? stated : s_uiRawHeaderSize, uiLength, s_uiRawHeaderSize});
  if (pBuffer != nullptr) std::memmove(m_RawHeader, pBuffer, kept);
  return result;
}

// ---- Fields

int CFrameMetaData::DoParseFields(unsigned char* pPosition, unsigned int uiRemaining,
                                  unsigned int uiVersion) {
  const Versions version = setOf(uiVersion);
  int result = 0;
  bool forgivable = false;
  for (unsigned int row = 0; row < fieldCount; ++row) {
    const Field& field = fields[row];
    if ((field.versions & version) == 0) continue;
    // Intended: from version 3 on, a failure between the model and the common block is forgotten there.
    if (forgivable && field.offset == commonBlock) result = 0;
    if (result != 0) continue;
    result = DoParseField(row, pPosition, uiRemaining);
    forgivable = result != 0 && version == V34 && field.offset >= forgivenFrom && field.offset < commonBlock;
  }
  // The flags follow from whatever their bytes hold now, also after a failure.
  DoDeriveFlags(uiVersion);
  return result;
}

int CFrameMetaData::DoParseField(unsigned int uiRow, unsigned char*& pPosition, unsigned int& uiRemaining) {
  const Field& field = fields[uiRow];
  CMetaValues* const values = &m_Values[field.key];
  CMetaValues word;
  switch (field.read) {
    case Encoding::Unsigned:
      return ParseUint(pPosition, uiRemaining, *values, field.width);
    case Encoding::Signed:
      return ParseInt(pPosition, uiRemaining, *values, field.width);
    case Encoding::SignMagnitude:
      return ParseIntSignedMagnitude(pPosition, uiRemaining, *values, field.width);
    case Encoding::Text:
      return ParseString(pPosition, uiRemaining, *values, field.width);
    case Encoding::OptionalText:
      return uiRemaining < field.width ? 0 : ParseString(pPosition, uiRemaining, *values, field.width);
    case Encoding::FlagByte:
      return ParseUint(pPosition, uiRemaining, DoKeptByte(static_cast<unsigned int>(field.kept)),
                       field.width);
    case Encoding::PixelDepths:
      if (ParseUint(pPosition, uiRemaining, word, field.width) != 0) return -1;
      values[0].SetValueUint((word.GetValueUint() & 15) + 1);  // the camera sends the bit depth minus one
      values[1].SetValueUint(word.GetValueUint() >> 4);
      return 0;
    case Encoding::ReferenceRows:
      if (ParseUint(pPosition, uiRemaining, word, field.width) != 0) return -1;
      values[0].SetValueUint(word.GetValueUint() >> 12);
      values[1].SetValueUint(word.GetValueUint() & 0xFFF);
      return 0;
    case Encoding::PackedDate:
      if (ParseUint(pPosition, uiRemaining, word, field.width) != 0) return -1;
      values->SetValueUint(((word.GetValueUint() >> 9) + 2000) * 65536 +
                           (word.GetValueUint() >> 5 & 15) * 256 + (word.GetValueUint() & 31));
      return 0;
    case Encoding::PackedTime: {
      if (ParseUint64(pPosition, uiRemaining, word, field.width) != 0) return -1;
      constexpr unsigned long unitsPerSecond = 10000000;
      const unsigned long seconds = word.GetValueUint64() / unitsPerSecond;
      values[0].SetValueDouble(static_cast<double>(seconds));
      values[1].SetValueDouble(static_cast<double>(word.GetValueUint64() % unitsPerSecond) * 100.0);
      return 0;
    }
    case Encoding::TimeText:
      return DoParseTimeString(pPosition, uiRemaining);
    case Encoding::Gps:
      return ParseGPSLocation(pPosition, uiRemaining, values[0], values[1], values[2], values[3]);
    default: {  // raw bytes
      const unsigned char* const bytes = takeBytes(pPosition, uiRemaining, field.width);
      if (bytes == nullptr) return -1;
      std::memcpy(field.kept == Kept::Reserved1   ? m_Reserved1
                  : field.kept == Kept::Reserved2 ? m_Reserved2
                                                  : m_Padding,
                  bytes, field.width);
      return 0;
    }
  }
}

int CFrameMetaData::DoParseTimeString(unsigned char*& pPosition, unsigned int& uiRemaining) {
  m_Values[ORVA_META_KEY_CAPTURE_TIME].SetValueDouble(0.0);
  m_Values[ORVA_META_KEY_CAPTURE_TIME_NSECS].SetValueDouble(0.0);
  const unsigned char* const text = takeBytes(pPosition, uiRemaining, s_uiTimeTextSize);
  if (text != nullptr) {
    std::memcpy(m_CaptureTimeText, text, s_uiTimeTextSize);
    m_CaptureTimeText[s_uiTimeTextSize] = '\0';
    if (DoReadTimeText(m_CaptureTimeText, s_uiTimeTextSize) == 0) return 0;
  }
  m_bCaptureTimeValid = false;
  return -1;
}

int CFrameMetaData::DoParseVersion4(unsigned char* pHeader, unsigned int uiLength) {
  if (uiLength <= version4CountedFrom) return 0;
  unsigned int remaining = uiLength - version4CountedFrom;
  unsigned char* position = pHeader + version4Fields[0].offset;
  for (const Field& field : version4Fields)
    if (ParseUint(position, remaining, m_Values[field.key], field.width) != 0) return -1;

  const unsigned int blockLength = DoUint(ORVA_META_KEY_OTHER_TYPE_LENGTH);
  if (blockLength == 0) return 0;
  const std::size_t blockOffset = std::size_t{writtenSize} + DoUint(ORVA_META_KEY_OTHER_TYPE_OFFSET);
  if (blockOffset + blockLength <= uiLength)
    m_OtherMetaData.SetData(pHeader + blockOffset, blockLength,
                            static_cast<unsigned char>(DoUint(ORVA_META_KEY_OTHER_TYPE)));
  else
    m_Values[ORVA_META_KEY_OTHER_TYPE_LENGTH].SetValueUint(0);
  return 0;
}

void CFrameMetaData::DoDeriveFlags(unsigned int uiVersion) {
  const Versions version = setOf(uiVersion);
  for (const Flag& flag : flags) {
    if ((flag.versions & version) == 0) continue;
    const bool set = (DoKeptByte(static_cast<unsigned int>(flag.byte)).GetValueUint() & flag.mask) != 0;
    m_Values[flag.key].SetValueBool(set != flag.whenClear);
  }
  if (version == V34)
    m_Values[ORVA_META_KEY_SENSOR_READ_QUADRANTS].SetValueUint(m_ControlBlock2.GetValueUint() & quadrantMask);
}

void CFrameMetaData::FixRefPixels() {
  if (setOf(DoUint(ORVA_META_KEY_METADATA_VERSION)) == V34) return;
  unsigned int device = ORVA_DEVICE_UNKNOWN;
  DoGetDeviceType(device);
  const auto fix = [this](ORVA_META_KEYS key, int pixels) {
    if (pixels != orvacam::ReferencePixels::asStated)
      m_Values[key].SetValueUint(static_cast<unsigned int>(pixels));
  };
  const orvacam::ReferencePixels& known = orvacam::sensorOf(device).referencePixels;
  fix(ORVA_META_KEY_PRE_ROW_REF_PIXELS, known.pre);
  fix(ORVA_META_KEY_POST_ROW_REF_PIXELS, known.post);
}

// ---- Field and byte readers

int CFrameMetaData::ParseUint(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                              unsigned int n) {
  return parse(pPosition, uiRemaining, n, [&](auto* bytes) { value.SetValueUint(BufToUint32(bytes, n)); });
}

int CFrameMetaData::ParseInt(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                             unsigned int n) {
  return parse(pPosition, uiRemaining, n, [&](auto* bytes) { value.SetValueInt(BufToInt32(bytes, n)); });
}

int CFrameMetaData::ParseUint64(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                                unsigned int n) {
  return parse(pPosition, uiRemaining, n, [&](auto* bytes) { value.SetValueUint64(BufToUint64(bytes, n)); });
}

int CFrameMetaData::ParseInt64(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                               unsigned int n) {
  return parse(pPosition, uiRemaining, n, [&](auto* bytes) { value.SetValueInt64(BufToInt64(bytes, n)); });
}

int CFrameMetaData::ParseIntSignedMagnitude(unsigned char*& pPosition, unsigned int& uiRemaining,
                                            CMetaValues& value, unsigned int n) {
  unsigned char* const bytes = n > 0 ? takeBytes(pPosition, uiRemaining, n) : nullptr;
  if (bytes == nullptr) return -1;
  int sign = 1;
  bytes[0] = CheckForSignMagnitude(bytes[0], &sign);  // intended: stays cleared in the caller's buffer
  value.SetValueInt(sign * BufToInt32(bytes, n));
  return 0;
}

int CFrameMetaData::ParseString(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                                unsigned int n) {
  value.SetValueStr("");
  const unsigned char* const bytes = takeBytes(pPosition, uiRemaining, n);
  if (bytes == nullptr) return -1;
  unsigned int start = 0;
  while (start < n && bytes[start] == 0)
    ++start;
  if (start == n)
    value.SetValueStr("<>");  // intended: what text of zeros has always read
  else
    value.SetValueByte(bytes + start, n - start);
  return 0;
}

int CFrameMetaData::ParseGPSLocation(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& raw,
                                     CMetaValues& degrees, CMetaValues& minutes, CMetaValues& hemisphere) {
  if (ParseUint(pPosition, uiRemaining, raw, 4) != 0) return -1;
  const double position = (raw.GetValueUint() & 0x7FFFFFFFu) / gpsUnitsPerDegree;
  const double whole = std::floor(position);
  degrees.SetValueDouble(whole);
  minutes.SetValueDouble((position - whole) * 60.0);
  hemisphere.SetValueBool((raw.GetValueUint() >> 31) != 0);
  return 0;
}

unsigned int CFrameMetaData::BufToUint32(const unsigned char* pBuffer, unsigned int n) {
  return static_cast<unsigned int>(BufToUint64(pBuffer, n < 4 ? n : 4));
}

unsigned long CFrameMetaData::BufToUint64(const unsigned char* pBuffer, unsigned int n) {
  std::uint64_t value = 0;
  ByteReader(pBuffer, n).readUint(n < 8 ? n : 8, value);
  return value;
}

int CFrameMetaData::BufToInt32(const unsigned char* pBuffer, unsigned int n) {
  return static_cast<int>(BufToInt64(pBuffer, n < 4 ? n : 4));
}

long CFrameMetaData::BufToInt64(const unsigned char* pBuffer, unsigned int n) {
  std::int64_t value = 0;
  ByteReader(pBuffer, n).readInt(n < 8 ? n : 8, value);
  return value;
}

unsigned char CFrameMetaData::CheckForSignMagnitude(unsigned char ucByte, int* pSign) {
  if (pSign == nullptr) return ucByte;
  *pSign = (ucByte & signBit) != 0 ? -1 : 1;
  return static_cast<unsigned char>(ucByte & ~signBit);
}
