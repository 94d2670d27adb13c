#ifndef ORVACAM_SCIENCE_PAIR_MOMENTS_H
#define ORVACAM_SCIENCE_PAIR_MOMENTS_H

#include <cstdint>
#include <orvacam.hpp>

#include "science/Estimate.h"

namespace orvacam::science {

/// What two exposures alike tell of one plane.
struct PairMoments {
  double pixels = 0;              ///< of one frame
  double mean[2] = {};            ///< of each frame, ADU
  double variance = 0;            ///< temporal: half the variance of the difference, ADU squared
  double varianceError = 0;       ///< its standard error
  Estimate row{0, 0};             ///< of the variance, what all pixels of a row have in common
  Estimate column{0, 0};          ///< the same of columns
  double meanVariance = 0;        ///< what that noise leaves in the mean of one frame, ADU squared
  double atZero = 0, atFull = 0;  ///< parts of the pixels, 0 to 1

  double meanOfBoth() const { return (mean[0] + mean[1]) / 2; }
};

/// EMVA 1288: variance = sum (a - b)^2 / (2 n) - (mean a - mean b)^2 / 2 over the n pixels of a region, so
/// that neither a fixed pattern nor light that changed between both counts as noise. Sums are exact. The
/// error is that of pixels on their own, from the fourth moment of the difference, and of the noise of rows
/// and columns, of which a frame has few.
/// `fullScale` is the value from which on a pixel counts as at full scale.
PairMoments momentsOf(const Image<std::uint16_t>& a, const Image<std::uint16_t>& b, const Region& region,
                      std::uint32_t fullScale = 65536);

/// Half the covariance of two planes' differences between two frames: their common temporal noise.
double covarianceOf(const Image<std::uint16_t>& firstA, const Image<std::uint16_t>& firstB,
                    const Image<std::uint16_t>& secondA, const Image<std::uint16_t>& secondB,
                    const Region& region);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_PAIR_MOMENTS_H
