#ifndef ORVACAM_FRAMES_CFRAMEGSENSE4040_H
#define ORVACAM_FRAMES_CFRAMEGSENSE4040_H

#include <orvacam/frames/CFrameGSense2020.h>
#include <orvacam/types/export.h>

/// Frames of the GSENSE4040: the layouts of the GSENSE2020 without correlated multiple sampling, and regions
/// of interest cut out of the packed frame.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameGSense4040 : public CFrameGSense2020 {
 public:
  int Merge(unpacked_images_t* pImages) override;
  int Unpack(unpacked_images_t* pImages) override;
  /// Copies the packed 12-bit bytes of a region behind MetadataLength bytes of room for a header, which the
  /// caller writes: for each row the low-gain and then the high-gain pixels of an HDR pair, or the single
  /// row's. 0; -1, with nothing written, for an odd column or width, a region that is not inside the frame or
  /// the source, or more bytes than uiBufferSize.
  int CopyROIToBuffer(frame_roi_t& roi, unsigned char* pBuffer, unsigned int uiBufferSize) override;

 protected:
  /// Copy the rows of a region from the row where it starts; the caller has checked both ends.
  void DoCopyROIHDR(const unsigned char* pSource, unsigned int uiFrameWidth, unsigned int uiPreRefPixels,
                    unsigned char* pDestination, const frame_roi_t& roi);
  void DoCopyROISingle(const unsigned char* pSource, unsigned int uiFrameWidth, unsigned int uiPreRefPixels,
                       unsigned char* pDestination, const frame_roi_t& roi);
};

#endif  // ORVACAM_FRAMES_CFRAMEGSENSE4040_H
