#ifndef ORVACAM_SCIENCE_CHANGE_OVER_H
#define ORVACAM_SCIENCE_CHANGE_OVER_H

#include <string>
#include <vector>

#include "science/Estimate.h"
#include "science/PhotonTransfer.h"

namespace orvacam::science {

/// Means of both gains and of what the merge made of them, over the same pixels of the same frames, in ADU.
/// "Corrected" is what the merge chooses from: with its references and the gain ratio.
struct MergedPoint {
  double low = 0, high = 0;
  double correctedLow = 0, correctedHigh = 0;
  double lift = 0;       ///< merged less corrected high
  double liftError = 0;  ///< as the two frames of the pair differ
  double fromLow = 0;    ///< the part of the pixels that come from the low gain
  /// Of the means of low and high: temporal variances and their covariance, ADU squared. Both gains read the
  /// same electrons, so that light cancels in what they are compared by.
  double lowVariance = 0, highVariance = 0, covariance = 0;
  bool below = false;  ///< the corrected high gain is well below the threshold in nearly all pixels
};

/// Whether the merged response is straight where it changes from high to low gain.
struct ChangeOver {
  Estimate ratio;   ///< of the gains' responses to light, measured
  Estimate offset;  ///< dark level of the corrected low gain less that of the high gain, ADU
  Estimate slope;   ///< response of the corrected low gain to light over that of the high gain; 1 is right
  Estimate step;    ///< at the change-over: corrected low gain less high gain, ADU
  Estimate lift;    ///< there, what the difference threshold adds to the high gain's side, ADU
  double lifted =
      unknown;  ///< part of the pixels that it takes from the low gain, the most of all levels below
  double noise = unknown;        ///< temporal noise of a pixel of the high gain at the change-over, ADU
  double stepInNoise = unknown;  ///< step / noise
  std::vector<Note> notes;

  /// Neither the step nor the step less the lift shows: each is below a tenth of a pixel's noise or within
  /// three standard errors of nothing.
  bool straight() const;
};

/// Low gain against high gain, fitted by a line over the points below, raw for the ratio and corrected for
/// the rest. Where the corrected high gain is at the threshold, the line less the threshold is the step.
ChangeOver changeOver(const std::vector<MergedPoint>& points, const MergedPoint& dark, double threshold,
                      const PlaneTransfer& high);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_CHANGE_OVER_H
