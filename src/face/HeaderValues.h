#ifndef ORVACAM_SRC_FACE_HEADER_VALUES_H
#define ORVACAM_SRC_FACE_HEADER_VALUES_H

#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam_c.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "face/Counted.h"

namespace orvacam::face {

/// What a plane is, for its processed header.
struct PlaneRole {
  unsigned int plane = ORVA_PLANE_IMAGE;  ///< an orva_plane
  bool stacked = false;
};

/// A header, read whatever its time text and its stated length say: the documented parser refuses what it
/// cannot read of them, a frame decodes all the same.
class HeaderValues : public CFrameMetaData {
 public:
  /// Throws Failure: not_a_frame, truncated.
  static std::unique_ptr<const HeaderValues> parse(const void* bytes, std::size_t length);
  /// The header of a plane as the library writes it. Unlike what that reads back, a temperature below zero
  /// keeps its sign: the header is written with another encoding of it than it is read with.
  std::unique_ptr<const HeaderValues> processed(const PlaneRole& role) const;

  unsigned int version() const { return number(ORVA_META_KEY_METADATA_VERSION); }
  /// As the header states it, and what its version needs.
  std::size_t statedLength() const { return number(ORVA_META_KEY_METADATA_LENGTH); }
  std::size_t neededLength() const;
  unsigned int number(ORVA_META_KEYS key) const { return Value(key).GetValueUint(); }
  bool flag(ORVA_META_KEYS key) const { return Value(key).GetValueBool(); }
  /// A value as text, UTF-8.
  std::string text(const orva_key& key) const;

  const std::string& model() const { return m_model; }
  const std::string& serial() const { return m_serial; }
  /// An ORVADEVICETYPE, and the name of the sensor.
  unsigned int device() const { return m_device; }
  const char* sensor() const { return m_sensor; }
  bool isKnownSensor() const { return m_isKnownSensor; }

  bool hasSetPoint() const { return version() != 1; }
  double temperature() const { return GetSensorTemperature(); }
  double setPoint() const { return Value(ORVA_META_KEY_TEMPERATURE_SET_POINT).GetValueInt() / 10.0; }
  double exposureSeconds() const { return number(ORVA_META_KEY_EXPOSURE_TIME) / 100000.0; }  // of 10 us
  /// Whether the documented parser reads the header's time.
  bool hasReadableTime() const { return m_hasReadableTime; }
  /// Nanoseconds since 1970; none where the header's time cannot be read or does not exist.
  const std::optional<std::int64_t>& time() const { return m_time; }
  /// The block that a version 4 header describes: its bytes from the header's first byte on; 0 for none.
  std::uint64_t blockBegin() const { return m_blockBegin; }
  std::uint64_t blockEnd() const { return m_blockEnd; }

  /// As received.
  const std::vector<unsigned char>& bytes() const { return m_bytes; }

 private:
  HeaderValues() = default;
  void take(const unsigned char* bytes, std::size_t length);
  void parseFields();
  void derive();

  std::vector<unsigned char> m_bytes;
  std::string m_model, m_serial;
  unsigned int m_device = 0;
  const char* m_sensor = "";
  bool m_isKnownSensor = false;
  bool m_hasReadableTime = true;
  std::optional<std::int64_t> m_time;
  std::uint64_t m_blockBegin = 0, m_blockEnd = 0;
};

/// The keys that have a name, by number.
constexpr std::size_t keyCount = 93;
extern const std::array<orva_key, keyCount> keys;

/// The key of a name. Throws Failure (bad_argument) for a name that none has.
const orva_key& keyOf(const char* name);

/// Any bytes as UTF-8; what is none becomes U+FFFD.
std::string asUtf8(const std::string& bytes);

/// The shortest digits that read back as the number, whatever the locale.
std::string shortestDigits(double number);

/// The library's metadata text, and the header as JSON.
std::string renderText(const HeaderValues& header);
std::string renderJson(const HeaderValues& header);

}  // namespace orvacam::face

/// A header as handles share it. That of a plane is made when somebody looks at it.
struct orva_header : orvacam::face::Counted {
  explicit orva_header(std::unique_ptr<const orvacam::face::HeaderValues> values)
      : m_values(std::move(values)) {}
  orva_header(orvacam::face::Held<const orva_header> raw, const orvacam::face::PlaneRole& role)
      : m_raw(std::move(raw)), m_role(role) {}

  /// May throw std::bad_alloc, and works another time.
  const orvacam::face::HeaderValues& values() const;

 private:
  mutable std::unique_ptr<const orvacam::face::HeaderValues> m_values;
  orvacam::face::Held<const orva_header> m_raw;
  orvacam::face::PlaneRole m_role;
  mutable std::once_flag m_made;
};

#endif  // ORVACAM_SRC_FACE_HEADER_VALUES_H
