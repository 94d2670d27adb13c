#ifndef ORVACAM_SRC_STATISTICS_PLANE_COUNTS_H
#define ORVACAM_SRC_STATISTICS_PLANE_COUNTS_H

#include <orvacam/statistics/CFrameStatistics.h>

#include <cstddef>
#include <cstdint>

namespace orvacam {

constexpr unsigned int histogramEntries = 65535;  ///< intended: none for the value 65535

/// Pixels that were counted value by value: values[i] occurred times[i] times, or once where times is null.
struct CountedPixels {
  const std::uint16_t* values;
  const std::uint32_t* times;
  std::size_t count;
};

// What the library does with a plane's statistics beyond their public operations.

/// The same as AddPixel for each pixel of a row, at (x, y), (x + 1, y) and so on; nothing for null.
void addRow(CFrameStatistics& statistics, const std::uint16_t* pixels, std::size_t count, int x, int y);
/// Adds pixels between the extremes so far, counted elsewhere.
void addCounted(CFrameStatistics& statistics, const CountedPixels& pixels);
/// Copies the results and, where the record has a histogram, min(its capacity, histogramEntries) of the
/// counts.
void copyResults(const CFrameStatistics& statistics, image_plane_stats_t& stats);

}  // namespace orvacam

#endif  // ORVACAM_SRC_STATISTICS_PLANE_COUNTS_H
