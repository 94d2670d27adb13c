// The face in several threads: decoders of their own, frames and headers that they share, planes that are let
// go elsewhere.

#include <gtest/gtest.h>

#include <orvacam.hpp>
#include <string>
#include <thread>
#include <vector>

#include "simulator/Encoder.h"
#include "simulator/Header.h"

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

/// A camera's calibration block with one value for each channel.
Bytes calibrationBlock(unsigned int gain, unsigned int high, unsigned int low) {
  Bytes block = {'M', 'e', 't', 'a', 0, 44, 0, 2};
  const auto put = [&](unsigned int value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
      block.push_back(static_cast<unsigned char>(value >> shift));
  };
  for (int i = 0; i < 4; ++i)
    put(1000, 4);
  for (const unsigned int count : {1, 1, 0, 0})
    put(count, 2);
  for (const unsigned int electrons : {high, low}) {
    put(gain, 2);
    put(electrons * 10000, 4);
  }
  return block;
}

std::vector<std::uint16_t> pixelsOf(const orvacam::Plane& plane) {
  return {plane.data(), plane.data() + std::size_t{plane.size().width} * plane.size().height};
}

template <typename Work>
void inThreads(int count, const Work& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i)
    threads.emplace_back([&work, i] { work(i); });
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace

TEST(FaceThreads, DecodersWithOtherCalibrationsDecodeOneSharedFrame) {
  const Bytes bytes = frameBytes(2, 1);
  const orvacam::Frame frame = orvacam::Frame::view(bytes.data(), bytes.size());
  const auto mergedWith = [&](unsigned int low) {
    orvacam::Decoder decoder;
    const Bytes block = calibrationBlock(2, 1, low);
    if (low != 0) decoder.calibration(block.data(), block.size());
    return pixelsOf(decoder.decode(frame).merged);
  };
  const std::vector<std::vector<std::uint16_t>> expected = {mergedWith(0), mergedWith(10), mergedWith(20),
                                                            mergedWith(30)};
  inThreads(4, [&](int i) {
    for (int round = 0; round < rounds; ++round)
      EXPECT_EQ(mergedWith(static_cast<unsigned int>(10 * i)), expected[static_cast<std::size_t>(i)]);
  });
}

TEST(FaceThreads, FramesHeadersAndFindingsAreShared) {
  Bytes bytes = frameBytes(2, 1);
  bytes.push_back('x');
  const orvacam::Frame frame = orvacam::Frame::copy(bytes.data(), bytes.size());
  const orvacam::Plane plane = orvacam::Decoder().decode(frame).high;
  inThreads(4, [&](int) {
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
    inThreads(3, [&](int i) {
      orvacam::Decoded mine = std::move(given[static_cast<std::size_t>(i)]);
      EXPECT_EQ(pixelsOf(mine.merged), expected);
    });
  }
}

TEST(FaceThreads, ReasonsAreEachThreadsOwn) {
  inThreads(4, [](int i) {
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
