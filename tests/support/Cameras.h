#ifndef ORVACAM_TESTS_SUPPORT_CAMERAS_H
#define ORVACAM_TESTS_SUPPORT_CAMERAS_H

#include <iterator>
#include <string_view>

/// The cameras, as tests expect the library to know them. Nothing here comes from the library's own table.
namespace cameras {

constexpr int asStated = -1;

struct Camera {
  const char* sensor;
  unsigned int device;
  const char* model;  ///< what the camera says; null for a sensor that no model names
  int pre, post;      ///< reference pixels of each row, whatever headers of versions 1 and 2 state
};

constexpr Camera all[] = {
    {"GSENSE400", 0x01000400, "VESTRA VS400", asStated, 0},
    {"GSENSE2020", 0x01002020, "VESTRA VS2020", asStated, 0},
    {"GSENSE4040", 0x01004040, "VESTRA VS4040", asStated, 0},
    {"GSENSE6060", 0x01006060, "VESTRA VS6060", 32, 24},
    {"CCD230-42", 0x03023042, "ARGENT 230-42", 50, 50},
    {"CCD230-84", 0x03023084, "ARGENT 230-84", 50, 50},
    {"CCD4320", 0x03004320, "ARGENT 4320", 50, 50},
    {"IMX183", 0x04000183, "VESTRA IMX183", asStated, asStated},
    {"LUMORA420", 0x05000420, nullptr, asStated, asStated},
    {"LUMORA533", 0x05000533, nullptr, asStated, asStated},
    {"LUMORA571", 0x05000571, nullptr, asStated, asStated},
    {"LSGEN", 0x850F0000, nullptr, asStated, asStated},
    {"GENERIC", 0, nullptr, asStated, asStated},
};

/// By the sensor's name or the model's text; the generic one for none.
inline const Camera& of(std::string_view name) {
  for (const Camera& camera : all)
    if (name == camera.sensor || (camera.model != nullptr && name == camera.model)) return camera;
  return *std::prev(std::end(all));
}

}  // namespace cameras

#endif  // ORVACAM_TESTS_SUPPORT_CAMERAS_H
