#ifndef ORVACAM_SRC_SUPPORT_WIDE_TEXT_H
#define ORVACAM_SRC_SUPPORT_WIDE_TEXT_H

#include <cstddef>
#include <cstdint>

namespace orvacam {

/// Text between wide and narrow form, in the encoding of the program's locale. What the locale cannot express
/// is taken as UTF-8; bytes that are not UTF-8 either become 0xDC00 + byte and come back as that byte, so
/// that any file name survives. Output is cut to whole characters at capacity - 1 and always terminated; the
/// length is returned. A null text is empty.
std::size_t wideToNarrow(const wchar_t* wide, char* narrow, std::size_t capacity);
std::size_t narrowToWide(const char* narrow, wchar_t* wide, std::size_t capacity);

/// The UTF-8 character that starts `room` bytes, at least one: its length, and its code in `code`. A byte
/// that starts none has length 1, and its escape as the code.
std::size_t decodeUtf8(const char* text, std::size_t room, std::uint32_t& code);

/// Stands for bytes that are no UTF-8: what the first of them is added to.
constexpr std::uint32_t escapeBase = 0xDC00;
constexpr bool isEscape(std::uint32_t code) {
  return code >= escapeBase + 0x80 && code <= escapeBase + 0xFF;
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_WIDE_TEXT_H
