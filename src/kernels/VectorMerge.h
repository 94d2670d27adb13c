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
  Register alwaysLow;  // no bits, or all
};

}  // namespace

static WideRule widened(const MergeRule& rule) {
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

/// c = min((s * m + half) >> (f + g), 65535). Product and half are below 2^32 together; the shifted result is
/// below 2^31, so that the saturating pack cuts it rightly.
static Register corrected(Register pixels, Register additive, Register multiplicative, const WideRule& rule) {
  const Register sum = sums(pixels, additive, rule.additiveFactor, rule.largestShiftable);
  const Products products = multiply16(sum, multiplicative);
  return packToLimit16(shiftRight32(add32(products.first, rule.half), rule.resultShift),
                       shiftRight32(add32(products.second, rule.half), rule.resultShift));
}

static Choice takesHigh(Register low, Register high, const WideRule& rule) {
  return takesHigh(low, high, rule.belowHighThreshold, rule.differenceThreshold, rule.alwaysLow);
}

// One set of terms for all pixels, or one for each: what the merge below asks of either.

static Register correctedLow(Register pixels, const UniformTerms& terms, std::size_t /*i*/,
                             const WideRule& rule) {
  return corrected(pixels, spread16(static_cast<std::uint16_t>(terms.additiveLow)),
                   spread16(terms.multiplicativeLow), rule);
}
static Register correctedHigh(Register pixels, const UniformTerms& terms, std::size_t /*i*/,
                              const WideRule& rule) {
  return corrected(pixels, spread16(static_cast<std::uint16_t>(terms.additiveHigh)),
                   spread16(terms.multiplicativeHigh), rule);
}
static void mergePlain(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                       std::size_t first, std::size_t end, const MergeRule& rule, const UniformTerms& terms) {
  loops::mergeUniform(low + first, high + first, merged + first, end - first, rule, terms);
}

/// Uniform terms whose results stay below 32768: one rounding multiplication does the rest. Its factors are
/// 2^15 instead of 2^(f + g) times what they stand for.
namespace {

struct SmallTerms {
  UniformTerms terms;
  std::uint32_t factorLow;
  std::uint32_t factorHigh;
};

}  // namespace

static bool fitsSmallTerms(const MergeRule& rule, const UniformTerms& terms, SmallTerms* small) {
  const std::uint32_t fraction = rule.additiveFractionBits + rule.multiplicativeFractionBits;
  if (fraction > 15) return false;
  *small = {terms, std::uint32_t{terms.multiplicativeLow} << (15 - fraction),
            std::uint32_t{terms.multiplicativeHigh} << (15 - fraction)};
  return small->factorLow <= 32767 && small->factorHigh <= 32767;
}

static Register correctedLow(Register pixels, const SmallTerms& small, std::size_t /*i*/,
                             const WideRule& rule) {
  const Register additive = spread16(static_cast<std::uint16_t>(small.terms.additiveLow));
  return multiplyRounded15(sums(pixels, additive, rule.additiveFactor, rule.largestShiftable),
                           spread16(small.factorLow));
}
static Register correctedHigh(Register pixels, const SmallTerms& small, std::size_t /*i*/,
                              const WideRule& rule) {
  const Register additive = spread16(static_cast<std::uint16_t>(small.terms.additiveHigh));
  return multiplyRounded15(sums(pixels, additive, rule.additiveFactor, rule.largestShiftable),
                           spread16(small.factorHigh));
}
static void mergePlain(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                       std::size_t first, std::size_t end, const MergeRule& rule, const SmallTerms& small) {
  mergePlain(low, high, merged, first, end, rule, small.terms);
}

static Register correctedLow(Register pixels, const PlaneTerms& terms, std::size_t i, const WideRule& rule) {
  return corrected(pixels, load(terms.additiveLow + i), load(terms.multiplicativeLow + i), rule);
}
static Register correctedHigh(Register pixels, const PlaneTerms& terms, std::size_t i, const WideRule& rule) {
  return corrected(pixels, load(terms.additiveHigh + i), load(terms.multiplicativeHigh + i), rule);
}
static void mergePlain(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                       std::size_t first, std::size_t end, const MergeRule& rule, const PlaneTerms& terms) {
  loops::mergePlanes(low + first, high + first, merged + first, end - first, rule,
                     {terms.additiveLow + first, terms.additiveHigh + first, terms.multiplicativeLow + first,
                      terms.multiplicativeHigh + first});
}

template <Stores stores, typename Terms>
static void merge(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                  std::size_t count, const MergeRule& rule, const Terms& given) {
  const WideRule wide = widened(rule);
  const Terms terms = given;  // a copy that the output cannot overlap
  const std::size_t ahead = stores == streaming ? pixelsToLine(merged) : 0;
  std::size_t i = ahead < count ? ahead : count;
  mergePlain(low, high, merged, 0, i, rule, terms);
  for (; i + lanes <= count; i += lanes) {
    const Register rightLow = correctedLow(load(low + i), terms, i, wide);
    const Register rightHigh = correctedHigh(load(high + i), terms, i, wide);
    put<stores>(merged + i, chosen(takesHigh(rightLow, rightHigh, wide), rightHigh, rightLow));
  }
  mergePlain(low, high, merged, i, count, rule, terms);
}

template <Stores stores>
static void mergeUniform(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                         std::size_t count, const MergeRule& rule, const UniformTerms& terms) {
  SmallTerms small;
  if (fitsSmallTerms(rule, terms, &small))
    merge<stores>(low, high, merged, count, rule, small);
  else
    merge<stores>(low, high, merged, count, rule, terms);
}

template <Stores stores>
static void mergePlanes(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const MergeRule& rule, const PlaneTerms& terms) {
  merge<stores>(low, high, merged, count, rule, terms);
}

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_MERGE_H
