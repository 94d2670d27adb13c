#include "files/Text.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace orvacam::files {

namespace {

bool isControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

struct Broken {
  std::tm calendar{};
  long nanoseconds = 0;
};

Broken broken(Instant time) {
  using std::chrono::seconds;
  const auto whole = std::chrono::floor<seconds>(time.time_since_epoch());
  const std::time_t clock = whole.count();
  Broken result;
  gmtime_r(&clock, &result.calendar);
  result.nanoseconds = static_cast<long>((time.time_since_epoch() - whole).count());
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
    if (isControl(c) || static_cast<unsigned char>(c) > 0x7E) c = '?';
  return plain;
}

std::string shownText(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    if (!isControl(c)) {
      shown += c;
    } else if (c == '\n' || c == '\t' || c == '\r') {
      shown += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned int>(static_cast<unsigned char>(c)));
      shown += hex;
    }
  }
  return shown;
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
