#ifndef ORVACAM_SRC_KERNELS_VECTOR_PACKED_MERGE_H
#define ORVACAM_SRC_KERNELS_VECTOR_PACKED_MERGE_H

// A part of VectorKernels.h: unpacking and merging in one go, with notes for the counts.

#include "kernels/VectorMerge.h"
#include "kernels/VectorRegisters.h"

namespace orvacam::kernels {

namespace {

/// ValueRange and PairPlaces for all lanes.
struct WideRange {
  Register first, distance;  // distance = last - first
};
struct WidePlaces {
  WideRange low, high, merged, difference;
  Bits lowShift, highShift;
  bool withMerged, withDifference;
};

/// The extremes seen so far, and where pairs are counted.
struct WideNotes {
  WideExtremes low, high, merged;
  WidePlaces where;
};

}  // namespace

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

/// Always inline, like all that is done for each register: a call hands registers on through memory.
[[gnu::always_inline]] static inline Register placesOf(Register low, Register high, Register merged,
                                                       const WidePlaces& where) {
  const Register l = subtract16(low, where.low.first);
  const Register h = subtract16(high, where.high.first);
  Register place = shiftLeft16(l, where.lowShift);
  // Lanes that are out of a range have bits here.
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

/// A prefetch hint: the same pixels of the next row pair. The processor does not predict where the next rows
/// begin. The addresses may be behind the stream; they are never read.
static inline void prefetchNextRows(const PackedPair& run, std::size_t i) {
  const std::size_t offset = 3 * (i / 2);
  const auto low = reinterpret_cast<std::uintptr_t>(run.packedLow) + offset;
  const auto high = reinterpret_cast<std::uintptr_t>(run.packedHigh) + offset;
  const std::uintptr_t rowPair = 2 * (high - low);
  __builtin_prefetch(reinterpret_cast<const void*>(low + rowPair), 0, 2);
  __builtin_prefetch(reinterpret_cast<const void*>(high + rowPair), 0, 2);
}

/// s = clamp((p << f) + a, 0, 32767). p << f has 15 bits, so that a saturating signed addition and a maximum
/// do.
static Register packedSums(Register pixels, Register additive, const WideRule& rule) {
  return maximumSigned16(addSigned16(shiftLeft16(pixels, rule.additiveShift), additive), spread16(0));
}
static Register correctedPacked(Register pixels, Register additive, Register multiplicative,
                                const WideRule& rule) {
  const Products products = multiply16(packedSums(pixels, additive, rule), multiplicative);
  return packToLimit16(shiftRight32(add32(products.first, rule.half), rule.resultShift),
                       shiftRight32(add32(products.second, rule.half), rule.resultShift));
}

namespace {

// Correctors as in VectorMerge.h, of a rule and terms.

template <typename Terms>
struct PackedCorrector {
  /// Terms one by one: a record that was just stored by parts, and is loaded whole, waits for all stores.
  PackedCorrector(const MergeRule& narrow, const Terms& given)
      : rule(widened(narrow)),
        terms{given.additiveLow, given.additiveHigh, given.multiplicativeLow, given.multiplicativeHigh} {}

  Register low(Register pixels, std::size_t i) const {
    return correctedPacked(pixels, termsAt(terms.additiveLow, i), termsAt(terms.multiplicativeLow, i), rule);
  }
  Register high(Register pixels, std::size_t i) const {
    return correctedPacked(pixels, termsAt(terms.additiveHigh, i), termsAt(terms.multiplicativeHigh, i),
                           rule);
  }

  WideRule rule;
  Terms terms;
};

constexpr std::uint32_t scaleBits = 12;

// Identity frames, the usual case: the low-gain plane is scaled to the high-gain plane, which stays as it is.

/// c = (p * factor + half) >> scaleBits, where factor < 2^16, half = 1 << (scaleBits - 1).
struct ScaledLow {
  ScaledLow(const MergeRule& narrow, const UniformTerms& terms)
      : rule(widened(narrow)), factor(factorOf(narrow, terms)) {}

  static std::uint32_t factorOf(const MergeRule& rule, const UniformTerms& terms) {
    return std::uint32_t{terms.multiplicativeLow} << (scaleBits - rule.multiplicativeFractionBits);
  }

  Register low(Register pixels, std::size_t /*i*/) const {
    const Register wide = widened12(pixels);
    return add16(multiplyHigh16(wide, spread16(factor)), topBit16(multiplyLow16(wide, spread16(factor))));
  }
  static Register high(Register pixels, std::size_t /*i*/) { return pixels; }

  WideRule rule;
  std::uint32_t factor;
};

/// c = (p * m + half) >> g in 32 bits, where m < 2^15.
struct SteepLow {
  SteepLow(const MergeRule& narrow, const UniformTerms& terms)
      : rule(widened(narrow)),
        factorAndHalf(terms.multiplicativeLow | half(narrow.multiplicativeFractionBits) << 16),
        shift(narrow.multiplicativeFractionBits) {}

  static std::uint32_t half(std::uint32_t g) { return g > 0 ? 1U << (g - 1) : 0; }

  Register low(Register pixels, std::size_t /*i*/) const {
    const Products products = multiplyAndAdd16(pixels, spread32(factorAndHalf));
    return packToLimit16(shiftRight32(products.first, spread32(shift)),
                         shiftRight32(products.second, spread32(shift)));
  }
  static Register high(Register pixels, std::size_t /*i*/) { return pixels; }

  WideRule rule;
  std::uint32_t factorAndHalf;  ///< m + (half << 16), half = 2^(g - 1)
  std::uint32_t shift;          ///< g
};

}  // namespace

static bool changesLowAlone(const MergeRule& rule, const UniformTerms& terms) {
  return terms.additiveLow == 0 && terms.additiveHigh == 0 && rule.multiplicativeFractionBits <= scaleBits &&
         terms.multiplicativeHigh == 1U << rule.multiplicativeFractionBits;
}

namespace {

// How a register of an output is written.

struct Cached {};
struct Partly {
  std::size_t first, end;  ///< lanes
};

}  // namespace

static inline void put(Cached /*how*/, std::uint16_t* target, Register pixels) {
  store(target, pixels);
}
static inline void put(Partly how, std::uint16_t* target, Register pixels) {
  // Copied from memory: a masked store would also fetch the cache lines of the lanes that it leaves out.
  std::uint16_t values[lanes];
  store(values, pixels);
  __builtin_memcpy(target + how.first, values + how.first, (how.end - how.first) * sizeof *target);
}

/// What is noted of a run.
enum Noting { nothing, markedPixels, places };

namespace {

/// A register for each output.
struct WidePair {
  Register low, high, merged;
};

}  // namespace

/// One register of pixels of both gains, from pixel i of the run on, with its notes.
template <Noting noting, typename Corrector>
[[gnu::always_inline]] static inline WidePair mergedPair(const PackedPair& run, std::size_t i,
                                                         const Corrector& corrector, const PairNotes& notes,
                                                         WideNotes* wide) {
  if (noting == nothing) prefetchNextRows(run, i);  // else the caller does it while it counts
  const Register low = unpacked(run.packedLow + 3 * (i / 2));
  const Register high = unpacked(run.packedHigh + 3 * (i / 2));
  const Register rightLow = corrector.low(low, i);
  const Register rightHigh = corrector.high(high, i);
  const Choice highTaken = takesHigh(rightLow, rightHigh, corrector.rule);
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

/// A prefetch hint: the terms that follow those of pixel i.
template <typename Corrector>
static inline void prefetchTerms(const Corrector& /*corrector*/, std::size_t /*i*/) {}
/// With the four planes of terms there are more streams than the processor prefetches by itself. The
/// addresses may be behind the terms; they are never read.
static inline void prefetchTerms(const PackedCorrector<PlaneTerms>& corrector, std::size_t i) {
  constexpr std::size_t ahead = 2048;
  const PlaneTerms& terms = corrector.terms;
  const std::uintptr_t planes[] = {reinterpret_cast<std::uintptr_t>(terms.additiveLow + i),
                                   reinterpret_cast<std::uintptr_t>(terms.additiveHigh + i),
                                   reinterpret_cast<std::uintptr_t>(terms.multiplicativeLow + i),
                                   reinterpret_cast<std::uintptr_t>(terms.multiplicativeHigh + i)};
  for (const std::uintptr_t plane : planes)
    __builtin_prefetch(reinterpret_cast<const void*>(plane + ahead));
}

/// Merges a cache line of pixels, then streams a whole line to each output. Half-written lines cost time.
template <Noting noting, typename Corrector>
static inline void streamLine(const PackedPair& run, std::size_t i, const Corrector& corrector,
                              const PairNotes& notes, WideNotes* wide) {
  constexpr std::size_t registers = pixelsOfLine / lanes;
  // A register of a whole line without notes leaves the processor time to fetch terms by itself: there asking
  // took a tenth longer.
  if (lanes < pixelsOfLine || noting != nothing) prefetchTerms(corrector, i);
  WidePair pairs[registers];
  for (std::size_t r = 0; r < registers; ++r)
    pairs[r] = mergedPair<noting>(run, i + r * lanes, corrector, notes, wide);
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

template <Noting noting, typename Corrector, typename Terms>
static void mergeCached(const PackedPair& given, const MergeRule& rule, const Terms& terms) {
  const PackedPair run = given;  // a copy that the output cannot overlap
  const Corrector corrector(rule, terms);
  const std::size_t pixels = 2 * run.pairs;
  const PairNotes notes = noting == nothing ? PairNotes() : *run.notes;
  WideNotes wideNotes = noNotes(notes);
  const auto merge = [&](std::size_t i) {
    putPair(run, i, Cached(), mergedPair<noting>(run, i, corrector, notes, &wideNotes));
  };
  std::size_t i = 0;
  for (; i + lanes <= pixels; i += lanes)
    merge(i);
  if (i < pixels) merge(pixels - lanes);  // the last register overlaps
  if (noting == markedPixels) finishNotes(wideNotes, run.notes);
}

/// Streams whole cache lines. The lines at both ends, which the run may share with its neighbours in the
/// planes, are stored through the cache.
template <Noting noting, typename Corrector, typename Terms>
static void mergeStreamed(const PackedPair& given, std::size_t ahead, const MergeRule& rule,
                          const Terms& terms) {
  const PackedPair run = given;
  const Corrector corrector(rule, terms);
  const std::size_t pixels = 2 * run.pairs;
  const PairNotes notes = noting == nothing ? PairNotes() : *run.notes;
  WideNotes wideNotes = noNotes(notes);
  const auto merge = [&](std::size_t i, std::size_t firstLane, std::size_t endLane) {
    putPair(run, i, Partly{firstLane, endLane}, mergedPair<noting>(run, i, corrector, notes, &wideNotes));
  };
  // Fetches the shared line at the end early.
  if (run.low != nullptr) __builtin_prefetch(run.low + pixels - 1, 1);
  if (run.high != nullptr) __builtin_prefetch(run.high + pixels - 1, 1);
  __builtin_prefetch(run.merged + pixels - 1, 1);
  std::size_t i = 0;
  for (; i < ahead; i += lanes)
    merge(i, 0, ahead - i < lanes ? ahead - i : lanes);
  for (i = ahead; i + pixelsOfLine <= pixels; i += pixelsOfLine)
    streamLine<noting>(run, i, corrector, notes, &wideNotes);
  for (; i + lanes <= pixels; i += lanes)
    merge(i, 0, lanes);
  if (i < pixels) merge(pixels - lanes, lanes - (pixels - i), lanes);
  if (noting == markedPixels) finishNotes(wideNotes, run.notes);
}

/// Pixels ahead of the first cache line, an even number that is the same for all outputs; more than the run
/// has if there is none.
static std::size_t pixelsToCommonLine(const PackedPair& run) {
  const std::size_t pixels = pixelsToLine(run.merged);
  const bool together = (run.low == nullptr || pixelsToLine(run.low) == pixels) &&
                        (run.high == nullptr || pixelsToLine(run.high) == pixels);
  return together && pixels % 2 == 0 ? pixels : 2 * run.pairs + 1;
}

template <Stores stores, Noting noting, typename Corrector, typename Terms>
static void mergeNoting(const PackedPair& run, const MergeRule& rule, const Terms& terms) {
  const std::size_t ahead = pixelsToCommonLine(run);
  if (stores == streaming && ahead + 2 * pixelsOfLine <= 2 * run.pairs)
    mergeStreamed<noting, Corrector>(run, ahead, rule, terms);
  else
    mergeCached<noting, Corrector>(run, rule, terms);
}

/// Rule and terms are widened where the loop is: handing registers on takes tens of nanoseconds a run.
template <Stores stores, typename Corrector, typename Terms>
static void mergePackedBy(const PackedPair& run, const MergeRule& rule, const Terms& terms) {
  if (run.notes == nullptr)
    mergeNoting<stores, nothing, Corrector>(run, rule, terms);
  else if (run.notes->places == nullptr)
    mergeNoting<stores, markedPixels, Corrector>(run, rule, terms);
  else
    mergeNoting<stores, places, Corrector>(run, rule, terms);
}

template <Stores stores>
static void mergePackedUniform(const PackedPair& run, const MergeRule& rule, const UniformTerms& terms) {
  const bool lowAlone = changesLowAlone(rule, terms);
  if (2 * run.pairs < lanes)
    loops::mergePackedUniform(run, rule, terms);
  else if (lowAlone && ScaledLow::factorOf(rule, terms) <= 65535)
    mergePackedBy<stores, ScaledLow>(run, rule, terms);
  else if (lowAlone && terms.multiplicativeLow <= 32767)
    mergePackedBy<stores, SteepLow>(run, rule, terms);
  else
    mergePackedBy<stores, PackedCorrector<UniformTerms>>(run, rule, terms);
}

template <Stores stores>
static void mergePackedPlanes(const PackedPair& run, const MergeRule& rule, const PlaneTerms& terms) {
  if (2 * run.pairs < lanes)
    loops::mergePackedPlanes(run, rule, terms);
  else
    mergePackedBy<stores, PackedCorrector<PlaneTerms>>(run, rule, terms);
}

static constexpr void putPackedMerges(KernelTable& table) {
  ORVACAM_PUT_STORES(table, kernels, mergePackedUniform);
  ORVACAM_PUT_STORES(table, kernels, mergePackedPlanes);
}

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_PACKED_MERGE_H
