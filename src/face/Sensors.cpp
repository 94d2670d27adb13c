#include "face/Sensors.h"

#include <orvacam/types/device_types.h>
#include <orvacam_c.h>

#include <string_view>

namespace orvacam::face {

namespace {

/// The documented model texts name no LSGEN camera; these say it themselves.
bool saysLsgen(const CFrameMetaData& header) {
  int length = 0;
  const unsigned char* const model = header.Value(ORVA_META_KEY_CAMERA_MODEL).GetValue(nullptr, length);
  return model != nullptr &&
         std::string_view(reinterpret_cast<const char*>(model), static_cast<std::size_t>(length))
                 .find("LSGEN") != std::string_view::npos;
}

}  // namespace

const Sensor& sensorNamed(const CFrameMetaData& header) {
  unsigned int device = ORVA_DEVICE_UNKNOWN;
  if (header.GetDeviceType(device) != 0 && saysLsgen(header)) device = ORVA_DEVICE_LSGEN;
  return sensorOf(device);
}

}  // namespace orvacam::face

extern "C" {

size_t orva_sensor_count(void) {
  size_t count = 0;
  for (const orvacam::Sensor& sensor : orvacam::sensors)
    if (orvacam::sendsFrames(sensor)) ++count;
  return count;
}

const char* orva_sensor_name(size_t index) {
  for (const orvacam::Sensor& sensor : orvacam::sensors)
    if (orvacam::sendsFrames(sensor) && index-- == 0) return sensor.name.data();
  return nullptr;
}
}
