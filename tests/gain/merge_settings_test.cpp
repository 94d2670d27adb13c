// Merge settings: a record for each pair of gains, and the mapping array.

#include <gtest/gtest.h>
#include <orvacam/gain/CCameraNVMergeSettings.h>
#include <orvacam/gain/CMergeSettings.h>
#include <orvacam/types/device_types.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "gain/CalibrationBlock.h"

namespace {

constexpr gain_type_info_t gsense400{ORVA_DEVICE_GSENSE400, false};
constexpr gain_type_info_t generic{ORVA_DEVICE_UNKNOWN, false};

TEST(MergeSettings, HaveNoPairsBeforeInitializationOrWithoutTables) {
  CMergeSettings settings;
  EXPECT_EQ(settings.GetGainRatio(0, 0), 40.0);
  EXPECT_EQ(settings.GetADUValue(0), 1.0);
  EXPECT_FALSE(settings.HasGainOffsetPairs());
  EXPECT_EQ(settings.GenerateMergeMappingArrays(4, 0, 0, 0.0), nullptr);
  EXPECT_EQ(settings.Initialize(generic, nullptr), 0);
  EXPECT_FALSE(settings.HasGainOffsetPairs());
  EXPECT_EQ(settings.GetGainRatio(0, 0), 1.0);
  EXPECT_EQ(settings.GenerateMergeMappingArrays(4, 0, 0, 0.0), nullptr);
  EXPECT_EQ(settings.GetGainOffsetPair(3, 3).iLineOffset[0], 3500);  // the default record
  EXPECT_EQ(settings.GetGainOffsetPair(3, 3).uiMergeThreshold1, 15750u);
  EXPECT_EQ(settings.GetGainOffsetPair(3, 3).uiMergeThreshold2, 15580u);
}

/// Merge settings with their state in reach.
class OpenSettings : public CMergeSettings {
 public:
  using CMergeSettings::DoInitialize;
  using CMergeSettings::m_dADUScale;
  using CMergeSettings::m_DefaultLineOffsets;
  using CMergeSettings::m_dGainRatio;
  using CMergeSettings::m_pGainTables;
  using CMergeSettings::m_ppGainOffsetPairs;
};

TEST(MergeSettings, StartAndStartOverWithTheirDefaults) {
  OpenSettings settings;
  settings.m_dADUScale = 2.0;
  settings.m_dGainRatio = 7.0;
  settings.m_DefaultLineOffsets = sampleRecord(1, 2);
  settings.DoInitialize();
  EXPECT_EQ(settings.m_DefaultLineOffsets.dGainRatio, OpenSettings().m_DefaultLineOffsets.dGainRatio);
  EXPECT_EQ(settings.m_dADUScale, 1.0);
  EXPECT_EQ(settings.m_dGainRatio, 40.0);
  EXPECT_EQ(settings.m_ppGainOffsetPairs, nullptr);
  EXPECT_EQ(settings.m_pGainTables, nullptr);
  EXPECT_EQ(settings.GetNumLowGains() + settings.GetNumHighGains(), 0u);
  const merge_line_offsets_t& r = settings.m_DefaultLineOffsets;
  EXPECT_EQ(r.uiMergeThreshold1, 15750u);
  EXPECT_EQ(r.uiMergeThreshold2, 15580u);
  EXPECT_EQ(r.uiMappingThreshold, 3800u);
  EXPECT_EQ(r.uiHighGainSetting + r.uiLowGainSetting, 0u);
  EXPECT_EQ(r.dGainRatio, 40.0);
  const double temperatures[] = {-10.0, 5.0, 20.0};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(r.dTemperature[i], temperatures[i]);
    EXPECT_EQ(r.iLineOffset[i], 3500);
  }
}

TEST(MergeSettings, HaveARecordForEveryPairOfGains) {
  const double low[] = {47.8469, 17.3611, 12.6904, 8.6059, 24.9377, 8.8652, 6.5789, 4.8544};
  const double high[] = {7.5988, 2.5661, 1.7492, 1.0896, 3.7979, 1.1004, 0.8109, 0.5549};
  OpenSettings settings;
  ASSERT_EQ(settings.Initialize(gsense400, nullptr), 0);
  for (unsigned int i = 0; i < 8; ++i)
    for (unsigned int j = 0; j < 8; ++j) {
      const merge_line_offsets_t& r = settings.m_ppGainOffsetPairs[i][j];
      EXPECT_EQ(r.dGainRatio, low[i] / high[j]) << i << ", " << j;
      EXPECT_EQ(r.uiLowGainSetting, i);
      EXPECT_EQ(r.uiHighGainSetting, j);
      EXPECT_EQ(&settings.GetGainOffsetPair(i, j), &r);
    }
}

TEST(MergeSettings, KeepTheirRecordsWhenTheNextSensorHasNone) {
  OpenSettings settings;
  settings.Initialize(gsense400, nullptr);
  settings.Initialize(generic, nullptr);
  EXPECT_EQ(settings.GetNumLowGains(), 8u);
  EXPECT_EQ(settings.GetGainRatio(1, 2), 1.0);
  settings.Initialize({ORVA_DEVICE_LUMORA533, false}, nullptr);
  EXPECT_EQ(settings.GetNumLowGains(), 7u);
  EXPECT_EQ(settings.GetNumHighGains(), 7u);
  settings.FreeAll();
  EXPECT_EQ(settings.m_ppGainOffsetPairs, nullptr);
  EXPECT_EQ(settings.m_pGainTables, nullptr);
  EXPECT_EQ(settings.GetGainRatio(1, 2), 40.0);
}

TEST(MergeSettings, GenerateRecordsFromTheSensorsOwnRatios) {
  CMergeSettings settings;
  ASSERT_EQ(settings.Initialize(gsense400, nullptr), 0);
  ASSERT_EQ(settings.GetNumLowGains(), 8u);
  ASSERT_EQ(settings.GetNumHighGains(), 8u);
  const merge_line_offsets_t& r = settings.GetGainOffsetPair(1, 2);
  const double ratio = 17.3611 / 1.7492;
  EXPECT_EQ(r.dGainRatio, ratio);
  EXPECT_EQ(r.iLineOffset[0], static_cast<int>(ratio * 120));
  EXPECT_EQ(r.iLineOffset[1], static_cast<int>(ratio * 125));
  EXPECT_EQ(r.iLineOffset[2], static_cast<int>(ratio * 130));
  EXPECT_EQ(r.dTemperature[0], -10.0);
  EXPECT_EQ(r.uiMergeThreshold1, 15752u);
  EXPECT_EQ(r.uiMergeThreshold2, 15670u);
  EXPECT_EQ(r.uiMappingThreshold, 3800u);
  EXPECT_EQ(r.uiLowGainSetting, 1u);
  EXPECT_EQ(r.uiHighGainSetting, 2u);
  EXPECT_EQ(settings.GetGainOffsetPairGainRatio(1, 2), ratio);
  EXPECT_EQ(settings.GetADUValue(2), 1.7492);
}

TEST(MergeSettings, OfARatioOf40HaveTheUsualOffsets) {
  CMergeSettings settings;
  settings.Initialize({ORVA_DEVICE_LUMORA533, false}, nullptr);
  const merge_line_offsets_t& r = settings.GetGainOffsetPair(0, 0);
  EXPECT_EQ(r.dGainRatio, 40.0);
  EXPECT_EQ(r.iLineOffset[0], 4800);
  EXPECT_EQ(r.iLineOffset[1], 5000);
  EXPECT_EQ(r.iLineOffset[2], 5200);
}

class Calibrated : public ::testing::Test {
 protected:
  void calibrate(unsigned int records, unsigned int extras) {
    CalibrationBlock b;
    b.ratios(1, 1, 22.0, 30.0);
    b.counts(0, 0, records, extras);
    if (records > 0) b.record(4, false, sampleRecord(1, 2));
    if (extras > 0) b.record(4, true, sampleRecord(77, 78));
    const CalibrationBlock::Bytes block = b.block(4);
    nv.Initialize(block.data(), block.size());
    ASSERT_EQ(settings.Initialize(gsense400, &nv), 0);
  }
  CCameraNVMergeSettings nv;
  OpenSettings settings;
};

TEST_F(Calibrated, TakesTheBlocksGainRatio) {
  calibrate(0, 0);
  EXPECT_EQ(settings.m_dGainRatio, 22.0);
  settings.Initialize(gsense400, nullptr);
  EXPECT_EQ(settings.m_dGainRatio, 40.0);
}

TEST_F(Calibrated, TakesThePairsOwnRecordButNeverItsMappingThreshold) {
  calibrate(1, 1);
  const merge_line_offsets_t& r = settings.GetGainOffsetPair(1, 2);
  EXPECT_EQ(r.dGainRatio, 13.5);
  EXPECT_EQ(r.iLineOffset[1], 202);
  EXPECT_EQ(r.dTemperature[0], -20.25);
  EXPECT_EQ(r.uiMergeThreshold1, 111u);
  EXPECT_EQ(r.uiMappingThreshold, 3800u);
}

TEST_F(Calibrated, TakesTheFirstExtraRecordForAMissingPairWhateverItsGains) {
  calibrate(1, 1);
  const merge_line_offsets_t& r = settings.GetGainOffsetPair(3, 3);
  EXPECT_EQ(r.dGainRatio, 89.5);
  EXPECT_EQ(r.iLineOffset[1], 278);
  EXPECT_EQ(r.uiLowGainSetting, 3u);  // table indices
  EXPECT_EQ(r.uiHighGainSetting, 3u);
}

TEST_F(Calibrated, GeneratesFromTheDefaultRatioWithoutExtras) {
  calibrate(1, 0);
  const merge_line_offsets_t& r = settings.GetGainOffsetPair(3, 3);
  EXPECT_EQ(r.dGainRatio, 30.0);
  EXPECT_EQ(r.iLineOffset[0], 3600);
  EXPECT_EQ(r.iLineOffset[2], 3900);
}

TEST_F(Calibrated, FindsWhatALinearSearchOfAllClaimedRecordsFinds) {
  // A block of a few bytes may claim as many records as 16 bits hold; those that it lacks are for settings 0.
  CalibrationBlock b;
  b.ratios(1, 1, 22.0, 30.0);
  b.counts(0, 0, 65535, 0);
  for (const unsigned int gain : {1u, 0u, 2u})
    b.record(4, false, sampleRecord(gain, gain));
  const CalibrationBlock::Bytes block = b.block(4);
  for (const std::size_t length : {block.size(), block.size() - 26, block.size() - 52, block.size() - 78}) {
    CalibrationBlock::Bytes cut(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(length));
    cut[4] = static_cast<unsigned char>(length >> 8);
    cut[5] = static_cast<unsigned char>(length);
    nv.Initialize(cut.data(), cut.size());
    ASSERT_EQ(nv.GetNumLineOffsets(), 65535u);
    ASSERT_EQ(settings.Initialize(gsense400, &nv), 0);
    for (unsigned int low = 0; low < 8; ++low)
      for (unsigned int high = 0; high < 8; ++high) {
        const int found =
            CMergeSettings::FindCameraMergeLineOffsetIndex(nv.GetLineOffsets(), 65535, low, high);
        const double expected = found < 0 ? 30.0 : nv.GetLineOffsets()[found].dGainRatio;
        EXPECT_EQ(settings.GetGainOffsetPairGainRatio(low, high), expected) << length;
      }
  }
}

TEST_F(Calibrated, GoesBackToTheSensorsRatiosWhenInitializedWithoutTheCamera) {
  calibrate(1, 1);
  settings.Initialize(gsense400, nullptr);
  EXPECT_EQ(settings.GetGainOffsetPairGainRatio(1, 2), 17.3611 / 1.7492);
}

TEST(MergeSettings, LookBothGainsUpInTheLowTable) {
  CMergeSettings settings;
  settings.Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
  const merge_line_offsets_t& r = settings.GetGainOffsetPair(8, 63);
  EXPECT_EQ(r.uiLowGainSetting, 7u);
  EXPECT_EQ(r.uiHighGainSetting, 57u);
  EXPECT_EQ(settings.GetGainOffsetPair(4000000000u, 4000000000u).uiHighGainSetting,
            57u);  // the last position
}

TEST(MergeSettings, FindRecordsByBothGains) {
  const merge_line_offsets_t records[] = {sampleRecord(1, 2), sampleRecord(2, 1), sampleRecord(1, 2)};
  auto* const some = const_cast<merge_line_offsets_t*>(records);
  EXPECT_EQ(CMergeSettings::FindCameraMergeLineOffsetIndex(some, 3, 1, 2), 0);
  EXPECT_EQ(CMergeSettings::FindCameraMergeLineOffsetIndex(some, 3, 2, 1), 1);
  EXPECT_EQ(CMergeSettings::FindCameraMergeLineOffsetIndex(some, 3, 2, 2), -1);
  EXPECT_EQ(CMergeSettings::FindCameraMergeLineOffsetIndex(nullptr, 3, 1, 2), -1);
  EXPECT_EQ(CMergeSettings::FindCameraMergeLineOffsetIndex(some, 0, 1, 2), -1);
}

int offsetAt(merge_line_offsets_t record, double temperature) {
  CMergeSettings settings;
  settings.Initialize(gsense400, nullptr);
  settings.GetGainOffsetPair(0, 0) = record;
  double ratio = 0;
  int offset = 0;
  unsigned int threshold = 0;
  EXPECT_EQ(settings.CalculateMergeParams(0, 0, temperature, ratio, offset, threshold), 0);
  EXPECT_EQ(ratio, record.dGainRatio);
  EXPECT_EQ(threshold, record.uiMappingThreshold);
  return offset;
}

TEST(LineOffset, RunsThroughThePointsAndOnBeyondThem) {
  const merge_line_offsets_t r = sampleRecord(0, 0);  // -20.25: -100, 0.5: 200, 33: 300
  EXPECT_EQ(offsetAt(r, -20.25), -100);
  EXPECT_EQ(offsetAt(r, 0.5), 200);
  EXPECT_EQ(offsetAt(r, 33.0), 300);
  const auto first = [](double t) { return static_cast<int>(std::fma(t + 20.25, 300 / 20.75, -100)); };
  const auto second = [](double t) { return static_cast<int>(std::fma(t - 0.5, 100 / 32.5, 200)); };
  for (const double t : {-50.0, -20.0, -3.3, 0.4})
    EXPECT_EQ(offsetAt(r, t), first(t)) << t;
  for (const double t : {0.6, 7.7, 32.9, 80.0})
    EXPECT_EQ(offsetAt(r, t), second(t)) << t;
}

TEST(LineOffset, OfDescendingPointsChoosesTheOtherWayRound) {
  merge_line_offsets_t r = sampleRecord(0, 0);
  std::reverse(std::begin(r.dTemperature), std::end(r.dTemperature));
  std::reverse(std::begin(r.iLineOffset), std::end(r.iLineOffset));
  EXPECT_EQ(offsetAt(r, 33.0), 300);
  EXPECT_EQ(offsetAt(r, 20.0), static_cast<int>(std::fma(20.0 - 33.0, (200.0 - 300) / (0.5 - 33.0), 300)));
  EXPECT_EQ(offsetAt(r, -20.0), static_cast<int>(std::fma(-20.0 - 0.5, -300 / -20.75, 200)));
}

TEST(LineOffset, AtTheMiddlePointIsOnTheFirstSegmentAndNotRoundedInBetween) {
  merge_line_offsets_t r;  // -10, 5 and 20 degrees
  r.iLineOffset[0] = 2700;
  r.iLineOffset[1] = 648;
  r.iLineOffset[2] = 0;
  // The slope, -136.8, is a little steeper as a double: 15 x that + 2700 lies below 648 and is cut, unless
  // the product is rounded before the sum or the second segment's start is taken.
  EXPECT_EQ(offsetAt(r, 5.0), 647);
  std::reverse(std::begin(r.dTemperature), std::end(r.dTemperature));
  EXPECT_EQ(offsetAt(r, 5.0), 648) << "of descending points, the second one";
}

TEST(LineOffset, OfPointsThatCoincideIsDefined) {
  merge_line_offsets_t r = sampleRecord(0, 0);
  r.dTemperature[0] = r.dTemperature[1] = r.dTemperature[2] = 5.0;
  EXPECT_EQ(offsetAt(r, 5.0), 0);  // 0 / 0 is no number
  EXPECT_EQ(offsetAt(r, 6.0), std::numeric_limits<int>::max());
  EXPECT_EQ(offsetAt(r, 4.0), std::numeric_limits<int>::min());
}

/// The mapping array, entry by entry, as it is documented.
unsigned int mapped(unsigned int row, unsigned int column, double ratio, int offset, unsigned int threshold,
                    double adu) {
  if (row == 0) return 0;
  if (row <= threshold) return static_cast<unsigned int>(row * adu) & 0xFFFF;
  const int last =
      threshold == 0 ? 65535 : static_cast<int>(static_cast<unsigned int>(threshold * adu) & 0xFFFF);
  const auto line = static_cast<unsigned int>(std::fabs(column * ratio - offset));
  return static_cast<unsigned int>(std::min(std::max(static_cast<int>(line * adu), last), 65535));
}

TEST(MappingArray, HoldsTheDocumentedValueForEveryPair) {
  for (const unsigned int threshold : {0u, 1u, 20u, 62u, 63u, 3800u}) {
    CMergeSettings settings;
    settings.Initialize(gsense400, nullptr);
    merge_line_offsets_t& r = settings.GetGainOffsetPair(1, 2);
    r.uiMappingThreshold = threshold;
    r.dGainRatio = 40.5;
    std::fill_n(r.iLineOffset, 3, 700);
    const CMergeMappingArray* map = settings.GenerateMergeMappingArrays(6, 1, 2, 5.0);
    ASSERT_NE(map, nullptr);
    ASSERT_EQ(map->GetWidth(), 64u);
    ASSERT_EQ(map->GetHeight(), 64u);
    for (unsigned int row = 0; row < 64; ++row)
      for (unsigned int column = 0; column < 64; ++column)
        ASSERT_EQ(map->GetData()[row * 64 + column], mapped(row, column, 40.5, 700, threshold, 1.7492))
            << threshold << ": " << row << ", " << column;
  }
}

TEST(MappingArray, KeepsItsStorageWhileItsSizeStays) {
  CMergeSettings settings;
  settings.Initialize(gsense400, nullptr);
  const unsigned short* const data = settings.GenerateMergeMappingArrays(5, 0, 0, 0.0)->GetData();
  EXPECT_EQ(settings.GenerateMergeMappingArrays(5, 1, 1, 9.0)->GetData(), data);
  EXPECT_EQ(settings.GenerateMergeMappingArrays(0, 1, 1, 9.0)->GetWidth(), 1u);
}

TEST(MappingArray, OfMoreThan14BitsIsRefused) {
  CMergeSettings settings;
  settings.Initialize(gsense400, nullptr);
  for (const unsigned int bits : {15u, 16u, 32u, 0xFFFFFFFFu})
    EXPECT_EQ(settings.GenerateMergeMappingArrays(bits, 0, 0, 0.0), nullptr);
}

TEST(MappingArray, IsMadeAnewForEveryOtherSizeAndCopiesRowsThatExist) {
  CMergeMappingArray map;
  const auto expectNone = [&map] {
    EXPECT_EQ(map.GetData(), nullptr);
    EXPECT_EQ(map.GetWidth() + map.GetHeight(), 0u);
  };
  expectNone();
  map.CopyRow(0, 0);
  for (const auto& [width, height] :
       {std::pair{2u, 3u}, std::pair{40u, 60u}, std::pair{40u, 61u}, std::pair{41u, 61u}, std::pair{61u, 41u},
        std::pair{61u, 40u}, std::pair{1u, 2u}}) {
    map.Create(width, height);
    ASSERT_EQ(map.GetWidth(), width);
    ASSERT_EQ(map.GetHeight(), height);
    std::vector<unsigned short> expected(std::size_t{width} * height);
    for (std::size_t i = 0; i < expected.size(); ++i)
      map.GetData()[i] = expected[i] = static_cast<unsigned short>(i);
    const unsigned short* const data = map.GetData();
    map.Create(width, height);
    EXPECT_EQ(map.GetData(), data) << "the old contents stay";
    map.CopyRow(0, height);
    map.CopyRow(height, 0);
    map.CopyRow(1, 1);
    EXPECT_EQ(std::vector<unsigned short>(data, data + expected.size()), expected);
    map.CopyRow(0, height - 1);
    std::copy_n(expected.begin(), width, expected.end() - width);
    EXPECT_EQ(std::vector<unsigned short>(data, data + expected.size()), expected);
  }
  map.FreeAll();
  expectNone();
  map.Create(0xFFFFFFFF, 0xFFFFFFFF);  // more than there is
  EXPECT_EQ(map.GetData(), nullptr);
}

TEST(GainOffsetPairs, AreKeptWhileTheirNumberStays) {
  OpenSettings settings;
  for (const auto& [low, high] :
       {std::pair{2u, 3u}, std::pair{2u, 4u}, std::pair{3u, 4u}, std::pair{4u, 3u}}) {
    ASSERT_EQ(settings.AllocateGainOffsetPairs(low, high), 0);
    EXPECT_EQ(settings.GetNumLowGains(), low);
    EXPECT_EQ(settings.GetNumHighGains(), high);
    for (unsigned int i = 0; i < low; ++i)
      for (unsigned int j = 0; j < high; ++j) {
        merge_line_offsets_t& r = settings.m_ppGainOffsetPairs[i][j];
        EXPECT_EQ(r.dGainRatio, 40.0) << "a new record";
        EXPECT_EQ(r.iLineOffset[2], 5200);
        EXPECT_EQ(r.uiMergeThreshold1, 15752u);
        r.dGainRatio = 10 * i + j;
      }
    ASSERT_EQ(settings.AllocateGainOffsetPairs(low, high), 0);
    for (unsigned int i = 0; i < low; ++i)
      for (unsigned int j = 0; j < high; ++j)
        EXPECT_EQ(settings.m_ppGainOffsetPairs[i][j].dGainRatio, 10 * i + j) << "kept";
  }
  settings.FreeGainOffsetPairs();
  EXPECT_FALSE(settings.HasGainOffsetPairs());
  EXPECT_EQ(settings.GetNumLowGains() + settings.GetNumHighGains(), 0u);
  settings.FreeAll();
}

}  // namespace
