// Sensors by name, and their gains: the sensor's own, or those of a camera's calibration block.

#include "face/Gains.h"

#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/gain/IDeviceGainTables.h>
#include <orvacam/support/util.h>
#include <orvacam/types/gain_types.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "face/Failure.h"
#include "gain/CalibrationBlock.h"
#include "gain/SensorGains.h"
#include "sensors/Sensors.h"
#include "support/QuietLog.h"

namespace orvacam::face {

namespace {

constexpr double largestRatio = 65535;  // a frame's header, which begins alike, has text there

[[noreturn]] void refuse(const std::string& why) {
  fail(ORVA_BAD_ARGUMENT, "is no camera's calibration block: " + why);
}

using BodyParser = int (CCameraNVMergeSettings::*)(const unsigned char* body, unsigned int length);

/// The parser of a block's version, after what can be told from its first bytes. Throws Failure.
BodyParser parserOf(const unsigned char* block, std::size_t length) {
  static constexpr BodyParser parsers[] = {
      &CCameraNVMergeSettings::ParseSettings1, &CCameraNVMergeSettings::ParseSettings2,
      &CCameraNVMergeSettings::ParseSettings3, &CCameraNVMergeSettings::ParseSettings4};
  if (length < calibration::smallestBlock || std::memcmp(block, "Meta", 4) != 0)
    refuse("it does not start with \"Meta\"");
  const std::size_t stated = utilBufToUint16(block + 4, false);
  const unsigned int version = utilBufToUint16(block + 6, false);
  if (stated < calibration::smallestBlock || stated > calibration::largestBlock)
    refuse("its length " + std::to_string(stated) + " at byte 4 is not 9 to 1024");
  if (version < 1 || version > std::size(parsers))
    refuse("its version " + std::to_string(version) + " at byte 6 is none of 1 to 4");
  if (length < stated)
    refuse("it needs " + std::to_string(stated) + " bytes, ends at byte " + std::to_string(length));
  return parsers[version - 1];
}

/// A sensor by its name. Throws Failure.
const Sensor& sensorOfName(const char* name) {
  for (const Sensor& sensor : sensors)
    if (sensor.name == &required(name, "the sensor")) return sensor;
  fail(ORVA_BAD_ARGUMENT, "\"" + std::string(name) + "\" is no sensor");
}

/// A camera's gain tables, which share nothing with others.
std::unique_ptr<IDeviceGainTables> gainTablesOf(const gain_type_info_t& camera,
                                                CCameraNVMergeSettings* stored) {
  const GainTablesApart apart;
  std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(camera, stored));
  if (tables == nullptr) throw std::bad_alloc();
  return tables;
}

orva_gain gainAt(IDeviceGainTables& tables, const gain_value_t& low) {
  const unsigned int device = low.uiDeviceIndex;
  const unsigned int high = tables.GetTableIndexFromDeviceIndex(ORVA_GAIN_TABLE_HIGH_CHANNEL, device);
  constexpr double scale = 1000.0;
  return {sizeof(orva_gain),
          device,
          low.uiValue / scale,
          tables.GetDeviceValueFromTableIndex(ORVA_GAIN_TABLE_HIGH_CHANNEL, high) / scale,
          tables.GetDNETableValue(ORVA_GAIN_TABLE_LOW_CHANNEL, device),
          tables.GetDNETableValue(ORVA_GAIN_TABLE_HIGH_CHANNEL, device),
          tables.GetDNETableGainRatio(device, device)};
}

void giveGains(IDeviceGainTables& tables, orva_gain* gains, std::size_t capacity, std::size_t& count) {
  std::vector<gain_value_t> low(tables.GetNumEntries(ORVA_GAIN_TABLE_LOW_CHANNEL));
  tables.GetTable(ORVA_GAIN_TABLE_LOW_CHANNEL, low.data(), static_cast<unsigned int>(low.size()), false);
  count = low.size();
  const std::size_t stride = capacity > 0 ? required(gains, "the gains").size : 0;
  auto* place = reinterpret_cast<unsigned char*>(gains);
  for (std::size_t i = 0; i < std::min(capacity, low.size()); ++i, place += stride) {
    auto* const record = reinterpret_cast<orva_gain*>(place);
    record->size = stride;
    give(record, gainAt(tables, low[i]), "the gains");
  }
}

}  // namespace

double gainRatioOf(const HeaderValues& header, CCameraNVMergeSettings* stored) {
  const auto tables =
      gainTablesOf({header.device(), header.flag(ORVA_META_KEY_BACK_SIDE_ILLUMINATED)}, stored);
  return tables->GetDNETableGainRatio(header.number(ORVA_META_KEY_LDR_GAIN),
                                      header.number(ORVA_META_KEY_HDR_GAIN));
}

std::unique_ptr<CCameraNVMergeSettings> readCalibration(const void* block, std::size_t length) {
  makeLogQuietly();
  const auto* const bytes = static_cast<const unsigned char*>(block);
  if (length > 0) required(bytes, "the calibration block");
  const BodyParser parse = parserOf(bytes, length);
  const auto stated = static_cast<unsigned int>(utilBufToUint16(bytes + 4, false));
  CCameraNVMergeSettings probe;
  if ((probe.*parse)(bytes + calibration::headerSize, stated - calibration::headerSize) < 0)
    refuse("its settings end early");
  if (probe.GetGainRatio() > largestRatio || probe.GetDefaultGainRatio() > largestRatio)
    refuse("its gain ratio is above 65535");
  auto stored = std::make_unique<CCameraNVMergeSettings>();
  stored->Initialize(bytes, static_cast<unsigned int>(stated));
  return stored;
}

}  // namespace orvacam::face

using namespace orvacam::face;

extern "C" {

size_t orva_sensor_count(void) {
  return static_cast<size_t>(
      std::count_if(std::begin(orvacam::sensors), std::end(orvacam::sensors), orvacam::sendsFrames));
}

const char* orva_sensor_name(size_t index) {
  for (const orvacam::Sensor& sensor : orvacam::sensors)
    if (orvacam::sendsFrames(sensor) && index-- == 0) return sensor.name.data();
  return nullptr;
}

orva_status orva_gains(const char* sensor, int back_side_illuminated, const void* calibration, size_t length,
                       orva_gain* gains, size_t capacity, size_t* count) {
  return guarded([&] {
    const orvacam::Sensor& known = sensorOfName(sensor);
    const auto stored = calibration != nullptr ? readCalibration(calibration, length) : nullptr;
    const auto tables = gainTablesOf({known.device, back_side_illuminated != 0}, stored.get());
    giveGains(*tables, gains, capacity, required(count, "the count"));
  });
}
}
