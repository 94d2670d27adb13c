#ifndef ORVACAM_SRC_SUPPORT_CHECKED_MATH_H
#define ORVACAM_SRC_SUPPORT_CHECKED_MATH_H

#include <cmath>
#include <cstdint>
#include <limits>

namespace orvacam {

/// The product of sizes that come from outside. False when it does not fit 64 bits; the target is then left
/// alone.
inline bool checkedMultiply(std::uint64_t a, std::uint64_t b, std::uint64_t& product) {
  std::uint64_t result = 0;
  if (__builtin_mul_overflow(a, b, &result)) return false;
  product = result;
  return true;
}

/// a / b rounded up; b must not be 0.
template <typename Unsigned>
constexpr Unsigned ceilDivide(Unsigned a, Unsigned b) {
  return static_cast<Unsigned>(a / b + (a % b != 0 ? 1 : 0));
}

/// Toward zero, cut to the target's range; 0 for what is not a number.
template <typename Integer>
Integer truncated(double value) {
  using Limits = std::numeric_limits<Integer>;
  if (std::isnan(value)) return 0;
  if (value <= static_cast<double>(Limits::min())) return Limits::min();
  // The largest 64-bit integer becomes 2^64 or 2^63 as a double, which is already beyond the range.
  if (value >= static_cast<double>(Limits::max())) return Limits::max();
  return static_cast<Integer>(value);
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_CHECKED_MATH_H
