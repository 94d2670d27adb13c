#ifndef ORVACAM_TYPES_CONV_INFO_H
#define ORVACAM_TYPES_CONV_INFO_H

/// \file
/// A request to convert a raw frame file.

/// What CAlgo::ConvertFile is to make of a raw frame file. All names stay the caller's.
struct conv_info_t {
  unsigned int uiFormat;         ///< an ORVA_IMAGE_FORMAT: 1 = TIFF, 2 = FITS
  const wchar_t* pDSNUFileName;  ///< reference file of dark signal non-uniformity, or null
  const wchar_t* pPRNUFileName;  ///< reference file of photo response non-uniformity, or null
};

#endif  // ORVACAM_TYPES_CONV_INFO_H
