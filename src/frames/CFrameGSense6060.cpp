#include <orvacam/frames/CFrameGSense6060.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <typeinfo>

#include "frames/RowInterleavedStream.h"
#include "merge/FrameRegions.h"

int CFrameGSense6060::Unpack(unpacked_images_t* pImages) {
  if (DoPrepareUncleared(pImages) != 0) return -1;
  unsigned int pixels = 0;
  m_pMetaData->GetImageSizePixelsBinned(pixels);
  if (DoCheckPlanes(pixels) != 0) return -1;
  DoResetStatistics();

  unsigned int bits = 0;
  m_pMetaData->GetPixelSize(bits);
  int result = -1;
  if (bits == 12) {
    // Intended: a pair of planes whether the HDR flag is set or not.
    result = DoDecodePair(DoLayout());
    if (result >= 0) {
      DoApplyBias(false);
      DoApplyBias(true);
    }
  } else if (bits == 16 && !m_pMetaData->Value(ORVA_META_KEY_HDR_MODE).GetValueBool()) {
    if (DoReadyPlanes(DoSingleImagePixels(16), 0) == 0)
      result = DoUnpackSingle(m_UserMergeBuffers.pLowImage, m_UserMergeBuffers.ulLowImagePixels);
  } else {
    DoReadyPlanes(0, 0);
  }
  DoComputeStatistics();  // intended: after a failure, too
  return result;
}

orvacam::StreamLayout CFrameGSense6060::DoLayout() const {
  const orvacam::FrameRegions frame(*m_pMetaData);
  return {
      {{2 * frame.preRows, 0, frame.frameWidth, 0, 0, false},
       {2 * frame.imageHeight, frame.prePixels, frame.imageWidth, frame.postPixels, 0, m_bMergeStatistics},
       {2 * frame.postRows, 0, frame.frameWidth, 0, 0, false}}};
}

int CFrameGSense6060::DoUnpack12(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
                                 unsigned long ulHighSize) {
  if (m_pMetaData == nullptr || m_pSource == nullptr) return -1;
  DoResetStatistics();  // this decoder can be called alone
  unsigned long length = 0;
  const unsigned char* const pixels = DoPixelData(length);
  orvacam::PlaneCursor planes[] = {{pLow, ulLowSize, &m_LowStatistics},
                                   {pHigh, ulHighSize, &m_HighStatistics}};
  return orvacam::decodeStream({pixels, length}, DoLayout(), planes);
}

int CFrameGSense6060::DoUnpackSingle(unsigned short* pOut, unsigned long ulPixels) {
  unsigned int bits = 0;
  const int result = m_pMetaData->GetPixelSize(bits);
  if (result < 0 || bits != 16) return -1;
  DoCopyPlane16(pOut, ulPixels);
  return result;
}

int CFrameGSense6060::Merge(unpacked_images_t* pImages) {
  return DoMerge(pImages, typeid(*this) == typeid(CFrameGSense6060));
}
