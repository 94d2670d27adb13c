#ifndef ORVACAM_TOOL_MEASURE_REPORT_H
#define ORVACAM_TOOL_MEASURE_REPORT_H

#include <string>

#include "science/CameraMeasurement.h"

namespace tool {

/// As people read it.
std::string textOf(const orvacam::science::CameraMeasurement& measured);
/// As programs read it: orvacam.measure/1, one object. `tableRatio` is the one of the header's gains; 0 where
/// there is none.
std::string jsonOf(const orvacam::science::CameraMeasurement& measured, double tableRatio);
/// The photon-transfer curves, a line a pair of flats and plane.
std::string csvOf(const orvacam::science::CameraMeasurement& measured);

}  // namespace tool

#endif  // ORVACAM_TOOL_MEASURE_REPORT_H
