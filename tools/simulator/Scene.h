#ifndef ORVACAM_SIMULATOR_SCENE_H
#define ORVACAM_SIMULATOR_SCENE_H

#include <optional>
#include <string>
#include <vector>

#include "Encoder.h"
#include "Header.h"

namespace orvacam::simulator {

/// What one count means at a gain setting.
struct GainSetting {
  unsigned int index;    ///< as the header carries it
  double electronsLow;   ///< electrons per count of the low-gain channel
  double electronsHigh;  ///< of the high-gain channel
};

/// A camera that can be simulated.
struct Camera {
  const char* name;      ///< as users write it
  const char* model;     ///< as the camera writes it
  double electronsLow;   ///< electrons per count of the low-gain channel, at settings that are not listed
  double electronsHigh;  ///< of the high-gain channel; 0 for a sensor with one gain
  unsigned int bits;     ///< of the data, in the usual mode
  bool ccd;
  std::vector<GainSetting> gains;

  double lowAt(unsigned int index) const;
  double highAt(unsigned int index) const;
};

const std::vector<Camera>& cameras();
/// By name, whatever the case; null for an unknown one.
const Camera* findCamera(const std::string& name);

/// A night sky: background, stars of different brightness, photon and read noise, fixed-pattern noise. The
/// same options give the same frame on every machine.
struct Sky {
  unsigned long seed = 1;
  unsigned int stars = 60;
  double background = 400;     ///< electrons per pixel
  double brightestStar = 4e6;  ///< electrons in all; the brightest saturate the high-gain plane
  double faintestStar = 2e3;
  double starRadius = 1.7;    ///< pixels
  double readNoise = 4;       ///< electrons
  double columnPattern = 3;   ///< high-gain counts, the largest offset of a column
  double rowPattern = 1;      ///< the same of a row
  double gainPattern = 0.01;  ///< the largest relative deviation of a pixel's response
};

/// The header that a camera writes in one of its read-out modes: "single", "hdr", "16bit" or "cms"; none when
/// the camera does not have the mode.
std::optional<HeaderFields> headerFor(const Camera& camera, const std::string& mode);

/// The electrons of every image pixel of the sky, before noise.
std::vector<double> lightOfSky(const HeaderFields& fields, const Sky& sky);

/// The planes of a frame of the sky. Low-gain and high-gain planes show the same electrons, divided by the
/// channels' electrons per count, so that a right merge is seamless without calibration; image and reference
/// pixels carry the fixed pattern. Frames of other numbers have other noise.
std::vector<Plane> exposeSky(const Camera& camera, const HeaderFields& fields, const Sky& sky);

/// Reference files that undo the fixed pattern of exposeSky: a header, then two planes of fixed-point terms,
/// each pixel's where the decoded planes have it.
std::vector<unsigned char> dsnuFile(const Camera& camera, const HeaderFields& fields, const Sky& sky);
std::vector<unsigned char> prnuFile(const Camera& camera, const HeaderFields& fields, const Sky& sky);

}  // namespace orvacam::simulator

#endif  // ORVACAM_SIMULATOR_SCENE_H
