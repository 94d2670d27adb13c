// Averaging frames.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvacam/stack/CStacker.h>

#include <random>
#include <vector>

#include "TestFolder.h"
#include "simulator/Header.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Means {
  std::vector<unsigned short> low, high;
};

Means finish(CStacker& stacker) {
  unsigned short *low = nullptr, *high = nullptr;
  unsigned int count = 0;
  EXPECT_EQ(stacker.Finish(&low, &high, &count), 0);
  return {{low, low + count}, {high, high + count}};
}

TEST(Stacker, TakesMeansRoundedDown) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(3), 0);
  const unsigned short a[] = {1, 10, 65535}, b[] = {2, 10, 65535}, c[] = {2, 11, 65534};
  for (const unsigned short* frame : {a, b, c})
    ASSERT_EQ(stacker.StackNextFrame(frame, 3), 0);
  const Means means = finish(stacker);
  EXPECT_THAT(means.low, ElementsAre(1, 10, 65534));  // 5/3, 31/3, 196604/3
  EXPECT_THAT(means.high, ElementsAre(0, 0, 0));
}

TEST(Stacker, MixesFramesOfEightAndSixteenBits) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(2), 0);
  const unsigned char bytes[] = {100, 255};
  const unsigned short words[] = {200, 1};
  ASSERT_EQ(stacker.StackNextFrame(bytes, 2), 0);
  ASSERT_EQ(stacker.StackNextFrame(words, 2), 0);
  EXPECT_THAT(finish(stacker).low, ElementsAre(150, 128));
}

TEST(Stacker, StacksTwoPlanesOrTheLowOneAlone) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(1), 0);
  const unsigned short low = 10, high = 1000;
  ASSERT_EQ(stacker.StackNextFrame(&low, &high, 1), 0);
  ASSERT_EQ(stacker.StackNextFrame(&low, nullptr, 1), 0);
  const Means means = finish(stacker);
  EXPECT_THAT(means.low, ElementsAre(10));
  EXPECT_THAT(means.high, ElementsAre(500));
}

TEST(Stacker, StartsOverAfterFinish) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(1), 0);
  const unsigned short first = 100, second = 7;
  ASSERT_EQ(stacker.StackNextFrame(&first, 1), 0);
  EXPECT_THAT(finish(stacker).low, ElementsAre(100));
  ASSERT_EQ(stacker.StackNextFrame(&second, 1), 0);
  EXPECT_THAT(finish(stacker).low, ElementsAre(7));
  ASSERT_EQ(stacker.StackNextFrame(&first, 1), 0);
  stacker.ResetStack();
  ASSERT_EQ(stacker.StackNextFrame(&second, 1), 0);
  EXPECT_THAT(finish(stacker).low, ElementsAre(7));
}

TEST(Stacker, WithoutFramesGivesZeros) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(2), 0);
  EXPECT_THAT(finish(stacker).low, ElementsAre(0, 0));
}

TEST(Stacker, StaysExactBeyondWhat32BitSumsHold) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(2), 0);
  const unsigned short full[] = {65535, 65535}, other[] = {65535, 0};
  constexpr unsigned int frames = 70000;
  for (unsigned int i = 0; i < frames; ++i)
    ASSERT_EQ(stacker.StackNextFrame(i == 0 ? other : full, full, 2), 0);
  const Means means = finish(stacker);
  EXPECT_EQ(means.low[0], 65535);
  EXPECT_EQ(means.low[1], 65535UL * (frames - 1) / frames);
  EXPECT_EQ(means.high[1], 65535);
}

TEST(Stacker, RefusesNullMissingAndOtherSizes) {
  const LogCapture log;
  CStacker stacker;
  const unsigned short words[4] = {};
  const unsigned char bytes[4] = {};
  unsigned int count = 0;
  EXPECT_EQ(stacker.StackNextFrame(words, 1), -1);  // not initialized
  EXPECT_EQ(stacker.Finish(nullptr, nullptr, &count), -1);
  ASSERT_EQ(stacker.Initialize(3), 0);
  EXPECT_EQ(stacker.StackNextFrame(static_cast<const unsigned char*>(nullptr), 3), -1);
  EXPECT_EQ(stacker.StackNextFrame(static_cast<const unsigned short*>(nullptr), 3), -1);
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(stacker.StackNextFrame(nullptr, words, 3), -1);
  EXPECT_EQ(stacker.StackNextFrame(bytes, 4), -1);
  EXPECT_EQ(stacker.StackNextFrame(words, 4), -1);
  EXPECT_EQ(stacker.StackNextFrame(words, words, 2), -1);
  EXPECT_EQ(log.text(),
            "ERROR, StackNextFrame: No Source frame provided!\n"
            "ERROR, StackNextFrame8: uiNumPixels= 4 != m_uiNumPixels= 3\n"
            "ERROR, StackNextFrame16: uiNumPixels= 4 != m_uiNumPixels= 3\n"
            "ERROR, StackNextFrameLH: uiNumPixels= 2 != m_uiNumPixels= 3\n");
  EXPECT_EQ(stacker.Finish(nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(stacker.Finish(nullptr, nullptr, &count), 0);
  EXPECT_EQ(count, 3u);
  stacker.Deinitialize();
  EXPECT_EQ(stacker.StackNextFrame(words, 3), -1);
}

TEST(Stacker, OfMorePixelsThanThereIsMemoryFailsAndCanBeUsedAgain) {
  CStacker stacker;
  EXPECT_EQ(stacker.Initialize(~0UL / 16), -1);
  EXPECT_EQ(stacker.Initialize(~0UL), -1);
  const unsigned short pixel = 5;
  EXPECT_EQ(stacker.StackNextFrame(&pixel, 1), -1);
  ASSERT_EQ(stacker.Initialize(1), 0);
  EXPECT_EQ(stacker.StackNextFrame(&pixel, 1), 0);
}

TEST(StackedMetaData, MarksAStackedSixteenBitFrame) {
  for (unsigned int version = 1; version <= 4; ++version) {
    orvacam::simulator::HeaderFields fields;
    fields.hdr = true;
    std::vector<unsigned char> base = orvacam::simulator::writeHeader(fields, version);
    CStacker stacker;
    unsigned char* bytes = nullptr;
    unsigned int length = 0;
    ASSERT_EQ(stacker.GetStackedMetaData(base.data(), base.size(), &bytes, &length), 0) << version;
    EXPECT_EQ(length, 384u);
    CFrameMetaData stacked;
    ASSERT_EQ(stacked.Parse(bytes, length), 0);
    EXPECT_TRUE(stacked.Value(ORVA_META_KEY_TEST_IS_STACKED_FRAME).GetValueBool());
    EXPECT_FALSE(stacked.Value(ORVA_META_KEY_HDR_MODE).GetValueBool());
    EXPECT_TRUE(stacked.Value(ORVA_META_KEY_PIXEL_ORDERED_IMAGE).GetValueBool());
    EXPECT_EQ(stacked.Value(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH).GetValueUint(), 16u);
  }
}

TEST(StackedMetaData, GrowsWithALargerHeaderAndRefusesWhatIsNone) {
  const LogCapture log;
  orvacam::simulator::HeaderFields fields;
  CStacker stacker;
  unsigned char* bytes = nullptr;
  std::vector<unsigned char> base = orvacam::simulator::writeHeader(fields, 3);
  EXPECT_EQ(stacker.GetStackedMetaData(nullptr, 384, &bytes, nullptr), 0);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(stacker.GetStackedMetaData(base.data(), 384, nullptr, nullptr), 0);
  ASSERT_EQ(stacker.GetStackedMetaData(base.data(), 384, &bytes, nullptr), 0);
  fields.otherBlock.assign(5000, 7);
  base = orvacam::simulator::writeHeader(fields, 4);
  ASSERT_EQ(stacker.GetStackedMetaData(base.data(), base.size(), &bytes, nullptr), 0);
  EXPECT_EQ(bytes[0], 'M');
  EXPECT_EQ(stacker.GetStackedMetaData(base.data(), 20, &bytes, nullptr), -1);
  EXPECT_THAT(log.text(), HasSubstr("ERROR, GetStackedMetaData: Invalid base meta data provided!\n"));
}

}  // namespace
