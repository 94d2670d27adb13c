// What is beside the usual merge: planes that are unpacked only, a CCD that is read through four corners, and
// the merge by mapping array.

#include <benchmark/benchmark.h>
#include <orvacam.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "Benchmarks.h"
#include "Compare.h"
#include "HdrFrame.h"
#include "simulator/Scene.h"

namespace {

using namespace orvacam::bench;
namespace sim = orvacam::simulator;

/// Both planes of an HDR frame, without a merge.
void hdrPlanes(benchmark::State& state, unsigned int side) {
  const HdrFrame& hdr = hdrFrame(side);
  std::vector<unsigned char> bytes = hdr.bytes;
  CFrameMetaData header;
  require(header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size())) >= 0, "header");
  const std::unique_ptr<IFrame> frame(CFrameFactory::Create(header));
  frame->Initialize(header, bytes.data(), bytes.size(), nullptr);
  PlaneMemory low;
  PlaneMemory high;
  low.resize(hdr.pixels());
  high.resize(hdr.pixels());
  unpacked_images_t images{};
  images.pLowImage = low.data();
  images.pHighImage = high.data();
  images.ulLowImageSize = images.ulHighImageSize = 2 * hdr.pixels();
  images.bLowImageRequest = images.bHighImageRequest = true;
  const auto unpack = [&] { require(frame->Unpack(&images) == 0, "Unpack"); };
  unpack();
  require(low.holds(hdr.low) && high.holds(hdr.high), "unpacked planes");
  compareWithCopies(state, 7 * hdr.pixels(), unpack);
}

/// The planes of a CCD frame, with its statistics, which are gathered whether asked for or not.
void ccdFrame(benchmark::State& state, unsigned int side) {
  sim::HeaderFields fields = *sim::headerFor(*sim::findCamera("CCD230-84"), "single");
  fields.width = fields.height = side;
  const sim::Plane plane = hdrFrame(side).high;
  std::vector<unsigned char> bytes = sim::encodeFrame(fields, 3, {plane});

  CFrameMetaData header;
  require(header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size())) >= 0, "header");
  const std::unique_ptr<IFrame> frame(CFrameFactory::Create(header));
  frame->Initialize(header, bytes.data(), bytes.size(), nullptr);
  Plane low(plane.size());
  unpacked_images_t images{};
  images.pLowImage = low.data();
  images.ulLowImageSize = 2 * low.size();
  images.bLowImageRequest = true;
  const auto unpack = [&] { require(frame->Unpack(&images) == 0, "Unpack"); };
  unpack();
  require(low == plane, "plane of a CCD");
  image_plane_stats_t stats{};
  frame->GetLowFrameStats(stats);
  require(stats.uiMax == *std::max_element(plane.begin(), plane.end()), "statistics of a CCD");
  compareWithCopies(state, 4 * plane.size(), unpack);
}

void legacyMerge(benchmark::State& state, unsigned int side) {
  HdrFrame frame(side);
  CMergeAlgoLegacy algo;
  CMergeSettings& settings = *algo.GetMergeSettings();
  settings.Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
  CFrameMetaData header;
  require(header.Parse(frame.bytes.data(), static_cast<unsigned int>(frame.bytes.size())) >= 0, "header");
  algo.SetMetaData(header);
  Plane merged(frame.pixels());
  const auto merge = [&] {
    require(algo.MergeFrames(frame.low.data(), frame.high.data(), merged.data(), merged.size()) == 0,
            "MergeFrames");
  };
  merge();
  const CMergeMappingArray& map = *settings.GenerateMergeMappingArrays(
      12, header.Value(ORVA_META_KEY_LDR_GAIN).GetValueUint(),
      header.Value(ORVA_META_KEY_HDR_GAIN).GetValueUint(),
      header.Value(ORVA_META_KEY_SENSOR_COOLER_TEMP).GetValueInt() / 10.0);
  const auto mergeByMap = [&] {
    for (std::size_t i = 0; i < merged.size(); ++i)
      merged[i] = map.GetData()[std::size_t{frame.high[i]} * map.GetWidth() + frame.low[i]];
  };
  const Plane own = merged;
  mergeByMap();
  require(own == merged, "merge by mapping array");
  compareWithCopies(state, 6 * frame.pixels(), merge, {{"plain loop", mergeByMap, true}});
}

}  // namespace

void orvacam::bench::addOtherFrameRows(bool small) {
  const unsigned int side = fullSide(small);
  addRowForTables("HDR frame into two planes", side,
                  [side](benchmark::State& state) { hdrPlanes(state, side); });
  addRowForTables("legacy merge, 12-bit", side,
                  [side](benchmark::State& state) { legacyMerge(state, side); });
  addRowForTables("CCD by quadrants, with statistics", side,
                  [side](benchmark::State& state) { ccdFrame(state, side); });
}
