#ifndef ORVACAM_SRC_STATISTICS_HISTOGRAM_H
#define ORVACAM_SRC_STATISTICS_HISTOGRAM_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "kernels/Kernels.h"

namespace orvacam {

/// Pixels that were counted value by value: values[i] occurred times[i] times, or once where times is null.
struct CountedPixels {
  const std::uint16_t* values;
  const std::uint32_t* times;
  std::size_t count;
};

/// take(place, count) for each count that is not 0, in order.
template <typename Take>
void forEachCount(const std::uint32_t* counts, std::size_t size, const Take& take) {
  constexpr std::size_t group = 16;  // a cache line; most of them have none
  for (std::size_t first = 0; first < size; first += group) {
    std::uint32_t any = 0;
    for (std::size_t i = first; i < first + group; ++i)
      any |= counts[i];
    if (any == 0) continue;
    for (std::size_t i = first; i < first + group; ++i)
      if (counts[i] != 0) take(static_cast<unsigned int>(i), counts[i]);
  }
}

/// A histogram of all 16-bit values, in memory of somebody else's. It is cleared block by block, when the
/// first value of a block comes, so that few values cost little.
class Histogram {
 public:
  static constexpr unsigned int blockBits = 10;
  static constexpr unsigned int blockValues = 1U << blockBits;

  Histogram(std::uint32_t* counts, std::uint64_t* usedBlocks) : m_counts(counts), m_used(usedBlocks) {}

  std::uint32_t* counts() { return m_counts; }

  /// Makes the entry of this value count.
  void use(unsigned int value) { useBlocks(blockOf(value)); }
  /// The same for all values between these.
  void use(const kernels::Extremes& extremes) { useBlocks(blocksBetween(extremes)); }
  /// The same for the values of some pixels, whose extremes these are.
  void useEach(const std::uint16_t* pixels, std::size_t count, const kernels::Extremes& extremes) {
    const std::uint64_t outer = blockOf(extremes.minimum) | blockOf(extremes.maximum);
    std::uint64_t blocks = outer;
    if ((blocksBetween(extremes) & ~outer & ~*m_used) != 0)
      for (std::size_t i = 0; i < count; ++i)
        blocks |= blockOf(pixels[i]);
    useBlocks(blocks);
  }

  void add(unsigned int value, std::uint32_t times) {
    use(value);
    m_counts[value] += times;
  }

 private:
  static std::uint64_t blockOf(unsigned int value) { return std::uint64_t{1} << (value >> blockBits); }
  static std::uint64_t blocksBetween(const kernels::Extremes& extremes) {
    return (blockOf(extremes.maximum) - blockOf(extremes.minimum)) | blockOf(extremes.maximum);
  }
  void useBlocks(std::uint64_t blocks) {
    for (std::uint64_t fresh = blocks & ~*m_used; fresh != 0; fresh &= fresh - 1)
      std::fill_n(m_counts + blockValues * static_cast<unsigned int>(__builtin_ctzl(fresh)), blockValues, 0U);
    *m_used |= blocks;
  }

  std::uint32_t* m_counts;
  std::uint64_t* m_used;
};

/// The same, to be read.
class HistogramReader {
 public:
  HistogramReader(const std::uint32_t* counts, std::uint64_t usedBlocks)
      : m_counts(counts), m_used(usedBlocks) {}

  /// take(value, count) for each value that occurred, in order.
  template <typename Take>
  void forEach(const Take& take) const {
    for (std::uint64_t left = m_used; left != 0; left &= left - 1) {
      const unsigned int first = Histogram::blockValues * static_cast<unsigned int>(__builtin_ctzl(left));
      forEachCount(m_counts + first, Histogram::blockValues,
                   [&](unsigned int place, std::uint32_t count) { take(first + place, count); });
    }
  }

  /// The same from the largest value down, while it returns true.
  template <typename Take>
  void forEachDown(const Take& take) const {
    for (std::uint64_t left = m_used; left != 0;) {
      const unsigned int block = 63U - static_cast<unsigned int>(__builtin_clzl(left));
      left ^= std::uint64_t{1} << block;
      for (unsigned int place = Histogram::blockValues; place-- > 0;) {
        const unsigned int value = block * Histogram::blockValues + place;
        if (m_counts[value] != 0 && !take(value, m_counts[value])) return;
      }
    }
  }

  /// The first entries, as numbers.
  void copyTo(double* target, unsigned int entries) const {
    for (unsigned int first = 0; first < entries; first += Histogram::blockValues) {
      const unsigned int count = std::min(Histogram::blockValues, entries - first);
      if ((m_used >> (first / Histogram::blockValues) & 1) != 0)
        std::copy_n(m_counts + first, count, target + first);
      else
        std::fill_n(target + first, count, 0.0);
    }
  }

 private:
  const std::uint32_t* m_counts;
  std::uint64_t m_used;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_STATISTICS_HISTOGRAM_H
