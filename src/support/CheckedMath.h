#ifndef ORVACAM_SRC_SUPPORT_CHECKED_MATH_H
#define ORVACAM_SRC_SUPPORT_CHECKED_MATH_H

#include <cstdint>

namespace orvacam {

/// Products and sums of sizes that come from outside. False when the result does not fit 64 bits; the target
/// is then left alone.
inline bool checkedMultiply(std::uint64_t a, std::uint64_t b, std::uint64_t& product) {
  std::uint64_t result = 0;
  if (__builtin_mul_overflow(a, b, &result)) return false;
  product = result;
  return true;
}

inline bool checkedAdd(std::uint64_t a, std::uint64_t b, std::uint64_t& sum) {
  std::uint64_t result = 0;
  if (__builtin_add_overflow(a, b, &result)) return false;
  sum = result;
  return true;
}

/// a / b rounded up; b must not be 0.
template <typename Unsigned>
constexpr Unsigned ceilDivide(Unsigned a, Unsigned b) {
  return static_cast<Unsigned>(a / b + (a % b != 0 ? 1 : 0));
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_CHECKED_MATH_H
