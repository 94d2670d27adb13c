#include "imagefiles/ImageFormats.h"

#include <orvacam/imagefiles/CFitsInterface.h>
#include <orvacam/imagefiles/CTiffMaker.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <iterator>

#include "support/KeyedTable.h"

namespace orvacam {

namespace {

Surroundings nothingAround(const CFrameMetaData& /*meta*/, unsigned long /*pixels*/, unsigned int /*bits*/) {
  return {};
}
int nothingToFinish(unsigned short* /*buffer*/, unsigned int /*leading*/, unsigned long /*pixels*/,
                    CFrameMetaData& /*meta*/, bool /*swapped*/) {
  return 0;
}

Surroundings aroundTiff(const CFrameMetaData& meta, unsigned long /*pixels*/, unsigned int /*bits*/) {
  return {tiffBlockSize + meta.GetBinarizeSize(), 0};
}
int finishTiff(unsigned short* buffer, unsigned int leading, unsigned long /*pixels*/, CFrameMetaData& meta,
               bool swapped) {
  return CTiffMaker().WriteHeader(reinterpret_cast<unsigned char*>(buffer), leading, meta, swapped);
}

Surroundings aroundFits(const CFrameMetaData& /*meta*/, unsigned long pixels, unsigned int bits) {
  Surroundings bytes;
  CFitsInterface::ExtraBytes(pixels, bits, bytes.leading, bytes.trailing);
  return bytes;
}
int finishFits(unsigned short* buffer, unsigned int leading, unsigned long pixels, CFrameMetaData& meta,
               bool swapped) {
  return CFitsInterface().CreateImageBuffer(buffer, leading, static_cast<unsigned int>(pixels), meta,
                                            swapped);
}

constexpr ImageFormat formats[] = {
    {ORVA_IMAGE_FORMAT_RAW, nothingAround, nothingToFinish},
    {ORVA_IMAGE_FORMAT_TIFF, aroundTiff, finishTiff},
    {ORVA_IMAGE_FORMAT_FITS, aroundFits, finishFits},
};
static_assert(standsAtItsKeys(formats, &ImageFormat::format));

}  // namespace

const ImageFormat& imageFormatOf(unsigned int format) {
  return formats[format < std::size(formats) ? format : ORVA_IMAGE_FORMAT_RAW];
}

}  // namespace orvacam
