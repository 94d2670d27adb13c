// Kernels for processors with AVX-512 (F, BW, VL): what is particular to the instruction set. Includes
// nothing with inline functions of the standard library.

#include <immintrin.h>

#define ORVACAM_X86(operation) _mm512_##operation
#define ORVACAM_X86_BITS(operation) _mm512_##operation##_si512

namespace orvacam::kernels {
using Register = __m512i;
}

#include "kernels/X86Registers.h"

namespace orvacam::kernels {

static constexpr const char* tableName = "avx512";
static constexpr std::uint32_t tableNeeds = featureAvx512;

/// A register of pixels, from 48 bytes. Each quarter turns 12 of them into 8 words: b0 b1 for the first pixel
/// of a pair, b1 b2 for the second. Nothing behind the 48 bytes is read.
static Register unpacked(const std::uint8_t* packed) {
  const __m512i quarters = _mm512_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5, 6, 7, 8, 8, 9, 10, 11, 11);
  const __m512i words =
      _mm512_broadcast_i32x4(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
  const __m512i shifts = spread32(4);  // for the first word of each two
  const __m512i bytes = _mm512_permutexvar_epi32(quarters, _mm512_maskz_loadu_epi32(0x0FFF, packed));
  return _mm512_and_si512(_mm512_srlv_epi16(_mm512_shuffle_epi8(bytes, words), shifts), spread16(0x0FFF));
}

static Register lowerHalves64(Register values) {
  return _mm512_and_si512(values, _mm512_set1_epi64(0xFFFFFFFF));
}

static std::uint16_t smallestLane16(Register values) {
  const __m256i half = _mm256_min_epu16(_mm512_castsi512_si256(values), _mm512_extracti64x4_epi64(values, 1));
  const __m128i quarter = _mm_min_epu16(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
  return static_cast<std::uint16_t>(_mm_cvtsi128_si32(_mm_minpos_epu16(quarter)));
}
static Register bytesSwapped16(Register values) {
  return _mm512_or_si512(_mm512_slli_epi16(values, 8), _mm512_srli_epi16(values, 8));
}
/// All bytes of the register in the opposite order.
static Register bytesReversed(Register values) {
  const __m512i backwards =
      _mm512_broadcast_i32x4(_mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
  const __m512i quarters = _mm512_shuffle_epi8(values, backwards);
  return _mm512_shuffle_i64x2(quarters, quarters, 0x1B);
}

/// s = clamp(p * 2^f + a, 0, 32767), where a pixel above the largest that can be shifted gives 32767 with
/// every a. In between, values are kept 32768 lower than they are: there a saturating signed addition clamps
/// them at 0.
static Register sums(Register pixels, Register additive, Register factor, Register largestShiftable) {
  const __mmask32 shiftable = _mm512_cmple_epu16_mask(pixels, largestShiftable);
  const __m512i lowered = _mm512_xor_si512(_mm512_mullo_epi16(pixels, factor), spread16(32768));
  const __m512i sum = _mm512_min_epi16(_mm512_adds_epi16(lowered, additive), spread16(65535));
  return _mm512_mask_blend_epi16(shiftable, spread16(32767), _mm512_xor_si512(sum, spread16(32768)));
}

static Register whereAtMost16(Register values, Register limit, Register ifAtMost, Register otherwise) {
  return _mm512_mask_blend_epi16(_mm512_cmple_epu16_mask(values, limit), otherwise, ifAtMost);
}

/// The values where what is tested has no bits, else 0.
static Register keepWhereNone16(Register values, Register tested) {
  return _mm512_maskz_mov_epi16(_mm512_testn_epi16_mask(tested, tested), values);
}
/// The same of 32 bits.
static Register keepWhereNone32(Register values, Register tested) {
  return _mm512_maskz_mov_epi32(_mm512_testn_epi32_mask(tested, tested), values);
}
/// The values of 32 bits, all below 65536, of one register and then of the other, in order.
static Register narrowed32(Register first, Register second) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi32_epi16(first)),
                            _mm512_cvtepi32_epi16(second), 1);
}

/// Which lanes take the high-gain pixel.
using Choice = __mmask32;
static Choice takesHigh(Register low, Register high, Register belowHighThreshold,
                        Register differenceThreshold, Register alwaysLow) {
  const Choice dark = _mm512_cmple_epu16_mask(_mm512_or_si512(high, alwaysLow), belowHighThreshold);
  return _mm512_mask_cmple_epu16_mask(dark, _mm512_subs_epu16(low, high), differenceThreshold);
}
static Register chosen(Choice high, Register ifHigh, Register otherwise) {
  return _mm512_mask_blend_epi16(high, otherwise, ifHigh);
}

/// Bits of the lanes that equal the value, from the lowest on, bitsOfLane for each.
constexpr unsigned bitsOfLane = 1;
static unsigned lanesEqual16(Register pixels, Register value) {
  return _mm512_cmpeq_epi16_mask(pixels, value);
}

}  // namespace orvacam::kernels

#include "kernels/VectorKernels.h"

namespace orvacam::kernels {
constexpr KernelTable avx512Table = vectorTable();
}
