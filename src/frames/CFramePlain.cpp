#include <orvacam/frames/CFramePlain.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <algorithm>
#include <cstring>

int CFramePlain::Unpack(unpacked_images_t* pImages) {
  if (DoPrepare(pImages) != 0) return -1;
  unsigned int pixels = 0;
  m_pMetaData->GetImageSizePixelsBinned(pixels);
  if (DoCheckPlanes(pixels) != 0) return -1;
  DoResetStatistics();

  unsigned int bits = 0;
  m_pMetaData->GetPixelSize(bits);
  int result = -1;
  if (bits == 16) {
    unsigned long length = 0;
    const unsigned char* const source = DoPixelDataOfAnySource(length);
    const unsigned long count = std::min<unsigned long>(pixels, length / 2);
    if (count > 0) std::memcpy(m_UserMergeBuffers.pLowImage, source, 2 * count);
    result = count == pixels ? 0 : -1;
  }
  if (result == 0) {
    DoApplyBias(false);
    DoApplyBias(true);  // intended: over whatever the high-gain plane holds
  }
  DoComputeStatistics();
  return result;
}

int CFramePlain::Merge(unpacked_images_t* pImages) {
  return DoMerge(pImages);
}
