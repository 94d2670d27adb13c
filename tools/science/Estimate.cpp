#include "science/Estimate.h"

#include <algorithm>
#include <cstdio>

namespace orvacam::science {

std::string formatted(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string fixedText(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string shown(const Estimate& estimate, int digits) {
  if (!estimate.known()) return "-";
  char text[96];
  if (!(estimate.error > 0) || !std::isfinite(estimate.error)) {
    std::snprintf(text, sizeof text, "%.*g", digits, estimate.value);
    return text;
  }
  const int decimals = std::clamp(1 - static_cast<int>(std::floor(std::log10(estimate.error))), 0, 12);
  std::snprintf(text, sizeof text, "%.*f +- %.*f", decimals, estimate.value, decimals, estimate.error);
  return text;
}

}  // namespace orvacam::science
