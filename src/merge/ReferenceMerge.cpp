#include "merge/ReferenceMerge.h"

#include <algorithm>
#include <exception>
#include <limits>

#include "imagefiles/ImageFormats.h"

namespace orvacam {

namespace {

// Where the integer kernels are exact; other fraction bits go by the rule in doubles.
constexpr unsigned int mostAddFracBits = 15;
constexpr unsigned int mostMulFracBits = 16;

/// Never made: names the members that a class derived from the merge may name.
class Members : public CHWMergeReferenceFrames {
 public:
  static ReferenceMerge of(CHWMergeReferenceFrames& algorithm) {
    const auto terms = [&](WhichTerms which, double identity, unsigned int fractionBits) -> ReferencePlane {
      const TermSlot slot = slotAt(algorithm, which);
      const unsigned short uniform = slot.made ? slot.uniform : ConvertToFixedPoint(identity, fractionBits);
      if (slot.values == nullptr) return {nullptr, 0, uniform};
      return {slot.values->terms.data(), slot.values->terms.size(), uniform};
    };
    const unsigned int addBits = algorithm.*&Members::m_uiAddFracBits;
    const unsigned int mulBits = algorithm.*&Members::m_uiMulFracBits;
    return {{addBits, mulBits, algorithm.*&Members::m_usHighThreshold,
             algorithm.*&Members::m_usDifferenceThreshold, algorithm.ConvertMergeType()},
            terms(AdditiveLow, 0.0, addBits),
            terms(AdditiveHigh, 0.0, addBits),
            terms(MultiplicativeLow, 1.0, mulBits),
            terms(MultiplicativeHigh, 1.0, mulBits),
            algorithm.*&Members::m_uiWidth,
            algorithm.*&Members::m_uiHeight,
            algorithm.*&Members::m_uiMergeStartRowOffset,
            algorithm.*&Members::m_pBiasLow != nullptr || algorithm.*&Members::m_pBiasHigh != nullptr,
            &(algorithm.*&Members::m_MergedStatistics)};
  }
  static TermSlot slotAt(CHWMergeReferenceFrames& algorithm, WhichTerms which) {
    return {(algorithm.*&Members::m_pTerms)[which], (algorithm.*&Members::m_usUniformTerms)[which],
            (algorithm.*&Members::m_bTermsMade)[which], algorithm.*&Members::m_bIdentityFrames,
            algorithm.*&Members::m_bCallerFrames};
  }
  static bool swapped(const CHWMergeReferenceFrames& algorithm) {
    return algorithm.*&Members::m_bByteSwapped;
  }
};

}  // namespace

ReferenceMerge handOut(CHWMergeReferenceFrames& algorithm) {
  return Members::of(algorithm);
}

TermSlot slotOf(CHWMergeReferenceFrames& algorithm, WhichTerms which) {
  return Members::slotAt(algorithm, which);
}

std::uint64_t ReferenceMerge::termsAvailable() const {
  const std::uint64_t start = startRow * width;
  std::uint64_t available = std::numeric_limits<std::uint64_t>::max();
  for (const ReferencePlane* terms : {&additiveLow, &additiveHigh, &multiplicativeLow, &multiplicativeHigh})
    if (terms->values != nullptr)
      available = std::min(available, terms->count > start ? terms->count - start : 0);
  return available;
}

/// Intended: from the image's first row on, also of identity frames, which are then too small.
std::uint64_t ReferenceMerge::pixelsAvailable() const {
  return std::min((height - startRow) * width, termsAvailable());
}

bool ReferenceMerge::fitsKernels() const {
  return rule.additiveFractionBits <= mostAddFracBits && rule.multiplicativeFractionBits <= mostMulFracBits;
}

void ReferenceMerge::takeTerms(MergeTerms& terms) const {
  terms.rule = rule;
  terms.isUniform = additiveLow.values == nullptr && additiveHigh.values == nullptr &&
                    multiplicativeLow.values == nullptr && multiplicativeHigh.values == nullptr;
  if (terms.isUniform) {
    terms.uniform = {static_cast<short>(additiveLow.uniform), static_cast<short>(additiveHigh.uniform),
                     multiplicativeLow.uniform, multiplicativeHigh.uniform};
    return;
  }
  const std::uint64_t start = startRow * width;
  terms.additiveLow.take(additiveLow, start);
  terms.additiveHigh.take(additiveHigh, start);
  terms.multiplicativeLow.take(multiplicativeLow, start);
  terms.multiplicativeHigh.take(multiplicativeHigh, start);
}

int finishMergedFrame(CHWMergeReferenceFrames& algorithm, unsigned short* merged, unsigned long pixels) try {
  hw_merge_enables_t enables{};
  algorithm.GetMergeEnables(enables);
  unsigned int leading = 0;
  unsigned int trailing = 0;
  algorithm.GetMergeHeaderSize(static_cast<ORVA_IMAGE_FORMAT>(enables.uiImageFormat), pixels, 16, leading,
                               trailing);
  const bool swapped = Members::swapped(algorithm);
  CFrameMetaData& metaData = algorithm.GetMetaData();
  metaData.SetBitsPerPixel(16);
  metaData.SetHDRFrame(false);
  metaData.SetPixelEndianFormat(!swapped);
  return std::min(imageFormatOf(enables.uiImageFormat).finish(merged, leading, pixels, metaData, swapped), 0);
} catch (const std::exception&) {
  return -1;
}

}  // namespace orvacam
