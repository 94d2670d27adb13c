#ifndef ORVACAM_TOOL_CALIBRATION_REPORT_H
#define ORVACAM_TOOL_CALIBRATION_REPORT_H

#include <string>

#include "PlaneFile.h"
#include "science/Calibration.h"

namespace tool {

/// "bias", "dark", "flat".
const char* nameOf(orvacam::science::CalibrationKind kind);

std::string textOf(const orvacam::science::Calibration& calibration);
/// {"schema": "orvacam.calibrate/1", ...}
std::string jsonOf(const orvacam::science::Calibration& calibration);
/// "plane,x,y,kind,value" and a line for each odd pixel.
std::string csvOf(const orvacam::science::Calibration& calibration);
/// A FITS file of masks: an extension of 8 bits for each plane; 1 hot, 2 dead, 4 blinking.
Content maskOf(const orvacam::science::Calibration& calibration);

}  // namespace tool

#endif  // ORVACAM_TOOL_CALIBRATION_REPORT_H
