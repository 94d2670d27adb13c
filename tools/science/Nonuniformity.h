#ifndef ORVACAM_SCIENCE_NONUNIFORMITY_H
#define ORVACAM_SCIENCE_NONUNIFORMITY_H

#include <cmath>
#include <cstdint>
#include <orvacam.hpp>
#include <vector>

#include "science/Estimate.h"

namespace orvacam::science {

/// The spatial variance of an image, and what rows, columns and single pixels have of it; ADU squared.
struct SpatialVariance {
  std::uint64_t frames = 0;
  double mean = 0;  ///< ADU
  Estimate total, row, column, pixel;
  Estimate local;  ///< of the image less its surroundings
};

/// Temporal variance of single frames: the whole, and what rows and columns have of it.
struct TemporalVariance {
  Estimate total, row{0, 0}, column{0, 0};

  /// What is left of single pixels; the errors of rows and columns are part of the whole's.
  Estimate pixel() const {
    const double square = total.error * total.error - row.error * row.error - column.error * column.error;
    return {total.value - row.value - column.value, std::sqrt(std::fmax(square, 0))};
  }
};

/// The mean of many frames of one plane: one 32-bit sum a pixel, whatever the number of frames.
class MeanImage {
 public:
  /// Of this region of the planes.
  explicit MeanImage(const Region& region);

  /// Up to 65536 frames. Throws std::length_error above.
  void add(const Image<std::uint16_t>& plane);
  std::uint64_t frames() const { return m_frames; }

  /// EMVA 1288, release 4.0: with row means r, column means c and what remains of each pixel,
  ///   p = sum of squares that remain / ((rows - 1) (columns - 1))
  ///   pixel  = p - temporal of pixels / frames
  ///   row    = variance of r - p / columns - temporal of rows / frames
  ///   column = variance of c - p / rows - temporal of columns / frames
  ///   total  = pixel + row + column
  /// which is the standard's split in its unbiased form; the standard knows no rows that are noisy as a
  /// whole. `temporal` is of one frame: a mean keeps 1 / frames of it. A component may come out below 0 by
  /// its error. Unknown for less than two rows or columns.
  SpatialVariance variance(const TemporalVariance& temporal) const;

  /// The same of the image less its surroundings, so that uneven light does not count: the low-pass is the
  /// standard's, boxes of 7 and 11 and a binomial filter of 3 pixels in both directions, and what it takes of
  /// white noise is given back. Pixels whose surroundings are cut off are left out: unknown below 20 x 20
  /// pixels.
  Estimate localVariance(const TemporalVariance& temporal) const;

 private:
  std::vector<double> smoothedRow(std::size_t y) const;

  Region m_region;
  std::uint64_t m_frames = 0;
  std::vector<std::uint32_t> m_sums;
};

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_NONUNIFORMITY_H
