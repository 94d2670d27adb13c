#include <orvacam/merge/CMergeAlgoLegacy.h>
#include <orvacam/support/CLog.h>

#include <algorithm>
#include <exception>

#include "gain/MergeLine.h"
#include "imagefiles/ImageFormats.h"
#include "kernels/Kernels.h"
#include "merge/FrameRegions.h"
#include "metadata/Values.h"

using orvacam::FrameRegions;

namespace {

/// Merges pixels by mergeRun(first, count, target), region by region of the metadata's frame where they are
/// counted.
template <typename MergeRun>
void merge(const MergeRun& mergeRun, unsigned char* merged, unsigned long pixels,
           const CFrameMetaData& metaData, CFrameStatistics* statistics, CLog& log) {
  if (statistics == nullptr) {
    orvacam::mergeAndCount(merged, 0, pixels, mergeRun, nullptr, 0, 0);
    return;
  }
  constexpr const char* name = "DoMergeWithStats";
  const FrameRegions regions(metaData);
  log.log(CLOGLEVEL_ENTRY, L"%s: uiTotalFrameWidth= %d, uiTotalFrameHeight= %d\n", name, regions.frameWidth,
          regions.frameHeight);
  log.log(CLOGLEVEL_ENTRY, L"%s: uiImageWidth= %d, uiImageHeight= %d\n", name, regions.imageWidth,
          regions.imageHeight);
  log.log(CLOGLEVEL_ENTRY, L"%s: uiPreRefPixels= %d, uiPostRefPixels= %d\n", name, regions.prePixels,
          regions.postPixels);
  log.log(CLOGLEVEL_ENTRY, L"%s: uiPreRefRows= %d, uiPostRefRows= %d\n", name, regions.preRows,
          regions.postRows);
  orvacam::mergeRegions(regions, merged, pixels, mergeRun, *statistics);
}

}  // namespace

CMergeAlgoLegacy::CMergeAlgoLegacy() : m_pMergeSettings(nullptr) {}

CMergeAlgoLegacy::~CMergeAlgoLegacy() = default;

int CMergeAlgoLegacy::MergeFrames(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                                  unsigned long ulNumPixels) try {
  if (pLow == nullptr || pHigh == nullptr || pMerged == nullptr) return -1;
  if (m_bMergedStatistics) m_MergedStatistics.Reset();  // a merge without an array has none
  unsigned int leading = 0;
  unsigned int trailing = 0;
  const auto format = static_cast<ORVA_IMAGE_FORMAT>(m_MergeEnables.uiImageFormat);
  GetMergeHeaderSize(format, ulNumPixels, 16, leading, trailing);

  // The mapping array is 32 MiB of repetitions: what it holds is looked up without it.
  orvacam::MergeLine line;
  const bool mapped = orvacam::makeMergeLine(
      *GetMergeSettings(), m_MetaData.Value(ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH).GetValueUint(),
      m_MetaData.Value(ORVA_META_KEY_LDR_GAIN).GetValueUint(),
      m_MetaData.Value(ORVA_META_KEY_HDR_GAIN).GetValueUint(),
      m_MetaData.Value(ORVA_META_KEY_SENSOR_COOLER_TEMP).GetValueInt() / 10.0, line);
  if (!mapped) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: No Mapping array- unable to merge!\n", "MergeFrames");
    return -1;
  }
  // Intended: no header for FITS.
  const bool tiff = format == ORVA_IMAGE_FORMAT_TIFF;
  auto* const output = reinterpret_cast<unsigned char*>(pMerged);
  merge(
      [&](unsigned long first, unsigned long count, unsigned short* pTarget) {
        orvacam::kernels::active().mergeByLine(pLow + first, pHigh + first, pTarget, count,
                                               line.values.data(), line.size, line.mergeRow);
      },
      tiff ? output + leading : output, ulNumPixels, m_MetaData,
      m_bMergedStatistics ? &m_MergedStatistics : nullptr, *m_pLog);
  if (!tiff) return 0;
  CFrameMetaData metaData(m_MetaData);
  orvacam::describePlane(metaData, m_bByteSwapped);
  return std::min(
      orvacam::imageFormatOf(format).finish(pMerged, leading, ulNumPixels, metaData, m_bByteSwapped), 0);
} catch (const std::exception&) {
  return -1;
}

void CMergeAlgoLegacy::DoMergeWithStats(const CMergeMappingArray* pMap, unsigned short* pLow,
                                        unsigned short* pHigh, unsigned short* pMerged,
                                        unsigned long ulNumPixels) {
  m_MergedStatistics.Reset();
  if (pLow == nullptr || pHigh == nullptr || pMerged == nullptr) return;
  const unsigned short* const data = pMap != nullptr ? pMap->GetData() : nullptr;
  const unsigned int width = data != nullptr ? pMap->GetWidth() : 0;
  const unsigned int height = data != nullptr ? pMap->GetHeight() : 0;
  merge(
      [=](unsigned long first, unsigned long count, unsigned short* pTarget) {
        orvacam::kernels::active().mergeMapped(pLow + first, pHigh + first, pTarget, count, data, width,
                                               height);
      },
      reinterpret_cast<unsigned char*>(pMerged), ulNumPixels, m_MetaData, &m_MergedStatistics, *m_pLog);
}
