#ifndef ORVACAM_SCIENCE_CHANGE_OVER_H
#define ORVACAM_SCIENCE_CHANGE_OVER_H

#include <string>
#include <vector>

#include "science/Estimate.h"
#include "science/PhotonTransfer.h"

namespace orvacam::science {

/// Means of both gains and of what the merge made of them, over the same pixels of the same frames.
struct MergedPoint {
  double low = 0, high = 0, merged = 0;  ///< ADU
  /// Of the means of a frame: temporal variances of low and high, and their covariance, ADU squared. Both
  /// gains read the same electrons, so that light cancels in what they are compared by.
  double lowVariance = 0, highVariance = 0, covariance = 0;
  bool below = false;  ///< nearly all pixels come from the high gain, well below the change-over
  bool above = false;  ///< nearly all pixels come from the low gain, which is not saturated
};

struct MergeSettings {
  double ratio = 0;      ///< as the merge uses it; 0 where a PRNU reference replaces it
  bool dsnu = false;     ///< whether a DSNU reference is set
  double threshold = 0;  ///< high-gain ADU from which on the low gain is used
};

/// Whether the merged response is straight where it changes from high to low gain.
struct ChangeOver {
  Estimate ratio;   ///< of the gains' responses, measured
  Estimate offset;  ///< dark level that the low gain would give less that of the high gain, merged ADU
  Estimate slope;  ///< the low gain's response to light over the high gain's, in the merged plane; 1 is right
  Estimate step;   ///< at the change-over: from the low gain less from the high gain, merged ADU
  double noise = unknown;        ///< temporal noise of a pixel at the change-over, ADU
  double stepInNoise = unknown;  ///< step / noise
  std::vector<Note> notes;

  /// The step is below a tenth of a pixel's noise, or within three standard errors of nothing.
  bool straight() const;
};

/// Low gain against high gain, fitted by a line over the points below; merged against high gain below, merged
/// against low gain above. At the high-gain value that reaches the threshold the three give the step. Where
/// no flat is above and no reference is set, the low gain's side is ratio x low. `dark` holds the means of
/// darks.
ChangeOver changeOver(const std::vector<MergedPoint>& points, const MergedPoint& dark,
                      const MergeSettings& settings, const PlaneTransfer& high);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_CHANGE_OVER_H
