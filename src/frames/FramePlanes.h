#ifndef ORVACAM_SRC_FRAMES_FRAME_PLANES_H
#define ORVACAM_SRC_FRAMES_FRAME_PLANES_H

#include <cstddef>
#include <cstdint>

#include "frames/FrameParts.h"

namespace orvacam {

/// The planes of a frame while it is decoded: the caller's, and the frame's working planes for those that the
/// caller did not ask for. What is not written of a caller's plane is cleared when this goes, if not before:
/// a plane is never handed over with anything else in it.
class FramePlanes {
 public:
  enum Which : unsigned int { Low, High, Merged };

  /// The frame has no planes until they are claimed.
  explicit FramePlanes(IFrame& frame);
  FramePlanes(const FramePlanes&) = delete;
  FramePlanes& operator=(const FramePlanes&) = delete;
  ~FramePlanes() { clearRest(); }

  /// Takes the planes and header buffers that the caller asks for, made where there are none, for planes of
  /// so many pixels. The frame's record has null for the others. 0; -1 when a buffer is too small, or without
  /// memory.
  int claim(unpacked_images_t& images, std::uint64_t pixels);
  /// Puts working planes into the record where the caller has no plane. 0, or -1 without memory; the frame
  /// then has no metadata, either.
  int addWorking();

  unsigned short* low() const { return m_parts.planes.pLowImage; }
  unsigned short* high() const { return m_parts.planes.pHighImage; }
  unsigned long pixels() const { return m_parts.planes.ulLowImagePixels; }
  bool asksFor(Which plane) const;
  /// Where the merged pixels begin; null without a merged plane.
  unsigned char* mergedPixels() const;

  /// Says that these bytes, from the plane's first one on, are written.
  void keep(Which plane, std::size_t bytes) { m_kept[plane] = bytes; }
  /// Clears the rest of the caller's planes.
  void clearRest();

 private:
  struct Bytes {
    unsigned char* first = nullptr;
    std::size_t count = 0;
  };

  int claimPlane(Which plane, unsigned long size, unsigned short*& image, unsigned long& capacity);
  int claimMerged(unpacked_images_t& images, unsigned int pixels);

  IFrame& m_frame;
  FrameParts m_parts;
  unsigned int m_headerBytes = 0;  ///< around the pixels of the merged plane
  Bytes m_uncleared[3];
  std::size_t m_kept[3] = {};
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_FRAME_PLANES_H
