#ifndef ORVACAM_SRC_FACE_IMAGES_H
#define ORVACAM_SRC_FACE_IMAGES_H

#include <orvacam_c.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "face/Counted.h"
#include "face/FileBytes.h"
#include "face/HeaderValues.h"
#include "face/PlaneStatistics.h"

namespace orvacam::face {

using PixelMemory = std::unique_ptr<unsigned char, FreeMemory>;

/// Memory of pixels that images let go, for the images after them: fresh pages cost several times what is
/// done with them. Images outlive the decoder whose pool this is, and are freed in any thread.
class PixelPool : public Counted {
 public:
  /// Memory of so many bytes, whatever it holds. May throw std::bad_alloc.
  PixelMemory take(std::size_t bytes);
  /// Memory that is not needed any more. Takes no memory itself.
  void giveBack(PixelMemory memory, std::size_t bytes) noexcept;
  /// Nothing is kept from now on.
  void close() noexcept;

 private:
  /// Two frames of three planes, and as much again for readers that lag behind.
  static constexpr std::size_t most = 12;

  std::mutex m_mutex;
  std::array<PixelMemory, most> m_idle;
  std::size_t m_count = 0;
  std::size_t m_bytes = 0;  ///< of each
  bool m_closed = false;
};

std::size_t bytesOfPixel(int type);

}  // namespace orvacam::face

struct orva_image : orvacam::face::Counted {
  /// Pixels of its own, from a pool (null: from malloc), whatever they hold. Throws std::bad_alloc.
  orva_image(int type, std::uint32_t width, std::uint32_t height,
             orvacam::face::Held<orvacam::face::PixelPool> pool);
  /// Pixels of the caller's.
  orva_image(std::uint32_t w, std::uint32_t h, std::uint16_t* ofCaller)
      : type(ORVA_PIXEL_U16), width(w), height(h), pixels(ofCaller) {}
  ~orva_image();

  std::size_t pixelCount() const { return std::size_t{width} * height; }
  bool empty() const { return pixels == nullptr; }
  template <typename Pixel>
  Pixel* as() const {
    return static_cast<Pixel*>(pixels);
  }

  const int type;
  const std::uint32_t width, height;
  void* pixels = nullptr;
  orvacam::face::PixelMemory memory;
  orvacam::face::Held<orvacam::face::PixelPool> pool;
  orvacam::face::Held<const orva_header> header;
  std::unique_ptr<const orvacam::face::PlaneStatistics> statistics;
};

#endif  // ORVACAM_SRC_FACE_IMAGES_H
