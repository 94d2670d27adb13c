#ifndef ORVACAM_FRAMES_CFRAMEARGENT23084_H
#define ORVACAM_FRAMES_CFRAMEARGENT23084_H

#include <orvacam/frames/IFrame.h>
#include <orvacam/types/export.h>

/// Frames of the CCD cameras whose sensor is read through four amplifiers, one at each corner, or through one
/// of them: rebuilds the image in its natural orientation from 16-bit big-endian pixels. There is a single
/// gain, so nothing is merged. Statistics of the low-gain plane are gathered whether enabled or not.
///
/// A source that starts with a header has its pixels behind it; any other source is bare pixels.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameArgent23084 : public IFrame {
 public:
  int Merge(unpacked_images_t* pImages) override;
  int Unpack(unpacked_images_t* pImages) override;

 protected:
  /// Decode into ulPixels pixels. 0; -1 when the frame exceeds them, or, with what is whole decoded, when the
  /// source ends early.
  int DoUnpackFourQuadrantRead(unsigned short* pOut, unsigned long ulPixels);
  /// By the first amplifier in use; -1 when there is none.
  int DoUnpackSingleQuadrantRead(unsigned short* pOut, unsigned long ulPixels);
  void DoUnpackSingleUpperLeft(unsigned short* pOut, unsigned long ulPixels);
  void DoUnpackSingleUpperRight(unsigned short* pOut, unsigned long ulPixels);
  void DoUnpackSingleLowerLeft(unsigned short* pOut, unsigned long ulPixels);
  void DoUnpackSingleLowerRight(unsigned short* pOut, unsigned long ulPixels);
};

#endif  // ORVACAM_FRAMES_CFRAMEARGENT23084_H
