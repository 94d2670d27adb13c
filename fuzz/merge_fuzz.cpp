// The merge algorithms and bias frames, called directly with sizes and terms of all kinds.

#include <orvacam.h>

#include <cmath>
#include <memory>

#include "fuzz_support.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;
using fuzz::Pixels;

/// A correction term: mostly one that means something.
double term(Input& input) {
  const unsigned int kind = input.byte();
  if (kind == 255) return input.real();
  return static_cast<short>(input.word()) / (kind < 128 ? 8.0 : 1024.0);
}

unsigned int fractionBits(Input& input) {
  const unsigned int bits = input.byte();
  return bits < 250 ? bits % 20 : 3000000000u;
}

CFrameMetaData headerOf(Input& input) {
  CFrameMetaData metaData;
  metaData.ReInitialize(true);
  const unsigned int width = 1 + input.upTo(20), height = 1 + input.upTo(10);
  metaData.SetDimensions(width, height);
  for (const ORVA_META_KEYS key :
       {ORVA_META_KEY_PRE_ROW_REF_PIXELS, ORVA_META_KEY_POST_ROW_REF_PIXELS, ORVA_META_KEY_PRE_REFERENCE_ROWS,
        ORVA_META_KEY_POST_REFERENCE_ROWS, ORVA_META_KEY_LDR_GAIN, ORVA_META_KEY_HDR_GAIN})
    metaData.SetValue(key, std::to_string(input.upTo(5)));
  if (input.byte() > 250) {  // any header at all
    Bytes bytes = input.bytes(384);
    metaData.Parse(bytes.data(), fuzz::length(bytes));
  }
  return metaData;
}

/// The statistics that a merge leaves lie within what it could have merged.
void requireSaneStatistics(const CCustomMergeAlgo& algo, std::size_t pixels) {
  Pixels none;
  std::vector<double> histogram(100);
  image_plane_stats_t stats{};
  stats.pHistogram = histogram.data();
  stats.uiHistogramSize = 100;
  algo.GetMergedStats(stats);
  double counted = 0;
  for (const double count : histogram)
    counted += count;
  FUZZ_REQUIRE(counted <= static_cast<double>(pixels));
  if (stats.uiMin <= stats.uiMax && !std::isnan(stats.dMean))
    FUZZ_REQUIRE(stats.uiMin <= stats.dMean && stats.dMean <= stats.uiMax);
}

/// One merge into an output of exactly the size that the algorithm asks for, and one byte of which none
/// may be missing. The output starts at an even or at an odd place behind its header.
template <typename Algo>
int mergeOnce(Algo& algo, Pixels& low, Pixels& high, Pixels& merged) {
  hw_merge_enables_t enables{};
  algo.GetMergeEnables(enables);
  unsigned int leading = 0, trailing = 0;
  algo.GetMergeHeaderSize(static_cast<ORVA_IMAGE_FORMAT>(enables.uiImageFormat), low.size(), 16, leading,
                          trailing);
  const std::size_t bytes = leading + 2 * low.size() + trailing;
  const std::unique_ptr<unsigned char[]> room(new unsigned char[bytes]());
  const int status =
      algo.MergeFrames(low.data(), high.data(), reinterpret_cast<unsigned short*>(room.get()), low.size());
  const bool behind =
      enables.uiImageFormat == ORVA_IMAGE_FORMAT_TIFF ||
      (enables.uiImageFormat == ORVA_IMAGE_FORMAT_FITS && !std::is_same<Algo, CMergeAlgoLegacy>::value);
  merged.assign(low.size(), 0);
  if (!low.empty()) std::memcpy(merged.data(), room.get() + (behind ? leading : 0), 2 * low.size());
  return status;
}

void setPlanes(CHWMergeReferenceFrames& algo, Input& input, unsigned int width, unsigned int height) {
  const unsigned int which = input.byte();
  const unsigned int pixels = width * height;
  for (unsigned int plane = 0; plane < 4; ++plane) {
    if ((which >> plane & 1) == 0) continue;
    const bool right = (which >> 7 & 1) == 0;
    const unsigned int count = right ? pixels : input.upTo(300);
    const Pixels values = input.pixels(count);
    const auto* const terms = reinterpret_cast<const short*>(values.data());
    int status = 0;
    if (plane == 0) status = algo.SetAdditiveLowFromBuffer(terms, count);
    if (plane == 1) status = algo.SetAdditiveHighFromBuffer(terms, count);
    if (plane == 2) status = algo.SetMultiplicativeLowFromBuffer(values.data(), count);
    if (plane == 3) status = algo.SetMultiplicativeHighFromBuffer(values.data(), count);
    FUZZ_REQUIRE(status == 0 || status == -1);
    if (count != pixels) FUZZ_REQUIRE(status == -1);
    if (count == pixels && count > 0) FUZZ_REQUIRE(status == 0);
  }
}

/// Any state after a merge: planes of the caller's, another width, a start row, copies.
void mergeInAnyState(CHWMergeReferenceFrames& algo, Input& input, unsigned int width, unsigned int height,
                     Pixels& low, Pixels& high) {
  setPlanes(algo, input, width, height);
  if (input.flag()) algo.SetFrameWidth(input.hostile());
  algo.SetStartRowOffset(input.hostile());
  CHWMergeReferenceFrames other(algo);
  Pixels merged, again;
  const int first = mergeOnce(algo, low, high, merged);
  FUZZ_REQUIRE(mergeOnce(other, low, high, again) == first && again == merged);
  if (input.flag()) algo.ClearFrames();
  algo.MergeNoStats(low.data(), high.data(), merged.data(), low.size());
  algo.MergeWithStats(low.data(), high.data(), merged.data(), low.size());
  other = algo;
  other.MergeNoStats(low.data(), high.data(), again.data(), low.size());
  FUZZ_REQUIRE(again == merged);
  const unsigned int testWidth = input.upTo(31), testHeight = input.upTo(13);
  Pixels testLow(testWidth * testHeight), testHigh(testWidth * testHeight);
  algo.MergeFrames(testLow.data(), testHigh.data(), testWidth, testHeight, input.byte());
  unsigned short a = 0, b = 0;
  algo.GetSourcePixels(input.hostile(), a, b);
}

void hardwareMerge(Input& input) {
  CHWMergeReferenceFrames algo;
  const CFrameMetaData metaData = headerOf(input);
  algo.SetMetaData(metaData);
  const unsigned int width = 1 + input.upTo(30), height = 1 + input.upTo(12);
  const double addLow = term(input), addHigh = term(input), mulLow = term(input), mulHigh = term(input);
  const unsigned int addBits = fractionBits(input), mulBits = fractionBits(input);
  const double addStep = input.byte() > 200 ? term(input) : 0, mulStep = input.byte() > 200 ? term(input) : 0;
  ref_frames_t planes{};
  const int made = algo.CreateIdentityFrames(width, height, addLow, addHigh, mulLow, mulHigh, addBits,
                                             mulBits, addStep, mulStep, &planes);
  FUZZ_REQUIRE(made == 0 && planes.uiWidth == width && planes.uiHeight == height);
  // The rule with what was handed out: uniform and stepped terms come out as they are used.
  const std::size_t pixels = input.upTo(width * height);
  Pixels low = input.pixels(pixels), high = input.pixels(pixels), merged;
  const auto highThreshold = static_cast<unsigned short>(input.word());
  const auto difference = static_cast<unsigned short>(input.word());
  algo.SetMergeThresholds(highThreshold, difference);
  hw_merge_enables_t enables{0, input.upTo(3), input.upTo(3)};
  algo.SetMergeEnables(enables);
  algo.EnableStatistics(input.flag());
  const int status = mergeOnce(algo, low, high, merged);
  if (enables.uiImageFormat == 0 && pixels > 0) FUZZ_REQUIRE(status == 0);
  const double most = CHWMergeReferenceFrames::PositiveIntMax(addBits);
  // FITS pixels are in the other byte order.
  const auto stored = [&](unsigned int v) {
    return enables.uiImageFormat == 2 ? static_cast<unsigned short>(v >> 8 | v << 8) : v;
  };
  for (std::size_t i = 0; status == 0 && i < pixels; ++i) {
    const int l = algo.CorrectPixel(low[i], planes.pAdditiveLow[i], planes.pMultiplicativeLow[i], most);
    const int h = algo.CorrectPixel(high[i], planes.pAdditiveHigh[i], planes.pMultiplicativeHigh[i], most);
    const bool takeLow =
        enables.uiMergeType == 1 || (enables.uiMergeType != 2 && (h >= highThreshold || l - h > difference));
    FUZZ_REQUIRE(merged[i] == stored(static_cast<unsigned int>(takeLow ? l : h)));
  }
  requireSaneStatistics(algo, pixels);
  delete[] planes.pAdditiveLow;
  delete[] planes.pAdditiveHigh;
  delete[] planes.pMultiplicativeLow;
  delete[] planes.pMultiplicativeHigh;
  mergeInAnyState(algo, input, width, height, low, high);
}

void biasFrames(Input& input) {
  CHWMergeReferenceFrames algo;
  algo.SetMetaData(headerOf(input));
  unsigned int width = 0, height = 0;
  const bool known = algo.GetMetaData().GetFrameDimensionsBinned(width, height) == 0;
  if (!known || width > 64 || height > 64) return;
  const Pixels bias = input.pixels(std::size_t{width} * height);
  FUZZ_REQUIRE(algo.SetBiasFrames(width + 1, height, bias.data(), nullptr) == -1);
  FUZZ_REQUIRE(algo.SetBiasFrames(width, height, bias.data(), input.flag() ? bias.data() : nullptr) == 0);
  // A plane of another shape than the bias frame.
  const unsigned int planeWidth = input.upTo(70), planeHeight = input.upTo(70);
  Pixels plane(std::size_t{planeWidth} * planeHeight, static_cast<unsigned short>(input.word()));
  const Pixels before = plane;
  const auto statistics = std::make_unique<CFrameStatistics>();
  algo.ApplyBiasFrame(plane.data(), planeWidth, planeHeight, *statistics, false);
  for (std::size_t i = 0; i < plane.size(); ++i) {
    // Whole rows that the bias frame covers.
    const bool covered = (i / planeWidth + 1) * planeWidth <= bias.size();
    const int corrected = covered ? std::max(0, before[i] - bias[i]) : before[i];
    FUZZ_REQUIRE(plane[i] == corrected);
  }
  algo.ApplyBiasFrame(plane.data(), planeWidth, planeHeight, *statistics, true);
  algo.ApplyBiasFrame(nullptr, 5000, 5000, *statistics, false);
  FUZZ_REQUIRE(algo.SetBiasFrames(1, 1, nullptr, nullptr) == 0);
}

void requireLookedUp(const Pixels& merged, const Pixels& low, const Pixels& high,
                     const CMergeMappingArray& map) {
  for (std::size_t i = 0; i < merged.size(); ++i) {
    const bool inside = low[i] < map.GetWidth() && high[i] < map.GetHeight();
    FUZZ_REQUIRE(merged[i] == (inside ? map.GetData()[high[i] * map.GetWidth() + low[i]] : 0));
  }
}

void legacyMerge(Input& input) {
  constexpr unsigned int devices[] = {ORVA_DEVICE_GSENSE400, ORVA_DEVICE_GSENSE2020, ORVA_DEVICE_GSENSE4040,
                                      ORVA_DEVICE_GSENSE6060, ORVA_DEVICE_IMX183};
  CMergeSettings settings;
  settings.Initialize({devices[input.upTo(4)], input.flag()}, nullptr);
  CMergeAlgoLegacy algo;
  if (input.byte() != 0) algo.SetMergeSettings(&settings);
  CFrameMetaData metaData = headerOf(input);
  const unsigned int bits = 1 + input.upTo(16);
  metaData.SetBitsPerPixel(bits);
  metaData.SetValue(ORVA_META_KEY_SENSOR_COOLER_TEMP, std::to_string(static_cast<int>(input.number())));
  algo.SetMetaData(metaData);
  algo.SetMergeEnables({0, input.upTo(3), 0});
  algo.EnableStatistics(input.flag());
  const std::size_t pixels = input.upTo(400);
  const auto mask = static_cast<unsigned short>(0xFFFF >> input.upTo(15));
  Pixels low = input.pixels(pixels), high = input.pixels(pixels), merged;
  for (std::size_t i = 0; i < pixels; ++i) {  // values of random bits lie outside most arrays
    low[i] &= mask;
    high[i] &= mask;
  }
  const int status = mergeOnce(algo, low, high, merged);
  FUZZ_REQUIRE(status == 0 || status == -1);
  requireSaneStatistics(algo, pixels);
  // Whatever way it goes about it, the merge looks pixels up in the mapping array; larger ones take their
  // time.
  if (status == 0 && bits <= 7) {
    const CMergeMappingArray* const array = algo.GetMergeSettings()->GenerateMergeMappingArrays(
        bits, metaData.Value(ORVA_META_KEY_LDR_GAIN).GetValueUint(),
        metaData.Value(ORVA_META_KEY_HDR_GAIN).GetValueUint(),
        metaData.Value(ORVA_META_KEY_SENSOR_COOLER_TEMP).GetValueInt() / 10.0);
    FUZZ_REQUIRE(array != nullptr);
    requireLookedUp(merged, low, high, *array);
  }

  CMergeMappingArray map;
  const unsigned int width = input.upTo(40), height = input.upTo(40);
  map.Create(width, height);
  for (std::size_t i = 0; i < std::size_t{width} * height; ++i)
    map.GetData()[i] = static_cast<unsigned short>(i);
  const unsigned int source = input.hostile(), destination = input.hostile();
  map.CopyRow(source, destination);
  algo.DoMergeWithStats(&map, low.data(), high.data(), merged.data(), pixels);
  requireLookedUp(merged, low, high, map);
  requireSaneStatistics(algo, pixels);
}

}  // namespace

FUZZ_TARGET(data, size) {
  Input input(data, size);
  switch (input.upTo(2)) {
    case 0:
      hardwareMerge(input);
      break;
    case 1:
      biasFrames(input);
      break;
    default:
      legacyMerge(input);
  }
  return 0;
}
