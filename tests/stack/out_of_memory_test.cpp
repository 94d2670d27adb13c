// What the stacker does when memory runs out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvacam/stack/CStacker.h>

#include <vector>

#include "simulator/Header.h"
#include "support/FaultInjector.h"

namespace {

using ::testing::ElementsAre;

/// Runs an action while its call of calloc of that number (from 0) and every later one fail.
template <typename Action>
int withFailing(long allocation, Action action) {
  const faults::Failing failing(allocation, faults::Extent::FromThenOn, faults::Call::Calloc);
  return action();
}

void expectUsable(CStacker& stacker) {
  const unsigned short low[] = {3, 5}, high[] = {7, 9};
  unsigned short *lowMean = nullptr, *highMean = nullptr;
  unsigned int count = 0;
  ASSERT_EQ(stacker.StackNextFrame(low, high, 2), 0);
  ASSERT_EQ(stacker.Finish(&lowMean, &highMean, &count), 0);
  EXPECT_THAT(std::vector<unsigned short>(lowMean, lowMean + count), ElementsAre(3, 5));
  EXPECT_THAT(std::vector<unsigned short>(highMean, highMean + count), ElementsAre(7, 9));
}

TEST(StackerWithoutMemory, IsEmptyAfterAFailedInitializeAndCanBeUsedAgain) {
  const unsigned short pixels[] = {1, 2};
  long failures = 0;
  for (;; ++failures) {
    CStacker stacker;
    ASSERT_EQ(stacker.Initialize(2), 0);
    if (withFailing(failures, [&stacker] { return stacker.Initialize(2); }) == 0) {
      expectUsable(stacker);
      break;
    }
    unsigned int count = 77;
    EXPECT_EQ(stacker.StackNextFrame(pixels, 2), -1);
    EXPECT_EQ(stacker.StackNextFrame(pixels, 0), -1);
    EXPECT_EQ(stacker.Finish(nullptr, nullptr, &count), -1);
    EXPECT_EQ(count, 77u);
    ASSERT_EQ(stacker.Initialize(2), 0);
    expectUsable(stacker);
    ASSERT_LT(failures, 100);
  }
  EXPECT_EQ(failures, 6) << "two sums of two widths and two results";
}

TEST(StackerWithoutMemory, HandsOutNoHeaderUntilThereIsMemory) {
  std::vector<unsigned char> base = orvacam::simulator::writeHeader({}, 3);
  const auto size = static_cast<unsigned int>(base.size());
  CStacker stacker;
  unsigned char* bytes = nullptr;
  unsigned int length = 77;
  const auto getHeader = [&] { return stacker.GetStackedMetaData(base.data(), size, &bytes, &length); };
  EXPECT_EQ(withFailing(0, getHeader), -1);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(length, 77u);
  EXPECT_EQ(getHeader(), 0);
  EXPECT_EQ(length, 384u);
  EXPECT_EQ(withFailing(0, getHeader), 0) << "a buffer that is there and large enough serves again";

  orvacam::simulator::HeaderFields larger;
  larger.otherBlock.assign(5000, 7);
  base = orvacam::simulator::writeHeader(larger, 4);
  const auto getLarger = [&] {
    return stacker.GetStackedMetaData(base.data(), static_cast<unsigned int>(base.size()), &bytes, &length);
  };
  EXPECT_EQ(withFailing(0, getLarger), -1);
  EXPECT_EQ(getLarger(), 0);
  EXPECT_EQ(length, 384u + 5000 + 5000);  // the header's own length, which counts its block, and the block
}

}  // namespace
