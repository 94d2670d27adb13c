#ifndef ORVACAM_SRC_MERGE_MERGE_TERMS_H
#define ORVACAM_SRC_MERGE_MERGE_TERMS_H

#include <algorithm>
#include <cstddef>

#include "kernels/Kernels.h"
#include "merge/FrameRegions.h"

namespace orvacam {

enum WhichTerms : unsigned int { AdditiveLow, AdditiveHigh, MultiplicativeLow, MultiplicativeHigh, allTerms };

/// The fixed-point terms of one plane: one each, or one for all.
struct ReferencePlane {
  const unsigned short* values = nullptr;  ///< bits of the terms; null when they are uniform
  std::size_t count = 0;
  unsigned short uniform = 0;

  unsigned short at(std::size_t position) const { return values != nullptr ? values[position] : uniform; }
};

/// One plane's correction terms, from the image's first pixel on. A plane of one value lends a block of it,
/// again and again.
class PlaneOfTerms {
 public:
  void take(const ReferencePlane& terms, std::size_t start) {
    if (terms.values == nullptr)
      std::fill_n(m_block, mergeBlock, terms.uniform);
    else
      m_values = terms.values + std::min(start, terms.count);
  }
  const unsigned short* at(unsigned long first) const {
    return m_values != nullptr ? m_values + first : m_block;
  }
  const short* signedAt(unsigned long first) const { return reinterpret_cast<const short*>(at(first)); }

 private:
  const unsigned short* m_values = nullptr;
  unsigned short m_block[mergeBlock];
};

/// The rule of a merge and the terms of its pixels, as the kernels take them.
struct MergeTerms {
  kernels::MergeRule rule;
  bool isUniform;  ///< one term a plane for all pixels: `uniform` holds them, else the four planes do
  kernels::UniformTerms uniform;
  PlaneOfTerms planes[allTerms];

  /// Terms of at most mergeBlock pixels from the image's pixel `first` on.
  kernels::PlaneTerms planesAt(unsigned long first) const {
    return {planes[AdditiveLow].signedAt(first), planes[AdditiveHigh].signedAt(first),
            planes[MultiplicativeLow].at(first), planes[MultiplicativeHigh].at(first)};
  }
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_MERGE_MERGE_TERMS_H
