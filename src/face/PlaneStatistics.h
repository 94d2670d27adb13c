#ifndef ORVACAM_SRC_FACE_PLANE_STATISTICS_H
#define ORVACAM_SRC_FACE_PLANE_STATISTICS_H

#include <orvacam_c.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "statistics/NeighbourCounts.h"

namespace orvacam::face {

/// Statistics of an image region, and its histogram where it was asked for.
struct PlaneStatistics {
  orva_statistics numbers{};
  std::vector<std::uint32_t> histogram;

  orva_statistics record() const;
};

/// Counts planes, one after the other, with the library's histogram: exact, of all 65536 values, and as
/// costly as the values that occur.
class PlaneCounter {
 public:
  PlaneCounter();

  /// A plane's region is the record's image region. May throw std::bad_alloc.
  std::unique_ptr<const PlaneStatistics> count(const std::uint16_t* pixels, const orva_geometry& geometry,
                                               bool withHistogram);

 private:
  /// Rows of a region as runs of pixels: a small region that is as wide as the plane is one run.
  struct Runs;
  void countRuns(const Runs& runs, orva_statistics& numbers);
  void gatherOccurring();
  void summarize(orva_statistics& numbers) const;

  std::unique_ptr<std::uint32_t[]> m_counts;  ///< of each value; hold anything outside the blocks in use
  std::uint64_t m_usedBlocks = 0;
  NeighbourCounts m_neighbours;
  /// The values that occur, ascending, and how often each does.
  std::unique_ptr<std::uint16_t[]> m_values;
  std::unique_ptr<std::uint32_t[]> m_times;
  std::size_t m_occurring = 0;
};

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_PLANE_STATISTICS_H
