#include "merge/ReferenceMerge.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <limits>

#include "imagefiles/ImageFormats.h"
#include "metadata/Values.h"

namespace orvacam {

namespace {

// Where the integer kernels are exact; other fraction bits go by the rule in doubles.
constexpr unsigned int mostAddFracBits = 15;
constexpr unsigned int mostMulFracBits = 16;

/// Never made: names the members that a class derived from the merge may name.
class Members : public CHWMergeReferenceFrames {
 public:
  static ReferenceMerge of(CHWMergeReferenceFrames& algorithm) {
    const unsigned int addBits = algorithm.*&Members::m_uiAddFracBits;
    const unsigned int mulBits = algorithm.*&Members::m_uiMulFracBits;
    const auto terms = [&](WhichTerms which) -> ReferencePlane {
      const TermSlot slot = slotAt(algorithm, which);
      const bool additive = which == AdditiveLow || which == AdditiveHigh;
      const unsigned short identity =
          additive ? ConvertToFixedPoint(0.0, addBits) : ConvertToFixedPoint(1.0, mulBits);
      const unsigned short uniform = slot.made ? slot.uniform : identity;
      if (slot.values == nullptr) return {nullptr, 0, uniform};
      return {slot.values->terms.data(), slot.values->terms.size(), uniform};
    };
    return {{addBits, mulBits, algorithm.*&Members::m_usHighThreshold,
             algorithm.*&Members::m_usDifferenceThreshold, algorithm.ConvertMergeType()},
            {terms(AdditiveLow), terms(AdditiveHigh), terms(MultiplicativeLow), terms(MultiplicativeHigh)},
            algorithm.*&Members::m_uiWidth,
            algorithm.*&Members::m_uiHeight,
            algorithm.*&Members::m_uiMergeStartRowOffset,
            algorithm.*&Members::m_pBiasLow != nullptr || algorithm.*&Members::m_pBiasHigh != nullptr,
            algorithm.*&Members::m_bByteSwapped,
            &(algorithm.*&Members::m_MergedStatistics)};
  }
  static TermSlot slotAt(CHWMergeReferenceFrames& algorithm, WhichTerms which) {
    return {(algorithm.*&Members::m_pTerms)[which], (algorithm.*&Members::m_usUniformTerms)[which],
            (algorithm.*&Members::m_bTermsMade)[which], algorithm.*&Members::m_bIdentityFrames,
            algorithm.*&Members::m_bCallerFrames};
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
  for (const ReferencePlane& plane : terms)
    if (plane.values != nullptr)
      available = std::min(available, plane.count > start ? plane.count - start : 0);
  return available;
}

/// Intended: from the image's first row on, also of identity frames, which are then too small.
std::uint64_t ReferenceMerge::pixelsAvailable() const {
  return std::min((height - startRow) * width, termsAvailable());
}

bool ReferenceMerge::fitsKernels() const {
  return rule.additiveFractionBits <= mostAddFracBits && rule.multiplicativeFractionBits <= mostMulFracBits;
}

void ReferenceMerge::takeTerms(MergeTerms& taken) const {
  taken.rule = rule;
  taken.uniform = {static_cast<short>(terms[AdditiveLow].uniform),
                   static_cast<short>(terms[AdditiveHigh].uniform), terms[MultiplicativeLow].uniform,
                   terms[MultiplicativeHigh].uniform};
  taken.isUniform = std::all_of(std::begin(terms), std::end(terms),
                                [](const ReferencePlane& plane) { return plane.values == nullptr; });
  for (unsigned int which = 0; which < allTerms && !taken.isUniform; ++which)
    taken.planes[which].take(terms[which], startRow * width);
}

int finishMergedFrame(CHWMergeReferenceFrames& algorithm, unsigned short* merged, unsigned long pixels) try {
  hw_merge_enables_t enables{};
  algorithm.GetMergeEnables(enables);
  unsigned int leading = 0;
  unsigned int trailing = 0;
  algorithm.GetMergeHeaderSize(static_cast<ORVA_IMAGE_FORMAT>(enables.uiImageFormat), pixels, 16, leading,
                               trailing);
  const bool swapped = handOut(algorithm).byteSwapped;
  CFrameMetaData& metaData = algorithm.GetMetaData();
  describePlane(metaData, swapped);
  return std::min(imageFormatOf(enables.uiImageFormat).finish(merged, leading, pixels, metaData, swapped), 0);
} catch (const std::exception&) {
  return -1;
}

}  // namespace orvacam
