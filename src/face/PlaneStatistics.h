#ifndef ORVACAM_SRC_FACE_PLANE_STATISTICS_H
#define ORVACAM_SRC_FACE_PLANE_STATISTICS_H

#include <orvacam_c.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace orvacam::face {

/// Statistics of an image region, and its histogram where it was asked for.
struct PlaneStatistics {
  orva_statistics numbers{};
  std::vector<std::uint32_t> histogram;

  orva_statistics record() const;
};

/// Counts planes, one after the other. What a plane costs beyond its pixels is bounded by the pixels that it
/// has: tables are cleared where values were counted.
class PlaneCounter {
 public:
  PlaneCounter();

  /// A plane's region is the record's image region. May throw std::bad_alloc.
  std::unique_ptr<const PlaneStatistics> count(const std::uint16_t* pixels, const orva_geometry& geometry,
                                               bool withHistogram);

 private:
  struct Found;
  void countValues(const std::uint16_t* row, std::size_t count);
  template <typename Each>
  void forEachValue(const Each& each) const;
  void summarize(orva_statistics& numbers) const;
  void clear();

  std::vector<std::uint32_t> m_counts;    ///< of each value, in banks that are added up at the end
  std::vector<std::uint64_t> m_occurred;  ///< a bit for each value
};

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_PLANE_STATISTICS_H
