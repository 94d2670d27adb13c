#include "sensors/Sensors.h"

#include <algorithm>

namespace orvacam {

namespace {

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != text.npos;
}

/// The same for a part in upper case, whatever the case of the text's ASCII letters, whatever the program's
/// locale.
bool containsInAnyCase(std::string_view text, std::string_view part) {
  const auto same = [](char c, char wanted) {
    return (c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c) == wanted;
  };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

}  // namespace

const Sensor& sensorOf(unsigned int device) {
  for (const Sensor& sensor : sensors)
    if (sensor.device == device) return sensor;
  return genericSensor;
}

const Sensor* sensorOfModel(std::string_view model) {
  const auto argent = containsInAnyCase(model, "ARGENT") ? Designation::With : Designation::Without;
  for (const Sensor& sensor : sensors) {
    const Designation& named = sensor.designation;
    if (named.part.empty() || (named.argent != Designation::Whatever && named.argent != argent)) continue;
    if (contains(model, named.part)) return &sensor;
  }
  return nullptr;
}

}  // namespace orvacam
