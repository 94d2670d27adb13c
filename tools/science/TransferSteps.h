#ifndef ORVACAM_SCIENCE_TRANSFER_STEPS_H
#define ORVACAM_SCIENCE_TRANSFER_STEPS_H

#include <string>

#include "science/PhotonTransfer.h"

// The steps of photonTransfer, in their order, each of which fills in a part of the plane; and what they
// share.

namespace orvacam::science {

/// The saturation point, and which flats are brighter.
void findSaturation(PlaneTransfer& plane);
void fitGain(PlaneTransfer& plane, double fullScale);
/// Dark current, offset and read noise.
void measureDarks(PlaneTransfer& plane);
/// The linearity error, and each point's part of it.
void findLinearity(PlaneTransfer& plane, double fullScale);

inline std::string number(double value) {
  return formatted("%.4g", value);
}
void say(PlaneTransfer& plane, const char* field, const std::string& text);

const DarkLevel& darkOf(const PlaneTransfer& plane, double exposure);
/// The darks that noise and offset are taken from: the shortest exposure of two frames or more.
const DarkLevel& shortestDark(const PlaneTransfer& plane);
/// The signal that parts of saturation are counted from.
double referenceSignal(const PlaneTransfer& plane, double fullScale);

constexpr double hiddenVariance = 0.24;  ///< below this, rounding hides the noise (EMVA 1288)

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_TRANSFER_STEPS_H
