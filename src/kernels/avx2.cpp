// Kernels for processors with AVX2: what is particular to the instruction set. Includes nothing with inline
// functions of the standard library.

#include <immintrin.h>

#include "kernels/KernelTables.h"
#include "kernels/Kernels.h"

namespace orvacam::kernels {

static constexpr const char* tableName = "avx2";
static constexpr std::uint32_t tableNeeds = featureAvx2;

using Register = __m256i;
using Bits = __m128i;  // a number of bits to shift by

// ---- Plain operations, named by what they do to lanes of 16 or 32 bits

static Register load(const void* source) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(source));
}
static void store(void* target, Register value) {
  _mm256_storeu_si256(static_cast<__m256i*>(target), value);
}
static void stream(void* target, Register value) {
  _mm256_stream_si256(static_cast<__m256i*>(target), value);
}
static void finishStreaming() {
  _mm_sfence();
}
static Bits shiftBy(std::uint32_t count) {
  return _mm_cvtsi32_si128(static_cast<int>(count));
}
static Register spread16(std::uint32_t value) {
  return _mm256_set1_epi16(static_cast<short>(value));
}
static Register spread32(std::uint32_t value) {
  return _mm256_set1_epi32(static_cast<int>(value));
}
static Register widened12(Register pixels) {
  return _mm256_slli_epi16(pixels, 4);  // to the top of 16 bits
}
static Register eitherBits(Register a, Register b) {
  return _mm256_or_si256(a, b);
}
static Register bothBits(Register a, Register b) {
  return _mm256_and_si256(a, b);
}
static Register shiftLeft16(Register values, Bits bits) {
  return _mm256_sll_epi16(values, bits);
}
static Register add16(Register a, Register b) {
  return _mm256_add_epi16(a, b);
}
static Register subtract16(Register a, Register b) {
  return _mm256_sub_epi16(a, b);
}
static Register subtractToZero16(Register a, Register b) {
  return _mm256_subs_epu16(a, b);
}
static Register addSigned16(Register a, Register b) {
  return _mm256_adds_epi16(a, b);
}
static Register maximumSigned16(Register a, Register b) {
  return _mm256_max_epi16(a, b);
}
static Register multiplyLow16(Register a, Register b) {
  return _mm256_mullo_epi16(a, b);
}
static Register multiplyHigh16(Register a, Register b) {
  return _mm256_mulhi_epu16(a, b);
}
static Register topBit16(Register values) {
  return _mm256_srli_epi16(values, 15);
}
static Register minimum16(Register a, Register b) {
  return _mm256_min_epu16(a, b);
}
static Register maximum16(Register a, Register b) {
  return _mm256_max_epu16(a, b);
}
static Register add32(Register a, Register b) {
  return _mm256_add_epi32(a, b);
}
static Register maximum32(Register a, Register b) {
  return _mm256_max_epu32(a, b);
}
static Register add64(Register a, Register b) {
  return _mm256_add_epi64(a, b);
}
/// Products of the lower halves of lanes of 64 bits.
static Register multiplyEven32(Register a, Register b) {
  return _mm256_mul_epu32(a, b);
}
static Register lowerHalves64(Register values) {
  return _mm256_and_si256(values, _mm256_set1_epi64x(0xFFFFFFFF));
}
static Register upperHalves64(Register values) {
  return _mm256_srli_epi64(values, 32);
}
static Register shiftRight32(Register values, Register bits) {
  return _mm256_srlv_epi32(values, bits);
}
static Register multiplyRounded15(Register a, Register b) {
  return _mm256_mulhrs_epi16(a, b);  // (a * b + 2^14) >> 15, signed
}
static Register packToLimit16(Register first, Register second) {
  return _mm256_packus_epi32(first, second);
}

namespace {

/// Products of 16-bit lanes, in an order that packToLimit16 undoes.
struct Products {
  Register first;
  Register second;
};

}  // namespace

static Products multiply16(Register a, Register b) {
  const Register low = _mm256_mullo_epi16(a, b);
  const Register high = _mm256_mulhi_epu16(a, b);
  return {_mm256_unpacklo_epi16(low, high), _mm256_unpackhi_epi16(low, high)};
}

/// a times the lower 16 bits of a lane of 32, plus the upper ones, all signed and a positive.
static Products multiplyAndAdd16(Register a, Register factorAndAddend) {
  const Register one = spread16(1);
  return {_mm256_madd_epi16(_mm256_unpacklo_epi16(a, one), factorAndAddend),
          _mm256_madd_epi16(_mm256_unpackhi_epi16(a, one), factorAndAddend)};
}

// ---- Where the instruction sets differ

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
