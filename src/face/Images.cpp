#include "face/Images.h"

#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include "face/Failure.h"

namespace orvacam::face {

PixelMemory PixelPool::take(std::size_t bytes) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_count > 0 && m_bytes == bytes) return std::move(m_idle[--m_count]);
    while (m_count > 0)
      m_idle[--m_count].reset();
    m_bytes = bytes;
  }
  return allocateBytes(bytes);
}

void PixelPool::giveBack(PixelMemory memory, std::size_t bytes) noexcept {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_closed && bytes == m_bytes && m_count < most) m_idle[m_count++] = std::move(memory);
}

void PixelPool::close() noexcept {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_closed = true;
  while (m_count > 0)
    m_idle[--m_count].reset();
}

std::size_t bytesOfPixel(int type) {
  static constexpr std::size_t bytes[] = {sizeof(std::uint16_t), sizeof(std::uint64_t), sizeof(float),
                                          sizeof(double)};  // by orva_pixel_type
  if (type < 0 || static_cast<std::size_t>(type) >= std::size(bytes))
    fail(ORVA_BAD_ARGUMENT, std::to_string(type) + " is no type of pixels");
  return bytes[type];
}

}  // namespace orvacam::face

using namespace orvacam::face;

orva_image::orva_image(int pixelType, std::uint32_t w, std::uint32_t h, Held<PixelPool> ofPool)
    : type(pixelType), width(w), height(h), pool(std::move(ofPool)) {
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(bytesOfPixel(type), pixelCount(), &bytes)) throw std::bad_alloc();
  if (bytes == 0) return;
  memory = pool ? pool->take(bytes) : allocateBytes(bytes);
  pixels = memory.get();
}

orva_image::~orva_image() {
  if (memory != nullptr && pool) pool->giveBack(std::move(memory), bytesOfPixel(type) * pixelCount());
}

extern "C" {

orva_status orva_image_copy(int type, uint32_t width, uint32_t height, const void* pixels, orva_image** out) {
  return handOut(out, [&] {
    const std::size_t bytes = bytesOfPixel(type);
    if (width != 0 && height != 0)
      required(static_cast<const unsigned char*>(pixels), "the address of the pixels");
    auto image = std::make_unique<orva_image>(type, width, height, Held<PixelPool>());
    if (!image->empty()) std::memcpy(image->pixels, pixels, bytes * image->pixelCount());
    return image.release();
  });
}

orva_status orva_image_get_info(const orva_image* image, orva_image_info* info) {
  return guarded([&] {
    const orva_image& i = required(image, "the image");
    give(info,
         orva_image_info{sizeof(orva_image_info), i.type, i.width, i.height, i.pixels, i.header ? 1 : 0,
                         i.statistics != nullptr ? 1 : 0},
         "the info");
  });
}

orva_status orva_image_get_header(const orva_image* image, const orva_header** header) {
  return guarded([&] {
    required(header, "the header") = nullptr;
    if (!required(image, "the image").header) fail(ORVA_BAD_ARGUMENT, "the image has no header");
    *header = image->header.get();
  });
}

orva_status orva_image_get_statistics(const orva_image* image, orva_statistics* statistics) {
  return guarded([&] {
    if (required(image, "the image").statistics == nullptr)
      fail(ORVA_BAD_ARGUMENT, "no statistics of the image were asked for");
    give(statistics, image->statistics->record(), "the statistics");
  });
}

orva_image* orva_image_share(const orva_image* image) {
  return shareHandle(image);
}

void orva_image_free(orva_image* image) {
  freeHandle(image);
}
}
