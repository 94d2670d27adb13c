#ifndef ORVACAM_BENCH_HDR_FRAME_H
#define ORVACAM_BENCH_HDR_FRAME_H

#include <orvacam.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvacam::bench {

using Plane = std::vector<unsigned short>;

/// A caller's plane: it begins on a cache line, or 16 bytes behind one, where malloc puts large blocks.
class PlaneMemory {
 public:
  void resize(std::size_t pixels, bool behindALine = false) {
    constexpr std::size_t line = 64;
    m_pixels = pixels;
    m_memory.resize(pixels + line);
    const auto address = reinterpret_cast<std::uintptr_t>(m_memory.data());
    m_start = (line - address % line) % line / sizeof(unsigned short) + (behindALine ? 8 : 0);
  }
  unsigned short* data() { return m_memory.data() + m_start; }
  bool holds(const Plane& plane) const {
    return std::equal(plane.begin(), plane.end(), m_memory.begin() + static_cast<std::ptrdiff_t>(m_start),
                      m_memory.begin() + static_cast<std::ptrdiff_t>(m_start + m_pixels));
  }

 private:
  std::vector<unsigned short> m_memory;
  std::size_t m_start = 0;
  std::size_t m_pixels = 0;
};

enum class Scene { Stars, RandomPixels };

/// A square frame, of a star field unless said otherwise, from a sensor that sends two planes of 12-bit
/// pixels, with correction terms for every pixel of it.
struct HdrFrame {
  explicit HdrFrame(unsigned int side, Scene scene = Scene::Stars);

  std::size_t pixels() const { return std::size_t{side} * side; }

  unsigned int side;
  Scene scene;
  std::vector<unsigned char> bytes;  ///< header and packed pixels
  std::size_t headerBytes;
  Plane low, high;
  std::vector<short> addLow, addHigh;
  Plane mulLow, mulHigh;
  double gainRatio;  ///< of its two gains; what the low-gain plane is multiplied with when no terms are given
};

/// The frame of this size and scene; one at a time is kept.
const HdrFrame& hdrFrame(unsigned int side, Scene scene = Scene::Stars);

/// What a user would write: pixel by pixel, in doubles.
struct PlainMerge {
  explicit PlainMerge(std::size_t pixels) : low(pixels), high(pixels), merged(pixels) {}
  void run(const HdrFrame& frame, bool termsPerPixel);
  Plane low, high, merged;
};

}  // namespace orvacam::bench

#endif  // ORVACAM_BENCH_HDR_FRAME_H
