#ifndef ORVACAM_SRC_KERNELS_KERNELS_H
#define ORVACAM_SRC_KERNELS_KERNELS_H

#include <cstddef>
#include <cstdint>

/// The loops that touch every pixel, as plain functions over pointers and counts. The reference table is the
/// definition; every other table gives the same bits. Pointers need no alignment beyond their type's; source
/// and destination do not overlap unless a kernel says so; counts of 0 touch nothing.
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

/// Shifted by as many additive fraction bits, a packed 12-bit pixel still fits the sum's 15 bits.
constexpr std::uint32_t packedFractionBits = 3;

/// Marks, in a value to be counted, that the merge took this plane's pixel: packed pixels have 12 bits.
constexpr std::uint16_t takenMark = 4096;

/// Smallest and largest value of a run.
struct Extremes {
  std::uint16_t minimum, maximum;
};

/// Values from the first to the last, which may be the smaller one: then they go on at 0 after 65535.
struct ValueRange {
  std::uint16_t first, last;
};

/// Pixels of both gains whose values are within ranges are counted together, one count for both, at the place
/// ((low - its first) << lowShift) + ((high - its first) << highShift), and plus the difference minus its
/// first where that matters. Other pairs have the place 0.
struct PairPlaces {
  ValueRange low, high;
  ValueRange merged;      ///< looked at only where it matters
  ValueRange difference;  ///< of merged - high; the same
  std::uint32_t lowShift, highShift;
  bool withMerged, withDifference;
};

/// What is noted of a run, to count its pixels while they are in the cache: either the places of its pairs,
/// or the low-gain and high-gain pixels, with takenMark on the one that the merge took, and the extremes (of
/// a run without pixels, none).
struct PairNotes {
  std::uint16_t* low;     ///< null where places are wanted
  std::uint16_t* high;    ///< the same
  std::uint16_t* places;  ///< null where the pixels themselves are wanted
  std::uint16_t* merged;  ///< null where they are not wanted once more
  PairPlaces where;       ///< the places
  Extremes lowExtremes, highExtremes, mergedExtremes;
};

/// A run of packed 12-bit pixels of both gains, and where its pixels go. Low and high may be read from the
/// same bytes; outputs do not overlap.
struct PackedPair {
  const std::uint8_t* packedLow;
  const std::uint8_t* packedHigh;
  std::size_t pairs;
  std::uint16_t* low;   ///< null where the plane is not wanted
  std::uint16_t* high;  ///< the same
  std::uint16_t* merged;
  PairNotes* notes;  ///< null where nothing is counted
};

/// Values are counted in four banks in turn, as neighbours are often equal, and a count that was just written
/// cannot be added to again at once; the sum of the banks' entries is the count. The strides keep equal
/// values of two banks from colliding in the cache.
constexpr std::size_t countBanks = 4;
/// The stride of banks of packed pixels, marked or not.
constexpr std::size_t markedBankStride = 2 * takenMark + 272;
constexpr std::size_t markedEntries = countBanks * markedBankStride;

/// Neighbouring pixels of a plane within a window of so many bits are counted together.
constexpr std::uint32_t pairWindowBits = 6;
constexpr std::size_t pairBankStride = (std::size_t{1} << 2 * pairWindowBits) + 272;
constexpr std::size_t pairEntries = countBanks * pairBankStride;

/// Outputs of this size and more leave the caches anyway: kernels named "Streaming" then write around them,
/// which saves reading the output's old contents. Below it they only delay who reads the output next.
constexpr std::size_t streamFromBytes = std::size_t{16} << 20;

struct KernelTable {
  const char* name;     ///< "reference", "avx2", "avx512", "neon"
  bool (*supported)();  ///< whether this processor runs it

  /// 12-bit pairs, 3 bytes each, to 2 x pairs pixels: b0 * 16 + (b1 >> 4), then (b1 & 15) * 256 + b2.
  void (*unpack12)(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs);

  /// Swaps the two bytes of each value; source and destination may be the same.
  void (*swapBytes)(const std::uint16_t* source, std::uint16_t* destination, std::size_t count);
  /// The same, written from the last destination element to the first (mirrored).
  void (*swapBytesMirrored)(const std::uint16_t* source, std::uint16_t* destination, std::size_t count);

  /// plane = max(plane - bias, 0), in place.
  void (*subtractBias)(std::uint16_t* plane, const std::uint16_t* bias, std::size_t count);

  /// Adds every value to its count: value i to bank i % countBanks, which are stride entries apart (0 = one
  /// bank). Only entries of values that occur are touched. Counting leaves memory idle: meanwhile it may be
  /// asked for the bytes that are needed next, an address for the processor alone, of which nothing is read.
  void (*countValues)(const std::uint16_t* values, std::size_t count, std::uint32_t* counts,
                      std::size_t stride, const void* next, std::size_t nextBytes);
  /// The places of pairs of neighbours, a + 2^pairWindowBits * b where a and b are the distances of the
  /// pixels from the window's first value; 0 where either is outside. Then the extremes of at least one pair.
  void (*placePairs)(const std::uint16_t* pixels, std::size_t pairs, std::uint16_t first,
                     std::uint16_t* places, Extremes* extremes);
  /// Smallest and largest value of a run of at least one pixel.
  void (*findExtremes)(const std::uint16_t* pixels, std::size_t count, Extremes* extremes);
  /// First position of a value; count when it is not there.
  std::size_t (*findFirst)(const std::uint16_t* pixels, std::size_t count, std::uint16_t value);
  /// All positions of a value in a run of at most 65536, in order; how many.
  std::size_t (*findEach)(const std::uint16_t* values, std::size_t count, std::uint16_t value,
                          std::uint16_t* positions);

  /// s = clamp((p << f) + a, 0, 32767); c = min((s * m + half) >> (f + g), 65535) for both planes, then the
  /// thresholds choose. Output may be one of the inputs.
  void (*mergeUniform)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                       std::size_t count, const MergeRule& rule, const UniformTerms& terms);
  void (*mergePlanes)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                      std::size_t count, const MergeRule& rule, const PlaneTerms& terms);

  /// merged = map[high * width + low], 0 outside the map.
  void (*mergeMapped)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                      std::size_t count, const std::uint16_t* map, std::uint32_t width, std::uint32_t height);

  /// The same for a square map of `size`, a power of two up to 16384, whose rows below mergeRow (1 to size)
  /// have one value each, 0 in row 0, and are alike from there on: the rows' values, then the columns'.
  void (*mergeByLine)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                      std::size_t count, const std::uint16_t* values, std::uint32_t size,
                      std::uint32_t mergeRow);

  /// sums += pixels. The caller empties 32-bit sums before they can overflow.
  void (*addToSums8)(const std::uint8_t* pixels, std::uint32_t* sums, std::size_t count);
  void (*addToSums16)(const std::uint16_t* pixels, std::uint32_t* sums, std::size_t count);
  /// sums = pixels, whatever they were.
  void (*startSums8)(const std::uint8_t* pixels, std::uint32_t* sums, std::size_t count);
  void (*startSums16)(const std::uint16_t* pixels, std::uint32_t* sums, std::size_t count);
  /// wide += sums; sums = 0.
  void (*emptySums)(std::uint32_t* sums, std::uint64_t* wide, std::size_t count);
  /// means = (wide + sums) / frames, rounded down, low 16 bits; frames is not 0.
  void (*meansOfSums)(const std::uint32_t* sums, const std::uint64_t* wide, std::uint16_t* means,
                      std::size_t count, std::uint32_t frames);
  /// means = sums / frames, rounded down, for sums up to 65535 x frames; frames is not 0.
  void (*meansOfRecentSums)(const std::uint32_t* sums, std::uint16_t* means, std::size_t count,
                            std::uint32_t frames);

  /// The same as their namesakes, past the caches. After the last of them and before anyone else reads the
  /// output, finishStreaming is due, once. Runs of a row and more are worth it; their output is none of
  /// their inputs.
  void (*unpack12Streaming)(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs);
  void (*swapBytesStreaming)(const std::uint16_t* source, std::uint16_t* destination, std::size_t count);
  void (*swapBytesMirroredStreaming)(const std::uint16_t* source, std::uint16_t* destination,
                                     std::size_t count);
  void (*mergeUniformStreaming)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                                std::size_t count, const MergeRule& rule, const UniformTerms& terms);
  void (*mergePlanesStreaming)(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                               std::size_t count, const MergeRule& rule, const PlaneTerms& terms);
  void (*finishStreaming)();

  /// Unpacks and merges in one go: a pixel's corrected values never leave the registers. For rules of at most
  /// packedFractionBits additive fraction bits. Terms per pixel are those of the run's first pixel on.
  void (*mergePackedUniform)(const PackedPair& run, const MergeRule& rule, const UniformTerms& terms);
  void (*mergePackedPlanes)(const PackedPair& run, const MergeRule& rule, const PlaneTerms& terms);
  /// The same, with low, high and merged written past the caches.
  void (*mergePackedUniformStreaming)(const PackedPair& run, const MergeRule& rule,
                                      const UniformTerms& terms);
  void (*mergePackedPlanesStreaming)(const PackedPair& run, const MergeRule& rule, const PlaneTerms& terms);
};

/// Every table that this build holds, the reference first.
const KernelTable* const* allTables(std::size_t& count);

/// The plain definition of every kernel.
const KernelTable& reference();

/// The table that the library works with: chosen for this processor, once, unless one was set.
const KernelTable& active();

/// Makes the library work with this table, which the processor must support; null goes back to the choice.
/// For tests and benchmarks.
void setActive(const KernelTable* table);

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_KERNELS_H
