// The camera's calibration block, and everything that is derived from it.

#include <orvacam.h>

#include <array>
#include <memory>

#include "fuzz_support.h"

namespace {

using fuzz::Bytes;

constexpr std::array<unsigned int, 13> devices = {
    ORVA_DEVICE_GSENSE400,    ORVA_DEVICE_GSENSE2020, ORVA_DEVICE_GSENSE4040, ORVA_DEVICE_GSENSE6060,
    ORVA_DEVICE_ARGENT_23042, ORVA_DEVICE_IMX183,     ORVA_DEVICE_LUMORA420,  ORVA_DEVICE_LUMORA533,
    ORVA_DEVICE_LUMORA571,    ORVA_DEVICE_LSGEN,      ORVA_DEVICE_UNKNOWN,    0xFFFFFFFF,
    ORVA_DEVICE_GSENSE400 + 1};

/// What two readings of one block must agree on.
void requireSame(const CCameraNVMergeSettings& a, const CCameraNVMergeSettings& b) {
  FUZZ_REQUIRE(a.GetNumLineOffsets() == b.GetNumLineOffsets());
  FUZZ_REQUIRE(a.GetExtraLineOffsets().size() == b.GetExtraLineOffsets().size());
  FUZZ_REQUIRE(a.GetGainRatio() == b.GetGainRatio() && a.GetDefaultGainRatio() == b.GetDefaultGainRatio());
  for (unsigned int i = 0; i < a.GetNumLineOffsets(); ++i) {
    const merge_line_offsets_t &x = a.GetLineOffsets()[i], &y = b.GetLineOffsets()[i];
    FUZZ_REQUIRE(x.uiLowGainSetting == y.uiLowGainSetting && x.uiHighGainSetting == y.uiHighGainSetting);
    FUZZ_REQUIRE(x.dGainRatio == y.dGainRatio && x.uiMappingThreshold == y.uiMappingThreshold);
    for (int point = 0; point < 3; ++point)
      FUZZ_REQUIRE(x.iLineOffset[point] == y.iLineOffset[point] &&
                   x.dTemperature[point] == y.dTemperature[point]);
  }
  for (unsigned int gain = 0; gain < 70; ++gain)
    for (const bool high : {false, true}) {
      double x = -1, y = -1;
      FUZZ_REQUIRE(a.GetNVElectronsPerCount(gain, high, x) == b.GetNVElectronsPerCount(gain, high, y));
      FUZZ_REQUIRE(x == y);
    }
}

/// The body alone, as each version, of exactly its size.
void parseBodies(const Bytes& body) {
  CCameraNVMergeSettings settings;
  const unsigned int length = fuzz::length(body);
  for (const int status :
       {settings.ParseSettings1(body.data(), length), settings.ParseSettings2(body.data(), length),
        settings.ParseSettings3(body.data(), length), settings.ParseSettings4(body.data(), length)})
    FUZZ_REQUIRE(status == 0 || status == -1);
}

void useTables(const gain_type_info_t& camera, CCameraNVMergeSettings& calibration) {
  const std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(camera, &calibration));
  FUZZ_REQUIRE(tables != nullptr);
  for (const auto channel : {ORVA_GAIN_TABLE_LOW_CHANNEL, ORVA_GAIN_TABLE_HIGH_CHANNEL}) {
    const unsigned int entries = tables->GetNumEntries(channel);
    std::vector<gain_value_t> copy(entries);
    FUZZ_REQUIRE(tables->GetTable(channel, copy.data(), entries, true) == 0);
    if (entries > 0) FUZZ_REQUIRE(tables->GetTable(channel, copy.data(), entries - 1, true) == -1);
    for (unsigned int i = 1; i < entries; ++i)
      FUZZ_REQUIRE(copy[i - 1].uiValue <= copy[i].uiValue);
    for (unsigned int index = 0; index < entries + 2; ++index) {
      tables->GetDNETableValue(channel, tables->GetDNETableDeviceIndex(channel, index));
      FUZZ_REQUIRE(entries == 0 || tables->GetTableIndexFromDeviceIndex(channel, index) < entries);
    }
  }
}

void useSettings(const gain_type_info_t& camera, CCameraNVMergeSettings& calibration, unsigned int choice) {
  CMergeSettings settings;
  FUZZ_REQUIRE(settings.Initialize(camera, &calibration) == 0);
  double ratio = 0;
  int offset = 0;
  unsigned int threshold = 0;
  for (const unsigned int gain : {0u, 1u, 3u, 57u, 4000000000u})
    for (const double temperature : {-273.0, 12.5, 1e300})
      FUZZ_REQUIRE(settings.CalculateMergeParams(gain, choice % 5, temperature, ratio, offset, threshold) ==
                   0);
  settings.GetGainRatio(choice % 5, choice / 5 % 5);
  settings.GetADUValue(choice);
  const unsigned int bits = choice % 18;
  if (bits > 7 && bits < 15) return;  // as many entries as take their time
  const CMergeMappingArray* const map = settings.GenerateMergeMappingArrays(bits, 1, choice % 3, -3.0);
  FUZZ_REQUIRE((map != nullptr) == (settings.HasGainOffsetPairs() && bits < 15));
  if (map != nullptr) FUZZ_REQUIRE(map->GetWidth() == 1u << bits && map->GetHeight() == 1u << bits);
}

}  // namespace

FUZZ_TARGET(data, size) {
  const Bytes bytes = fuzz::copyOf(data, size);
  CCameraNVMergeSettings calibration;
  FUZZ_REQUIRE(calibration.Initialize(bytes.data(), fuzz::length(bytes)) == 0);
  // An object that has read other blocks reads this one no differently.
  static CCameraNVMergeSettings used;
  FUZZ_REQUIRE(used.Initialize(bytes.data(), fuzz::length(bytes)) == 0);
  requireSame(calibration, used);

  parseBodies(size > 8 ? fuzz::copyOf(data + 8, size - 8) : Bytes());
  const unsigned int choice = size > 0 ? data[size - 1] : 0u;
  // One camera at a time: some have hundreds of thousands of gain pairs.
  const gain_type_info_t camera{devices[choice % devices.size()], (choice & 1) != 0};
  useTables(camera, calibration);
  useSettings(camera, calibration, choice);
  return 0;
}
