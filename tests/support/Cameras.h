#ifndef ORVACAM_TESTS_SUPPORT_CAMERAS_H
#define ORVACAM_TESTS_SUPPORT_CAMERAS_H

#include <iterator>
#include <ostream>
#include <string_view>
#include <vector>

/// The cameras, as tests expect the library to know them. Nothing here comes from the library's own table.
namespace cameras {

constexpr int asStated = -1;

struct Camera {
  const char* sensor;
  unsigned int device;
  const char* model;  ///< what the camera says; null for a sensor that no model names
  int pre, post;      ///< reference pixels of each row, whatever headers of versions 1 and 2 state
  double ratio = 1;   ///< of the high to the low gain at settings 1 and 2, from the sensor's data sheet
};

constexpr Camera all[] = {
    {"GSENSE400", 0x01000400, "VESTRA VS400", asStated, 0, 17.3611 / 1.7492},
    {"GSENSE2020", 0x01002020, "VESTRA VS2020", asStated, 0, 18.6916 / 0.8194},
    {"GSENSE4040", 0x01004040, "VESTRA VS4040", asStated, 0, 18.6916 / 0.8194},
    {"GSENSE6060", 0x01006060, "VESTRA VS6060", 32, 24, 12.5 / 2.494},
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
constexpr const Camera& of(std::string_view name) {
  for (const Camera& camera : all)
    if (name == camera.sensor || (camera.model != nullptr && name == camera.model)) return camera;
  return *std::prev(std::end(all));
}

/// How a camera sends its pixels.
enum class Stream { Packed, Wide, Sampled, Ccd, Plain };

/// A way in which a camera is read out.
struct Mode {
  const char* name;
  const char* model;
  Stream stream;
  unsigned int bits;
  bool hdr;
  unsigned int quadrants = 0;  ///< the amplifiers that read a CCD

  constexpr const Camera& camera() const { return of(model); }
  /// A source that is cut leaves these pixels uncopied without an error; the other readers say so.
  constexpr bool cutIsSilent() const { return stream == Stream::Wide; }
};
inline std::ostream& operator<<(std::ostream& out, const Mode& mode) {
  return out << mode.name;
}

constexpr Mode modes[] = {
    {"GSense400Single", "VESTRA VS400", Stream::Packed, 12, false},
    {"GSense400Hdr", "VESTRA VS400", Stream::Packed, 12, true},
    {"GSense2020Single", "VESTRA VS2020", Stream::Packed, 12, false},
    {"GSense2020Sixteen", "VESTRA VS2020", Stream::Wide, 16, false},
    {"GSense2020Hdr", "VESTRA VS2020", Stream::Packed, 12, true},
    {"GSense2020Sampled", "VESTRA VS2020", Stream::Sampled, 12, false},
    {"GSense4040Single", "VESTRA VS4040", Stream::Packed, 12, false},
    {"GSense4040Sixteen", "VESTRA VS4040", Stream::Wide, 16, false},
    {"GSense4040Hdr", "VESTRA VS4040", Stream::Packed, 12, true},
    {"GSense6060Twelve", "VESTRA VS6060", Stream::Packed, 12, false},
    {"GSense6060Hdr", "VESTRA VS6060", Stream::Packed, 12, true},
    {"GSense6060Sixteen", "VESTRA VS6060", Stream::Wide, 16, false},
    {"FourAmplifiers", "ARGENT 230-42", Stream::Ccd, 16, false, 0x3C},
    {"UpperLeftAmplifier", "ARGENT 230-84", Stream::Ccd, 16, false, 0x20},
    {"UpperRightAmplifier", "ARGENT 4320", Stream::Ccd, 16, false, 0x10},
    {"LowerLeftAmplifier", "ARGENT 230-42", Stream::Ccd, 16, false, 0x08},
    {"LowerRightAmplifier", "ARGENT 230-84", Stream::Ccd, 16, false, 0x04},
    {"Imx183", "VESTRA IMX183", Stream::Plain, 16, false},
    {"Generic", "VESTRA PLAIN", Stream::Plain, 16, false},
    {"GenericHdr", "VESTRA PLAIN", Stream::Plain, 16, true},
};

/// The modes that serve a test; see also modeNamed.
template <typename Predicate>
std::vector<Mode> modesThat(Predicate serves) {
  std::vector<Mode> chosen;
  for (const Mode& mode : modes)
    if (serves(mode)) chosen.push_back(mode);
  return chosen;
}
constexpr const Mode& modeNamed(std::string_view name) {
  for (const Mode& mode : modes)
    if (name == mode.name) return mode;
  throw "no such mode";
}

}  // namespace cameras

#endif  // ORVACAM_TESTS_SUPPORT_CAMERAS_H
