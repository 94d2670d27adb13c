#ifndef ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H
#define ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H

#include <orvacam/frames/CFrameStatistics.h>

#include <cstddef>
#include <cstdint>

#include "support/ByteReader.h"

namespace orvacam {

/// A part of a stream of packed 12-bit pixels whose rows are alike. Of two planes, even rows belong to the
/// first (low gain), odd rows to the second (high gain).
struct StreamSection {
  unsigned int rows;    ///< of all planes together
  unsigned int before;  ///< reference pixels ahead of the row's pixels
  unsigned int pixels;
  unsigned int after;   ///< reference pixels behind them
  unsigned int shared;  ///< pixels behind every second row that belong to both planes
  bool counted;         ///< the row's pixels go into the plane's statistics, at (column, row of the section)
};

/// The stream of a frame: reference rows, image rows, reference rows.
struct StreamLayout {
  StreamSection sections[3];

  /// Bytes of the whole stream, and pixels that a stream of two planes brings to either; the largest number
  /// where they are more than that.
  std::uint64_t bytes() const;
  std::uint64_t planePixels() const;
  /// Whether every run has an even number of pixels, so that none shares a pair with its neighbour.
  bool hasWholePairsOnly() const;
};

/// A plane that is written from its start to its end. Asked once per run of pixels for room, which it hands
/// out or refuses: nothing is ever written outside.
class PlaneCursor {
 public:
  PlaneCursor(unsigned short* pixels, std::size_t capacity, CFrameStatistics* statistics)
      : m_pixels(pixels), m_capacity(pixels != nullptr ? capacity : 0), m_statistics(statistics) {}

  std::size_t room() const { return m_capacity - m_position; }
  unsigned short* next() { return m_pixels + m_position; }
  void advance(std::size_t count) { m_position += count; }
  CFrameStatistics* statistics() const { return m_statistics; }

 private:
  unsigned short* m_pixels;
  std::size_t m_capacity;
  std::size_t m_position = 0;
  CFrameStatistics* m_statistics;  ///< null when nothing is counted
};

/// Decodes a stream, section by section, into one or two planes. 0; -1 when the source ends early (what is
/// whole is decoded) or a plane is too small (what fits is written).
///
/// Pixels come in pairs of three bytes: a run of n pixels takes ceil(n / 2) pairs and writes the extra pixel
/// of an odd run as well.
int decodeStream(ByteReader source, const StreamSection* sections, std::size_t sectionCount,
                 PlaneCursor* planes, unsigned int planeCount);

template <std::size_t N>
int decodeStream(ByteReader source, const StreamSection (&sections)[N], PlaneCursor* planes,
                 unsigned int planeCount) {
  return decodeStream(source, sections, N, planes, planeCount);
}

inline int decodeStream(ByteReader source, const StreamLayout& layout, PlaneCursor (&planes)[2]) {
  return decodeStream(source, layout.sections, planes, 2);
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H
