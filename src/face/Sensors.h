#ifndef ORVACAM_SRC_FACE_SENSORS_H
#define ORVACAM_SRC_FACE_SENSORS_H

#include <orvacam/metadata/CFrameMetaData.h>

namespace orvacam::face {

/// A sensor as users know it.
struct SensorName {
  unsigned int device;  ///< an ORVADEVICETYPE
  const char* name;
  bool isKnown;  ///< not the stand-in for models that name none
};

/// The sensor that a header names.
const SensorName& sensorNamed(const CFrameMetaData& header);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_SENSORS_H
