#ifndef ORVACAM_SCIENCE_FRAME_STACK_H
#define ORVACAM_SCIENCE_FRAME_STACK_H

#include <cstdint>
#include <functional>
#include <orvacam.hpp>
#include <string>

#include "science/FrameBands.h"

namespace orvacam::science {

struct StackSettings {
  /// To the first frame's median of the image region, by an offset or a factor, before anything is rejected.
  enum class Normalization { none, additive, multiplicative };
  enum class Weights { none, exposure };

  Stack::Method method = Stack::Method::mean;
  double sigmaLow = 3, sigmaHigh = 3;
  Normalization normalization = Normalization::none;
  Weights weights = Weights::none;  ///< of a mean
  std::string plane = {};           ///< "": as stacks take it
  Unlike allowed = Unlike::nothing;
  std::uint64_t memory = std::uint64_t{1} << 30;
  std::uint64_t bytesPerPixel = 0;  ///< that the caller keeps
  bool byBands = false;             ///< whatever the method: where running sums, 8 bytes a pixel, do not fit
};

/// Pixels of the result, row after row: values, and how many frames' values were rejected at each.
struct StackedPixels {
  std::size_t first = 0, count = 0;
  const double* values = nullptr;
  const std::uint16_t* rejected = nullptr;
};

/// One frame of many. `seen` is called for each frame in the first pass, `put` for all pixels in order.
/// Frames are read once for mean, sum, minimum and maximum, else (or by bands) once for each band of rows
/// that the memory holds; the result is the same. Sums are doubles, in the order of the frames. Throws what
/// FrameBands throws; SeriesError for a multiplicative normalization by a median of 0 and for exposures that
/// are all 0. Gives the plane's name.
std::string stackFrames(const FrameSeries& series, const StackSettings& settings,
                        const std::function<void(const Frame&)>& seen,
                        const std::function<void(const StackedPixels&)>& put);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_FRAME_STACK_H
