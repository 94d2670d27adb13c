// Reading a header, from bytes and from text.

#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/support/util.h>
#include <orvacam/types/device_types.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <vector>

#include "metadata/FitsCards.h"
#include "metadata/HeaderFields.h"
#include "sensors/Sensors.h"
#include "support/ByteReader.h"
#include "support/NumberText.h"

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

// ---- Fields

/// Date and time of the capture from a text, which the reader may change. -1, with nothing stored, for a text
/// that is none.
int readTime(char* text, unsigned int length, CMetaValues* values) {
  unsigned int year = 0;
  unsigned int month = 0;
  unsigned int day = 0;
  double seconds = 0.0;
  if (utilParseTimeString(text, length, year, month, day, seconds) < 0) return -1;
  const auto wholeSeconds = static_cast<double>(static_cast<unsigned int>(seconds));
  values[ORVA_META_KEY_CAPTURE_DATE].SetValueUint(year * 65536 + month * 256 + day);
  values[ORVA_META_KEY_CAPTURE_TIME].SetValueDouble(wholeSeconds);
  // Intended: the fraction of a double, which may lie a little below the text's: cut to an integer it reads
  // one less.
  values[ORVA_META_KEY_CAPTURE_TIME_NSECS].SetValueDouble((seconds - wholeSeconds) * 1e9);
  return 0;
}

/// Reads a header's fields, one after the other, into the parts of an object.
struct FieldReader {
  unsigned char* position;
  unsigned int remaining;
  CMetaValues* values;
  char* timeText;
  bool& isTimeValid;
  unsigned char* reserved;
  unsigned char* padding;

  int readAll(Versions version);
  int read(const Field& field);
  int readTimeText(unsigned int length);
  int keepRaw(void* area, unsigned int length) {
    return parse(position, remaining, length, [&](auto* bytes) { std::memcpy(area, bytes, length); });
  }
};

int FieldReader::readAll(Versions version) {
  int result = 0;
  bool forgivable = false;
  for (const Field& field : fields) {
    if ((field.versions & version) == 0) continue;
    // Intended: from version 3 on, a failure between the model and the common block is forgotten there.
    if (forgivable && field.offset == commonBlock) result = 0;
    if (result != 0) continue;
    result = read(field);
    forgivable = result != 0 && version == V34 && field.offset >= forgivenFrom && field.offset < commonBlock;
  }
  return result;
}

int FieldReader::read(const Field& field) {
  CMetaValues* const targets = &values[field.key];
  CMetaValues bits;
  switch (field.read) {
    case Encoding::Signed:
      return CFrameMetaData::ParseInt(position, remaining, *targets, field.width);
    case Encoding::SignMagnitude:
      return CFrameMetaData::ParseIntSignedMagnitude(position, remaining, *targets, field.width);
    case Encoding::OptionalText:
      if (remaining < field.width) return 0;
      [[fallthrough]];
    case Encoding::Text:
      return CFrameMetaData::ParseString(position, remaining, *targets, field.width);
    case Encoding::PixelDepths:
      if (CFrameMetaData::ParseUint(position, remaining, bits, field.width) != 0) return -1;
      targets[0].SetValueUint((bits.GetValueUint() & 15) + 1);  // the camera sends the bit depth minus one
      targets[1].SetValueUint(bits.GetValueUint() >> 4);
      return 0;
    case Encoding::ReferenceRows:
      if (CFrameMetaData::ParseUint(position, remaining, bits, field.width) != 0) return -1;
      targets[0].SetValueUint(bits.GetValueUint() >> 12);
      targets[1].SetValueUint(bits.GetValueUint() & 0xFFF);
      return 0;
    case Encoding::PackedDate:
      if (CFrameMetaData::ParseUint(position, remaining, bits, field.width) != 0) return -1;
      targets->SetValueUint(((bits.GetValueUint() >> 9) + 2000) * 65536 +
                            (bits.GetValueUint() >> 5 & 15) * 256 + (bits.GetValueUint() & 31));
      return 0;
    case Encoding::PackedTime: {
      if (CFrameMetaData::ParseUint64(position, remaining, bits, field.width) != 0) return -1;
      constexpr unsigned long unitsPerSecond = 10000000;
      const unsigned long seconds = bits.GetValueUint64() / unitsPerSecond;
      targets[0].SetValueDouble(static_cast<double>(seconds));
      targets[1].SetValueDouble(static_cast<double>(bits.GetValueUint64() % unitsPerSecond) * 100.0);
      return 0;
    }
    case Encoding::TimeText:
      return readTimeText(field.width);
    case Encoding::Gps:
      return CFrameMetaData::ParseGPSLocation(position, remaining, targets[0], targets[1], targets[2],
                                              targets[3]);
    case Encoding::Reserved:
      return keepRaw(reserved, field.width);
    case Encoding::Padding:
      return keepRaw(padding, field.width);
    default:
      return CFrameMetaData::ParseUint(position, remaining, *targets, field.width);
  }
}

int FieldReader::readTimeText(unsigned int length) {
  values[ORVA_META_KEY_CAPTURE_TIME].SetValueDouble(0.0);
  values[ORVA_META_KEY_CAPTURE_TIME_NSECS].SetValueDouble(0.0);
  isTimeValid = keepRaw(timeText, length) == 0 && readTime(timeText, length, values) == 0;
  return isTimeValid ? 0 : -1;
}

/// What version 4 carries in its padding, and the block that it describes, of a header of this many bytes.
int readVersion4(unsigned char* header, unsigned int length, CMetaValues* values,
                 CFrameOtherMetaData& block) {
  if (length <= version4CountedFrom) return 0;
  unsigned int remaining = length - version4CountedFrom;
  unsigned char* position = header + version4Fields[0].offset;
  for (const Field& field : version4Fields)
    if (CFrameMetaData::ParseUint(position, remaining, values[field.key], field.width) != 0) return -1;

  const unsigned int blockLength = values[ORVA_META_KEY_OTHER_TYPE_LENGTH].GetValueUint();
  if (blockLength == 0) return 0;
  const std::size_t blockOffset =
      std::size_t{writtenSize} + values[ORVA_META_KEY_OTHER_TYPE_OFFSET].GetValueUint();
  if (blockOffset + blockLength <= length)
    block.SetData(header + blockOffset, blockLength,
                  static_cast<unsigned char>(values[ORVA_META_KEY_OTHER_TYPE].GetValueUint()));
  else
    values[ORVA_META_KEY_OTHER_TYPE_LENGTH].SetValueUint(0);
  return 0;
}

/// The flags follow from whatever their bytes hold.
void deriveFlags(CMetaValues* values, Versions version) {
  for (const Flag& flag : flags) {
    if ((flag.versions & version) == 0) continue;
    const bool set = (values[flag.byte].GetValueUint() & flag.mask) != 0;
    values[flag.key].SetValueBool(set != flag.whenClear);
  }
  if (version == V34)
    values[ORVA_META_KEY_SENSOR_READ_QUADRANTS].SetValueUint(values[ControlBlock2].GetValueUint() &
                                                             quadrantMask);
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

  const unsigned int length = m_Values[ORVA_META_KEY_METADATA_LENGTH].GetValueUint();
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

  // The version that is held now decides, even when it could not be read.
  const unsigned int version = m_Values[ORVA_META_KEY_METADATA_VERSION].GetValueUint();
  FieldReader reader{position,    remaining, m_Values, m_CaptureTimeText, m_bCaptureTimeValid,
                     m_Reserved1, m_Padding};
  int result = reader.readAll(setOf(version));
  deriveFlags(m_Values, setOf(version));  // also after a failure
  // Intended: every version but 1, 2 and 3 is read as version 4.
  if (result == 0 && setOf(version) == V34 && version != 3)
    result = readVersion4(pBuffer, uiLength, m_Values, m_OtherMetaData);
  if (result == 0) FixRefPixels();

  const unsigned int stated = m_Values[ORVA_META_KEY_METADATA_LENGTH].GetValueUint();
  const unsigned int kept = std::min({stated != 0 ? stated : s_uiRawHeaderSize, uiLength, s_uiRawHeaderSize});
  if (pBuffer != nullptr) std::memmove(m_RawHeader, pBuffer, kept);
  return result;
}

void CFrameMetaData::FixRefPixels() {
  if (setOf(m_Values[ORVA_META_KEY_METADATA_VERSION].GetValueUint()) == V34) return;
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

// ---- Values from text

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
      if (readTime(buffer.data(), static_cast<unsigned int>(text.size()), m_Values) < 0)
        m_bCaptureTimeValid = false;
      break;
    }
    default:
      if (eKey < ORVA_META_KEY_COUNT) m_Values[eKey].SetValueDouble(orvacam::parseDouble(text));
  }
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
