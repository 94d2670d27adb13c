#ifndef ORVACAM_MERGE_CHWMERGEREFERENCEFRAMES_H
#define ORVACAM_MERGE_CHWMERGEREFERENCEFRAMES_H

#include <orvacam/merge/CCustomMergeAlgo.h>
#include <orvacam/types/export.h>
#include <orvacam/types/merge_types.h>

#include <cstdio>
#include <memory>
#include <vector>

namespace orvacam {
struct ReferenceValues;
}

/// The merge that the camera performs itself, in software. Each low-gain and high-gain pixel is corrected
/// with an additive term (dark signal non-uniformity, DSNU) and a multiplicative term (photo response
/// non-uniformity, PRNU), c = round(clamp(p + a, 0, max) x m), cut at 65535; then the corrected high-gain
/// pixel is taken unless it reaches the high threshold or lies below the low-gain pixel by more than the
/// difference threshold.
///
/// The terms are 16-bit fixed-point values, one for a whole plane or one per pixel: DSNU signed with 3, PRNU
/// unsigned with 10 fraction bits unless set otherwise. They come from identity or synthetic frames, from
/// reference files or from the caller's buffers. Without any, every term is the identity.
///
/// Statuses: 0, or -1. Copying may throw std::bad_alloc; an object whose assignment did may hold planes of
/// both, but stays safe to use. One object is used by one thread at a time; it is about 260 KiB large.
class ORVACAM_API CHWMergeReferenceFrames : public CCustomMergeAlgo {
 public:
  static constexpr unsigned short MERGEREF_MAX_DIFFERENCE_THRESHOLD = 128;  ///< as constructed
  static constexpr unsigned short MERGEREF_MAX_HIGH_THRESHOLD = 3700;       ///< as constructed
  static constexpr unsigned short MERGEREF_MAX_PIXEL16_VALUE = 65535;       ///< largest corrected pixel
  static constexpr unsigned short MERGEREF_MAX_PIXEL12_VALUE = 4095;        ///< largest pixel of the sensors
  static constexpr unsigned short MERGEREF_MIN_PIXEL_VALUE = 0;             ///< smallest corrected pixel
  static constexpr double MERGEREF_MAX_REF_VALUE = 1024.0;                  ///< 1.0 with 10 fraction bits

  CHWMergeReferenceFrames();
  CHWMergeReferenceFrames(const CHWMergeReferenceFrames& other);
  CHWMergeReferenceFrames& operator=(const CHWMergeReferenceFrames& other);
  ~CHWMergeReferenceFrames() override;

  // ---- Reference frames

  /// Make frames of uiWidth x uiHeight terms that have one value each, or a ramp that grows by a step per
  /// pixel and starts over at the end of the fixed-point range. With pRef, the planes are also handed out in
  /// fixed point: they are allocated with array new and belong to the caller. -1 without memory; there are no
  /// frames then and pRef is zeroed.
  int CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight, double dAddLow, double dAddHigh,
                           double dMulLow, double dMulHigh, unsigned int uiAddFracBits,
                           unsigned int uiMulFracBits, double dAddStep, double dMulStep, ref_frames_t* pRef);
  int CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight, double dAddLow, double dAddHigh,
                           double dMulLow, double dMulHigh, unsigned int uiAddFracBits,
                           unsigned int uiMulFracBits, ref_frames_t* pRef);
  int CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight, double dMulLow, double dMulHigh,
                           ref_frames_t* pRef);
  /// Exact identity: additive 0, multiplicative 1.
  int CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight, unsigned int uiAddFracBits,
                           unsigned int uiMulFracBits, ref_frames_t* pRef);
  int CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight, ref_frames_t* pRef);

  /// Loads reference files: a frame header, then at its stated length the low-gain and the high-gain plane,
  /// each as large as the header's full frame, 16-bit little-endian. Either name may be null; the terms it
  /// would bring are then 0 (additive) or the given multiplicative ones. -1 (logged but for the last) when a
  /// file cannot be opened, does not parse, has another size than the other one, holds less than an eighth of
  /// what a header of more than 8 MiB of planes claims, or is short; what a short file holds is used.
  int CreateReferenceFrames(const wchar_t* pDSNUFile, const wchar_t* pPRNUFile, double dMulLow,
                            double dMulHigh, ref_frames_t* pRef);
  /// Parses the headers of two reference files (either may be null) and positions them at their planes, a
  /// PRNU file that comes alone excepted. 0 with the frame size, or -1.
  int CheckReferenceMetaData(std::FILE* pDSNU, std::FILE* pPRNU, unsigned int& uiWidth,
                             unsigned int& uiHeight);

  /// Replace one plane by the caller's fixed-point values, which are copied. -1, with the old plane kept, for
  /// null, a count other than the frames' width x height, or without memory.
  int SetAdditiveLowFromBuffer(const short* pValues, unsigned int uiCount);
  int SetAdditiveHighFromBuffer(const short* pValues, unsigned int uiCount);
  int SetMultiplicativeLowFromBuffer(const unsigned short* pValues, unsigned int uiCount);
  int SetMultiplicativeHighFromBuffer(const unsigned short* pValues, unsigned int uiCount);

  /// Frees the reference frames and the buffers of the test merge; the size stays.
  void ClearFrames();
  /// Whether the frames are the caller's own, from buffers or files, rather than made here.
  bool HasCallerFrames() const { return m_bCallerFrames; }
  /// Whether the frames are exact identity frames.
  bool IsIdentity() const { return m_bIdentityFrames; }
  /// The width that counts and positions are reckoned with; the height stays.
  void SetFrameWidth(unsigned int uiWidth) { m_uiWidth = uiWidth; }

  /// Fixed point of f fraction bits: sign by two's complement, cut to 16 bits.
  static unsigned short ConvertToFixedPoint(double dValue, unsigned int uiFracBits);
  static double ConvertToDouble(unsigned short usValue, unsigned int uiFracBits);
  static double ConvertToDouble(short sValue, unsigned int uiFracBits);
  static void ConvertPixelArray(const short* pSource, double* pTarget, unsigned long ulCount,
                                unsigned int uiFracBits);
  static void ConvertPixelArray(const unsigned short* pSource, double* pTarget, unsigned long ulCount,
                                unsigned int uiFracBits);

  // ---- Merge

  /// Merges the planes of a received frame. -1 for null and without memory for the header. Reference frames
  /// that are smaller than the image from the start row on are logged, nothing is merged, and the status is
  /// 0.
  int MergeFrames(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                  unsigned long ulNumPixels) override;
  /// Test merge into the object's own buffers, of planes that are as large as the reference frames; -1
  /// otherwise. The last argument plays no part.
  int MergeFrames(unsigned short* pLow, unsigned short* pHigh, unsigned int uiWidth, unsigned int uiHeight,
                  unsigned int uiUnused);
  /// The merge of ulNumPixels pixels, no farther than the reference frames go.
  void MergeNoStats(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                    unsigned long ulNumPixels);
  /// The same with statistics of the metadata's image region.
  void MergeWithStats(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                      unsigned long ulNumPixels);
  /// The reference-frame row at which received images start.
  void SetStartRowOffset(unsigned int uiRow) override;

  /// After a test merge: the source pixels at an index; -1 for an index outside the frames.
  int GetSourcePixels(unsigned int uiIndex, unsigned short& usLow, unsigned short& usHigh) const;
  /// The high threshold, then the difference threshold.
  void GetMergeThresholds(unsigned short& usHigh, unsigned short& usDifference) const;
  void SetMergeThresholds(unsigned short usHigh, unsigned short usDifference);

  /// One corrected pixel.
  unsigned short CorrectPixel(unsigned short usPixel, double dAdd, double dMul, double dMax) const;
  unsigned short CorrectPixel(unsigned short usPixel, short sAddFixed, unsigned short usMulFixed,
                              double dMax) const;
  /// Rounded, halves away from zero, and cut to 0 to 65535.
  static unsigned short LimitPixel(double dValue);
  /// The largest signed 16-bit number with f fraction bits; 0 for more than 15.
  static double PositiveIntMax(unsigned int uiFracBits);
  /// 1 low-gain pixels, 2 high-gain pixels, 0 merge.
  unsigned int ConvertMergeType() const;
  static unsigned int ConvertMergeType(unsigned int uiEnableBits);

 protected:
  unsigned long m_uiWidth = 4096;
  unsigned long m_uiHeight = 4096;
  unsigned int m_uiAddFracBits = 3;
  unsigned int m_uiMulFracBits = 10;
  unsigned short m_usHighThreshold = MERGEREF_MAX_HIGH_THRESHOLD;
  unsigned short m_usDifferenceThreshold = MERGEREF_MAX_DIFFERENCE_THRESHOLD;
  /// Terms, as their fixed-point bits: additive of low and high gain, then multiplicative of both. One for
  /// each pixel, or one for all; without either, the identity. Copies of this object share what is one each.
  std::shared_ptr<const orvacam::ReferenceValues> m_pTerms[4];
  unsigned short m_usUniformTerms[4] = {};
  bool m_bTermsMade[4] = {};
  std::vector<unsigned short> m_TestMerged;  ///< of the test merge
  std::vector<unsigned short> m_TestLow;
  std::vector<unsigned short> m_TestHigh;
  unsigned int m_uiMergeStartRowOffset = 0;
  bool m_bIdentityFrames = true;
  bool m_bCallerFrames = false;
};

#endif  // ORVACAM_MERGE_CHWMERGEREFERENCEFRAMES_H
