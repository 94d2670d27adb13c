// The face in several threads: decoders of their own, frames and headers that they share, planes that are let
// go elsewhere.

#include <gtest/gtest.h>

#include <orvacam.hpp>
#include <string>
#include <vector>

#include "gain/CalibrationBlock.h"
#include "simulator/Encoder.h"
#include "simulator/Header.h"
#include "threads/Together.h"

namespace {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;

constexpr int rounds = 20;

Bytes frameBytes(unsigned int gain, unsigned int seed) {
  sim::HeaderFields fields;
  fields.model = "VESTRA VS4040";
  fields.hdr = true;
  fields.width = 64;
  fields.height = 48;
  fields.lowGain = fields.highGain = gain;
  const sim::Layout layout = sim::layoutOf(fields);
  unsigned int state = seed;
  const auto planes = sim::makePlanes(layout, [&](const sim::PixelPlace&) {
    state = state * 1664525u + 1013904223u;
    return static_cast<std::uint16_t>((state >> 16) % 4096);
  });
  return sim::encodeFrame(fields, 3, planes);
}

std::vector<std::uint16_t> pixelsOf(const orvacam::Plane& plane) {
  return {plane.data(), plane.data() + std::size_t{plane.size().width} * plane.size().height};
}

}  // namespace

TEST(FaceThreads, DecodersWithOtherCalibrationsDecodeOneSharedFrame) {
  const Bytes bytes = frameBytes(2, 1);
  const orvacam::Frame frame = orvacam::Frame::view(bytes.data(), bytes.size());
  const auto mergedWith = [&](unsigned int low) {
    orvacam::Decoder decoder;
    const Bytes block = CalibrationBlock::ofGain(2, 1, low);
    if (low != 0) decoder.calibration(block.data(), block.size());
    return pixelsOf(decoder.decode(frame).merged);
  };
  const std::vector<std::vector<std::uint16_t>> expected = {mergedWith(0), mergedWith(10), mergedWith(20),
                                                            mergedWith(30)};
  together(4, [&](std::size_t i) {
    for (int round = 0; round < rounds; ++round)
      EXPECT_EQ(mergedWith(static_cast<unsigned int>(10 * i)), expected[i]);
  });
}

TEST(FaceThreads, FramesHeadersAndFindingsAreShared) {
  Bytes bytes = frameBytes(2, 1);
  bytes.push_back('x');
  const orvacam::Frame frame = orvacam::Frame::copy(bytes.data(), bytes.size());
  const orvacam::Plane plane = orvacam::Decoder().decode(frame).high;
  together(4, [&](std::size_t) {
    for (int round = 0; round < rounds; ++round) {
      const orvacam::Frame copy = frame;
      EXPECT_EQ(copy.check().size(), 1u);
      EXPECT_EQ(copy.planes().size(), 3u);
      EXPECT_FALSE(copy.header().to_text().empty());
      EXPECT_FALSE(copy.header().to_json().empty());
      const orvacam::Plane other = plane;
      EXPECT_EQ(other.header().number("TestIsHighFrame"), 1);  // made by whoever comes first
    }
  });
}

TEST(FaceThreads, PlanesAreLetGoElsewhere) {
  const Bytes bytes = frameBytes(2, 1);
  const orvacam::Frame frame = orvacam::Frame::view(bytes.data(), bytes.size());
  orvacam::Decoder decoder;
  const auto expected = pixelsOf(decoder.decode(frame).merged);
  for (int round = 0; round < rounds; ++round) {
    std::vector<orvacam::Decoded> given;
    for (int i = 0; i < 3; ++i)
      given.push_back(decoder.decode(frame));
    together(3, [&](std::size_t i) {
      orvacam::Decoded mine = std::move(given[i]);
      EXPECT_EQ(pixelsOf(mine.merged), expected);
    });
  }
}

TEST(FaceThreads, ReasonsAreEachThreadsOwn) {
  together(4, [](std::size_t i) {
    for (int round = 0; round < rounds; ++round)
      try {
        const std::string path = "/no/such/file/" + std::to_string(i);
        orvacam::Frame::read(path);
        ADD_FAILURE();
      } catch (const orvacam::Error& error) {
        EXPECT_EQ(error.path(), "/no/such/file/" + std::to_string(i));
      }
  });
}
