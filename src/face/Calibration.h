#ifndef ORVACAM_SRC_FACE_CALIBRATION_H
#define ORVACAM_SRC_FACE_CALIBRATION_H

#include <orvacam/gain/CCameraNVMergeSettings.h>

#include <cstddef>
#include <memory>

namespace orvacam::face {

/// A camera's calibration block. Throws Failure (bad_argument) for what is none: the documented reader takes
/// a foreign block for none at all, and says nothing.
std::unique_ptr<CCameraNVMergeSettings> readCalibration(const void* block, std::size_t length);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_CALIBRATION_H
