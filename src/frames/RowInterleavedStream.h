#ifndef ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H
#define ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H

#include <orvacam/statistics/CFrameStatistics.h>

#include <cstddef>

#include "frames/StreamLayout.h"
#include "support/ByteReader.h"

namespace orvacam {

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
