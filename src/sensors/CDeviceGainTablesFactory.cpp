#include <orvacam/gain/CDeviceGainTablesFactory.h>

#include <exception>

#include "sensors/Sensors.h"

IDeviceGainTables* CDeviceGainTablesFactory::IDeviceGainTables_Create(const gain_type_info_t& info,
                                                                      CCameraNVMergeSettings* pNV) try {
  const orvacam::Sensor& sensor = orvacam::sensorOf(info.uiDeviceType);
  IDeviceGainTables* const tables = info.bBSI ? sensor.backSideGains() : sensor.gains();
  tables->InitializeMergeSettings(pNV);  // does nothing for sensors without curves
  return tables;
} catch (const std::exception&) {
  return nullptr;
}
