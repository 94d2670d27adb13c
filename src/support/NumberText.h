#ifndef ORVACAM_SRC_SUPPORT_NUMBER_TEXT_H
#define ORVACAM_SRC_SUPPORT_NUMBER_TEXT_H

#include <array>
#include <string>
#include <string_view>

namespace orvacam {

/// Numbers in text never follow the host program's locale: a host that has called setlocale for a language
/// with decimal commas reads and writes the same bytes as any other.

/// What printf("%.<decimals>f") writes in the C locale, "nan", "-nan", "inf" and "-inf" included.
std::string fixedText(double value, int decimals = 6);
/// The same in memory of the caller's: the largest double has 309 digits before the point.
using NumberMemory = std::array<char, 309 + 1 + 64 + 1>;
std::string_view fixedText(NumberMemory& memory, double value, int decimals = 6);

/// What strtod reads from the start of the text in the C locale: leading white space, an optional sign,
/// decimal or hexadecimal digits, an exponent, "inf", "nan". 0.0 when no number stands there; HUGE_VAL with
/// the number's sign beyond the range of a double. May throw std::bad_alloc.
double parseDouble(std::string_view text);

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_NUMBER_TEXT_H
