#include "frames/RowInterleavedStream.h"

#include <algorithm>
#include <cstring>

#include "kernels/Kernels.h"

namespace orvacam {

namespace {

class Walk {
 public:
  Walk(ByteReader source, PlaneCursor* planes, unsigned int planeCount)
      : m_source(source), m_planes(planes), m_planeCount(planeCount) {
    const kernels::KernelTable& kernel = kernels::active();
    m_streaming = true;
    for (unsigned int i = 0; i < planeCount; ++i)
      m_streaming = m_streaming && planes[i].statistics() == nullptr &&
                    sizeof(unsigned short) * planes[i].room() >= kernels::streamFromBytes;
    m_unpack = m_streaming ? kernel.unpack12Streaming : kernel.unpack12;
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;
  ~Walk() {
    if (m_streaming) kernels::active().finishStreaming();
  }

  bool sourceEnded() const { return m_sourceEnded; }
  bool whole() const { return !m_sourceEnded && !m_planeFull; }

  void row(const StreamSection& section, unsigned int row) {
    const unsigned int index = row % m_planeCount;
    PlaneCursor& plane = m_planes[index];
    run(plane, section.before);
    const std::size_t count = run(plane, section.pixels);
    if (section.counted && plane.statistics() != nullptr)
      plane.statistics()->AddRow(plane.next() - count, count, 0, static_cast<int>(row));
    run(plane, section.after);
    if (section.shared > 0 && index + 1 == m_planeCount) runShared(section.shared);
  }

 private:
  /// Decodes a run of pixels; the number of pixels written.
  std::size_t run(PlaneCursor& plane, unsigned int pixels) {
    const std::size_t wanted = pairsOf(pixels);
    const std::size_t given = std::min(wanted, m_source.remaining() / bytesPerPair);
    const std::size_t pairs = std::min(given, plane.room() / 2);
    if (given < wanted) m_sourceEnded = true;
    if (pairs < given) m_planeFull = true;
    const unsigned char* packed = nullptr;
    m_source.take(given * bytesPerPair, packed);
    if (pairs > 0) m_unpack(packed, plane.next(), pairs);
    plane.advance(2 * pairs);
    if (pairs == given || plane.room() == 0) return 2 * pairs;
    // The first pixel of the next pair is the last one that fits.
    unsigned short pair[2];
    kernels::active().unpack12(packed + pairs * bytesPerPair, pair, 1);
    *plane.next() = pair[0];
    plane.advance(1);
    return 2 * pairs + 1;
  }

  /// Decodes pixels into the last plane and repeats them in the others.
  void runShared(unsigned int pixels) {
    PlaneCursor& last = m_planes[m_planeCount - 1];
    const std::size_t count = run(last, pixels);
    for (unsigned int i = 0; i + 1 < m_planeCount; ++i) {
      const std::size_t fits = std::min(count, m_planes[i].room());
      if (fits < count) m_planeFull = true;
      if (fits > 0) std::memcpy(m_planes[i].next(), last.next() - count, fits * sizeof(unsigned short));
      m_planes[i].advance(fits);
    }
  }

  ByteReader m_source;
  PlaneCursor* m_planes;
  unsigned int m_planeCount;
  bool m_streaming;  ///< past the caches: planes that are large, and not read again to be counted
  decltype(kernels::KernelTable::unpack12) m_unpack;
  bool m_sourceEnded = false;
  bool m_planeFull = false;
};

}  // namespace

int decodeStream(ByteReader source, const StreamSection* sections, std::size_t sectionCount,
                 PlaneCursor* planes, unsigned int planeCount) {
  Walk walk(source, planes, planeCount);
  for (std::size_t i = 0; i < sectionCount; ++i) {
    const StreamSection& section = sections[i];
    if ((section.before | section.pixels | section.after | section.shared) == 0) continue;
    for (unsigned int row = 0; row < section.rows && !walk.sourceEnded(); ++row)
      walk.row(section, row);
  }
  return walk.whole() ? 0 : -1;
}

}  // namespace orvacam
