// The merge by the camera's own rule.

#include <orvacam/merge/CHWMergeReferenceFrames.h>
#include <orvacam/support/CLog.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <limits>

#include "imagefiles/ImageFormats.h"
#include "kernels/Kernels.h"
#include "merge/FrameRegions.h"
#include "merge/ReferenceMerge.h"

namespace {

namespace kernels = orvacam::kernels;
using orvacam::ReferenceMerge;

constexpr const char* mergeFrames = "MergeFrames";
/// Whether output as large as this is better written past the caches: pixels that stand in it as pixels, and
/// none of which is read again.
bool isWorthStreaming(const unsigned char* output, const void* low, const void* high, unsigned long pixels) {
  const unsigned long bytes = sizeof(unsigned short) * pixels;
  const auto begin = reinterpret_cast<std::uintptr_t>(output);
  const auto apart = [=](const void* input) {
    const auto other = reinterpret_cast<std::uintptr_t>(input);
    return begin + bytes <= other || other + bytes <= begin;
  };
  return bytes >= kernels::streamFromBytes && begin % alignof(unsigned short) == 0 && apart(low) &&
         apart(high);
}

}  // namespace

// ---- One pixel

unsigned short CHWMergeReferenceFrames::LimitPixel(double dValue) {
  if (!(dValue > 0.0)) return MERGEREF_MIN_PIXEL_VALUE;
  if (dValue > MERGEREF_MAX_PIXEL16_VALUE) return MERGEREF_MAX_PIXEL16_VALUE;
  return static_cast<unsigned short>(std::round(dValue));
}

double CHWMergeReferenceFrames::PositiveIntMax(unsigned int uiFracBits) {
  // 2^(15 - f) - 1 / 2^f. Intended: 0 for more than 15 bits, so that every corrected pixel is 0.
  return uiFracBits > 15 ? 0.0 : std::ldexp(32767.0, -static_cast<int>(uiFracBits));
}

unsigned short CHWMergeReferenceFrames::CorrectPixel(unsigned short usPixel, double dAdd, double dMul,
                                                     double dMax) const {
  const double sum = std::max(std::min(usPixel + dAdd, dMax), 0.0);
  return LimitPixel(sum * dMul);
}

unsigned short CHWMergeReferenceFrames::CorrectPixel(unsigned short usPixel, short sAddFixed,
                                                     unsigned short usMulFixed, double dMax) const {
  return CorrectPixel(usPixel, ConvertToDouble(sAddFixed, m_uiAddFracBits),
                      ConvertToDouble(usMulFixed, m_uiMulFracBits), dMax);
}

unsigned int CHWMergeReferenceFrames::ConvertMergeType() const {
  const unsigned int type = m_MergeEnables.uiMergeType;
  return type == 1 || type == 2 ? type : 0;
}

unsigned int CHWMergeReferenceFrames::ConvertMergeType(unsigned int uiEnableBits) {
  return (uiEnableBits & 8) != 0 ? 1 : (uiEnableBits & 16) != 0 ? 2 : 0;
}

// ---- Runs of pixels

namespace {

/// What a merge takes and where it goes.
struct MergePlanes {
  const unsigned short* low;
  const unsigned short* high;
  unsigned char* merged;
  unsigned long pixels;
};

void mergeInDoubles(const CHWMergeReferenceFrames& algorithm, const ReferenceMerge& by,
                    const MergePlanes& planes, unsigned short* target, unsigned long first,
                    unsigned long count) {
  const double max = CHWMergeReferenceFrames::PositiveIntMax(by.rule.additiveFractionBits);
  const unsigned long offset = by.startRow * by.width;
  for (unsigned long i = first; i < first + count; ++i) {
    const auto corrected = [&](unsigned short pixel, orvacam::WhichTerms add, orvacam::WhichTerms mul) {
      return int{algorithm.CorrectPixel(pixel, static_cast<short>(by.terms[add].at(i + offset)),
                                        by.terms[mul].at(i + offset), max)};
    };
    const int low = corrected(planes.low[i], orvacam::AdditiveLow, orvacam::MultiplicativeLow);
    const int high = corrected(planes.high[i], orvacam::AdditiveHigh, orvacam::MultiplicativeHigh);
    const bool takeLow =
        by.rule.type == 1 ||
        (by.rule.type != 2 && (high >= by.rule.highThreshold || low - high > by.rule.differenceThreshold));
    target[i - first] = static_cast<unsigned short>(takeLow ? low : high);
  }
}

/// Merges, no farther than there are terms. With metadata, statistics are gathered of their image region.
void mergePlanes(const CHWMergeReferenceFrames& algorithm, const ReferenceMerge& by, MergePlanes planes,
                 const CFrameMetaData* counted) {
  planes.pixels = std::min<unsigned long>(planes.pixels, by.termsAvailable());
  const auto mergeAll = [&](const auto& mergeRun) {
    if (counted != nullptr)
      orvacam::mergeRegions(orvacam::FrameRegions(*counted), planes.merged, planes.pixels, mergeRun,
                            *by.statistics);
    else
      orvacam::mergeAndCount(planes.merged, 0, planes.pixels, mergeRun, nullptr, 0, 0);
  };
  if (!by.fitsKernels()) {
    mergeAll([&](unsigned long first, unsigned long count, unsigned short* target) {
      mergeInDoubles(algorithm, by, planes, target, first, count);
    });
    return;
  }
  const kernels::KernelTable& kernel = kernels::active();
  const bool streaming =
      counted == nullptr && isWorthStreaming(planes.merged, planes.low, planes.high, planes.pixels);
  orvacam::MergeTerms terms;
  by.takeTerms(terms);
  if (terms.isUniform) {
    const auto merge = streaming ? kernel.mergeUniformStreaming : kernel.mergeUniform;
    mergeAll([&](unsigned long first, unsigned long count, unsigned short* target) {
      merge(planes.low + first, planes.high + first, target, count, terms.rule, terms.uniform);
    });
  } else {
    const auto merge = streaming ? kernel.mergePlanesStreaming : kernel.mergePlanes;
    mergeAll([&](unsigned long first, unsigned long count, unsigned short* target) {
      merge(planes.low + first, planes.high + first, target, count, terms.rule, terms.planesAt(first));
    });
  }
  if (streaming) kernel.finishStreaming();
}

}  // namespace

void CHWMergeReferenceFrames::MergeNoStats(unsigned short* pLow, unsigned short* pHigh,
                                           unsigned short* pMerged, unsigned long ulNumPixels) {
  if (pLow == nullptr || pHigh == nullptr || pMerged == nullptr) return;
  mergePlanes(*this, orvacam::handOut(*this),
              {pLow, pHigh, reinterpret_cast<unsigned char*>(pMerged), ulNumPixels}, nullptr);
}

void CHWMergeReferenceFrames::MergeWithStats(unsigned short* pLow, unsigned short* pHigh,
                                             unsigned short* pMerged, unsigned long ulNumPixels) {
  m_MergedStatistics.Reset();
  if (pLow == nullptr || pHigh == nullptr || pMerged == nullptr) return;
  mergePlanes(*this, orvacam::handOut(*this),
              {pLow, pHigh, reinterpret_cast<unsigned char*>(pMerged), ulNumPixels}, &m_MetaData);
}

// ---- Frames

int CHWMergeReferenceFrames::MergeFrames(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                                         unsigned long ulNumPixels) {
  if (pLow == nullptr || pHigh == nullptr || pMerged == nullptr) return -1;
  if (m_bMergedStatistics) m_MergedStatistics.Reset();  // a refused merge has none
  const auto width = static_cast<unsigned int>(m_uiWidth);
  const auto height = static_cast<unsigned int>(m_uiHeight);
  if (m_uiMergeStartRowOffset != 0 && m_uiMergeStartRowOffset >= m_uiHeight) {
    m_pLog->log(
        CLOGLEVEL_WARNING,
        L"%s: m_uiMergeStartRowOffset: %d, larger than m_uiHeight: %d, m_uiWidth= %d. Setting to 0.\n",
        mergeFrames, m_uiMergeStartRowOffset, height, width);
    m_uiMergeStartRowOffset = 0;
  }
  const ReferenceMerge by = orvacam::handOut(*this);
  if (by.pixelsAvailable() < ulNumPixels) {
    // Intended: success without a merged image, and "recieved" in the text.
    m_pLog->log(CLOGLEVEL_ERROR,
                L"%s: The reference frames are smaller than then recieved image. Can not merge.\n",
                mergeFrames);
    m_pLog->log(CLOGLEVEL_ERROR,
                L"%s: m_uiWidth: %d, m_uiHeight: %d, m_uiMergeStartRowOffset: %d, image pixels: %d\n",
                mergeFrames, width, height, m_uiMergeStartRowOffset, static_cast<int>(ulNumPixels));
    return 0;
  }
  unsigned int leading = 0;
  unsigned int trailing = 0;
  GetMergeHeaderSize(static_cast<ORVA_IMAGE_FORMAT>(m_MergeEnables.uiImageFormat), ulNumPixels, 16, leading,
                     trailing);
  mergePlanes(*this, by, {pLow, pHigh, reinterpret_cast<unsigned char*>(pMerged) + leading, ulNumPixels},
              m_bMergedStatistics ? &m_MetaData : nullptr);
  return orvacam::finishMergedFrame(*this, pMerged, ulNumPixels);
}

int CHWMergeReferenceFrames::MergeFrames(unsigned short* pLow, unsigned short* pHigh, unsigned int uiWidth,
                                         unsigned int uiHeight, unsigned int /*uiUnused*/) try {
  if (pLow == nullptr || pHigh == nullptr || uiWidth != m_uiWidth || uiHeight != m_uiHeight) return -1;
  const unsigned long pixels = m_uiWidth * m_uiHeight;
  m_TestLow.assign(pLow, pLow + pixels);
  m_TestHigh.assign(pHigh, pHigh + pixels);
  m_TestMerged.assign(pixels, 0);
  MergeNoStats(m_TestLow.data(), m_TestHigh.data(), m_TestMerged.data(), pixels);
  return 0;
} catch (const std::exception&) {
  return -1;
}

void CHWMergeReferenceFrames::SetStartRowOffset(unsigned int uiRow) {
  m_uiMergeStartRowOffset = uiRow;
}

int CHWMergeReferenceFrames::GetSourcePixels(unsigned int uiIndex, unsigned short& usLow,
                                             unsigned short& usHigh) const {
  if (uiIndex >= m_uiWidth * m_uiHeight) return -1;
  if (uiIndex < m_TestLow.size()) usLow = m_TestLow[uiIndex];
  if (uiIndex < m_TestHigh.size()) usHigh = m_TestHigh[uiIndex];
  return 0;
}

void CHWMergeReferenceFrames::GetMergeThresholds(unsigned short& usHigh, unsigned short& usDifference) const {
  usHigh = m_usHighThreshold;
  usDifference = m_usDifferenceThreshold;
}

void CHWMergeReferenceFrames::SetMergeThresholds(unsigned short usHigh, unsigned short usDifference) {
  m_usHighThreshold = usHigh;
  m_usDifferenceThreshold = usDifference;
}
