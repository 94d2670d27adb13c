#ifndef ORVACAM_FRAMES_CFRAMEPLAIN_H
#define ORVACAM_FRAMES_CFRAMEPLAIN_H

#include <orvacam/frames/IFrame.h>
#include <orvacam/types/export.h>

/// Frames whose pixels arrive as one plane of 16-bit little-endian values: they are copied, bias frames
/// subtracted, and an HDR pair merged. -1 for other pixel sizes and for a source that is too short (what is
/// there is copied). A source without a header is taken as bare pixels.
/// One object is used by one thread at a time.
class ORVACAM_API CFramePlain : public IFrame {
 public:
  int Merge(unpacked_images_t* pImages) override;
  int Unpack(unpacked_images_t* pImages) override;
};

#endif  // ORVACAM_FRAMES_CFRAMEPLAIN_H
