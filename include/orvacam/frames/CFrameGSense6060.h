#ifndef ORVACAM_FRAMES_CFRAMEGSENSE6060_H
#define ORVACAM_FRAMES_CFRAMEGSENSE6060_H

#include <orvacam/frames/IFrame.h>
#include <orvacam/types/export.h>

/// Frames of the GSENSE6060. The pixel size alone decides: 12-bit data is always a pair of planes whose rows
/// alternate, 16-bit data a single image; 16-bit HDR data and other sizes yield -1.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameGSense6060 : public IFrame {
 public:
  int Merge(unpacked_images_t* pImages) override;
  int Unpack(unpacked_images_t* pImages) override;

 protected:
  /// Decodes the stream of two planes. 0; -1, with what is whole and fits decoded, without metadata, when the
  /// source ends early or a plane is too small.
  int DoUnpack12(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
                 unsigned long ulHighSize);
  /// Copies a single 16-bit image, not at all when fewer than ulPixels are there. -1 for other pixel sizes.
  int DoUnpackSingle(unsigned short* pOut, unsigned long ulPixels);
};

#endif  // ORVACAM_FRAMES_CFRAMEGSENSE6060_H
