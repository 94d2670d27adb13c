#include <orvacam/stack/CStacker.h>
#include <orvacam/support/CLog.h>

#include <algorithm>
#include <cstdlib>

#include "kernels/Kernels.h"
#include "metadata/FrameGeometry.h"
#include "metadata/HeaderFields.h"

namespace {

namespace kernels = orvacam::kernels;

constexpr const char* stackNextFrame = "StackNextFrame";
// As many frames of the largest pixel value as 32 bits hold.
constexpr unsigned int mostRecentFrames = 65536;

template <typename Element>
Element* allocateZeroed(unsigned long count) {
  // At least one byte, so that an empty plane is not taken for missing memory.
  return static_cast<Element*>(std::calloc(std::max(count, 1UL), sizeof(Element)));
}

template <typename Element>
void release(Element*& pBuffer) {
  std::free(pBuffer);
  pBuffer = nullptr;
}

}  // namespace

CStacker::CStacker()
    : m_uiNumPixels(0),
      m_pMetaDataBuffer(nullptr),
      m_uiMetaDataBufferSize(0),
      m_SumLow{},
      m_SumHigh{},
      m_uiNumFrames(0),
      m_uiRecentFrames(0),
      m_pResultLow(nullptr),
      m_pResultHigh(nullptr),
      m_bResultHighUsed(false),
      m_pLog(CLog::getInstance()) {}

CStacker::~CStacker() {
  FreeBuffers();
}

bool CStacker::DoAllocate(Sum& sum, unsigned short*& pResult) {
  sum.pRecent = allocateZeroed<unsigned int>(m_uiNumPixels);
  sum.pTotal = allocateZeroed<unsigned long>(m_uiNumPixels);
  pResult = allocateZeroed<unsigned short>(m_uiNumPixels);
  return sum.pRecent != nullptr && sum.pTotal != nullptr && pResult != nullptr;
}

int CStacker::Initialize(unsigned long ulNumPixels) {
  Deinitialize();
  m_uiNumPixels = ulNumPixels;
  if (DoAllocate(m_SumLow, m_pResultLow) && DoAllocate(m_SumHigh, m_pResultHigh)) return 0;
  Deinitialize();
  return -1;
}

int CStacker::DoCheckFrame(const void* pFrame, unsigned long ulNumPixels, const wchar_t* pMismatch) {
  if (pFrame == nullptr || m_SumLow.pRecent == nullptr) return -1;
  if (ulNumPixels == m_uiNumPixels) return 0;
  m_pLog->log(CLOGLEVEL_ERROR, pMismatch, stackNextFrame, static_cast<int>(ulNumPixels),
              static_cast<long long>(m_uiNumPixels));
  return -1;
}

void CStacker::DoCountFrame() {
  ++m_uiNumFrames;
  if (++m_uiRecentFrames < mostRecentFrames) return;
  DoEmptyRecent(m_SumLow);
  DoEmptyRecent(m_SumHigh);
  m_uiRecentFrames = 0;
}

void CStacker::DoEmptyRecent(Sum& sum) const {
  if (!sum.bRecent) return;
  if (!sum.bTotal) std::fill_n(sum.pTotal, m_uiNumPixels, 0UL);
  kernels::active().emptySums(sum.pRecent, sum.pTotal, m_uiNumPixels);
  sum.bTotal = true;  // the recent sums, in use still, are 0
}

void CStacker::DoAdd(const unsigned char* pFrame, Sum& sum) const {
  const kernels::KernelTable& kernel = kernels::active();
  (sum.bRecent ? kernel.addToSums8 : kernel.startSums8)(pFrame, sum.pRecent, m_uiNumPixels);
  sum.bRecent = true;
}

void CStacker::DoAdd(const unsigned short* pFrame, Sum& sum) const {
  const kernels::KernelTable& kernel = kernels::active();
  (sum.bRecent ? kernel.addToSums16 : kernel.startSums16)(pFrame, sum.pRecent, m_uiNumPixels);
  sum.bRecent = true;
}

int CStacker::StackNextFrame(const unsigned char* pFrame, unsigned long ulNumPixels) {
  if (DoCheckFrame(pFrame, ulNumPixels, L"%s8: uiNumPixels= %d != m_uiNumPixels= %lld\n") != 0) return -1;
  DoAdd(pFrame, m_SumLow);
  DoCountFrame();
  return 0;
}

int CStacker::StackNextFrame(const unsigned short* pFrame, unsigned long ulNumPixels) {
  if (DoCheckFrame(pFrame, ulNumPixels, L"%s16: uiNumPixels= %d != m_uiNumPixels= %lld\n") != 0) return -1;
  DoAdd(pFrame, m_SumLow);
  DoCountFrame();
  return 0;
}

int CStacker::StackNextFrame(const unsigned short* pLow, const unsigned short* pHigh,
                             unsigned long ulNumPixels) {
  if (pLow == nullptr) m_pLog->log(CLOGLEVEL_ERROR, L"%s: No Source frame provided!\n", stackNextFrame);
  if (DoCheckFrame(pLow, ulNumPixels, L"%sLH: uiNumPixels= %d != m_uiNumPixels= %lld\n") != 0) return -1;
  DoAdd(pLow, m_SumLow);
  if (pHigh != nullptr) DoAdd(pHigh, m_SumHigh);
  DoCountFrame();
  return 0;
}

void CStacker::DoMeans(const Sum& sum, unsigned short* pResult) const {
  const kernels::KernelTable& kernel = kernels::active();
  if (!sum.isInUse())
    std::fill_n(pResult, m_uiNumPixels, static_cast<unsigned short>(0));
  else if (sum.bTotal)
    kernel.meansOfSums(sum.pRecent, sum.pTotal, pResult, m_uiNumPixels, m_uiNumFrames);
  else
    kernel.meansOfRecentSums(sum.pRecent, pResult, m_uiNumPixels, m_uiNumFrames);
}

int CStacker::Finish(unsigned short** ppLow, unsigned short** ppHigh, unsigned int* puiNumPixels) {
  if (m_SumLow.pRecent == nullptr || puiNumPixels == nullptr) return -1;
  *puiNumPixels = static_cast<unsigned int>(m_uiNumPixels);
  DoMeans(m_SumLow, m_pResultLow);
  if (m_SumHigh.isInUse() || m_bResultHighUsed) DoMeans(m_SumHigh, m_pResultHigh);
  m_bResultHighUsed = m_bResultHighUsed || m_SumHigh.isInUse() || ppHigh != nullptr;
  if (ppLow != nullptr) *ppLow = m_pResultLow;
  if (ppHigh != nullptr) *ppHigh = m_pResultHigh;
  ResetStack();
  return 0;
}

int CStacker::GetStackedMetaData(unsigned char* pBaseMeta, unsigned int uiLength, unsigned char** ppMeta,
                                 unsigned int* puiLength) {
  if (ppMeta == nullptr || pBaseMeta == nullptr) return 0;
  const int result = m_MetaData.Parse(pBaseMeta, uiLength);
  if (result < 0 || orvacam::headerLengthFault(m_MetaData)) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Invalid base meta data provided!\n", "GetStackedMetaData");
    return -1;
  }
  // A header of an earlier version states fewer bytes than it takes when it is written. The length has a
  // limit, and the block came with the bytes that were parsed.
  const unsigned int size = std::max(m_MetaData.GetBinarizeSizeEx(), orvacam::header::writtenSize);
  if (size < m_MetaData.GetBinarizeSize()) return -1;  // 4 GiB of block
  if (m_pMetaDataBuffer == nullptr || m_uiMetaDataBufferSize < size) {
    release(m_pMetaDataBuffer);
    m_pMetaDataBuffer = allocateZeroed<unsigned char>(size);
    m_uiMetaDataBufferSize = m_pMetaDataBuffer != nullptr ? size : 0;
    if (m_pMetaDataBuffer == nullptr) return -1;
  }
  m_MetaData.SetBitsPerPixel(16);
  m_MetaData.SetHDRFrame(false);
  m_MetaData.SetPixelEndianFormat(true);
  m_MetaData.SetIsStackedFrame(true);
  m_MetaData.Binarize(m_pMetaDataBuffer, size);
  *ppMeta = m_pMetaDataBuffer;
  if (puiLength != nullptr) *puiLength = size;
  return result;
}

void CStacker::ResetStack() {
  m_uiNumFrames = 0;
  m_uiRecentFrames = 0;
  for (Sum* const sum : {&m_SumLow, &m_SumHigh})
    sum->bRecent = sum->bTotal = false;
}

void CStacker::Deinitialize() {
  FreeBuffers();
  m_uiNumPixels = 0;
  m_uiNumFrames = 0;
  m_uiRecentFrames = 0;
}

void CStacker::FreeBuffers() {
  release(m_pMetaDataBuffer);
  m_uiMetaDataBufferSize = 0;
  for (Sum* sum : {&m_SumLow, &m_SumHigh}) {
    release(sum->pRecent);
    release(sum->pTotal);
    sum->bRecent = sum->bTotal = false;
  }
  release(m_pResultLow);
  release(m_pResultHigh);
  m_bResultHighUsed = false;
}
