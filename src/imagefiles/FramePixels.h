#ifndef ORVACAM_SRC_IMAGEFILES_FRAME_PIXELS_H
#define ORVACAM_SRC_IMAGEFILES_FRAME_PIXELS_H

#include <cstdint>

#include "metadata/FrameGeometry.h"

namespace orvacam {

/// The most bytes of pixels that a file may hold: what a TIFF can count. The largest sensor has 75 MB, so
/// only a broken header asks for more.
constexpr std::uint64_t largestPlane = 0xFFFFFFFF;

/// The pixels of a plane of the frame that the metadata describe; false when they contradict themselves or
/// the pixels are too many for a file.
inline bool framePixels(const CFrameMetaData& meta, unsigned int& pixels) {
  const std::uint64_t count = FrameGeometry(meta).planePixels();
  if (count == 0 || count > largestPlane / sizeof(unsigned short)) return false;
  pixels = static_cast<unsigned int>(count);
  return true;
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_IMAGEFILES_FRAME_PIXELS_H
