#include "frames/FramePlanes.h"

#include <orvacam/merge/CCustomMergeAlgo.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "imagefiles/ImageFormats.h"

namespace orvacam {

namespace {

/// A plane that begins on a cache line, as planes do that are written past the caches; freed with free.
unsigned short* allocatePlane(std::size_t size) {
  constexpr std::size_t line = 64;
  const std::size_t lines = std::max(size + line - 1, line) / line;
  return static_cast<unsigned short*>(std::aligned_alloc(line, lines * line));
}

/// The three buffers share one capacity. Those that are given hold what it was when it came in: it is not
/// raised for a new buffer while a given one is smaller.
int claimMetaData(IFrame& frame, unsigned int size, unpacked_images_t& images) {
  unsigned char** const buffers[] = {&images.pLowMetaData, &images.pHighMetaData, &images.pMergedMetaData};
  for (unsigned char* const* buffer : buffers)
    if (*buffer != nullptr && images.uiMetaDataSize < size) return -1;
  for (unsigned char** buffer : buffers)
    if (frame.AllocateMetaDataPointer(size, buffer, &images.uiMetaDataSize) != 0) return -1;
  return 0;
}

}  // namespace

FramePlanes::FramePlanes(IFrame& frame) : m_frame(frame), m_parts(partsOf(frame)) {
  m_parts.planes = unpacked_images_t{};
  m_parts.leadingBytes = 0;
}

int FramePlanes::claimPlane(Which plane, unsigned long size, unsigned short*& image,
                            unsigned long& capacity) {
  if (image == nullptr) {
    // Memory that a short source will not fill stays untouched pages that are zero.
    if (size / 2 > m_parts.sourceLength)
      return m_frame.AllocateBufferPointer(static_cast<unsigned int>(size), &image, &capacity);
    image = allocatePlane(size);
    if (image == nullptr) return -1;
    capacity = size;
  }
  m_uncleared[plane] = {reinterpret_cast<unsigned char*>(image), capacity};
  return capacity < size ? -1 : 0;
}

int FramePlanes::claimMerged(unpacked_images_t& images, unsigned int pixels) {
  const CFrameMetaData& metaData = *m_parts.metaData;
  const auto format = static_cast<ORVA_IMAGE_FORMAT>(m_parts.imageFormat);
  Surroundings header;
  if (m_parts.algorithm != nullptr) {
    m_parts.algorithm->GetMergeHeaderSize(format, pixels, 16, header.leading, header.trailing);
    m_parts.algorithm->SetStartRowOffset(
        static_cast<unsigned int>(metaData.Value(ORVA_META_KEY_IMAGE_START_ROW).GetValueInt()));
  } else {
    header = imageFormatOf(format).around(metaData, pixels, 16);
  }
  m_parts.leadingBytes = header.leading;
  m_headerBytes = header.leading + header.trailing;
  const unsigned long size = 2UL * pixels + header.leading + header.trailing;
  if (size > std::numeric_limits<unsigned int>::max()) return -1;
  return claimPlane(Merged, size, images.pMergedImage, images.ulMergedImageSize);
}

int FramePlanes::claim(unpacked_images_t& images, std::uint64_t planePixels) {
  const auto pixels = static_cast<unsigned int>(planePixels);
  if (images.bMetaDataRequest && claimMetaData(m_frame, m_parts.metaData->GetBinarizeSize(), images) != 0)
    return -1;
  if (images.bLowImageRequest) {
    if (claimPlane(Low, 2UL * pixels, images.pLowImage, images.ulLowImageSize) != 0) return -1;
    images.ulLowImagePixels = pixels;
  }
  if (images.bHighImageRequest) {
    if (claimPlane(High, 2UL * pixels, images.pHighImage, images.ulHighImageSize) != 0) return -1;
    images.ulHighImagePixels = pixels;
  }
  if (images.bMergedImageRequest) {
    if (claimMerged(images, pixels) != 0) return -1;
    images.ulMergedImagePixels = pixels;
  }

  unpacked_images_t& own = m_parts.planes;
  own = images;
  own.ulLowImagePixels = own.ulHighImagePixels = own.ulMergedImagePixels = pixels;
  if (!own.bLowImageRequest) own.pLowImage = nullptr;
  if (!own.bHighImageRequest) own.pHighImage = nullptr;
  if (!own.bMergedImageRequest) own.pMergedImage = nullptr;
  return 0;
}

int FramePlanes::addWorking() {
  unpacked_images_t& own = m_parts.planes;
  const auto size = static_cast<unsigned int>(2 * own.ulLowImagePixels);
  const int result = m_frame.AllocateFrameBuffers(size, m_headerBytes);
  if (result != 0) return result;
  if (!own.bLowImageRequest) {
    own.pLowImage = reinterpret_cast<unsigned short*>(m_parts.lowWork);
    own.ulLowImageSize = m_parts.workSize;
  }
  if (!own.bHighImageRequest) {
    own.pHighImage = reinterpret_cast<unsigned short*>(m_parts.highWork);
    own.ulHighImageSize = m_parts.workSize;
  }
  if (!own.bMergedImageRequest) {
    own.pMergedImage = reinterpret_cast<unsigned short*>(m_parts.mergedWork);
    own.ulMergedImageSize = m_parts.workSizeWithHeader;
  }
  return 0;
}

bool FramePlanes::asksFor(Which plane) const {
  const unpacked_images_t& own = m_parts.planes;
  return plane == Low    ? own.bLowImageRequest
         : plane == High ? own.bHighImageRequest
                         : own.bMergedImageRequest;
}

unsigned char* FramePlanes::mergedPixels() const {
  auto* const merged = reinterpret_cast<unsigned char*>(m_parts.planes.pMergedImage);
  return merged != nullptr ? merged + m_parts.leadingBytes : nullptr;
}

void FramePlanes::clearRest() {
  for (const Which plane : {Low, High, Merged}) {
    const Bytes all = m_uncleared[plane];
    const std::size_t kept = m_kept[plane];
    if (all.count > kept) std::memset(all.first + kept, 0, all.count - kept);
    m_uncleared[plane] = {};
  }
}

}  // namespace orvacam
