#include <orvacam/stack/CStacker.h>
#include <orvacam/support/CLog.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "kernels/Kernels.h"
#include "metadata/FrameGeometry.h"
#include "metadata/HeaderFields.h"
#include "metadata/Values.h"

namespace orvacam {

namespace {

// As many frames of the largest pixel value as 32 bits hold.
constexpr unsigned int mostRecentFrames = 65536;

/// Zeros; at least one byte, so that an empty plane is not taken for missing memory.
template <typename Element>
using Zeroed = std::unique_ptr<Element[], decltype(&std::free)>;
template <typename Element>
Zeroed<Element> allocateZeroed(unsigned long count) {
  return {static_cast<Element*>(std::calloc(std::max(count, 1UL), sizeof(Element))), &std::free};
}

/// The running sum of one plane: 32-bit sums, which are emptied into 64-bit ones before they can overflow.
/// What is not in use holds anything: the first frame overwrites it, so that nothing needs clearing.
class PlaneSum {
 public:
  explicit PlaneSum(unsigned long pixels)
      : m_pixels(pixels),
        m_recent(allocateZeroed<unsigned int>(pixels)),
        m_total(allocateZeroed<unsigned long>(pixels)),
        m_means(allocateZeroed<unsigned short>(pixels)) {}

  bool hasMemory() const { return m_recent != nullptr && m_total != nullptr && m_means != nullptr; }
  bool isInUse() const { return m_recentUsed || m_totalUsed; }

  unsigned long pixels() const { return m_pixels; }

  void add(const unsigned char* frame) {
    const kernels::KernelTable& kernel = kernels::active();
    (m_recentUsed ? kernel.addToSums8 : kernel.startSums8)(frame, m_recent.get(), m_pixels);
    m_recentUsed = true;
  }
  void add(const unsigned short* frame) {
    const kernels::KernelTable& kernel = kernels::active();
    (m_recentUsed ? kernel.addToSums16 : kernel.startSums16)(frame, m_recent.get(), m_pixels);
    m_recentUsed = true;
  }
  void emptyRecent() {
    if (!m_recentUsed) return;
    if (!m_totalUsed) std::fill_n(m_total.get(), m_pixels, 0UL);
    kernels::active().emptySums(m_recent.get(), m_total.get(), m_pixels);
    m_totalUsed = true;  // the recent sums, in use still, are 0
  }
  unsigned short* means(unsigned int frames) {
    const kernels::KernelTable& kernel = kernels::active();
    if (!isInUse())
      std::fill_n(m_means.get(), m_pixels, static_cast<unsigned short>(0));
    else if (m_totalUsed)
      kernel.meansOfSums(m_recent.get(), m_total.get(), m_means.get(), m_pixels, frames);
    else
      kernel.meansOfRecentSums(m_recent.get(), m_means.get(), m_pixels, frames);
    return m_means.get();
  }
  unsigned short* zeros() { return m_means.get(); }
  void forget() { m_recentUsed = m_totalUsed = false; }

 private:
  unsigned long m_pixels;
  Zeroed<unsigned int> m_recent;
  Zeroed<unsigned long> m_total;
  Zeroed<unsigned short> m_means;
  bool m_recentUsed = false;
  bool m_totalUsed = false;
};

}  // namespace

/// What a stack has of both gains.
class StackSums {
 public:
  explicit StackSums(unsigned long pixels) : low(pixels), high(pixels) {}

  bool hasMemory() const { return low.hasMemory() && high.hasMemory(); }
  void countFrame() {
    if (++recentFrames < mostRecentFrames) return;
    low.emptyRecent();
    high.emptyRecent();
    recentFrames = 0;
  }
  void forget() {
    recentFrames = 0;
    low.forget();
    high.forget();
  }

  PlaneSum low, high;
  unsigned int recentFrames = 0;  ///< in the 32-bit sums
  bool highMeansUsed = false;     ///< handed out or written; until then they are zeros
};

}  // namespace orvacam

static constexpr const char* stackNextFrame = "StackNextFrame";

/// Adds a frame's planes, of which the high-gain one may be null. One of another size is logged.
template <typename Pixel>
static int addFrame(orvacam::StackSums* sums, const Pixel* low, const unsigned short* high,
                    unsigned long pixels, const wchar_t* mismatch, CLog& log, unsigned int& frames) {
  if (low == nullptr || sums == nullptr) return -1;
  if (pixels != sums->low.pixels()) {
    log.log(CLOGLEVEL_ERROR, mismatch, stackNextFrame, static_cast<int>(pixels),
            static_cast<long long>(sums->low.pixels()));
    return -1;
  }
  sums->low.add(low);
  if (high != nullptr) sums->high.add(high);
  sums->countFrame();
  ++frames;
  return 0;
}

CStacker::CStacker()
    : m_uiNumPixels(0),
      m_pMetaDataBuffer(nullptr),
      m_uiMetaDataBufferSize(0),
      m_uiNumFrames(0),
      m_pLog(CLog::getInstance()) {}

CStacker::~CStacker() {
  FreeBuffers();
}

int CStacker::Initialize(unsigned long ulNumPixels) {
  Deinitialize();
  m_pSums.reset(new (std::nothrow) orvacam::StackSums(ulNumPixels));
  if (m_pSums == nullptr || !m_pSums->hasMemory()) {
    m_pSums.reset();
    return -1;
  }
  m_uiNumPixels = ulNumPixels;
  return 0;
}

int CStacker::StackNextFrame(const unsigned char* pFrame, unsigned long ulNumPixels) {
  return addFrame(m_pSums.get(), pFrame, nullptr, ulNumPixels,
                  L"%s8: uiNumPixels= %d != m_uiNumPixels= %lld\n", *m_pLog, m_uiNumFrames);
}

int CStacker::StackNextFrame(const unsigned short* pFrame, unsigned long ulNumPixels) {
  return addFrame(m_pSums.get(), pFrame, nullptr, ulNumPixels,
                  L"%s16: uiNumPixels= %d != m_uiNumPixels= %lld\n", *m_pLog, m_uiNumFrames);
}

int CStacker::StackNextFrame(const unsigned short* pLow, const unsigned short* pHigh,
                             unsigned long ulNumPixels) {
  if (pLow == nullptr) m_pLog->log(CLOGLEVEL_ERROR, L"%s: No Source frame provided!\n", stackNextFrame);
  return addFrame(m_pSums.get(), pLow, pHigh, ulNumPixels, L"%sLH: uiNumPixels= %d != m_uiNumPixels= %lld\n",
                  *m_pLog, m_uiNumFrames);
}

int CStacker::Finish(unsigned short** ppLow, unsigned short** ppHigh, unsigned int* puiNumPixels) {
  if (m_pSums == nullptr || puiNumPixels == nullptr) return -1;
  *puiNumPixels = static_cast<unsigned int>(m_uiNumPixels);
  orvacam::StackSums& sums = *m_pSums;
  unsigned short* const low = sums.low.means(m_uiNumFrames);
  // Until somebody has seen or written the high-gain means they are zeros already.
  unsigned short* const high =
      sums.high.isInUse() || sums.highMeansUsed ? sums.high.means(m_uiNumFrames) : sums.high.zeros();
  sums.highMeansUsed = sums.highMeansUsed || sums.high.isInUse() || ppHigh != nullptr;
  if (ppLow != nullptr) *ppLow = low;
  if (ppHigh != nullptr) *ppHigh = high;
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
    std::free(m_pMetaDataBuffer);
    m_pMetaDataBuffer = static_cast<unsigned char*>(std::calloc(size, 1));
    m_uiMetaDataBufferSize = m_pMetaDataBuffer != nullptr ? size : 0;
    if (m_pMetaDataBuffer == nullptr) return -1;
  }
  orvacam::describePlane(m_MetaData, false);
  m_MetaData.SetIsStackedFrame(true);
  m_MetaData.Binarize(m_pMetaDataBuffer, size);
  *ppMeta = m_pMetaDataBuffer;
  if (puiLength != nullptr) *puiLength = size;
  return result;
}

void CStacker::ResetStack() {
  m_uiNumFrames = 0;
  if (m_pSums != nullptr) m_pSums->forget();
}

void CStacker::Deinitialize() {
  FreeBuffers();
  m_uiNumPixels = 0;
  m_uiNumFrames = 0;
}

void CStacker::FreeBuffers() {
  std::free(m_pMetaDataBuffer);
  m_pMetaDataBuffer = nullptr;
  m_uiMetaDataBufferSize = 0;
  m_pSums.reset();
}
