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

constexpr std::size_t lineBytes = 64;
constexpr std::size_t pixelsOfLine = lineBytes / sizeof(std::uint16_t);

/// Pixels ahead of the first cache line: what is streamed begins there.
static std::size_t pixelsToLine(const std::uint16_t* target) {
  return (0 - reinterpret_cast<std::uintptr_t>(target)) % lineBytes / sizeof *target;
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
  const std::size_t ahead = pixelsToLine(pixels);
  if (ahead % 2 != 0 || ahead / 2 > pairs) {  // whole pairs never meet the alignment
    unpackPairs<cached>(packed, pixels, pairs);
    return;
  }
  unpackPairs<cached>(packed, pixels, ahead / 2);
  unpackPairs<streaming>(packed + 3 * (ahead / 2), pixels + ahead, pairs - ahead / 2);
}

// ---- Byte order

static void swapBytesStreaming(const std::uint16_t* source, std::uint16_t* destination, std::size_t count) {
  const std::size_t ahead = pixelsToLine(destination);
  std::size_t i = ahead < count ? ahead : count;
  loops::swapBytes(source, destination, i);
  for (; i + lanes <= count; i += lanes)
    stream(destination + i, bytesSwapped16(load(source + i)));
  loops::swapBytes(source + i, destination + i, count - i);
}

/// From the first destination element on, unlike the plain version.
static void swapBytesMirroredStreaming(const std::uint16_t* source, std::uint16_t* destination,
                                       std::size_t count) {
  const std::size_t ahead = pixelsToLine(destination);
  std::size_t i = ahead < count ? ahead : count;
  loops::swapBytesMirrored(source + count - i, destination, i);
  for (; i + lanes <= count; i += lanes)  // all bytes the other way round: lanes and the bytes in them
    stream(destination + i, bytesReversed(load(source + count - i - lanes)));
  loops::swapBytesMirrored(source, destination + i, count - i);
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
  const std::size_t ahead = stores == streaming ? pixelsToLine(merged) : 0;
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
  Register minimum, maximum;
};

/// The places of pairs, for all lanes.
struct WideRange {
  Register first, distance;  // to the last
};
struct WidePlaces {
  WideRange low, high, merged, difference;
  Bits lowShift, highShift;
  bool withMerged, withDifference;
};

/// What a run of registers notes.
struct WideNotes {
  WideExtremes low, high, merged;
  WidePlaces where;
};

}  // namespace

static WideExtremes noExtremes() {
  return {spread16(65535), spread16(0)};
}

static void extend(Register pixels, WideExtremes* extremes) {
  *extremes = {minimum16(extremes->minimum, pixels), maximum16(extremes->maximum, pixels)};
}

static Extremes narrowed(const WideExtremes& wide) {
  const Register all = spread16(65535);
  const auto largest = static_cast<std::uint16_t>(65535 - smallestLane16(subtract16(all, wide.maximum)));
  return {smallestLane16(wide.minimum), largest};
}

static WideRange widened(const ValueRange& range) {
  return {spread16(range.first), spread16(static_cast<std::uint16_t>(range.last - range.first))};
}
static WidePlaces widened(const PairPlaces& where) {
  return {widened(where.low),      widened(where.high),      widened(where.merged), widened(where.difference),
          shiftBy(where.lowShift), shiftBy(where.highShift), where.withMerged,      where.withDifference};
}

static WideNotes noNotes(const PairNotes& notes) {
  return {noExtremes(), noExtremes(), noExtremes(), widened(notes.where)};
}

static Register placesOf(Register low, Register high, Register merged, const WidePlaces& where) {
  const Register l = subtract16(low, where.low.first);
  const Register h = subtract16(high, where.high.first);
  Register place = shiftLeft16(l, where.lowShift);
  // Bits only in lanes that are beyond a range.
  Register beyond =
      eitherBits(subtractToZero16(l, where.low.distance), subtractToZero16(h, where.high.distance));
  if (where.withMerged) {
    const Register m = subtract16(merged, where.merged.first);
    beyond = eitherBits(beyond, subtractToZero16(m, where.merged.distance));
  }
  if (where.withDifference) {
    const Register d = subtract16(subtract16(merged, high), where.difference.first);
    place = add16(place, add16(shiftLeft16(h, where.highShift), d));
    beyond = eitherBits(beyond, subtractToZero16(d, where.difference.distance));
  } else {
    place = add16(place, shiftLeft16(h, where.highShift));
  }
  return keepWhereNone16(place, beyond);
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

/// By any factor below 2^15, held in units of 2^-g, by way of 32 bits.
struct SteepLow {
  std::uint32_t factorAndHalf;  // 2^(g - 1) in the upper 16 bits
  std::uint32_t shift;          // g
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
  const std::uint32_t half =
      rule.multiplicativeFractionBits > 0 ? 1U << (rule.multiplicativeFractionBits - 1) : 0;
  return {terms.multiplicativeLow | half << 16, rule.multiplicativeFractionBits};
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
  const Products products = multiplyAndAdd16(pixels, spread32(steep.factorAndHalf));
  const Register shift = spread32(steep.shift);
  return packToLimit16(shiftRight32(products.first, shift), shiftRight32(products.second, shift));
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

/// What is noted of a run.
enum Noting { nothing, markedPixels, places };

namespace {

/// A register of each output.
struct WidePair {
  Register low, high, merged;
};

}  // namespace

/// One register of pixels of both gains, from pixel i of the run on, with its notes.
template <Noting noting, typename Terms>
static inline WidePair mergedPair(const PackedPair& run, std::size_t i, const WideRule& rule,
                                  const Terms& terms, const PairNotes& notes, WideNotes* wide) {
  if (noting == nothing) prefetchNextRows(run, i);  // else counting does
  const Register low = unpacked(run.packedLow + 3 * (i / 2));
  const Register high = unpacked(run.packedHigh + 3 * (i / 2));
  const Register rightLow = packedLow(low, terms, i, rule);
  const Register rightHigh = packedHigh(high, terms, i, rule);
  const Choice highTaken = takesHigh(rightLow, rightHigh, rule);
  const Register merged = chosen(highTaken, rightHigh, rightLow);
  if (noting != nothing && notes.merged != nullptr) store(notes.merged + i, merged);
  if (noting == places) store(notes.places + i, placesOf(low, high, merged, wide->where));
  if (noting == markedPixels) {
    const Register mark = spread16(takenMark);
    store(notes.low + i, chosen(highTaken, low, eitherBits(low, mark)));
    store(notes.high + i, chosen(highTaken, eitherBits(high, mark), high));
    extend(low, &wide->low);
    extend(high, &wide->high);
    extend(merged, &wide->merged);
  }
  return {low, high, merged};
}

template <typename How>
static inline void putPair(const PackedPair& run, std::size_t i, How how, const WidePair& pair) {
  if (run.low != nullptr) put(how, run.low + i, pair.low);
  if (run.high != nullptr) put(how, run.high + i, pair.high);
  put(how, run.merged + i, pair.merged);
}

template <typename Terms>
static inline void prefetchTerms(const Terms& /*terms*/, std::size_t /*i*/) {}
/// Registers of less than a cache line come back to each line while the other six streams pass: there it pays
/// to ask early.
static inline void prefetchTerms(const PlaneTerms& terms, std::size_t i) {
  if (lanes >= pixelsOfLine) return;
  // Addresses for the processor alone, perhaps behind the terms.
  constexpr std::size_t ahead = 2048;
  const std::uintptr_t planes[] = {reinterpret_cast<std::uintptr_t>(terms.additiveLow + i),
                                   reinterpret_cast<std::uintptr_t>(terms.additiveHigh + i),
                                   reinterpret_cast<std::uintptr_t>(terms.multiplicativeLow + i),
                                   reinterpret_cast<std::uintptr_t>(terms.multiplicativeHigh + i)};
  for (const std::uintptr_t plane : planes)
    __builtin_prefetch(reinterpret_cast<const void*>(plane + ahead));
}

/// A cache line of each output at once: one that waits half streamed costs time.
template <Noting noting, typename Terms>
static inline void streamLine(const PackedPair& run, std::size_t i, const WideRule& rule, const Terms& terms,
                              const PairNotes& notes, WideNotes* wide) {
  constexpr std::size_t registers = pixelsOfLine / lanes;
  prefetchTerms(terms, i);
  WidePair pairs[registers];
  for (std::size_t r = 0; r < registers; ++r)
    pairs[r] = mergedPair<noting>(run, i + r * lanes, rule, terms, notes, wide);
  for (std::size_t r = 0; r < registers && run.low != nullptr; ++r)
    stream(run.low + i + r * lanes, pairs[r].low);
  for (std::size_t r = 0; r < registers && run.high != nullptr; ++r)
    stream(run.high + i + r * lanes, pairs[r].high);
  for (std::size_t r = 0; r < registers; ++r)
    stream(run.merged + i + r * lanes, pairs[r].merged);
}

static void finishNotes(const WideNotes& wide, PairNotes* notes) {
  notes->lowExtremes = narrowed(wide.low);
  notes->highExtremes = narrowed(wide.high);
  notes->mergedExtremes = narrowed(wide.merged);
}

template <Noting noting, typename Terms>
static void mergeCached(const PackedPair& given, const MergeRule& rule, const Terms& givenTerms) {
  const PackedPair run = given;  // copies that the output cannot overlap
  const Terms terms = givenTerms;
  const WideRule wide = widened(rule);
  const std::size_t pixels = 2 * run.pairs;
  const PairNotes notes = noting == nothing ? PairNotes() : *run.notes;
  WideNotes wideNotes = noNotes(notes);
  const auto merge = [&](std::size_t i) {
    putPair(run, i, Cached(), mergedPair<noting>(run, i, wide, terms, notes, &wideNotes));
  };
  std::size_t i = 0;
  for (; i + lanes <= pixels; i += lanes)
    merge(i);
  if (i < pixels) merge(pixels - lanes);  // some of them once more
  if (noting == markedPixels) finishNotes(wideNotes, run.notes);
}

/// Streams whole cache lines. Those that the run shares with its neighbours in the planes, at both ends, are
/// written through the cache.
template <Noting noting, typename Terms>
static void mergeStreamed(const PackedPair& given, std::size_t ahead, const MergeRule& rule,
                          const Terms& givenTerms) {
  const PackedPair run = given;
  const Terms terms = givenTerms;
  const WideRule wide = widened(rule);
  const std::size_t pixels = 2 * run.pairs;
  const PairNotes notes = noting == nothing ? PairNotes() : *run.notes;
  WideNotes wideNotes = noNotes(notes);
  const auto merge = [&](std::size_t i, std::size_t firstLane, std::size_t endLane) {
    putPair(run, i, Partly{firstLane, endLane}, mergedPair<noting>(run, i, wide, terms, notes, &wideNotes));
  };
  // The shared line behind is asked for now, so that nothing waits for it then.
  if (run.low != nullptr) __builtin_prefetch(run.low + pixels - 1, 1);
  if (run.high != nullptr) __builtin_prefetch(run.high + pixels - 1, 1);
  __builtin_prefetch(run.merged + pixels - 1, 1);
  std::size_t i = 0;
  for (; i < ahead; i += lanes)
    merge(i, 0, ahead - i < lanes ? ahead - i : lanes);
  for (i = ahead; i + pixelsOfLine <= pixels; i += pixelsOfLine)
    streamLine<noting>(run, i, wide, terms, notes, &wideNotes);
  for (; i + lanes <= pixels; i += lanes)
    merge(i, 0, lanes);
  if (i < pixels) merge(pixels - lanes, lanes - (pixels - i), lanes);
  if (noting == markedPixels) finishNotes(wideNotes, run.notes);
}

/// Pixels ahead of the first cache line that all outputs begin together, an even number; more than the run
/// has when they do not.
static std::size_t pixelsToCommonLine(const PackedPair& run) {
  const std::size_t pixels = pixelsToLine(run.merged);
  const bool together = (run.low == nullptr || pixelsToLine(run.low) == pixels) &&
                        (run.high == nullptr || pixelsToLine(run.high) == pixels);
  return together && pixels % 2 == 0 ? pixels : 2 * run.pairs + 1;
}

template <Stores stores, Noting noting, typename Terms>
static void mergeNoting(const PackedPair& run, const MergeRule& rule, const Terms& terms) {
  const std::size_t ahead = pixelsToCommonLine(run);
  if (stores == streaming && ahead + 2 * pixelsOfLine <= 2 * run.pairs)
    mergeStreamed<noting>(run, ahead, rule, terms);
  else
    mergeCached<noting>(run, rule, terms);
}

template <Stores stores, typename Terms>
static void mergePackedBy(const PackedPair& run, const MergeRule& rule, const Terms& terms) {
  if (run.notes == nullptr)
    mergeNoting<stores, nothing>(run, rule, terms);
  else if (run.notes->places == nullptr)
    mergeNoting<stores, markedPixels>(run, rule, terms);
  else
    mergeNoting<stores, places>(run, rule, terms);
}

template <Stores stores>
static void mergePackedUniform(const PackedPair& run, const MergeRule& rule, const UniformTerms& terms) {
  const bool lowAlone = changesLowAlone(rule, terms);
  if (2 * run.pairs < lanes)
    loops::mergePacked(run, rule, terms);
  else if (lowAlone && scaledLow(rule, terms).factor <= 65535)
    mergePackedBy<stores>(run, rule, scaledLow(rule, terms));
  else if (lowAlone && terms.multiplicativeLow <= 32767)
    mergePackedBy<stores>(run, rule, steepLow(rule, terms));
  else
    mergePackedBy<stores>(run, rule, terms);
}

template <Stores stores>
static void mergePackedPlanes(const PackedPair& run, const MergeRule& rule, const PlaneTerms& terms) {
  if (2 * run.pairs < lanes)
    loops::mergePacked(run, rule, terms);
  else
    mergePackedBy<stores>(run, rule, terms);
}

// ---- Statistics

/// Two of each, because the next register of one waits for the one before.
static void findExtremes(const std::uint16_t* pixels, std::size_t count, Extremes* extremes) {
  if (count < 2 * lanes) {
    loops::findExtremes(pixels, count, extremes);
    return;
  }
  WideExtremes some = noExtremes();
  WideExtremes others = noExtremes();
  for (std::size_t i = 0; i < count; i += 2 * lanes) {
    const std::size_t at = i + 2 * lanes <= count ? i : count - 2 * lanes;  // some of them once more
    extend(load(pixels + at), &some);
    extend(load(pixels + at + lanes), &others);
  }
  *extremes = narrowed({minimum16(some.minimum, others.minimum), maximum16(some.maximum, others.maximum)});
}

static std::size_t findFirst(const std::uint16_t* pixels, std::size_t count, std::uint16_t value) {
  const Register wanted = spread16(value);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes)
    if (const unsigned found = lanesEqual16(load(pixels + i), wanted))
      return i + static_cast<unsigned>(__builtin_ctz(found)) / bitsOfLane;
  return i + loops::findFirst(pixels + i, count - i, value);
}

static std::size_t findEach(const std::uint16_t* values, std::size_t count, std::uint16_t value,
                            std::uint16_t* positions) {
  constexpr unsigned firstBits = ~0U / ((1U << bitsOfLane) - 1);  // one for each lane
  constexpr std::size_t blockRegisters = 64;
  const Register wanted = spread16(value);
  std::size_t found = 0;
  std::size_t i = 0;
  // First the registers that have any: which ones cannot be foreseen, and nothing waits for it so.
  while (i + lanes <= count) {
    const std::size_t registers = (count - i) / lanes < blockRegisters ? (count - i) / lanes : blockRegisters;
    std::uint8_t some[blockRegisters];
    std::size_t having = 0;
    for (std::size_t r = 0; r < registers; ++r) {
      some[having] = static_cast<std::uint8_t>(r);
      having += lanesEqual16(load(values + i + r * lanes), wanted) != 0 ? 1U : 0U;
    }
    for (std::size_t k = 0; k < having; ++k) {
      const std::size_t first = i + some[k] * lanes;
      for (unsigned equal = lanesEqual16(load(values + first), wanted) & firstBits; equal != 0;
           equal &= equal - 1)
        positions[found++] =
            static_cast<std::uint16_t>(first + static_cast<unsigned>(__builtin_ctz(equal)) / bitsOfLane);
    }
    i += registers * lanes;
  }
  const std::size_t behind = loops::findEach(values + i, count - i, value, positions + found);
  for (const std::size_t end = found + behind; found < end; ++found)
    positions[found] = static_cast<std::uint16_t>(positions[found] + i);
  return found;
}

static std::uint64_t load4(const std::uint16_t* pixels) {
  std::uint64_t four;
  __builtin_memcpy(&four, pixels, sizeof four);
  return four;
}

/// A histogram has no vector form: one addition a value is the floor.
static void countValues(const std::uint16_t* values, std::size_t count, std::uint32_t* counts,
                        std::size_t stride, const void* next, std::size_t nextBytes) {
  static_assert(countBanks == 4);
  constexpr std::size_t valuesOfTurn = 16, bytesOfTurn = 64;
  const auto ahead = reinterpret_cast<std::uintptr_t>(next);
  std::uint32_t* const second = counts + stride;
  std::uint32_t* const third = second + stride;
  std::uint32_t* const fourth = third + stride;
  std::size_t i = 0;
  for (std::size_t asked = 0; i + valuesOfTurn <= count; i += valuesOfTurn, asked += bytesOfTurn) {
    if (asked < nextBytes) __builtin_prefetch(reinterpret_cast<const void*>(ahead + asked));
    for (std::size_t of = 0; of < valuesOfTurn; of += 4) {
      const std::uint64_t four = load4(values + i + of);
      ++counts[four & 0xFFFF];
      ++second[four >> 16 & 0xFFFF];
      ++third[four >> 32 & 0xFFFF];
      ++fourth[four >> 48];
    }
  }
  loops::countValues(values + i, count - i, counts, stride, nullptr, 0);
}

static Register pairPlaces(Register pixels, Register first) {
  const Register distances = subtract16(pixels, first);
  const Register together = eitherBits(distances, shiftRight32(distances, spread32(16 - pairWindowBits)));
  constexpr std::uint32_t outside = 0xFFFFU >> pairWindowBits << pairWindowBits;
  return keepWhereNone32(bothBits(together, spread32((1U << 2 * pairWindowBits) - 1)),
                         bothBits(distances, spread16(outside)));
}

static void placePairs(const std::uint16_t* pixels, std::size_t pairs, std::uint16_t first,
                       std::uint16_t* places, Extremes* extremes) {
  if (pairs < lanes) {
    loops::placePairs(pixels, pairs, first, places, extremes);
    return;
  }
  const Register wideFirst = spread16(first);
  Register smallest = spread16(65535);
  Register largest = spread16(0);
  for (std::size_t pair = 0; pair < pairs; pair += lanes) {
    const std::size_t at = pair + lanes <= pairs ? pair : pairs - lanes;  // some of them once more
    const Register some = load(pixels + 2 * at);
    const Register others = load(pixels + 2 * at + lanes);
    store(places + at, narrowed32(pairPlaces(some, wideFirst), pairPlaces(others, wideFirst)));
    smallest = minimum16(smallest, minimum16(some, others));
    largest = maximum16(largest, maximum16(some, others));
  }
  *extremes = narrowed({smallest, largest});
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
    for (std::size_t i = 0; i < run; i += 4) {
      const std::uint64_t four = load4(places + i);
      merged[done + i] = values[four & 0xFFFF];
      merged[done + i + 1] = values[four >> 16 & 0xFFFF];
      merged[done + i + 2] = values[four >> 32 & 0xFFFF];
      merged[done + i + 3] = values[four >> 48];
    }
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
                                            countValues,
                                            placePairs,
                                            findExtremes,
                                            findFirst,
                                            findEach,
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
                                            swapBytesStreaming,
                                            swapBytesMirroredStreaming,
                                            mergeUniform<streaming>,
                                            mergePlanes<streaming>,
                                            finishStreaming,
                                            mergePackedUniform<cached>,
                                            mergePackedPlanes<cached>,
                                            mergePackedUniform<streaming>,
                                            mergePackedPlanes<streaming>};

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_KERNELS_H
