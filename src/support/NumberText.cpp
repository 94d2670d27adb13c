#include "support/NumberText.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdlib>

namespace orvacam {

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
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(std::string(text).c_str(), nullptr, plain);
}

}  // namespace orvacam
