#ifndef ORVACAM_BENCH_HDR_FRAME_H
#define ORVACAM_BENCH_HDR_FRAME_H

#include <orvacam.h>

#include <cstddef>
#include <vector>

namespace orvacam::bench {

using Plane = std::vector<unsigned short>;

/// A square frame of a star field from a sensor that sends two planes of 12-bit pixels, with correction terms
/// for every pixel of it.
struct HdrFrame {
  explicit HdrFrame(unsigned int side);

  std::size_t pixels() const { return std::size_t{side} * side; }

  unsigned int side;
  std::vector<unsigned char> bytes;  ///< header and packed pixels
  std::size_t headerBytes;
  Plane low, high;
  std::vector<short> addLow, addHigh;
  Plane mulLow, mulHigh;
  double gainRatio;  ///< of its two gains; what the low-gain plane is multiplied with when no terms are given
};

/// The frame of this size; one at a time is kept.
const HdrFrame& hdrFrame(unsigned int side);

/// What a user would write: pixel by pixel, in doubles.
struct PlainMerge {
  explicit PlainMerge(std::size_t pixels) : low(pixels), high(pixels), merged(pixels) {}
  void run(const HdrFrame& frame, bool termsPerPixel);
  Plane low, high, merged;
};

}  // namespace orvacam::bench

#endif  // ORVACAM_BENCH_HDR_FRAME_H
