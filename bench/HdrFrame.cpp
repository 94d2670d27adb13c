#include "HdrFrame.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "Compare.h"
#include "simulator/Scene.h"

namespace orvacam::bench {

namespace {

namespace sim = orvacam::simulator;

constexpr unsigned int tileSide = 512;

double fixedPoint(double value, unsigned int fractionBits) {
  return std::floor(std::ldexp(value, static_cast<int>(fractionBits))) *
         std::ldexp(1.0, -static_cast<int>(fractionBits));
}

/// The same few stars again and again: as good as many, and soon made.
Plane tiled(const Plane& tile, unsigned int tileSize, unsigned int side) {
  Plane plane(std::size_t{side} * side);
  for (std::size_t y = 0; y < side; ++y)
    for (std::size_t x = 0; x < side; ++x)
      plane[y * side + x] = tile[y % tileSize * tileSize + x % tileSize];
  return plane;
}

void fillWithNoise(Plane& low, Plane& high) {
  unsigned int bits = 54321;
  for (std::size_t i = 0; i < low.size(); ++i) {
    bits = bits * 1664525 + 1013904223;
    low[i] = static_cast<unsigned short>(bits >> 20);
    high[i] = static_cast<unsigned short>(bits >> 8 & 4095);
  }
}

double corrected(unsigned short pixel, double additive, double multiplicative) {
  const double sum = std::max(std::min(pixel + additive, 32767.0 / 8), 0.0);
  return std::min(std::round(sum * multiplicative), 65535.0);
}

}  // namespace

HdrFrame::HdrFrame(unsigned int frameSide, Scene itsScene)
    : side(frameSide), scene(itsScene), headerBytes(0), gainRatio(1.0) {
  const sim::Camera& camera = *sim::findCamera("GSENSE4040");
  sim::HeaderFields fields = *sim::headerFor(camera, "hdr");
  const unsigned int tile = std::min(tileSide, side);
  fields.width = fields.height = tile;
  const std::vector<sim::Plane> sky = sim::exposeSky(camera, fields, sim::Sky());
  fields.width = fields.height = side;
  low = tiled(sky[0], tile, side);
  high = tiled(sky[1], tile, side);
  if (scene == Scene::RandomPixels) fillWithNoise(low, high);
  bytes = sim::encodeFrame(fields, 3, {low, high});
  headerBytes = sim::writeHeader(fields, 3).size();

  CMergeSettings settings;
  settings.Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
  gainRatio = fixedPoint(settings.GetGainRatio(fields.lowGain, fields.highGain), 10);

  addLow.resize(pixels());
  addHigh.resize(pixels());
  mulLow.resize(pixels());
  mulHigh.resize(pixels());
  unsigned int bits = 12345;
  for (std::size_t i = 0; i < pixels(); ++i) {
    bits = bits * 1664525 + 1013904223;
    addLow[i] = static_cast<short>(bits >> 28);
    addHigh[i] = static_cast<short>(-static_cast<short>(bits >> 24 & 63));
    mulLow[i] = static_cast<unsigned short>(6400 + (bits >> 16 & 63));
    mulHigh[i] = static_cast<unsigned short>(1024 + (bits >> 12 & 15));
  }
}

const HdrFrame& hdrFrame(unsigned int side, Scene scene) {
  static std::unique_ptr<const HdrFrame> frame;
  if (frame == nullptr || frame->side != side || frame->scene != scene) {
    frame.reset();
    frame = std::make_unique<const HdrFrame>(side, scene);
  }
  return *frame;
}

void PlainMerge::run(const HdrFrame& frame, bool termsPerPixel) {
  // Rows of both gains take turns.
  const unsigned char* packed = frame.bytes.data() + frame.headerBytes;
  for (std::size_t row = 0; row < 2 * std::size_t{frame.side}; ++row) {
    Plane& plane = row % 2 == 0 ? low : high;
    for (std::size_t i = row / 2 * frame.side; i < (row / 2 + 1) * frame.side; i += 2, packed += 3) {
      plane[i] = static_cast<unsigned short>(packed[0] << 4 | packed[1] >> 4);
      plane[i + 1] = static_cast<unsigned short>((packed[1] & 15) << 8 | packed[2]);
    }
  }
  for (std::size_t i = 0; i < merged.size(); ++i) {
    const double lowTerm = termsPerPixel ? frame.addLow[i] / 8.0 : 0.0;
    const double highTerm = termsPerPixel ? frame.addHigh[i] / 8.0 : 0.0;
    const double correctedLow =
        corrected(low[i], lowTerm, termsPerPixel ? frame.mulLow[i] / 1024.0 : frame.gainRatio);
    const double correctedHigh =
        corrected(high[i], highTerm, termsPerPixel ? frame.mulHigh[i] / 1024.0 : 1.0);
    const bool takeLow = correctedHigh >= 3700 || correctedLow - correctedHigh > 128;
    merged[i] = static_cast<unsigned short>(takeLow ? correctedLow : correctedHigh);
  }
}

}  // namespace orvacam::bench
