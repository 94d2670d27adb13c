#ifndef ORVACAM_SRC_STATISTICS_NEIGHBOUR_COUNTS_H
#define ORVACAM_SRC_STATISTICS_NEIGHBOUR_COUNTS_H

#include <cstddef>
#include <cstdint>

#include "kernels/Kernels.h"
#include "statistics/CountWindows.h"
#include "statistics/Histogram.h"

namespace orvacam {

/// Counts at least one pixel, one by one; their extremes. In a small plane only the blocks of their values
/// are worth clearing.
kernels::Extremes countRow(const std::uint16_t* pixels, std::size_t count, Histogram histogram, bool isSmall);

/// Counts the rows of a plane with little noise faster: neighbours whose values are in one window are counted
/// as a pair, one addition for both. All else goes to the histogram at once, pairs at `fold`.
class NeighbourCounts {
 public:
  /// Planes of fewer pixels and shorter rows are not worth it.
  static constexpr std::size_t smallestPlane = 65536;
  static constexpr std::size_t shortestRow = 256;

  NeighbourCounts();

  /// Counts at least shortestRow pixels; their extremes.
  kernels::Extremes addRow(const std::uint16_t* pixels, std::size_t count, Histogram histogram);
  /// take(value, times) for the pixels counted in pairs, where a value may come more than once.
  template <typename Take>
  void forEach(const Take& take) const;
  /// Brings them to the histogram.
  void fold(Histogram histogram);
  /// Forgets them.
  void reset() { m_watch.restart(); }

 private:
  kernels::Extremes addPairs(const std::uint16_t* pixels, std::size_t count, Histogram histogram);
  std::size_t addBlock(const std::uint16_t* pixels, std::size_t pairs, Histogram histogram,
                       kernels::Extremes* extremes);
  void chooseWindow(const std::uint16_t* pixels, std::size_t count);

  WindowWatch m_watch;
  std::uint16_t m_first;  ///< value of the window
  std::uint32_t m_banks[kernels::pairEntries];
};

template <typename Take>
void NeighbourCounts::forEach(const Take& take) const {
  if (!m_watch.inWindows()) return;
  constexpr unsigned int windowValues = 1U << kernels::pairWindowBits;
  // A place of 0 says nothing: it is also that of the pairs outside.
  for (unsigned int place = 1; place < windowValues * windowValues; ++place) {
    std::uint32_t pairs = 0;
    for (std::size_t bank = 0; bank < kernels::countBanks; ++bank)
      pairs += m_banks[bank * kernels::pairBankStride + place];
    if (pairs == 0) continue;
    take(m_first + place % windowValues, pairs);
    take(m_first + place / windowValues, pairs);
  }
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_STATISTICS_NEIGHBOUR_COUNTS_H
