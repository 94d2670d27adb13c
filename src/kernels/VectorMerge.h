#ifndef ORVACAM_SRC_KERNELS_VECTOR_MERGE_H
#define ORVACAM_SRC_KERNELS_VECTOR_MERGE_H

// A part of VectorKernels.h: the merge of planes.

#include "kernels/VectorRegisters.h"

namespace orvacam::kernels {

namespace {

/// The rule for all lanes.
struct WideRule {
  Register additiveFactor;  // 2^f
  Register largestShiftable;
  Bits additiveShift;    // f
  Register half;         // in 32-bit lanes
  Register resultShift;  // in 32-bit lanes
  Register belowHighThreshold;
  Register differenceThreshold;
  Register alwaysLow;  // all bits if the low-gain pixel is taken always, else none
};

}  // namespace

/// Always inline: a call would keep in memory whatever holds its result.
[[gnu::always_inline]] static inline WideRule widened(const MergeRule& rule) {
  const std::uint32_t fraction = rule.additiveFractionBits + rule.multiplicativeFractionBits;
  const bool neverLow = rule.type == 2;
  const bool alwaysLow = rule.type == 1 || (rule.highThreshold == 0 && !neverLow);
  constexpr std::uint32_t unreachable = 65535;
  const auto belowHighThreshold = static_cast<std::uint32_t>(rule.highThreshold - 1);
  return {spread16(1U << rule.additiveFractionBits),
          spread16(65535U >> rule.additiveFractionBits),
          shiftBy(rule.additiveFractionBits),
          spread32(fraction > 0 ? 1U << (fraction - 1) : 0),
          spread32(fraction),
          spread16(neverLow    ? unreachable
                   : alwaysLow ? 0
                               : belowHighThreshold),
          spread16(neverLow ? unreachable : static_cast<std::uint32_t>(rule.differenceThreshold)),
          spread16(alwaysLow ? 65535 : 0)};
}

/// c = min((s * m + half) >> (f + g), 65535), in 32 bits: s * m + half < 2^32. The pack takes its input as
/// signed, which the result, below 2^31, allows.
static Register corrected(Register pixels, Register additive, Register multiplicative, const WideRule& rule) {
  const Register sum = sums(pixels, additive, rule.additiveFactor, rule.largestShiftable);
  const Products products = multiply16(sum, multiplicative);
  return packToLimit16(shiftRight32(add32(products.first, rule.half), rule.resultShift),
                       shiftRight32(add32(products.second, rule.half), rule.resultShift));
}

static Choice takesHigh(Register low, Register high, const WideRule& rule) {
  return takesHigh(low, high, rule.belowHighThreshold, rule.differenceThreshold, rule.alwaysLow);
}

/// Terms of the pixels from i on.
template <typename Term>
static Register termsAt(Term ofAll, std::size_t /*i*/) {
  return spread16(static_cast<std::uint16_t>(ofAll));
}
template <typename Term>
static Register termsAt(const Term* terms, std::size_t i) {
  return load(terms + i);
}

namespace {

// What the correction of a register of pixels needs: `low` and `high` correct the pixels from i on of their
// plane.

template <typename Terms>
struct WideCorrector {
  WideRule rule;
  Terms terms;

  Register low(Register pixels, std::size_t i) const {
    return corrected(pixels, termsAt(terms.additiveLow, i), termsAt(terms.multiplicativeLow, i), rule);
  }
  Register high(Register pixels, std::size_t i) const {
    return corrected(pixels, termsAt(terms.additiveHigh, i), termsAt(terms.multiplicativeHigh, i), rule);
  }
};

/// Uniform terms whose results stay below 32768: one rounding multiplication does the rest. Its factors are
/// m << (15 - f - g).
struct SmallUniform {
  WideRule rule;
  UniformTerms terms;
  std::uint32_t factorLow;
  std::uint32_t factorHigh;

  Register low(Register pixels, std::size_t /*i*/) const {
    return corrected(pixels, terms.additiveLow, factorLow);
  }
  Register high(Register pixels, std::size_t /*i*/) const {
    return corrected(pixels, terms.additiveHigh, factorHigh);
  }
  Register corrected(Register pixels, std::int16_t additive, std::uint32_t factor) const {
    const Register sum = sums(pixels, termsAt(additive, 0), rule.additiveFactor, rule.largestShiftable);
    return multiplyRounded15(sum, spread16(factor));
  }
};

}  // namespace

static bool fitsSmallUniform(const MergeRule& rule, const UniformTerms& terms) {
  const std::uint32_t fraction = rule.additiveFractionBits + rule.multiplicativeFractionBits;
  return fraction <= 15 && std::uint32_t{terms.multiplicativeLow} << (15 - fraction) <= 32767 &&
         std::uint32_t{terms.multiplicativeHigh} << (15 - fraction) <= 32767;
}

static SmallUniform smallUniform(const MergeRule& rule, const UniformTerms& terms) {
  const std::uint32_t shift = 15 - rule.additiveFractionBits - rule.multiplicativeFractionBits;
  return {widened(rule), terms, std::uint32_t{terms.multiplicativeLow} << shift,
          std::uint32_t{terms.multiplicativeHigh} << shift};
}

/// The plain corrector is that of the ends, which are no whole registers.
template <Stores stores, typename Corrector, typename PlainCorrector>
static void merge(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                  std::size_t count, const Corrector& given, const PlainCorrector& plain) {
  const Corrector corrector = given;  // a copy that the output cannot overlap
  const std::size_t ahead = stores == streaming ? pixelsToLine(merged) : 0;
  std::size_t i = ahead < count ? ahead : count;
  loops::merge(low, high, merged, i, plain);
  for (; i + lanes <= count; i += lanes) {
    const Register rightLow = corrector.low(load(low + i), i);
    const Register rightHigh = corrector.high(load(high + i), i);
    put<stores>(merged + i, chosen(takesHigh(rightLow, rightHigh, corrector.rule), rightHigh, rightLow));
  }
  loops::merge(low + i, high + i, merged + i, count - i, plain.from(i));
}

template <Stores stores>
static void mergeUniform(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                         std::size_t count, const MergeRule& rule, const UniformTerms& terms) {
  const loops::Corrector<UniformTerms> plain = {rule, terms};
  if (fitsSmallUniform(rule, terms))
    merge<stores>(low, high, merged, count, smallUniform(rule, terms), plain);
  else
    merge<stores>(low, high, merged, count, WideCorrector<UniformTerms>{widened(rule), terms}, plain);
}

template <Stores stores>
static void mergePlanes(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const MergeRule& rule, const PlaneTerms& terms) {
  const loops::Corrector<PlaneTerms> plain = {rule, terms};
  merge<stores>(low, high, merged, count, WideCorrector<PlaneTerms>{widened(rule), terms}, plain);
}

static constexpr void putMerges(KernelTable& table) {
  ORVACAM_PUT_STORES(table, kernels, mergeUniform);
  ORVACAM_PUT_STORES(table, kernels, mergePlanes);
}

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_MERGE_H
