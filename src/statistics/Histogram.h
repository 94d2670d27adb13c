#ifndef ORVACAM_SRC_STATISTICS_HISTOGRAM_H
#define ORVACAM_SRC_STATISTICS_HISTOGRAM_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kernels/Kernels.h"

namespace orvacam {

/// Whether a group has any count.
inline bool hasCount(const std::uint32_t* counts) {
  std::uint64_t any = 0;
  for (std::size_t i = 0; i < kernels::countGroup; i += 2) {
    std::uint64_t two = 0;
    std::memcpy(&two, counts + i, sizeof two);
    any |= two;
  }
  return any != 0;
}

/// take(place, count) for each count that is not 0, in order, as long as it returns true; whether it always
/// did. The size is a multiple of kernels::countGroup.
template <typename Take>
bool forEachCount(const std::uint32_t* counts, std::size_t size, Take&& take) {
  for (std::size_t first = 0; first < size; first += kernels::countGroup) {
    if (!hasCount(counts + first)) continue;
    for (std::size_t i = first; i < first + kernels::countGroup; ++i)
      if (counts[i] != 0 && !take(static_cast<unsigned int>(i), counts[i])) return false;
  }
  return true;
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

  /// Of all pixels.
  struct Sums {
    std::uint64_t values;
    std::int64_t squares;  ///< each a 32-bit product read as signed
    unsigned int mode;     ///< the lowest of the most frequent values below 65535
  };
  Sums sums() const;

  /// take(value, count) for each value that occurred, in order, as long as it returns true.
  template <typename Take>
  void forEach(Take take) const {
    for (std::uint64_t left = m_used; left != 0; left &= left - 1) {
      const unsigned int block = static_cast<unsigned int>(__builtin_ctzl(left));
      if (!forEachCount(
              m_counts + firstOf(block), Histogram::blockValues,
              [&](unsigned int place, std::uint32_t count) { return take(firstOf(block) + place, count); }))
        return;
    }
  }
  /// The same from the largest value down.
  template <typename Take>
  void forEachDown(Take take) const {
    for (std::uint64_t left = m_used; left != 0;) {
      const unsigned int block = 63U - static_cast<unsigned int>(__builtin_clzl(left));
      left ^= std::uint64_t{1} << block;
      for (unsigned int end = firstOf(block + 1); end > firstOf(block); end -= kernels::countGroup) {
        if (!hasCount(m_counts + end - kernels::countGroup)) continue;
        for (unsigned int value = end; value-- > end - kernels::countGroup;)
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
  static unsigned int firstOf(unsigned int block) { return block << Histogram::blockBits; }

  const std::uint32_t* m_counts;
  std::uint64_t m_used;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_STATISTICS_HISTOGRAM_H
