#ifndef ORVACAM_SRC_FACE_SENSORS_H
#define ORVACAM_SRC_FACE_SENSORS_H

#include <orvacam/metadata/CFrameMetaData.h>

#include "sensors/Sensors.h"

namespace orvacam::face {

/// The sensor that a header names; the generic one for none.
const Sensor& sensorNamed(const CFrameMetaData& header);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_SENSORS_H
