#include "face/CaptureTime.h"

#include <orvacam/support/util.h>

#include <cstdio>
#include <cstring>

namespace orvacam::face {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1000000000;
constexpr std::int64_t secondsPerDay = 86400;

unsigned int digits(const char* text, unsigned int count) {
  unsigned int value = 0;
  for (unsigned int i = 0; i < count; ++i)
    value = 10 * value + static_cast<unsigned int>(text[i] - '0');
  return value;
}

bool isLeapYear(std::int64_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

unsigned int daysOf(unsigned int month, std::int64_t year) {
  static constexpr unsigned int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : days[month - 1];
}

/// Days from 1970-01-01, in the calendar of today; the year is 0 or more.
std::int64_t daysSince1970(std::int64_t year, unsigned int month, unsigned int day) {
  std::int64_t days = 365 * year + (year + 3) / 4 - (year + 99) / 100 + (year + 399) / 400;
  constexpr std::int64_t daysTo1970 = 719528;  // from the first day of the year 0
  for (unsigned int m = 1; m < month; ++m)
    days += daysOf(m, year);
  return days + day - 1 - daysTo1970;
}

}  // namespace

std::optional<CaptureTime> readTimeText(const unsigned char* text) {
  char copy[timeTextLength + 1] = {};
  std::memcpy(copy, text, timeTextLength);
  CaptureTime time;
  double seconds = 0;
  if (utilParseTimeString(copy, timeTextLength, time.year, time.month, time.day, seconds) != 0)
    return std::nullopt;
  // The reader vouches for the digits; the places are fixed.
  time.hour = digits(copy + 11, 2);
  time.minute = digits(copy + 14, 2);
  time.second = digits(copy + 17, 2);
  const bool milliseconds = std::strstr(copy, "NOGPS") != nullptr || std::strstr(copy, "ERROR") != nullptr;
  time.nanosecond = milliseconds ? digits(copy + 20, 3) * std::uint64_t{1000000} : digits(copy + 20, 9);
  return time;
}

std::optional<std::int64_t> nanosecondsOf(const CaptureTime& time) {
  if (time.month < 1 || time.month > 12 || time.day < 1 || time.day > daysOf(time.month, time.year))
    return std::nullopt;
  if (time.hour > 23 || time.minute > 59 || time.second > 59) return std::nullopt;
  const std::int64_t seconds = daysSince1970(time.year, time.month, time.day) * secondsPerDay +
                               time.hour * 3600 + time.minute * 60 + time.second;
  const auto nanoseconds = static_cast<__int128>(seconds) * nanosecondsPerSecond + time.nanosecond;
  const auto held = static_cast<std::int64_t>(nanoseconds);
  if (held != nanoseconds) return std::nullopt;
  return held;
}

std::string timeText(std::int64_t nanoseconds) {
  constexpr std::int64_t nanosecondsPerDay = secondsPerDay * nanosecondsPerSecond;
  std::int64_t days = nanoseconds / nanosecondsPerDay;
  std::int64_t fraction = nanoseconds % nanosecondsPerDay;
  if (fraction < 0) {
    fraction += nanosecondsPerDay;
    --days;
  }
  const std::int64_t second = fraction / nanosecondsPerSecond;
  std::int64_t year = 1677;  // the first that 64 bits hold
  while (daysSince1970(year + 1, 1, 1) <= days)
    ++year;
  unsigned int month = 1;
  while (month < 12 && daysSince1970(year, month + 1, 1) <= days)
    ++month;
  const std::int64_t day = days - daysSince1970(year, month, 1) + 1;
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02dT%02d:%02d:%02d.%09d", static_cast<int>(year), month,
                static_cast<int>(day), static_cast<int>(second / 3600), static_cast<int>(second / 60 % 60),
                static_cast<int>(second % 60), static_cast<int>(fraction % nanosecondsPerSecond));
  return text;
}

}  // namespace orvacam::face
