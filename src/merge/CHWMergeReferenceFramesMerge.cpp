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
#include "merge/MergeTerms.h"

namespace {

namespace kernels = orvacam::kernels;

constexpr const char* mergeFrames = "MergeFrames";
// Where the integer kernels are exact; other fraction bits go by the rule in doubles.
constexpr unsigned int mostAddFracBits = 15;
constexpr unsigned int mostMulFracBits = 16;

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
// -----------------------------------------------------------------------------------------------

unsigned short CHWMergeReferenceFrames::LimitPixel(double dValue) {
  if (!(dValue > 0.0)) return MERGEREF_MIN_PIXEL_VALUE;
  if (dValue > MERGEREF_MAX_PIXEL16_VALUE) return MERGEREF_MAX_PIXEL16_VALUE;
  return static_cast<unsigned short>(std::round(dValue));
}

double CHWMergeReferenceFrames::PositiveIntMax(unsigned int uiFracBits) {
  // 2^(15 - f) - 1 / 2^f
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

unsigned short CHWMergeReferenceFrames::DoTerm(PlaneIndex ePlane, unsigned long ulPosition) const {
  const Plane& plane = m_Planes[ePlane];
  if (!plane.values.empty()) return plane.values[ulPosition];
  if (plane.bLoaded) return plane.usUniform;
  return ePlane <= AdditiveHigh ? static_cast<unsigned short>(0) : ConvertToFixedPoint(1.0, m_uiMulFracBits);
}

// ---- Runs of pixels
// ------------------------------------------------------------------------------------------

/// Pixels, from the start row on, for which every plane has terms.
unsigned long CHWMergeReferenceFrames::DoTermsAvailable() const {
  const unsigned long start = m_uiMergeStartRowOffset * m_uiWidth;
  unsigned long available = std::numeric_limits<unsigned long>::max();
  for (const Plane& plane : m_Planes)
    if (!plane.values.empty())
      available = std::min(available, plane.values.size() > start ? plane.values.size() - start : 0);
  return available;
}

/// Pixels, from a start row within the frames on, that can be merged.
unsigned long CHWMergeReferenceFrames::DoPixelsAvailable() const {
  return std::min((m_uiHeight - m_uiMergeStartRowOffset) * m_uiWidth, DoTermsAvailable());
}

void CHWMergeReferenceFrames::DoMergeInDoubles(const unsigned short* pLow, const unsigned short* pHigh,
                                               unsigned short* pMerged, unsigned long ulFirst,
                                               unsigned long ulCount) const {
  const double max = PositiveIntMax(m_uiAddFracBits);
  const unsigned int type = ConvertMergeType();
  const unsigned long offset = m_uiMergeStartRowOffset * m_uiWidth;
  for (unsigned long i = ulFirst; i < ulFirst + ulCount; ++i) {
    const int low = CorrectPixel(pLow[i], static_cast<short>(DoTerm(AdditiveLow, i + offset)),
                                 DoTerm(MultiplicativeLow, i + offset), max);
    const int high = CorrectPixel(pHigh[i], static_cast<short>(DoTerm(AdditiveHigh, i + offset)),
                                  DoTerm(MultiplicativeHigh, i + offset), max);
    const bool takeLow =
        type == 1 || (type != 2 && (high >= m_usHighThreshold || low - high > m_usDifferenceThreshold));
    pMerged[i - ulFirst] = static_cast<unsigned short>(takeLow ? low : high);
  }
}

/// Whether the kernels' integers give what the rule in doubles does.
bool CHWMergeReferenceFrames::DoFitsKernels() const {
  return m_uiAddFracBits <= mostAddFracBits && m_uiMulFracBits <= mostMulFracBits;
}

void CHWMergeReferenceFrames::DoTakeTerms(orvacam::MergeTerms& terms) const {
  terms.rule = {m_uiAddFracBits, m_uiMulFracBits, m_usHighThreshold, m_usDifferenceThreshold,
                ConvertMergeType()};
  terms.isUniform = std::all_of(std::begin(m_Planes), std::end(m_Planes),
                                [](const Plane& plane) { return plane.values.empty(); });
  if (terms.isUniform) {
    terms.uniform = {static_cast<short>(DoTerm(AdditiveLow, 0)), static_cast<short>(DoTerm(AdditiveHigh, 0)),
                     DoTerm(MultiplicativeLow, 0), DoTerm(MultiplicativeHigh, 0)};
    return;
  }
  const unsigned long start = m_uiMergeStartRowOffset * m_uiWidth;
  const auto take = [&](PlaneIndex plane, orvacam::PlaneOfTerms& target) {
    const auto& values = m_Planes[plane].values;
    target.take(values, start, values.empty() ? DoTerm(plane, 0) : static_cast<unsigned short>(0));
  };
  take(AdditiveLow, terms.additiveLow);
  take(AdditiveHigh, terms.additiveHigh);
  take(MultiplicativeLow, terms.multiplicativeLow);
  take(MultiplicativeHigh, terms.multiplicativeHigh);
}

void CHWMergeReferenceFrames::DoMerge(const unsigned short* pLow, const unsigned short* pHigh,
                                      unsigned char* pMerged, unsigned long ulNumPixels, bool bStatistics) {
  if (bStatistics) m_MergedStatistics.Reset();
  if (pLow == nullptr || pHigh == nullptr || pMerged == nullptr) return;
  const unsigned long pixels = std::min(ulNumPixels, DoTermsAvailable());
  const auto mergeAll = [&](const auto& mergeRun) {
    if (bStatistics)
      orvacam::mergeRegions(orvacam::FrameRegions(m_MetaData), pMerged, pixels, mergeRun, m_MergedStatistics);
    else
      orvacam::mergeAndCount(pMerged, 0, pixels, mergeRun, nullptr, 0, 0);
  };
  if (!DoFitsKernels()) {
    mergeAll([&](unsigned long first, unsigned long count, unsigned short* target) {
      DoMergeInDoubles(pLow, pHigh, target, first, count);
    });
    return;
  }

  const kernels::KernelTable& kernel = kernels::active();
  const bool streaming = !bStatistics && isWorthStreaming(pMerged, pLow, pHigh, pixels);
  orvacam::MergeTerms terms;
  DoTakeTerms(terms);
  if (terms.isUniform) {
    const auto merge = streaming ? kernel.mergeUniformStreaming : kernel.mergeUniform;
    mergeAll([&](unsigned long first, unsigned long count, unsigned short* target) {
      merge(pLow + first, pHigh + first, target, count, terms.rule, terms.uniform);
    });
  } else {
    const auto merge = streaming ? kernel.mergePlanesStreaming : kernel.mergePlanes;
    mergeAll([&](unsigned long first, unsigned long count, unsigned short* target) {
      merge(pLow + first, pHigh + first, target, count, terms.rule, terms.planesAt(first));
    });
  }
  if (streaming) kernel.finishStreaming();
}

void CHWMergeReferenceFrames::MergeNoStats(unsigned short* pLow, unsigned short* pHigh,
                                           unsigned short* pMerged, unsigned long ulNumPixels) {
  DoMerge(pLow, pHigh, reinterpret_cast<unsigned char*>(pMerged), ulNumPixels, false);
}

void CHWMergeReferenceFrames::MergeWithStats(unsigned short* pLow, unsigned short* pHigh,
                                             unsigned short* pMerged, unsigned long ulNumPixels) {
  DoMerge(pLow, pHigh, reinterpret_cast<unsigned char*>(pMerged), ulNumPixels, true);
}

// ---- Frames
// --------------------------------------------------------------------------------------------------

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
  if (DoPixelsAvailable() < ulNumPixels) {
    // Intended: success without a merged image.
    m_pLog->log(CLOGLEVEL_ERROR,
                L"%s: The reference frames are smaller than then recieved image. Can not merge.\n",
                mergeFrames);
    m_pLog->log(CLOGLEVEL_ERROR,
                L"%s: m_uiWidth: %d, m_uiHeight: %d, m_uiMergeStartRowOffset: %d, image pixels: %d\n",
                mergeFrames, width, height, m_uiMergeStartRowOffset, static_cast<int>(ulNumPixels));
    return 0;
  }
  DoMerge(pLow, pHigh, reinterpret_cast<unsigned char*>(pMerged) + DoLeadingBytes(ulNumPixels), ulNumPixels,
          m_bMergedStatistics);
  return DoFinishFrame(pMerged, ulNumPixels);
}

/// Bytes of image file header ahead of the merged pixels.
unsigned int CHWMergeReferenceFrames::DoLeadingBytes(unsigned long ulNumPixels) {
  unsigned int leading = 0;
  unsigned int trailing = 0;
  GetMergeHeaderSize(static_cast<ORVA_IMAGE_FORMAT>(m_MergeEnables.uiImageFormat), ulNumPixels, 16, leading,
                     trailing);
  return leading;
}

/// What follows the merge of a frame's pixels: its metadata describe the merged plane, whose header is
/// written.
int CHWMergeReferenceFrames::DoFinishFrame(unsigned short* pMerged, unsigned long ulNumPixels) try {
  const unsigned int leading = DoLeadingBytes(ulNumPixels);
  m_MetaData.SetBitsPerPixel(16);
  m_MetaData.SetHDRFrame(false);
  m_MetaData.SetPixelEndianFormat(!m_bByteSwapped);
  const orvacam::ImageFormat& format = orvacam::imageFormatOf(m_MergeEnables.uiImageFormat);
  return std::min(format.finish(pMerged, leading, ulNumPixels, m_MetaData, m_bByteSwapped), 0);
} catch (const std::exception&) {
  return -1;
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
