#ifndef ORVACAM_SRC_SUPPORT_NUMBER_TEXT_H
#define ORVACAM_SRC_SUPPORT_NUMBER_TEXT_H

#include <string>
#include <string_view>

namespace orvacam {

/// Numbers in text never follow the host program's locale: a host that has called setlocale for a language
/// with decimal commas reads and writes the same bytes as any other.

/// What printf("%.<decimals>f") writes in the C locale, "nan", "-nan", "inf" and "-inf" included.
std::string fixedText(double value, int decimals = 6);

/// What strtod reads from the start of the text in the C locale: leading white space, an optional sign,
/// decimal or hexadecimal digits, an exponent, "inf", "nan". 0.0 when no number stands there; HUGE_VAL with
/// the number's sign beyond the range of a double.
double parseDouble(std::string_view text);

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_NUMBER_TEXT_H
