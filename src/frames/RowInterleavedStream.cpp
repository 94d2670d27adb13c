#include "frames/RowInterleavedStream.h"

#include <cstring>

#include "kernels/Kernels.h"
#include "statistics/PlaneCounts.h"

namespace orvacam {

namespace {

/// The sink of planes alone.
class PlaneSink {
 public:
  PlaneSink(PlaneCursor* planes, unsigned int planeCount) : m_planes(planes), m_planeCount(planeCount) {
    for (unsigned int i = 0; i < planeCount; ++i) {
      m_counts = m_counts || planes[i].statistics() != nullptr;
      m_streaming =
          m_streaming && sizeof(unsigned short) * planes[i].room() >= kernels::streamFromBytes && !m_counts;
    }
    m_unpack = m_streaming ? kernels::active().unpack12Streaming : kernels::active().unpack12;
  }
  PlaneSink(const PlaneSink&) = delete;
  PlaneSink& operator=(const PlaneSink&) = delete;
  ~PlaneSink() {
    if (m_streaming) kernels::active().finishStreaming();
  }

  bool counts() const { return m_counts; }
  bool fits() const { return m_fits; }

  void run(const StreamRun& run) {
    for (unsigned int i = 0; i < m_planeCount; ++i) {
      PlaneCursor& plane = m_planes[i];
      const std::size_t count = unpack(plane, run.packed[i], run.pairs[i]);
      // Intended: rows of both planes count up together.
      if (run.counted && plane.statistics() != nullptr)
        addRow(*plane.statistics(), plane.next() - count, count, 0,
               static_cast<int>(m_planeCount * run.row + i));
    }
  }

  /// Unpacks into the last plane and repeats that in the others.
  void share(const std::uint8_t* packed, std::size_t pairs) {
    PlaneCursor& last = m_planes[m_planeCount - 1];
    const std::size_t count = unpack(last, packed, pairs);
    for (unsigned int i = 0; i + 1 < m_planeCount; ++i) {
      const std::size_t fits = std::min(count, m_planes[i].room());
      if (fits < count) m_fits = false;
      if (fits > 0) std::memcpy(m_planes[i].next(), last.next() - count, fits * sizeof(unsigned short));
      m_planes[i].advance(fits);
    }
  }

 private:
  /// Intended: what fits is written, also of a stream that has more, which fails; the number of pixels
  /// written.
  std::size_t unpack(PlaneCursor& plane, const std::uint8_t* packed, std::size_t given) {
    const std::size_t pairs = std::min(given, plane.room() / 2);
    if (pairs > 0) m_unpack(packed, plane.next(), pairs);
    plane.advance(2 * pairs);
    if (pairs == given) return 2 * pairs;
    m_fits = false;
    if (plane.room() == 0) return 2 * pairs;
    // The first pixel of the next pair is the last one that fits.
    unsigned short pair[2];
    kernels::active().unpack12(packed + pairs * bytesPerPair, pair, 1);
    *plane.next() = pair[0];
    plane.advance(1);
    return 2 * pairs + 1;
  }

  PlaneCursor* m_planes;
  unsigned int m_planeCount;
  bool m_counts = false;
  bool m_streaming = true;  ///< past the caches: planes that are large, and not read again to be counted
  bool m_fits = true;
  decltype(kernels::KernelTable::unpack12) m_unpack;
};

}  // namespace

int decodeStream(SourceBytes source, const StreamLayout& layout, PlaneCursor* planes,
                 unsigned int planeCount) {
  PlaneSink sink(planes, planeCount);
  const bool whole = planeCount == 2 ? StreamWalk<2, PlaneSink>(source, sink).walk(layout)
                                     : StreamWalk<1, PlaneSink>(source, sink).walk(layout);
  return whole && sink.fits() ? 0 : -1;
}

}  // namespace orvacam
