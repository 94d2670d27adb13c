#ifndef ORVACAM_SRC_IMAGEFILES_IMAGE_FORMATS_H
#define ORVACAM_SRC_IMAGEFILES_IMAGE_FORMATS_H

#include <orvacam/types/image_format.h>

#include "metadata/FitsCards.h"

class CFrameMetaData;

/// What each ORVA_IMAGE_FORMAT puts around the pixels of a merged plane.
namespace orvacam {

constexpr unsigned int tiffBlockSize = 656;  // header, directory and their data; the frame's header follows
constexpr unsigned int fitsHeaderSize = 2 * fits::blockSize;

struct Surroundings {
  unsigned int leading = 0, trailing = 0;  ///< bytes ahead of and behind the pixels
};

struct ImageFormat {
  ORVA_IMAGE_FORMAT format;
  /// Of `pixels` pixels with this metadata.
  Surroundings (*around)(const CFrameMetaData& meta, unsigned long pixels, unsigned int bitsPerPixel);
  /// Writes what leads to the pixels, and brings these into the format's byte order; swapped: the bytes of
  /// the pixels are swapped already. Negative on failure.
  int (*finish)(unsigned short* buffer, unsigned int leading, unsigned long pixels, CFrameMetaData& meta,
                bool swapped);
};

/// The row of an ORVA_IMAGE_FORMAT; pixels alone for any other value.
const ImageFormat& imageFormatOf(unsigned int format);

}  // namespace orvacam

#endif  // ORVACAM_SRC_IMAGEFILES_IMAGE_FORMATS_H
