// What the merge does when memory runs out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvacam/merge/CHWMergeReferenceFrames.h>
#include <orvacam/merge/CMergeAlgoLegacy.h>
#include <orvacam/types/device_types.h>

#include <memory>
#include <vector>

#include "TestFolder.h"
#include "simulator/Header.h"
#include "support/Failures.h"

namespace {

using ::testing::ElementsAre;

/// Calls of any kind fail: the merge takes memory by operator new and by aligned_alloc.
template <typename... Actions>
int failures(Actions... actions) {
  return faults::failures(faults::Call::None, actions...);
}

class MergeWithoutMemory : public ::testing::Test {
 protected:
  void TearDown() override { freePlanes(); }

  void freePlanes() {
    delete[] planes.pAdditiveLow;
    delete[] planes.pAdditiveHigh;
    delete[] planes.pMultiplicativeLow;
    delete[] planes.pMultiplicativeHigh;
    planes = ref_frames_t{};
  }
  void expectNoPlanes() const {
    EXPECT_EQ(planes.uiWidth + planes.uiHeight, 0u);
    EXPECT_EQ(planes.pAdditiveLow, nullptr);
    EXPECT_EQ(planes.pAdditiveHigh, nullptr);
    EXPECT_EQ(planes.pMultiplicativeLow, nullptr);
    EXPECT_EQ(planes.pMultiplicativeHigh, nullptr);
  }
  /// Low-gain pixels of 10, corrected.
  std::vector<int> corrected() {
    merge.SetMergeEnables({0, 0, 1});
    unsigned short low[] = {10, 10}, high[] = {0, 0}, out[] = {77, 77};
    EXPECT_EQ(merge.MergeFrames(low, high, out, 2), 0);
    return {out, out + 2};
  }

  TestFolder folder;
  std::unique_ptr<CHWMergeReferenceFrames> owner = std::make_unique<CHWMergeReferenceFrames>();
  CHWMergeReferenceFrames& merge = *owner;
  ref_frames_t planes{};
};

TEST_F(MergeWithoutMemory, HandsOutNoPlanesAndHasNoFrames) {
  EXPECT_EQ(failures([&] { return merge.CreateIdentityFrames(2, 1, 3.0, 1.0, &planes); },
                     [&] {
                       expectNoPlanes();
                       EXPECT_THAT(corrected(), ElementsAre(10, 10));
                     }),
            4);
  EXPECT_THAT(corrected(), ElementsAre(30, 30));
}

TEST_F(MergeWithoutMemory, NeedsNoneForFramesOfOneValue) {
  EXPECT_EQ(failures([&] { return merge.CreateIdentityFrames(60000, 60000, 3.0, 1.0, nullptr); }), 0);
}

TEST_F(MergeWithoutMemory, MakesNoRamps) {
  EXPECT_EQ(
      failures(
          [&] { return merge.CreateIdentityFrames(2, 1, 0.0, 0.0, 1.0, 1.0, 3u, 10u, 1.0, 1.0, &planes); },
          [&] {
            expectNoPlanes();
            EXPECT_THAT(corrected(), ElementsAre(10, 10));
          }),
      12);  // four planes: the terms' owner, the terms, what is handed out
  EXPECT_THAT(corrected(), ElementsAre(10, 22));  // (10 + 0) x 1, (10 + 1) x 2
}

TEST_F(MergeWithoutMemory, KeepsTheOldPlaneWhenItCannotCopyTheNewOne) {
  ASSERT_EQ(merge.CreateIdentityFrames(2, 1, nullptr), 0);
  const short old[] = {8, 16}, next[] = {80, 160};
  ASSERT_EQ(merge.SetAdditiveLowFromBuffer(old, 2), 0);
  EXPECT_EQ(failures([&] { return merge.SetAdditiveLowFromBuffer(next, 2); },
                     [&] { EXPECT_THAT(corrected(), ElementsAre(11, 12)); }),
            2);  // the terms' owner and the terms
  EXPECT_THAT(corrected(), ElementsAre(20, 30));
}

TEST_F(MergeWithoutMemory, FailsToLoadReferenceFilesAndLeaksNothing) {
  orvacam::simulator::HeaderFields fields;
  fields.width = 2;
  fields.height = 1;
  std::vector<unsigned char> bytes = orvacam::simulator::writeHeader(fields, 3);
  for (const unsigned char byte : {8, 0, 16, 0, 0, 0, 0, 0})
    bytes.push_back(byte);
  const std::wstring file = folder.write("file", bytes);
  const auto load = [&] {
    freePlanes();
    return merge.CreateReferenceFrames(file.c_str(), file.c_str(), 1.0, 1.0, &planes);
  };
  EXPECT_GT(failures(load), 8);
  EXPECT_EQ(planes.pAdditiveLow[1], 16);
  EXPECT_EQ(planes.pMultiplicativeLow[0], 8);
  EXPECT_EQ(planes.pMultiplicativeHigh[1], 0);
}

TEST_F(MergeWithoutMemory, FailsATestMerge) {
  ASSERT_EQ(merge.CreateIdentityFrames(2, 1, nullptr), 0);
  unsigned short low[] = {1, 2}, high[] = {3, 4};
  EXPECT_EQ(failures([&] { return merge.MergeFrames(low, high, 2u, 1u, 0u); }, [&] { merge.ClearFrames(); }),
            3);
}

TEST_F(MergeWithoutMemory, FailsAMergeWhoseHeaderCannotBeWritten) {
  ASSERT_EQ(merge.CreateIdentityFrames(2, 1, nullptr), 0);
  CFrameMetaData header;
  header.ReInitialize(true);
  header.SetDimensions(2, 1);
  merge.SetMetaData(header);
  merge.SetMergeEnables({0, ORVA_IMAGE_FORMAT_TIFF, 0});
  unsigned short low[] = {1, 2}, high[] = {3, 4};
  std::vector<unsigned short> out((656 + 384) / 2 + 2);
  EXPECT_GT(failures([&] { return merge.MergeFrames(low, high, out.data(), 2); }), 0);
  EXPECT_EQ(out.back(), 4);

  CMergeSettings settings;
  settings.Initialize({ORVA_DEVICE_GSENSE400, false}, nullptr);
  const auto legacy = std::make_unique<CMergeAlgoLegacy>();
  legacy->SetMergeSettings(&settings);
  header.SetBitsPerPixel(12);
  legacy->SetMetaData(header);
  legacy->SetMergeEnables({0, ORVA_IMAGE_FORMAT_TIFF, 0});
  EXPECT_GT(failures([&] { return legacy->MergeFrames(low, high, out.data(), 2); }), 0);
}

TEST_F(MergeWithoutMemory, ThrowsFromACopyAndStaysUsable) {
  ASSERT_EQ(merge.CreateIdentityFrames(2, 1, nullptr), 0);
  const short additive[] = {8, 16};
  ASSERT_EQ(merge.SetAdditiveLowFromBuffer(additive, 2), 0);
  CHWMergeReferenceFrames other;
  ASSERT_EQ(other.CreateIdentityFrames(1, 1, nullptr), 0);
  const unsigned short one[] = {2048};
  ASSERT_EQ(other.SetMultiplicativeLowFromBuffer(one, 1), 0);
  const auto assign = [&] {
    try {
      merge = other;
      return 0;
    } catch (const std::bad_alloc&) {
      return -1;
    }
  };
  const auto use = [&] {
    unsigned short low[] = {10}, high[] = {0}, out[] = {0};
    EXPECT_EQ(merge.MergeFrames(low, high, out, 1), 0);
  };
  EXPECT_GE(failures(assign, use), 0);
  use();
}

}  // namespace
