#ifndef ORVACAM_SCIENCE_PHOTON_TRANSFER_H
#define ORVACAM_SCIENCE_PHOTON_TRANSFER_H

#include <optional>
#include <string>
#include <vector>

#include "science/Estimate.h"
#include "science/Nonuniformity.h"
#include "science/PairMoments.h"

// Photon transfer by EMVA 1288 (linear model, release 4.0 terms and methods). The light in photons is not
// known: quantum efficiency, responsivity and everything else that needs photons is not claimed. What the
// standard gives in electrons is.

namespace orvacam::science {

/// The darks of one exposure, in one plane.
struct DarkLevel {
  double exposure = 0;               ///< s
  std::vector<double> frameMeans;    ///< ADU, one a frame
  Estimate variance;                 ///< temporal, mean of the pairs, ADU squared; unknown for a single frame
  Estimate row{0, 0}, column{0, 0};  ///< what rows and columns have of it
  double pixels = 1;                 ///< of a frame
  double meanVariance = 0;           ///< what that noise leaves in the mean of one frame, ADU squared
  double atZero = 0;                 ///< the part of pixels that are 0

  double mean() const;
};

/// A pair of flats in one plane: a point of the photon-transfer curve.
struct CurvePoint {
  std::size_t pair = 0;  ///< which pair of flats it is
  double exposure = 0;   ///< s
  PairMoments moments;
  bool between = false;      ///< of a merged plane, near the change-over: pixels of both gains tell no noise
  bool above = false;        ///< of a merged plane, above the change-over: pixels come from the low gain
  double fromLow = unknown;  ///< of a merged plane: the part of the pixels that come from the low gain

  // What photonTransfer fills in:
  double signal = 0;           ///< mean less that of the darks, ADU
  Estimate excess;             ///< variance less that of the darks, ADU squared
  bool saturated = false;      ///< brighter than the saturation point
  bool fitted = false;         ///< the gain was fitted to it
  double deviation = unknown;  ///< from the straight line against exposure, percent
};

/// Why a number is not known, or how it is to be read: one sentence.
struct Note {
  std::string field, text;
};

/// What photon transfer says of one plane. NaN is "not known"; notes say why.
struct PlaneTransfer {
  std::vector<CurvePoint> curve;  ///< by mean
  std::vector<DarkLevel> darks;   ///< by exposure
  std::vector<Note> notes;

  Estimate gain;                    ///< electrons per ADU: 1 / K
  Estimate readNoise;               ///< temporal dark noise without dark current and rounding, electrons
  Estimate readNoiseAdu;            ///< the same in ADU
  double readNoiseLimit = unknown;  ///< electrons; the noise is below, when rounding hides it
  Estimate offset;                  ///< mean without light and dark current, ADU
  Estimate darkCurrentAdu;          ///< ADU per second
  Estimate darkCurrent;             ///< electrons per second
  Estimate saturationAdu;           ///< signal at the saturation point, ADU
  Estimate saturation;              ///< saturation capacity, electrons
  Estimate threshold;               ///< absolute sensitivity threshold, electrons
  Estimate dynamicRange;            ///< dB
  Estimate bestSnr;                 ///< dB, at saturation
  Estimate linearityError;          ///< percent

  // What addNonuniformity fills in:
  Estimate dsnu, dsnuRow, dsnuColumn, dsnuPixel;  ///< electrons
  Estimate prnu, prnuRow, prnuColumn, prnuPixel;  ///< percent
  Estimate prnuLocal;                             ///< percent, of the images less their surroundings
  double prnuSignal = unknown;                    ///< where the PRNU was measured, ADU
  double uniformityExposure = unknown;            ///< s, of those flats and darks
  std::uint64_t flatFrames = 0, darkFrames = 0;   ///< that it was measured from
};

/// Measures one plane. Every point's exposure has a dark level of two frames or more. `fullScale` is the
/// largest value that the plane can have.
PlaneTransfer photonTransfer(std::vector<CurvePoint> points, std::vector<DarkLevel> darks, double fullScale);

/// The point nearest to half of saturation (of the full scale where the flats do not saturate), where PRNU is
/// measured; none where no point is brighter than the darks.
std::optional<std::size_t> pointForUniformity(const PlaneTransfer& plane, double fullScale);

/// DSNU1288 from darks and PRNU1288 from flats of one exposure.
void addNonuniformity(PlaneTransfer& plane, const SpatialVariance& flat, const SpatialVariance& dark);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_PHOTON_TRANSFER_H
