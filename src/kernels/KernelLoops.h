#ifndef ORVACAM_SRC_KERNELS_KERNEL_LOOPS_H
#define ORVACAM_SRC_KERNELS_KERNEL_LOOPS_H

// The plain definition of every kernel. Each instruction set's source includes it, so that loops which the
// compiler vectorises as well as a hand would are written once. Everything is static: a function built for a
// new processor must not be linked into code for an old one.

#include "kernels/Kernels.h"

namespace orvacam::kernels::loops {

static void unpack12(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  for (std::size_t i = 0; i < pairs; ++i) {
    const std::uint32_t b0 = packed[3 * i];
    const std::uint32_t b1 = packed[3 * i + 1];
    const std::uint32_t b2 = packed[3 * i + 2];
    pixels[2 * i] = static_cast<std::uint16_t>(b0 << 4 | b1 >> 4);
    pixels[2 * i + 1] = static_cast<std::uint16_t>((b1 & 15) << 8 | b2);
  }
}

static std::uint16_t swapped(std::uint16_t value) {
  return static_cast<std::uint16_t>(value << 8 | value >> 8);
}

static void swapBytes(const std::uint16_t* source, std::uint16_t* destination, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    destination[i] = swapped(source[i]);
}

static void swapBytesMirrored(const std::uint16_t* source, std::uint16_t* destination, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    destination[count - 1 - i] = swapped(source[i]);
}

static void subtractBias(std::uint16_t* plane, const std::uint16_t* bias, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    plane[i] = static_cast<std::uint16_t>(plane[i] > bias[i] ? plane[i] - bias[i] : 0);
}

static void countPixels(const std::uint16_t* pixels, std::size_t count, std::uint32_t* banks) {
  for (std::size_t i = 0; i < count; ++i)
    ++banks[i % countBanks * countBankStride + pixels[i]];
}

static void countMarked(const std::uint16_t* values, std::size_t count, std::uint32_t* banks) {
  for (std::size_t i = 0; i < count; ++i)
    ++banks[i % markedBanks * markedBankStride + values[i]];
}

static void findExtremes(const std::uint16_t* pixels, std::size_t count, std::uint16_t* minimum,
                         std::uint16_t* maximum) {
  std::uint16_t smallest = pixels[0];
  std::uint16_t largest = pixels[0];
  for (std::size_t i = 1; i < count; ++i) {
    smallest = pixels[i] < smallest ? pixels[i] : smallest;
    largest = pixels[i] > largest ? pixels[i] : largest;
  }
  *minimum = smallest;
  *maximum = largest;
}

static std::size_t findFirst(const std::uint16_t* pixels, std::size_t count, std::uint16_t value) {
  std::size_t i = 0;
  while (i < count && pixels[i] != value)
    ++i;
  return i;
}

/// One corrected pixel: the fixed-point form of round(clamp(p + a, 0, max) * m), cut at 65535. All of it fits
/// 32 bits: the shifted pixel and the additive term are below 2^31 together, product and half below 2^32.
static std::int32_t corrected(std::int32_t pixel, std::int32_t additive, std::uint32_t multiplicative,
                              const MergeRule& rule) {
  constexpr std::int32_t largestSum = 32767;  // of a signed 16-bit number, whatever its fraction bits
  std::int32_t sum = (pixel << rule.additiveFractionBits) + additive;
  sum = sum < 0 ? 0 : sum;
  sum = sum > largestSum ? largestSum : sum;
  const std::uint32_t fraction = rule.additiveFractionBits + rule.multiplicativeFractionBits;
  const std::uint32_t half = fraction > 0 ? 1U << (fraction - 1) : 0;
  const std::uint32_t result = (static_cast<std::uint32_t>(sum) * multiplicative + half) >> fraction;
  return static_cast<std::int32_t>(result > 65535 ? 65535 : result);
}

static bool takesLow(std::int32_t low, std::int32_t high, const MergeRule& rule) {
  return rule.type == 1 || (rule.type != 2 && (static_cast<int>(high >= rule.highThreshold) |
                                               static_cast<int>(low - high > rule.differenceThreshold)) != 0);
}

static std::uint16_t chosen(std::int32_t low, std::int32_t high, const MergeRule& rule) {
  return static_cast<std::uint16_t>(takesLow(low, high, rule) ? low : high);
}

static void mergeUniform(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                         std::size_t count, const MergeRule& rule, const UniformTerms& given) {
  const UniformTerms terms = given;  // a copy that the output cannot overlap
  for (std::size_t i = 0; i < count; ++i)
    merged[i] = chosen(corrected(low[i], terms.additiveLow, terms.multiplicativeLow, rule),
                       corrected(high[i], terms.additiveHigh, terms.multiplicativeHigh, rule), rule);
}

static void mergePlanes(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const MergeRule& rule, const PlaneTerms& terms) {
  for (std::size_t i = 0; i < count; ++i)
    merged[i] = chosen(corrected(low[i], terms.additiveLow[i], terms.multiplicativeLow[i], rule),
                       corrected(high[i], terms.additiveHigh[i], terms.multiplicativeHigh[i], rule), rule);
}

static UniformTerms termsAt(const UniformTerms& terms, std::size_t /*i*/) {
  return terms;
}
static UniformTerms termsAt(const PlaneTerms& terms, std::size_t i) {
  return {terms.additiveLow[i], terms.additiveHigh[i], terms.multiplicativeLow[i],
          terms.multiplicativeHigh[i]};
}

static void extend(std::uint16_t value, std::uint16_t* minimum, std::uint16_t* maximum) {
  if (value < *minimum) *minimum = value;
  if (value > *maximum) *maximum = value;
}

/// Notes a pixel of both gains for the counts.
static void notePixel(const PackedPair& run, std::size_t i, std::uint16_t low, std::uint16_t high,
                      const MergeRule& rule, const UniformTerms& terms) {
  const bool lowTaken = takesLow(corrected(low, terms.additiveLow, terms.multiplicativeLow, rule),
                                 corrected(high, terms.additiveHigh, terms.multiplicativeHigh, rule), rule);
  const std::uint16_t merged = run.merged[i];
  run.countedLow[i] = static_cast<std::uint16_t>(lowTaken ? low | takenMark : low);
  run.countedHigh[i] = static_cast<std::uint16_t>(lowTaken ? high : high | takenMark);
  if (run.countedMerged != nullptr) run.countedMerged[i] = merged;
  if (i == 0) *run.extremes = {low, low, high, high, merged, merged};
  extend(low, &run.extremes->lowMinimum, &run.extremes->lowMaximum);
  extend(high, &run.extremes->highMinimum, &run.extremes->highMaximum);
  extend(merged, &run.extremes->mergedMinimum, &run.extremes->mergedMaximum);
}

static PlaneTerms termsFrom(const PlaneTerms& terms, std::size_t i) {
  return {terms.additiveLow + i, terms.additiveHigh + i, terms.multiplicativeLow + i,
          terms.multiplicativeHigh + i};
}
static UniformTerms termsFrom(const UniformTerms& terms, std::size_t /*i*/) {
  return terms;
}

static void mergeBoth(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                      std::size_t count, const MergeRule& rule, const UniformTerms& terms) {
  mergeUniform(low, high, merged, count, rule, terms);
}
static void mergeBoth(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                      std::size_t count, const MergeRule& rule, const PlaneTerms& terms) {
  mergePlanes(low, high, merged, count, rule, terms);
}

/// In blocks, whose loops the compiler vectorises where it can.
template <typename Terms>
static void mergePacked(const PackedPair& run, const MergeRule& rule, const Terms& terms) {
  constexpr std::size_t block = 256;
  std::uint16_t low[block];
  std::uint16_t high[block];
  for (std::size_t done = 0; done < 2 * run.pairs; done += block) {
    const std::size_t left = 2 * run.pairs - done;
    const std::size_t count = left < block ? left : block;
    unpack12(run.packedLow + 3 * (done / 2), low, count / 2);
    unpack12(run.packedHigh + 3 * (done / 2), high, count / 2);
    mergeBoth(low, high, run.merged + done, count, rule, termsFrom(terms, done));
    if (run.low != nullptr) __builtin_memcpy(run.low + done, low, count * sizeof *low);
    if (run.high != nullptr) __builtin_memcpy(run.high + done, high, count * sizeof *high);
    for (std::size_t i = 0; i < count && run.extremes != nullptr; ++i)
      notePixel(run, done + i, low[i], high[i], rule, termsAt(terms, done + i));
  }
}

static void mergeMapped(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const std::uint16_t* map, std::uint32_t width,
                        std::uint32_t height) {
  for (std::size_t i = 0; i < count; ++i)
    merged[i] =
        high[i] < height && low[i] < width ? map[std::size_t{high[i]} * width + low[i]] : std::uint16_t{0};
}

static void mergeByLine(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const std::uint16_t* values, std::uint32_t size,
                        std::uint32_t mergeRow) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t place = high[i] < mergeRow ? high[i] : size + low[i];
    merged[i] = high[i] < size && low[i] < size ? values[place] : std::uint16_t{0};
  }
}

static void addToSums8(const std::uint8_t* pixels, std::uint32_t* sums, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    sums[i] += pixels[i];
}

static void addToSums16(const std::uint16_t* pixels, std::uint32_t* sums, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    sums[i] += pixels[i];
}

static void startSums8(const std::uint8_t* pixels, std::uint32_t* sums, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    sums[i] = pixels[i];
}

static void startSums16(const std::uint16_t* pixels, std::uint32_t* sums, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    sums[i] = pixels[i];
}

static void emptySums(std::uint32_t* sums, std::uint64_t* wide, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    wide[i] += sums[i];
    sums[i] = 0;
  }
}

static void meansOfSums(const std::uint32_t* sums, const std::uint64_t* wide, std::uint16_t* means,
                        std::size_t count, std::uint32_t frames) {
  for (std::size_t i = 0; i < count; ++i)
    means[i] = static_cast<std::uint16_t>((wide[i] + sums[i]) / frames);
}

/// No processor divides vectors of integers. The product with the reciprocal is exact: half a count above the
/// sum, the quotient stays at least 1 / (2 frames) away from every integer, and an error of doubles does not
/// reach that far. Sums are made signed and back, because that is what processors convert.
static void meansOfRecentSums(const std::uint32_t* sums, std::uint16_t* means, std::size_t count,
                              std::uint32_t frames) {
  const double reciprocal = 1.0 / frames;
  for (std::size_t i = 0; i < count; ++i) {
    const double halfMore = static_cast<std::int32_t>(sums[i] ^ 0x80000000U) + 2147483648.5;
    means[i] = static_cast<std::uint16_t>(static_cast<std::int32_t>(halfMore * reciprocal));
  }
}

}  // namespace orvacam::kernels::loops

#endif  // ORVACAM_SRC_KERNELS_KERNEL_LOOPS_H
