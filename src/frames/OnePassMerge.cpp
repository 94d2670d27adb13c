#include "frames/OnePassMerge.h"

#include <orvacam/merge/CHWMergeReferenceFrames.h>

#include <algorithm>
#include <optional>

#include "frames/OwnClasses.h"
#include "kernels/Kernels.h"
#include "merge/ReferenceMerge.h"
#include "statistics/JointHistogram.h"

namespace orvacam {

namespace {

/// The sink of planes, their merge and their counts.
class MergeSink {
 public:
  MergeSink(const ReferenceMerge& merge, const PairPlanes& planes, const FrameRegions& regions)
      : m_planes(planes), m_regions(regions) {
    merge.takeTerms(m_terms);
    const kernels::KernelTable& kernel = kernels::active();
    m_streaming = 2 * planes.pixels >= kernels::streamFromBytes;
    m_mergeUniform = m_streaming ? kernel.mergePackedUniformStreaming : kernel.mergePackedUniform;
    m_mergePlanes = m_streaming ? kernel.mergePackedPlanesStreaming : kernel.mergePackedPlanes;
  }

  void startCounting(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged) {
    static_assert(mergeBlock <= JointHistogram::mostPixels);
    m_statistics.emplace(low, high, merged, m_terms.rule, m_terms.isUniform ? &m_terms.uniform : nullptr,
                         m_planes.pixels);
  }
  bool counts() const { return m_statistics.has_value(); }

  void run(const StreamRun& run) { merge(run); }
  void share(const std::uint8_t* packed, std::size_t pairs) {
    merge({{packed, packed}, {pairs, pairs}, false, 0, {}});
  }

  void finish() {
    if (m_streaming) kernels::active().finishStreaming();
    if (m_statistics) m_statistics->finish();
  }

 private:
  void merge(const StreamRun& run) {
    constexpr std::size_t most = mergeBlock / 2;
    for (std::size_t done = 0; done < run.pairs[0]; done += most) {
      const std::size_t bytes = bytesPerPair * done;
      const kernels::PackedPair block = {run.packed[0] + bytes,
                                         run.packed[1] + bytes,
                                         std::min(run.pairs[0] - done, most),
                                         m_planes.low != nullptr ? m_planes.low + m_done : nullptr,
                                         m_planes.high != nullptr ? m_planes.high + m_done : nullptr,
                                         reinterpret_cast<unsigned short*>(m_planes.merged) + m_done,
                                         run.counted ? &m_statistics->notes() : nullptr};
      if (m_terms.isUniform)
        m_mergeUniform(block, m_terms.rule, m_terms.uniform);
      else
        m_mergePlanes(block, m_terms.rule, m_terms.planesAt(m_done));
      if (run.counted) {
        const int x = static_cast<int>(2 * done);
        const int y = static_cast<int>(run.row);
        m_statistics->add(
            block, {x, y, static_cast<int>(m_regions.prePixels) + x, static_cast<int>(m_regions.preRows) + y},
            {run.ahead.bytes, run.ahead.length});
      }
      m_done += 2 * block.pairs;
    }
  }

  PairPlanes m_planes;
  const FrameRegions& m_regions;
  MergeTerms m_terms;
  bool m_streaming;
  decltype(kernels::KernelTable::mergePackedUniform) m_mergeUniform;
  decltype(kernels::KernelTable::mergePackedPlanes) m_mergePlanes;
  std::size_t m_done = 0;  ///< pixels of each plane
  std::optional<JointHistogram> m_statistics;
};

}  // namespace

OnePassMerge::OnePassMerge(CCustomMergeAlgo* algorithm, const FrameGeometry& geometry,
                           const StreamLayout& layout)
    : m_algorithm(asOwnMerge(algorithm)), m_layout(layout), m_regions(geometry) {}

/// A sensor's stream may differ from the regions that its metadata states; merged statistics follow the
/// latter.
bool OnePassMerge::imageIsWhereTheMetaDataHasIt() const {
  const StreamSection& above = m_layout.sections[0];
  const StreamSection& image = m_layout.sections[1];
  const std::uint64_t rowsAbove = above.rows / 2;
  const std::uint64_t rowAbove = std::uint64_t{above.before} + above.pixels + above.after + above.shared;
  const std::uint64_t row = std::uint64_t{image.before} + image.pixels + image.after + image.shared;
  return rowsAbove * rowAbove == std::uint64_t{m_regions.preRows} * m_regions.frameWidth &&
         image.rows / 2 == m_regions.imageHeight && image.before == m_regions.prePixels &&
         image.pixels == m_regions.imageWidth &&
         row == std::uint64_t{m_regions.prePixels} + m_regions.imageWidth + m_regions.postPixels;
}

bool OnePassMerge::fits(const PairPlanes& planes) const {
  if (m_algorithm == nullptr) return false;
  const ReferenceMerge merge = handOut(*m_algorithm);
  return !merge.hasBias && (merge.startRow == 0 || merge.startRow < merge.height) && merge.fitsKernels() &&
         merge.rule.additiveFractionBits <= kernels::packedFractionBits &&
         merge.pixelsAvailable() >= planes.pixels &&
         reinterpret_cast<std::uintptr_t>(planes.merged) % alignof(unsigned short) == 0 &&
         m_layout.hasWholePairsOnly() && m_layout.pixelsOfEach() == planes.pixels &&
         imageIsWhereTheMetaDataHasIt();
}

int OnePassMerge::run(SourceBytes source, const PairPlanes& planes, unsigned short* mergedBuffer,
                      CFrameStatistics* lowStatistics, CFrameStatistics* highStatistics) {
  const bool counting = lowStatistics != nullptr && highStatistics != nullptr;
  m_algorithm->EnableStatistics(counting);
  const ReferenceMerge merge = handOut(*m_algorithm);
  MergeSink sink(merge, planes, m_regions);
  if (counting) {
    merge.statistics->Reset();
    sink.startCounting(*lowStatistics, *highStatistics, *merge.statistics);
  }
  StreamWalk<2, MergeSink>(source, sink).walk(m_layout);
  sink.finish();
  if (counting) merge.statistics->Compute();
  return finishMergedFrame(*m_algorithm, mergedBuffer, planes.pixels);
}

}  // namespace orvacam
