// Whole frames of every family through the façade. The first byte chooses the family by overwriting the model
// text; the rest is the frame.

#include <orvacam.h>

#include <array>
#include <cstring>

#include "fuzz_support.h"

namespace {

constexpr std::array<const char*, 9> models = {"VS400",       "VS2020",        "VS4040",
                                               "VS6060",      "ARGENT 230-42", "ARGENT 230-84",
                                               "ARGENT 4320", "IMX183",        "plain"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  std::vector<unsigned char> frame = fuzz::copyOf(data + 1, size - 1);
  if (frame.size() >= 48 && data[0] < models.size()) {
    std::memset(frame.data() + 8, 0, 40);
    std::memcpy(frame.data() + 8, models[data[0]], std::strlen(models[data[0]]));
  }

  static CAlgo algo;
  unpacked_images_t images{};
  images.bMetaDataRequest = true;
  images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = true;

  hw_merge_enables_t enables{};
  enables.uiImageFormat = static_cast<unsigned int>(size % 3);
  enables.uiMergeType = static_cast<unsigned int>(size / 3 % 3);
  algo.SetHWMergeEnables(enables);
  algo.MergeImage(frame.data(), frame.size(), &images, &stats);
  // Once more into the buffers of the first call, as a camera loop does.
  algo.MergeImage(frame.data(), frame.size(), &images, &stats);
  algo.FreeFramePointers(&images);
  algo.FreeStatsPointers(&stats);

  CFrameMetaData header;
  if (header.Parse(frame.data(), static_cast<unsigned int>(frame.size())) >= 0) {
    IFrame* raw = algo.InitFrame(&header, frame.data(), frame.size(), &images);
    if (raw != nullptr) {
      std::vector<unsigned char> region(4096);
      frame_roi_t roi{0, 0, static_cast<unsigned int>(size % 64), static_cast<unsigned int>(size % 7)};
      raw->CopyROIToBuffer(roi, region.data(), static_cast<unsigned int>(region.size()));
      delete raw;
    }
  }
  return 0;
}
