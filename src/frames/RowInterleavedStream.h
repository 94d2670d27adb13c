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
template <unsigned int planes, typename Sink>
class StreamWalk {
 public:
  StreamWalk(SourceBytes source, Sink& sink) : m_source(source), m_sink(sink) {}

  /// False when the source has ended early: what it holds is walked through, all the same.
  bool walk(const StreamLayout& layout) {
    for (const StreamSection& section : layout.sections)
      if (!section.isEmpty()) walkSection(section);
    return m_whole;
  }

 private:
  /// Pairs of a row that are one run.
  struct Part {
    std::size_t pairs;
    bool counted;
  };

  void walkSection(const StreamSection& section) {
    const bool counted = section.counted && m_sink.counts();
    const bool apart = counted || (section.before | section.pixels | section.after) % 2 != 0;
    const std::size_t row = section.pairsOfRow();
    const std::size_t before = apart ? pairsOf(section.before) : 0;
    const std::size_t behind = apart ? pairsOf(section.after) : 0;
    const Part parts[] = {{before, false}, {row - before - behind, counted}, {behind, false}};
    const Part* const first = before == 0 ? parts + 1 : parts;
    const Part* const end = behind == 0 ? parts + 2 : parts + 3;
    const std::size_t shared = pairsOf(section.shared);
    const std::size_t rows = bytesPerPair * (planes * row + shared);
    for (unsigned int y = 0; y < section.rows / planes && m_whole; ++y, m_position += rows) {
      const SourceBytes rest = m_source.from(m_position + rows);
      std::size_t place = m_position;
      for (const Part* part = first; part != end; ++part) {
        StreamRun run = {{}, {}, part->counted, y, {rest.bytes, std::min(rest.length, rows)}};
        for (unsigned int plane = 0; plane < planes; ++plane)
          run.pairs[plane] = pairsAt(place + plane * bytesPerPair * row, part->pairs, run.packed[plane]);
        m_sink.run(run);
        place += bytesPerPair * part->pairs;
      }
      if (shared == 0) continue;
      const std::uint8_t* packed = nullptr;
      const std::size_t pairs = pairsAt(m_position + planes * bytesPerPair * row, shared, packed);
      m_sink.share(packed, pairs);
    }
  }

  /// Where pairs are, and how many of those wanted.
  std::size_t pairsAt(std::size_t place, std::size_t wanted, const std::uint8_t*& packed) {
    const SourceBytes bytes = m_source.from(place);
    packed = bytes.bytes;
    if (bytes.length >= bytesPerPair * wanted) return wanted;
    m_whole = false;
    return bytes.length / bytesPerPair;
  }

  SourceBytes m_source;
  Sink& m_sink;
  std::size_t m_position = 0;  ///< of the rows in hand
  bool m_whole = true;
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
int decodeStream(SourceBytes source, const StreamLayout& layout, PlaneCursor* planes,
                 unsigned int planeCount);

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_ROW_INTERLEAVED_STREAM_H
