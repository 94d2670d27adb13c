#ifndef ORVACAM_SRC_SENSORS_SENSORS_H
#define ORVACAM_SRC_SENSORS_SENSORS_H

#include <orvacam/gain/CGainTables.h>
#include <orvacam/types/device_types.h>

#include <iterator>
#include <string_view>

/// What is known of each sensor by name. docs/adding-a-sensor.md says what else a new one needs.
namespace orvacam {

/// How the text of a camera's model names the sensor: it contains `part`, and contains "ARGENT", in whatever
/// case, or must not.
struct Designation {
  enum Argent : unsigned char { Whatever, With, Without };
  std::string_view part;  ///< empty for a sensor that no model names
  Argent argent = Whatever;
};

/// Reference pixels of each row that headers of versions 1 and 2 do not tell.
struct ReferencePixels {
  static constexpr int asStated = -1;
  int pre = asStated, post = asStated;
};

/// How CFrameMetaData::GetImageSizeBytes adds up a frame's bytes.
///
/// Together: bytes(image and reference pixels) / binning, then doubled. Apart: image and reference pixels are
/// rounded up to whole bytes each, (bytes(image) + bytes(reference)) doubled, then / binning.
struct SizeRule {
  enum Doubled : unsigned char { Never, InHdr, Always };
  Doubled doubled = Never;
  bool apart = false;
  unsigned char rowsPerReferenceRow = 1;  ///< of the reference pixels that are counted apart
};

/// The frame class that decodes the sensor; CFrameFactory has a row for each.
enum class FrameClass : unsigned char {
  GSense400,
  GSense2020,
  GSense4040,
  GSense6060,
  Argent23084,
  IMX183,
  LSGEN,
  Generic
};
constexpr unsigned int frameClassCount = static_cast<unsigned int>(FrameClass::Generic) + 1;

using MakeGainTables = IDeviceGainTables* (*)();  ///< throws std::bad_alloc

template <typename Tables>
IDeviceGainTables* makeGainTables() {
  return new Tables;
}

struct Sensor {
  unsigned int device;    ///< an ORVADEVICETYPE
  std::string_view name;  ///< as users write it; a literal
  Designation designation;
  FrameClass frame;
  MakeGainTables gains;
  ReferencePixels referencePixels = {};
  SizeRule size = {};
  MakeGainTables backSideGains = gains;  ///< of a back-side-illuminated one
};

constexpr ReferencePixels noneBehind = {ReferencePixels::asStated, 0};
constexpr ReferencePixels fiftyEach = {50, 50};

/// In the order in which models are tried and users are shown the names. The last row stands for every sensor
/// that has none.
// clang-format off
inline constexpr Sensor sensors[] = {
    {ORVA_DEVICE_GSENSE400, "GSENSE400", {"VS400"},
     FrameClass::GSense400, makeGainTables<CGainTablesGSENSE400>, noneBehind, {SizeRule::InHdr, true, 2}},
    {ORVA_DEVICE_GSENSE2020, "GSENSE2020", {"VS2020"},
     FrameClass::GSense2020, makeGainTables<CGainTablesGSENSE2020_FSI>, noneBehind, {SizeRule::Always, true},
     makeGainTables<CGainTablesGSENSE2020_BSI>},
    {ORVA_DEVICE_GSENSE4040, "GSENSE4040", {"VS4040"},
     FrameClass::GSense4040, makeGainTables<CGainTablesGSENSE4040>, noneBehind, {SizeRule::Always, true}},
    {ORVA_DEVICE_GSENSE6060, "GSENSE6060", {"VS6060"},
     FrameClass::GSense6060, makeGainTables<CGainTablesGSENSE6060>, {32, 24}, {SizeRule::InHdr}},
    {ORVA_DEVICE_IMX183, "IMX183", {"IMX183", Designation::Without},
     FrameClass::IMX183, makeGainTables<CGainTablesIMX183>},
    {ORVA_DEVICE_LSGEN, "LSGEN", {}, FrameClass::LSGEN, makeGainTables<CGainTablesLSGEN>},
    {ORVA_DEVICE_ARGENT_23042, "CCD230-42", {"230-42", Designation::With},
     FrameClass::Argent23084, makeGainTables<CGainTablesGeneric>, fiftyEach},
    {ORVA_DEVICE_ARGENT_23084, "CCD230-84", {"230-84", Designation::With},
     FrameClass::Argent23084, makeGainTables<CGainTablesGeneric>, fiftyEach},
    {ORVA_DEVICE_ARGENT_4320, "CCD4320", {"4320", Designation::With},
     FrameClass::Argent23084, makeGainTables<CGainTablesGeneric>, fiftyEach},
    {ORVA_DEVICE_LUMORA420, "LUMORA420", {}, FrameClass::Generic, makeGainTables<CGainTablesLumora420>},
    {ORVA_DEVICE_LUMORA533, "LUMORA533", {}, FrameClass::Generic, makeGainTables<CGainTablesLumora533>},
    {ORVA_DEVICE_LUMORA571, "LUMORA571", {}, FrameClass::Generic, makeGainTables<CGainTablesLumora571>},
    {ORVA_DEVICE_UNKNOWN, "GENERIC", {}, FrameClass::Generic, makeGainTables<CGainTablesGeneric>},
};
// clang-format on

inline constexpr const Sensor& genericSensor = *(std::end(sensors) - 1);
static_assert(genericSensor.device == ORVA_DEVICE_UNKNOWN);

/// Whether frames of the sensor are known, and not its gains alone.
constexpr bool sendsFrames(const Sensor& sensor) {
  return sensor.frame != FrameClass::Generic || &sensor == &genericSensor;
}

/// The sensor of a device type; the generic one for a type that has none.
const Sensor& sensorOf(unsigned int device);
/// The sensor that a model text names; null for none.
const Sensor* sensorOfModel(std::string_view model);

constexpr bool sensorsAreComplete() {
  for (const Sensor& sensor : sensors)
    if (sensor.name.empty() || static_cast<unsigned int>(sensor.frame) >= frameClassCount ||
        sensor.size.rowsPerReferenceRow == 0)
      return false;
  return true;
}
static_assert(sensorsAreComplete());

constexpr bool sensorsDiffer() {
  for (const Sensor& sensor : sensors)
    for (const Sensor* other = sensors; other != &sensor; ++other)
      if (other->device == sensor.device || other->name == sensor.name) return false;
  return true;
}
static_assert(sensorsDiffer(), "a device number and a name belong to one sensor");

}  // namespace orvacam

#endif  // ORVACAM_SRC_SENSORS_SENSORS_H
