// The integer merge against the documented rule in doubles, and every table against the plain one.

#include <algorithm>
#include <utility>

#include "kernels/KernelTesting.h"
#include "merge/MergeRule.h"

namespace {

using namespace kernel_testing;

using merge_rule::Correction;

std::uint16_t mergedInDoubles(int low, int high, const kernels::MergeRule& rule) {
  return merge_rule::merged(low, high, rule.highThreshold, rule.differenceThreshold, rule.type);
}

class EveryFractionWidth : public ::testing::TestWithParam<unsigned int> {};

TEST_P(EveryFractionWidth, IsExactForEveryPixelAndManyTermsInEveryTable) {
  const unsigned int f = GetParam();
  std::vector<std::uint16_t> pixels(65536), expected(65536), merged(65536);
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<std::uint16_t>(i);
  std::mt19937 random(seed + f);
  for (unsigned int g = 0; g <= 16; ++g) {
    const auto one = static_cast<std::uint16_t>(std::min(1u << g, 65535u));
    const auto any = [&random] { return static_cast<std::uint16_t>(random()); };
    // Around the factors whose results need 16 bits.
    const auto large = static_cast<std::uint16_t>(std::min(1U << (f + g), 65535U));
    const auto below = static_cast<std::uint16_t>(large - 1);
    const std::pair<std::int16_t, std::uint16_t> allTerms[] = {{0, one},
                                                               {-32768, 65535},
                                                               {32767, 65535},
                                                               {-1, 1},
                                                               {static_cast<std::int16_t>(any()), 0},
                                                               {1, any()},
                                                               {static_cast<std::int16_t>(any()), any()},
                                                               {32767, large},
                                                               {32767, below}};
    for (const auto& [additive, multiplicative] : allTerms) {
      const Correction corrected(additive, multiplicative, f, g);
      for (unsigned int p = 0; p < 65536; ++p)
        expected[p] = static_cast<std::uint16_t>(corrected(p));
      for (const kernels::KernelTable* table : runnableTables())
        for (const std::uint32_t plane : {1u, 2u}) {  // low-gain pixels only, high-gain pixels only
          const kernels::UniformTerms terms = {
              plane == 1 ? additive : std::int16_t{5}, plane == 2 ? additive : std::int16_t{-7},
              plane == 1 ? multiplicative : std::uint16_t{3}, plane == 2 ? multiplicative : std::uint16_t{9}};
          table->mergeUniform(pixels.data(), pixels.data(), merged.data(), pixels.size(),
                              {f, g, 3700, 128, plane}, terms);
          ASSERT_TRUE(merged == expected)
              << table->name << ", f " << f << ", g " << g << ", additive " << additive << ", multiplicative "
              << multiplicative << ", seed " << seed;
        }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Merge, EveryFractionWidth, ::testing::Range(0u, 16u));

TEST_P(EveryTable, ComparesAllPairsAroundTheThresholds) {
  // Terms that leave pixels as they are below 32768, and doubled above that reach.
  for (const std::int32_t high : {0, 1, 3700, 32767, 65535})
    for (const std::int32_t difference : {0, 1, 128, 65535})
      for (const std::uint32_t type : {0u, 1u, 2u, 3u}) {
        const kernels::MergeRule rule = {0, 0, high, difference, type};
        std::vector<std::uint16_t> lows, highs, expected;
        for (int l : {0, 1, 127, 128, 129, 3699, 3700, 3828, 3829, 32766, 32767})
          for (int h : {0, 1, 2, 3699, 3700, 3701, 32766, 32767}) {
            lows.push_back(static_cast<std::uint16_t>(l));
            highs.push_back(static_cast<std::uint16_t>(h));
            expected.push_back(mergedInDoubles(std::min(2 * l, 65535), std::min(2 * h, 65535), rule));
          }
        std::vector<std::uint16_t> merged(lows.size());
        table().mergeUniform(lows.data(), highs.data(), merged.data(), merged.size(), rule, {0, 0, 2, 2});
        ASSERT_EQ(merged, expected) << "thresholds " << high << " " << difference << ", type " << type;
      }
}

TEST_P(EveryTable, TakesFactorsOfAnySizeForEitherPlane) {
  std::vector<std::uint16_t> pixels(4096), merged(4096);
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<std::uint16_t>(i);
  for (const unsigned int low : {1024u, 8191u, 8192u, 65535u})
    for (const unsigned int high : {1024u, 8191u, 8192u, 65535u})
      for (const std::int32_t threshold : {1, 3700, 65535}) {
        const kernels::MergeRule rule = {3, 10, threshold, 65535, 0};
        table().mergeUniform(pixels.data(), pixels.data(), merged.data(), merged.size(), rule,
                             {7, -9, static_cast<std::uint16_t>(low), static_cast<std::uint16_t>(high)});
        for (unsigned int p = 0; p < 4096; ++p)
          ASSERT_EQ(merged[p],
                    mergedInDoubles(Correction(7, low, 3, 10)(p), Correction(-9, high, 3, 10)(p), rule))
              << "pixel " << p << ", factors " << low << " " << high << ", threshold " << threshold;
      }
}

TEST_P(EveryTable, FollowsTheRuleForAllTypesThresholdsAndTerms) {
  std::mt19937 random(seed);
  for (unsigned int round = 0; round < 1500; ++round) {
    const std::size_t count = random() % 140;
    const std::vector<std::uint16_t> low = noise<std::uint16_t>(count, random);
    const std::vector<std::uint16_t> high = noise<std::uint16_t>(count, random);
    const std::vector<std::uint16_t> addLow = noise<std::uint16_t>(count, random);
    const std::vector<std::uint16_t> addHigh = noise<std::uint16_t>(count, random);
    const std::vector<std::uint16_t> mulLow = noise<std::uint16_t>(count, random);
    const std::vector<std::uint16_t> mulHigh = noise<std::uint16_t>(count, random);
    const std::int32_t thresholds[] = {0, 1, 128, 3700, 65535};
    const kernels::MergeRule rule = {static_cast<std::uint32_t>(random() % 16),
                                     static_cast<std::uint32_t>(random() % 17), thresholds[random() % 5],
                                     thresholds[random() % 5], random() % 4};
    const auto term = [](const std::vector<std::uint16_t>& terms) {
      return reinterpret_cast<const std::int16_t*>(terms.data());
    };
    Guarded<std::uint16_t> merged(count, round % 37), streamed(count, round % 37);
    const kernels::PlaneTerms planes = {term(addLow), term(addHigh), mulLow.data(), mulHigh.data()};
    table().mergePlanes(low.data(), high.data(), merged.data(), count, rule, planes);
    table().mergePlanesStreaming(low.data(), high.data(), streamed.data(), count, rule, planes);
    table().finishStreaming();
    ASSERT_EQ(streamed.values(), merged.values()) << "round " << round << ", seed " << seed;
    ASSERT_TRUE(streamed.intact());
    for (std::size_t i = 0; i < count; ++i) {
      const int l = Correction(static_cast<std::int16_t>(addLow[i]), mulLow[i], rule.additiveFractionBits,
                               rule.multiplicativeFractionBits)(low[i]);
      const int h = Correction(static_cast<std::int16_t>(addHigh[i]), mulHigh[i], rule.additiveFractionBits,
                               rule.multiplicativeFractionBits)(high[i]);
      ASSERT_EQ(merged.values()[i], mergedInDoubles(l, h, rule)) << "round " << round << ", seed " << seed;
    }
    ASSERT_TRUE(merged.intact());

    if (count == 0) continue;
    const kernels::UniformTerms uniform = {*term(addLow), *term(addHigh), mulLow[0], mulHigh[0]};
    Guarded<std::uint16_t> expected(count, 3), actual(count, round % 37), around(count, round % 37);
    plain().mergeUniform(low.data(), high.data(), expected.data(), count, rule, uniform);
    table().mergeUniform(low.data(), high.data(), actual.data(), count, rule, uniform);
    ASSERT_EQ(expected.values(), actual.values()) << "round " << round << ", seed " << seed;
    ASSERT_TRUE(actual.intact());
    table().mergeUniformStreaming(low.data(), high.data(), around.data(), count, rule, uniform);
    table().finishStreaming();
    ASSERT_EQ(expected.values(), around.values()) << "round " << round << ", seed " << seed;
    ASSERT_TRUE(around.intact());
  }
}

TEST_P(EveryTable, MergesIntoOneOfItsInputs) {
  std::mt19937 random(seed);
  const std::vector<std::uint16_t> low = noise<std::uint16_t>(50, random);
  std::vector<std::uint16_t> high = noise<std::uint16_t>(50, random);
  const kernels::MergeRule rule = {3, 10, 3700, 128, 0};
  const kernels::UniformTerms terms = {-40, 16, 6448, 1024};
  std::vector<std::uint16_t> expected(50);
  plain().mergeUniform(low.data(), high.data(), expected.data(), 50, rule, terms);
  table().mergeUniform(low.data(), high.data(), high.data(), 50, rule, terms);
  EXPECT_EQ(high, expected);
}

/// What a run of packed pairs gives, worked out pixel by pixel in doubles.
struct PackedExpectation {
  std::vector<std::uint16_t> low, high, merged, markedLow, markedHigh;

  PackedExpectation(const std::vector<std::uint8_t>& packedLow, const std::vector<std::uint8_t>& packedHigh,
                    const kernels::MergeRule& rule, const std::vector<kernels::UniformTerms>& terms)
      : low(pixelsOf(packedLow)), high(pixelsOf(packedHigh)) {
    for (std::size_t i = 0; i < low.size(); ++i) {
      const kernels::UniformTerms& t = terms[i % terms.size()];
      const int l = Correction(t.additiveLow, t.multiplicativeLow, rule.additiveFractionBits,
                               rule.multiplicativeFractionBits)(low[i]);
      const int h = Correction(t.additiveHigh, t.multiplicativeHigh, rule.additiveFractionBits,
                               rule.multiplicativeFractionBits)(high[i]);
      merged.push_back(mergedInDoubles(l, h, rule));
      const bool lowTaken =
          rule.type == 1 || (rule.type != 2 && (h >= rule.highThreshold || l - h > rule.differenceThreshold));
      markedLow.push_back(static_cast<std::uint16_t>(low[i] + (lowTaken ? 4096 : 0)));
      markedHigh.push_back(static_cast<std::uint16_t>(high[i] + (lowTaken ? 0 : 4096)));
    }
  }

  /// Where its pairs are counted.
  std::vector<std::uint16_t> places(const kernels::PairPlaces& where) const {
    const auto distance = [](int value, const kernels::ValueRange& range) {
      const int beyond = (range.last - range.first + 65536) % 65536;
      const int steps = (value - range.first + 2 * 65536) % 65536;
      return steps <= beyond ? steps : -1;
    };
    std::vector<std::uint16_t> places;
    for (std::size_t i = 0; i < low.size(); ++i) {
      const int l = distance(low[i], where.low);
      const int h = distance(high[i], where.high);
      const int m = where.withMerged ? distance(merged[i], where.merged) : 0;
      const int d = where.withDifference ? distance(merged[i] - high[i], where.difference) : 0;
      const bool inside = l >= 0 && h >= 0 && m >= 0 && d >= 0;
      places.push_back(static_cast<std::uint16_t>(
          inside ? l * (1 << where.lowShift) + h * (1 << where.highShift) + d : 0));
    }
    return places;
  }

  static std::vector<std::uint16_t> pixelsOf(const std::vector<std::uint8_t>& packed) {
    std::vector<std::uint16_t> pixels;
    for (std::size_t i = 0; i < packed.size(); i += 3) {
      const std::uint32_t whole = packed[i] * 65536u + packed[i + 1] * 256u + packed[i + 2];
      pixels.push_back(static_cast<std::uint16_t>(whole / 4096));
      pixels.push_back(static_cast<std::uint16_t>(whole % 4096));
    }
    return pixels;
  }
};

/// Where a run's pixels go, at misalignments of their own, with sentinels around each.
struct PackedOutputs {
  PackedOutputs(std::size_t pixels, std::size_t lowShift, std::size_t highShift, std::size_t mergedShift)
      : low(pixels, lowShift),
        high(pixels, highShift),
        merged(pixels, mergedShift),
        notedLow(pixels, 1),
        notedHigh(pixels, 2),
        notedMerged(pixels, 3),
        places(pixels, 4) {}

  bool intact() const {
    return low.intact() && high.intact() && merged.intact() && notedLow.intact() && notedHigh.intact() &&
           notedMerged.intact() && places.intact();
  }

  Guarded<std::uint16_t> low, high, merged, notedLow, notedHigh, notedMerged, places;
};

enum class Noted { nothing, pixels, places };

/// Ranges that have some of the values, often not all; a place may be any number of 16 bits.
kernels::PairPlaces somePlaces(std::mt19937& random) {
  const auto range = [&](std::uint32_t most) -> kernels::ValueRange {
    const std::uint32_t first = random() % 4 == 0 ? 0 : random() % most;
    return {static_cast<std::uint16_t>(first), static_cast<std::uint16_t>(first + random() % most)};
  };
  return {range(4096),   range(4096),  range(65536),      range(65536),
          random() % 12, random() % 5, random() % 2 == 0, random() % 2 == 0};
}

TEST_P(EveryTable, UnpacksAndMergesInOneGoAllLengthsAlignmentsAndOutputs) {
  std::mt19937 random(seed);
  for (std::size_t round = 0; round < 15 * 101; ++round) {
    const std::size_t pairs = round % 101;
    const std::size_t pixels = 2 * pairs;
    const std::vector<std::uint8_t> packedLow = noise<std::uint8_t>(3 * pairs, random);
    const std::vector<std::uint8_t> packedHigh = noise<std::uint8_t>(3 * pairs, random);
    const std::int32_t thresholds[] = {0, 1, 128, 3700, 65535};
    const kernels::MergeRule rule = {static_cast<std::uint32_t>(random() % 4),
                                     static_cast<std::uint32_t>(random() % 17), thresholds[random() % 5],
                                     thresholds[random() % 5], random() % 4};
    std::vector<std::uint16_t> terms[4];
    for (std::vector<std::uint16_t>& plane : terms)
      plane = noise<std::uint16_t>(pixels + 1, random);
    std::vector<kernels::UniformTerms> perPixel;
    for (std::size_t i = 0; i <= pixels; ++i)
      perPixel.push_back({static_cast<std::int16_t>(terms[0][i]), static_cast<std::int16_t>(terms[1][i]),
                          terms[2][i], terms[3][i]});
    const kernels::PlaneTerms planes = {reinterpret_cast<const std::int16_t*>(terms[0].data()),
                                        reinterpret_cast<const std::int16_t*>(terms[1].data()),
                                        terms[2].data(), terms[3].data()};
    // Sometimes the identity but for a factor, for which there is a shorter way, else any.
    kernels::UniformTerms uniform = perPixel[0];
    if (round % 2 == 0)
      uniform = {0, 0, static_cast<std::uint16_t>(random() >> 16),
                 static_cast<std::uint16_t>(1U << rule.multiplicativeFractionBits)};
    const PackedExpectation expectedUniform(packedLow, packedHigh, rule, {uniform});
    const PackedExpectation expectedPlanes(packedLow, packedHigh, rule, perPixel);

    for (const bool isUniform : {true, false})
      for (const bool streaming : {true, false}) {
        const PackedExpectation& expected = isUniform ? expectedUniform : expectedPlanes;
        const std::size_t shift = random() % 40;
        const bool together = random() % 2 == 0;
        PackedOutputs out(pixels, shift, together ? shift : random() % 40, together ? shift : random() % 40);
        const bool wantsLow = random() % 4 != 0, wantsHigh = random() % 4 != 0;
        const auto noted = static_cast<Noted>(random() % 3);
        const bool notesMerged = noted != Noted::nothing && random() % 2 == 0;
        const kernels::Extremes untouched = {1, 2};
        kernels::PairNotes notes = {noted == Noted::pixels ? out.notedLow.data() : nullptr,
                                    noted == Noted::pixels ? out.notedHigh.data() : nullptr,
                                    noted == Noted::places ? out.places.data() : nullptr,
                                    notesMerged ? out.notedMerged.data() : nullptr,
                                    somePlaces(random),
                                    untouched,
                                    untouched,
                                    untouched};
        const kernels::PackedPair run = {packedLow.data(),
                                         packedHigh.data(),
                                         pairs,
                                         wantsLow ? out.low.data() : nullptr,
                                         wantsHigh ? out.high.data() : nullptr,
                                         out.merged.data(),
                                         noted != Noted::nothing ? &notes : nullptr};
        if (isUniform)
          (streaming ? table().mergePackedUniformStreaming : table().mergePackedUniform)(run, rule, uniform);
        else
          (streaming ? table().mergePackedPlanesStreaming : table().mergePackedPlanes)(run, rule, planes);
        table().finishStreaming();
        const auto where = ::testing::Message()
                           << "round " << round << ", uniform " << isUniform << ", streaming " << streaming
                           << ", shift " << shift << ", seed " << seed;
        const std::vector<std::uint16_t> nothing = PackedOutputs(pixels, 0, 0, 0).low.values();
        ASSERT_EQ(out.low.values(), wantsLow ? expected.low : nothing) << where;
        ASSERT_EQ(out.high.values(), wantsHigh ? expected.high : nothing) << where;
        ASSERT_EQ(out.merged.values(), expected.merged) << where;
        ASSERT_EQ(out.notedLow.values(), noted == Noted::pixels ? expected.markedLow : nothing) << where;
        ASSERT_EQ(out.notedHigh.values(), noted == Noted::pixels ? expected.markedHigh : nothing) << where;
        ASSERT_EQ(out.notedMerged.values(), notesMerged ? expected.merged : nothing) << where;
        ASSERT_EQ(out.places.values(), noted == Noted::places ? expected.places(notes.where) : nothing)
            << where;
        ASSERT_TRUE(out.intact()) << where;
        if (noted != Noted::pixels || pairs == 0) {
          for (const kernels::Extremes& extremes :
               {notes.lowExtremes, notes.highExtremes, notes.mergedExtremes})
            ASSERT_TRUE(extremes.minimum == 1 && extremes.maximum == 2) << where;
          continue;
        }
        const auto requireExtremes = [&](const kernels::Extremes& extremes,
                                         const std::vector<std::uint16_t>& of) {
          ASSERT_EQ(extremes.minimum, *std::min_element(of.begin(), of.end())) << where;
          ASSERT_EQ(extremes.maximum, *std::max_element(of.begin(), of.end())) << where;
        };
        requireExtremes(notes.lowExtremes, expected.low);
        requireExtremes(notes.highExtremes, expected.high);
        requireExtremes(notes.mergedExtremes, expected.merged);
      }
  }
}

TEST_P(EveryTable, ReadsBothPlanesOfAPackedPairFromTheSameBytes) {
  std::mt19937 random(seed);
  const std::vector<std::uint8_t> packed = noise<std::uint8_t>(3 * 70, random);
  const kernels::MergeRule rule = {3, 10, 3700, 128, 0};
  const kernels::UniformTerms terms = {-40, 16, 6448, 1024};
  const PackedExpectation expected(packed, packed, rule, {terms});
  std::vector<std::uint16_t> low(140), high(140), merged(140);
  table().mergePackedUniform(
      {packed.data(), packed.data(), 70, low.data(), high.data(), merged.data(), nullptr}, rule, terms);
  EXPECT_EQ(low, expected.low);
  EXPECT_EQ(high, expected.low);
  EXPECT_EQ(merged, expected.merged);
}

}  // namespace
