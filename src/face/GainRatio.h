#ifndef ORVACAM_SRC_FACE_GAIN_RATIO_H
#define ORVACAM_SRC_FACE_GAIN_RATIO_H

#include "face/HeaderValues.h"

class CCameraNVMergeSettings;

namespace orvacam::face {

/// Terms of the merge are fixed point with so many fraction bits in 16 bits: a ratio is floored to them, and
/// is below 64.
constexpr unsigned int ratioFractionBits = 10;
constexpr double ratioLimit = 64.0;

/// High to low gain at a header's gain settings: the sensor's own, or that of a camera's stored settings.
double gainRatioOf(const HeaderValues& header, CCameraNVMergeSettings* stored);

/// Whether the merge can hold it.
inline bool isMergeable(double ratio) {
  return ratio >= 0.0 && ratio < ratioLimit;
}

/// As the merge uses it.
double flooredRatio(double ratio);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_GAIN_RATIO_H
