#include "face/HeaderValues.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "face/CaptureTime.h"
#include "face/Failure.h"
#include "face/Sensors.h"
#include "metadata/HeaderFields.h"
#include "support/ByteReader.h"

namespace orvacam::face {

namespace {

constexpr std::size_t timeTextAt = header::offsetOf(ORVA_META_KEY_CAPTURE_DATE);
constexpr std::size_t blockLengthAt = header::offsetOf(ORVA_META_KEY_OTHER_TYPE_LENGTH);
constexpr std::size_t blockOffsetAt = header::offsetOf(ORVA_META_KEY_OTHER_TYPE_OFFSET);

std::uint64_t bigEndian(const unsigned char* bytes, unsigned int count) {
  return CFrameMetaData::BufToUint64(bytes, count);
}

bool beginsWith(std::string_view bytes, std::string_view start) {
  return bytes.substr(0, start.size()) == start;
}

/// Throws not_a_frame unless the bytes begin as a raw frame does.
void requireFrame(std::string_view bytes) {
  using namespace std::string_view_literals;
  if (bytes.empty()) fail(ORVA_NOT_A_FRAME, "is empty");
  if (beginsWith(bytes, "Meta")) return;
  if (beginsWith(bytes, "SIMPLE")) fail(ORVA_NOT_A_FRAME, "is a FITS file, not a raw frame");
  for (const std::string_view tiff : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv})
    if (beginsWith(bytes, tiff)) fail(ORVA_NOT_A_FRAME, "is a TIFF file, not a raw frame");
  fail(ORVA_NOT_A_FRAME, "is not a raw frame: it does not start with \"Meta\"");
}

[[noreturn]] void failTruncated(std::size_t needed, std::size_t available) {
  throw Failure{
      ORVA_TRUNCATED,
      "needs " + std::to_string(needed) + " bytes for its header, ends at byte " + std::to_string(available),
      needed, available};
}

/// The length of the UTF-8 character that begins here; 0 where none does.
std::size_t characterLength(std::string_view bytes) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
  if (length == 0 || bytes.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  const bool tooLong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
  const bool noCharacter = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
  return tooLong || noCharacter ? 0 : length;
}

}  // namespace

std::string shortestDigits(double number) {
  char digits[64];
  return {digits, std::to_chars(digits, digits + sizeof digits, number).ptr};
}

std::string asUtf8(const std::string& bytes) {
  std::string text;
  for (std::string_view rest = bytes; !rest.empty();) {
    const std::size_t length = characterLength(rest);
    text += length > 0 ? rest.substr(0, length) : "\xEF\xBF\xBD";
    rest.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return text;
}

std::string cleanText(const char* bytes, std::size_t length) {
  std::string text(bytes, strnlen(bytes, length));
  text.erase(text.find_last_not_of(' ') + 1);
  return text == "<>" ? std::string() : asUtf8(text);
}

// ---- Reading

std::unique_ptr<const HeaderValues> HeaderValues::parse(const void* bytes, std::size_t length) {
  if (length > 0) required(static_cast<const unsigned char*>(bytes), "the address of the bytes");
  requireFrame({static_cast<const char*>(bytes), length});
  if (length < header::prefixSize) failTruncated(header::prefixSize, length);
  std::unique_ptr<HeaderValues> header(new HeaderValues);
  header->take(static_cast<const unsigned char*>(bytes), length);
  return header;
}

void HeaderValues::take(const unsigned char* bytes, std::size_t length) {
  const std::size_t stated = bigEndian(bytes + 4, 2);
  const auto version = static_cast<unsigned int>(bigEndian(bytes + 6, 2));
  const std::size_t needed = std::max<std::size_t>(stated, header::sizeOf(version));
  if (length < needed) failTruncated(needed, length);
  m_bytes.assign(bytes, bytes + needed);
  if (version == 1 || readTimeText(m_bytes.data() + timeTextAt))
    parseWithTime();
  else
    parseWithoutTime();
  derive();
}

/// The parser clears sign bits in what it reads, so that it gets a copy.
void HeaderValues::parseWithTime() {
  std::vector<unsigned char> copy = m_bytes;
  if (Parse(copy.data(), static_cast<unsigned int>(copy.size())) < 0)
    throw std::bad_alloc();  // the lengths are right, and so is the time
}

/// Where the time text cannot be read, the parser gets another one, which nobody sees afterwards.
void HeaderValues::parseWithoutTime() {
  std::vector<unsigned char> copy = m_bytes;
  static constexpr char readable[timeTextLength + 1] = "1970/01/01 00:00:00.000000000";
  std::memcpy(copy.data() + timeTextAt, readable, timeTextLength);
  if (Parse(copy.data(), static_cast<unsigned int>(copy.size())) < 0) throw std::bad_alloc();
  std::memcpy(m_CaptureTimeText, m_bytes.data() + timeTextAt, timeTextLength);
  std::memcpy(m_RawHeader + timeTextAt, m_bytes.data() + timeTextAt, timeTextLength);
  m_bCaptureTimeValid = false;
  m_hasReadableTime = false;
  m_Values[ORVA_META_KEY_CAPTURE_DATE].SetValueUint(0);
}

std::size_t HeaderValues::neededLength() const {
  return header::sizeOf(version());
}

namespace {

std::optional<std::int64_t> packedTime(const HeaderValues& header) {
  const unsigned int date = header.number(ORVA_META_KEY_CAPTURE_DATE);
  const auto seconds = static_cast<unsigned int>(header.Value(ORVA_META_KEY_CAPTURE_TIME).GetValueUint64());
  return nanosecondsOf({date >> 16, date >> 8 & 255, date & 255, seconds / 3600, seconds / 60 % 60,
                        seconds % 60, header.Value(ORVA_META_KEY_CAPTURE_TIME_NSECS).GetValueUint64()});
}

std::string textOf(const CMetaValues& value) {
  int length = 0;
  const unsigned char* const bytes = value.GetValue(nullptr, length);
  return bytes != nullptr && length > 0
             ? cleanText(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length))
             : std::string();
}

}  // namespace

void HeaderValues::derive() {
  m_model = textOf(Value(ORVA_META_KEY_CAMERA_MODEL));
  m_serial = textOf(Value(ORVA_META_KEY_CAMERA_SERIAL_NUMBER));
  const Sensor& named = sensorNamed(*this);
  m_device = named.device;
  m_sensor = named.name.data();
  m_isKnownSensor = named.device != ORVA_DEVICE_UNKNOWN;
  if (version() == 1) {
    m_time = packedTime(*this);
  } else if (const std::optional<CaptureTime> time = readTimeText(m_bytes.data() + timeTextAt)) {
    m_time = nanosecondsOf(*time);
  }
  if (version() < 1 || version() > 3) {
    const std::uint64_t blockLength = bigEndian(m_bytes.data() + blockLengthAt, 4);
    if (blockLength == 0) return;
    m_blockBegin = header::writtenSize + bigEndian(m_bytes.data() + blockOffsetAt, 4);
    m_blockEnd = m_blockBegin + blockLength;
  }
}

double HeaderValues::setPoint() const {
  return Value(ORVA_META_KEY_TEMPERATURE_SET_POINT).GetValueInt() / 10.0;
}

double HeaderValues::exposureSeconds() const {
  return number(ORVA_META_KEY_EXPOSURE_TIME) / 100000.0;  // periods of 10 us
}

std::string HeaderValues::text(const orva_key& key) const {
  const CMetaValues& value = Value(static_cast<ORVA_META_KEYS>(key.number));
  if (key.kind == ORVA_KEY_TEXT) return textOf(value);
  if (key.kind == ORVA_KEY_FLAG) return value.GetValueBool() ? "true" : "false";
  const double number = value.GetValueDouble();
  constexpr double largestWhole = 1e15;
  if (std::floor(number) == number && std::fabs(number) < largestWhole)
    return std::to_string(static_cast<std::int64_t>(number));
  return shortestDigits(number);
}

// ---- Headers of planes

std::unique_ptr<const HeaderValues> HeaderValues::processed(const PlaneRole& role) const {
  CFrameMetaData plane(*this);
  plane.SetBitsPerPixel(16);
  plane.SetHDRFrame(false);
  plane.SetPixelEndianFormat(true);
  plane.SetIsHighFrame(role.plane == ORVA_PLANE_HIGH);
  plane.SetIsMergedFrame(role.plane == ORVA_PLANE_MERGED);
  if (role.stacked) plane.SetIsStackedFrame(true);
  std::vector<unsigned char> bytes(header::writtenSize);
  plane.Binarize(bytes.data(), static_cast<unsigned int>(bytes.size()));
  std::unique_ptr<HeaderValues> header(new HeaderValues);
  header->take(bytes.data(), bytes.size());
  header->m_Values[ORVA_META_KEY_SENSOR_CHIP_TEMP] = Value(ORVA_META_KEY_SENSOR_CHIP_TEMP);
  return header;
}

}  // namespace orvacam::face

const orvacam::face::HeaderValues& orva_header::values() const {
  if (m_raw) std::call_once(m_made, [this] { m_values = m_raw->values().processed(m_role); });
  return *m_values;
}
