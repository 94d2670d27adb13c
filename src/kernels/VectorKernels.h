#ifndef ORVACAM_SRC_KERNELS_VECTOR_KERNELS_H
#define ORVACAM_SRC_KERNELS_VECTOR_KERNELS_H

// The kernels over registers of pixels, and the table of them. A source for one instruction set defines
// Register and the operations on it, then includes this file, as its last. Everything is static, so that no
// function built for a new processor is linked into code for an old one.

#include "kernels/KernelLoops.h"
#include "kernels/Kernels.h"

namespace orvacam::kernels {

constexpr std::size_t lanes = sizeof(Register) / sizeof(std::uint16_t);

enum Stores { cached, streaming };

template <Stores stores>
static void put(std::uint16_t* target, Register pixels) {
  if (stores == streaming)
    stream(target, pixels);
  else
    store(target, pixels);
}

/// Pixels ahead of the first address that can be streamed to.
static std::size_t pixelsToAlignment(const std::uint16_t* target) {
  return (0 - reinterpret_cast<std::uintptr_t>(target)) % sizeof(Register) / sizeof *target;
}

// ---- 12-bit pairs

template <Stores stores>
static void unpackPairs(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  constexpr std::size_t pairsOfRegister = lanes / 2;
  if (pairs < pairsOfRegister) {
    loops::unpack12(packed, pixels, pairs);
    return;
  }
  std::size_t pair = 0;
  for (; pair + pairsOfRegister <= pairs; pair += pairsOfRegister)
    put<stores>(pixels + 2 * pair, unpacked(packed + 3 * pair));
  if (stores == streaming) {  // what was streamed is not touched again
    loops::unpack12(packed + 3 * pair, pixels + 2 * pair, pairs - pair);
  } else if (pair < pairs) {
    pair = pairs - pairsOfRegister;  // some of them once more
    store(pixels + 2 * pair, unpacked(packed + 3 * pair));
  }
}

static void unpack12Streaming(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  const std::size_t ahead = pixelsToAlignment(pixels);
  if (ahead % 2 != 0 || ahead / 2 > pairs) {  // whole pairs never meet the alignment
    unpackPairs<cached>(packed, pixels, pairs);
    return;
  }
  unpackPairs<cached>(packed, pixels, ahead / 2);
  unpackPairs<streaming>(packed + 3 * (ahead / 2), pixels + ahead, pairs - ahead / 2);
}

// ---- Merge

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
  const std::size_t ahead = stores == streaming ? pixelsToAlignment(merged) : 0;
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

// ---- Unpacking and merging in one go

namespace {

/// Smallest and largest pixels of each lane.
struct WideExtremes {
  Register lowMinimum, lowMaximum, highMinimum, highMaximum, mergedMinimum, mergedMaximum;
};

}  // namespace

static WideExtremes noExtremes() {
  const Register smallest = spread16(0);
  const Register largest = spread16(65535);
  return {largest, smallest, largest, smallest, largest, smallest};
}

static std::uint16_t smallestLane(Register pixels) {
  std::uint16_t values[lanes], minimum, maximum;
  store(values, pixels);
  loops::findExtremes(values, lanes, &minimum, &maximum);
  return minimum;
}
static std::uint16_t largestLane(Register pixels) {
  std::uint16_t values[lanes], minimum, maximum;
  store(values, pixels);
  loops::findExtremes(values, lanes, &minimum, &maximum);
  return maximum;
}

static PairExtremes narrowed(const WideExtremes& wide) {
  return {smallestLane(wide.lowMinimum), largestLane(wide.lowMaximum),     smallestLane(wide.highMinimum),
          largestLane(wide.highMaximum), smallestLane(wide.mergedMinimum), largestLane(wide.mergedMaximum)};
}

/// Fetches what lies a row pair further on: rows are too short for the processor to foresee where the next
/// two begin. An address for the processor alone, perhaps behind the stream: nothing is read from it.
static inline void prefetchNextRows(const PackedPair& run, std::size_t i) {
  const std::size_t offset = 3 * (i / 2);
  const auto low = reinterpret_cast<std::uintptr_t>(run.packedLow) + offset;
  const auto high = reinterpret_cast<std::uintptr_t>(run.packedHigh) + offset;
  const std::uintptr_t rowPair = 2 * (high - low);
  __builtin_prefetch(reinterpret_cast<const void*>(low + rowPair), 0, 2);
  __builtin_prefetch(reinterpret_cast<const void*>(high + rowPair), 0, 2);
}

// The corrections of packed pixels, by what there is to do. A shifted pixel has 15 bits, so that one
// saturating addition and a maximum clamp the sum.

static Register packedSums(Register pixels, Register additive, const WideRule& rule) {
  return maximumSigned16(addSigned16(shiftLeft16(pixels, rule.additiveShift), additive), spread16(0));
}
static Register correctedPacked(Register pixels, Register additive, Register multiplicative,
                                const WideRule& rule) {
  const Products products = multiply16(packedSums(pixels, additive, rule), multiplicative);
  return packToLimit16(shiftRight32(add32(products.first, rule.half), rule.resultShift),
                       shiftRight32(add32(products.second, rule.half), rule.resultShift));
}

static Register packedLow(Register pixels, const UniformTerms& terms, std::size_t /*i*/,
                          const WideRule& rule) {
  return correctedPacked(pixels, spread16(static_cast<std::uint16_t>(terms.additiveLow)),
                         spread16(terms.multiplicativeLow), rule);
}
static Register packedHigh(Register pixels, const UniformTerms& terms, std::size_t /*i*/,
                           const WideRule& rule) {
  return correctedPacked(pixels, spread16(static_cast<std::uint16_t>(terms.additiveHigh)),
                         spread16(terms.multiplicativeHigh), rule);
}

static Register packedLow(Register pixels, const PlaneTerms& terms, std::size_t i, const WideRule& rule) {
  return correctedPacked(pixels, load(terms.additiveLow + i), load(terms.multiplicativeLow + i), rule);
}
static Register packedHigh(Register pixels, const PlaneTerms& terms, std::size_t i, const WideRule& rule) {
  return correctedPacked(pixels, load(terms.additiveHigh + i), load(terms.multiplicativeHigh + i), rule);
}

/// Identity frames, as most merges have them: the low-gain plane is brought to the high-gain plane's scale,
/// the latter stays as it is.
namespace {

/// By a factor below 16, held in units of 2^-12.
struct ScaledLow {
  std::uint32_t factor;
};

/// By any factor, held in units of 2^-g. Of 16 p * factor, the higher and the lower 16 bits are shifted to
/// their place in the result.
struct SteepLow {
  std::uint32_t factor;
  Bits higherShift;       // 16 - (g + 4)
  Bits lowerShift;        // g + 4, less the bit that is rounded by
  std::uint32_t largest;  // of the higher bits that does not exceed the result
};

}  // namespace

constexpr std::uint32_t scaleBits = 12;

static bool changesLowAlone(const MergeRule& rule, const UniformTerms& terms) {
  return terms.additiveLow == 0 && terms.additiveHigh == 0 && rule.multiplicativeFractionBits <= scaleBits &&
         terms.multiplicativeHigh == 1U << rule.multiplicativeFractionBits;
}
static ScaledLow scaledLow(const MergeRule& rule, const UniformTerms& terms) {
  return {std::uint32_t{terms.multiplicativeLow} << (scaleBits - rule.multiplicativeFractionBits)};
}
static SteepLow steepLow(const MergeRule& rule, const UniformTerms& terms) {
  const std::uint32_t fraction = rule.multiplicativeFractionBits + 4;
  return {terms.multiplicativeLow, shiftBy(16 - fraction), shiftBy(fraction - 1), (1U << fraction) - 1};
}

static Register packedLow(Register pixels, const ScaledLow& scaled, std::size_t /*i*/,
                          const WideRule& /*rule*/) {
  const Register factor = spread16(scaled.factor);
  const Register wide = widened12(pixels);
  return add16(multiplyHigh16(wide, factor), topBit16(multiplyLow16(wide, factor)));
}
static Register packedHigh(Register pixels, const ScaledLow& /*scaled*/, std::size_t /*i*/,
                           const WideRule& /*rule*/) {
  return pixels;
}

static Register packedLow(Register pixels, const SteepLow& steep, std::size_t /*i*/,
                          const WideRule& /*rule*/) {
  const Register factor = spread16(steep.factor);
  const Register wide = widened12(pixels);
  const Register higher = multiplyHigh16(wide, factor);
  const Register rounded = halved16(shiftRight16(multiplyLow16(wide, factor), steep.lowerShift));
  const Register result = addToLimit16(shiftLeft16(higher, steep.higherShift), rounded);
  return whereAtMost16(higher, spread16(steep.largest), result, spread16(65535));
}
static Register packedHigh(Register pixels, const SteepLow& /*steep*/, std::size_t /*i*/,
                           const WideRule& /*rule*/) {
  return pixels;
}

namespace {

// How a register of an output is written.

struct Cached {};
struct Streamed {};
struct Partly {
  std::size_t first, end;  ///< lanes
};

}  // namespace

static inline void put(Cached /*how*/, std::uint16_t* target, Register pixels) {
  store(target, pixels);
}
static inline void put(Streamed /*how*/, std::uint16_t* target, Register pixels) {
  stream(target, pixels);
}
static inline void put(Partly how, std::uint16_t* target, Register pixels) {
  // By way of memory: a masked store would fetch the lines of its masked lanes, too.
  std::uint16_t values[lanes];
  store(values, pixels);
  __builtin_memcpy(target + how.first, values + how.first, (how.end - how.first) * sizeof *target);
}

/// One register of pixels of both gains, from pixel i of the run on.
template <bool counting, typename How, typename Terms>
static inline void mergeRegister(const PackedPair& run, std::size_t i, How how, const WideRule& rule,
                                 const Terms& terms, WideExtremes* extremes) {
  prefetchNextRows(run, i);
  const Register low = unpacked(run.packedLow + 3 * (i / 2));
  const Register high = unpacked(run.packedHigh + 3 * (i / 2));
  const Register rightLow = packedLow(low, terms, i, rule);
  const Register rightHigh = packedHigh(high, terms, i, rule);
  const Choice highTaken = takesHigh(rightLow, rightHigh, rule);
  const Register merged = chosen(highTaken, rightHigh, rightLow);
  if (run.low != nullptr) put(how, run.low + i, low);
  if (run.high != nullptr) put(how, run.high + i, high);
  put(how, run.merged + i, merged);
  if (!counting) return;
  const Register mark = spread16(takenMark);
  store(run.countedLow + i, chosen(highTaken, low, eitherBits(low, mark)));
  store(run.countedHigh + i, chosen(highTaken, eitherBits(high, mark), high));
  if (run.countedMerged != nullptr) store(run.countedMerged + i, merged);
  *extremes = {minimum16(extremes->lowMinimum, low),       maximum16(extremes->lowMaximum, low),
               minimum16(extremes->highMinimum, high),     maximum16(extremes->highMaximum, high),
               minimum16(extremes->mergedMinimum, merged), maximum16(extremes->mergedMaximum, merged)};
}

template <bool counting, typename Terms>
static void mergeCached(const PackedPair& given, const MergeRule& rule, const Terms& givenTerms) {
  const PackedPair run = given;  // copies that the output cannot overlap
  const Terms terms = givenTerms;
  const WideRule wide = widened(rule);
  const std::size_t pixels = 2 * run.pairs;
  WideExtremes extremes = noExtremes();
  std::size_t i = 0;
  for (; i + lanes <= pixels; i += lanes)
    mergeRegister<counting>(run, i, Cached(), wide, terms, &extremes);
  // What does not fill a register is done once more with its neighbours.
  if (i < pixels) mergeRegister<counting>(run, pixels - lanes, Cached(), wide, terms, &extremes);
  if (counting) *run.extremes = narrowed(extremes);
}

constexpr std::size_t pixelsOfLine = 64 / sizeof(std::uint16_t);

/// Streams whole cache lines: one that is half streamed costs more than streaming saves. Lines that the run
/// shares with its neighbours in the planes, at both ends, are written through the cache.
template <bool counting, typename Terms>
static void mergeStreamed(const PackedPair& given, std::size_t ahead, const MergeRule& rule,
                          const Terms& givenTerms) {
  const PackedPair run = given;
  const Terms terms = givenTerms;
  const WideRule wide = widened(rule);
  const std::size_t pixels = 2 * run.pairs;
  WideExtremes extremes = noExtremes();
  // The shared line behind is asked for now, so that nothing waits for it then.
  if (run.low != nullptr) __builtin_prefetch(run.low + pixels - 1, 1);
  if (run.high != nullptr) __builtin_prefetch(run.high + pixels - 1, 1);
  __builtin_prefetch(run.merged + pixels - 1, 1);
  std::size_t i = 0;
  for (; i < ahead; i += lanes)
    mergeRegister<counting>(run, i, Partly{0, ahead - i < lanes ? ahead - i : lanes}, wide, terms, &extremes);
  for (i = ahead; i + pixelsOfLine <= pixels; i += pixelsOfLine)
    for (std::size_t of = 0; of < pixelsOfLine; of += lanes)
      mergeRegister<counting>(run, i + of, Streamed(), wide, terms, &extremes);
  for (; i + lanes <= pixels; i += lanes)
    mergeRegister<counting>(run, i, Cached(), wide, terms, &extremes);
  if (i < pixels)
    mergeRegister<counting>(run, pixels - lanes, Partly{lanes - (pixels - i), lanes}, wide, terms, &extremes);
  if (counting) *run.extremes = narrowed(extremes);
}

/// Pixels ahead of the first cache line that all outputs begin together, an even number; more than the run
/// has when they do not.
static std::size_t pixelsToCommonLine(const PackedPair& run) {
  const auto ahead = [](const std::uint16_t* target) {
    return (0 - reinterpret_cast<std::uintptr_t>(target)) % 64 / sizeof *target;
  };
  const std::size_t pixels = ahead(run.merged);
  const bool together =
      (run.low == nullptr || ahead(run.low) == pixels) && (run.high == nullptr || ahead(run.high) == pixels);
  return together && pixels % 2 == 0 ? pixels : 2 * run.pairs + 1;
}

template <Stores stores, typename Terms>
static void mergePackedBy(const PackedPair& run, const MergeRule& rule, const Terms& terms) {
  const bool counting = run.extremes != nullptr;
  const std::size_t ahead = pixelsToCommonLine(run);
  if (stores == streaming && ahead + 2 * pixelsOfLine <= 2 * run.pairs) {
    if (counting)
      mergeStreamed<true>(run, ahead, rule, terms);
    else
      mergeStreamed<false>(run, ahead, rule, terms);
  } else if (counting) {
    mergeCached<true>(run, rule, terms);
  } else {
    mergeCached<false>(run, rule, terms);
  }
}

template <Stores stores>
static void mergePackedUniform(const PackedPair& run, const MergeRule& rule, const UniformTerms& terms) {
  if (2 * run.pairs < lanes)
    loops::mergePacked(run, rule, terms);
  else if (!changesLowAlone(rule, terms))
    mergePackedBy<stores>(run, rule, terms);
  else if (scaledLow(rule, terms).factor <= 65535)
    mergePackedBy<stores>(run, rule, scaledLow(rule, terms));
  else
    mergePackedBy<stores>(run, rule, steepLow(rule, terms));
}

template <Stores stores>
static void mergePackedPlanes(const PackedPair& run, const MergeRule& rule, const PlaneTerms& terms) {
  if (2 * run.pairs < lanes)
    loops::mergePacked(run, rule, terms);
  else
    mergePackedBy<stores>(run, rule, terms);
}

// ---- Statistics

static std::size_t findFirst(const std::uint16_t* pixels, std::size_t count, std::uint16_t value) {
  const Register wanted = spread16(value);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes)
    if (const unsigned found = lanesEqual16(load(pixels + i), wanted))
      return i + static_cast<unsigned>(__builtin_ctz(found)) / bitsOfLane;
  return i + loops::findFirst(pixels + i, count - i, value);
}

/// So far ahead that the next row of a frame is on its way while this one is counted.
constexpr std::size_t prefetchBytes = 8192;

static std::uint64_t load4(const std::uint16_t* pixels) {
  std::uint64_t four;
  __builtin_memcpy(&four, pixels, sizeof four);
  return four;
}

static void count4(std::uint64_t four, std::uint32_t* banks) {
  static_assert(countBanks == 2);
  ++banks[0 * countBankStride + (four & 0xFFFF)];
  ++banks[1 * countBankStride + (four >> 16 & 0xFFFF)];
  ++banks[0 * countBankStride + (four >> 32 & 0xFFFF)];
  ++banks[1 * countBankStride + (four >> 48)];
}

/// A histogram has no vector form: one addition a pixel is the floor.
static void countPixels(const std::uint16_t* pixels, std::size_t count, std::uint32_t* banks) {
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    // An address for the processor alone, perhaps behind the plane: nothing is read from it.
    const std::uintptr_t later = reinterpret_cast<std::uintptr_t>(pixels + i) + prefetchBytes;
    __builtin_prefetch(reinterpret_cast<const void*>(later));
    const std::uint64_t first = load4(pixels + i);
    const std::uint64_t second = load4(pixels + i + 4);
    count4(first, banks);
    count4(second, banks);
  }
  loops::countPixels(pixels + i, count - i, banks);
}

static void countMarked(const std::uint16_t* values, std::size_t count, std::uint32_t* banks) {
  static_assert(markedBanks == 4);
  std::size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const std::uint64_t four = load4(values + i);
    ++banks[0 * markedBankStride + (four & 0xFFFF)];
    ++banks[1 * markedBankStride + (four >> 16 & 0xFFFF)];
    ++banks[2 * markedBankStride + (four >> 32 & 0xFFFF)];
    ++banks[3 * markedBankStride + (four >> 48)];
  }
  loops::countMarked(values + i, count - i, banks);
}

// ---- Merge by a line

/// Places in the values are worked out in registers; looking up has no vector form that is worth it. Pixels
/// outside the map look row 0 up, which is 0.
static void mergeByLine(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const std::uint16_t* values, std::uint32_t size,
                        std::uint32_t mergeRow) {
  constexpr std::size_t block = 512;
  std::uint16_t places[block];
  const Register lastRow = spread16(mergeRow - 1);
  const Register last = spread16(size - 1);
  const Register columns = spread16(size);
  std::size_t done = 0;
  while (count - done >= lanes) {
    const std::size_t run = count - done < block ? (count - done) / lanes * lanes : block;
    for (std::size_t i = 0; i < run; i += lanes) {
      const Register column = load(low + done + i);
      const Register row = load(high + done + i);
      const Register place = whereAtMost16(row, lastRow, row, eitherBits(column, columns));
      store(places + i, whereAtMost16(maximum16(row, column), last, place, spread16(0)));
    }
    for (std::size_t i = 0; i < run; ++i)
      merged[done + i] = values[places[i]];
    done += run;
  }
  loops::mergeByLine(low + done, high + done, merged + done, count - done, values, size, mergeRow);
}

// The loops are those that the compiler vectorises as well as a hand would, for the set that this source is
// built for; only the look-up in a map gains nothing from any.
static constexpr KernelTable vectorTable = {tableName,
                                            supported,
                                            unpackPairs<cached>,
                                            loops::swapBytes,
                                            loops::swapBytesMirrored,
                                            loops::subtractBias,
                                            countPixels,
                                            countMarked,
                                            loops::findExtremes,
                                            findFirst,
                                            mergeUniform<cached>,
                                            mergePlanes<cached>,
                                            loops::mergeMapped,
                                            mergeByLine,
                                            loops::addToSums8,
                                            loops::addToSums16,
                                            loops::startSums8,
                                            loops::startSums16,
                                            loops::emptySums,
                                            loops::meansOfSums,
                                            loops::meansOfRecentSums,
                                            unpack12Streaming,
                                            mergeUniform<streaming>,
                                            mergePlanes<streaming>,
                                            finishStreaming,
                                            mergePackedUniform<cached>,
                                            mergePackedPlanes<cached>,
                                            mergePackedUniform<streaming>,
                                            mergePackedPlanes<streaming>};

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_KERNELS_H
