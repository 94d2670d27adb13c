#ifndef ORVACAM_FILES_TEXT_H
#define ORVACAM_FILES_TEXT_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace orvacam::files {

using Instant = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

/// Text as a FITS card or a TIFF tag takes it: control bytes and what is not ASCII become "?".
std::string plainText(std::string_view text);

/// The character at the start of a text that is not empty, and its bytes; {0, 0} for what is no UTF-8.
struct CodePoint {
  std::uint32_t value;
  std::size_t length;
};
CodePoint codePointAt(std::string_view text);
/// Whether it does something instead of showing something: C0, DEL and C1, which terminals obey alike.
bool isControl(std::uint32_t codePoint);

/// Text as a terminal takes it: control characters, and bytes that are no UTF-8, become \n, \t, \x1B, ...
std::string shownText(std::string_view text);

/// The same as a field of a CSV file (RFC 4180): in quotes, which stand twice within, where it has to be.
std::string csvField(std::string_view text);

/// "2024-05-17T21:04:33.123456700", UTC.
std::string isoTime(Instant time);
/// "2024:05:17 21:04:33", UTC, as TIFF has it.
std::string tiffTime(Instant time);
/// The time of day now, UTC, to the second.
std::string isoNow();

/// The shortest digits that read back as the same number.
std::string numberText(double number);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_TEXT_H
