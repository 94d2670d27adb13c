#ifndef ORVACAM_FILES_RASTER_H
#define ORVACAM_FILES_RASTER_H

#include <orvacam.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvacam::files {

/// Pixels to be written, row after row without gaps. They stay the caller's.
struct Raster {
  enum Sample { U8, U16, F32, F64, I64 };
  Size size{};
  Sample sample = U16;
  const void* data = nullptr;

  std::size_t pixels() const { return std::size_t{size.width} * size.height; }
  std::size_t sampleBytes() const { return sample == U8 ? 1 : sample == U16 ? 2 : sample == F32 ? 4 : 8; }
  std::size_t bytes() const { return pixels() * sampleBytes(); }
};

inline Raster rasterOf(const Image<std::uint16_t>& image) {
  return {image.size(), Raster::U16, image.data()};
}
inline Raster rasterOf(const Image<float>& image) {
  return {image.size(), Raster::F32, image.data()};
}

/// A region of an image, as an image of its own.
template <class Pixel>
Image<Pixel> cropped(const Image<Pixel>& image, const Region& region) {
  std::vector<Pixel> pixels;
  pixels.reserve(std::size_t{region.width} * region.height);
  for (std::uint32_t y = region.y; y < region.y + region.height; ++y) {
    const Pixel* const row = image.row(y) + region.x;
    pixels.insert(pixels.end(), row, row + region.width);
  }
  return Image<Pixel>::copy({region.width, region.height}, pixels.data());
}

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_RASTER_H
