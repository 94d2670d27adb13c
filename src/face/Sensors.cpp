#include "face/Sensors.h"

#include <orvacam/types/device_types.h>
#include <orvacam_c.h>

#include <iterator>
#include <string_view>

namespace orvacam::face {

namespace {

constexpr SensorName sensorNames[] = {
    {ORVA_DEVICE_GSENSE400, "GSENSE400", true},    {ORVA_DEVICE_GSENSE2020, "GSENSE2020", true},
    {ORVA_DEVICE_GSENSE4040, "GSENSE4040", true},  {ORVA_DEVICE_GSENSE6060, "GSENSE6060", true},
    {ORVA_DEVICE_IMX183, "IMX183", true},          {ORVA_DEVICE_LSGEN, "LSGEN", true},
    {ORVA_DEVICE_ARGENT_23042, "CCD230-42", true}, {ORVA_DEVICE_ARGENT_23084, "CCD230-84", true},
    {ORVA_DEVICE_ARGENT_4320, "CCD4320", true},    {ORVA_DEVICE_UNKNOWN, "GENERIC", false}};
constexpr const SensorName& generic = sensorNames[std::size(sensorNames) - 1];

const SensorName* sensorOfDevice(unsigned int device) {
  for (const SensorName& sensor : sensorNames)
    if (sensor.device == device) return &sensor;
  return nullptr;
}

/// The documented model texts name no LSGEN camera; these say it themselves.
bool saysLsgen(const CFrameMetaData& header) {
  int length = 0;
  const unsigned char* const model = header.Value(ORVA_META_KEY_CAMERA_MODEL).GetValue(nullptr, length);
  return model != nullptr &&
         std::string_view(reinterpret_cast<const char*>(model), static_cast<std::size_t>(length))
                 .find("LSGEN") != std::string_view::npos;
}

}  // namespace

const SensorName& sensorNamed(const CFrameMetaData& header) {
  unsigned int device = ORVA_DEVICE_UNKNOWN;
  if (header.GetDeviceType(device) != 0 && saysLsgen(header)) device = ORVA_DEVICE_LSGEN;
  const SensorName* const sensor = sensorOfDevice(device);
  return sensor != nullptr ? *sensor : generic;
}

}  // namespace orvacam::face

extern "C" {

size_t orva_sensor_count(void) {
  return std::size(orvacam::face::sensorNames);
}

const char* orva_sensor_name(size_t index) {
  return index < std::size(orvacam::face::sensorNames) ? orvacam::face::sensorNames[index].name : nullptr;
}
}
