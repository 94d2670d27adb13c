#ifndef ORVACAM_TYPES_FRAME_ROI_H
#define ORVACAM_TYPES_FRAME_ROI_H

/// \file
/// A region of interest of a raw frame.

/// A rectangle of image pixels. uiX and uiWidth must be even, as packed pixels come in pairs.
struct frame_roi_t {
  unsigned int uiX;       ///< first column
  unsigned int uiY;       ///< first image row
  unsigned int uiWidth;   ///< width in pixels
  unsigned int uiHeight;  ///< height in rows
};

#endif  // ORVACAM_TYPES_FRAME_ROI_H
