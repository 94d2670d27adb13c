#ifndef ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H
#define ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H

#include <orvacam/statistics/CFrameStatistics.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "frames/FrameParts.h"
#include "frames/StreamLayout.h"

namespace orvacam {

/// Pixels of one row of each plane, as many of them as the source holds.
struct StreamRun {
  const std::uint8_t* packed[2];
  std::size_t pairs[2];
  bool counted;       ///< these go into the planes' statistics
  unsigned int row;   ///< of each plane, in its section
  SourceBytes ahead;  ///< the rows that come next
};

/// Walks a stream of packed pixels, a row of each plane at a time, and hands its runs to a sink:
///
///   bool counts() const;                                            whether it looks at StreamRun::counted
///   void run(const StreamRun& run);                                 pixels of each plane
///   void share(const std::uint8_t* packed, std::size_t pairs);      pixels of all planes
///
/// A run of n pixels takes ceil(n / 2) pairs: it brings the extra pixel of an odd run, too. Runs of a row
/// come as one where they are of even length and need not be told apart.
class StreamWalk {
 public:
  StreamWalk(SourceBytes source, unsigned int planes) : m_source(source), m_planes(planes) {}

  /// False when the source has ended early: what it holds is walked through, all the same.
  template <typename Sink>
  bool walk(const StreamSection* sections, std::size_t count, Sink& sink) {
    for (std::size_t i = 0; i < count; ++i)
      if (!sections[i].isEmpty()) walkSection(sections[i], sink);
    return m_whole;
  }

 private:
  template <typename Sink>
  void walkSection(const StreamSection& section, Sink& sink) {
    const bool counted = section.counted && sink.counts();
    const bool apart = counted || (section.before | section.pixels | section.after) % 2 != 0;
    m_rowBytes = bytesPerPair * section.pairsOfRow();
    const std::size_t rows = m_planes * m_rowBytes;
    const std::size_t all = rows + bytesPerPair * pairsOf(section.shared);
    for (unsigned int row = 0; row < section.rows / m_planes && m_whole; ++row) {
      m_run.row = row;
      m_run.ahead = m_source.from(m_position + all);
      m_run.ahead.length = std::min(m_run.ahead.length, all);
      m_inRow = 0;
      if (apart) {
        run(section.before, false, sink);
        run(section.pixels, counted, sink);
        run(section.after, false, sink);
      } else {
        run(std::uint64_t{section.before} + section.pixels + section.after, false, sink);
      }
      if (section.shared > 0) {
        const SourceBytes bytes = m_source.from(m_position + rows);
        sink.share(bytes.bytes, pairsThatAreThere(bytes, pairsOf(section.shared)));
      }
      m_position += all;
    }
  }

  template <typename Sink>
  void run(std::uint64_t pixels, bool counted, Sink& sink) {
    const std::uint64_t pairs = pairsOf(pixels);
    if (pairs == 0) return;
    for (unsigned int plane = 0; plane < m_planes; ++plane) {
      const SourceBytes bytes = m_source.from(m_position + plane * m_rowBytes + m_inRow);
      m_run.packed[plane] = bytes.bytes;
      m_run.pairs[plane] = pairsThatAreThere(bytes, pairs);
    }
    m_run.counted = counted;
    sink.run(m_run);
    m_inRow += bytesPerPair * pairs;
  }

  std::size_t pairsThatAreThere(const SourceBytes& bytes, std::uint64_t wanted) {
    const std::size_t pairs = std::min<std::uint64_t>(wanted, bytes.length / bytesPerPair);
    if (pairs < wanted) m_whole = false;
    return pairs;
  }

  SourceBytes m_source;
  unsigned int m_planes;
  std::size_t m_position = 0;  ///< of the rows in hand
  std::size_t m_inRow = 0;
  std::size_t m_rowBytes = 0;  ///< of each plane
  bool m_whole = true;
  StreamRun m_run{};
};

/// A plane that is written from its start to its end. Asked once per run of pixels for room, which it hands
/// out or refuses: nothing is ever written outside.
class PlaneCursor {
 public:
  PlaneCursor(unsigned short* pixels, std::size_t capacity, CFrameStatistics* statistics)
      : m_pixels(pixels), m_capacity(pixels != nullptr ? capacity : 0), m_statistics(statistics) {}

  std::size_t room() const { return m_capacity - m_position; }
  std::size_t written() const { return m_position; }
  unsigned short* next() { return m_pixels + m_position; }
  void advance(std::size_t count) { m_position += count; }
  CFrameStatistics* statistics() const { return m_statistics; }

 private:
  unsigned short* m_pixels;
  std::size_t m_capacity;
  std::size_t m_position = 0;
  CFrameStatistics* m_statistics;  ///< null when nothing is counted
};

/// Decodes a stream into one or two planes. 0; -1 when the source ends early (what is whole is decoded) or a
/// plane is too small (what fits is written).
int decodeStream(SourceBytes source, const StreamSection* sections, std::size_t sectionCount,
                 PlaneCursor* planes, unsigned int planeCount);

template <std::size_t planeCount>
int decodeStream(SourceBytes source, const StreamLayout& layout, PlaneCursor (&planes)[planeCount]) {
  return decodeStream(source, layout.sections, std::size(layout.sections), planes, planeCount);
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H
