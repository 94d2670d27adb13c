#ifndef ORVACAM_SCIENCE_CALIBRATION_H
#define ORVACAM_SCIENCE_CALIBRATION_H

#include "science/CalibrationFrames.h"
#include "science/Estimate.h"

// Bias frames, DSNU and PRNU reference files from raw frames. Every pixel is averaged over all frames without
// its outliers (RobustRows.h), in bands of rows that fit the memory.
//
//     DSNU  high = P - mean dark, low = P / ratio - mean dark; P is the pedestal of the merged image
//     PRNU  high = c, low = ratio c; c = 1 / response with mean 1 over the image region
//     bias  the rounded mean
//
// Pixels that are not like the others are listed. In bias frames and darks, a pixel is hot that lies more
// than 6 robust deviations (1.4826 x MAD) and 1 count above the median. In flats, one is dead whose response
// is below 0.5 or above 2; its correction is 1.

namespace orvacam::science {

/// As bits of a mask.
enum OddKind : std::uint8_t { Hot = 1, Dead = 2, Blinking = 4 };

struct OddPixel {
  unsigned plane;
  std::uint32_t x, y;  ///< in the plane
  OddKind kind;
  double value;  ///< hot: counts above the median; dead: response; blinking: deviation over the frames
};

/// What a calibration says of one plane. Counts are ADU; of flats, the fixed pattern is in percent.
struct CalibratedPlane {
  std::string name;
  double gain = unknown;  ///< electrons per ADU, by the header
  double fullScale = 0;
  Estimate level;                  ///< mean of the image region: the offset; of flats, the light above it
  Estimate noise;                  ///< temporal, of one frame
  Estimate before;                 ///< fixed pattern of a frame as it comes, listed pixels aside
  Estimate columns, rows, pixels;  ///< its parts
  double after = unknown;          ///< fixed pattern of a frame that is corrected with the file
  double drift = 0;                ///< largest less smallest mean of a frame
  std::uint64_t hot = 0, dead = 0, blinking = 0;
  std::uint64_t rejected = 0;      ///< values that were left out
  std::uint64_t clipped = 0;       ///< terms that the file's format does not hold
  std::vector<std::uint8_t> mask;  ///< OddKind bits of each pixel of the plane
};

struct Calibration {
  CalibrationKind kind = CalibrationKind::bias;
  std::size_t frames = 0;
  std::optional<Header> header;  ///< of the first frame
  Size size{};                   ///< of a plane
  std::vector<CalibratedPlane> planes;
  std::vector<OddPixel> oddPixels;              ///< plane by plane, in the order of rows
  double tableRatio = unknown;                  ///< by the header's gains; NaN where nothing is merged
  double usedRatio = unknown;                   ///< of a DSNU or PRNU file
  Estimate measuredRatio;                       ///< of flats
  unsigned pedestal = 0, smallestPedestal = 0;  ///< of darks
  std::vector<std::string> warnings;
  std::string file;  ///< the reference file
};

/// Throws Refused, orvacam::Error, and what `read` throws.
Calibration calibrate(const CalibrationSource& source);

/// The last step of it, when rows were combined elsewhere: all rows of the planes, in their order.
Calibration finishCalibration(const CalibrationSource& source, const CalibrationSurvey& survey,
                              const std::vector<CombinedRows>& bands);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_CALIBRATION_H
