// A frame of the input's geometry and pixels, encoded by the simulator and decoded by the library: planes,
// statistics and merge are what went in.

#include <orvacam.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "fuzz_support.h"
#include "simulator/Encoder.h"

namespace {

namespace sim = orvacam::simulator;
using fuzz::Bytes;
using fuzz::Input;

constexpr const char* models[] = {"VS400",         "VS2020",      "VS4040", "VS6060", "ARGENT 230-42",
                                  "ARGENT 230-84", "ARGENT 4320", "IMX183", "PLAIN"};

sim::HeaderFields fieldsOf(Input& input) {
  sim::HeaderFields f;
  f.model = models[input.upTo(8)];
  const sim::Sensor sensor = sim::sensorOf(f.model);
  const bool gsense = sensor != sim::Sensor::Ccd && sensor != sim::Sensor::Other;
  const unsigned int flags = input.byte();
  f.hdr = gsense && (flags & 1) != 0;
  const bool deep = !gsense || ((flags & 2) != 0 && !f.hdr && sensor != sim::Sensor::Gsense400);
  f.dataBits = f.sensorBits = deep ? 16 : 12;
  f.width = 1 + input.upTo(70);
  f.height = 1 + input.upTo(20);
  f.quadrants = (flags & 4) != 0 ? 0x3C : 4u << input.upTo(3);
  if (f.quadrants == 0x3C) f.height += f.height % 2;  // the middle row of an odd height is not read
  if (gsense) {
    f.preRefPixels = sensor == sim::Sensor::Gsense6060 || !f.hdr ? input.upTo(5) : 0;
    f.postRefPixels = input.upTo(5);
    f.preRefRows = input.upTo(3);
    f.postRefRows = input.upTo(3);
  }
  f.lowGain = input.upTo(7);
  f.highGain = input.upTo(7);
  f.pixelOrdered = (flags & 8) != 0;
  f.startRow = input.upTo(3);
  f.startColumn = input.upTo(40);
  return f;
}

/// The correction of one pixel by one gain ratio.
unsigned int corrected(unsigned int pixel, double ratio) {
  const double most = CHWMergeReferenceFrames::PositiveIntMax(3);
  return CHWMergeReferenceFrames::LimitPixel(std::min<double>(pixel, most) * ratio);
}

void compareMerged(const unpacked_images_t& images, const std::vector<sim::Plane>& planes, double ratio) {
  // The ratio as the merge has it, in fixed point.
  const double kept =
      CHWMergeReferenceFrames::ConvertToDouble(CHWMergeReferenceFrames::ConvertToFixedPoint(ratio, 10), 10);
  for (std::size_t i = 0; i < planes[0].size(); ++i) {
    const unsigned int low = corrected(planes[0][i], kept), high = corrected(planes[1][i], 1);
    const bool takeLow = high >= 3700 || low > high + 128;
    FUZZ_REQUIRE(images.pMergedImage[i] == (takeLow ? low : high));
  }
}

void compareStatistics(const image_plane_stats_t& stats, const std::vector<std::uint16_t>& pixels) {
  double sum = 0, squares = 0;
  for (const std::uint16_t pixel : pixels) {
    sum += pixel;
    squares += static_cast<double>(pixel) * pixel;
  }
  const auto count = static_cast<double>(pixels.size());
  FUZZ_REQUIRE(stats.dMean == sum / count);
  FUZZ_REQUIRE(std::fabs(stats.dStdDev -
                         std::sqrt(std::max(0.0, squares / count - sum / count * sum / count))) < 1e-3);
  FUZZ_REQUIRE(stats.uiMin == *std::min_element(pixels.begin(), pixels.end()));
  FUZZ_REQUIRE(stats.uiMax == *std::max_element(pixels.begin(), pixels.end()));
}

/// The planes of a frame, and the image pixels of each, which are counted.
struct Scene {
  std::vector<sim::Plane> planes;
  std::vector<std::uint16_t> counted[2];
};

Scene sceneOf(const sim::Layout& layout, const Bytes& rest) {
  Scene scene;
  std::size_t next = 0;
  scene.planes = sim::makePlanes(layout, [&](const sim::PixelPlace& place) {
    const std::size_t at = next;
    next += 3;
    if (rest.empty()) return static_cast<std::uint16_t>(at & 4095);
    const std::size_t value = rest[at % rest.size()] * 256u + rest[(at + 5) % rest.size()] + at / rest.size();
    const auto pixel =
        static_cast<std::uint16_t>(layout.packing == sim::Packing::Packed12 ? value & 4095 : value);
    if (place.image) scene.counted[place.plane].push_back(pixel);
    return pixel;
  });
  return scene;
}

/// What was delivered is what went in.
void comparePlanes(const sim::HeaderFields& fields, const Scene& scene, unsigned int height,
                   const unpacked_images_t& images, const unpacked_stats_t& stats) {
  const std::vector<sim::Plane>& planes = scene.planes;
  const std::size_t pixels = planes[0].size();
  FUZZ_REQUIRE(std::memcmp(images.pLowImage, planes[0].data(), 2 * pixels) == 0);
  if (planes.size() != 2) return;
  FUZZ_REQUIRE(std::memcmp(images.pHighImage, planes[1].data(), 2 * pixels) == 0);
  // Identity frames are as large as the frame: behind a start row there are too few of them.
  const bool enough = fields.startRow == 0 || fields.startRow >= height;
  if (fields.hdr && enough) compareMerged(images, planes, 40.0);  // the ratio before any camera is known
  if (!fields.hdr || !enough)
    FUZZ_REQUIRE(
        std::all_of(images.pMergedImage, images.pMergedImage + pixels, [](int p) { return p == 0; }));
  if (fields.width % 2 != 0 || scene.counted[0].empty()) return;
  compareStatistics(stats.statsLow, scene.counted[0]);
  compareStatistics(stats.statsHigh, scene.counted[1]);
}

}  // namespace

FUZZ_TARGET(data, size) {
  Input input(data, size);
  const unsigned int version = 1 + input.upTo(3);
  const sim::HeaderFields fields = sim::asVersion(fieldsOf(input), version);
  const sim::Layout layout = sim::layoutOf(fields);
  const unsigned int cut = input.word();

  const Scene scene = sceneOf(layout, input.rest());
  Bytes frame = sim::encodeFrame(fields, version, scene.planes);

  const auto owner = std::make_unique<CAlgo>();
  CAlgo& algo = *owner;
  unpacked_images_t images{};
  images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = true;
  const int status = algo.MergeImage(frame.data(), frame.size(), &images, &stats);

  // Odd runs of packed pixels make a plane longer than the frame says: there is no room for them.
  CFrameMetaData metaData;
  FUZZ_REQUIRE(metaData.Parse(frame.data(), fuzz::length(frame)) == 0);
  unsigned int width = 0, height = 0;
  FUZZ_REQUIRE(metaData.GetFrameDimensionsBinned(width, height) == 0);
  const bool noAmplifier = layout.packing == sim::Packing::Ccd && fields.quadrants == 0;
  const bool decodes = scene.planes[0].size() <= std::size_t{width} * height && !noAmplifier;
  FUZZ_REQUIRE(status == (decodes ? 0 : -1));
  if (decodes) comparePlanes(fields, scene, height, images, stats);
  algo.FreeStatsPointers(&stats);

  // The same frame cut short is never taken for whole.
  Bytes shorter(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(cut % frame.size()));
  if (layout.packing != sim::Packing::Plain16)
    FUZZ_REQUIRE(algo.MergeImage(shorter.data(), shorter.size(), &images, nullptr) == -1);
  algo.FreeFramePointers(&images);
  return 0;
}
