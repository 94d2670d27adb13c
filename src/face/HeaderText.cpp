// The header as text and as JSON.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "face/CaptureTime.h"
#include "face/FrameLook.h"
#include "face/HeaderValues.h"

namespace orvacam::face {

namespace {

constexpr unsigned int metaTextSize = 32768;

std::string quoted(std::string_view text) {
  std::string json = "\"";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      json += '\\';
      json += character;
    } else if (byte < 0x20 || byte == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", byte);
      json += escape;
    } else {
      json += character;
    }
  }
  return json + '"';
}

/// An object that grows member by member.
class JsonObject {
 public:
  /// The value is JSON already.
  JsonObject& add(std::string_view name, std::string_view value) {
    m_text += m_text.empty() ? "" : ", ";
    m_text += quoted(name) + ": ";
    m_text += value;
    return *this;
  }
  std::string text() const { return "{" + m_text + "}"; }

 private:
  std::string m_text;
};

std::string jsonOf(const HeaderValues& header, const orva_key& key) {
  const std::string text = header.text(key);
  if (key.kind == ORVA_KEY_TEXT) return quoted(text);
  const double number = header.Value(static_cast<ORVA_META_KEYS>(key.number)).GetValueDouble();
  return std::isfinite(number) ? text : "null";
}

std::string derived(const HeaderValues& header) {
  const FrameLook look = lookAtHeader(header);
  JsonObject json;
  json.add("sensor", quoted(header.sensor()))
      .add("model", quoted(header.model()))
      .add("serial", quoted(header.serial()))
      .add("version", std::to_string(header.version()))
      .add("hdr", header.flag(ORVA_META_KEY_HDR_MODE) ? "true" : "false");
  std::string planes;
  for (const auto& plane : planeNames)
    if ((look.planes() & plane.bit) != 0) planes += (planes.empty() ? "" : ", ") + quoted(plane.name);
  json.add("planes", "[" + planes + "]");
  const bool sized = look.hasGeometry();
  const orva_geometry geometry = sized ? look.geometry() : orva_geometry{};
  const auto size = [&](std::uint32_t number) { return sized ? std::to_string(number) : "null"; };
  json.add("width", size(geometry.width))
      .add("height", size(geometry.height))
      .add("image_x", size(geometry.x))
      .add("image_y", size(geometry.y))
      .add("image_width", size(geometry.image_width))
      .add("image_height", size(geometry.image_height))
      .add("exposure_seconds", shortestDigits(header.exposureSeconds()))
      .add("time_utc", header.time() ? quoted(timeText(*header.time())) : "null")
      .add("temperature_celsius", shortestDigits(header.temperature()))
      .add("set_point_celsius", header.hasSetPoint() ? shortestDigits(header.setPoint()) : "null");
  return json.text();
}

}  // namespace

std::string renderText(const HeaderValues& header) {
  CFrameMetaData copy(header);  // rendering works in its own buffers
  std::string text(metaTextSize, '\0');
  const int length = copy.ToString(text.data(), metaTextSize);
  text.resize(length > 0 ? std::min<std::size_t>(static_cast<std::size_t>(length), metaTextSize - 1) : 0);
  return asUtf8(text);
}

std::string renderJson(const HeaderValues& header) {
  JsonObject values;
  JsonObject units;
  for (const orva_key& key : keys) {
    values.add(key.name, jsonOf(header, key));
    units.add(key.name, quoted(key.unit));
  }
  return JsonObject()
      .add("schema", quoted("orvacam.header/1"))
      .add("values", values.text())
      .add("units", units.text())
      .add("derived", derived(header))
      .text();
}

}  // namespace orvacam::face
