#ifndef ORVACAM_FUZZ_CALLER_BUFFERS_H
#define ORVACAM_FUZZ_CALLER_BUFFERS_H

#include <orvacam.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "fuzz_support.h"

namespace fuzz {

/// What a frame's planes and headers take.
struct NeededSizes {
  unsigned long plane = 0, merged = 0;
  unsigned int header = 0;
};

/// A caller's record with every mixture of requests and of buffers that are left null, too small, exact, or
/// larger. Given buffers are just as large as they are said to be, so that AddressSanitizer sees one byte too
/// many.
class CallerBuffers {
 public:
  CallerBuffers(const NeededSizes& needed, Input& input) : m_needed(needed) {
    const unsigned int requests = input.byte();
    images.bMetaDataRequest = (requests & 1) != 0;
    images.bLowImageRequest = (requests & 2) != 0;
    images.bHighImageRequest = (requests & 4) != 0;
    images.bMergedImageRequest = (requests & 8) != 0;
    images.uiMetaDataSize = static_cast<unsigned int>(capacity(needed.header, input));
    m_headerCapacity = images.uiMetaDataSize;
    for (unsigned char** header : headers())
      if (m_headerCapacity > 0 && input.flag()) *header = give<unsigned char>(m_headerCapacity);
    const unsigned long sizes[] = {needed.plane, needed.plane, needed.merged};
    for (std::size_t i = 0; i < planes().size(); ++i) {
      const Plane plane = planes()[i];
      if (input.byte() % 3 == 0) continue;
      const unsigned long bytes = capacity(sizes[i], input);
      if (bytes == 0) continue;
      *plane.pixels = give<unsigned short>(bytes);
      *plane.capacity = bytes;
      *plane.count = input.flag() ? bytes / 2 : 0;  // the library's to write: what stands there is nothing
    }
    m_before = images;
  }
  CallerBuffers(const CallerBuffers&) = delete;
  CallerBuffers& operator=(const CallerBuffers&) = delete;
  ~CallerBuffers() {
    for (unsigned char** header : headers())
      std::free(*header);
    for (const Plane& plane : planes())
      std::free(*plane.pixels);
  }

  /// Whether every buffer that is asked for and given is large enough; headers also where they are written
  /// without being asked for.
  bool suffice(bool headersUnasked = false) const {
    const bool headerGiven = m_before.pLowMetaData != nullptr || m_before.pHighMetaData != nullptr ||
                             m_before.pMergedMetaData != nullptr;
    if ((m_before.bMetaDataRequest || headersUnasked) && headerGiven && m_headerCapacity < m_needed.header)
      return false;
    const auto fits = [](bool requested, const unsigned short* plane, unsigned long given,
                         unsigned long needed) { return !requested || plane == nullptr || given >= needed; };
    return fits(m_before.bLowImageRequest, m_before.pLowImage, m_before.ulLowImageSize, m_needed.plane) &&
           fits(m_before.bHighImageRequest, m_before.pHighImage, m_before.ulHighImageSize, m_needed.plane) &&
           fits(m_before.bMergedImageRequest, m_before.pMergedImage, m_before.ulMergedImageSize,
                m_needed.merged);
  }

  /// What holds after every call: given buffers are still the caller's, and no capacity says more than any of
  /// them has.
  void check() {
    const bool headerGiven = m_before.pLowMetaData != nullptr || m_before.pHighMetaData != nullptr ||
                             m_before.pMergedMetaData != nullptr;
    if (headerGiven) FUZZ_REQUIRE(images.uiMetaDataSize <= m_headerCapacity);
    const auto kept = [](const void* before, const void* after) {
      return before == nullptr || before == after;
    };
    FUZZ_REQUIRE(kept(m_before.pLowMetaData, images.pLowMetaData) &&
                 kept(m_before.pHighMetaData, images.pHighMetaData) &&
                 kept(m_before.pMergedMetaData, images.pMergedMetaData) &&
                 kept(m_before.pLowImage, images.pLowImage) && kept(m_before.pHighImage, images.pHighImage) &&
                 kept(m_before.pMergedImage, images.pMergedImage));
    // All that is said to be there can be read.
    for (unsigned char** header : headers())
      for (unsigned int i = 0; *header != nullptr && i < images.uiMetaDataSize; ++i)
        m_sum = m_sum + (*header)[i];
    for (const Plane& plane : planes())
      for (unsigned long i = 0; *plane.pixels != nullptr && i < *plane.capacity / 2; ++i)
        m_sum = m_sum + (*plane.pixels)[i];
  }

  unpacked_images_t images{};

 private:
  struct Plane {
    unsigned short** pixels;
    unsigned long* capacity;
    unsigned long* count;
  };
  std::array<Plane, 3> planes() {
    return {{{&images.pLowImage, &images.ulLowImageSize, &images.ulLowImagePixels},
             {&images.pHighImage, &images.ulHighImageSize, &images.ulHighImagePixels},
             {&images.pMergedImage, &images.ulMergedImageSize, &images.ulMergedImagePixels}}};
  }
  std::array<unsigned char**, 3> headers() {
    return {&images.pLowMetaData, &images.pHighMetaData, &images.pMergedMetaData};
  }

  /// Too small by a little or by much, exact, or more than is needed.
  static unsigned long capacity(unsigned long needed, Input& input) {
    const unsigned long sizes[] = {needed,     needed,     needed - std::min(needed, 1UL), needed / 2,
                                   needed + 1, 2 * needed, std::min(needed, 384UL),        1};
    return std::min(sizes[input.byte() % std::size(sizes)], 1UL << 20);
  }
  template <typename Value>
  static Value* give(unsigned long bytes) {
    auto* const memory = static_cast<Value*>(std::malloc(bytes));
    FUZZ_REQUIRE(memory != nullptr);
    std::memset(memory, 0x5A, bytes);
    return memory;
  }

  NeededSizes m_needed;
  unsigned int m_headerCapacity = 0;
  unpacked_images_t m_before{};
  volatile unsigned int m_sum = 0;  ///< of all that was read
};

}  // namespace fuzz

#endif  // ORVACAM_FUZZ_CALLER_BUFFERS_H
