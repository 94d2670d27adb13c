#include <orvacam/frames/CFrameGSense400.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/support/CLog.h>

#include <typeinfo>

#include "frames/RowInterleavedStream.h"

int CFrameGSense400::Unpack(unpacked_images_t* pImages) {
  constexpr const char* name = "Unpack";
  if (DoPrepareUncleared(pImages) != 0) return -1;
  unsigned int pixels = 0;
  unsigned int width = 0;
  unsigned int height = 0;
  m_pMetaData->GetImageSizePixels(pixels);
  m_pMetaData->GetFrameDimensionsBinned(width, height);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: uiPixelSize= %d\n", name, pixels);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: uiFrameWidth= %d, uiFrameHeight= %d\n", name, width, height);
  if (DoCheckPlanes(pixels) != 0) return -1;
  DoResetStatistics();

  const bool hdr = m_pMetaData->Value(ORVA_META_KEY_HDR_MODE).GetValueBool();
  const int result = hdr ? DoDecodePair(DoLayout()) : DoUnpackSingle();
  // Intended: this sensor's single images are corrected, too.
  if (result >= 0) DoApplyBias(false);
  if (result >= 0 && hdr) DoApplyBias(true);
  if (hdr)
    DoComputeStatistics();
  else if (m_bMergeStatistics)
    m_LowStatistics.Compute();  // the high-gain statistics stay reset
  return result;
}

orvacam::StreamLayout CFrameGSense400::DoLayout() const {
  constexpr const char* name = "DoUnpackHDR";
  unsigned int frameWidth = 0;
  unsigned int frameHeight = 0;
  unsigned int width = 0;
  unsigned int height = 0;
  m_pMetaData->GetFrameDimensions(frameWidth, frameHeight);
  m_pMetaData->GetImageDimensions(width, height);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: uiTotalFrameWidth= %d, uiTotalFrameHeight= %d\n", name, frameWidth,
              frameHeight);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: uiImageWidth= %d, uiImageHeight= %d\n", name, width, height);

  const unsigned int preRows = m_pMetaData->Value(ORVA_META_KEY_PRE_REFERENCE_ROWS).GetValueUint();
  const unsigned int postRows = m_pMetaData->Value(ORVA_META_KEY_POST_REFERENCE_ROWS).GetValueUint();
  const unsigned int shared = m_pMetaData->Value(ORVA_META_KEY_POST_ROW_REF_PIXELS).GetValueUint();
  // Intended: the rows behind the image are a frame wide, those ahead of it an image.
  return {{{2 * preRows, 0, width, 0, shared, false},
           {2 * height, 0, width, 0, shared, m_bMergeStatistics},
           {2 * postRows, 0, frameWidth, 0, shared, false}}};
}

int CFrameGSense400::DoUnpackHDR(unsigned short* pLow, unsigned long ulLowSize, unsigned short* pHigh,
                                 unsigned long ulHighSize) {
  if (m_pMetaData == nullptr || m_pSource == nullptr) return -1;
  const orvacam::StreamLayout layout = DoLayout();
  unsigned long length = 0;
  const unsigned char* const pixels = DoPixelData(length);
  orvacam::PlaneCursor planes[] = {{pLow, ulLowSize, &m_LowStatistics},
                                   {pHigh, ulHighSize, &m_HighStatistics}};
  return orvacam::decodeStream({pixels, length}, layout, planes);
}

int CFrameGSense400::DoUnpackSingle() {
  if (DoReadyPlanes(DoSingleImagePixels(12), 0) != 0) return -1;
  return UnpackImage12to16(m_UserMergeBuffers.pLowImage, m_UserMergeBuffers.ulLowImagePixels);
}

int CFrameGSense400::Merge(unpacked_images_t* pImages) {
  return DoMerge(pImages, typeid(*this) == typeid(CFrameGSense400));
}
