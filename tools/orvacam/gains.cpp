// orvacam gains: a sensor's gain tables.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>

#include "common.h"

namespace tool {

namespace {

struct Options {
  std::string sensor;
  std::string nv;
  bool bsi = false;
};

constexpr struct {
  const char* name;
  unsigned int device;
} sensors[] = {
    {"GSENSE400", ORVA_DEVICE_GSENSE400},   {"GSENSE2020", ORVA_DEVICE_GSENSE2020},
    {"GSENSE4040", ORVA_DEVICE_GSENSE4040}, {"GSENSE6060", ORVA_DEVICE_GSENSE6060},
    {"IMX183", ORVA_DEVICE_IMX183},         {"LUMORA420", ORVA_DEVICE_LUMORA420},
    {"LUMORA533", ORVA_DEVICE_LUMORA533},   {"LUMORA571", ORVA_DEVICE_LUMORA571},
    {"LSGEN", ORVA_DEVICE_LSGEN},           {"GENERIC", ORVA_DEVICE_UNKNOWN},
};

std::string sensorNames() {
  std::string names;
  for (const auto& sensor : sensors)
    names += (names.empty() ? "" : ", ") + std::string(sensor.name);
  return names;
}

unsigned int deviceOf(const std::string& name) {
  for (const auto& sensor : sensors)
    if (CLI::detail::to_lower(sensor.name) == CLI::detail::to_lower(name)) return sensor.device;
  throw Failure("is no sensor; there are " + sensorNames());
}

/// One line of the table.
struct Setting {
  unsigned int device;
  double lowGain, highGain;
  double lowElectrons, highElectrons;
  double ratio;
};

/// The sensor's settings as the gain tables have them with a camera's stored settings, or without (null).
std::vector<Setting> settingsOf(const gain_type_info_t& camera, CCameraNVMergeSettings* stored) {
  const std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(camera, stored));
  std::vector<gain_value_t> low(tables->GetNumEntries(ORVA_GAIN_TABLE_LOW_CHANNEL));
  tables->GetTable(ORVA_GAIN_TABLE_LOW_CHANNEL, low.data(), static_cast<unsigned int>(low.size()), false);
  std::vector<Setting> settings;
  for (const gain_value_t& gain : low) {
    const unsigned int device = gain.uiDeviceIndex;
    const unsigned int high = tables->GetTableIndexFromDeviceIndex(ORVA_GAIN_TABLE_HIGH_CHANNEL, device);
    settings.push_back({device, gain.uiValue / 1000.0,
                        tables->GetDeviceValueFromTableIndex(ORVA_GAIN_TABLE_HIGH_CHANNEL, high) / 1000.0,
                        tables->GetDNETableValue(ORVA_GAIN_TABLE_LOW_CHANNEL, device),
                        tables->GetDNETableValue(ORVA_GAIN_TABLE_HIGH_CHANNEL, device),
                        tables->GetDNETableGainRatio(device, device)});
  }
  return settings;
}

/// The block as a camera keeps it. Throws Failure: the library takes a foreign block for none at all.
void loadStored(const std::string& path, CCameraNVMergeSettings& stored) {
  const Bytes block = readFile(path);
  const std::size_t length = block.size() < 8 ? 0 : block[4] * 256u + block[5];
  if (block.size() < 9 || std::memcmp(block.data(), "Meta", 4) != 0)
    throw Failure("is not a camera's calibration block: it does not start with \"Meta\"");
  if (length < 9 || length > 1024)
    throw Failure("is not a camera's calibration block: its length " + std::to_string(length) +
                  " at byte 4 is not 9 to 1024");
  const unsigned int version = block[6] * 256u + block[7];
  if (version < 1 || version > 4)
    throw Failure("is not a camera's calibration block: its version " + std::to_string(version) +
                  " at byte 6 is none of 1 to 4");
  if (block.size() < length) throw Failure(truncated("settings", length, block.size()));
  stored.Initialize(block.data(), static_cast<unsigned int>(block.size()));
}

void show(const gain_type_info_t& camera, CCameraNVMergeSettings* stored) {
  // The tables of a sensor are shared by all objects: the plain ones are read out before a camera's own.
  const std::vector<Setting> plain = settingsOf(camera, nullptr);
  const std::vector<Setting> own = settingsOf(camera, stored);
  std::printf("%-6s %10s %10s %14s %14s %14s%s\n", "device", "low gain", "high gain", "low e-/count",
              "high e-/count", "low / high", stored != nullptr ? "       built in" : "");
  for (std::size_t i = 0; i < own.size(); ++i) {
    const Setting& s = own[i];
    std::printf("%-6u %10.3f %10.3f %14.4f %14.4f %14.4f", s.device, s.lowGain, s.highGain, s.lowElectrons,
                s.highElectrons, s.ratio);
    if (stored != nullptr) std::printf(" %14.4f", plain[i].ratio);
    std::printf("\n");
  }
  CMergeSettings settings;
  settings.Initialize(camera, stored);
  if (!settings.HasGainOffsetPairs()) return;
  const unsigned int first = own.front().device;
  const merge_line_offsets_t& pair = settings.GetGainOffsetPair(first, first);
  std::printf("\nmerge line of gains %u, %u: ratio %.4f, offsets %d, %d, %d at %.1f, %.1f, %.1f degrees\n",
              first, first, pair.dGainRatio, pair.iLineOffset[0], pair.iLineOffset[1], pair.iLineOffset[2],
              pair.dTemperature[0], pair.dTemperature[1], pair.dTemperature[2]);
}

}  // namespace

void addGains(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("gains", "Show a sensor's gain tables.");
  command->add_option("MODEL", options->sensor, "The sensor: " + sensorNames())->required();
  command->add_option("--nv", options->nv, "A camera's stored calibration block");
  command->add_flag("--bsi", options->bsi, "The back-side-illuminated variant");
  command->callback([options, &exitCode] {
    CCameraNVMergeSettings stored;
    const bool hasStored = !options->nv.empty();
    if (hasStored) exitCode = report(options->nv, [&] { loadStored(options->nv, stored); });
    if (exitCode == 0)
      exitCode = report(options->sensor, [&] {
        show({deviceOf(options->sensor), options->bsi}, hasStored ? &stored : nullptr);
      });
  });
}

}  // namespace tool
