// What MergeImage allocates when the caller gives it all its buffers again: nothing that grows with the
// frame.

#include <gtest/gtest.h>
#include <orvacam.h>

#include <string>
#include <vector>

#include "frames/FrameTesting.h"
#include "support/Cameras.h"
#include "support/FaultInjector.h"

namespace {

using frame_testing::header;
using frame_testing::RawFrame;

/// The most bytes that a second MergeImage into the same buffers holds at a time.
std::size_t heldByMergeImage(const cameras::Mode& mode, unsigned int side, bool statistics) {
  RawFrame raw(header(mode.model, 12, true, side, side));
  CAlgo algo;
  algo.Initialize({mode.camera().device, false}, nullptr);
  unpacked_images_t images{};
  images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = statistics;
  EXPECT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats), 0);
  std::size_t held = 0;
  {
    const faults::MemoryWatch watch;
    EXPECT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats), 0);
    held = watch.peak();
  }
  algo.FreeFramePointers(&images);
  algo.FreeStatsPointers(&stats);
  return held;
}

TEST(Allocations, OfMergeImageIntoReusedBuffersDoNotGrowWithTheFrame) {
  for (const char* name : {"GSense400Hdr", "GSense2020Hdr", "GSense4040Hdr", "GSense6060Hdr"})
    for (const bool statistics : {false, true}) {
      const std::size_t ofSmall = heldByMergeImage(cameras::modeNamed(name), 32, statistics);
      const std::size_t ofLarge = heldByMergeImage(cameras::modeNamed(name), 256, statistics);
      EXPECT_EQ(ofSmall, ofLarge) << name << (statistics ? " with statistics" : "");
    }
}

}  // namespace
