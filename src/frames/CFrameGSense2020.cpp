#include <orvacam/frames/CFrameGSense2020.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <typeinfo>

#include "frames/RowInterleavedStream.h"
#include "merge/FrameRegions.h"
#include "support/ByteReader.h"

namespace {

/// How one of the eight pixels of a 13-byte group is formed.
struct CmsPixel {
  unsigned char step;        ///< bytes to the next pixel
  unsigned char firstBits;   ///< taken from the first byte
  unsigned char secondBits;  ///< taken from the second byte
  unsigned char secondPlace;
  unsigned char firstPlace;
  unsigned char secondShift;
  unsigned char thirdShift;
};

constexpr CmsPixel cmsPixels[] = {
    {1, 8, 5, 0, 5, 3, 8}, {2, 3, 8, 2, 10, 0, 6}, {1, 6, 7, 0, 7, 1, 8},  {2, 1, 8, 4, 12, 0, 4},
    {2, 4, 8, 1, 9, 0, 7}, {1, 7, 6, 0, 6, 2, 8},  {2, 2, 8, 3, 11, 0, 5}, {2, 5, 8, 0, 8, 0, 8},
};

constexpr unsigned int groupBytes() {
  unsigned int bytes = 0;
  for (const CmsPixel& pixel : cmsPixels)
    bytes += pixel.step;
  return bytes;
}
static_assert(groupBytes() == 13);

/// Intended: the value is made of truth values, not of the bits themselves.
unsigned short cmsValue(const unsigned char* s, const CmsPixel& pixel) {
  const unsigned int first = s[0] != 0 && pixel.firstBits != 0;
  const unsigned int second = (s[1] >> pixel.secondShift) != 0 && pixel.secondBits != 0;
  unsigned int value = first << pixel.firstPlace | second << pixel.secondPlace;
  if (pixel.secondPlace != 0 && (s[2] >> pixel.thirdShift) != 0) value |= 1;
  return static_cast<unsigned short>(value);
}

/// The bytes that a pixel looks at.
unsigned int cmsBytes(const CmsPixel& pixel) {
  return pixel.secondPlace != 0 ? 3 : 2;
}

}  // namespace

int CFrameGSense2020::Unpack(unpacked_images_t* pImages) {
  if (DoPrepareUncleared(pImages) != 0) return -1;
  unsigned int pixels = 0;
  m_pMetaData->GetImageSizePixelsBinned(pixels);
  if (DoCheckPlanes(pixels) != 0) return -1;
  DoResetStatistics();

  int result = -1;
  if (m_pMetaData->Value(ORVA_META_KEY_HDR_MODE).GetValueBool()) {
    result = DoDecodePair(DoLayout());
    if (result >= 0) {
      DoApplyBias(false);
      DoApplyBias(true);
    }
  } else {
    unsigned int bits = 0;
    const bool wide = m_pMetaData->GetPixelSize(bits) >= 0 && bits == 16;
    const bool sampled = m_pMetaData->Value(ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE).GetValueBool();
    const unsigned long brought = wide ? DoSingleImagePixels(16) : sampled ? 0 : DoSingleImagePixels(12);
    if (DoReadyPlanes(brought, 0) == 0)
      result = DoUnpackSingleImage(m_UserMergeBuffers.pLowImage,
                                   m_UserMergeBuffers.ulLowImagePixels);  // intended: without bias
  }
  DoComputeStatistics();
  return result;
}

orvacam::StreamLayout CFrameGSense2020::DoLayout() const {
  const orvacam::FrameRegions frame(*m_pMetaData);
  return {{{2 * frame.preRows, 0, frame.frameWidth, 0, 0, false},
           {2 * frame.imageHeight, 0, frame.imageWidth, frame.postPixels, 0, m_bMergeStatistics},
           {2 * frame.postRows, 0, frame.frameWidth, 0, 0, false}}};
}

int CFrameGSense2020::DoUnpack(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
                               unsigned long ulHighSize) {
  if (m_pMetaData == nullptr || m_pSource == nullptr) return -1;
  unsigned long length = 0;
  const unsigned char* const pixels = DoPixelData(length);
  orvacam::PlaneCursor planes[] = {{pLow, ulLowSize, &m_LowStatistics},
                                   {pHigh, ulHighSize, &m_HighStatistics}};
  return orvacam::decodeStream({pixels, length}, DoLayout(), planes);
}

int CFrameGSense2020::DoUnpackSingleImage(unsigned short* pOut, unsigned long ulPixels) {
  return m_pMetaData->Value(ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE).GetValueBool()
             ? DoUnpackCMS(pOut, ulPixels)
             : DoUnpackSingle(pOut, ulPixels);
}

int CFrameGSense2020::DoUnpackSingle(unsigned short* pOut, unsigned long ulPixels) {
  unsigned int bits = 0;
  const int result = m_pMetaData->GetPixelSize(bits);
  if (result < 0 || bits != 16) return UnpackImage12to16(pOut, ulPixels);
  DoCopyPlane16(pOut, ulPixels);
  return result;
}

int CFrameGSense2020::DoUnpackCMS(unsigned short* pOut, unsigned long ulPixels) {
  unsigned int bits = 0;
  const int result = m_pMetaData->GetPixelSize(bits);
  if (result < 0 || bits != 16) return DoUnpackSingle13to16(pOut, ulPixels);
  DoCopyPlane16(pOut, ulPixels);
  return result;
}

int CFrameGSense2020::DoUnpackSingle13to16(unsigned short* pOut, unsigned long ulPixels) {
  if (ulPixels == 0) return 0;
  unsigned long length = 0;
  const unsigned char* const pixels = DoPixelData(length);
  orvacam::ByteReader source(pixels, length);
  for (unsigned long i = 0; i < ulPixels; ++i) {
    const CmsPixel& pixel = cmsPixels[i % 8];
    if (source.remaining() < cmsBytes(pixel)) return -1;
    pOut[i] = cmsValue(source.current(), pixel);
    source.skip(pixel.step);
  }
  return 0;
}

int CFrameGSense2020::Merge(unpacked_images_t* pImages) {
  return DoMerge(pImages, typeid(*this) == typeid(CFrameGSense2020));
}
