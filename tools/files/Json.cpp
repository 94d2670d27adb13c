#include "files/Json.h"

#include <cmath>
#include <cstdio>

#include "files/Text.h"

namespace orvacam::files {

namespace {

/// The code point at the start of a text, and its length; 0 for what is no UTF-8.
struct CodePoint {
  std::uint32_t value;
  std::size_t length;
};

CodePoint codePointAt(std::string_view text) {
  const auto byte = [&](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i]));
  };
  const std::uint32_t first = byte(0);
  if (first < 0x80) return {first, 1};
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return {0, 0};
  std::uint32_t value = first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {0, 0};
    value = value << 6 | (byte(i) & 0x3F);
  }
  const bool surrogate = value >= 0xD800 && value < 0xE000;
  return value < smallest[length] || value > 0x10FFFF || surrogate ? CodePoint{0, 0}
                                                                   : CodePoint{value, length};
}

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
    else if (point.value < 0x20 || point.value == 0x7F)
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
