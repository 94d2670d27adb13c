#ifndef ORVACAM_SRC_MERGE_FRAME_REGIONS_H
#define ORVACAM_SRC_MERGE_FRAME_REGIONS_H

#include <orvacam/statistics/CFrameStatistics.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "metadata/FrameGeometry.h"
#include "statistics/PlaneCounts.h"

namespace orvacam {

/// Where a plane's image pixels lie. Of metadata that contradict themselves this is what fits 32 bits of it:
/// nobody makes planes for them, and whoever walks through a plane ends where the plane does.
struct FrameRegions {
  unsigned int frameWidth = 0, frameHeight = 0;
  unsigned int imageWidth = 0, imageHeight = 0;
  unsigned int prePixels = 0, postPixels = 0;
  unsigned int preRows = 0, postRows = 0;

  explicit FrameRegions(const CFrameMetaData& metaData) : FrameRegions(FrameGeometry(metaData)) {}
  explicit FrameRegions(const FrameGeometry& geometry)
      : frameWidth(static_cast<unsigned int>(geometry.binnedColumns().frame())),
        frameHeight(static_cast<unsigned int>(geometry.binnedRows().frame())),
        imageWidth(static_cast<unsigned int>(geometry.binnedColumns().image)),
        imageHeight(static_cast<unsigned int>(geometry.binnedRows().image)),
        prePixels(static_cast<unsigned int>(geometry.binnedColumns().before)),
        postPixels(static_cast<unsigned int>(geometry.binnedColumns().after)),
        preRows(static_cast<unsigned int>(geometry.binnedRows().before)),
        postRows(static_cast<unsigned int>(geometry.binnedRows().after)) {}

  /// Rows that hold pixels at all.
  unsigned int imageRows() const { return (prePixels | imageWidth | postPixels) != 0 ? imageHeight : 0; }
};

/// Pixels that are merged and counted while they are in the cache.
constexpr unsigned long mergeBlock = 4096;

/// Merges pixels [first, first + count) in blocks by mergeRun(first, count, target), and adds them to the
/// statistics of row y, from column x on, where there are any. Output may start at an odd address, behind a
/// header of an odd size: blocks then go through aligned memory.
template <typename MergeRun>
void mergeAndCount(unsigned char* output, unsigned long first, unsigned long count, const MergeRun& mergeRun,
                   CFrameStatistics* statistics, int x, int y) {
  const bool aligned = reinterpret_cast<std::uintptr_t>(output) % alignof(unsigned short) == 0;
  unsigned short scratch[mergeBlock];
  for (unsigned long done = 0; done < count;) {
    const unsigned long block = std::min(count - done, mergeBlock);
    unsigned char* const place = output + 2 * (first + done);
    auto* const target = aligned ? reinterpret_cast<unsigned short*>(place) : scratch;
    mergeRun(first + done, block, target);
    if (statistics != nullptr) addRow(*statistics, target, block, x + static_cast<int>(done), y);
    if (!aligned) std::memcpy(place, scratch, 2 * block);
    done += block;
  }
}

/// Merges all pixels, region by region; the image pixels go into the statistics with their frame coordinates.
/// No region reaches beyond the pixels that there are, whatever the metadata says.
template <typename MergeRun>
void mergeRegions(const FrameRegions& regions, unsigned char* output, unsigned long pixels,
                  const MergeRun& mergeRun, CFrameStatistics& statistics) {
  unsigned long position = 0;
  const auto merge = [&](unsigned long count, CFrameStatistics* counted, unsigned int y) {
    count = std::min(count, pixels - position);
    mergeAndCount(output, position, count, mergeRun, counted, static_cast<int>(regions.prePixels),
                  static_cast<int>(y));
    position += count;
  };
  merge(static_cast<unsigned long>(regions.preRows) * regions.frameWidth, nullptr, 0);
  for (unsigned int row = 0; row < regions.imageRows() && position < pixels; ++row) {
    merge(regions.prePixels, nullptr, 0);
    merge(regions.imageWidth, &statistics, regions.preRows + row);
    merge(regions.postPixels, nullptr, 0);
  }
  merge(pixels - position, nullptr, 0);
  statistics.Compute();
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_MERGE_FRAME_REGIONS_H
