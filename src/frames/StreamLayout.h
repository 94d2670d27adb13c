#ifndef ORVACAM_SRC_FRAMES_STREAM_LAYOUT_H
#define ORVACAM_SRC_FRAMES_STREAM_LAYOUT_H

#include <cstddef>
#include <cstdint>

namespace orvacam {

constexpr std::size_t bytesPerPair = 3;  ///< of two packed 12-bit pixels

/// Pairs that a run of packed pixels takes. Intended: the last one of an odd run brings a pixel more, which
/// is written, and counted where pairs are counted.
constexpr std::uint64_t pairsOf(std::uint64_t pixels) {
  return pixels / 2 + pixels % 2;
}

/// Bytes of so many pixels in a row, without the rest of the last pair.
constexpr std::uint64_t packedBytes(std::uint64_t pixels) {
  return bytesPerPair * (pixels / 2) + 2 * (pixels % 2);
}

/// A part of a stream of packed 12-bit pixels whose rows are alike. Of two planes, even rows belong to the
/// first (low gain), odd rows to the second (high gain).
struct StreamSection {
  unsigned int rows;    ///< of all planes together
  unsigned int before;  ///< reference pixels ahead of the row's pixels
  unsigned int pixels;
  unsigned int after;   ///< reference pixels behind them
  unsigned int shared;  ///< intended: pixels behind every second row belong to both planes
  bool counted;         ///< the row's pixels go into the plane's statistics, at (column, row of the section)

  bool isEmpty() const { return (before | pixels | after | shared) == 0; }
  std::uint64_t pairsOfRow() const { return pairsOf(before) + pairsOf(pixels) + pairsOf(after); }
};

/// The stream of a frame: reference rows, image rows, reference rows. Sums are the largest number where they
/// would be more than that.
struct StreamLayout {
  StreamSection sections[3];

  std::uint64_t bytes() const;
  /// Pixels that a stream of one plane brings to it, and a stream of two planes to either.
  std::uint64_t pixelsOfOne() const;
  std::uint64_t pixelsOfEach() const;
  /// Whether every run has an even number of pixels, so that none shares a pair with its neighbour.
  bool hasWholePairsOnly() const;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_STREAM_LAYOUT_H
