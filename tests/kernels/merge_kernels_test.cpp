// The integer merge against the documented rule in doubles, and every table against the reference.

#include "kernels/KernelTesting.h"

#include <cmath>

namespace {

using namespace kernel_testing;

INSTANTIATE_TEST_SUITE_P(Merge, EveryTable, ::testing::ValuesIn(runnableTables()), tableName);

/// The rule as it is documented: double terms, a clamp, a product, rounding half away from zero, a cut.
int correctedInDoubles(unsigned int pixel, int additive, unsigned int multiplicative, unsigned int f,
                       unsigned int g) {
  const double max = std::pow(2.0, 15 - static_cast<int>(f)) - 1.0 / std::pow(2.0, static_cast<int>(f));
  double sum = pixel + additive / std::pow(2.0, static_cast<int>(f));
  if (sum > max) sum = max;
  if (sum < 0) sum = 0;
  const double value = sum * (multiplicative / std::pow(2.0, static_cast<int>(g)));
  return value > 65535.0 ? 65535 : static_cast<int>(std::round(value));
}

std::uint16_t mergedInDoubles(int low, int high, const kernels::MergeRule& rule) {
  if (rule.type == 1) return static_cast<std::uint16_t>(low);
  if (rule.type == 2) return static_cast<std::uint16_t>(high);
  if (high >= rule.highThreshold) return static_cast<std::uint16_t>(low);
  if (low > high && low - high > rule.differenceThreshold) return static_cast<std::uint16_t>(low);
  return static_cast<std::uint16_t>(high);
}

TEST(MergeRule, IsExactForEveryPixelAtEveryFractionWidth) {
  std::vector<std::uint16_t> pixels(65536);
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<std::uint16_t>(i);
  std::vector<std::uint16_t> merged(pixels.size());
  std::mt19937 random(seed);
  for (unsigned int f = 0; f <= 15; ++f)
    for (unsigned int g = 0; g <= 16; ++g) {
      const auto additive = static_cast<std::int16_t>(random());
      const auto multiplicative = static_cast<std::uint16_t>(random());
      const kernels::MergeRule rule = {f, g, 3700, 128, 1};
      kernels::active().mergeUniform(pixels.data(), pixels.data(), merged.data(), pixels.size(), rule,
                                     {additive, 0, multiplicative, 0});
      std::size_t wrong = 0;
      for (unsigned int p = 0; p < 65536; ++p)
        wrong += merged[p] != correctedInDoubles(p, additive, multiplicative, f, g);
      ASSERT_EQ(wrong, 0u) << "f " << f << ", g " << g << ", additive " << additive << ", multiplicative "
                           << multiplicative;
    }
}

TEST_P(EveryTable, FollowsTheRuleForAllTypesThresholdsAndTerms) {
  std::mt19937 random(seed);
  for (unsigned int round = 0; round < 400; ++round) {
    const std::size_t count = random() % 70;
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
    Guarded<std::uint16_t> merged(count, round % 16);
    table().mergePlanes(low.data(), high.data(), merged.data(), count, rule,
                        {term(addLow), term(addHigh), mulLow.data(), mulHigh.data()});
    for (std::size_t i = 0; i < count; ++i) {
      const int l = correctedInDoubles(low[i], static_cast<std::int16_t>(addLow[i]), mulLow[i],
                                       rule.additiveFractionBits, rule.multiplicativeFractionBits);
      const int h = correctedInDoubles(high[i], static_cast<std::int16_t>(addHigh[i]), mulHigh[i],
                                       rule.additiveFractionBits, rule.multiplicativeFractionBits);
      ASSERT_EQ(merged.values()[i], mergedInDoubles(l, h, rule)) << "round " << round << ", seed " << seed;
    }
    ASSERT_TRUE(merged.intact());

    if (count == 0) continue;
    const kernels::UniformTerms uniform = {*term(addLow), *term(addHigh), mulLow[0], mulHigh[0]};
    Guarded<std::uint16_t> expected(count, 3), actual(count, round % 16);
    reference().mergeUniform(low.data(), high.data(), expected.data(), count, rule, uniform);
    table().mergeUniform(low.data(), high.data(), actual.data(), count, rule, uniform);
    ASSERT_EQ(expected.values(), actual.values()) << "round " << round << ", seed " << seed;
    ASSERT_TRUE(actual.intact());
  }
}

TEST_P(EveryTable, MergesIntoOneOfItsInputs) {
  std::mt19937 random(seed);
  const std::vector<std::uint16_t> low = noise<std::uint16_t>(50, random);
  std::vector<std::uint16_t> high = noise<std::uint16_t>(50, random);
  const kernels::MergeRule rule = {3, 10, 3700, 128, 0};
  const kernels::UniformTerms terms = {-40, 16, 6448, 1024};
  std::vector<std::uint16_t> expected(50);
  reference().mergeUniform(low.data(), high.data(), expected.data(), 50, rule, terms);
  table().mergeUniform(low.data(), high.data(), high.data(), 50, rule, terms);
  EXPECT_EQ(high, expected);
}

}  // namespace
