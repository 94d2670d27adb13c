#include "frames/StreamLayout.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace orvacam {

namespace {

/// The sum over all sections of rows times what a row of one plane has, and of row pairs times what both
/// share.
template <typename OfRow, typename OfPair>
std::uint64_t total(const StreamSection (&sections)[3], const OfRow& ofRow, const OfPair& ofPair) {
  unsigned __int128 sum = 0;
  for (const StreamSection& section : sections) {
    sum += static_cast<unsigned __int128>(section.rows) * ofRow(section);
    sum += static_cast<unsigned __int128>(section.rows / 2) * ofPair(section);
  }
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  return sum > largest ? largest : static_cast<std::uint64_t>(sum);
}

std::uint64_t none(const StreamSection& /*section*/) {
  return 0;
}

}  // namespace

std::uint64_t StreamLayout::bytes() const {
  return total(
      sections, [](const StreamSection& section) { return bytesPerPair * section.pairsOfRow(); },
      [](const StreamSection& section) { return bytesPerPair * pairsOf(section.shared); });
}

std::uint64_t StreamLayout::pixelsOfOne() const {
  return total(
      sections, [](const StreamSection& section) { return 2 * section.pairsOfRow(); }, none);
}

std::uint64_t StreamLayout::pixelsOfEach() const {
  // Two pixels a pair, and every second row.
  return total(
      sections, [](const StreamSection& section) { return section.pairsOfRow(); },
      [](const StreamSection& section) { return 2 * pairsOf(section.shared); });
}

bool StreamLayout::hasWholePairsOnly() const {
  return std::all_of(std::begin(sections), std::end(sections), [](const StreamSection& section) {
    return (section.before | section.pixels | section.after | section.shared) % 2 == 0;
  });
}

}  // namespace orvacam
