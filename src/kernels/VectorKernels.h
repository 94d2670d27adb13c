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

static void finishStreaming() {
  _mm_sfence();
}

// ---- 12-bit pairs

template <Stores stores>
static void unpackPairs(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  std::size_t pair = 0;
  for (; pair + pairsRead <= pairs; pair += lanes / 2)
    put<stores>(pixels + 2 * pair, unpacked(packed + 3 * pair));
  loops::unpack12(packed + 3 * pair, pixels + 2 * pair, pairs - pair);
}

static void unpack12Streaming(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  const std::size_t ahead = pixelsToAlignment(pixels);
  if (ahead % 2 != 0 || ahead / 2 > pairs) {  // whole pairs never meet the alignment
    unpackPairs<cached>(packed, pixels, pairs);
    return;
  }
  loops::unpack12(packed, pixels, ahead / 2);
  unpackPairs<streaming>(packed + 3 * (ahead / 2), pixels + ahead, pairs - ahead / 2);
}

// ---- Merge

namespace {

/// The rule for all lanes.
struct WideRule {
  __m128i additiveShift;
  __m128i resultShift;
  Register half;  // in 32-bit lanes
  Register largestShiftable;
  Register belowHighThreshold;
  Register differenceThreshold;
  Register alwaysLow;
};

}  // namespace

static WideRule widened(const MergeRule& rule) {
  const std::uint32_t fraction = rule.additiveFractionBits + rule.multiplicativeFractionBits;
  const bool neverLow = rule.type == 2;
  const bool alwaysLow = rule.type == 1 || (!neverLow && rule.highThreshold == 0);
  return {_mm_cvtsi32_si128(static_cast<int>(rule.additiveFractionBits)),
          _mm_cvtsi32_si128(static_cast<int>(fraction)),
          spread32(fraction > 0 ? 1u << (fraction - 1) : 0),
          spread16(65535u >> rule.additiveFractionBits),
          spread16(neverLow ? 65535u : static_cast<std::uint32_t>(rule.highThreshold - 1)),
          spread16(neverLow ? 65535u : static_cast<std::uint32_t>(rule.differenceThreshold)),
          spread16(alwaysLow ? 65535u : 0u)};
}

/// c = min((s * m + half) >> (f + g), 65535). Product and half are below 2^32 together; the shifted result is
/// below 2^31, so that the saturating pack cuts it rightly.
static Register corrected(Register pixels, Register additive, Register multiplicative, const WideRule& rule) {
  const Register sum = sums(pixels, additive, rule.additiveShift, rule.largestShiftable);
  const Products products = multiply16(sum, multiplicative);
  return packToLimit16(shiftRight32(add32(products.first, rule.half), rule.resultShift),
                       shiftRight32(add32(products.second, rule.half), rule.resultShift));
}

static Register chosen(Register low, Register high, const WideRule& rule) {
  const Register bright = subtractToZero16(high, rule.belowHighThreshold);
  const Register apart = subtractToZero16(subtractToZero16(low, high), rule.differenceThreshold);
  return whereZero16(eitherBits(eitherBits(bright, apart), rule.alwaysLow), high, low);
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
  for (; i + lanes <= count; i += lanes)
    put<stores>(merged + i, chosen(correctedLow(load(low + i), terms, i, wide),
                                   correctedHigh(load(high + i), terms, i, wide), wide));
  mergePlain(low, high, merged, i, count, rule, terms);
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
  static_assert(countBanks == 4);
  ++banks[0 * countBankStride + (four & 0xFFFF)];
  ++banks[1 * countBankStride + (four >> 16 & 0xFFFF)];
  ++banks[2 * countBankStride + (four >> 32 & 0xFFFF)];
  ++banks[3 * countBankStride + (four >> 48)];
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

// The loops are those that the compiler vectorises as well as a hand would, for the set that this source is
// built for; only the look-up in a map gains nothing from any.
static constexpr KernelTable vectorTable = {tableName,
                                            supported,
                                            unpackPairs<cached>,
                                            loops::swapBytes,
                                            loops::swapBytesMirrored,
                                            loops::subtractBias,
                                            countPixels,
                                            loops::findExtremes,
                                            findFirst,
                                            merge<cached, UniformTerms>,
                                            merge<cached, PlaneTerms>,
                                            loops::mergeMapped,
                                            loops::addToSums8,
                                            loops::addToSums16,
                                            loops::emptySums,
                                            loops::meansOfSums,
                                            unpack12Streaming,
                                            merge<streaming, UniformTerms>,
                                            merge<streaming, PlaneTerms>,
                                            finishStreaming};

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_KERNELS_H
