#include <orvacam/merge/CCustomMergeAlgo.h>
#include <orvacam/support/CLog.h>

#include "imagefiles/ImageFormats.h"
#include "kernels/Kernels.h"
#include "statistics/PlaneCounts.h"

CCustomMergeAlgo::CCustomMergeAlgo() : m_pLog(CLog::getInstance()) {}

CCustomMergeAlgo::~CCustomMergeAlgo() = default;

void CCustomMergeAlgo::GetMergeHeaderSize(ORVA_IMAGE_FORMAT eFormat, unsigned long ulNumPixels,
                                          unsigned int uiBitsPerPixel, unsigned int& uiLeading,
                                          unsigned int& uiTrailing) {
  const orvacam::Surroundings bytes =
      orvacam::imageFormatOf(eFormat).around(m_MetaData, ulNumPixels, uiBitsPerPixel);
  uiLeading = bytes.leading;
  uiTrailing = bytes.trailing;
}

void CCustomMergeAlgo::SetStartRowOffset(unsigned int /*uiRow*/) {}

void CCustomMergeAlgo::GetMergedStats(image_plane_stats_t& stats) const {
  orvacam::copyResults(m_MergedStatistics, stats);
}

void CCustomMergeAlgo::GetMergeEnables(hw_merge_enables_t& enables) const {
  enables = m_MergeEnables;
}

void CCustomMergeAlgo::SetMergeEnables(const hw_merge_enables_t& enables) {
  m_MergeEnables = enables;
}

int CCustomMergeAlgo::SetBiasFrames(unsigned int uiWidth, unsigned int uiHeight, const unsigned short* pLow,
                                    const unsigned short* pHigh) {
  m_uiBiasWidth = m_uiBiasHeight = 0;
  m_pBiasLow = m_pBiasHigh = nullptr;
  if (pLow == nullptr && pHigh == nullptr) return 0;
  unsigned int width = 0;
  unsigned int height = 0;
  m_MetaData.GetFrameDimensionsBinned(width, height);
  if (uiWidth != width || uiHeight != height) return -1;
  m_uiBiasWidth = uiWidth;
  m_uiBiasHeight = uiHeight;
  m_pBiasLow = pLow;
  m_pBiasHigh = pHigh;
  return 0;
}

void CCustomMergeAlgo::ApplyBiasFrame(unsigned short* pPlane, unsigned int uiWidth, unsigned int uiHeight,
                                      CFrameStatistics& statistics, bool bHigh) {
  const unsigned short* const bias = bHigh ? m_pBiasHigh : m_pBiasLow;
  if (pPlane == nullptr || bias == nullptr) return;
  statistics.Reset();
  if (uiWidth == 0) return;  // rows of nothing, however many
  const unsigned long biasPixels = static_cast<unsigned long>(m_uiBiasWidth) * m_uiBiasHeight;
  for (unsigned int y = 0; y < uiHeight; ++y) {
    const unsigned long start = static_cast<unsigned long>(y) * uiWidth;
    if (start + uiWidth > biasPixels) return;
    orvacam::kernels::active().subtractBias(pPlane + start, bias + start, uiWidth);
    orvacam::addRow(statistics, pPlane + start, uiWidth, 0, static_cast<int>(y));
  }
}
