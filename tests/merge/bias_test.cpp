// Bias frames and header sizes: what every merge algorithm has.

#include <gtest/gtest.h>
#include <orvacam/merge/CCustomMergeAlgo.h>
#include "statistics/PlaneCounts.h"

#include <memory>
#include <vector>

namespace {

class PlainMerge : public CCustomMergeAlgo {
 public:
  int MergeFrames(unsigned short*, unsigned short*, unsigned short*, unsigned long) override { return 0; }
};

class Bias : public ::testing::Test {
 protected:
  Bias() { algo->SetMetaData(metaData(4, 2)); }

  static CFrameMetaData metaData(unsigned int width, unsigned int height) {
    CFrameMetaData header;
    header.ReInitialize(true);
    header.SetDimensions(width, height);
    return header;
  }

  std::unique_ptr<PlainMerge> algo = std::make_unique<PlainMerge>();
  std::unique_ptr<CFrameStatistics> statistics = std::make_unique<CFrameStatistics>();
  std::vector<unsigned short> plane = {100, 200, 300, 400, 500, 600, 700, 800};
  std::vector<unsigned short> low = {120, 50, 300, 1, 0, 600, 699, 65535};
  std::vector<unsigned short> high = {1, 1, 1, 1, 1, 1, 1, 1};
};

TEST_F(Bias, IsSubtractedAndStopsAtZero) {
  ASSERT_EQ(algo->SetBiasFrames(4, 2, low.data(), high.data()), 0);
  algo->ApplyBiasFrame(plane.data(), 4, 2, *statistics, false);
  EXPECT_EQ(plane, (std::vector<unsigned short>{0, 150, 0, 399, 500, 0, 1, 0}));
}

TEST_F(Bias, GathersTheCorrectedPlanesStatisticsAnew) {
  statistics->AddPixel(9999, {9, 9});
  ASSERT_EQ(algo->SetBiasFrames(4, 2, low.data(), high.data()), 0);
  algo->ApplyBiasFrame(plane.data(), 4, 2, *statistics, true);
  statistics->Compute();
  image_plane_stats_t stats{};
  orvacam::copyResults(*statistics, stats);
  EXPECT_EQ(stats.dMean, 449.0);
  EXPECT_EQ(stats.uiMax, 799u);
  EXPECT_EQ(stats.maxPoint.x, 3);
  EXPECT_EQ(stats.maxPoint.y, 1);
}

TEST_F(Bias, OfOneChannelLeavesTheOtherPlaneAndItsStatisticsUntouched) {
  ASSERT_EQ(algo->SetBiasFrames(4, 2, low.data(), nullptr), 0);
  statistics->AddPixel(7, {1, 1});
  const std::vector<unsigned short> before = plane;
  algo->ApplyBiasFrame(plane.data(), 4, 2, *statistics, true);
  EXPECT_EQ(plane, before);
  statistics->Compute();
  image_plane_stats_t stats{};
  orvacam::copyResults(*statistics, stats);
  EXPECT_EQ(stats.dMean, 7.0);
}

TEST_F(Bias, OfTheWrongSizeIsRefusedAndClearsWhatWasSet) {
  ASSERT_EQ(algo->SetBiasFrames(4, 2, low.data(), high.data()), 0);
  EXPECT_EQ(algo->SetBiasFrames(2, 4, low.data(), high.data()), -1);
  EXPECT_EQ(algo->SetBiasFrames(4, 3, low.data(), high.data()), -1);
  EXPECT_EQ(algo->SetBiasFrames(5, 2, low.data(), high.data()), -1);
  const std::vector<unsigned short> before = plane;
  algo->ApplyBiasFrame(plane.data(), 4, 2, *statistics, false);
  EXPECT_EQ(plane, before);
}

TEST_F(Bias, IsClearedByTwoNullPointersWhateverTheSize) {
  ASSERT_EQ(algo->SetBiasFrames(4, 2, low.data(), high.data()), 0);
  EXPECT_EQ(algo->SetBiasFrames(77, 77, nullptr, nullptr), 0);
  const std::vector<unsigned short> before = plane;
  algo->ApplyBiasFrame(plane.data(), 4, 2, *statistics, false);
  algo->ApplyBiasFrame(nullptr, 4, 2, *statistics, false);
  EXPECT_EQ(plane, before);
}

TEST_F(Bias, FrameIsNeverReadBeyondItsOwnSize) {
  ASSERT_EQ(algo->SetBiasFrames(4, 2, low.data(), high.data()), 0);
  std::vector<unsigned short> larger(4 * 5, 10);
  algo->ApplyBiasFrame(larger.data(), 4, 5, *statistics, true);
  EXPECT_EQ(larger[7], 9);   // the last pixel of the bias frame
  EXPECT_EQ(larger[8], 10);  // beyond it
}

TEST_F(Bias, SizeIsThatOfTheBinnedFrame) {
  CFrameMetaData header = metaData(5, 4);
  header.SetValue(ORVA_META_KEY_HORIZONTAL_BINNING, "2");
  algo->SetMetaData(header);
  std::vector<unsigned short> frame(12);
  EXPECT_EQ(algo->SetBiasFrames(3, 4, frame.data(), nullptr), 0);
  EXPECT_EQ(algo->SetBiasFrames(5, 4, frame.data(), nullptr), -1);
}

TEST(MergeHeaderSize, IsTheTiffBlockAndTheMetadata) {
  PlainMerge algo;
  algo.GetMetaData().SetValue(ORVA_META_KEY_METADATA_LENGTH, "1000");
  unsigned int leading = 7, trailing = 7;
  algo.GetMergeHeaderSize(ORVA_IMAGE_FORMAT_TIFF, 10, 16, leading, trailing);
  EXPECT_EQ(leading, 1656u);
  EXPECT_EQ(trailing, 0u);
  algo.GetMergeHeaderSize(ORVA_IMAGE_FORMAT_FITS, 10, 16, leading, trailing);
  EXPECT_EQ(leading, 5760u);
  EXPECT_EQ(trailing, 2860u);
  algo.GetMergeHeaderSize(static_cast<ORVA_IMAGE_FORMAT>(9), 10, 16, leading, trailing);
  EXPECT_EQ(leading, 0u);
  EXPECT_EQ(trailing, 0u);
}

TEST(MergeEnables, AreHandedBackWhole) {
  PlainMerge algo;
  hw_merge_enables_t enables{1, 2, 3};
  algo.GetMergeEnables(enables);
  EXPECT_EQ(enables.uiEnableBits + enables.uiImageFormat + enables.uiMergeType, 0u);
  algo.SetMergeEnables({0xDEADBEEF, 2, 77});
  algo.GetMergeEnables(enables);
  EXPECT_EQ(enables.uiEnableBits, 0xDEADBEEFu);
  EXPECT_EQ(enables.uiImageFormat, 2u);
  EXPECT_EQ(enables.uiMergeType, 77u);
  algo.SetStartRowOffset(5);  // nothing to do in the base
}

}  // namespace
