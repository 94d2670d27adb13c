// orvacam gains: a sensor's gain tables.

#include <CLI/CLI.hpp>
#include <cstdio>

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
  throw Failure("unknown sensor (" + sensorNames() + ")");
}

void show(const Options& options) {
  const gain_type_info_t camera{deviceOf(options.sensor), options.bsi};
  CCameraNVMergeSettings stored;
  Bytes block;
  if (!options.nv.empty()) {
    block = readFile(options.nv);
    stored.Initialize(block.data(), static_cast<unsigned int>(block.size()));
  }
  CCameraNVMergeSettings* const nv = options.nv.empty() ? nullptr : &stored;
  const std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(camera, nv));
  CMergeSettings settings;
  settings.Initialize(camera, nv);

  std::printf("%-7s %-9s %12s %12s %22s %22s\n", "index", "device", "low gain", "high gain", "low e-/count",
              "high e-/count");
  const unsigned int count = tables->GetNumEntries(ORVA_GAIN_TABLE_LOW_CHANNEL);
  std::vector<gain_value_t> low(count);
  tables->GetTable(ORVA_GAIN_TABLE_LOW_CHANNEL, low.data(), count, false);
  for (unsigned int i = 0; i < count; ++i) {
    const unsigned int device = low[i].uiDeviceIndex;
    std::printf("%-7u %-9u %12.3f %12.3f %22.4f %22.4f\n", i, device, low[i].uiValue / 1000.0,
                tables->GetDeviceValueFromTableIndex(ORVA_GAIN_TABLE_HIGH_CHANNEL, i) / 1000.0,
                tables->GetDNETableValue(ORVA_GAIN_TABLE_LOW_CHANNEL, device),
                tables->GetDNETableValue(ORVA_GAIN_TABLE_HIGH_CHANNEL, device));
  }
  std::printf("\nratio at gains 0, 0: %.4f\n", tables->GetDNETableGainRatio(0, 0));
  if (settings.HasGainOffsetPairs()) {
    const merge_line_offsets_t& pair = settings.GetGainOffsetPair(0, 0);
    std::printf("merge line of gains 0, 0: ratio %.4f, offsets %d, %d, %d at %.1f, %.1f, %.1f degrees\n",
                pair.dGainRatio, pair.iLineOffset[0], pair.iLineOffset[1], pair.iLineOffset[2],
                pair.dTemperature[0], pair.dTemperature[1], pair.dTemperature[2]);
  }
}

}  // namespace

void addGains(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("gains", "Show a sensor's gain tables.");
  command->add_option("SENSOR", options->sensor, sensorNames())->required();
  command->add_option("--nv", options->nv, "A camera's stored calibration block");
  command->add_flag("--bsi", options->bsi, "The back-side-illuminated variant");
  command->callback([options, &exitCode] {
    exitCode = forEachFile({options->sensor}, [&](const std::string&) { show(*options); });
    std::fflush(stdout);
  });
}

}  // namespace tool
