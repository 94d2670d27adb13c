#include "frames/StreamLayout.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace orvacam {

namespace {

/// So many of each pair of a row, and so many of each pair that two rows share.
std::uint64_t total(const StreamSection (&sections)[3], unsigned int ofPair, unsigned int ofSharedPair) {
  unsigned __int128 sum = 0;
  for (const StreamSection& section : sections) {
    sum += static_cast<unsigned __int128>(section.rows) * ofPair * section.pairsOfRow();
    sum += static_cast<unsigned __int128>(section.rows / 2) * ofSharedPair * pairsOf(section.shared);
  }
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  return sum > largest ? largest : static_cast<std::uint64_t>(sum);
}

}  // namespace

std::uint64_t StreamLayout::bytes() const {
  return total(sections, bytesPerPair, bytesPerPair);
}

std::uint64_t StreamLayout::pixelsOfOne() const {
  return total(sections, 2, 0);
}

std::uint64_t StreamLayout::pixelsOfEach() const {
  return total(sections, 1, 2);  // a pair brings two pixels, of every second row
}

bool StreamLayout::hasWholePairsOnly() const {
  return std::all_of(std::begin(sections), std::end(sections), [](const StreamSection& section) {
    return (section.before | section.pixels | section.after | section.shared) % 2 == 0;
  });
}

}  // namespace orvacam
