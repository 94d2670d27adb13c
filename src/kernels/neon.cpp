// Kernels for 64-bit Arm, where every processor has NEON: what is particular to the instruction set.

#include <arm_neon.h>

#include "kernels/KernelTables.h"
#include "kernels/Kernels.h"

namespace orvacam::kernels {

static constexpr const char* tableName = "neon";
static constexpr std::uint32_t tableNeeds = 0;

using Register = uint16x8_t;
using Bits = int16x8_t;  // a number of bits to shift by, in each lane

// ---- Plain operations, named by what they do to lanes of 16 or 32 bits

static Register load(const void* source) {
  return vreinterpretq_u16_u8(vld1q_u8(static_cast<const std::uint8_t*>(source)));
}
static void store(void* target, Register value) {
  vst1q_u8(static_cast<std::uint8_t*>(target), vreinterpretq_u8_u16(value));
}
/// Stores past the caches are no more than a hint here, in pairs of registers: not worth a kernel's shape.
static void stream(void* target, Register value) {
  store(target, value);
}
static void finishStreaming() {}
static Bits shiftBy(std::uint32_t count) {
  return vdupq_n_s16(static_cast<std::int16_t>(count));
}
static Register spread16(std::uint32_t value) {
  return vdupq_n_u16(static_cast<std::uint16_t>(value));
}
static Register spread32(std::uint32_t value) {
  return vreinterpretq_u16_u32(vdupq_n_u32(value));
}
static Register widened12(Register pixels) {
  return vshlq_n_u16(pixels, 4);  // to the top of 16 bits
}
static Register shiftLeft16(Register values, Bits bits) {
  return vshlq_u16(values, bits);
}
/// Operations on the lanes of two registers, and the intrinsics that do them: of 16 bits, or of other lanes.
#define ORVACAM_OPERATION(name, intrinsic)       \
  static Register name(Register a, Register b) { \
    return intrinsic(a, b);                      \
  }
#define ORVACAM_OPERATION_OF(type, name, intrinsic)                               \
  static Register name(Register a, Register b) {                                  \
    return vreinterpretq_u16_##type(                                              \
        intrinsic(vreinterpretq_##type##_u16(a), vreinterpretq_##type##_u16(b))); \
  }
ORVACAM_OPERATION(eitherBits, vorrq_u16)
ORVACAM_OPERATION(bothBits, vandq_u16)
ORVACAM_OPERATION(add16, vaddq_u16)
ORVACAM_OPERATION(subtract16, vsubq_u16)
ORVACAM_OPERATION(subtractToZero16, vqsubq_u16)
ORVACAM_OPERATION(multiplyLow16, vmulq_u16)
ORVACAM_OPERATION(minimum16, vminq_u16)
ORVACAM_OPERATION(maximum16, vmaxq_u16)
ORVACAM_OPERATION_OF(s16, addSigned16, vqaddq_s16)
ORVACAM_OPERATION_OF(s16, maximumSigned16, vmaxq_s16)
ORVACAM_OPERATION_OF(u32, add32, vaddq_u32)
ORVACAM_OPERATION_OF(u32, maximum32, vmaxq_u32)
ORVACAM_OPERATION_OF(u64, add64, vaddq_u64)
ORVACAM_OPERATION_OF(s16, multiplyRounded15, vqrdmulhq_s16)  // (a * b + 2^14) >> 15, signed
#undef ORVACAM_OPERATION
#undef ORVACAM_OPERATION_OF

static Register multiplyHigh16(Register a, Register b) {
  const uint32x4_t first = vmull_u16(vget_low_u16(a), vget_low_u16(b));
  const uint32x4_t second = vmull_high_u16(a, b);
  return vuzp2q_u16(vreinterpretq_u16_u32(first), vreinterpretq_u16_u32(second));
}
static Register topBit16(Register values) {
  return vshrq_n_u16(values, 15);
}
/// Products of the lower halves of lanes of 64 bits.
static Register multiplyEven32(Register a, Register b) {
  return vreinterpretq_u16_u64(
      vmull_u32(vmovn_u64(vreinterpretq_u64_u16(a)), vmovn_u64(vreinterpretq_u64_u16(b))));
}
static Register lowerHalves64(Register values) {
  return vreinterpretq_u16_u64(vandq_u64(vreinterpretq_u64_u16(values), vdupq_n_u64(0xFFFFFFFF)));
}
static Register upperHalves64(Register values) {
  return vreinterpretq_u16_u64(vshrq_n_u64(vreinterpretq_u64_u16(values), 32));
}
static Register shiftRight32(Register values, Register bits) {
  return vreinterpretq_u16_u32(
      vshlq_u32(vreinterpretq_u32_u16(values), vnegq_s32(vreinterpretq_s32_u16(bits))));
}
static Register packToLimit16(Register first, Register second) {
  return vqmovn_high_u32(vqmovn_u32(vreinterpretq_u32_u16(first)), vreinterpretq_u32_u16(second));
}

namespace {

/// Products of 16-bit lanes, in an order that packToLimit16 undoes.
struct Products {
  Register first;
  Register second;
};

}  // namespace

static Products multiply16(Register a, Register b) {
  return {vreinterpretq_u16_u32(vmull_u16(vget_low_u16(a), vget_low_u16(b))),
          vreinterpretq_u16_u32(vmull_high_u16(a, b))};
}

/// a times the lower 16 bits of a lane of 32, plus the upper ones, all signed and a positive.
static Products multiplyAndAdd16(Register a, Register factorAndAddend) {
  const Register factors = vuzp1q_u16(factorAndAddend, factorAndAddend);
  const uint32x4_t addend = vshrq_n_u32(vreinterpretq_u32_u16(factorAndAddend), 16);
  return {vreinterpretq_u16_u32(vmlal_u16(addend, vget_low_u16(a), vget_low_u16(factors))),
          vreinterpretq_u16_u32(vmlal_high_u16(addend, a, factors))};
}

// ---- Where the instruction sets differ

/// A register of pixels, from 12 bytes, as 8 words: b0 b1 for the first pixel of a pair, b1 b2 for the
/// second. The last 8 of the bytes are loaded on their own, so that nothing behind is read: byte 8 stands
/// at 12.
static Register unpacked(const std::uint8_t* packed) {
  static constexpr std::uint8_t order[] = {1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 12, 7, 14, 13, 15, 14};
  static constexpr std::int16_t shifts[] = {-4, 0, -4, 0, -4, 0, -4, 0};
  const uint8x16_t bytes = vcombine_u8(vld1_u8(packed), vld1_u8(packed + 4));
  const Register words = vreinterpretq_u16_u8(vqtbl1q_u8(bytes, vld1q_u8(order)));
  return vandq_u16(vshlq_u16(words, vld1q_s16(shifts)), spread16(0x0FFF));
}

static std::uint16_t smallestLane16(Register values) {
  return vminvq_u16(values);
}
static Register bytesSwapped16(Register values) {
  return vreinterpretq_u16_u8(vrev16q_u8(vreinterpretq_u8_u16(values)));
}
/// All bytes of the register in the opposite order.
static Register bytesReversed(Register values) {
  const uint8x16_t halves = vrev64q_u8(vreinterpretq_u8_u16(values));
  return vreinterpretq_u16_u8(vextq_u8(halves, halves, 8));
}

/// s = clamp(p * 2^f + a, 0, 32767), where a pixel above the largest that can be shifted counts as 65535,
/// which no a brings below 32767.
static Register sums(Register pixels, Register additive, Register factor, Register largestShiftable) {
  const Register shifted = vorrq_u16(vmulq_u16(pixels, factor), vcgtq_u16(pixels, largestShiftable));
  return vminq_u16(vsqaddq_u16(shifted, vreinterpretq_s16_u16(additive)), spread16(32767));
}

static Register whereAtMost16(Register values, Register limit, Register ifAtMost, Register otherwise) {
  return vbslq_u16(vcleq_u16(values, limit), ifAtMost, otherwise);
}

/// The values where what is tested has no bits, else 0.
static Register keepWhereNone16(Register values, Register tested) {
  return vandq_u16(values, vceqzq_u16(tested));
}
/// The same of 32 bits.
static Register keepWhereNone32(Register values, Register tested) {
  return vandq_u16(values, vreinterpretq_u16_u32(vceqzq_u32(vreinterpretq_u32_u16(tested))));
}
/// The values of 32 bits, all below 65536, of one register and then of the other, in order.
static Register narrowed32(Register first, Register second) {
  return vuzp1q_u16(first, second);
}

/// Which lanes take the high-gain pixel.
using Choice = Register;
static Choice takesHigh(Register low, Register high, Register belowHighThreshold,
                        Register differenceThreshold, Register alwaysLow) {
  const Choice dark = vcleq_u16(vorrq_u16(high, alwaysLow), belowHighThreshold);
  return vandq_u16(dark, vcleq_u16(vqsubq_u16(low, high), differenceThreshold));
}
static Register chosen(Choice high, Register ifHigh, Register otherwise) {
  return vbslq_u16(high, ifHigh, otherwise);
}

/// Bits of the lanes that equal the value, from the lowest on, bitsOfLane for each.
constexpr unsigned bitsOfLane = 1;
static unsigned lanesEqual16(Register pixels, Register value) {
  static constexpr std::uint16_t bits[] = {1, 2, 4, 8, 16, 32, 64, 128};
  return vaddvq_u16(vandq_u16(vceqq_u16(pixels, value), vld1q_u16(bits)));
}

}  // namespace orvacam::kernels

#include "kernels/VectorKernels.h"

namespace orvacam::kernels {
constexpr KernelTable neonTable = vectorTable();
}
