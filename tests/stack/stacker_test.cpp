// Averaging frames.

#include <gtest/gtest.h>
#include <orvacam/stack/CStacker.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "simulator/Header.h"
#include "support/Contains.h"

// A sanitizer answers a request that no machine can meet as the system does: with null.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

constexpr unsigned int seed = 20240607;

class OpenStacker : public CStacker {
 public:
  using CStacker::m_uiMetaDataBufferSize;
  using CStacker::m_uiNumFrames;
};

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
  EXPECT_EQ(means.low, (std::vector<unsigned short>{1, 10, 65534}));  // 5/3, 31/3, 196604/3
  EXPECT_EQ(means.high, (std::vector<unsigned short>{0, 0, 0}));
}

TEST(Stacker, MixesFramesOfEightAndSixteenBits) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(2), 0);
  const unsigned char bytes[] = {100, 255};
  const unsigned short words[] = {200, 1};
  ASSERT_EQ(stacker.StackNextFrame(bytes, 2), 0);
  ASSERT_EQ(stacker.StackNextFrame(words, 2), 0);
  EXPECT_EQ(finish(stacker).low, (std::vector<unsigned short>{150, 128}));
}

TEST(Stacker, StacksTwoPlanesOrTheLowOneAlone) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(1), 0);
  const unsigned short low = 10, high = 1000;
  ASSERT_EQ(stacker.StackNextFrame(&low, &high, 1), 0);
  ASSERT_EQ(stacker.StackNextFrame(&low, nullptr, 1), 0);
  const Means means = finish(stacker);
  EXPECT_EQ(means.low, (std::vector<unsigned short>{10}));
  EXPECT_EQ(means.high, (std::vector<unsigned short>{500}));
}

TEST(Stacker, IsTheMeanOfSumsInDoublesCutToAnInteger) {
  std::mt19937 random(seed);
  for (const std::size_t pixels : {1u, 2u, 7u, 8u, 15u, 16u, 17u, 31u, 33u, 63u, 64u, 65u, 1000u}) {
    CStacker stacker;
    ASSERT_EQ(stacker.Initialize(pixels), 0);
    std::vector<double> lowSums(pixels), highSums(pixels);
    const unsigned int frames = 1 + random() % 40;
    for (unsigned int frame = 0; frame < frames; ++frame) {
      std::vector<unsigned char> bytes(pixels);
      std::vector<unsigned short> low(pixels), high(pixels);
      const unsigned int form = random() % 4;
      for (std::size_t i = 0; i < pixels; ++i) {
        bytes[i] = static_cast<unsigned char>(random());
        low[i] = static_cast<unsigned short>(random());
        high[i] = static_cast<unsigned short>(random());
        lowSums[i] += form == 0 ? bytes[i] : low[i];
        highSums[i] += form == 3 ? high[i] : 0;
      }
      ASSERT_EQ(form == 0   ? stacker.StackNextFrame(bytes.data(), pixels)
                : form == 1 ? stacker.StackNextFrame(low.data(), pixels)
                            : stacker.StackNextFrame(low.data(), form == 3 ? high.data() : nullptr, pixels),
                0);
    }
    const Means means = finish(stacker);
    ASSERT_EQ(means.low.size(), pixels);
    for (std::size_t i = 0; i < pixels; ++i) {
      ASSERT_EQ(means.low[i], static_cast<unsigned int>(lowSums[i] / frames))
          << "seed " << seed << " at " << i;
      ASSERT_EQ(means.high[i], static_cast<unsigned int>(highSums[i] / frames))
          << "seed " << seed << " at " << i;
    }
  }
}

TEST(Stacker, KeepsItsResultsUntilTheNextFinish) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(1), 0);
  const unsigned short first = 100, second = 7;
  unsigned short *low = nullptr, *high = nullptr, *again = nullptr;
  unsigned int count = 0;
  ASSERT_EQ(stacker.StackNextFrame(&first, &second, 1), 0);
  ASSERT_EQ(stacker.Finish(&low, &high, &count), 0);
  ASSERT_EQ(stacker.StackNextFrame(&second, 1), 0);
  EXPECT_EQ(*low, 100);
  EXPECT_EQ(*high, 7);
  ASSERT_EQ(stacker.Finish(&again, nullptr, &count), 0);
  EXPECT_EQ(again, low);
  EXPECT_EQ(*low, 7);
  EXPECT_EQ(*high, 0);
}

TEST(Stacker, LeavesTheStackAsItIsWhenItRefusesAFrame) {
  OpenStacker stacker;
  ASSERT_EQ(stacker.Initialize(2), 0);
  const unsigned short frame[] = {10, 20}, other[] = {1, 1, 1};
  ASSERT_EQ(stacker.StackNextFrame(frame, 2), 0);
  EXPECT_EQ(stacker.StackNextFrame(other, 3), -1);
  EXPECT_EQ(stacker.StackNextFrame(other, 0), -1);
  EXPECT_EQ(stacker.StackNextFrame(nullptr, other, 2), -1);
  EXPECT_EQ(stacker.Finish(nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(stacker.m_uiNumFrames, 1u);
  EXPECT_EQ(finish(stacker).low, (std::vector<unsigned short>{10, 20}));
  EXPECT_EQ(stacker.m_uiNumFrames, 0u);
}

TEST(Stacker, OfNoPixelsStacksFramesOfNoPixels) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(0), 0);
  const unsigned short none = 0;
  EXPECT_EQ(stacker.StackNextFrame(&none, 0), 0);
  EXPECT_EQ(finish(stacker).low.size(), 0u);
}

TEST(Stacker, InitializedAgainForgetsFramesAndTakesTheNewSize) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(2), 0);
  const unsigned short frame[] = {10, 20, 30};
  ASSERT_EQ(stacker.StackNextFrame(frame, 2), 0);
  ASSERT_EQ(stacker.Initialize(3), 0);
  EXPECT_EQ(stacker.StackNextFrame(frame, 2), -1);
  ASSERT_EQ(stacker.StackNextFrame(frame, 3), 0);
  EXPECT_EQ(finish(stacker).low, (std::vector<unsigned short>{10, 20, 30}));
}

TEST(Stacker, StartsOverAfterFinish) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(1), 0);
  const unsigned short first = 100, second = 7;
  ASSERT_EQ(stacker.StackNextFrame(&first, 1), 0);
  EXPECT_EQ(finish(stacker).low, (std::vector<unsigned short>{100}));
  ASSERT_EQ(stacker.StackNextFrame(&second, 1), 0);
  EXPECT_EQ(finish(stacker).low, (std::vector<unsigned short>{7}));
  ASSERT_EQ(stacker.StackNextFrame(&first, 1), 0);
  stacker.ResetStack();
  ASSERT_EQ(stacker.StackNextFrame(&second, 1), 0);
  EXPECT_EQ(finish(stacker).low, (std::vector<unsigned short>{7}));
}

TEST(Stacker, WithoutFramesGivesZeros) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(2), 0);
  EXPECT_EQ(finish(stacker).low, (std::vector<unsigned short>{0, 0}));
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

TEST(Stacker, StaysExactWhenStacksOfAllLengthsFollowEachOther) {
  // What one stack leaves behind in its sums is never seen by the next.
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(1), 0);
  const unsigned short full = 65535, small = 3;
  for (const unsigned int frames : {65536u, 1u, 65537u, 2u, 131072u, 0u, 1u}) {
    for (unsigned int i = 0; i < frames; ++i)
      ASSERT_EQ(stacker.StackNextFrame(&full, 1), 0);
    EXPECT_EQ(finish(stacker).low, (std::vector<unsigned short>{frames > 0 ? 65535 : 0})) << frames;
    ASSERT_EQ(stacker.StackNextFrame(&small, &small, 1), 0);
    const Means means = finish(stacker);
    EXPECT_EQ(means.low, (std::vector<unsigned short>{3})) << frames;
    EXPECT_EQ(means.high, (std::vector<unsigned short>{3})) << frames;
  }
}

TEST(Stacker, AddsAHighPlaneThatComesLateOrSeldom) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(1), 0);
  const unsigned short low = 8, high = 65535;
  constexpr unsigned int frames = 70000;
  for (unsigned int i = 0; i < frames; ++i)
    ASSERT_EQ(stacker.StackNextFrame(&low, i % 35000 == 34999 ? &high : nullptr, 1), 0);
  EXPECT_EQ(finish(stacker).high, (std::vector<unsigned short>{2 * 65535 / frames}));
  for (unsigned int i = 0; i < frames; ++i)
    ASSERT_EQ(stacker.StackNextFrame(&low, i >= 65536 ? &high : nullptr, 1), 0);
  EXPECT_EQ(finish(stacker).high, (std::vector<unsigned short>{(frames - 65536UL) * 65535 / frames}));
}

TEST(Stacker, GivesZerosForAPlaneWithoutFramesWhateverItsReaderDidToTheLastResult) {
  CStacker stacker;
  ASSERT_EQ(stacker.Initialize(1), 0);
  const unsigned short frame = 9;
  unsigned short *low = nullptr, *high = nullptr;
  unsigned int count = 0;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(stacker.StackNextFrame(&frame, 1), 0);
    ASSERT_EQ(stacker.Finish(&low, &high, &count), 0);
    EXPECT_EQ(*high, 0);
    *low = *high = 77;
  }
  ASSERT_EQ(stacker.Finish(nullptr, nullptr, &count), 0);
  EXPECT_EQ(*low, 0);
  EXPECT_EQ(*high, 0);
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
  OpenStacker stacker;
  unsigned char* bytes = nullptr;
  std::vector<unsigned char> base = orvacam::simulator::writeHeader(fields, 3);
  EXPECT_EQ(stacker.GetStackedMetaData(nullptr, 384, &bytes, nullptr), 0);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(stacker.GetStackedMetaData(base.data(), 384, nullptr, nullptr), 0);
  ASSERT_EQ(stacker.GetStackedMetaData(base.data(), 384, &bytes, nullptr), 0);
  EXPECT_EQ(stacker.m_uiMetaDataBufferSize, 384u);
  fields.otherBlock.assign(5000, 7);
  base = orvacam::simulator::writeHeader(fields, 4);
  unsigned int length = 0;
  ASSERT_EQ(stacker.GetStackedMetaData(base.data(), base.size(), &bytes, &length), 0);
  // The length that the header states, which counts its block, and the block.
  EXPECT_EQ(length, 384u + 5000 + 5000);
  EXPECT_EQ(stacker.m_uiMetaDataBufferSize, length);
  EXPECT_EQ(std::count(bytes + 384, bytes + length, 0), length - 384);  // the block itself is left out
  CFrameMetaData stacked;
  EXPECT_EQ(stacked.Parse(bytes, length), 0);
  EXPECT_EQ(std::string(bytes, bytes + 4), "Meta");
  EXPECT_EQ(stacker.GetStackedMetaData(base.data(), 20, &bytes, nullptr), -1);
  EXPECT_TRUE(contains(log.text(), "ERROR, GetStackedMetaData: Invalid base meta data provided!\n"));
}

}  // namespace
