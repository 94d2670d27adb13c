#include "frames/OnePassMerge.h"

#include <orvacam/merge/CHWMergeReferenceFrames.h>

#include <algorithm>
#include <optional>
#include <typeinfo>

#include "kernels/Kernels.h"
#include "statistics/JointHistogram.h"

namespace orvacam {

namespace {

constexpr std::size_t packedBytes(std::size_t pixels) {
  return pixels / 2 * bytesPerPair;
}

/// Null unless the algorithm is exactly the camera's own: a class derived from it may merge by another rule.
CHWMergeReferenceFrames* asCamerasOwn(CCustomMergeAlgo* algorithm) {
  if (algorithm == nullptr || typeid(*algorithm) != typeid(CHWMergeReferenceFrames)) return nullptr;
  return static_cast<CHWMergeReferenceFrames*>(algorithm);
}

}  // namespace

/// One frame on its way.
class OnePassMerge::Pass {
 public:
  Pass(const CHWMergeReferenceFrames& algorithm, const unsigned char* source, const PairPlanes& planes)
      : m_source(source), m_planes(planes) {
    algorithm.DoTakeTerms(m_terms);
    const kernels::KernelTable& kernel = kernels::active();
    m_streaming = 2 * planes.pixels >= kernels::streamFromBytes;
    m_mergeUniform = m_streaming ? kernel.mergePackedUniformStreaming : kernel.mergePackedUniform;
    m_mergePlanes = m_streaming ? kernel.mergePackedPlanesStreaming : kernel.mergePackedPlanes;
  }

  void gather(CFrameStatistics& low, CFrameStatistics& high, CFrameStatistics& merged) {
    static_assert(mergeBlock <= JointHistogram::mostPixels);
    m_statistics.emplace(low, high, merged, m_terms.rule, m_terms.isUniform ? &m_terms.uniform : nullptr,
                         m_planes.pixels);
  }

  void section(const StreamSection& section, const FrameRegions& regions) {
    const std::size_t row = std::size_t{section.before} + section.pixels + section.after;
    m_rowPairBytes = 2 * packedBytes(row) + packedBytes(section.shared);
    const bool counted = section.counted && m_statistics;
    for (unsigned int y = 0; 2 * y < section.rows; ++y) {
      const unsigned char* const low = m_source;
      const unsigned char* const high = low + packedBytes(row);
      if (counted) {
        pixels(low, high, section.before, nullptr);
        const RunPlace place = {0, static_cast<int>(y), static_cast<int>(regions.prePixels),
                                static_cast<int>(regions.preRows + y)};
        pixels(low + packedBytes(section.before), high + packedBytes(section.before), section.pixels, &place);
        const std::size_t done = packedBytes(section.before) + packedBytes(section.pixels);
        pixels(low + done, high + done, section.after, nullptr);
      } else {
        pixels(low, high, row, nullptr);
      }
      const unsigned char* const shared = high + packedBytes(row);
      pixels(shared, shared, section.shared, nullptr);
      m_source = shared + packedBytes(section.shared);
    }
  }

  void finish() {
    if (m_streaming) kernels::active().finishStreaming();
    if (m_statistics) m_statistics->finish();
  }

 private:
  void pixels(const unsigned char* low, const unsigned char* high, std::size_t count, const RunPlace* place) {
    for (std::size_t done = 0; done < count;) {
      const std::size_t now = std::min<std::size_t>(count - done, mergeBlock);
      block(low + packedBytes(done), high + packedBytes(done), now, place, static_cast<int>(done));
      done += now;
    }
  }

  void block(const unsigned char* low, const unsigned char* high, std::size_t count, const RunPlace* place,
             int column) {
    const kernels::PackedPair run = {low,
                                     high,
                                     count / 2,
                                     m_planes.low != nullptr ? m_planes.low + m_done : nullptr,
                                     m_planes.high != nullptr ? m_planes.high + m_done : nullptr,
                                     reinterpret_cast<unsigned short*>(m_planes.merged) + m_done,
                                     place != nullptr ? &m_statistics->notes() : nullptr};
    if (m_terms.isUniform)
      m_mergeUniform(run, m_terms.rule, m_terms.uniform);
    else
      m_mergePlanes(run, m_terms.rule, m_terms.planesAt(m_done));
    if (place != nullptr)
      m_statistics->add(run, {place->x + column, place->y, place->mergedX + column, place->mergedY},
                        {m_source + m_rowPairBytes, m_rowPairBytes});
    m_done += count;
  }

  const unsigned char* m_source;  ///< of the row pair
  std::size_t m_rowPairBytes = 0;
  PairPlanes m_planes;
  MergeTerms m_terms;
  bool m_streaming;
  decltype(kernels::KernelTable::mergePackedUniform) m_mergeUniform;
  decltype(kernels::KernelTable::mergePackedPlanes) m_mergePlanes;
  std::size_t m_done = 0;  ///< pixels of each plane
  std::optional<JointHistogram> m_statistics;
};

OnePassMerge::OnePassMerge(CCustomMergeAlgo* algorithm, const CFrameMetaData& metaData,
                           const StreamLayout& layout)
    : m_algorithm(asCamerasOwn(algorithm)), m_layout(layout), m_regions(metaData) {}

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
  if (m_algorithm == nullptr || m_algorithm->m_pBiasLow != nullptr || m_algorithm->m_pBiasHigh != nullptr)
    return false;
  const bool offsetInside = m_algorithm->m_uiMergeStartRowOffset == 0 ||
                            m_algorithm->m_uiMergeStartRowOffset < m_algorithm->m_uiHeight;
  return offsetInside && m_algorithm->DoFitsKernels() &&
         m_algorithm->m_uiAddFracBits <= kernels::packedFractionBits &&
         m_algorithm->DoPixelsAvailable() >= planes.pixels &&
         reinterpret_cast<std::uintptr_t>(planes.merged) % alignof(unsigned short) == 0 &&
         m_layout.hasWholePairsOnly() && m_layout.pixelsOfEach() == planes.pixels &&
         imageIsWhereTheMetaDataHasIt();
}

int OnePassMerge::run(const unsigned char* source, const PairPlanes& planes, unsigned short* mergedBuffer,
                      CFrameStatistics* lowStatistics, CFrameStatistics* highStatistics) {
  const bool counting = lowStatistics != nullptr && highStatistics != nullptr;
  m_algorithm->EnableStatistics(counting);
  Pass pass(*m_algorithm, source, planes);
  if (counting) {
    m_algorithm->m_MergedStatistics.Reset();
    pass.gather(*lowStatistics, *highStatistics, m_algorithm->m_MergedStatistics);
  }
  for (const StreamSection& section : m_layout.sections)
    pass.section(section, m_regions);
  pass.finish();
  if (counting) m_algorithm->m_MergedStatistics.Compute();
  return m_algorithm->DoFinishFrame(mergedBuffer, planes.pixels);
}

}  // namespace orvacam
