#ifndef ORVACAM_TESTS_MERGE_MERGE_RULE_H
#define ORVACAM_TESTS_MERGE_MERGE_RULE_H

#include <algorithm>
#include <cmath>

/// The camera's merge as it is documented, a pixel at a time, in doubles.
namespace merge_rule {

/// A sum that is cut at the range of f fraction bits, a product, rounding half away from zero, a cut.
struct Correction {
  Correction(double additive, double multiplicative, unsigned int f)
      : add(additive),
        mul(multiplicative),
        max(f > 15 ? 0.0 : std::pow(2.0, 15.0 - f) - std::pow(2.0, -1.0 * f)) {}
  /// Of terms in fixed point, with f and g fraction bits.
  Correction(int additive, unsigned int multiplicative, unsigned int f, unsigned int g)
      : Correction(additive / std::pow(2.0, f), multiplicative / std::pow(2.0, g), f) {}

  int operator()(unsigned int pixel) const {
    const double value = std::max(std::min(pixel + add, max), 0.0) * mul;
    return value < 0 ? 0 : value > 65535 ? 65535 : static_cast<int>(std::round(value));
  }

  double add, mul, max;
};

/// Which of two corrected pixels is taken.
inline unsigned short merged(int low, int high, int highThreshold, int difference, unsigned int type) {
  const bool takesLow = type == 1 || (type != 2 && (high >= highThreshold || low - high > difference));
  return static_cast<unsigned short>(takesLow ? low : high);
}

}  // namespace merge_rule

#endif  // ORVACAM_TESTS_MERGE_MERGE_RULE_H
