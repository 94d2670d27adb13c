// The camera's own merge rule.

#include <gtest/gtest.h>
#include <orvacam/merge/CHWMergeReferenceFrames.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "merge/MergeRule.h"
#include "support/Contains.h"

namespace {

using Pixels = std::vector<unsigned short>;

struct Rule {
  unsigned int f = 3, g = 10;
  double addLow = 0, addHigh = 0, mulLow = 1, mulHigh = 1;
  int highThreshold = 3700, difference = 128;
  unsigned int type = 0;

  unsigned short operator()(unsigned short low, unsigned short high) const {
    return merge_rule::merged(merge_rule::Correction(addLow, mulLow, f)(low),
                              merge_rule::Correction(addHigh, mulHigh, f)(high), highThreshold, difference,
                              type);
  }
};

class HWMerge : public ::testing::Test {
 protected:
  HWMerge() : owner(std::make_unique<CHWMergeReferenceFrames>()), merge(*owner) {}

  Pixels merged(Pixels low, Pixels high) {
    Pixels out(low.size(), 0xAAAA);
    EXPECT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), low.size()), 0);
    return out;
  }

  /// What is written of 4 x 2 pixels of 0x0102 in a layout, where the image file's header takes so many
  /// bytes, and the metadata's length is this; nothing beyond, as the sanitizer watches.
  std::vector<unsigned char> mergedInto(unsigned int format, std::size_t leading, unsigned int length = 384) {
    CFrameMetaData header;
    header.ReInitialize(true);
    header.SetDimensions(4, 2);
    header.SetValue(ORVA_META_KEY_METADATA_LENGTH, std::to_string(length).c_str());
    merge.SetMetaData(header);
    merge.SetMergeEnables({0, format, 0});
    EXPECT_EQ(merge.CreateIdentityFrames(4, 2, nullptr), 0);
    Pixels low(8, 1), high(8, 0x0102);
    std::vector<unsigned char> out[2];
    for (const bool statistics : {false, true}) {
      merge.EnableStatistics(statistics);
      out[statistics].assign(leading + 16, 0xEE);
      auto* const pixels = reinterpret_cast<unsigned short*>(out[statistics].data());
      EXPECT_EQ(merge.MergeFrames(low.data(), high.data(), pixels, 8), 0);
    }
    image_plane_stats_t stats{};
    merge.GetMergedStats(stats);
    EXPECT_EQ(stats.dMean, 258.0) << "of the pixels, not of their bytes";
    // The date of a FITS header may differ.
    EXPECT_TRUE(std::equal(out[0].begin() + static_cast<std::ptrdiff_t>(leading), out[0].end(),
                           out[1].begin() + static_cast<std::ptrdiff_t>(leading)));
    return out[0];
  }

  std::unique_ptr<CHWMergeReferenceFrames> owner;
  CHWMergeReferenceFrames& merge;
};

TEST_F(HWMerge, TakesTheLowGainPixelFromTheHighThresholdOn) {
  ASSERT_EQ(merge.CreateIdentityFrames(3, 1, 10.0, 1.0, nullptr), 0);
  EXPECT_EQ(merged({370, 370, 371}, {3699, 3700, 3701}), (Pixels{3699, 3700, 3710}));
}

TEST_F(HWMerge, TakesTheLowGainPixelAboveTheDifferenceThreshold) {
  ASSERT_EQ(merge.CreateIdentityFrames(3, 1, nullptr), 0);
  EXPECT_EQ(merged({1128, 1129, 800}, {1000, 1000, 1000}), (Pixels{1000, 1129, 1000}));
}

TEST_F(HWMerge, FollowsTheThresholdsInTheirOrder) {
  unsigned short high = 0, difference = 0;
  merge.GetMergeThresholds(high, difference);
  EXPECT_EQ(high, 3700);
  EXPECT_EQ(difference, 128);
  merge.SetMergeThresholds(50, 3);
  merge.GetMergeThresholds(high, difference);
  EXPECT_EQ(high, 50);
  EXPECT_EQ(difference, 3);
  ASSERT_EQ(merge.CreateIdentityFrames(3, 1, nullptr), 0);
  EXPECT_EQ(merged({7, 13, 14}, {50, 10, 10}), (Pixels{7, 10, 14}));
}

TEST_F(HWMerge, RoundsHalvesAwayFromZeroAndSaturates) {
  // 0.5 and 16 in fixed point.
  ASSERT_EQ(merge.CreateIdentityFrames(4, 1, 0.0, 0.0, 16.0, 0.5, 3, 10, nullptr), 0);
  merge.SetMergeEnables({0, 0, 2});
  EXPECT_EQ(merged({0, 0, 0, 0}, {5, 4, 1, 0}), (Pixels{3, 2, 1, 0}));  // 2.5 becomes 3
  merge.SetMergeEnables({0, 0, 1});
  // 4095.875 is the largest sum with 3 fraction bits.
  EXPECT_EQ(merged({4095, 4096, 65535, 1}, {0, 0, 0, 0}), (Pixels{65520, 65534, 65534, 16}));
  EXPECT_EQ(CHWMergeReferenceFrames::LimitPixel(65535.4), 65535);
  EXPECT_EQ(CHWMergeReferenceFrames::LimitPixel(2.5), 3);
  EXPECT_EQ(CHWMergeReferenceFrames::LimitPixel(-0.5), 0);
  EXPECT_EQ(CHWMergeReferenceFrames::LimitPixel(std::nan("")), 0);
}

TEST_F(HWMerge, IsAllZeroWithMoreThan15AdditiveFractionBits) {
  EXPECT_EQ(CHWMergeReferenceFrames::PositiveIntMax(16), 0.0);
  EXPECT_EQ(CHWMergeReferenceFrames::PositiveIntMax(15), 1.0 - 1.0 / 32768);
  EXPECT_EQ(CHWMergeReferenceFrames::PositiveIntMax(3), 4095.875);
  EXPECT_EQ(CHWMergeReferenceFrames::PositiveIntMax(0), 32767.0);
  ASSERT_EQ(merge.CreateIdentityFrames(3, 1, 16u, 10u, nullptr), 0);
  EXPECT_EQ(merged({1000, 2000, 3}, {4000, 100, 3}), (Pixels{0, 0, 0}));
}

TEST_F(HWMerge, OfOneChannelDeliversTheCorrectedPixels) {
  ASSERT_EQ(merge.CreateIdentityFrames(2, 1, -4.0, -8.0, 2.0, 3.0, 3, 10, nullptr), 0);
  merge.SetMergeEnables({0, 0, 1});
  EXPECT_EQ(merged({10, 3}, {100, 9}), (Pixels{12, 0}));
  merge.SetMergeEnables({0, 0, 2});
  EXPECT_EQ(merged({10, 3}, {100, 9}), (Pixels{276, 3}));
  merge.SetMergeEnables({0, 0, 3});
  EXPECT_EQ(merge.ConvertMergeType(), 0u);
}

TEST(MergeType, FollowsFromTheEnableBits) {
  EXPECT_EQ(CHWMergeReferenceFrames::ConvertMergeType(8 | 16), 1u);
  EXPECT_EQ(CHWMergeReferenceFrames::ConvertMergeType(16 | 7), 2u);
  EXPECT_EQ(CHWMergeReferenceFrames::ConvertMergeType(7), 0u);
}

/// Every pair of the values around which the rule turns, and as many random pairs.
void fillWithEdges(Pixels& low, Pixels& high, std::mt19937& random) {
  const unsigned short edges[] = {0,    1,    2,    127,  128,   129,   3571,  3572,  3699, 3700,
                                  3701, 4094, 4095, 4096, 32766, 32767, 32768, 65534, 65535};
  for (const unsigned short l : edges)
    for (const unsigned short h : edges) {
      low.push_back(l);
      high.push_back(h);
      low.push_back(static_cast<unsigned short>(random() >> (random() % 16)));
      high.push_back(static_cast<unsigned short>(random() >> (random() % 16)));
    }
}

/// Fixed-point terms of a plane pair, and the rule that they mean.
struct FixedTerms {
  short addLow, addHigh;
  unsigned short mulLow, mulHigh;

  Rule rule(unsigned int f, unsigned int g) const {
    Rule rule;
    rule.f = f;
    rule.g = g;
    rule.addLow = addLow / std::pow(2.0, f);
    rule.addHigh = addHigh / std::pow(2.0, f);
    rule.mulLow = mulLow / std::pow(2.0, g);
    rule.mulHigh = mulHigh / std::pow(2.0, g);
    return rule;
  }
};

TEST_F(HWMerge, EqualsTheRuleInDoublesForEveryFractionWidthTypeAndThreshold) {
  const struct {
    unsigned short high, difference;
    unsigned int type;
  } modes[] = {{3700, 128, 0}, {0, 0, 0},   {65535, 0, 0},  {65535, 65535, 0},
               {1, 65535, 0},  {100, 5, 3}, {3700, 128, 1}, {3700, 128, 2}};
  const unsigned int seed = 77;
  std::mt19937 random(seed);
  Pixels low, high;
  fillWithEdges(low, high, random);
  const auto count = static_cast<unsigned int>(low.size());
  for (unsigned int f = 0; f <= 17; ++f)
    for (unsigned int g = 0; g <= 18; ++g) {
      const FixedTerms terms = {static_cast<short>(random() >> (16 + random() % 16)),
                                static_cast<short>(-static_cast<int>(random() % 32769)),
                                static_cast<unsigned short>(random() >> (16 + random() % 16)),
                                static_cast<unsigned short>(random())};
      const auto& mode = modes[random() % std::size(modes)];
      Rule rule = terms.rule(f, g);
      rule.highThreshold = mode.high;
      rule.difference = mode.difference;
      rule.type = mode.type;
      merge.SetMergeThresholds(mode.high, mode.difference);
      merge.SetMergeEnables({0, 0, mode.type});

      // The same terms per pixel, and as long as their doubles survive the fixed point as one per plane.
      for (const bool uniform : {false, true}) {
        if (uniform && g > 15) continue;
        ASSERT_EQ(merge.CreateIdentityFrames(count, 1, rule.addLow, rule.addHigh, rule.mulLow, rule.mulHigh,
                                             f, g, nullptr),
                  0);
        if (!uniform) {
          const std::vector<short> addLow(count, terms.addLow), addHigh(count, terms.addHigh);
          const Pixels mulLow(count, terms.mulLow), mulHigh(count, terms.mulHigh);
          ASSERT_EQ(merge.SetAdditiveLowFromBuffer(addLow.data(), count), 0);
          ASSERT_EQ(merge.SetAdditiveHighFromBuffer(addHigh.data(), count), 0);
          ASSERT_EQ(merge.SetMultiplicativeLowFromBuffer(mulLow.data(), count), 0);
          ASSERT_EQ(merge.SetMultiplicativeHighFromBuffer(mulHigh.data(), count), 0);
        }
        const Pixels out = merged(low, high);
        for (unsigned int i = 0; i < count; ++i)
          ASSERT_EQ(out[i], rule(low[i], high[i]))
              << "seed " << seed << " f " << f << " g " << g << " type " << mode.type << " uniform "
              << uniform << " low " << low[i] << " high " << high[i];
      }
    }
}

TEST_F(HWMerge, DoesNotDependOnWhereItsOutputLies) {
  // More than the caches hold, so that output on its own is written past them.
  constexpr unsigned int width = 4099, height = 2051;
  constexpr unsigned long pixels = width * height;
  Pixels low(pixels), high(pixels);
  std::uint32_t noise = 1;
  for (unsigned long i = 0; i < pixels; ++i) {
    noise = noise * 1664525u + 1013904223u;
    low[i] = noise >> 20;
    high[i] = noise >> 8 & 4095;
  }
  std::vector<short> additive(pixels);
  for (unsigned long i = 0; i < pixels; ++i)
    additive[i] = static_cast<short>(i % 401) - 200;
  for (const bool perPixel : {false, true}) {
    ASSERT_EQ(merge.CreateIdentityFrames(width, height, 6.25, 1.0, nullptr), 0);
    if (perPixel) ASSERT_EQ(merge.SetAdditiveHighFromBuffer(additive.data(), pixels), 0);
    Pixels apart(pixels, 0xAAAA), inPlace = low;
    ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), apart.data(), pixels), 0);
    ASSERT_EQ(merge.MergeFrames(inPlace.data(), high.data(), inPlace.data(), pixels), 0);
    EXPECT_TRUE(apart == inPlace);
    Rule rule;
    rule.mulLow = 6.25;
    for (unsigned long i = 0; i < pixels; i += i < 10000 ? 1 : 97) {
      rule.addHigh = perPixel ? additive[i] / 8.0 : 0.0;
      ASSERT_EQ(apart[i], rule(low[i], high[i])) << i;
    }
  }
}

TEST_F(HWMerge, WithoutAnyFramesPassesPixelsAsTheyAre) {
  EXPECT_TRUE(merge.IsIdentity());
  EXPECT_FALSE(merge.HasCallerFrames());
  EXPECT_EQ(merged({1, 2000}, {7, 9}), (Pixels{7, 2000}));
}

TEST_F(HWMerge, RefusesNullPointers) {
  Pixels p(4);
  merge.MergeNoStats(nullptr, p.data(), p.data(), 4);
  merge.MergeNoStats(p.data(), nullptr, p.data(), 4);
  merge.MergeNoStats(p.data(), p.data(), nullptr, 4);
  merge.MergeWithStats(nullptr, p.data(), p.data(), 4);
  merge.MergeWithStats(p.data(), nullptr, p.data(), 4);
  merge.MergeWithStats(p.data(), p.data(), nullptr, 4);
  EXPECT_EQ(p, Pixels(4));
  EXPECT_EQ(merge.MergeFrames(nullptr, p.data(), p.data(), 4), -1);
  EXPECT_EQ(merge.MergeFrames(p.data(), nullptr, p.data(), 4), -1);
  EXPECT_EQ(merge.MergeFrames(p.data(), p.data(), nullptr, 4), -1);
}

TEST(HWMergeLog, SaysThatTheReferenceFramesAreTooSmallAndMergesNothing) {
  const LogCapture log;
  const auto merge = std::make_unique<CHWMergeReferenceFrames>();
  ASSERT_EQ(merge->CreateIdentityFrames(4, 3, nullptr), 0);
  merge->SetStartRowOffset(1);
  Pixels low(12, 5), high(12, 6), out(12, 77);
  EXPECT_EQ(merge->MergeFrames(low.data(), high.data(), out.data(), 9), 0);
  EXPECT_EQ(out, Pixels(12, 77));
  EXPECT_TRUE(contains(log.text(),
                       "ERROR, MergeFrames: The reference frames are smaller than then recieved image. "
                       "Can not merge.\nERROR, MergeFrames: m_uiWidth: 4, m_uiHeight: 3, "
                       "m_uiMergeStartRowOffset: 1, image pixels: 9\n"));
  EXPECT_EQ(merge->MergeFrames(low.data(), high.data(), out.data(), 8), 0);
  EXPECT_EQ(out[7], 6);
}

TEST(HWMergeLog, SaysThatTheStartRowLiesBeyondTheFramesAndStartsAtTheirTop) {
  const LogCapture log;
  const auto merge = std::make_unique<CHWMergeReferenceFrames>();
  ASSERT_EQ(merge->CreateIdentityFrames(4, 3, nullptr), 0);
  merge->SetStartRowOffset(3);
  Pixels low(12, 5), high(12, 6), out(12, 77);
  EXPECT_EQ(merge->MergeFrames(low.data(), high.data(), out.data(), 12), 0);
  EXPECT_EQ(out, Pixels(12, 6));
  EXPECT_TRUE(contains(log.text(),
                       "WARN , MergeFrames: m_uiMergeStartRowOffset: 3, larger than m_uiHeight: 3, "
                       "m_uiWidth= 4. Setting to 0.\n"));
}

TEST_F(HWMerge, AlignsTheImageWithTheFramesFromTheStartRowOn) {
  ASSERT_EQ(merge.CreateIdentityFrames(2, 3, nullptr), 0);
  const std::vector<short> additive = {0, 8, 16, 24, 32, 40};  // 0 to 5
  ASSERT_EQ(merge.SetAdditiveHighFromBuffer(additive.data(), 6), 0);
  merge.SetStartRowOffset(1);
  EXPECT_EQ(merged({0, 0, 0}, {100, 100, 100}), (Pixels{102, 103, 104}));
}

TEST_F(HWMerge, NeverReadsTermsBeyondAPlaneWhoseWidthWasChanged) {
  ASSERT_EQ(merge.CreateIdentityFrames(2, 3, nullptr), 0);
  const std::vector<short> additive(6, 8);
  ASSERT_EQ(merge.SetAdditiveLowFromBuffer(additive.data(), 6), 0);
  merge.SetFrameWidth(100);
  Pixels low(300, 1), high(300, 2), out(300, 77);
  EXPECT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 300), 0);
  EXPECT_EQ(out, Pixels(300, 77));
  merge.MergeNoStats(low.data(), high.data(), out.data(), 300);
  EXPECT_EQ(out[5], 2);
  EXPECT_EQ(out[6], 77);
}

// ---- Statistics

CFrameMetaData headerWithReferences() {
  CFrameMetaData header;
  header.ReInitialize(true);
  header.SetDimensions(4, 3);
  header.SetValue(ORVA_META_KEY_PRE_ROW_REF_PIXELS, "2");
  header.SetValue(ORVA_META_KEY_POST_ROW_REF_PIXELS, "1");
  header.SetValue(ORVA_META_KEY_PRE_REFERENCE_ROWS, "1");
  header.SetValue(ORVA_META_KEY_POST_REFERENCE_ROWS, "2");
  return header;
}

TEST_F(HWMerge, StatisticsCoverTheImageInFrameCoordinatesAndDescribeOneMerge) {
  const CFrameMetaData header = headerWithReferences();  // 7 x 6
  merge.SetMetaData(header);
  merge.EnableStatistics(true);
  ASSERT_EQ(merge.CreateIdentityFrames(7, 6, nullptr), 0);
  Pixels low(42, 0), high(42);
  for (unsigned int i = 0; i < 42; ++i)
    high[i] = static_cast<unsigned short>(1000 - i);
  for (int round = 0; round < 2; ++round) {  // the second merge does not add to the first one's
    EXPECT_EQ(merged(low, high), high);
    image_plane_stats_t stats{};
    merge.GetMergedStats(stats);
    double sum = 0;
    for (unsigned int y = 1; y < 4; ++y)
      for (unsigned int x = 2; x < 6; ++x)
        sum += high[y * 7 + x];
    EXPECT_EQ(stats.dMean, sum / 12);
    EXPECT_EQ(stats.maxPoint.x, 2);
    EXPECT_EQ(stats.maxPoint.y, 1);
    EXPECT_EQ(stats.uiMax, 1000u - 9);
    EXPECT_EQ(stats.minPoint.x, 5);
    EXPECT_EQ(stats.minPoint.y, 3);
  }
}

TEST_F(HWMerge, OutputIsTheSameWithAndWithoutStatisticsWhateverTheMetadataSays) {
  CFrameMetaData header = headerWithReferences();
  ASSERT_EQ(merge.CreateIdentityFrames(7, 6, 3.0, 1.0, nullptr), 0);
  Pixels low(42), high(42);
  for (unsigned int i = 0; i < 42; ++i)
    low[i] = static_cast<unsigned short>(50 * i), high[i] = 90 * i;
  // Far more than there are pixels, and fewer.
  for (const auto& [width, height] : {std::pair{60000u, 60000u}, std::pair{2u, 1u}}) {
    header.SetDimensions(width, height);
    merge.SetMetaData(header);
    merge.EnableStatistics(false);
    const Pixels without = merged(low, high);
    merge.EnableStatistics(true);
    EXPECT_EQ(merged(low, high), without);
  }
}

TEST_F(HWMerge, WithStatisticsDoesNotWalkRowsWithoutPixels) {
  CFrameMetaData header;
  header.ReInitialize(true);
  header.SetValue(ORVA_META_KEY_IMAGE_START_COLUMN, "1");
  header.SetValue(ORVA_META_KEY_IMAGE_STOP_COLUMN, "0");
  header.SetValue(ORVA_META_KEY_IMAGE_STOP_ROW, "4294967294");
  merge.SetMetaData(header);
  merge.EnableStatistics(true);
  ASSERT_EQ(merge.CreateIdentityFrames(10, 1, nullptr), 0);
  for (int i = 0; i < 1000; ++i)  // hours, row by row
    ASSERT_EQ(merged(Pixels(10, 0), Pixels(10, 4)), Pixels(10, 4));
}

TEST_F(HWMerge, ThatIsRefusedHasNoStatistics) {
  merge.SetMetaData(headerWithReferences());
  merge.EnableStatistics(true);
  ASSERT_EQ(merge.CreateIdentityFrames(7, 6, nullptr), 0);
  merged(Pixels(42, 0), Pixels(42, 50));
  image_plane_stats_t stats{};
  merge.GetMergedStats(stats);
  ASSERT_EQ(stats.uiMax, 50u);
  merged(Pixels(43, 0), Pixels(43, 60));
  merge.GetMergedStats(stats);
  EXPECT_EQ(stats.uiMax, 0u);
  EXPECT_EQ(stats.dMean, 0.0);
}

// ---- Image file layouts

TEST_F(HWMerge, PutsATiffHeaderAheadOfThePixels) {
  for (const unsigned int length : {384u, 385u}) {
    const std::vector<unsigned char> out = mergedInto(ORVA_IMAGE_FORMAT_TIFF, 656 + length, length);
    EXPECT_EQ(std::memcmp(out.data(), "II\x2a\0\x0e\0\0\0", 8), 0);
    EXPECT_EQ(std::memcmp(out.data() + 656, "Meta", 4), 0);
    for (std::size_t i = 656 + length; i < out.size(); i += 2)
      EXPECT_EQ(out[i] + 256 * out[i + 1], 0x0102);
  }
}

TEST_F(HWMerge, PutsAFitsHeaderAheadOfPixelsInNetworkOrder) {
  const std::vector<unsigned char> out = mergedInto(ORVA_IMAGE_FORMAT_FITS, 5760);
  EXPECT_EQ(std::memcmp(out.data(), "SIMPLE  = T", 11), 0);
  for (std::size_t i = 5760; i < out.size(); i += 2)
    EXPECT_EQ(256 * out[i] + out[i + 1], 0x0102);
}

TEST_F(HWMerge, LeavesAMetadataBlockZeroThatIsTooShortForAHeader) {
  for (const unsigned int length : {0u, 1u, 156u, 383u}) {
    const std::vector<unsigned char> out = mergedInto(ORVA_IMAGE_FORMAT_TIFF, 656 + length, length);
    EXPECT_EQ(std::count(out.begin() + 656, out.begin() + 656 + length, 0), length);
    for (std::size_t i = 656 + length; i < out.size(); i += 2)
      EXPECT_EQ(out[i] + 256 * out[i + 1], 0x0102);
  }
}

TEST_F(HWMerge, StaysWithinTheSizeItAskedForWhenTheMetadataLengthIsAbsurd) {
  merge.GetMetaData().SetValue(ORVA_META_KEY_METADATA_LENGTH, "4294967295");
  merge.SetMergeEnables({0, ORVA_IMAGE_FORMAT_TIFF, 0});
  ASSERT_EQ(merge.CreateIdentityFrames(4, 2, nullptr), 0);
  unsigned int leading = 0, trailing = 0;
  merge.GetMergeHeaderSize(ORVA_IMAGE_FORMAT_TIFF, 8, 16, leading, trailing);
  EXPECT_EQ(leading, 655u);  // 32 bits have no room for more
  Pixels low(8, 1), high(8, 0x0102);
  std::vector<unsigned char> out(leading + 16);
  EXPECT_EQ(merge.MergeFrames(low.data(), high.data(), reinterpret_cast<unsigned short*>(out.data()), 8), -1);
  EXPECT_EQ(out.back(), 0x01);
}

TEST_F(HWMerge, MarksItsMetadataAsAMergedImage) {
  CFrameMetaData header;
  header.ReInitialize(true);
  header.SetHDRFrame(true);
  header.SetBitsPerPixel(12);
  merge.SetMetaData(header);
  merged({1}, {1});
  EXPECT_EQ(merge.GetMetaData().Value(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH).GetValueUint(), 16u);
  EXPECT_FALSE(merge.GetMetaData().Value(ORVA_META_KEY_HDR_MODE).GetValueBool());
  EXPECT_TRUE(merge.GetMetaData().Value(ORVA_META_KEY_PIXEL_ORDERED_IMAGE).GetValueBool());
}

// ---- Test merge

class TestMerge : public CHWMergeReferenceFrames {
 public:
  const Pixels& output() const { return m_TestMerged; }
};

TEST(HWTestMerge, KeepsItsSourcesAndItsOutput) {
  const auto merge = std::make_unique<TestMerge>();
  ASSERT_EQ(merge->CreateIdentityFrames(2, 2, nullptr), 0);
  Pixels low = {1, 2, 3, 4000}, high = {10, 20, 30, 40};
  EXPECT_EQ(merge->MergeFrames(low.data(), high.data(), 3u, 2u, 0u), -1);
  EXPECT_EQ(merge->MergeFrames(low.data(), high.data(), 2u, 1u, 0u), -1);
  EXPECT_EQ(merge->MergeFrames(nullptr, high.data(), 2u, 2u, 0u), -1);
  EXPECT_EQ(merge->MergeFrames(low.data(), nullptr, 2u, 2u, 0u), -1);
  unsigned short l = 99, h = 98;
  EXPECT_EQ(merge->GetSourcePixels(2, l, h), 0);  // nothing there yet
  EXPECT_EQ(l, 99);
  EXPECT_EQ(h, 98);
  ASSERT_EQ(merge->MergeFrames(low.data(), high.data(), 2u, 2u, 7u), 0);
  EXPECT_EQ(merge->output(), (Pixels{10, 20, 30, 4000}));
  EXPECT_EQ(merge->GetSourcePixels(2, l, h), 0);
  EXPECT_EQ(l, 3);
  EXPECT_EQ(h, 30);
  EXPECT_EQ(merge->GetSourcePixels(4, l, h), -1);
  merge->ClearFrames();
  EXPECT_EQ(merge->GetSourcePixels(3, l, h), 0);
  EXPECT_EQ(l, 3);  // left alone, as there are no buffers any more
}

TEST(HWTestMerge, LooksTermsUpFromTheStartRowOn) {
  const auto merge = std::make_unique<TestMerge>();
  ASSERT_EQ(merge->CreateIdentityFrames(1, 3, nullptr), 0);
  const short additive[] = {8, 16, 24};
  ASSERT_EQ(merge->SetAdditiveHighFromBuffer(additive, 3), 0);
  merge->SetStartRowOffset(1);
  Pixels low(3, 0), high(3, 100);
  ASSERT_EQ(merge->MergeFrames(low.data(), high.data(), 1u, 3u, 0u), 0);
  EXPECT_EQ(merge->output(), (Pixels{102, 103, 0}));  // there is no fourth row of terms
}

TEST(HWTestMerge, IsCopiedWithItsBuffers) {
  const auto merge = std::make_unique<TestMerge>();
  ASSERT_EQ(merge->CreateIdentityFrames(2, 1, nullptr), 0);
  Pixels low = {1, 2}, high = {10, 20};
  ASSERT_EQ(merge->MergeFrames(low.data(), high.data(), 2u, 1u, 0u), 0);
  const auto copy = std::make_unique<TestMerge>(*merge);
  merge->ClearFrames();
  EXPECT_EQ(copy->output(), (Pixels{10, 20}));
  unsigned short l = 0, h = 0;
  EXPECT_EQ(copy->GetSourcePixels(1, l, h), 0);
  EXPECT_EQ(l, 2);
  EXPECT_EQ(h, 20);
}

TEST_F(HWMerge, CorrectsOnePixelOfFixedPointTermsLikeOneOfDoubles) {
  EXPECT_EQ(merge.CorrectPixel(100, 2.5, 2.0, 4095.875), 205);
  EXPECT_EQ(merge.CorrectPixel(100, static_cast<short>(20), static_cast<unsigned short>(2048), 4095.875),
            205);
  EXPECT_EQ(merge.CorrectPixel(10, -11.0, 5.0, 4095.875), 0);
}

}  // namespace
