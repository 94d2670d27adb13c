#ifndef ORVACAM_FRAMES_CFRAMEGSENSE400_H
#define ORVACAM_FRAMES_CFRAMEGSENSE400_H

#include <orvacam/frames/IFrame.h>
#include <orvacam/types/export.h>

/// Frames of the GSENSE400: a single 12-bit image, or an HDR pair whose low-gain and high-gain rows
/// alternate. The reference pixels behind each high-gain row belong to both planes.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameGSense400 : public IFrame {
 public:
  int Merge(unpacked_images_t* pImages) override;
  int Unpack(unpacked_images_t* pImages) override;

 protected:
  /// Decodes the HDR stream into planes of as many pixels as stated. 0; -1, with what is whole and fits
  /// decoded, when the source ends early or a plane is too small.
  int DoUnpackHDR(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
                  unsigned long ulHighSize);
};

#endif  // ORVACAM_FRAMES_CFRAMEGSENSE400_H
