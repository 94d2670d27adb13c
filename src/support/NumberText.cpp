#include "support/NumberText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace orvacam {

namespace {

bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isHexDigitOrPoint(char c) {
  return c == '.' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// The exponent behind the mark; one that 64 bits cannot hold is as good as a very large one.
long long exponentOf(std::string_view text) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  long long exponent = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), exponent);
  constexpr long long large = std::numeric_limits<long long>::max() / 2;
  if (result.ec == std::errc::result_out_of_range) exponent = text.front() == '-' ? -large : large;
  return std::clamp(exponent, -large, large);
}

/// What strtod gives for digits beyond the range of a double: infinity where the first digit
/// that counts and the exponent make the number large, zero where they make it small.
double outOfRange(std::string_view digits, bool hexadecimal) {
  const std::size_t mark = std::min(digits.find_first_of(hexadecimal ? "pP" : "eE"), digits.size());
  const std::string_view mantissa = digits.substr(0, mark);
  if (mantissa.find_first_not_of("0.") == std::string_view::npos) return 0.0;
  const auto point = static_cast<long long>(std::min(mantissa.find('.'), mantissa.size()));
  const auto first = static_cast<long long>(mantissa.find_first_not_of("0."));
  const long long exponent = mark < digits.size() ? exponentOf(digits.substr(mark + 1)) : 0;
  return (point - first) * (hexadecimal ? 4 : 1) + exponent > 0 ? HUGE_VAL : 0.0;
}

}  // namespace

std::string_view fixedText(NumberMemory& memory, double value, int decimals) {
  const auto result = std::to_chars(memory.data(), memory.data() + memory.size(), value,
                                    std::chars_format::fixed, std::clamp(decimals, 0, 64));
  return {memory.data(), static_cast<std::size_t>(result.ptr - memory.data())};
}

std::string fixedText(double value, int decimals) {
  NumberMemory memory;
  return std::string(fixedText(memory, value, decimals));
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
  const double noNumber = hexadecimal && negative ? -0.0 : 0.0;  // "-0x" still is the zero before the x
  if (hexadecimal && !isHexDigitOrPoint(digits.front())) return noNumber;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value,
                                      hexadecimal ? std::chars_format::hex : std::chars_format::general);
  if (result.ec == std::errc::result_out_of_range)
    value = outOfRange(digits.substr(0, static_cast<std::size_t>(result.ptr - digits.data())), hexadecimal);
  else if (result.ec != std::errc())
    return noNumber;
  return negative ? -value : value;
}

}  // namespace orvacam
