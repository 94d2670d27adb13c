#include "face/HeaderValues.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "face/CaptureTime.h"
#include "face/Failure.h"
#include "metadata/HeaderFields.h"
#include "metadata/Values.h"
#include "sensors/Sensors.h"
#include "support/WideText.h"

namespace orvacam::face {

namespace {

constexpr std::size_t timeTextAt = header::offsetOf(ORVA_META_KEY_CAPTURE_DATE);
constexpr std::size_t blockLengthAt = header::offsetOf(ORVA_META_KEY_OTHER_TYPE_LENGTH);
constexpr std::size_t blockOffsetAt = header::offsetOf(ORVA_META_KEY_OTHER_TYPE_OFFSET);

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

std::optional<std::int64_t> packedTime(const HeaderValues& header) {
  const unsigned int date = header.number(ORVA_META_KEY_CAPTURE_DATE);
  const auto seconds = static_cast<unsigned int>(header.Value(ORVA_META_KEY_CAPTURE_TIME).GetValueUint64());
  return nanosecondsOf({date >> 16, date >> 8 & 255, date & 255, seconds / 3600, seconds / 60 % 60,
                        seconds % 60, header.Value(ORVA_META_KEY_CAPTURE_TIME_NSECS).GetValueUint64()});
}

}  // namespace

std::string shortestDigits(double number) {
  char digits[64];
  return {digits, std::to_chars(digits, digits + sizeof digits, number).ptr};
}

std::string asUtf8(const std::string& bytes) {
  const auto isAscii = [](char character) { return static_cast<unsigned char>(character) < 0x80; };
  std::string text(bytes.begin(), std::find_if_not(bytes.begin(), bytes.end(), isAscii));
  for (std::string_view rest = std::string_view(bytes).substr(text.size()); !rest.empty();) {
    std::uint32_t code = 0;
    const std::size_t length = decodeUtf8(rest.data(), rest.size(), code);
    text += isEscape(code) ? "\xEF\xBF\xBD" : rest.substr(0, length);
    rest.remove_prefix(length);
  }
  return text;
}

namespace {

/// A stored text as UTF-8: without trailing blanks, "" for "<>".
std::string cleanText(const CMetaValues& value) {
  std::string text(textOf(value));
  text.erase(text.find_last_not_of(' ') + 1);
  return text == "<>" ? std::string() : asUtf8(text);
}

}  // namespace

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
  const std::size_t stated = BufToUint64(bytes + 4, 2);
  const auto version = static_cast<unsigned int>(BufToUint64(bytes + 6, 2));
  const std::size_t needed = std::max<std::size_t>(stated, header::sizeOf(version));
  if (length < needed) failTruncated(needed, length);
  m_bytes.assign(bytes, bytes + needed);
  const bool isPacked = version == 1;
  const auto time = isPacked ? std::nullopt : readTimeText(m_bytes.data() + timeTextAt);
  m_hasReadableTime = isPacked || time;
  parseFields();
  if (isPacked) m_time = packedTime(*this);
  if (time) m_time = nanosecondsOf(*time);
  derive();
}

/// The parser clears sign bits in what it reads, so that it gets a copy. Where the time text cannot be read,
/// it gets another one, which nobody sees afterwards.
void HeaderValues::parseFields() {
  static constexpr char readable[timeTextLength + 1] = "1970/01/01 00:00:00.000000000";
  std::vector<unsigned char> copy = m_bytes;
  if (!m_hasReadableTime) std::memcpy(copy.data() + timeTextAt, readable, timeTextLength);
  if (Parse(copy.data(), static_cast<unsigned int>(copy.size())) < 0)
    throw std::bad_alloc();  // the lengths are right, and so is the time
  if (m_hasReadableTime) return;
  std::memcpy(m_CaptureTimeText, m_bytes.data() + timeTextAt, timeTextLength);
  std::memcpy(m_RawHeader + timeTextAt, m_bytes.data() + timeTextAt, timeTextLength);
  m_bCaptureTimeValid = false;
  m_Values[ORVA_META_KEY_CAPTURE_DATE].SetValueUint(0);
}

std::size_t HeaderValues::neededLength() const {
  return header::sizeOf(version());
}

void HeaderValues::derive() {
  m_model = cleanText(Value(ORVA_META_KEY_CAMERA_MODEL));
  m_serial = cleanText(Value(ORVA_META_KEY_CAMERA_SERIAL_NUMBER));
  // The documented model texts name no LSGEN camera; these say it themselves.
  m_device = m_model.find("LSGEN") != m_model.npos ? ORVA_DEVICE_LSGEN : ORVA_DEVICE_UNKNOWN;
  GetDeviceType(m_device);
  const Sensor& named = sensorOf(m_device);
  m_sensor = named.name.data();
  m_isKnownSensor = named.device != ORVA_DEVICE_UNKNOWN;
  if (version() < 1 || version() > 3) {
    const std::uint64_t blockLength = BufToUint64(m_bytes.data() + blockLengthAt, 4);
    if (blockLength == 0) return;
    m_blockBegin = header::writtenSize + BufToUint64(m_bytes.data() + blockOffsetAt, 4);
    m_blockEnd = m_blockBegin + blockLength;
  }
}

std::string HeaderValues::text(const orva_key& key) const {
  const CMetaValues& value = Value(static_cast<ORVA_META_KEYS>(key.number));
  if (key.kind == ORVA_KEY_TEXT) return cleanText(value);
  if (key.kind == ORVA_KEY_FLAG) return value.GetValueBool() ? "true" : "false";
  const double number = value.GetValueDouble();
  if (std::floor(number) == number && std::fabs(number) < 1e15)  // digits that are exact
    return std::to_string(static_cast<std::int64_t>(number));
  return shortestDigits(number);
}

// ---- Headers of planes

std::unique_ptr<const HeaderValues> HeaderValues::processed(const PlaneRole& role) const {
  CFrameMetaData plane(*this);
  describePlane(plane, false);
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
