#ifndef ORVACAM_SCIENCE_ESTIMATE_H
#define ORVACAM_SCIENCE_ESTIMATE_H

#include <cmath>
#include <limits>
#include <string>

namespace orvacam::science {

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

constexpr double fewPixels = 0.001;  ///< a part of the pixels that does not matter

inline double square(double value) {
  return value * value;
}

/// A number by a format of printf, or with so many digits behind the point.
std::string formatted(const char* format, double value);
std::string fixedText(double value, int decimals);

/// A number and its standard error; NaN where it is not known.
struct Estimate {
  double value = unknown, error = unknown;

  bool known() const { return std::isfinite(value); }
};

/// To the second digit of the error: "4.013 +- 0.021". Without an error, so many digits; "-" where it is not
/// known.
std::string shown(const Estimate& estimate, int digits);

/// The root of a variance that may have come out below 0: then 0. The error is the way up to the root of the
/// variance one standard error higher, which for a well measured variance is error / (2 root).
inline Estimate rootOf(const Estimate& variance) {
  if (!variance.known()) return {};
  const double positive = std::fmax(variance.value, 0);
  const double root = std::sqrt(positive);
  return {root, std::sqrt(positive + variance.error) - root};
}

/// a x b, whose errors have nothing to do with each other.
inline Estimate product(const Estimate& a, const Estimate& b) {
  return {a.value * b.value, std::hypot(a.error * b.value, a.value * b.error)};
}

/// a / b with the relative errors added in squares.
inline Estimate quotient(const Estimate& a, const Estimate& b) {
  if (!a.known() || !b.known() || b.value == 0) return {};
  const double value = a.value / b.value;
  return {value, std::hypot(a.error / b.value, value * b.error / b.value)};
}

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_ESTIMATE_H
