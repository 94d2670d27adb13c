#ifndef ORVACAM_SRC_FACE_CAPTURE_TIME_H
#define ORVACAM_SRC_FACE_CAPTURE_TIME_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace orvacam::face {

/// A date and a time of day, which may be impossible.
struct CaptureTime {
  unsigned int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  std::uint64_t nanosecond = 0;
};

/// Bytes of the time text of header versions 2 to 4: "YYYY/MM/DD hh:mm:ss.nnnnnnnnn".
constexpr std::size_t timeTextLength = 30;

/// The text as numbers, three digits of fraction being milliseconds; none where the header's reader refuses
/// it.
std::optional<CaptureTime> readTimeText(const unsigned char* text);

/// Nanoseconds since 1970, UTC; none for a date or time that does not exist (26:02:01, 30 February, a second
/// of 60) and for years that 64 bits do not hold.
std::optional<std::int64_t> nanosecondsOf(const CaptureTime& time);

/// "2024-05-17T21:04:33.123456700"
std::string timeText(std::int64_t nanoseconds);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_CAPTURE_TIME_H
