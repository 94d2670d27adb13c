#include "statistics/Histogram.h"

namespace orvacam {

namespace {

constexpr unsigned int lastValue = 65535;
/// Intended: squares from this value on, read as signed, are negative.
constexpr unsigned int firstNegativeSquare = 46341;

std::uint64_t pixelsFrom(const std::uint32_t* counts, unsigned int first, unsigned int end) {
  std::uint64_t pixels = 0;
  for (unsigned int value = first; value < end; ++value)
    pixels += counts[value];
  return pixels;
}

/// The last value has no histogram entry: its count is never the largest.
kernels::CountSums sumsOfBlock(const std::uint32_t* counts, unsigned int first) {
  const kernels::KernelTable& kernel = kernels::active();
  const bool last = first + Histogram::blockValues > lastValue;
  const std::uint32_t size = Histogram::blockValues - (last ? kernels::countGroup : 0);
  kernels::CountSums sums{};
  kernel.sumCounts(counts, size, first, &sums);
  if (!last) return sums;
  const std::uint32_t largest = *std::max_element(counts + size, counts + Histogram::blockValues - 1);
  const std::uint32_t largestBefore = sums.largest;
  kernel.sumCounts(counts + size, kernels::countGroup, first + size, &sums);
  sums.largest = std::max(largestBefore, largest);
  return sums;
}

}  // namespace

HistogramReader::Sums HistogramReader::sums() const {
  kernels::CountSums all{};
  std::uint64_t ofNegativeSquares = 0;
  std::uint32_t largest = 0;
  unsigned int mostFrequent = 0;  // the block
  for (std::uint64_t left = m_used; left != 0; left &= left - 1) {
    const auto block = static_cast<unsigned int>(__builtin_ctzl(left));
    const unsigned int first = firstOf(block);
    const unsigned int end = firstOf(block + 1);
    const kernels::CountSums sums = sumsOfBlock(m_counts + first, first);
    all.values += sums.values;
    all.squares += sums.squares;
    if (first >= firstNegativeSquare)
      ofNegativeSquares += sums.pixels;
    else if (end > firstNegativeSquare)
      ofNegativeSquares += pixelsFrom(m_counts, firstNegativeSquare, end);
    if (sums.largest > largest) {
      largest = sums.largest;
      mostFrequent = first;
    }
  }
  const std::uint32_t* const mode =
      largest == 0 ? m_counts : std::find(m_counts + mostFrequent, m_counts + lastValue, largest);
  return {all.values, static_cast<std::int64_t>(all.squares - (ofNegativeSquares << 32)),
          static_cast<unsigned int>(mode - m_counts)};
}

}  // namespace orvacam
