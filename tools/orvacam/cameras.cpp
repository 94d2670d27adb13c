// orvacam cameras: what is supported, from the tables that the program works with.

#include <cstdio>
#include <iostream>
#include <orvacam.hpp>

#include "Commands.h"
#include "Program.h"
#include "files/Json.h"
#include "simulator/Scene.h"

namespace tool {

namespace sim = orvacam::simulator;
namespace files = orvacam::files;

namespace {

struct CamerasOptions {
  bool json = false;
};

/// A sensor with what is known of it; without a camera where none can be simulated.
struct Row {
  std::string sensor;
  const sim::Camera* camera = nullptr;
  Names modes;
  std::size_t gainSettings = 0;
};

std::vector<Row> rows() {
  std::vector<Row> all;
  for (const std::string& sensor : orvacam::sensors()) {
    Row row;
    row.sensor = sensor;
    row.camera = sim::findCamera(sensor);
    for (const std::string& mode : modeNames())
      if (row.camera != nullptr && sim::headerFor(*row.camera, mode)) row.modes.push_back(mode);
    try {
      row.gainSettings = orvacam::gains(sensor, false).size();
    } catch (const orvacam::Error&) {
      row.gainSettings = 0;  // there is no table
    }
    all.push_back(std::move(row));
  }
  return all;
}

std::string jsonRow(const Row& row) {
  files::JsonList modes;
  for (const std::string& mode : row.modes)
    modes.raw(files::jsonText(mode));
  files::JsonObject object;
  object.text("sensor", row.sensor).truth("simulated", row.camera != nullptr);
  object.raw("model", row.camera != nullptr ? files::jsonText(row.camera->model) : "null");
  object.raw("bits", row.camera != nullptr ? std::to_string(row.camera->bits) : "null");
  return object.raw("modes", modes.str())
      .whole("gain_settings", static_cast<std::int64_t>(row.gainSettings))
      .str();
}

int cameras(const CamerasOptions& options) {
  if (options.json) {
    files::JsonList list;
    for (const Row& row : rows())
      list.raw(jsonRow(row));
    std::cout << files::JsonObject().text("schema", "orvacam.cameras/1").raw("cameras", list.str()).str()
              << '\n';
    return Good;
  }
  char line[160];
  std::snprintf(line, sizeof line, "%-12s %-18s %5s %6s  %s\n", "sensor", "model", "bits", "gains", "modes");
  std::cout << line;
  for (const Row& row : rows()) {
    const bool known = row.camera != nullptr;
    std::snprintf(line, sizeof line, "%-12s %-18s %5s %6zu  ", row.sensor.c_str(),
                  known ? row.camera->model : "-", known ? std::to_string(row.camera->bits).c_str() : "-",
                  row.gainSettings);
    std::cout << line << (row.modes.empty() ? "-" : listOf(row.modes)) << '\n';
  }
  return Good;
}

void describe(Command& c, CamerasOptions& o) {
  c.add("--json", o.json, "One object with all of them");
}

}  // namespace

Command camerasCommand() {
  return commandOf<CamerasOptions>("cameras",
                                   "List the sensors that are read, and the cameras that can be simulated.",
                                   {"orvacam cameras"}, describe, cameras);
}

}  // namespace tool
