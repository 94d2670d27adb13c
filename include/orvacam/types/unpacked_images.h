#ifndef ORVACAM_TYPES_UNPACKED_IMAGES_H
#define ORVACAM_TYPES_UNPACKED_IMAGES_H

/// \file
/// What a caller wants of a frame, and where it goes.

/// Request and delivery record for the planes of one frame. Zero it (`unpacked_images_t images{};`), set the
/// request flags, and hand it to CAlgo::MergeImage or CAlgo::MergeFile.
///
/// A buffer pointer left null is allocated by the library with malloc, exactly as large as needed, and its
/// capacity field is set. A buffer that the caller supplies is used as it is: an image buffer is first
/// zero-filled over its stated capacity, and the call fails with -1 when that capacity is too small (after
/// the zero-filling); a metadata buffer is checked the same way but not cleared. Buffers stay with the caller
/// after every call, whoever allocated them; CAlgo::FreeFramePointers gives all six back with free.
///
/// Planes are 16-bit pixels in the machine's order, row by row without padding, reference rows and reference
/// pixels included (CFrameMetaData::GetFrameDimensionsBinned gives width and height).
struct unpacked_images_t {
  unsigned int
      uiMetaDataSize;     ///< capacity in bytes of each of the three metadata buffers (one value for all)
  bool bMetaDataRequest;  ///< deliver the processed metadata block of each plane

  unsigned char* pLowMetaData;     ///< metadata block of the low-gain plane
  unsigned short* pLowImage;       ///< the low-gain plane
  unsigned long ulLowImagePixels;  ///< pixels delivered in pLowImage; written by the library
  unsigned long ulLowImageSize;    ///< capacity of pLowImage in bytes
  bool bLowImageRequest;           ///< deliver the low-gain plane

  unsigned char* pHighMetaData;     ///< metadata block of the high-gain plane
  unsigned short* pHighImage;       ///< the high-gain plane
  unsigned long ulHighImagePixels;  ///< pixels delivered in pHighImage; written by the library
  unsigned long ulHighImageSize;    ///< capacity of pHighImage in bytes
  bool bHighImageRequest;           ///< deliver the high-gain plane

  unsigned char* pMergedMetaData;  ///< metadata block of the merged plane
  unsigned short* pMergedImage;    ///< the merged plane, behind the header bytes of the merge's image format
  unsigned long ulMergedImagePixels;  ///< pixels delivered in pMergedImage; written by the library
  unsigned long ulMergedImageSize;    ///< capacity of pMergedImage in bytes
  bool bMergedImageRequest;           ///< deliver the merged plane
};

#endif  // ORVACAM_TYPES_UNPACKED_IMAGES_H
