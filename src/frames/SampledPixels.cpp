#include "frames/SampledPixels.h"

namespace orvacam {

namespace {

/// How one of the eight pixels of a 13-byte group is formed.
struct CmsPixel {
  unsigned char step;        ///< bytes to the next pixel
  unsigned char firstBits;   ///< taken from the first byte
  unsigned char secondBits;  ///< taken from the second byte
  unsigned char secondPlace;
  unsigned char firstPlace;
  unsigned char secondShift;
  unsigned char thirdShift;
};

constexpr CmsPixel cmsPixels[] = {
    {1, 8, 5, 0, 5, 3, 8}, {2, 3, 8, 2, 10, 0, 6}, {1, 6, 7, 0, 7, 1, 8},  {2, 1, 8, 4, 12, 0, 4},
    {2, 4, 8, 1, 9, 0, 7}, {1, 7, 6, 0, 6, 2, 8},  {2, 2, 8, 3, 11, 0, 5}, {2, 5, 8, 0, 8, 0, 8},
};

constexpr unsigned int groupBytes() {
  unsigned int bytes = 0;
  for (const CmsPixel& pixel : cmsPixels)
    bytes += pixel.step;
  return bytes;
}

/// Intended: the value is made of truth values, not of the bits themselves.
unsigned short cmsValue(const unsigned char* s, const CmsPixel& pixel) {
  const unsigned int first = s[0] != 0 && pixel.firstBits != 0;
  const unsigned int second = (s[1] >> pixel.secondShift) != 0 && pixel.secondBits != 0;
  unsigned int value = first << pixel.firstPlace | second << pixel.secondPlace;
  if (pixel.secondPlace != 0 && (s[2] >> pixel.thirdShift) != 0) value |= 1;
  return static_cast<unsigned short>(value);
}

/// The bytes that a pixel looks at.
constexpr unsigned int cmsBytes(const CmsPixel& pixel) {
  return pixel.secondPlace != 0 ? 3 : 2;
}

/// Bytes that are looked at for the first pixels of a group.
constexpr unsigned int begunGroupBytes(unsigned int pixels) {
  unsigned int first = 0;
  unsigned int bytes = 0;
  for (unsigned int i = 0; i < pixels; ++i) {
    bytes = first + cmsBytes(cmsPixels[i]);
    first += cmsPixels[i].step;
  }
  return bytes;
}
static_assert(begunGroupBytes(8) == groupBytes() && groupBytes() == 13, "no group looks into the next one");

}  // namespace

std::uint64_t sampledBytes(std::uint64_t pixels) {
  return groupBytes() * (pixels / 8) + begunGroupBytes(static_cast<unsigned int>(pixels % 8));
}

std::size_t decodeSampled(SourceBytes source, unsigned short* target, std::size_t pixels) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const CmsPixel& pixel = cmsPixels[i % 8];
    if (source.length < cmsBytes(pixel)) return i;
    target[i] = cmsValue(source.bytes, pixel);
    source = source.from(pixel.step);
  }
  return pixels;
}

}  // namespace orvacam
