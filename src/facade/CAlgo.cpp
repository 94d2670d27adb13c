// The pipeline: parse, unpack, merge, statistics.

#include <orvacam/facade/CAlgo.h>
#include <orvacam/frames/CFrameFactory.h>
#include <orvacam/frames/IFrame.h>
#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/support/CLog.h>
#include <orvacam/types/device_types.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <utility>

#include "facade/Pipeline.h"
#include "metadata/FrameGeometry.h"
#include "metadata/Values.h"
#include "support/OpenFile.h"

namespace {

constexpr unsigned int histogramEntries = 65535;

/// Gives the merge its copy of the metadata. Without memory for it the frame has no metadata either, so that
/// its operations fail.
bool lendMetaData(CHWMergeReferenceFrames& merge, const CFrameMetaData& metaData, IFrame& frame) try {
  merge.SetMetaData(metaData);
  return true;
} catch (const std::exception&) {
  frame.FreeAll();
  return false;
}

void makeHistogram(image_plane_stats_t& stats) {
  if (stats.pHistogram != nullptr) return;
  stats.pHistogram = static_cast<double*>(std::malloc(histogramEntries * sizeof(double)));
  stats.uiHistogramSize = stats.pHistogram != nullptr ? histogramEntries : 0;
}

}  // namespace

CAlgo::CAlgo() : m_FileName{}, m_pLog(CLog::getInstance()) {}

CAlgo::~CAlgo() = default;

int CAlgo::Initialize(const gain_type_info_t& info, CCameraNVMergeSettings* pNVMergeSettings) {
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: ENTERED pNVMergeSettings= %p\n", "Initialize",
              static_cast<void*>(pNVMergeSettings));
  const int result = DoInitialize(info, pNVMergeSettings);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: LEAVING\n", "Initialize");
  return result;
}

int CAlgo::DoInitialize(const gain_type_info_t& info, CCameraNVMergeSettings* pNVMergeSettings) {
  return m_MergeSettings.Initialize(info, pNVMergeSettings);
}

int CAlgo::DeInitialize() {
  return 0;
}

double CAlgo::DeriveGainRatioFromMetaData(CFrameMetaData& metaData) {
  const std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(orvacam::cameraOf(metaData), nullptr));
  if (tables == nullptr) return orvacam::gainRatio(m_MergeSettings, metaData);
  return tables->GetDNETableGainRatio(orvacam::numberOf(metaData, ORVA_META_KEY_LDR_GAIN),
                                      orvacam::numberOf(metaData, ORVA_META_KEY_HDR_GAIN));
}

// ---- One frame

int CAlgo::MergeImage(unsigned char* pFrame, unsigned long ulLength, unpacked_images_t* pImages,
                      unpacked_stats_t* pStats) try {
  if (pImages == nullptr) return 0;
  if (pFrame == nullptr) return -1;
  m_MetaData.ReInitialize(false);
  const int parsed = m_MetaData.Parse(pFrame, static_cast<unsigned int>(std::min(ulLength, 0xFFFFFFFFUL)));
  if (parsed < 0) return parsed;

  if (!m_HWMerge.HasCallerFrames())
    orvacam::takeReferences(m_HWMerge, m_MetaData, nullptr, nullptr,
                            orvacam::gainRatio(m_MergeSettings, m_MetaData));
  const std::unique_ptr<IFrame> frame(InitFrame(&m_MetaData, pFrame, ulLength, pImages));
  if (frame == nullptr) return parsed;
  return orvacam::mergeAndDeliver(*this, *frame, *pImages, pStats, orvacam::Headers::WhereAskedFor);
} catch (const std::exception&) {
  return -1;
}

int CAlgo::MergeFile(const wchar_t* pFileName, unpacked_images_t* pImages, unpacked_stats_t* pStats,
                     const wchar_t* pDSNUFileName, const wchar_t* pPRNUFileName) try {
  constexpr const char* name = "MergeFile";
  if (pFileName == nullptr) return -1;
  if (pImages == nullptr) return 0;
  m_MetaData.ReInitialize(false);
  const orvacam::OpenFile file(orvacam::openRegularFile(pFileName, "rb"));
  if (file == nullptr) return -1;
  int result = m_MetaData.Parse(file.get());
  if (result < 0) return result;
  if (!orvacam::takeGains(m_MergeSettings, m_MetaData)) return -1;
  result = orvacam::takeReferences(m_HWMerge, m_MetaData, pDSNUFileName, pPRNUFileName,
                                   orvacam::gainRatio(m_MergeSettings, m_MetaData));
  if (result < 0) {
    const orvacam::FrameGeometry geometry(m_MetaData);
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Error allocating reference frames w: %d h: %d\n", name,
                static_cast<int>(geometry.columns().frame()), static_cast<int>(geometry.rows().frame()));
    return result;
  }
  const std::unique_ptr<IFrame> frame(InitFrame(&m_MetaData, file.get(), pImages));
  if (frame == nullptr) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Error allocating frame object.\n", name);
    return result;
  }
  return orvacam::mergeAndDeliver(*this, *frame, *pImages, pStats, orvacam::Headers::WhereGiven);
} catch (const std::exception&) {
  return -1;
}

IFrame* CAlgo::InitFrame(CFrameMetaData* pMetaData, unsigned char* pFrame, unsigned long ulLength,
                         unpacked_images_t* /*pImages*/) {
  if (pMetaData == nullptr) return nullptr;
  IFrame* const frame = CFrameFactory::Create(*pMetaData);
  if (frame == nullptr) return nullptr;
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: uiSourceSize= %d\n", "InitFrame", static_cast<int>(ulLength));
  if (lendMetaData(m_HWMerge, *pMetaData, *frame))
    frame->Initialize(*pMetaData, pFrame, ulLength, &m_HWMerge);
  return frame;
}

IFrame* CAlgo::InitFrame(CFrameMetaData* pMetaData, std::FILE* pStream, unpacked_images_t* pImages) {
  if (pMetaData == nullptr) return nullptr;
  IFrame* const frame = CFrameFactory::Create(*pMetaData);
  if (frame == nullptr) return nullptr;
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: (file)\n", "InitFrame");
  if (pImages == nullptr || lendMetaData(m_HWMerge, *pMetaData, *frame))
    frame->Initialize(*pMetaData, pStream, &m_HWMerge);
  return frame;
}

// ---- Statistics and buffers

void CAlgo::GetStats(IFrame* pFrame, unpacked_stats_t* pStats) {
  if (pFrame == nullptr || pStats == nullptr) return;
  const struct {
    image_plane_stats_t& stats;
    void (IFrame::*get)(image_plane_stats_t&);
  } planes[] = {{pStats->statsLow, &IFrame::GetLowFrameStats},
                {pStats->statsHigh, &IFrame::GetHighFrameStats},
                {pStats->statsMerged, &IFrame::GetMergedFrameStats}};
  for (const auto& plane : planes) {
    if (!plane.stats.bRequest) continue;
    makeHistogram(plane.stats);
    (pFrame->*plane.get)(plane.stats);
  }
}

void CAlgo::FreeFramePointers(unpacked_images_t* pImages) {
  if (pImages != nullptr) orvacam::freeBuffers(*pImages);
}

void CAlgo::FreeStatsPointers(unpacked_stats_t* pStats) {
  if (pStats == nullptr) return;
  for (image_plane_stats_t* stats : {&pStats->statsLow, &pStats->statsHigh, &pStats->statsMerged}) {
    std::free(std::exchange(stats->pHistogram, nullptr));
    stats->uiHistogramSize = 0;
  }
}

// ---- Correction frames and merge settings

int CAlgo::SetHWMergeReferenceFrames(ref_frames_t* pFrames, bool bMakeIdentity) {
  if (pFrames == nullptr) return 0;
  if (bMakeIdentity) {
    m_HWMerge.CreateIdentityFrames(pFrames->uiWidth, pFrames->uiHeight, static_cast<ref_frames_t*>(nullptr));
    return 0;
  }
  m_HWMerge.SetFrameWidth(pFrames->uiWidth);  // intended: the height stays
  const unsigned int pixels = pFrames->uiWidth * pFrames->uiHeight;
  int result = 0;
  if (pFrames->pAdditiveLow != nullptr)
    result = m_HWMerge.SetAdditiveLowFromBuffer(pFrames->pAdditiveLow, pixels);
  if (result >= 0 && pFrames->pAdditiveHigh != nullptr)
    result = m_HWMerge.SetAdditiveHighFromBuffer(pFrames->pAdditiveHigh, pixels);
  if (result >= 0 && pFrames->pMultiplicativeLow != nullptr)
    result = m_HWMerge.SetMultiplicativeLowFromBuffer(pFrames->pMultiplicativeLow, pixels);
  if (result >= 0 && pFrames->pMultiplicativeHigh != nullptr)
    result = m_HWMerge.SetMultiplicativeHighFromBuffer(pFrames->pMultiplicativeHigh, pixels);
  return result;
}

void CAlgo::GetHWMergeEnables(hw_merge_enables_t& enables) {
  m_HWMerge.GetMergeEnables(enables);
}
void CAlgo::SetHWMergeEnables(const hw_merge_enables_t& enables) {
  m_HWMerge.SetMergeEnables(enables);
}

void CAlgo::GetHWMergeThresholds(unsigned short& usLow, unsigned short& usHigh) {
  m_HWMerge.GetMergeThresholds(usLow, usHigh);
}

void CAlgo::SetHWMergeThresholds(unsigned short usLow, unsigned short usHigh) {
  m_HWMerge.SetMergeThresholds(usLow, usHigh);
}
