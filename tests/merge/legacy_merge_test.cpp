// The table-driven merge.

#include <gtest/gtest.h>
#include <orvacam/merge/CMergeAlgoLegacy.h>
#include <orvacam/types/device_types.h>

#include <cstring>
#include <memory>
#include <vector>

#include "TestFolder.h"
#include "support/Contains.h"

namespace {

using Pixels = std::vector<unsigned short>;

constexpr unsigned int bits = 12;

class LegacyMerge : public ::testing::Test {
 protected:
  LegacyMerge() : owner(std::make_unique<CMergeAlgoLegacy>()), merge(*owner) {
    gain_type_info_t camera{ORVA_DEVICE_GSENSE400, false};
    settings.Initialize(camera, nullptr);
    merge.SetMergeSettings(&settings);
    CFrameMetaData header;
    header.ReInitialize(true);
    header.SetDimensions(4, 3);
    header.SetBitsPerPixel(bits);
    header.SetValue(ORVA_META_KEY_LDR_GAIN, "1");
    header.SetValue(ORVA_META_KEY_HDR_GAIN, "2");
    header.SetValue(ORVA_META_KEY_SENSOR_COOLER_TEMP, "-50");
    merge.SetMetaData(header);
  }

  /// What the mapping array of these gains holds, looked up one by one.
  Pixels expected() {
    const CMergeMappingArray* map = settings.GenerateMergeMappingArrays(bits, 1, 2, -5.0);
    Pixels out;
    for (std::size_t i = 0; i < low.size(); ++i)
      out.push_back(high[i] < 4096 && low[i] < 4096 ? map->GetData()[high[i] * 4096u + low[i]] : 0);
    return out;
  }

  LogCapture log;  // first, as the others keep the log
  CMergeSettings settings;
  std::unique_ptr<CMergeAlgoLegacy> owner;
  CMergeAlgoLegacy& merge;
  Pixels low = {0, 1, 100, 4095, 4096, 5, 2000, 3000, 65535, 700, 800, 900};
  Pixels high = {0, 5, 3799, 3801, 10, 4096, 4095, 3800, 65535, 3000, 3900, 4000};
};

TEST_F(LegacyMerge, LooksEveryPixelUpAndGivesZeroOutsideTheArray) {
  Pixels out(12, 1);
  ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 12), 0);
  EXPECT_EQ(out, expected());
  EXPECT_EQ(out[4], 0);
  EXPECT_EQ(out[5], 0);
  EXPECT_NE(out[6], 0);
}

TEST_F(LegacyMerge, GivesTheSamePixelsWithStatisticsOfTheImage) {
  merge.EnableStatistics(true);
  for (int round = 0; round < 2; ++round) {
    Pixels out(12, 1);
    ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 12), 0);
    EXPECT_EQ(out, expected());
    image_plane_stats_t stats{};
    merge.GetMergedStats(stats);
    double sum = 0;
    for (const unsigned short pixel : out)
      sum += pixel;
    EXPECT_EQ(stats.dMean, sum / 12);
  }
}

TEST_F(LegacyMerge, StatisticsAreInFrameCoordinates) {
  merge.GetMetaData().SetDimensions(1, 2);
  merge.GetMetaData().SetValue(ORVA_META_KEY_PRE_ROW_REF_PIXELS, "1");
  merge.GetMetaData().SetValue(ORVA_META_KEY_POST_ROW_REF_PIXELS, "1");
  merge.GetMetaData().SetValue(ORVA_META_KEY_PRE_REFERENCE_ROWS, "1");
  merge.GetMetaData().SetValue(ORVA_META_KEY_POST_REFERENCE_ROWS, "1");  // 3 x 4
  merge.EnableStatistics(true);
  Pixels out(12, 1);
  ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 12), 0);
  image_plane_stats_t stats{};
  merge.GetMergedStats(stats);
  EXPECT_EQ(stats.dMean, (out[4] + out[7]) / 2.0);
  EXPECT_EQ(stats.maxPoint.x, 1);
  EXPECT_EQ(stats.maxPoint.y, 2);
  EXPECT_TRUE(contains(log.text(),
                       "UNKNO, DoMergeWithStats: uiTotalFrameWidth= 3, uiTotalFrameHeight= 4\n"
                       "UNKNO, DoMergeWithStats: uiImageWidth= 1, uiImageHeight= 2\n"
                       "UNKNO, DoMergeWithStats: uiPreRefPixels= 1, uiPostRefPixels= 1\n"
                       "UNKNO, DoMergeWithStats: uiPreRefRows= 1, uiPostRefRows= 1\n"));
}

TEST_F(LegacyMerge, WithoutAnArrayHasNoStatisticsEither) {
  merge.EnableStatistics(true);
  Pixels out(12, 1);
  ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 12), 0);
  merge.SetMergeSettings(nullptr);
  ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 12), -1);
  image_plane_stats_t stats{};
  merge.GetMergedStats(stats);
  EXPECT_EQ(stats.uiMax, 0u);
}

TEST_F(LegacyMerge, UsesItsOwnSettingsWithoutOthers) {
  merge.SetMergeSettings(nullptr);
  ASSERT_NE(merge.GetMergeSettings(), &settings);
  Pixels out(12, 1);
  EXPECT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 12), -1);  // not initialized
  EXPECT_EQ(out, Pixels(12, 1));
  merge.GetMergeSettings()->Initialize({ORVA_DEVICE_GSENSE400, false}, nullptr);
  EXPECT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 12), 0);
  EXPECT_EQ(out, expected());
}

TEST(LegacyMergeLog, SaysThatThereIsNoMappingArray) {
  const LogCapture log;
  const auto merge = std::make_unique<CMergeAlgoLegacy>();
  Pixels p(4);
  EXPECT_EQ(merge->MergeFrames(p.data(), p.data(), p.data(), 4), -1);
  EXPECT_TRUE(contains(log.text(), "ERROR, MergeFrames: No Mapping array- unable to merge!\n"));
}

TEST_F(LegacyMerge, RefusesNullPlanes) {
  Pixels p(4);
  EXPECT_EQ(merge.MergeFrames(nullptr, p.data(), p.data(), 4), -1);
  EXPECT_EQ(merge.MergeFrames(p.data(), nullptr, p.data(), 4), -1);
  EXPECT_EQ(merge.MergeFrames(p.data(), p.data(), nullptr, 4), -1);
  merge.DoMergeWithStats(nullptr, nullptr, p.data(), p.data(), 4);
  merge.DoMergeWithStats(nullptr, p.data(), nullptr, p.data(), 4);
  merge.DoMergeWithStats(nullptr, p.data(), p.data(), nullptr, 4);
  EXPECT_EQ(p, Pixels(4));
}

TEST_F(LegacyMerge, WithoutDataInTheArrayGivesZeros) {
  const CMergeMappingArray empty;
  Pixels out(12, 1);
  merge.DoMergeWithStats(&empty, low.data(), high.data(), out.data(), 12);
  EXPECT_EQ(out, Pixels(12, 0));
  out.assign(12, 1);
  merge.DoMergeWithStats(nullptr, low.data(), high.data(), out.data(), 12);
  EXPECT_EQ(out, Pixels(12, 0));
}

TEST_F(LegacyMerge, WritesATiffHeaderButNoFitsHeader) {
  merge.SetMergeEnables({0, ORVA_IMAGE_FORMAT_TIFF, 0});
  Pixels out((656 + 384) / 2 + 12);
  ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), out.data(), 12), 0);
  EXPECT_EQ(std::memcmp(out.data(), "II\x2a\0", 4), 0);
  EXPECT_EQ(Pixels(out.end() - 12, out.end()), expected());
  EXPECT_EQ(merge.GetMetaData().Value(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH).GetValueUint(),
            bits);  // a copy was marked

  merge.SetMergeEnables({0, ORVA_IMAGE_FORMAT_FITS, 0});
  Pixels pixels(12);
  ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), pixels.data(), 12), 0);
  EXPECT_EQ(pixels, expected());
}

}  // namespace
