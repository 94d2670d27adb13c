#include "files/Json.h"

#include <cmath>
#include <cstdio>

#include "files/Text.h"

namespace orvacam::files {

namespace {

std::string escaped(std::uint32_t unit) {
  char text[12];
  std::snprintf(text, sizeof text, "\\u%04x", unit);
  return text;
}

}  // namespace

std::string jsonText(std::string_view text) {
  std::string json = "\"";
  while (!text.empty()) {
    const CodePoint point = codePointAt(text);
    const std::size_t length = point.length == 0 ? 1 : point.length;
    if (point.length == 0)
      json += "\xEF\xBF\xBD";
    else if (point.value == '"' || point.value == '\\')
      json += {'\\', static_cast<char>(point.value)};
    else if (isControl(point.value))
      json += escaped(point.value);
    else
      json += text.substr(0, length);
    text.remove_prefix(length);
  }
  return json + "\"";
}

std::string jsonNumber(double number) {
  return std::isfinite(number) ? numberText(number) : "null";
}

std::string asciiJson(std::string_view json) {
  std::string ascii;
  while (!json.empty()) {
    const CodePoint point = codePointAt(json);
    if (point.length == 1) {
      ascii += json.front();
    } else if (point.value >= 0x10000) {
      ascii += escaped(0xD800 + ((point.value - 0x10000) >> 10)) + escaped(0xDC00 + (point.value & 0x3FF));
    } else {
      ascii += escaped(point.length == 0 ? 0xFFFD : point.value);
    }
    json.remove_prefix(point.length == 0 ? 1 : point.length);
  }
  return ascii;
}

JsonObject& JsonObject::raw(std::string_view name, std::string_view json) {
  if (!m_members.empty()) m_members += ", ";
  m_members += jsonText(name) + ": ";
  m_members += json;
  return *this;
}

JsonList& JsonList::raw(std::string_view json) {
  if (!m_items.empty()) m_items += ", ";
  m_items += json;
  return *this;
}

}  // namespace orvacam::files
