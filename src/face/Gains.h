#ifndef ORVACAM_SRC_FACE_GAINS_H
#define ORVACAM_SRC_FACE_GAINS_H

#include <orvacam/gain/CCameraNVMergeSettings.h>

#include <cmath>
#include <cstddef>
#include <memory>

#include "face/HeaderValues.h"

namespace orvacam::face {

/// High to low gain at a header's gain settings: the sensor's own, or that of a camera's stored settings.
double gainRatioOf(const HeaderValues& header, CCameraNVMergeSettings* stored);

/// Terms of the merge are fixed point, with 10 fraction bits in 16 bits: a ratio is below 64, and is floored.
inline bool isMergeable(double ratio) {
  return ratio >= 0.0 && ratio < 64.0;
}
inline double flooredRatio(double ratio) {
  return std::floor(ratio * 1024.0) / 1024.0;
}

/// A camera's calibration block. Throws Failure (bad_argument) for what is none: the documented reader takes
/// a foreign block for none at all, and says nothing.
std::unique_ptr<CCameraNVMergeSettings> readCalibration(const void* block, std::size_t length);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_GAINS_H
