// Every table of kernels against the reference, and the reference against values worked out here.

#include "kernels/KernelTesting.h"

#include <algorithm>

namespace {

using namespace kernel_testing;

constexpr std::size_t longest = 100;  // several vector widths

INSTANTIATE_TEST_SUITE_P(Kernels, EveryTable, ::testing::ValuesIn(runnableTables()), tableName);

TEST(KernelTables, StartWithTheReferenceAndChooseOneThatRuns) {
  std::size_t count = 0;
  const kernels::KernelTable* const* tables = kernels::allTables(count);
  ASSERT_GE(count, 1u);
  EXPECT_EQ(tables[0], &kernels::reference());
  EXPECT_TRUE(kernels::active().supported());
  EXPECT_EQ(&kernels::active(), &kernels::active());
}

TEST(KernelTables, VectorTablesDoNotRenameTheReference) {
  std::size_t count = 0;
  const kernels::KernelTable* const* tables = kernels::allTables(count);
  for (std::size_t i = 1; i < count; ++i) {
    // Built from other sources or with other flags, so that even shared loops are functions of their own.
    const kernels::KernelTable& reference = kernels::reference();
    EXPECT_NE(tables[i]->unpack12, reference.unpack12) << tables[i]->name;
    EXPECT_NE(tables[i]->mergeUniform, reference.mergeUniform) << tables[i]->name;
    EXPECT_NE(tables[i]->mergePlanes, reference.mergePlanes) << tables[i]->name;
    EXPECT_NE(tables[i]->findFirst, reference.findFirst) << tables[i]->name;
    EXPECT_NE(tables[i]->swapBytes, reference.swapBytes) << tables[i]->name;
    EXPECT_NE(tables[i]->subtractBias, reference.subtractBias) << tables[i]->name;
  }
}

TEST_P(EveryTable, UnpacksEveryTripleOfBytes) {
  // All 2^24 triples, 2^16 pairs at a time.
  constexpr std::size_t pairs = 1 << 16;
  std::vector<std::uint8_t> packed(3 * pairs);
  std::vector<std::uint16_t> pixels(2 * pairs);
  for (std::uint32_t b0 = 0; b0 < 256; ++b0) {
    for (std::uint32_t i = 0; i < pairs; ++i) {
      packed[3 * i] = static_cast<std::uint8_t>(b0);
      packed[3 * i + 1] = static_cast<std::uint8_t>(i >> 8);
      packed[3 * i + 2] = static_cast<std::uint8_t>(i);
    }
    table().unpack12(packed.data(), pixels.data(), pairs);
    std::size_t wrong = 0;
    for (std::uint32_t i = 0; i < pairs; ++i) {
      const std::uint32_t whole = b0 << 16 | i;  // 24 bits, two pixels of 12
      wrong += pixels[2 * i] != whole >> 12;
      wrong += pixels[2 * i + 1] != (whole & 0xFFF);
    }
    ASSERT_EQ(wrong, 0u) << "first byte " << b0;
  }
}

TEST_P(EveryTable, UnpacksAllLengthsAtAllAlignmentsAndWritesNoFurther) {
  std::mt19937 random(seed);
  for (std::size_t pairs = 0; pairs <= longest; ++pairs)
    for (std::size_t shift = 0; shift < 4; ++shift) {
      const std::vector<std::uint8_t> packed = noise<std::uint8_t>(3 * pairs + shift, random);
      Guarded<std::uint16_t> expected(2 * pairs, shift), actual(2 * pairs, shift);
      reference().unpack12(packed.data() + shift, expected.data(), pairs);
      // An exact copy, so that a sanitizer sees a byte read too far.
      const std::vector<std::uint8_t> exact(packed.begin() + static_cast<std::ptrdiff_t>(shift),
                                            packed.end());
      table().unpack12(exact.data(), actual.data(), pairs);
      ASSERT_EQ(expected.values(), actual.values()) << pairs << " pairs, seed " << seed;
      ASSERT_TRUE(actual.intact()) << pairs << " pairs";
    }
}

TEST_P(EveryTable, SwapsMirrorsAndSubtractsAtAllLengths) {
  std::mt19937 random(seed);
  for (std::size_t count = 0; count <= longest; ++count)
    for (std::size_t shift = 0; shift < 16; shift += 5) {
      const std::vector<std::uint16_t> source = noise<std::uint16_t>(count, random);
      const std::vector<std::uint16_t> bias = noise<std::uint16_t>(count, random);
      Guarded<std::uint16_t> swapped(count, shift), mirrored(count, shift), corrected(count, shift);
      table().swapBytes(source.data(), swapped.data(), count);
      table().swapBytesMirrored(source.data(), mirrored.data(), count);
      std::copy(source.begin(), source.end(), corrected.data());
      table().subtractBias(corrected.data(), bias.data(), count);
      for (std::size_t i = 0; i < count; ++i) {
        const unsigned int value = source[i];
        const unsigned int turned = value % 256 * 256 + value / 256;
        ASSERT_EQ(swapped.values()[i], turned);
        ASSERT_EQ(mirrored.values()[count - 1 - i], turned);
        ASSERT_EQ(corrected.values()[i], value > bias[i] ? value - bias[i] : 0u);
      }
      ASSERT_TRUE(swapped.intact() && mirrored.intact() && corrected.intact()) << count;
    }
}

TEST_P(EveryTable, SwapsInPlace) {
  std::vector<std::uint16_t> values(77);
  for (std::size_t i = 0; i < values.size(); ++i)
    values[i] = static_cast<std::uint16_t>(0x1200 + i);
  table().swapBytes(values.data(), values.data(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i)
    ASSERT_EQ(values[i], 0x12 + 256 * i);
}

TEST_P(EveryTable, CountsAndFindsExtremesAndFirstPositions) {
  std::mt19937 random(seed);
  std::vector<std::uint64_t> histogram(kernels::histogramEntries);
  for (std::size_t count = 1; count <= longest; ++count) {
    const std::vector<std::uint16_t> pixels = noise<std::uint16_t>(count, random);
    std::uint16_t minimum = 1, maximum = 1;
    table().findExtremes(pixels.data(), count, &minimum, &maximum);
    ASSERT_EQ(minimum, *std::min_element(pixels.begin(), pixels.end())) << "seed " << seed;
    ASSERT_EQ(maximum, *std::max_element(pixels.begin(), pixels.end()));
    const auto first = [&](std::uint16_t value) {
      return static_cast<std::size_t>(std::find(pixels.begin(), pixels.end(), value) - pixels.begin());
    };
    ASSERT_EQ(table().findFirst(pixels.data(), count, maximum), first(maximum));
    ASSERT_EQ(table().findFirst(pixels.data(), count, minimum), first(minimum));
    ASSERT_EQ(table().findFirst(pixels.data(), count, pixels.back()), first(pixels.back()));
    ASSERT_EQ(table().findFirst(pixels.data(), count, 0x1234), first(0x1234));

    std::fill(histogram.begin(), histogram.end(), 7u);  // counts are added to
    table().countPixels(pixels.data(), count, histogram.data());
    for (const std::uint16_t value : pixels)
      ASSERT_EQ(histogram[value],
                7u + static_cast<std::uint64_t>(std::count(pixels.begin(), pixels.end(), value)));
  }
}

TEST_P(EveryTable, AddsEmptiesAndAveragesSums) {
  std::mt19937 random(seed);
  for (std::size_t count = 0; count <= longest; ++count) {
    const std::vector<std::uint8_t> bytes = noise<std::uint8_t>(count, random);
    const std::vector<std::uint16_t> words = noise<std::uint16_t>(count, random);
    Guarded<std::uint32_t> sums(count, 1);
    Guarded<std::uint64_t> wide(count, 1);
    Guarded<std::uint16_t> means(count, 1);
    std::fill_n(sums.data(), count, 100u);
    std::fill_n(wide.data(), count, std::uint64_t{1} << 34);
    table().addToSums8(bytes.data(), sums.data(), count);
    table().addToSums16(words.data(), sums.data(), count);
    table().meansOfSums(sums.data(), wide.data(), means.data(), count, 3);
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint64_t sum = 100u + bytes[i] + words[i];
      ASSERT_EQ(sums.values()[i], sum);
      ASSERT_EQ(means.values()[i], ((std::uint64_t{1} << 34) + sum) / 3 % 65536);
    }
    const std::vector<std::uint32_t> before = sums.values();
    table().emptySums(sums.data(), wide.data(), count);
    for (std::size_t i = 0; i < count; ++i) {
      ASSERT_EQ(sums.values()[i], 0u);
      ASSERT_EQ(wide.values()[i], (std::uint64_t{1} << 34) + before[i]);
    }
    ASSERT_TRUE(sums.intact() && wide.intact() && means.intact()) << count;
  }
}

TEST_P(EveryTable, LooksMergedValuesUpAndGivesZeroOutsideTheMap) {
  const std::vector<std::uint16_t> map = {10, 11, 12, 20, 21, 22};  // 2 rows of 3
  const std::vector<std::uint16_t> low = {0, 2, 1, 3, 0, 65535};
  const std::vector<std::uint16_t> high = {0, 1, 1, 1, 2, 65535};
  std::vector<std::uint16_t> merged(6, 1);
  table().mergeMapped(low.data(), high.data(), merged.data(), 6, map.data(), 3, 2);
  EXPECT_EQ(merged, (std::vector<std::uint16_t>{10, 22, 21, 0, 0, 0}));
  table().mergeMapped(low.data(), high.data(), merged.data(), 6, nullptr, 0, 0);
  EXPECT_EQ(merged, std::vector<std::uint16_t>(6, 0));
}

}  // namespace
