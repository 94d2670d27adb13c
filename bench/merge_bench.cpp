// One frame in memory: MergeImage, by kernel table, size and what is asked for.

#include <benchmark/benchmark.h>
#include <orvacam.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Benchmarks.h"
#include "Compare.h"
#include "HdrFrame.h"
#include "Memory.h"

namespace {

using namespace orvacam::bench;
struct MergeCase {
  const char* name;
  bool statistics;
  bool termsPerPixel;
  bool mergedOnly;
  std::size_t bytesPerPixel;  ///< read and written
  bool fromMalloc = false;    ///< planes 16 bytes behind a cache line, where malloc puts large blocks
  Scene scene = Scene::Stars;
};

constexpr MergeCase threePlanes = {"MergeImage, three planes", false, false, false, 9};
constexpr MergeCase threePlanesCounted = {"MergeImage, three planes, statistics", true, false, false, 9};
constexpr MergeCase otherCases[] = {
    {"MergeImage, three planes from malloc", false, false, false, 9, true},
    {"MergeImage, three planes from malloc, statistics", true, false, false, 9, true},
    {"MergeImage, three planes, statistics, random pixels", true, false, false, 9, false,
     Scene::RandomPixels},
    {"MergeImage, three planes, terms per pixel", false, true, false, 17},
    {"MergeImage, three planes, terms per pixel, statistics", true, true, false, 17},
    {"MergeImage, merged plane alone", false, false, true, 5},
    {"MergeImage, merged plane alone, statistics", true, false, true, 5}};

/// A caller with a camera, its buffers and a frame.
class Merging {
 public:
  Merging(const HdrFrame& frame, const MergeCase& what) : m_frame(frame), m_what(what), m_bytes(frame.bytes) {
    m_merged.resize(frame.pixels(), what.fromMalloc);
    m_algo.Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
    if (what.termsPerPixel) {
      HdrFrame& terms = const_cast<HdrFrame&>(frame);  // the record has no const pointers; nothing is written
      ref_frames_t frames{frame.side,           frame.side,          terms.addLow.data(),
                          terms.addHigh.data(), terms.mulLow.data(), terms.mulHigh.data()};
      m_algo.SetHWMergeReferenceFrames(&frames, true);  // sets the height, too
      require(m_algo.SetHWMergeReferenceFrames(&frames, false) == 0, "status of the terms");
    }
    if (!what.mergedOnly) {
      m_low.resize(frame.pixels(), what.fromMalloc);
      m_high.resize(frame.pixels(), what.fromMalloc);
      m_images.pLowImage = m_low.data();
      m_images.pHighImage = m_high.data();
      m_images.ulLowImageSize = m_images.ulHighImageSize = 2 * frame.pixels();
      m_images.bLowImageRequest = m_images.bHighImageRequest = true;
    }
    m_images.pMergedImage = m_merged.data();
    m_images.ulMergedImageSize = 2 * frame.pixels();
    m_images.bMergedImageRequest = true;
    m_stats.statsLow.bRequest = m_stats.statsHigh.bRequest = what.statistics && !what.mergedOnly;
    m_stats.statsMerged.bRequest = what.statistics;
  }
  Merging(const Merging&) = delete;
  Merging& operator=(const Merging&) = delete;
  ~Merging() { m_algo.FreeStatsPointers(&m_stats); }

  void run() {
    const int status =
        m_algo.MergeImage(m_bytes.data(), m_bytes.size(), &m_images, m_what.statistics ? &m_stats : nullptr);
    require(status == 0, "MergeImage's status");
  }

  void check(const PlainMerge& expected) const {
    require(m_merged.holds(expected.merged), "merged plane");
    if (!m_what.mergedOnly)
      require(m_low.holds(m_frame.low) && m_high.holds(m_frame.high), "unpacked planes");
    if (!m_what.statistics) return;
    checkStatistics(m_stats.statsMerged, expected.merged);
    if (m_what.mergedOnly) return;
    checkStatistics(m_stats.statsLow, m_frame.low);
    checkStatistics(m_stats.statsHigh, m_frame.high);
  }

 private:
  static void checkStatistics(const image_plane_stats_t& stats, const Plane& plane) {
    std::vector<double> histogram(65536);
    double sum = 0;
    for (const unsigned short pixel : plane) {
      sum += pixel;
      histogram[pixel] += 1;
    }
    require(stats.dMean == sum / static_cast<double>(plane.size()), "mean");
    require(stats.uiMin == *std::min_element(plane.begin(), plane.end()), "smallest pixel");
    require(stats.uiMax == *std::max_element(plane.begin(), plane.end()), "largest pixel");
    require(stats.pHistogram != nullptr &&
                std::equal(stats.pHistogram, stats.pHistogram + stats.uiHistogramSize, histogram.begin()),
            "histogram");
  }

  const HdrFrame& m_frame;
  const MergeCase& m_what;
  std::vector<unsigned char> m_bytes;
  PlaneMemory m_low, m_high, m_merged;
  CAlgo m_algo;
  unpacked_images_t m_images{};
  unpacked_stats_t m_stats{};
};

void mergeImage(benchmark::State& state, const MergeCase& what, unsigned int side, bool comparePlain) {
  const HdrFrame& frame = hdrFrame(side, what.scene);
  Merging merging(frame, what);
  PlainMerge plain(frame.pixels());
  merging.run();
  plain.run(frame, what.termsPerPixel);
  merging.check(plain);
  const std::size_t allocated = bytesAllocatedBy([&] { merging.run(); });
  const double grown = residentGrowthOf([&] { Merging(frame, what).run(); });

  std::vector<Contender> others;
  if (comparePlain) others.push_back({"plain loop", [&] { plain.run(frame, what.termsPerPixel); }, true});
  constexpr std::size_t pixelsTimed = 1UL << 20;
  compareWithCopies(
      state, what.bytesPerPixel * frame.pixels(), [&] { merging.run(); }, others,
      std::max<std::size_t>(1, pixelsTimed / frame.pixels()));
  state.counters["allocated"] = static_cast<double>(allocated);
  state.counters["grown"] = grown;
  state.counters["given"] =
      static_cast<double>(frame.bytes.size() + (what.mergedOnly ? 2 : 6) * frame.pixels());
}

void addMergeImage(const MergeCase& what, unsigned int side, bool comparePlain = false) {
  addRowForTables(what.name, side, [&what, side, comparePlain](benchmark::State& state) {
    mergeImage(state, what, side, comparePlain);
  });
}

}  // namespace

void orvacam::bench::addMergeImageRows(bool small) {
  const unsigned int full = fullSide(small);
  addMergeImage(threePlanes, full, true);
  addMergeImage(threePlanesCounted, full);
  for (const MergeCase& what : otherCases)
    addMergeImage(what, full);
  const std::vector<unsigned int> otherSides =
      small ? std::vector<unsigned int>{64} : std::vector<unsigned int>{64, 512, 1024, 2048, 8192};
  for (const unsigned int side : otherSides)
    for (const MergeCase* const what : {&threePlanes, &threePlanesCounted})
      addMergeImage(*what, side);
}
