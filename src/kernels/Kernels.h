#ifndef ORVACAM_SRC_KERNELS_KERNELS_H
#define ORVACAM_SRC_KERNELS_KERNELS_H

#include <cstddef>
#include <cstdint>

/// The loops that touch every pixel, as functions over pointers and counts. The plain table is the
/// definition; every other table gives the same bits. Pointers need no alignment beyond their type's; source
/// and destination do not overlap unless a kernel says so; a count of 0 touches nothing. In which order a
/// kernel stores is its own affair. docs/adding-a-kernel.md says how a kernel gets in here.
namespace orvacam::kernels {

/// The rule of the hardware-style merge in fixed point. Valid for additiveFractionBits <= 15,
/// multiplicativeFractionBits <= 16 and thresholds from 0 to 65535.
struct MergeRule {
  std::uint32_t additiveFractionBits;
  std::uint32_t multiplicativeFractionBits;
  std::int32_t highThreshold;        ///< a corrected high-gain value from here on takes the low-gain pixel
  std::int32_t differenceThreshold;  ///< low minus high above this takes the low-gain pixel
  std::uint32_t type;                ///< 1 = low-gain pixels only, 2 = high-gain pixels only, else merge
};

/// One fixed-point correction for a whole plane pair.
struct UniformTerms {
  std::int16_t additiveLow;
  std::int16_t additiveHigh;
  std::uint16_t multiplicativeLow;
  std::uint16_t multiplicativeHigh;
};

/// Fixed-point corrections per pixel, all four given.
struct PlaneTerms {
  const std::int16_t* additiveLow;
  const std::int16_t* additiveHigh;
  const std::uint16_t* multiplicativeLow;
  const std::uint16_t* multiplicativeHigh;
};

/// The most additive fraction bits of the packed merge: pixel << 3 of a 12-bit pixel fits the sum's 15 bits.
constexpr std::uint32_t packedFractionBits = 3;

/// Added to a noted pixel that the merge took. Packed pixels have 12 bits, so that bit 12 is free.
constexpr std::uint16_t takenMark = 4096;

/// Smallest and largest value of a run.
struct Extremes {
  std::uint16_t minimum, maximum;
};

/// The values first, first + 1, ... last. They go on at 0 after 65535, so that last may be below first.
struct ValueRange {
  std::uint16_t first, last;
};

/// Where a pair of pixels, one of each gain, is counted: one place, one count for both. With
///
///     l = low - low.first          h = high - high.first          d = merged - high - difference.first
///
/// the place is (l << lowShift) + (h << highShift), plus d if withDifference, modulo 65536. It is 0 if low or
/// high is out of its range, if withMerged and merged is, or if withDifference and merged - high is.
struct PairPlaces {
  ValueRange low, high;
  ValueRange merged;      ///< used if withMerged
  ValueRange difference;  ///< of merged - high; used if withDifference
  std::uint32_t lowShift, highShift;
  bool withMerged, withDifference;
};

/// What a merge notes of a run, so that its pixels are counted while they are in the cache. Either the places
/// of its pairs (`places`), or its pixels (`low` and `high`, with takenMark added to the one that the merge
/// took) and their extremes.
struct PairNotes {
  std::uint16_t* low;                                  ///< null: places are noted
  std::uint16_t* high;                                 ///< null: places are noted
  std::uint16_t* places;                               ///< null: pixels are noted
  std::uint16_t* merged;                               ///< the merged pixels once more; null: not wanted
  PairPlaces where;                                    ///< read if places are noted
  Extremes lowExtremes, highExtremes, mergedExtremes;  ///< written if pixels are noted and there are any
};

/// A run of packed 12-bit pixels of both gains, and where its pixels go. Low and high may be read from the
/// same bytes; outputs do not overlap.
struct PackedPair {
  const std::uint8_t* packedLow;
  const std::uint8_t* packedHigh;
  std::size_t pairs;
  std::uint16_t* low;   ///< null: not wanted
  std::uint16_t* high;  ///< null: not wanted
  std::uint16_t* merged;
  PairNotes* notes;  ///< null: nothing is noted
};

/// Value i is counted in bank i % countBanks; the count of a value is the sum over the banks. Neighbours are
/// often equal, and adding to a count that was written just before waits for that store: with banks it rarely
/// happens. Strides are no powers of two, so that the counts of one value in two banks use different cache
/// sets.
constexpr std::size_t countBanks = 4;
/// The stride of banks of packed pixels, marked or not.
constexpr std::size_t markedBankStride = 2 * takenMark + 272;
constexpr std::size_t markedEntries = countBanks * markedBankStride;

/// Neighbours of a plane are counted in pairs if both lie in a window of 2^pairWindowBits values.
constexpr std::uint32_t pairWindowBits = 6;
constexpr std::size_t pairBankStride = (std::size_t{1} << 2 * pairWindowBits) + 272;
constexpr std::size_t pairEntries = countBanks * pairBankStride;

/// Counts come in groups of this size.
constexpr std::uint32_t countGroup = 16;

/// What a histogram amounts to, modulo 2^64.
struct CountSums {
  std::uint64_t pixels;   ///< sum of the counts
  std::uint64_t values;   ///< sum of count * value
  std::uint64_t squares;  ///< sum of count * value^2
  std::uint32_t largest;  ///< count
};

/// Columns that are sorted together: a few registers of each row.
constexpr std::size_t sortedColumns = 32;

/// From this size on an output does not stay in the caches: use the kernels named "Streaming", which store
/// past them and so save the reading of the output's old contents. Below it they only delay the output's next
/// reader.
constexpr std::size_t streamFromBytes = std::size_t{16} << 20;

/// What a processor must have to run a table's kernels. Bits.
enum Feature : std::uint32_t {
  featureAvx2 = 1,
  featureAvx512 = 2,  ///< F, BW and VL
};

struct KernelTable {
  const char* name;     ///< "plain", "avx2", "avx512", "neon"
  std::uint32_t needs;  ///< features

  /// Unpacks 12-bit pixels, 3 bytes b0 b1 b2 a pair: (b0 << 4) + (b1 >> 4) and ((b1 & 15) << 8) + b2.
  void (*unpack12)(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs);

  /// destination[i] = source[i] with its two bytes swapped. Source and destination may be the same.
  void (*swapBytes)(const std::uint16_t* source, std::uint16_t* destination, std::size_t count);
  /// destination[count - 1 - i] = source[i] with its two bytes swapped.
  void (*swapBytesMirrored)(const std::uint16_t* source, std::uint16_t* destination, std::size_t count);

  /// plane[i] = max(plane[i] - bias[i], 0).
  void (*subtractBias)(std::uint16_t* plane, const std::uint16_t* bias, std::size_t count);

  /// ++counts[i % countBanks * stride + values[i]]; with stride 0 there is one bank. No other entry is
  /// touched. next and nextBytes are a prefetch hint: the bytes that the caller needs next. They are never
  /// read.
  void (*countValues)(const std::uint16_t* values, std::size_t count, std::uint32_t* counts,
                      std::size_t stride, const void* next, std::size_t nextBytes);
  /// With a = pixels[2 i] - first and b = pixels[2 i + 1] - first: places[i] = a + (b << pairWindowBits), or
  /// 0 where a or b is not in 0 ... 2^pairWindowBits - 1. Also the extremes of the pixels. At least one pair.
  void (*placePairs)(const std::uint16_t* pixels, std::size_t pairs, std::uint16_t first,
                     std::uint16_t* places, Extremes* extremes);
  /// Smallest and largest of at least one pixel.
  void (*findExtremes)(const std::uint16_t* pixels, std::size_t count, Extremes* extremes);
  /// First position of a value, or count.
  std::size_t (*findFirst)(const std::uint16_t* pixels, std::size_t count, std::uint16_t value);
  /// All positions of a value among at most 65536, in ascending order; returns how many. The positions may go
  /// over the values themselves.
  std::size_t (*findEach)(const std::uint16_t* values, std::size_t count, std::uint16_t value,
                          std::uint16_t* positions);

  /// Adds the counts of the values from `first` on to the sums. `size` is a multiple of countGroup, values
  /// are below 65536. Groups without a count cost least.
  void (*sumCounts)(const std::uint32_t* counts, std::size_t size, std::uint32_t first, CountSums* sums);

  /// Corrects both pixels p with their plane's terms a and m, where f and g are the rule's additive and
  /// multiplicative fraction bits, then takes one of them:
  ///
  ///     s = clamp((p << f) + a, 0, 32767)          c = min((s * m + half) >> (f + g), 65535)
  ///     half = f + g > 0 ? 1 << (f + g - 1) : 0
  ///     merged = high c < highThreshold and low c - high c <= differenceThreshold ? high c : low c
  ///
  /// The rule's type may override the last line. merged may be one of the inputs.
  void (*mergeUniform)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                       std::size_t count, const MergeRule& rule, const UniformTerms& terms);
  void (*mergePlanes)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                      std::size_t count, const MergeRule& rule, const PlaneTerms& terms);

  /// merged[i] = map[high[i] * width + low[i]], or 0 outside the map.
  void (*mergeMapped)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                      std::size_t count, const std::uint16_t* map, std::uint32_t width, std::uint32_t height);

  /// merged[i] = high[i] < mergeRow ? values[high[i]] : values[size + low[i]], or 0 if either pixel is not
  /// below size. This is mergeMapped for a map whose rows below mergeRow have one value each and whose other
  /// rows are alike. size is a power of two up to 16384, mergeRow is in 1 ... size, values[0] is 0.
  void (*mergeByLine)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                      std::size_t count, const std::uint16_t* values, std::uint32_t size,
                      std::uint32_t mergeRow);

  /// sums[i] += pixels[i]. The caller empties the sums before they can overflow.
  void (*addToSums8)(const std::uint8_t* pixels, std::uint32_t* sums, std::size_t count);
  void (*addToSums16)(const std::uint16_t* pixels, std::uint32_t* sums, std::size_t count);
  /// sums[i] = pixels[i].
  void (*startSums8)(const std::uint8_t* pixels, std::uint32_t* sums, std::size_t count);
  void (*startSums16)(const std::uint16_t* pixels, std::uint32_t* sums, std::size_t count);
  /// wide[i] += sums[i], then sums[i] = 0.
  void (*emptySums)(std::uint32_t* sums, std::uint64_t* wide, std::size_t count);
  /// means[i] = low 16 bits of floor((wide[i] + sums[i]) / frames); frames is not 0.
  void (*meansOfSums)(const std::uint32_t* sums, const std::uint64_t* wide, std::uint16_t* means,
                      std::size_t count, std::uint32_t frames);
  /// means[i] = floor(sums[i] / frames), for sums up to 65535 * frames; frames is not 0.
  void (*meansOfRecentSums)(const std::uint32_t* sums, std::uint16_t* means, std::size_t count,
                            std::uint32_t frames);

  /// sums[i] += pixels[i], squares[i] += pixels[i]^2.
  void (*addToMoments)(const std::uint16_t* pixels, std::uint64_t* sums, std::uint64_t* squares,
                       std::size_t count);
  /// kept[i] = min(kept[i], pixels[i]), and the same with max.
  void (*keepLesser)(std::uint16_t* kept, const std::uint16_t* pixels, std::size_t count);
  void (*keepGreater)(std::uint16_t* kept, const std::uint16_t* pixels, std::size_t count);
  /// Sorts each column of `rows` rows of sortedColumns values, which follow each other: the first row then
  /// holds the smallest. No value is a NaN.
  void (*sortColumns16)(std::uint16_t* values, std::size_t rows);
  void (*sortColumns64)(double* values, std::size_t rows);

  /// As their namesakes, with stores past the caches. Call finishStreaming once after the last of them,
  /// before another thread reads the output. Worth it for runs of a row and more. The output is none of the
  /// inputs.
  decltype(unpack12) unpack12Streaming;
  decltype(swapBytes) swapBytesStreaming;
  decltype(swapBytesMirrored) swapBytesMirroredStreaming;
  decltype(mergeUniform) mergeUniformStreaming;
  decltype(mergePlanes) mergePlanesStreaming;
  void (*finishStreaming)();

  /// unpack12 of both gains and the merge in one go, so that corrected values stay in registers. The rule has
  /// at most packedFractionBits additive fraction bits. Planes of terms begin with the run's first pixel.
  void (*mergePackedUniform)(const PackedPair& run, const MergeRule& rule, const UniformTerms& terms);
  void (*mergePackedPlanes)(const PackedPair& run, const MergeRule& rule, const PlaneTerms& terms);
  /// The same, with low, high and merged stored past the caches.
  decltype(mergePackedUniform) mergePackedUniformStreaming;
  decltype(mergePackedPlanes) mergePackedPlanesStreaming;
};

/// Every table that this build holds, the plain one first, faster ones behind slower ones.
const KernelTable* const* allTables(std::size_t& count);

/// The definition of every kernel.
const KernelTable& plain();

/// The kernels that the library works with, chosen once for this processor (Choice.h). The definition stands
/// alone in Active.cpp: a test or benchmark that wants to run the library with other kernels links its own
/// instead.
const KernelTable& active();

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_KERNELS_H
