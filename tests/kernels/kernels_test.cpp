// Every table of kernels against the plain one, and the plain one against values worked out here.

#include "kernels/KernelTesting.h"

#include <algorithm>

namespace {

using namespace kernel_testing;

constexpr std::size_t longest = 100;  // several vector widths

INSTANTIATE_TEST_SUITE_P(Kernels, EveryTable, ::testing::ValuesIn(runnableTables()), tableName);

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
  for (std::size_t pairs = 0; pairs <= longest; ++pairs) {
    const std::vector<std::uint8_t> packed = noise<std::uint8_t>(3 * pairs, random);
    std::vector<std::uint16_t> expected(2 * pairs);
    for (std::size_t i = 0; i < pairs; ++i) {
      const std::uint32_t whole = packed[3 * i] * 65536u + packed[3 * i + 1] * 256u + packed[3 * i + 2];
      expected[2 * i] = static_cast<std::uint16_t>(whole / 4096);
      expected[2 * i + 1] = static_cast<std::uint16_t>(whole % 4096);
    }
    for (std::size_t shift = 0; shift < 33; ++shift) {
      // Ends where the memory ends, so that a sanitizer sees a byte read too far.
      std::vector<std::uint8_t> source(shift);
      source.insert(source.end(), packed.begin(), packed.end());
      Guarded<std::uint16_t> plain(2 * pairs, shift), streamed(2 * pairs, shift);
      table().unpack12(source.data() + shift, plain.data(), pairs);
      table().unpack12Streaming(source.data() + shift, streamed.data(), pairs);
      table().finishStreaming();
      ASSERT_EQ(plain.values(), expected) << pairs << " pairs, shift " << shift << ", seed " << seed;
      ASSERT_EQ(streamed.values(), expected) << pairs << " pairs, shift " << shift << ", seed " << seed;
      ASSERT_TRUE(plain.intact() && streamed.intact()) << pairs << " pairs, shift " << shift;
    }
  }
}

TEST_P(EveryTable, SwapsMirrorsAndSubtractsAtAllLengths) {
  std::mt19937 random(seed);
  for (std::size_t count = 0; count <= longest; ++count)
    for (std::size_t shift = 0; shift < 32; ++shift) {
      Guarded<std::uint16_t> held(count, 31 - shift), subtracted(count, (shift + 3) % 16);
      const std::vector<std::uint16_t> values = noise<std::uint16_t>(count, random);
      const std::vector<std::uint16_t> biases = noise<std::uint16_t>(count, random);
      std::copy(values.begin(), values.end(), held.data());
      std::copy(biases.begin(), biases.end(), subtracted.data());
      const std::uint16_t* const source = held.data();
      const std::uint16_t* const bias = subtracted.data();
      Guarded<std::uint16_t> swapped(count, shift), mirrored(count, shift), corrected(count, shift);
      table().swapBytes(source, swapped.data(), count);
      table().swapBytesMirrored(source, mirrored.data(), count);
      Guarded<std::uint16_t> around(count, shift), mirroredAround(count, shift);
      table().swapBytesStreaming(source, around.data(), count);
      table().swapBytesMirroredStreaming(source, mirroredAround.data(), count);
      table().finishStreaming();
      std::copy(source, source + count, corrected.data());
      table().subtractBias(corrected.data(), bias, count);
      for (std::size_t i = 0; i < count; ++i) {
        const unsigned int value = source[i];
        const unsigned int turned = value % 256 * 256 + value / 256;
        ASSERT_EQ(swapped.data()[i], turned) << "seed " << seed;
        ASSERT_EQ(mirrored.data()[count - 1 - i], turned);
        ASSERT_EQ(around.data()[i], turned) << count << ", shift " << shift;
        ASSERT_EQ(mirroredAround.data()[count - 1 - i], turned) << count << ", shift " << shift;
        ASSERT_EQ(corrected.data()[i], value > bias[i] ? value - bias[i] : 0u);
      }
      ASSERT_TRUE(swapped.intact() && mirrored.intact() && corrected.intact()) << count;
      ASSERT_TRUE(around.intact() && mirroredAround.intact()) << count;
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

TEST_P(EveryTable, FindsExtremesAndFirstPositions) {
  std::mt19937 random(seed);
  for (std::size_t count = 1; count <= longest; ++count)
    for (std::size_t shift = 0; shift < 16; ++shift) {
      std::vector<std::uint16_t> padded = noise<std::uint16_t>(shift + count, random);
      const std::vector<std::uint16_t> pixels(padded.begin() + static_cast<std::ptrdiff_t>(shift),
                                              padded.end());
      const std::uint16_t* const run = padded.data() + shift;
      kernels::Extremes extremes = {1, 1};
      table().findExtremes(run, count, &extremes);
      ASSERT_EQ(extremes.minimum, *std::min_element(pixels.begin(), pixels.end())) << "seed " << seed;
      ASSERT_EQ(extremes.maximum, *std::max_element(pixels.begin(), pixels.end()));
      for (const std::uint16_t value :
           {extremes.minimum, extremes.maximum, pixels.back(), std::uint16_t{0x1234}})
        ASSERT_EQ(table().findFirst(run, count, value),
                  static_cast<std::size_t>(std::find(pixels.begin(), pixels.end(), value) - pixels.begin()));
    }
  EXPECT_EQ(table().findFirst(nullptr, 0, 5), 0u);
}

TEST_P(EveryTable, CountsInBanksInTurnAndTouchesOnlyTheValuesThatOccur) {
  std::mt19937 random(seed);
  constexpr std::uint32_t untouched = 0xDEADBEEF;
  for (const std::size_t stride : {std::size_t{0}, std::size_t{65536 + 16}}) {
    std::vector<std::uint32_t> counts(65536 + 3 * stride, untouched);
    for (std::size_t count = 0; count <= longest; ++count) {
      const std::vector<std::uint16_t> values = noise<std::uint16_t>(count, random);
      std::map<std::size_t, std::uint32_t> expected;
      for (std::size_t i = 0; i < count; ++i)
        ++expected[i % 4 * stride + values[i]];
      for (const auto& [entry, times] : expected)
        counts[entry] = 7;  // counts are added to
      // What is needed next is an address that nothing is read from.
      table().countValues(values.data(), count, counts.data(), stride, reinterpret_cast<const void*>(0x40),
                          4096);
      for (const auto& [entry, times] : expected) {
        ASSERT_EQ(counts[entry], 7 + times) << "entry " << entry << ", seed " << seed;
        counts[entry] = untouched;
      }
      ASSERT_EQ(std::count(counts.begin(), counts.end(), untouched),
                static_cast<std::ptrdiff_t>(counts.size()));
    }
  }
}

TEST_P(EveryTable, FindsEachPositionOfAValueInOrder) {
  std::mt19937 random(seed);
  for (std::size_t count = 0; count < 3000; count += count < 2 * longest ? 1 : 371)
    for (const std::uint32_t oneIn : {1u, 2u, 40u, 100000u}) {
      std::vector<std::uint16_t> values(count), expected;
      for (std::size_t i = 0; i < count; ++i) {
        values[i] = static_cast<std::uint16_t>(random() % oneIn == 0 ? 0x1234 : random() | 1);
        if (values[i] == 0x1234) expected.push_back(static_cast<std::uint16_t>(i));
      }
      Guarded<std::uint16_t> positions(expected.size(), count % 16);
      ASSERT_EQ(table().findEach(values.data(), count, 0x1234, positions.data()), expected.size()) << count;
      ASSERT_EQ(positions.values(), expected) << count;
      ASSERT_TRUE(positions.intact()) << count;
      ASSERT_EQ(table().findEach(values.data(), count, 0x1234, values.data()), expected.size());
      values.resize(expected.size());
      ASSERT_EQ(values, expected) << "over the values themselves, count " << count;
    }
}

TEST_P(EveryTable, AddsUpWhatAHistogramAmountsTo) {
  std::mt19937 random(seed);
  for (const unsigned int used : {0u, 1u, 7u, 100u, 2000u})
    for (const std::uint32_t first : {0u, 16u, 5u, 65536u - 1024u}) {
      Guarded<std::uint32_t> counts(1024, used % 16);
      std::fill_n(counts.data(), 1024, 0U);
      for (unsigned int i = 0; i < used; ++i)
        counts.data()[random() % 1024] = static_cast<std::uint32_t>(i % 3 == 0 ? random() : random() % 9);
      for (std::uint32_t size = 0; size <= 1024; size += kernels::countGroup * 4) {
        kernels::CountSums expected = {1, 2, 3, 4}, sums = expected;  // they are added to
        for (std::uint32_t i = 0; i < size; ++i) {
          const std::uint64_t count = counts.data()[i], value = first + i;
          expected.pixels += count;
          expected.values += count * value;
          expected.squares += count * value * value;
          expected.largest = std::max(expected.largest, counts.data()[i]);
        }
        table().sumCounts(counts.data(), size, first, &sums);
        ASSERT_EQ(sums.pixels, expected.pixels) << used << " from " << first << ", " << size;
        ASSERT_EQ(sums.values, expected.values) << used << " from " << first << ", " << size;
        ASSERT_EQ(sums.squares, expected.squares) << used << " from " << first << ", " << size;
        ASSERT_EQ(sums.largest, expected.largest) << used << " from " << first << ", " << size;
      }
    }
}

TEST_P(EveryTable, PlacesPairsOfNeighboursWithinAWindowOf64Values) {
  std::mt19937 random(seed);
  for (std::size_t pairs = 1; pairs <= 2 * longest; ++pairs)
    for (const std::uint32_t first : {0u, 19u, 4090u, 32760u, 65472u}) {
      std::vector<std::uint16_t> pixels(2 * pairs), expected;
      for (std::uint16_t& pixel : pixels) {
        // Mostly inside, often next to the window's edges.
        const std::uint32_t kind = random() % 8;
        pixel = static_cast<std::uint16_t>(kind == 0   ? random()
                                           : kind == 1 ? first - 1
                                           : kind == 2 ? first + 64
                                           : kind == 3 ? first + 63
                                                       : first + random() % 64);
      }
      for (std::size_t i = 0; i < pixels.size(); i += 2) {
        const int a = pixels[i] - static_cast<int>(first);
        const int b = pixels[i + 1] - static_cast<int>(first);
        const bool inside = a >= 0 && a < 64 && b >= 0 && b < 64;
        expected.push_back(static_cast<std::uint16_t>(inside ? a + 64 * b : 0));
      }
      Guarded<std::uint16_t> places(pairs, pairs % 16);
      kernels::Extremes extremes = {1, 1};
      table().placePairs(pixels.data(), pairs, static_cast<std::uint16_t>(first), places.data(), &extremes);
      ASSERT_EQ(places.values(), expected) << pairs << " from " << first << ", seed " << seed;
      ASSERT_TRUE(places.intact()) << pairs;
      ASSERT_EQ(extremes.minimum, *std::min_element(pixels.begin(), pixels.end()));
      ASSERT_EQ(extremes.maximum, *std::max_element(pixels.begin(), pixels.end()));
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

TEST_P(EveryTable, StartsSumsWhateverTheyWere) {
  std::mt19937 random(seed);
  for (std::size_t count = 0; count <= longest; ++count) {
    const std::vector<std::uint8_t> bytes = noise<std::uint8_t>(count, random);
    const std::vector<std::uint16_t> words = noise<std::uint16_t>(count, random);
    Guarded<std::uint32_t> ofBytes(count, count % 8), ofWords(count, count % 8);
    table().startSums8(bytes.data(), ofBytes.data(), count);
    table().startSums16(words.data(), ofWords.data(), count);
    ASSERT_EQ(ofBytes.values(), std::vector<std::uint32_t>(bytes.begin(), bytes.end()));
    ASSERT_EQ(ofWords.values(), std::vector<std::uint32_t>(words.begin(), words.end()));
    ASSERT_TRUE(ofBytes.intact() && ofWords.intact()) << count;
  }
}

TEST_P(EveryTable, DividesSumsExactlyNextToEveryMultiple) {
  std::mt19937 random(seed);
  std::vector<std::uint32_t> frames = {1, 2, 3, 5, 7, 10, 255, 256, 641, 32767, 32768, 65535, 65536};
  for (int i = 0; i < 200; ++i)
    frames.push_back(1 + random() % 65536);
  frames.insert(frames.end(), {65537, 1000003, 0xFFFFFFFF});  // of which the plane had a part only
  for (const std::uint32_t n : frames) {
    const std::uint64_t largest = std::min<std::uint64_t>(std::uint64_t{65535} * n, 0xFFFFFFFF);
    std::vector<std::uint32_t> sums = {0, 1, static_cast<std::uint32_t>(largest)};
    for (int i = 0; i < 300; ++i) {
      const std::uint64_t multiple = std::uint64_t{random() % 65536} * n;
      for (const std::uint64_t sum : {multiple - 1, multiple, multiple + 1})
        if (sum <= largest) sums.push_back(static_cast<std::uint32_t>(sum));
    }
    std::vector<std::uint16_t> means(sums.size());
    table().meansOfRecentSums(sums.data(), means.data(), sums.size(), n);
    for (std::size_t i = 0; i < sums.size(); ++i)
      ASSERT_EQ(means[i], sums[i] / n) << sums[i] << " / " << n << ", seed " << seed;
  }
}

TEST_P(EveryTable, DividesAllLengthsAndWritesNoFurther) {
  for (std::size_t count = 0; count <= longest; ++count)
    for (std::size_t shift = 0; shift < 16; ++shift) {
      std::vector<std::uint32_t> sums(count);
      std::vector<std::uint16_t> expected(count);
      for (std::size_t i = 0; i < count; ++i) {
        sums[i] = static_cast<std::uint32_t>(7 * (i * 601 % 65536) + i % 7);
        expected[i] = static_cast<std::uint16_t>(i * 601 % 65536);
      }
      Guarded<std::uint16_t> means(count, shift);
      table().meansOfRecentSums(sums.data(), means.data(), count, 7);
      ASSERT_EQ(means.values(), expected) << count;
      ASSERT_TRUE(means.intact()) << count;
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

TEST_P(EveryTable, MergesByALineAsByTheMapThatItStandsFor) {
  std::mt19937 random(seed);
  for (const std::uint32_t size : {1u, 2u, 16u, 256u, 4096u, 16384u})
    for (const std::uint32_t mergeRow : {1u, size / 2 + 1, size}) {
      std::vector<std::uint16_t> values = noise<std::uint16_t>(2 * size, random);
      values[0] = 0;
      const auto expected = [&](std::uint32_t low, std::uint32_t high) -> std::uint16_t {
        if (low >= size || high >= size) return 0;
        return high < mergeRow ? values[high] : values[size + low];
      };
      for (std::size_t count = 0; count < 1300; count += count < longest ? 1 : 97) {
        const std::size_t shift = count % 16;
        Guarded<std::uint16_t> low(count, shift), high(count, 15 - shift), merged(count, (3 * shift) % 16);
        for (std::size_t i = 0; i < count; ++i) {
          // Mostly inside, often next to the edges.
          const std::uint32_t bits = random();
          const auto pick = [&](std::uint32_t kind, std::uint32_t value) {
            return static_cast<std::uint16_t>(kind == 0   ? size + value % 3 - 1
                                              : kind == 1 ? mergeRow + value % 3 - 1
                                              : kind == 2 ? value
                                                          : value % size);
          };
          low.data()[i] = pick(bits >> 29, bits & 0xFFFF);
          high.data()[i] = pick(bits >> 26 & 7, bits >> 8 & 0xFFFF);
        }
        table().mergeByLine(low.data(), high.data(), merged.data(), count, values.data(), size, mergeRow);
        for (std::size_t i = 0; i < count; ++i)
          ASSERT_EQ(merged.data()[i], expected(low.data()[i], high.data()[i]))
              << low.data()[i] << ", " << high.data()[i] << " of " << size << ", seed " << seed;
        ASSERT_TRUE(merged.intact()) << count;
      }
    }
}

}  // namespace
