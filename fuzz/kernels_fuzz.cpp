// The same bytes through every kernel of every table that this processor runs; stops when one differs from
// the plain table. Inputs and outputs end exactly where their allocations do.

#include <algorithm>

#include "fuzz_support.h"
#include "kernels/Choice.h"
#include "kernels/Kernels.h"

namespace {

namespace kernels = orvacam::kernels;
using fuzz::Bytes;
using fuzz::Input;

/// Values that start a few elements into an allocation and end with it.
template <typename Value>
class Run {
 public:
  Run(std::size_t count, std::size_t misalignment) : m_values(misalignment + count), m_start(misalignment) {}
  Run(const Run&) = default;

  Value* data() { return m_values.data() + m_start; }
  const Value* data() const { return m_values.data() + m_start; }
  Value& operator[](std::size_t i) { return m_values[m_start + i]; }
  Value operator[](std::size_t i) const { return m_values[m_start + i]; }
  std::size_t size() const { return m_values.size() - m_start; }
  bool operator==(const Run& other) const { return m_values == other.m_values; }

 private:
  std::vector<Value> m_values;
  std::size_t m_start;
};

/// One input's worth of data, the same for every table.
struct Data {
  explicit Data(Input& input)
      : count(input.word() % 1200),
        shift(input.upTo(40)),
        packed(3 * count, shift),
        packedHigh(3 * count, 0),
        bytes(count, shift),
        low(count, shift),
        high(count, input.upTo(40)),
        wide(count, 0),
        sums(count, shift),
        frames(1 + input.number()),
        map(std::size_t{input.upTo(60)} * mapWidth),
        rule{input.upTo(15), input.upTo(16), static_cast<std::int32_t>(input.word()),
             static_cast<std::int32_t>(input.word()), input.upTo(3)},
        uniform{static_cast<std::int16_t>(input.word()), static_cast<std::int16_t>(input.word()),
                static_cast<std::uint16_t>(input.word()), static_cast<std::uint16_t>(input.word())},
        additive(count, shift),
        multiplicative(count, 0),
        recent(count, 0),
        recentFrames(1 + input.upTo(60000)),
        outputs(input.byte()),
        line(std::size_t{2} << input.upTo(8)),
        mergeRow(1 + input.word() % static_cast<std::uint32_t>(line.size() / 2)) {
    // What is left, over and over, differs from place to place all the same.
    const Bytes rest = input.rest();
    std::size_t next = 0;
    const auto take = [&] {
      const std::size_t at = next++;
      return static_cast<std::uint8_t>(rest.empty() ? 0 : rest[at % rest.size()] + at / rest.size());
    };
    const auto word = [&] {
      const unsigned int first = take();
      return static_cast<std::uint16_t>(first << 8 | take());
    };
    for (std::size_t i = 0; i < 3 * count; ++i)
      packed[i] = take(), packedHigh[i] = take();
    for (std::size_t i = 0; i < count; ++i) {
      bytes[i] = take();
      low[i] = word();
      high[i] = static_cast<std::uint16_t>(i % 3 == 0 ? word() & 63 : word());
      wide[i] = static_cast<std::uint64_t>(word()) << 24;
      sums[i] = static_cast<std::uint32_t>(word()) << 16;
      additive[i] = static_cast<std::int16_t>(word());
      multiplicative[i] = word();
      // No more than that many frames can add up to.
      const std::uint32_t most = 65535 * recentFrames;
      recent[i] = std::min(most, low[i] * recentFrames + word() % recentFrames);
    }
    for (std::uint16_t& value : line)
      value = word();
    line[0] = 0;
    for (std::uint16_t& value : map)
      value = word();
    for (kernels::ValueRange* range : {&where.low, &where.high, &where.merged, &where.difference})
      *range = {word(), word()};
    where.lowShift = take() % 16U;
    where.highShift = take() % 16U;
    where.withMerged = take() % 2 != 0;
    where.withDifference = take() % 2 != 0;
  }

  static constexpr std::uint32_t mapWidth = 50;
  std::size_t count, shift;
  Run<std::uint8_t> packed, packedHigh, bytes;
  Run<std::uint16_t> low, high;
  Run<std::uint64_t> wide;
  Run<std::uint32_t> sums;
  std::uint32_t frames;
  std::vector<std::uint16_t> map;
  kernels::MergeRule rule;
  kernels::UniformTerms uniform;
  Run<std::int16_t> additive;
  Run<std::uint16_t> multiplicative;
  Run<std::uint32_t> recent;
  std::uint32_t recentFrames;
  unsigned int outputs;
  std::vector<std::uint16_t> line;
  std::uint32_t mergeRow;
  kernels::PairPlaces where{};

  kernels::PlaneTerms planes() const {
    return {additive.data(), additive.data(), multiplicative.data(), low.data()};
  }
};

/// Packed pixels leave room for few fraction bits of additive terms.
kernels::MergeRule packedRule(const Data& data) {
  kernels::MergeRule rule = data.rule;
  rule.additiveFractionBits %= kernels::packedFractionBits + 1;
  return rule;
}

/// One merge of packed pixels: the planes that are asked for, and what is kept to be counted.
struct PackedMerge {
  PackedMerge(const Data& data, unsigned int which, const kernels::KernelTable& table)
      : low(pixels(data, 1), data.shift),
        high(pixels(data, 2), 0),
        merged(pixels(data, 0), data.shift),
        notedLow(pixels(data, 4), 0),
        notedHigh(pixels(data, 4), data.shift),
        notedMerged(pixels(data, 12), 0),
        places(pixels(data, 4), data.shift) {
    const auto wanted = [&](Run<std::uint16_t>& run, unsigned int option) {
      return (data.outputs & option) == option ? run.data() : nullptr;
    };
    const bool inPlaces = (data.outputs & 32) != 0;
    notes.low = inPlaces ? nullptr : wanted(notedLow, 4);
    notes.high = inPlaces ? nullptr : wanted(notedHigh, 4);
    notes.places = inPlaces ? wanted(places, 4) : nullptr;
    notes.merged = wanted(notedMerged, 12);
    notes.where = data.where;
    const kernels::PackedPair run{data.packed.data(),
                                  (data.outputs & 16) != 0 ? data.packed.data() : data.packedHigh.data(),
                                  data.count / 2,
                                  wanted(low, 1),
                                  wanted(high, 2),
                                  merged.data(),
                                  (data.outputs & 4) != 0 ? &notes : nullptr};
    const kernels::MergeRule rule = packedRule(data);
    if (which == 0) table.mergePackedUniform(run, rule, data.uniform);
    if (which == 1) table.mergePackedPlanes(run, rule, data.planes());
    if (which == 2) table.mergePackedUniformStreaming(run, rule, data.uniform);
    if (which == 3) table.mergePackedPlanesStreaming(run, rule, data.planes());
    table.finishStreaming();
    if (run.pairs == 0) notes.lowExtremes = notes.highExtremes = notes.mergedExtremes = {};  // there are none
  }

  static std::size_t pixels(const Data& data, unsigned int option) {
    return (data.outputs & option) == option ? data.count / 2 * 2 : 0;
  }
  bool operator==(const PackedMerge& o) const {
    return low == o.low && high == o.high && merged == o.merged && notedLow == o.notedLow &&
           notedHigh == o.notedHigh && notedMerged == o.notedMerged && places == o.places &&
           same(notes.lowExtremes, o.notes.lowExtremes) && same(notes.highExtremes, o.notes.highExtremes) &&
           same(notes.mergedExtremes, o.notes.mergedExtremes);
  }
  static bool same(const kernels::Extremes& a, const kernels::Extremes& b) {
    return a.minimum == b.minimum && a.maximum == b.maximum;
  }

  Run<std::uint16_t> low, high, merged, notedLow, notedHigh, notedMerged, places;
  kernels::PairNotes notes{};
};

/// In one go or in two steps, the merged pixels are the same.
void requireTheMergeOfUnpacked(const Data& data) {
  const kernels::KernelTable& table = kernels::plain();
  const std::size_t pairs = data.count / 2;
  Run<std::uint16_t> low(2 * pairs, 0), high(2 * pairs, 0), merged(2 * pairs, data.shift);
  table.unpack12(data.packed.data(), low.data(), pairs);
  table.unpack12((data.outputs & 16) != 0 ? data.packed.data() : data.packedHigh.data(), high.data(), pairs);
  table.mergeUniform(low.data(), high.data(), merged.data(), 2 * pairs, packedRule(data), data.uniform);
  FUZZ_REQUIRE(merged == PackedMerge(data, 0, table).merged);
  table.mergePlanes(low.data(), high.data(), merged.data(), 2 * pairs, packedRule(data), data.planes());
  FUZZ_REQUIRE(merged == PackedMerge(data, 1, table).merged);
}

/// All that one table makes of the data.
struct Results {
  explicit Results(const Data& data, const kernels::KernelTable& table)
      : unpacked(2 * data.count, data.shift),
        unpackedStreaming(2 * data.count, data.shift),
        swapped(data.count, data.shift),
        mirrored(data.count, data.shift),
        unbiased(data.low),
        uniform(data.count, data.shift),
        planes(data.count, data.shift),
        uniformStreaming(data.count, data.shift),
        planesStreaming(data.count, data.shift),
        inPlace(data.low),
        mapped(data.count, data.shift),
        byLine(data.count, data.shift),
        sums8(data.sums),
        sums16(data.sums),
        started8(data.sums),
        started16(data.sums),
        emptied(data.sums),
        wide(data.wide),
        means(data.count, data.shift),
        recentMeans(data.count, data.shift),
        moments(data.wide),
        squares(data.wide),
        lesser(data.low),
        greater(data.low),
        sortedRows(data.count / kernels::sortedColumns * kernels::sortedColumns, data.shift),
        sortedDoubles(sortedRows.size(), data.shift),
        placesOfPairs(data.count / 2, data.shift),
        positions(data.count, 0),
        counts(data.count, 0) {
    const std::size_t count = data.count;
    const std::uint16_t *low = data.low.data(), *high = data.high.data();
    table.unpack12(data.packed.data(), unpacked.data(), count);
    table.unpack12Streaming(data.packed.data(), unpackedStreaming.data(), count);
    table.swapBytes(low, swapped.data(), count);
    table.swapBytesMirrored(low, mirrored.data(), count);
    table.subtractBias(unbiased.data(), high, count);
    table.mergeUniform(low, high, uniform.data(), count, data.rule, data.uniform);
    table.mergePlanes(low, high, planes.data(), count, data.rule, data.planes());
    table.mergeUniformStreaming(low, high, uniformStreaming.data(), count, data.rule, data.uniform);
    table.mergePlanesStreaming(low, high, planesStreaming.data(), count, data.rule, data.planes());
    table.finishStreaming();
    table.mergeUniform(inPlace.data(), high, inPlace.data(), count, data.rule, data.uniform);
    table.mergeMapped(high, low, mapped.data(), count, data.map.data(), Data::mapWidth,
                      static_cast<std::uint32_t>(data.map.size() / Data::mapWidth));
    table.addToSums8(data.bytes.data(), sums8.data(), count);
    table.addToSums16(low, sums16.data(), count);
    table.mergeByLine(high, low, byLine.data(), count, data.line.data(),
                      static_cast<std::uint32_t>(data.line.size() / 2), data.mergeRow);
    table.startSums8(data.bytes.data(), started8.data(), count);
    table.startSums16(low, started16.data(), count);
    table.meansOfRecentSums(data.recent.data(), recentMeans.data(), count, data.recentFrames);
    table.emptySums(emptied.data(), wide.data(), count);
    table.meansOfSums(data.sums.data(), data.wide.data(), means.data(), count,
                      data.frames == 0 ? 1 : data.frames);
    stack(data, table);
    if (count > 0) {
      table.findExtremes(low, count, &extremes);
      first = table.findFirst(low, count, extremes.maximum);
      missing = table.findFirst(low, count, static_cast<std::uint16_t>(extremes.maximum + 1));
    }
    if (count > 1)
      table.placePairs(low, count / 2, data.where.low.first, placesOfPairs.data(), &extremesOfPairs);
    if (count > 0) each = table.findEach(low, count, low[count / 2], positions.data());
    const std::size_t groups = count / kernels::countGroup * kernels::countGroup;
    table.sumCounts(data.sums.data(), groups, data.mergeRow, &countSums);
    countValues(data, table);
  }

  void stack(const Data& data, const kernels::KernelTable& table) {
    table.addToMoments(data.low.data(), moments.data(), squares.data(), data.count);
    table.keepLesser(lesser.data(), data.high.data(), data.count);
    table.keepGreater(greater.data(), data.high.data(), data.count);
    for (std::size_t i = 0; i < sortedRows.size(); ++i) {
      sortedRows[i] = data.low[i];
      sortedDoubles[i] = data.low[i] / 3.0 - data.high[i];
    }
    table.sortColumns16(sortedRows.data(), sortedRows.size() / kernels::sortedColumns);
    table.sortColumns64(sortedDoubles.data(), sortedRows.size() / kernels::sortedColumns);
  }

  /// The table of counts is a megabyte, so that it is cleared where it was used only.
  void countValues(const Data& data, const kernels::KernelTable& table) {
    constexpr std::size_t stride = 65536 + 16;
    static std::vector<std::uint32_t> banks(kernels::countBanks * stride);
    const std::uint16_t* const values = data.low.data();
    table.countValues(values, data.count, banks.data(), stride, values + data.count, data.count);
    for (std::size_t i = 0; i < data.count; ++i) {
      std::uint32_t& entry = banks[i % kernels::countBanks * stride + values[i]];
      counts[i] += entry;
      counted += entry;
      entry = 0;  // the same value farther on finds none
    }
  }

  Run<std::uint16_t> unpacked, unpackedStreaming, swapped, mirrored, unbiased, uniform, planes;
  Run<std::uint16_t> uniformStreaming, planesStreaming, inPlace, mapped, byLine;
  Run<std::uint32_t> sums8, sums16, started8, started16, emptied;
  Run<std::uint64_t> wide;
  Run<std::uint16_t> means, recentMeans;
  Run<std::uint64_t> moments, squares;
  Run<std::uint16_t> lesser, greater, sortedRows;
  Run<double> sortedDoubles;
  Run<std::uint16_t> placesOfPairs, positions;
  Run<std::uint32_t> counts;
  std::size_t counted = 0;
  kernels::Extremes extremes{}, extremesOfPairs{};
  std::size_t each = 0;
  std::size_t first = 0, missing = 0;
  kernels::CountSums countSums{};
};

void compare(const Results& expected, const Results& actual, const Data& data) {
  FUZZ_REQUIRE(expected.unpacked == actual.unpacked);
  FUZZ_REQUIRE(expected.unpacked == actual.unpackedStreaming);
  FUZZ_REQUIRE(expected.swapped == actual.swapped);
  FUZZ_REQUIRE(expected.countSums.pixels == actual.countSums.pixels);
  FUZZ_REQUIRE(expected.countSums.values == actual.countSums.values);
  FUZZ_REQUIRE(expected.countSums.squares == actual.countSums.squares);
  FUZZ_REQUIRE(expected.countSums.largest == actual.countSums.largest);
  FUZZ_REQUIRE(expected.mirrored == actual.mirrored);
  FUZZ_REQUIRE(expected.unbiased == actual.unbiased);
  FUZZ_REQUIRE(expected.uniform == actual.uniform);
  FUZZ_REQUIRE(expected.planes == actual.planes);
  FUZZ_REQUIRE(expected.uniform == actual.uniformStreaming);
  FUZZ_REQUIRE(expected.planes == actual.planesStreaming);
  FUZZ_REQUIRE(expected.inPlace == actual.inPlace);
  FUZZ_REQUIRE(expected.mapped == actual.mapped);
  FUZZ_REQUIRE(expected.byLine == actual.byLine);
  FUZZ_REQUIRE(expected.started8 == actual.started8);
  FUZZ_REQUIRE(expected.started16 == actual.started16);
  FUZZ_REQUIRE(expected.recentMeans == actual.recentMeans);
  FUZZ_REQUIRE(expected.sums8 == actual.sums8);
  FUZZ_REQUIRE(expected.sums16 == actual.sums16);
  FUZZ_REQUIRE(expected.emptied == actual.emptied);
  FUZZ_REQUIRE(expected.wide == actual.wide);
  FUZZ_REQUIRE(expected.means == actual.means);
  FUZZ_REQUIRE(expected.moments == actual.moments && expected.squares == actual.squares);
  FUZZ_REQUIRE(expected.lesser == actual.lesser && expected.greater == actual.greater);
  FUZZ_REQUIRE(expected.sortedRows == actual.sortedRows && expected.sortedDoubles == actual.sortedDoubles);
  FUZZ_REQUIRE(PackedMerge::same(expected.extremes, actual.extremes));
  FUZZ_REQUIRE(expected.first == actual.first && expected.missing == actual.missing);
  FUZZ_REQUIRE(expected.placesOfPairs == actual.placesOfPairs);
  FUZZ_REQUIRE(PackedMerge::same(expected.extremesOfPairs, actual.extremesOfPairs));
  FUZZ_REQUIRE(expected.each == actual.each && expected.positions == actual.positions);
  FUZZ_REQUIRE(expected.counts == actual.counts && actual.counted == data.count);
}

}  // namespace

FUZZ_TARGET(data, size) {
  Input input(data, size);
  const Data given(input);
  const Results expected(given, kernels::plain());
  std::size_t count = 0;
  const kernels::KernelTable* const* tables = kernels::allTables(count);
  requireTheMergeOfUnpacked(given);
  for (std::size_t i = 0; i < count; ++i) {
    if (!kernels::runs(kernels::thisProcessor(), *tables[i])) continue;
    for (unsigned int which = 0; which < 4; ++which)
      FUZZ_REQUIRE(PackedMerge(given, which, *tables[i]) == PackedMerge(given, which, kernels::plain()));
    compare(expected, Results(given, *tables[i]), given);
  }
  return 0;
}
