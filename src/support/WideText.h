#ifndef ORVACAM_SRC_SUPPORT_WIDE_TEXT_H
#define ORVACAM_SRC_SUPPORT_WIDE_TEXT_H

#include <cstddef>

namespace orvacam {

/// Text between wide and narrow form, in the encoding of the program's locale. What the locale cannot express
/// is taken as UTF-8; bytes that are not UTF-8 either become 0xDC00 + byte and come back as that byte, so
/// that any file name survives. Output is cut to whole characters at capacity - 1 and always terminated; the
/// length is returned. A null text is empty.
std::size_t wideToNarrow(const wchar_t* wide, char* narrow, std::size_t capacity);
std::size_t narrowToWide(const char* narrow, wchar_t* wide, std::size_t capacity);

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_WIDE_TEXT_H
