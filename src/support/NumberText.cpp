#include "support/NumberText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace orvacam {

namespace {

bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

/// What strtod gives where a number is beyond the range of a double: infinity where its digits are large,
/// zero where they are small.
double outOfRange(std::string_view digits, bool hexadecimal) {
  const std::size_t mark = digits.find_first_of(hexadecimal ? "pP" : "eE");
  if (mark != std::string_view::npos && mark + 1 < digits.size() && digits[mark + 1] == '-') return 0.0;
  const bool largeDigits = digits.find_first_not_of("0.") < digits.find('.');
  return largeDigits || mark != std::string_view::npos ? HUGE_VAL : 0.0;
}

}  // namespace

std::string fixedText(double value, int decimals) {
  // The largest double has 309 digits before the point.
  std::array<char, 309 + 1 + 64 + 1> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed,
                                    decimals < 0    ? 0
                                    : decimals > 64 ? 64
                                                    : decimals);
  return std::string(text.data(), result.ptr);
}

double parseDouble(std::string_view text) {
  while (!text.empty() && isSpace(text.front()))
    text.remove_prefix(1);
  const bool negative = !text.empty() && text.front() == '-';
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) text.remove_prefix(1);
  // from_chars takes a sign of its own; two signs are no number.
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) return 0.0;

  double value = 0.0;
  const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  std::string_view digits = hexadecimal ? text.substr(2) : text;
  if (hexadecimal && !digits.empty() && (digits.front() == '-' || digits.front() == '+'))
    return negative ? -0.0 : 0.0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value,
                                      hexadecimal ? std::chars_format::hex : std::chars_format::general);
  if (result.ec == std::errc::result_out_of_range)
    value = outOfRange(digits.substr(0, static_cast<std::size_t>(result.ptr - digits.data())), hexadecimal);
  else if (result.ec != std::errc())
    value = 0.0;
  return negative ? -value : value;
}

}  // namespace orvacam
