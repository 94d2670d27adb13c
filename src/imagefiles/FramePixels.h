#ifndef ORVACAM_SRC_IMAGEFILES_FRAME_PIXELS_H
#define ORVACAM_SRC_IMAGEFILES_FRAME_PIXELS_H

#include <orvacam/metadata/CFrameMetaData.h>

#include <cstdint>

namespace orvacam {

/// The most bytes of pixels that a file may hold: what a TIFF can count. The largest sensor has 75 MB, so
/// only a broken header asks for more.
constexpr std::uint64_t largestPlane = 0xFFFFFFFF;

/// The pixels of the binned frame that the metadata describes; false when it has none or too many for a file.
inline bool framePixels(const CFrameMetaData& meta, unsigned int& pixels) {
  unsigned int width = 0;
  unsigned int height = 0;
  if (meta.GetFrameDimensionsBinned(width, height) != 0) return false;
  const std::uint64_t count = std::uint64_t{width} * height;
  if (count == 0 || count > largestPlane / sizeof(unsigned short)) return false;
  pixels = static_cast<unsigned int>(count);
  return true;
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_IMAGEFILES_FRAME_PIXELS_H
