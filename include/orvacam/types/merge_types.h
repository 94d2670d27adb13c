#ifndef ORVACAM_TYPES_MERGE_TYPES_H
#define ORVACAM_TYPES_MERGE_TYPES_H

/// \file
/// Records of the merge algorithms.

/// How a merge algorithm works and lays out its output.
struct hw_merge_enables_t {
  unsigned int uiEnableBits;   ///< stored and handed back whole; the merge itself does not interpret it
  unsigned int uiImageFormat;  ///< an ORVA_IMAGE_FORMAT: layout of the merged output buffer
  unsigned int
      uiMergeType;  ///< 1 = corrected low-gain pixels only, 2 = corrected high-gain pixels only, else merge
};

/// The fixed-point reference planes of the hardware-style merge: width x height values each, row by row.
/// Planes that the library hands out are allocated with array new and belong to the caller (delete[]).
struct ref_frames_t {
  unsigned int uiWidth;                 ///< width in pixels
  unsigned int uiHeight;                ///< height in pixels
  short* pAdditiveLow;                  ///< dark signal non-uniformity (DSNU) of the low-gain channel
  short* pAdditiveHigh;                 ///< the same for the high-gain channel
  unsigned short* pMultiplicativeLow;   ///< photo response non-uniformity (PRNU) of the low-gain channel
  unsigned short* pMultiplicativeHigh;  ///< the same for the high-gain channel
};

#endif  // ORVACAM_TYPES_MERGE_TYPES_H
