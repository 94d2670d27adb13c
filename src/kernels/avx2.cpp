// Kernels for processors with AVX2. Includes nothing with inline functions of the standard library.

#include <immintrin.h>

#include "kernels/KernelLoops.h"
#include "kernels/KernelTables.h"

namespace orvacam::kernels {

static bool supported() {
  return __builtin_cpu_supports("avx2") != 0;
}

// ---- 12-bit pairs
// --------------------------------------------------------------------------------------------

static void unpack12(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  // Each half turns 12 bytes into 8 words: b0 b1 for the first pixel of a pair, b1 b2 for the second.
  const __m256i words =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
  const __m256i low12 = _mm256_set1_epi16(0x0FFF);
  std::size_t pair = 0;
  for (; pair + 10 <= pairs; pair += 8) {  // 24 bytes are used, 28 are read
    const std::uint8_t* const source = packed + 3 * pair;
    const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
    const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 12));
    const __m256i both = _mm256_shuffle_epi8(_mm256_set_m128i(second, first), words);
    const __m256i result =
        _mm256_blend_epi16(_mm256_srli_epi16(both, 4), _mm256_and_si256(both, low12), 0xAA);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(pixels + 2 * pair), result);
  }
  loops::unpack12(packed + 3 * pair, pixels + 2 * pair, pairs - pair);
}

// ---- Merge
// ---------------------------------------------------------------------------------------------------

/// The rule, spread over the lanes of 8 pixels.
struct WideRule {
  __m128i additiveShift;
  __m128i resultShift;
  __m256i half;
  __m256i belowHighThreshold;
  __m256i differenceThreshold;
  __m256i mayTakeLow;
  __m256i mustTakeLow;
};

static WideRule widened(const MergeRule& rule) {
  const std::uint32_t fraction = rule.additiveFractionBits + rule.multiplicativeFractionBits;
  return {_mm_cvtsi32_si128(static_cast<int>(rule.additiveFractionBits)),
          _mm_cvtsi32_si128(static_cast<int>(fraction)),
          _mm256_set1_epi32(fraction > 0 ? static_cast<int>(1u << (fraction - 1)) : 0),
          _mm256_set1_epi32(rule.highThreshold - 1),
          _mm256_set1_epi32(rule.differenceThreshold),
          _mm256_set1_epi32(rule.type == 2 ? 0 : -1),
          _mm256_set1_epi32(rule.type == 1 ? -1 : 0)};
}

static __m256i load8(const std::uint16_t* values) {
  return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(values)));
}

static __m256i load8(const std::int16_t* values) {
  return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(values)));
}

/// All of it fits 32 bits: the shifted pixel and the additive term are below 2^31 together, the product is
/// below 2^31 and the half below 2^31.
static __m256i corrected8(__m256i pixels, __m256i additive, __m256i multiplicative, const WideRule& rule) {
  __m256i sum = _mm256_add_epi32(_mm256_sll_epi32(pixels, rule.additiveShift), additive);
  sum = _mm256_min_epi32(_mm256_max_epi32(sum, _mm256_setzero_si256()), _mm256_set1_epi32(32767));
  const __m256i product = _mm256_add_epi32(_mm256_mullo_epi32(sum, multiplicative), rule.half);
  return _mm256_min_epu32(_mm256_srl_epi32(product, rule.resultShift), _mm256_set1_epi32(65535));
}

static __m256i chosen8(__m256i low, __m256i high, const WideRule& rule) {
  __m256i takeLow =
      _mm256_or_si256(_mm256_cmpgt_epi32(high, rule.belowHighThreshold),
                      _mm256_cmpgt_epi32(_mm256_sub_epi32(low, high), rule.differenceThreshold));
  takeLow = _mm256_or_si256(_mm256_and_si256(takeLow, rule.mayTakeLow), rule.mustTakeLow);
  return _mm256_blendv_epi8(high, low, takeLow);
}

static void store16(std::uint16_t* target, __m256i first, __m256i second) {
  const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(first, second), 0xD8);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(target), packed);
}

static void mergeUniform(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                         std::size_t count, const MergeRule& rule, const UniformTerms& terms) {
  const WideRule wide = widened(rule);
  const __m256i additiveLow = _mm256_set1_epi32(terms.additiveLow);
  const __m256i additiveHigh = _mm256_set1_epi32(terms.additiveHigh);
  const __m256i multiplicativeLow = _mm256_set1_epi32(terms.multiplicativeLow);
  const __m256i multiplicativeHigh = _mm256_set1_epi32(terms.multiplicativeHigh);
  const auto merged8 = [&](std::size_t i) {
    return chosen8(corrected8(load8(low + i), additiveLow, multiplicativeLow, wide),
                   corrected8(load8(high + i), additiveHigh, multiplicativeHigh, wide), wide);
  };
  std::size_t i = 0;
  for (; i + 16 <= count; i += 16)
    store16(merged + i, merged8(i), merged8(i + 8));
  loops::mergeUniform(low + i, high + i, merged + i, count - i, rule, terms);
}

static void mergePlanes(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const MergeRule& rule, const PlaneTerms& terms) {
  const WideRule wide = widened(rule);
  const auto merged8 = [&](std::size_t i) {
    return chosen8(
        corrected8(load8(low + i), load8(terms.additiveLow + i), load8(terms.multiplicativeLow + i), wide),
        corrected8(load8(high + i), load8(terms.additiveHigh + i), load8(terms.multiplicativeHigh + i), wide),
        wide);
  };
  std::size_t i = 0;
  for (; i + 16 <= count; i += 16)
    store16(merged + i, merged8(i), merged8(i + 8));
  const PlaneTerms rest = {terms.additiveLow + i, terms.additiveHigh + i, terms.multiplicativeLow + i,
                           terms.multiplicativeHigh + i};
  loops::mergePlanes(low + i, high + i, merged + i, count - i, rule, rest);
}

// ---- Statistics
// ----------------------------------------------------------------------------------------------

static std::size_t findFirst(const std::uint16_t* pixels, std::size_t count, std::uint16_t value) {
  const __m256i wanted = _mm256_set1_epi16(static_cast<short>(value));
  std::size_t i = 0;
  for (; i + 16 <= count; i += 16) {
    const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + i));
    const int found = _mm256_movemask_epi8(_mm256_cmpeq_epi16(block, wanted));
    if (found != 0) return i + static_cast<unsigned>(__builtin_ctz(static_cast<unsigned>(found))) / 2;
  }
  return i + loops::findFirst(pixels + i, count - i, value);
}

// The compiler vectorises the others as well as a hand would; a table look-up and a histogram gain nothing.
extern const KernelTable avx2Table = {"avx2",
                                      supported,
                                      unpack12,
                                      loops::swapBytes,
                                      loops::swapBytesMirrored,
                                      loops::subtractBias,
                                      loops::countPixels,
                                      loops::findExtremes,
                                      findFirst,
                                      mergeUniform,
                                      mergePlanes,
                                      loops::mergeMapped,
                                      loops::addToSums8,
                                      loops::addToSums16,
                                      loops::emptySums,
                                      loops::meansOfSums};

}  // namespace orvacam::kernels
