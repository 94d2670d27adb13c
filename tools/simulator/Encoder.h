#ifndef ORVACAM_SIMULATOR_ENCODER_H
#define ORVACAM_SIMULATOR_ENCODER_H

#include <cstdint>
#include <functional>
#include <vector>

#include "Header.h"

namespace orvacam::simulator {

using Plane = std::vector<std::uint16_t>;

/// How a sensor's pixels lie behind the header.
enum class Packing {
  Plain16,   ///< 16-bit little-endian, one plane
  Packed12,  ///< two pixels in three bytes
  Packed13,  ///< eight pixels in 13 bytes, most significant bit first; its reader yields the truth of bytes,
             ///< not these bits, so that only the length of such a stream means something to it
  Ccd        ///< 16-bit big-endian, read through one or four corner amplifiers
};

/// Rows of a stream that are alike. For each plane, in turn, one row is sent: `before`, `pixels`, `after`;
/// then, once for all planes, `shared`.
struct Section {
  enum Kind { PreRows, Image, PostRows } kind;
  unsigned int rows;  ///< of each plane
  unsigned int before, pixels, after;
  unsigned int shared;
};

/// What a sensor sends for a header: derived from the model and the header's flags.
struct Layout {
  Packing packing;
  unsigned int planes;  ///< 1 or 2
  std::vector<Section> sections;

  /// Pixels of each plane as a right decoder writes them, the extra pixel of every odd run included.
  std::size_t pixelsPerPlane() const;
  /// Bytes that follow the header.
  std::size_t bytes() const;
};

Layout layoutOf(const HeaderFields& fields);

/// Pixels or rows left of `size` by binning: every begun group is one.
unsigned int binned(unsigned int size, unsigned int factor);

/// One pixel of a plane in the order of the stream.
struct PixelPlace {
  unsigned int plane;
  bool image;         ///< false for reference pixels, reference rows and the extra pixel of an odd run
  unsigned int x, y;  ///< in its run of pixels and its section of rows; for a CCD, in the whole frame
};

/// The planes that a right decoder yields, each pixel's value asked from the caller; shared pixels are asked
/// once.
std::vector<Plane> makePlanes(const Layout& layout,
                              const std::function<std::uint16_t(const PixelPlace&)>& value);

/// The pixel data of these planes, without the header.
std::vector<unsigned char> encodePixels(const HeaderFields& fields, const Layout& layout,
                                        const std::vector<Plane>& planes);

/// A raw frame: the header of a version, then the pixel data.
std::vector<unsigned char> encodeFrame(const HeaderFields& fields, unsigned int version,
                                       const std::vector<Plane>& planes);

}  // namespace orvacam::simulator

#endif  // ORVACAM_SIMULATOR_ENCODER_H
