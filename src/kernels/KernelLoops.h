#ifndef ORVACAM_SRC_KERNELS_KERNEL_LOOPS_H
#define ORVACAM_SRC_KERNELS_KERNEL_LOOPS_H

// The plain definition of every kernel. Each instruction set's source includes it, so that loops which the
// compiler vectorises as well as a hand would are written once. Everything is static: a function built for a
// new processor must not be linked into code for an old one.

#include "kernels/KernelTables.h"
#include "kernels/Kernels.h"
#include "kernels/StackLoops.h"

namespace orvacam::kernels::loops {

static void unpackPair(const std::uint8_t* packed, std::uint16_t* pixels) {
  const std::uint32_t both = std::uint32_t{packed[0]} << 16 | std::uint32_t{packed[1]} << 8 | packed[2];
  pixels[0] = static_cast<std::uint16_t>(both >> 12);
  pixels[1] = static_cast<std::uint16_t>(both & 4095);
}

/// Written so that compilers make one load of it.
static std::uint64_t bigEndian64(const std::uint8_t* bytes) {
  return std::uint64_t{bytes[0]} << 56 | std::uint64_t{bytes[1]} << 48 | std::uint64_t{bytes[2]} << 40 |
         std::uint64_t{bytes[3]} << 32 | std::uint64_t{bytes[4]} << 24 | std::uint64_t{bytes[5]} << 16 |
         std::uint64_t{bytes[6]} << 8 | bytes[7];
}

/// Two pairs, from the first 6 of 8 bytes, as they lie in memory.
static std::uint64_t fourPixels(const std::uint8_t* packed) {
  constexpr std::uint64_t lowerPixels = 0x00000FFF00000FFF;
  const std::uint64_t bits = bigEndian64(packed) >> 16;
  const std::uint64_t pairs = bits >> 24 | (bits & 0xFFFFFF) << 32;  // one in each half
  return (pairs >> 12 & lowerPixels) | (pairs & lowerPixels) << 16;
}

static void unpack12(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  std::size_t i = 0;
  for (; i + 3 <= pairs; i += 2) {  // as long as 8 bytes are there
    const std::uint64_t four = fourPixels(packed + 3 * i);
    __builtin_memcpy(pixels + 2 * i, &four, sizeof four);
  }
  for (; i < pairs; ++i)
    unpackPair(packed + 3 * i, pixels + 2 * i);
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

static void countValues(const std::uint16_t* values, std::size_t count, std::uint32_t* counts,
                        std::size_t stride, const void* /*next*/, std::size_t /*nextBytes*/) {
  for (std::size_t i = 0; i < count; ++i)
    ++counts[i % countBanks * stride + values[i]];
}

static void findExtremes(const std::uint16_t* pixels, std::size_t count, Extremes* extremes) {
  std::uint16_t smallest = pixels[0];
  std::uint16_t largest = pixels[0];
  for (std::size_t i = 1; i < count; ++i) {
    smallest = pixels[i] < smallest ? pixels[i] : smallest;
    largest = pixels[i] > largest ? pixels[i] : largest;
  }
  *extremes = {smallest, largest};
}

static void placePairs(const std::uint16_t* pixels, std::size_t pairs, std::uint16_t first,
                       std::uint16_t* places, Extremes* extremes) {
  for (std::size_t i = 0; i < pairs; ++i) {
    const auto a = static_cast<std::uint16_t>(pixels[2 * i] - first);
    const auto b = static_cast<std::uint16_t>(pixels[2 * i + 1] - first);
    const bool inside = (a | b) >> pairWindowBits == 0;
    places[i] = static_cast<std::uint16_t>(inside ? a | b << pairWindowBits : 0);
  }
  findExtremes(pixels, 2 * pairs, extremes);
}

static void sumCounts(const std::uint32_t* counts, std::size_t size, std::uint32_t first, CountSums* sums) {
  for (std::size_t group = 0; group < size; group += countGroup) {
    std::uint32_t any = 0;
    for (std::size_t i = group; i < group + countGroup; ++i)
      any |= counts[i];
    for (std::size_t i = group; any != 0 && i < group + countGroup; ++i) {
      const std::uint64_t count = counts[i];
      const std::uint64_t value = first + i;
      sums->pixels += count;
      sums->values += count * value;
      sums->squares += count * value * value;
      if (count > sums->largest) sums->largest = counts[i];
    }
  }
}

static std::size_t findFirst(const std::uint16_t* pixels, std::size_t count, std::uint16_t value) {
  std::size_t i = 0;
  while (i < count && pixels[i] != value)
    ++i;
  return i;
}

static std::size_t findEach(const std::uint16_t* values, std::size_t count, std::uint16_t value,
                            std::uint16_t* positions) {
  std::size_t found = 0;
  for (std::size_t i = 0; i < count; ++i)
    if (values[i] == value) positions[found++] = static_cast<std::uint16_t>(i);
  return found;
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

template <typename Term>
static Term termAt(Term ofAll, std::size_t /*i*/) {
  return ofAll;
}
template <typename Term>
static Term termAt(const Term* terms, std::size_t i) {
  return terms[i];
}

static UniformTerms termsFrom(const UniformTerms& terms, std::size_t /*i*/) {
  return terms;
}
static PlaneTerms termsFrom(const PlaneTerms& terms, std::size_t i) {
  return {terms.additiveLow + i, terms.additiveHigh + i, terms.multiplicativeLow + i,
          terms.multiplicativeHigh + i};
}

namespace {

/// What the correction of a pixel needs, from the first pixel of a run on: `low` and `high` correct pixel i
/// of their plane; `from` is the same for a run that begins at pixel i of this one.
template <typename Terms>
struct Corrector {
  MergeRule rule;
  Terms terms;

  std::int32_t low(std::int32_t pixel, std::size_t i) const {
    return corrected(pixel, termAt(terms.additiveLow, i), termAt(terms.multiplicativeLow, i), rule);
  }
  std::int32_t high(std::int32_t pixel, std::size_t i) const {
    return corrected(pixel, termAt(terms.additiveHigh, i), termAt(terms.multiplicativeHigh, i), rule);
  }
  Corrector from(std::size_t i) const { return {rule, termsFrom(terms, i)}; }
};

}  // namespace

template <typename Terms>
static void merge(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                  std::size_t count, const Corrector<Terms>& given) {
  const Corrector<Terms> corrector = given;  // a copy that the output cannot overlap
  for (std::size_t i = 0; i < count; ++i)
    merged[i] = chosen(corrector.low(low[i], i), corrector.high(high[i], i), corrector.rule);
}

static void mergeUniform(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                         std::size_t count, const MergeRule& rule, const UniformTerms& terms) {
  merge(low, high, merged, count, Corrector<UniformTerms>{rule, terms});
}

static void mergePlanes(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const MergeRule& rule, const PlaneTerms& terms) {
  merge(low, high, merged, count, Corrector<PlaneTerms>{rule, terms});
}

static void extend(std::uint16_t value, Extremes* extremes) {
  if (value < extremes->minimum) extremes->minimum = value;
  if (value > extremes->maximum) extremes->maximum = value;
}

static std::uint16_t distanceFrom(std::uint16_t first, int value) {
  return static_cast<std::uint16_t>(value - first);
}
static bool within(int value, const ValueRange& range) {
  return distanceFrom(range.first, value) <= distanceFrom(range.first, range.last);
}

static std::uint16_t placeOf(std::uint16_t low, std::uint16_t high, std::uint16_t merged,
                             const PairPlaces& where) {
  const int difference = merged - high;
  if (!within(low, where.low) || !within(high, where.high)) return 0;
  if (where.withMerged && !within(merged, where.merged)) return 0;
  if (where.withDifference && !within(difference, where.difference)) return 0;
  const std::uint32_t place = (std::uint32_t{distanceFrom(where.low.first, low)} << where.lowShift) +
                              (std::uint32_t{distanceFrom(where.high.first, high)} << where.highShift);
  return static_cast<std::uint16_t>(
      where.withDifference ? place + distanceFrom(where.difference.first, difference) : place);
}

/// Notes pixel i of the run.
template <typename Terms>
static void notePixel(const PackedPair& run, std::size_t i, std::uint16_t low, std::uint16_t high,
                      const Corrector<Terms>& corrector) {
  PairNotes& notes = *run.notes;
  const std::uint16_t merged = run.merged[i];
  if (notes.merged != nullptr) notes.merged[i] = merged;
  if (notes.places != nullptr) {
    notes.places[i] = placeOf(low, high, merged, notes.where);
    return;
  }
  const bool lowTaken = takesLow(corrector.low(low, i), corrector.high(high, i), corrector.rule);
  notes.low[i] = static_cast<std::uint16_t>(lowTaken ? low | takenMark : low);
  notes.high[i] = static_cast<std::uint16_t>(lowTaken ? high : high | takenMark);
  if (i == 0) {
    notes.lowExtremes = {low, low};
    notes.highExtremes = {high, high};
    notes.mergedExtremes = {merged, merged};
  }
  extend(low, &notes.lowExtremes);
  extend(high, &notes.highExtremes);
  extend(merged, &notes.mergedExtremes);
}

/// In blocks, whose loops the compiler vectorises where it can.
template <typename Terms>
static void mergePacked(const PackedPair& run, const Corrector<Terms>& corrector) {
  constexpr std::size_t block = 256;
  std::uint16_t low[block];
  std::uint16_t high[block];
  for (std::size_t done = 0; done < 2 * run.pairs; done += block) {
    const std::size_t left = 2 * run.pairs - done;
    const std::size_t count = left < block ? left : block;
    unpack12(run.packedLow + 3 * (done / 2), low, count / 2);
    unpack12(run.packedHigh + 3 * (done / 2), high, count / 2);
    merge(low, high, run.merged + done, count, corrector.from(done));
    if (run.low != nullptr) __builtin_memcpy(run.low + done, low, count * sizeof *low);
    if (run.high != nullptr) __builtin_memcpy(run.high + done, high, count * sizeof *high);
    for (std::size_t i = 0; i < count && run.notes != nullptr; ++i)
      notePixel(run, done + i, low[i], high[i], corrector);
  }
}

static void mergePackedUniform(const PackedPair& run, const MergeRule& rule, const UniformTerms& terms) {
  mergePacked(run, Corrector<UniformTerms>{rule, terms});
}

static void mergePackedPlanes(const PackedPair& run, const MergeRule& rule, const PlaneTerms& terms) {
  mergePacked(run, Corrector<PlaneTerms>{rule, terms});
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

static void finishStreaming() {}

/// The loops above, as the including source is compiled.
static constexpr KernelTable table(const char* name, std::uint32_t needs) {
  KernelTable table{};
  table.name = name;
  table.needs = needs;
  ORVACAM_PUT_TWICE(table, loops, unpack12);
  ORVACAM_PUT_TWICE(table, loops, swapBytes);
  ORVACAM_PUT_TWICE(table, loops, swapBytesMirrored);
  ORVACAM_PUT(table, loops, subtractBias);
  ORVACAM_PUT(table, loops, countValues);
  ORVACAM_PUT(table, loops, placePairs);
  ORVACAM_PUT(table, loops, findExtremes);
  ORVACAM_PUT(table, loops, findFirst);
  ORVACAM_PUT(table, loops, findEach);
  ORVACAM_PUT(table, loops, sumCounts);
  ORVACAM_PUT_TWICE(table, loops, mergeUniform);
  ORVACAM_PUT_TWICE(table, loops, mergePlanes);
  ORVACAM_PUT(table, loops, mergeMapped);
  ORVACAM_PUT(table, loops, mergeByLine);
  ORVACAM_PUT(table, loops, addToSums8);
  ORVACAM_PUT(table, loops, addToSums16);
  ORVACAM_PUT(table, loops, startSums8);
  ORVACAM_PUT(table, loops, startSums16);
  ORVACAM_PUT(table, loops, emptySums);
  ORVACAM_PUT(table, loops, meansOfSums);
  ORVACAM_PUT(table, loops, meansOfRecentSums);
  ORVACAM_PUT(table, loops, addToMoments);
  ORVACAM_PUT(table, loops, keepLesser);
  ORVACAM_PUT(table, loops, keepGreater);
  ORVACAM_PUT(table, loops, sortColumns16);
  ORVACAM_PUT(table, loops, sortColumns64);
  ORVACAM_PUT(table, loops, finishStreaming);
  ORVACAM_PUT_TWICE(table, loops, mergePackedUniform);
  ORVACAM_PUT_TWICE(table, loops, mergePackedPlanes);
  return table;
}

}  // namespace orvacam::kernels::loops

#endif  // ORVACAM_SRC_KERNELS_KERNEL_LOOPS_H
