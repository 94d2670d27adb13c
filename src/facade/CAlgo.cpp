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

#include "metadata/FrameGeometry.h"
#include "support/OpenFile.h"

namespace {

constexpr unsigned int histogramEntries = 65535;

struct FileCloser {
  void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

gain_type_info_t cameraOf(const CFrameMetaData& metaData) {
  gain_type_info_t camera{ORVA_DEVICE_UNKNOWN,
                          metaData.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
  metaData.GetDeviceType(camera.uiDeviceType);
  return camera;
}

template <typename Pointer>
void release(Pointer& pBuffer) {
  std::free(pBuffer);
  pBuffer = nullptr;
}

bool wantsStatistics(const unpacked_stats_t& stats) {
  return stats.statsLow.bRequest || stats.statsHigh.bRequest || stats.statsMerged.bRequest;
}

void makeHistogram(image_plane_stats_t& stats) {
  if (stats.pHistogram != nullptr) return;
  stats.pHistogram = static_cast<double*>(std::malloc(histogramEntries * sizeof(double)));
  stats.uiHistogramSize = stats.pHistogram != nullptr ? histogramEntries : 0;
}

}  // namespace

CAlgo::CAlgo() : m_FileName{}, m_ConversionMemory{}, m_pLog(CLog::getInstance()) {}

CAlgo::~CAlgo() {
  FreeFramePointers(&m_ConversionMemory.planes);
  release(m_ConversionMemory.pSource);
}

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

double CAlgo::DoGainRatio(const CFrameMetaData& metaData) const {
  return m_MergeSettings.GetGainRatio(metaData.Value(ORVA_META_KEY_LDR_GAIN).GetValueUint(),
                                      metaData.Value(ORVA_META_KEY_HDR_GAIN).GetValueUint());
}

double CAlgo::DeriveGainRatioFromMetaData(CFrameMetaData& metaData) {
  const std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(cameraOf(metaData), nullptr));
  if (tables == nullptr) return DoGainRatio(metaData);
  return tables->GetDNETableGainRatio(metaData.Value(ORVA_META_KEY_LDR_GAIN).GetValueUint(),
                                      metaData.Value(ORVA_META_KEY_HDR_GAIN).GetValueUint());
}

// ---- One frame
// -----------------------------------------------------------------------------------------------

int CAlgo::MergeImage(unsigned char* pFrame, unsigned long ulLength, unpacked_images_t* pImages,
                      unpacked_stats_t* pStats) try {
  if (pImages == nullptr) return 0;
  if (pFrame == nullptr) return -1;
  m_MetaData.ReInitialize(false);
  const int parsed = m_MetaData.Parse(pFrame, static_cast<unsigned int>(std::min(ulLength, 0xFFFFFFFFUL)));
  if (parsed < 0) return parsed;

  if (!m_HWMerge.HasCallerFrames()) {
    const orvacam::FrameGeometry geometry(m_MetaData);
    m_HWMerge.CreateIdentityFrames(static_cast<unsigned int>(geometry.columns().frame()),
                                   static_cast<unsigned int>(geometry.rows().frame()),
                                   DoGainRatio(m_MetaData), 1.0, nullptr);
  }
  const std::unique_ptr<IFrame> frame(InitFrame(&m_MetaData, pFrame, ulLength, pImages));
  if (frame == nullptr) return parsed;
  frame->EnableMergeStatistics(pStats != nullptr && wantsStatistics(*pStats));
  int result = frame->Merge(pImages);
  GetStats(frame.get(), pStats);
  if (result >= 0 && pImages->bMetaDataRequest) {
    result = frame->GetProcessedLowMetaData(pImages->pLowMetaData, pImages->uiMetaDataSize);
    if (result >= 0)
      result = frame->GetProcessedHighMetaData(pImages->pHighMetaData, pImages->uiMetaDataSize);
    if (result >= 0)
      result = frame->GetProcessedMergedMetaData(pImages->pMergedMetaData, pImages->uiMetaDataSize);
  }
  return result;
} catch (const std::exception&) {
  return -1;
}

int CAlgo::MergeFile(const wchar_t* pFileName, unpacked_images_t* pImages, unpacked_stats_t* pStats,
                     const wchar_t* pDSNUFileName, const wchar_t* pPRNUFileName) try {
  if (pFileName == nullptr) return -1;
  if (pImages == nullptr) return 0;
  m_MetaData.ReInitialize(false);
  const File file(orvacam::openRegularFile(pFileName, "rb"));
  if (file == nullptr) return -1;
  return DoMergeStream(file.get(), pImages, pStats, pDSNUFileName, pPRNUFileName);
} catch (const std::exception&) {
  return -1;
}

int CAlgo::DoMergeStream(std::FILE* pStream, unpacked_images_t* pImages, unpacked_stats_t* pStats,
                         const wchar_t* pDSNUFileName, const wchar_t* pPRNUFileName) {
  constexpr const char* name = "MergeFile";
  int result = m_MetaData.Parse(pStream);
  if (result < 0) return result;
  DoInitialize(cameraOf(m_MetaData), nullptr);
  // Every camera has tables: without them memory ran out, and the ratio would be another camera's.
  if (!m_MergeSettings.HasGainTables()) return -1;

  const orvacam::FrameGeometry geometry(m_MetaData);
  const auto width = static_cast<unsigned int>(geometry.columns().frame());
  const auto height = static_cast<unsigned int>(geometry.rows().frame());
  result = DoCreateReferenceFrames(pDSNUFileName, pPRNUFileName, DoGainRatio(m_MetaData), width, height);
  if (result < 0) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Error allocating reference frames w: %d h: %d\n", name,
                static_cast<int>(width), static_cast<int>(height));
    return result;
  }
  const std::unique_ptr<IFrame> frame(InitFrame(&m_MetaData, pStream, pImages));
  if (frame == nullptr) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Error allocating frame object.\n", name);
    return result;
  }
  if (pStats != nullptr) frame->EnableMergeStatistics(wantsStatistics(*pStats));
  result = frame->Merge(pImages);
  GetStats(frame.get(), pStats);
  if (result >= 0 && pImages->pLowMetaData != nullptr)
    result = frame->GetProcessedLowMetaData(pImages->pLowMetaData, pImages->uiMetaDataSize);
  if (result >= 0 && pImages->pHighMetaData != nullptr)
    result = frame->GetProcessedHighMetaData(pImages->pHighMetaData, pImages->uiMetaDataSize);
  if (result >= 0 && pImages->pMergedMetaData != nullptr)
    result = frame->GetProcessedMergedMetaData(pImages->pMergedMetaData, pImages->uiMetaDataSize);
  return result;
}

int CAlgo::DoCreateReferenceFrames(const wchar_t* pDSNUFileName, const wchar_t* pPRNUFileName,
                                   double dGainRatio, unsigned int uiWidth, unsigned int uiHeight) {
  if (pDSNUFileName != nullptr || pPRNUFileName != nullptr)
    return m_HWMerge.CreateReferenceFrames(pDSNUFileName, pPRNUFileName, dGainRatio, 1.0, nullptr);
  return m_HWMerge.CreateIdentityFrames(uiWidth, uiHeight, dGainRatio, 1.0, nullptr);
}

/// Gives the merge its copy of the metadata. Without memory for it the frame has no metadata either, so that
/// its operations fail.
bool CAlgo::DoLendMetaData(const CFrameMetaData& metaData, IFrame& frame) try {
  m_HWMerge.SetMetaData(metaData);
  return true;
} catch (const std::exception&) {
  frame.FreeAll();
  return false;
}

IFrame* CAlgo::InitFrame(CFrameMetaData* pMetaData, unsigned char* pFrame, unsigned long ulLength,
                         unpacked_images_t* /*pImages*/) {
  if (pMetaData == nullptr) return nullptr;
  IFrame* const frame = CFrameFactory::Create(*pMetaData);
  if (frame == nullptr) return nullptr;
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: uiSourceSize= %d\n", "InitFrame", static_cast<int>(ulLength));
  if (DoLendMetaData(*pMetaData, *frame)) frame->Initialize(*pMetaData, pFrame, ulLength, &m_HWMerge);
  return frame;
}

IFrame* CAlgo::InitFrame(CFrameMetaData* pMetaData, std::FILE* pStream, unpacked_images_t* pImages) {
  return DoInitFrame(pMetaData, pStream, pImages, nullptr);
}

IFrame* CAlgo::DoInitFrame(CFrameMetaData* pMetaData, std::FILE* pStream, unpacked_images_t* pImages,
                           conversion_memory_t* pMemory) {
  if (pMetaData == nullptr) return nullptr;
  IFrame* const frame = CFrameFactory::Create(*pMetaData);
  if (frame == nullptr) return nullptr;
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: (file)\n", "InitFrame");
  if (pMemory != nullptr) {
    frame->AdoptSourceBuffer(pMemory->pSource, pMemory->ulSourceLength);
    pMemory->pSource = nullptr;
  }
  if (pImages == nullptr || DoLendMetaData(*pMetaData, *frame))
    frame->Initialize(*pMetaData, pStream, &m_HWMerge);
  return frame;
}

// ---- Statistics and buffers
// ----------------------------------------------------------------------------------

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
  if (pImages == nullptr) return;
  release(pImages->pLowMetaData);
  release(pImages->pLowImage);
  release(pImages->pHighMetaData);
  release(pImages->pHighImage);
  release(pImages->pMergedMetaData);
  release(pImages->pMergedImage);
}

void CAlgo::FreeStatsPointers(unpacked_stats_t* pStats) {
  if (pStats == nullptr) return;
  for (image_plane_stats_t* stats : {&pStats->statsLow, &pStats->statsHigh, &pStats->statsMerged}) {
    release(stats->pHistogram);
    stats->uiHistogramSize = 0;
  }
}

// ---- Correction frames and merge settings
// --------------------------------------------------------------------

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
