// Merges one raw frame that is in memory and prints the statistics of each plane.
//
//   merge_in_memory FRAME

#include <orvacam.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

void print(const char* plane, const image_plane_stats_t& stats) {
  std::printf("%-6s mean %.2f, deviation %.2f, %u to %u\n", plane, stats.dMean, stats.dStdDev, stats.uiMin,
              stats.uiMax);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: merge_in_memory FRAME\n");
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  std::vector<unsigned char> frame{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};

  // The header names the camera; its gain tables give the ratio of the two gains.
  CFrameMetaData header;
  gain_type_info_t camera{ORVA_DEVICE_UNKNOWN, false};
  if (header.Parse(frame.data(), static_cast<unsigned int>(frame.size())) < 0 ||
      header.GetDeviceType(camera.uiDeviceType) < 0) {
    std::fprintf(stderr, "%s: not a frame of a known camera\n", argv[1]);
    return 1;
  }

  CAlgo algo;
  algo.Initialize(camera, nullptr);
  unpacked_images_t images{};
  images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = true;

  const int status = algo.MergeImage(frame.data(), frame.size(), &images, &stats);
  if (status >= 0) {
    print("low", stats.statsLow);
    print("high", stats.statsHigh);
    print("merged", stats.statsMerged);
  } else {
    std::fprintf(stderr, "%s: cannot be merged (status %d)\n", argv[1], status);
  }
  algo.FreeFramePointers(&images);
  algo.FreeStatsPointers(&stats);
  return status >= 0 ? 0 : 1;
}
