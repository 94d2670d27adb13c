#ifndef ORVACAM_TYPES_IMAGE_FORMAT_H
#define ORVACAM_TYPES_IMAGE_FORMAT_H

/// \file
/// The layout of a merged output buffer, and the output format of a file conversion.

/// Values other than TIFF and FITS mean pixels only.
enum ORVA_IMAGE_FORMAT : unsigned int {
  ORVA_IMAGE_FORMAT_RAW = 0,   ///< pixels only
  ORVA_IMAGE_FORMAT_TIFF = 1,  ///< a TIFF header and the frame's metadata block precede the pixels
  ORVA_IMAGE_FORMAT_FITS = 2   ///< a FITS header precedes the pixels, fill bytes follow them
};

#endif  // ORVACAM_TYPES_IMAGE_FORMAT_H
