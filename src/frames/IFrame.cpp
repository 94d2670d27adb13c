#include <orvacam/frames/IFrame.h>
#include <orvacam/merge/CCustomMergeAlgo.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/support/CLog.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>

#include "frames/Decoding.h"
#include "frames/FramePlanes.h"
#include "metadata/Values.h"
#include "statistics/PlaneCounts.h"
#include "support/FileMemory.h"

namespace {

template <typename Value>
void release(Value*& pBuffer) {
  std::free(pBuffer);
  pBuffer = nullptr;
}

unsigned char* allocateZeroed(unsigned long size) {
  return static_cast<unsigned char*>(std::calloc(std::max(size, 1UL), 1));
}

}  // namespace

IFrame::IFrame() : m_pLog(CLog::getInstance()) {}

IFrame::~IFrame() {
  FreeAll();
}

int IFrame::Merge(unpacked_images_t* /*pImages*/) {
  return -1;
}
int IFrame::Unpack(unpacked_images_t* /*pImages*/) {
  return -1;
}
int IFrame::CopyROIToBuffer(frame_roi_t& /*roi*/, unsigned char* /*pBuffer*/, unsigned int /*uiBufferSize*/) {
  return -1;
}

// ---- Initialization and source data

int IFrame::Initialize(const CFrameMetaData& metaData, unsigned char* pSource, unsigned long ulLength,
                       CCustomMergeAlgo* pMergeAlgo) {
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Entered\n", "Initialize");
  const int result = DoInitialize(metaData, pMergeAlgo);
  SetSourceImage(pSource, ulLength);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Leaving\n", "Initialize");
  return result;
}

int IFrame::Initialize(const CFrameMetaData& metaData, std::FILE* pStream, CCustomMergeAlgo* pMergeAlgo) {
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Entered\n", "Initialize");
  int result = DoInitialize(metaData, pMergeAlgo);
  if (result >= 0) result = SetSourceImage(pStream);
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Leaving\n", "Initialize");
  return result;
}

int IFrame::DoInitialize(const CFrameMetaData& metaData, CCustomMergeAlgo* pMergeAlgo) {
  m_pMergeAlgo = pMergeAlgo;
  delete m_pMetaData;
  m_pMetaData = nullptr;
  try {
    m_pMetaData = new CFrameMetaData(metaData);
  } catch (const std::exception&) {
    return -1;
  }
  if (pMergeAlgo != nullptr) {
    hw_merge_enables_t enables{};
    pMergeAlgo->GetMergeEnables(enables);
    m_uiMergeImageFormat = enables.uiImageFormat;
  }
  m_bMergeStatistics = false;
  orvacam::resetStatistics(orvacam::partsOf(*this));
  return 0;
}

void IFrame::SetSourceImage(unsigned char* pSource, unsigned long ulLength) {
  if (pSource == nullptr) return;
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Entered uiSourceImageLength= %d (0x%x)\n", "SetSourceImage",
              static_cast<int>(ulLength), static_cast<unsigned int>(ulLength));
  FreeSourceImageBuffer();
  m_pSource = pSource;
  m_ulSourceLength = ulLength;
  m_pLog->log(CLOGLEVEL_ENTRY, L"%s: Leaving\n", "SetSourceImage");
}

int IFrame::SetSourceImage(std::FILE* pStream) {
  if (orvacam::regularFileSize(pStream) == 0) FreeSourceImageBuffer();
  return ReadSourceImage(pStream);
}

int IFrame::ReadSourceImage(std::FILE* pStream) {
  if (orvacam::regularFileSize(pStream) == 0) return -1;
  orvacam::OwnedMemory memory;
  if (m_bSourceOwned) memory = {decltype(memory.bytes)(m_pSource), m_ulSourceLength};
  const bool whole = orvacam::readWhole(pStream, memory);
  m_ulSourceLength = memory.length;
  m_pSource = memory.bytes.release();
  m_bSourceOwned = m_pSource != nullptr;
  m_bSourceIncomplete = m_bSourceOwned && !whole;
  return whole ? 0 : -1;
}

void IFrame::FreeSourceImageBuffer() {
  if (m_bSourceOwned) {
    release(m_pSource);
    m_ulSourceLength = 0;
  }
  m_bSourceOwned = false;
  m_bSourceIncomplete = false;
}

// ---- Buffers

int IFrame::AllocateBufferPointer(unsigned int uiSize, unsigned short** ppBuffer,
                                  unsigned long* pulCapacity) {
  if (ppBuffer == nullptr || pulCapacity == nullptr) return -1;
  if (*ppBuffer == nullptr) {
    *ppBuffer = reinterpret_cast<unsigned short*>(allocateZeroed(uiSize));
    if (*ppBuffer == nullptr) return -1;
    *pulCapacity = uiSize;
    return 0;
  }
  std::memset(*ppBuffer, 0, *pulCapacity);  // intended: also when it is too small
  return *pulCapacity < uiSize ? -1 : 0;
}

int IFrame::AllocateMetaDataPointer(unsigned int uiSize, unsigned char** ppBuffer,
                                    unsigned int* puiCapacity) {
  if (ppBuffer == nullptr || puiCapacity == nullptr) return -1;
  if (*ppBuffer != nullptr) return *puiCapacity < uiSize ? -1 : 0;
  // Zeroed: a header of versions 1 and 2 is too short to be written.
  *ppBuffer = allocateZeroed(uiSize);
  if (*ppBuffer == nullptr) return -1;
  *puiCapacity = uiSize;
  return 0;
}

int IFrame::AllocateFrameBuffers(unsigned int uiSize, unsigned int uiExtra) {
  // Intended: a larger header alone does not make the buffers anew.
  if (m_pWorkBuffer1 != nullptr && m_uiWorkSize >= uiSize) return 0;
  FreeUnpackedBuffers();
  m_uiWorkSize = uiSize;
  m_uiWorkSizeWithHeader = uiSize + uiExtra;
  // Intended: twice what is asked for. Pages that nobody touches cost nothing.
  m_pWorkBuffer1 = allocateZeroed(uiSize);
  m_pWorkBuffer2 = allocateZeroed(2UL * uiSize);
  m_pWorkBuffer3 = allocateZeroed(2UL * uiSize + 2UL * uiExtra);
  if (m_pWorkBuffer1 != nullptr && m_pWorkBuffer2 != nullptr && m_pWorkBuffer3 != nullptr) return 0;
  FreeAll();
  return -1;
}

void IFrame::FreeUnpackedBuffers() {
  release(m_pWorkBuffer1);
  release(m_pWorkBuffer2);
  release(m_pWorkBuffer3);
  m_uiWorkSize = 0;
  m_uiWorkSizeWithHeader = 0;
}

void IFrame::FreeAll() {
  delete m_pMetaData;
  m_pMetaData = nullptr;
  FreeUnpackedBuffers();
  FreeSourceImageBuffer();
  m_UserMergeBuffers = unpacked_images_t{};
}

int IFrame::AllocateUserMergeBuffers(unpacked_images_t* pImages) {
  orvacam::FramePlanes planes(*this);
  if (pImages == nullptr || m_pMetaData == nullptr) return -1;
  const orvacam::FrameGeometry geometry(*m_pMetaData);
  if (orvacam::refusalOfPlanes(geometry, m_ulSourceLength) != orvacam::Refusal::None ||
      planes.claim(*pImages, geometry.planePixels()) != 0)
    return -1;
  planes.clearRest();
  return planes.addWorking();
}

// ---- Merge

int IFrame::MergeFrame(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                       unsigned long ulPixels) {
  if (pLow == nullptr || pHigh == nullptr || pMerged == nullptr || ulPixels == 0) return 0;
  m_MergedStatistics.Reset();
  if (m_pMergeAlgo == nullptr) return -1;
  m_pMergeAlgo->EnableStatistics(m_bMergeStatistics);
  return m_pMergeAlgo->MergeFrames(pLow, pHigh, pMerged, ulPixels);
}

int IFrame::UnpackImage12to16(unsigned short* pOut, unsigned long ulSize) {
  return orvacam::decodeSingle(*this, {pOut, ulSize});
}

// ---- Results

void IFrame::EnableMergeStatistics(bool bEnable) {
  m_bMergeStatistics = bEnable;
}

void IFrame::DoGetStats(const CFrameStatistics& statistics, image_plane_stats_t& stats) {
  orvacam::copyResults(statistics, stats);
}

void IFrame::GetLowFrameStats(image_plane_stats_t& stats) {
  DoGetStats(m_LowStatistics, stats);
}
void IFrame::GetHighFrameStats(image_plane_stats_t& stats) {
  DoGetStats(m_HighStatistics, stats);
}

void IFrame::GetMergedFrameStats(image_plane_stats_t& stats) {
  if (m_pMergeAlgo != nullptr)
    m_pMergeAlgo->GetMergedStats(stats);
  else
    DoGetStats(m_MergedStatistics, stats);
}

namespace {

/// Writes a plane's processed header.
int processedHeader(CFrameMetaData* metaData, bool swapped, bool high, bool merged, unsigned char* pBuffer,
                    unsigned int uiCapacity) {
  if (metaData == nullptr || metaData->GetBinarizeSize() > uiCapacity) return -1;
  orvacam::describePlane(*metaData, swapped);
  metaData->SetIsHighFrame(high);
  metaData->SetIsMergedFrame(merged);
  metaData->Binarize(pBuffer, uiCapacity);
  return 0;
}

}  // namespace

int IFrame::GetProcessedLowMetaData(unsigned char* pBuffer, unsigned int uiCapacity) {
  return processedHeader(m_pMetaData, m_bSourceByteSwapped, false, false, pBuffer, uiCapacity);
}
int IFrame::GetProcessedHighMetaData(unsigned char* pBuffer, unsigned int uiCapacity) {
  return processedHeader(m_pMetaData, m_bSourceByteSwapped, true, false, pBuffer, uiCapacity);
}
int IFrame::GetProcessedMergedMetaData(unsigned char* pBuffer, unsigned int uiCapacity) {
  return processedHeader(m_pMetaData, m_bSourceByteSwapped, false, true, pBuffer, uiCapacity);
}
