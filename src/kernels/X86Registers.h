#ifndef ORVACAM_SRC_KERNELS_X86_REGISTERS_H
#define ORVACAM_SRC_KERNELS_X86_REGISTERS_H

// What AVX2 and AVX-512 have in common: operations named by what they do to lanes of 16 or 32 bits. A set's
// source says before what Register is and how its intrinsics are named:
//
//   ORVACAM_X86(add_epi16)    _mm256_add_epi16 or _mm512_add_epi16
//   ORVACAM_X86_BITS(and)     _mm256_and_si256 or _mm512_and_si512
//
// Included once by each of them, and by nobody else.

#include <immintrin.h>

#include "kernels/KernelTables.h"
#include "kernels/Kernels.h"

namespace orvacam::kernels {

using Bits = __m128i;  // a number of bits to shift by

static Register load(const void* source) {
  return ORVACAM_X86_BITS(loadu)(static_cast<const Register*>(source));
}
static void store(void* target, Register value) {
  ORVACAM_X86_BITS(storeu)(static_cast<Register*>(target), value);
}
static void stream(void* target, Register value) {
  ORVACAM_X86_BITS(stream)(static_cast<Register*>(target), value);
}
static void finishStreaming() {
  _mm_sfence();
}
static Bits shiftBy(std::uint32_t count) {
  return _mm_cvtsi32_si128(static_cast<int>(count));
}
static Register spread16(std::uint32_t value) {
  return ORVACAM_X86(set1_epi16)(static_cast<short>(value));
}
static Register spread32(std::uint32_t value) {
  return ORVACAM_X86(set1_epi32)(static_cast<int>(value));
}
static Register widened12(Register pixels) {
  return ORVACAM_X86(slli_epi16)(pixels, 4);  // to the top of 16 bits
}
static Register eitherBits(Register a, Register b) {
  return ORVACAM_X86_BITS(or)(a, b);
}
static Register bothBits(Register a, Register b) {
  return ORVACAM_X86_BITS(and)(a, b);
}
static Register shiftLeft16(Register values, Bits bits) {
  return ORVACAM_X86(sll_epi16)(values, bits);
}
static Register topBit16(Register values) {
  return ORVACAM_X86(srli_epi16)(values, 15);
}
static Register upperHalves64(Register values) {
  return ORVACAM_X86(srli_epi64)(values, 32);
}

/// Operations on the lanes of two registers, and the intrinsics that do them.
#define ORVACAM_OPERATION(name, intrinsic)       \
  static Register name(Register a, Register b) { \
    return ORVACAM_X86(intrinsic)(a, b);         \
  }
ORVACAM_OPERATION(add16, add_epi16)
ORVACAM_OPERATION(subtract16, sub_epi16)
ORVACAM_OPERATION(subtractToZero16, subs_epu16)
ORVACAM_OPERATION(addSigned16, adds_epi16)
ORVACAM_OPERATION(maximumSigned16, max_epi16)
ORVACAM_OPERATION(multiplyLow16, mullo_epi16)
ORVACAM_OPERATION(multiplyHigh16, mulhi_epu16)
ORVACAM_OPERATION(minimum16, min_epu16)
ORVACAM_OPERATION(maximum16, max_epu16)
ORVACAM_OPERATION(add32, add_epi32)
ORVACAM_OPERATION(maximum32, max_epu32)
ORVACAM_OPERATION(add64, add_epi64)
ORVACAM_OPERATION(multiplyEven32, mul_epu32)  // products of the lower halves of lanes of 64 bits
ORVACAM_OPERATION(shiftRight32, srlv_epi32)
ORVACAM_OPERATION(multiplyRounded15, mulhrs_epi16)  // (a * b + 2^14) >> 15, signed
ORVACAM_OPERATION(packToLimit16, packus_epi32)
#undef ORVACAM_OPERATION

namespace {

/// Products of 16-bit lanes, in an order that packToLimit16 undoes.
struct Products {
  Register first;
  Register second;
};

}  // namespace

static Products multiply16(Register a, Register b) {
  const Register low = ORVACAM_X86(mullo_epi16)(a, b);
  const Register high = ORVACAM_X86(mulhi_epu16)(a, b);
  return {ORVACAM_X86(unpacklo_epi16)(low, high), ORVACAM_X86(unpackhi_epi16)(low, high)};
}

/// a times the lower 16 bits of a lane of 32, plus the upper ones, all signed and a positive.
static Products multiplyAndAdd16(Register a, Register factorAndAddend) {
  const Register one = spread16(1);
  return {ORVACAM_X86(madd_epi16)(ORVACAM_X86(unpacklo_epi16)(a, one), factorAndAddend),
          ORVACAM_X86(madd_epi16)(ORVACAM_X86(unpackhi_epi16)(a, one), factorAndAddend)};
}

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_X86_REGISTERS_H
