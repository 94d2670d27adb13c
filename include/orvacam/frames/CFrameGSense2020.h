#ifndef ORVACAM_FRAMES_CFRAMEGSENSE2020_H
#define ORVACAM_FRAMES_CFRAMEGSENSE2020_H

#include <orvacam/frames/IFrame.h>
#include <orvacam/types/export.h>

/// Frames of the GSENSE2020: a single image of 16-bit or packed 12-bit pixels, an HDR pair whose low-gain and
/// high-gain rows alternate, or a single image of correlated multiple sampling, eight pixels in 13 bytes.
///
/// No bias frame is subtracted from a single image.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameGSense2020 : public IFrame {
 public:
  int Merge(unpacked_images_t* pImages) override;
  int Unpack(unpacked_images_t* pImages) override;

 protected:
  /// Decodes the HDR stream. 0; -1, with what is whole and fits decoded, without metadata, when the source
  /// ends early or a plane is too small.
  int DoUnpack(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
               unsigned long ulHighSize);
  /// A single image: 16-bit pixels are copied (not at all when fewer than ulPixels are there), others are
  /// unpacked.
  int DoUnpackSingle(unsigned short* pOut, unsigned long ulPixels);
  /// The same with 13-bit decoding of other pixels.
  int DoUnpackCMS(unsigned short* pOut, unsigned long ulPixels);
  /// Decodes ulPixels pixels of 13 bits, whose values are made of truth values. 0; -1, with what is whole
  /// decoded, when the source ends early.
  int DoUnpackSingle13to16(unsigned short* pOut, unsigned long ulPixels);
};

#endif  // ORVACAM_FRAMES_CFRAMEGSENSE2020_H
