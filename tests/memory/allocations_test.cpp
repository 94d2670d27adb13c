// What MergeImage allocates when the caller gives it all its buffers again: nothing that grows with the
// frame.

#include <gtest/gtest.h>
#include <orvacam.h>

#include <string>
#include <vector>

#include "frames/FrameTesting.h"
#include "support/FaultInjector.h"

namespace {

using frame_testing::header;
using frame_testing::RawFrame;

struct Camera {
  const char* model;
  unsigned int deviceType;
};

/// The most bytes that a second MergeImage into the same buffers holds at a time.
std::size_t heldByMergeImage(const Camera& camera, unsigned int side, bool statistics) {
  RawFrame raw(header(camera.model, 12, true, side, side));
  CAlgo algo;
  algo.Initialize({camera.deviceType, false}, nullptr);
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
  const Camera cameras[] = {{"VESTRA VS400", ORVA_DEVICE_GSENSE400},
                            {"VESTRA VS2020", ORVA_DEVICE_GSENSE2020},
                            {"VESTRA VS4040", ORVA_DEVICE_GSENSE4040},
                            {"VESTRA VS6060", ORVA_DEVICE_GSENSE6060}};
  for (const Camera& camera : cameras)
    for (const bool statistics : {false, true}) {
      const std::size_t ofSmall = heldByMergeImage(camera, 32, statistics);
      const std::size_t ofLarge = heldByMergeImage(camera, 256, statistics);
      EXPECT_EQ(ofSmall, ofLarge) << camera.model << (statistics ? " with statistics" : "");
    }
}

}  // namespace
