#include "files/Text.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace orvacam::files {

namespace {

struct Broken {
  std::tm calendar{};
  long nanoseconds = 0;
};

Broken broken(Instant time) {
  constexpr std::int64_t perSecond = 1000000000;
  const std::int64_t nanoseconds = time.time_since_epoch().count();
  const bool inSecondBefore = nanoseconds % perSecond < 0;
  const std::time_t clock = nanoseconds / perSecond - (inSecondBefore ? 1 : 0);
  Broken result;
  gmtime_r(&clock, &result.calendar);
  result.nanoseconds = nanoseconds % perSecond + (inSecondBefore ? perSecond : 0);
  return result;
}

std::string calendarText(const std::tm& t, const char* format) {
  char text[96];
  std::snprintf(text, sizeof text, format, t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min,
                t.tm_sec);
  return text;
}

}  // namespace

std::string plainText(std::string_view text) {
  std::string plain(text);
  for (char& c : plain)
    if (c < 0x20 || c > 0x7E) c = '?';
  return plain;
}

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

bool isControl(std::uint32_t codePoint) {
  return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
}

namespace {

std::string escapedByte(char c) {
  if (c == '\n' || c == '\t' || c == '\r') return c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
  char hex[8];
  std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned int>(static_cast<unsigned char>(c)));
  return hex;
}

}  // namespace

std::string shownText(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const CodePoint point = codePointAt(text);
    const std::string_view bytes = text.substr(0, point.length == 0 ? 1 : point.length);
    if (point.length > 0 && !isControl(point.value))
      shown += bytes;
    else
      for (const char c : bytes)
        shown += escapedByte(c);
    text.remove_prefix(bytes.size());
  }
  return shown;
}

std::string csvField(std::string_view text) {
  std::string shown = shownText(text);
  if (shown.find_first_of(",\"") == std::string::npos) return shown;
  std::string quoted = "\"";
  for (const char c : shown)
    quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

std::string isoTime(Instant time) {
  const Broken t = broken(time);
  char fraction[24];
  std::snprintf(fraction, sizeof fraction, ".%09ld", t.nanoseconds);
  return calendarText(t.calendar, "%04d-%02d-%02dT%02d:%02d:%02d") + fraction;
}

std::string tiffTime(Instant time) {
  return calendarText(broken(time).calendar, "%04d:%02d:%02d %02d:%02d:%02d");
}

std::string isoNow() {
  const auto now = std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
  return calendarText(broken(now).calendar, "%04d-%02d-%02dT%02d:%02d:%02d");
}

std::string numberText(double number) {
  constexpr double exactWhole = 1e15;
  if (std::floor(number) == number && std::fabs(number) < exactWhole)
    return std::to_string(static_cast<long long>(number));
  char text[40];
  const auto end = std::to_chars(text, text + sizeof text, number).ptr;
  return std::string(text, end);
}

}  // namespace orvacam::files
