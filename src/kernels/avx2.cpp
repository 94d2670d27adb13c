// Kernels for processors with AVX2: what is particular to the instruction set. Includes nothing with inline
// functions of the standard library.

#include <immintrin.h>

#define ORVACAM_X86(operation) _mm256_##operation
#define ORVACAM_X86_BITS(operation) _mm256_##operation##_si256

namespace orvacam::kernels {
using Register = __m256i;
}

#include "kernels/X86Registers.h"

namespace orvacam::kernels {

static constexpr const char* tableName = "avx2";
static constexpr std::uint32_t tableNeeds = featureAvx2;

/// A register of pixels, from 24 bytes. Each half turns 12 of them into 8 words: b0 b1 for the first pixel of
/// a pair, b1 b2 for the second. The second half is loaded 4 bytes early, so that nothing behind is read.
static Register unpacked(const std::uint8_t* packed) {
  const __m256i words = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                                         5, 4, 6, 5, 8, 7, 9, 8, 11, 10, 12, 11, 14, 13, 15, 14);
  const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(packed));
  const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(packed + 8));
  const __m256i both = _mm256_shuffle_epi8(_mm256_set_m128i(second, first), words);
  // The first pixel of a pair is the upper 12 bits; the second, the lower ones, is brought there.
  return _mm256_srli_epi16(_mm256_mullo_epi16(both, spread32(1 | 16 << 16)), 4);
}

static Register lowerHalves64(Register values) {
  return _mm256_and_si256(values, _mm256_set1_epi64x(0xFFFFFFFF));
}

static std::uint16_t smallestLane16(Register values) {
  const __m128i halves = _mm_min_epu16(_mm256_castsi256_si128(values), _mm256_extracti128_si256(values, 1));
  return static_cast<std::uint16_t>(_mm_cvtsi128_si32(_mm_minpos_epu16(halves)));
}
static Register bytesSwapped16(Register values) {
  return _mm256_or_si256(_mm256_slli_epi16(values, 8), _mm256_srli_epi16(values, 8));
}
/// All bytes of the register in the opposite order.
static Register bytesReversed(Register values) {
  const __m256i backwards = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0,  //
                                             15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(values, backwards), 0x4E);
}

/// s = clamp(p * 2^f + a, 0, 32767), where a pixel above the largest that can be shifted gives 32767 with
/// every a. In between, values are kept 32768 lower than they are: there a saturating signed addition clamps
/// them at 0.
static Register sums(Register pixels, Register additive, Register factor, Register largestShiftable) {
  const __m256i shiftable = _mm256_cmpeq_epi16(_mm256_min_epu16(pixels, largestShiftable), pixels);
  const __m256i lowered = _mm256_xor_si256(_mm256_mullo_epi16(pixels, factor), spread16(32768));
  const __m256i sum = _mm256_min_epi16(_mm256_adds_epi16(lowered, additive), spread16(65535));
  // Lanes that cannot be shifted become 32767; the others are raised again.
  return _mm256_xor_si256(_mm256_andnot_si256(sum, shiftable), spread16(32767));
}

static Register whereAtMost16(Register values, Register limit, Register ifAtMost, Register otherwise) {
  return _mm256_blendv_epi8(otherwise, ifAtMost, _mm256_cmpeq_epi16(_mm256_min_epu16(values, limit), values));
}

/// The values where what is tested has no bits, else 0.
static Register keepWhereNone16(Register values, Register tested) {
  return _mm256_and_si256(values, _mm256_cmpeq_epi16(tested, _mm256_setzero_si256()));
}
/// The same of 32 bits.
static Register keepWhereNone32(Register values, Register tested) {
  return _mm256_and_si256(values, _mm256_cmpeq_epi32(tested, _mm256_setzero_si256()));
}
/// The values of 32 bits, all below 65536, of one register and then of the other, in order.
static Register narrowed32(Register first, Register second) {
  return _mm256_permute4x64_epi64(_mm256_packus_epi32(first, second), 0xD8);
}

/// Which lanes take the high-gain pixel.
using Choice = Register;
static Choice takesHigh(Register low, Register high, Register belowHighThreshold,
                        Register differenceThreshold, Register alwaysLow) {
  const Register bright = _mm256_subs_epu16(_mm256_or_si256(high, alwaysLow), belowHighThreshold);
  const Register apart = _mm256_subs_epu16(_mm256_subs_epu16(low, high), differenceThreshold);
  return _mm256_cmpeq_epi16(_mm256_or_si256(bright, apart), _mm256_setzero_si256());
}
static Register chosen(Choice high, Register ifHigh, Register otherwise) {
  return _mm256_blendv_epi8(otherwise, ifHigh, high);
}

/// Bits of the lanes that equal the value, from the lowest on, bitsOfLane for each.
constexpr unsigned bitsOfLane = 2;
static unsigned lanesEqual16(Register pixels, Register value) {
  return static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpeq_epi16(pixels, value)));
}

}  // namespace orvacam::kernels

#include "kernels/VectorKernels.h"

namespace orvacam::kernels {
constexpr KernelTable avx2Table = vectorTable();
}
