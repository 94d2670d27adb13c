// The same bytes through every kernel of every table that this processor runs; stops when one differs from
// the reference. Inputs and outputs end exactly where their allocations do.

#include "fuzz_support.h"
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
        multiplicative(count, 0) {
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
      packed[i] = take();
    for (std::size_t i = 0; i < count; ++i) {
      bytes[i] = take();
      low[i] = word();
      high[i] = static_cast<std::uint16_t>(i % 3 == 0 ? word() & 63 : word());
      wide[i] = static_cast<std::uint64_t>(word()) << 24;
      sums[i] = static_cast<std::uint32_t>(word()) << 16;
      additive[i] = static_cast<std::int16_t>(word());
      multiplicative[i] = word();
    }
    for (std::uint16_t& value : map)
      value = word();
  }

  static constexpr std::uint32_t mapWidth = 50;
  std::size_t count, shift;
  Run<std::uint8_t> packed, bytes;
  Run<std::uint16_t> low, high;
  Run<std::uint64_t> wide;
  Run<std::uint32_t> sums;
  std::uint32_t frames;
  std::vector<std::uint16_t> map;
  kernels::MergeRule rule;
  kernels::UniformTerms uniform;
  Run<std::int16_t> additive;
  Run<std::uint16_t> multiplicative;

  kernels::PlaneTerms planes() const {
    return {additive.data(), additive.data(), multiplicative.data(), low.data()};
  }
};

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
        sums8(data.sums),
        sums16(data.sums),
        emptied(data.sums),
        wide(data.wide),
        means(data.count, data.shift),
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
    table.emptySums(emptied.data(), wide.data(), count);
    table.meansOfSums(data.sums.data(), data.wide.data(), means.data(), count,
                      data.frames == 0 ? 1 : data.frames);
    if (count > 0) {
      table.findExtremes(low, count, &smallest, &largest);
      first = table.findFirst(low, count, largest);
      missing = table.findFirst(low, count, static_cast<std::uint16_t>(largest + 1));
    }
    countPixels(data, table);
  }

  /// Counts may lie in any bank; their sum is what counts. The banks are a megabyte, so that they are cleared
  /// where they were used only.
  void countPixels(const Data& data, const kernels::KernelTable& table) {
    static std::vector<std::uint32_t> banks(kernels::countEntries);
    table.countPixels(data.low.data(), data.count, banks.data());
    for (std::size_t i = 0; i < data.count; ++i)
      for (std::size_t bank = 0; bank < kernels::countBanks; ++bank) {
        std::uint32_t& entry = banks[bank * kernels::countBankStride + data.low.data()[i]];
        counts[i] += entry;
        counted += entry;
        entry = 0;  // the same value farther on finds none
      }
  }

  Run<std::uint16_t> unpacked, unpackedStreaming, swapped, mirrored, unbiased, uniform, planes;
  Run<std::uint16_t> uniformStreaming, planesStreaming, inPlace, mapped;
  Run<std::uint32_t> sums8, sums16, emptied;
  Run<std::uint64_t> wide;
  Run<std::uint16_t> means;
  Run<std::uint32_t> counts;
  std::size_t counted = 0;
  std::uint16_t smallest = 0, largest = 0;
  std::size_t first = 0, missing = 0;
};

void compare(const Results& expected, const Results& actual, const Data& data) {
  FUZZ_REQUIRE(expected.unpacked == actual.unpacked);
  FUZZ_REQUIRE(expected.unpacked == actual.unpackedStreaming);
  FUZZ_REQUIRE(expected.swapped == actual.swapped);
  FUZZ_REQUIRE(expected.mirrored == actual.mirrored);
  FUZZ_REQUIRE(expected.unbiased == actual.unbiased);
  FUZZ_REQUIRE(expected.uniform == actual.uniform);
  FUZZ_REQUIRE(expected.planes == actual.planes);
  FUZZ_REQUIRE(expected.uniform == actual.uniformStreaming);
  FUZZ_REQUIRE(expected.planes == actual.planesStreaming);
  FUZZ_REQUIRE(expected.inPlace == actual.inPlace);
  FUZZ_REQUIRE(expected.mapped == actual.mapped);
  FUZZ_REQUIRE(expected.sums8 == actual.sums8);
  FUZZ_REQUIRE(expected.sums16 == actual.sums16);
  FUZZ_REQUIRE(expected.emptied == actual.emptied);
  FUZZ_REQUIRE(expected.wide == actual.wide);
  FUZZ_REQUIRE(expected.means == actual.means);
  FUZZ_REQUIRE(expected.smallest == actual.smallest && expected.largest == actual.largest);
  FUZZ_REQUIRE(expected.first == actual.first && expected.missing == actual.missing);
  FUZZ_REQUIRE(expected.counts == actual.counts && actual.counted == data.count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Data given(input);
  const Results expected(given, kernels::reference());
  std::size_t count = 0;
  const kernels::KernelTable* const* tables = kernels::allTables(count);
  for (std::size_t i = 0; i < count; ++i)
    if (tables[i]->supported()) compare(expected, Results(given, *tables[i]), given);
  return 0;
}
