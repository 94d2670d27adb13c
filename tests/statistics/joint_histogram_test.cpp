// The statistics of both gains and their merge, gathered together, against those gathered pixel by pixel.

#include "statistics/JointHistogram.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "statistics/NaiveStatistics.h"
#include "statistics/PlaneCounts.h"
#include "support/FaultInjector.h"

namespace {

namespace kernels = orvacam::kernels;

using frame_testing::NaiveStatistics;
using Pixels = std::vector<std::uint16_t>;

constexpr kernels::MergeRule rule = {3, 10, 3700, 128, 0};
constexpr kernels::UniformTerms uniformTerms = {-5, 9, 6450, 1030};

/// Rows of both gains: a sky whose level may rise, or anything.
enum Scene { Sky, RisingSky, SkyThenNoise, Noise, BrighterAndBrighter };

struct FrameCase {
  Scene scene;
  unsigned int width, height;
  bool uniform;
  bool withoutMemory;
};

std::uint16_t pixelOf(const FrameCase& frame, unsigned int y, bool high, std::mt19937& random) {
  const auto bits = static_cast<unsigned int>(random());
  const unsigned int noise = bits % 8 + (bits >> 3) % 8;
  const auto sky = [&](unsigned int level) {
    return static_cast<std::uint16_t>(std::min(high ? level + 8 * noise : level / 20 + noise / 3, 4095u));
  };
  if (bits >> 20 == 7) return static_cast<std::uint16_t>(bits >> 8 & 4095);  // a star
  switch (frame.scene) {
    case RisingSky:
      return sky(200 + 3000 * y / frame.height);
    case SkyThenNoise:
      return y < frame.height / 2 ? sky(500) : static_cast<std::uint16_t>(bits >> 8 & 4095);
    case Noise:
      return static_cast<std::uint16_t>(bits >> 8 & 4095);
    case BrighterAndBrighter:  // each row has a new maximum
      return static_cast<std::uint16_t>(std::min(y * 4095 / frame.height + noise % 2, 4095u));
    default:
      return sky(500);
  }
}

std::vector<std::uint8_t> packed(const Pixels& pixels) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < pixels.size(); i += 2)
    for (const unsigned int byte :
         {pixels[i] >> 4, (pixels[i] & 15) << 4 | pixels[i + 1] >> 8, pixels[i + 1] & 255})
      bytes.push_back(static_cast<std::uint8_t>(byte));
  return bytes;
}

/// Terms of a row's pixels, each its own.
struct RowOfTerms {
  explicit RowOfTerms(unsigned int width)
      : additive(width), multiplicativeLow(width), multiplicativeHigh(width, 1024) {
    for (unsigned int x = 0; x < width; ++x) {
      additive[x] = static_cast<std::int16_t>(x % 16);
      multiplicativeLow[x] = static_cast<std::uint16_t>(6400 + x % 64);
    }
  }
  kernels::PlaneTerms planes() const {
    return {additive.data(), additive.data(), multiplicativeLow.data(), multiplicativeHigh.data()};
  }
  std::vector<std::int16_t> additive;
  Pixels multiplicativeLow, multiplicativeHigh;
};

void expectSame(CFrameStatistics& statistics, NaiveStatistics& naive) {
  statistics.Compute();
  std::vector<double> histogram(65535, -1.0);
  image_plane_stats_t stats{};
  stats.pHistogram = histogram.data();
  stats.uiHistogramSize = 65535;
  orvacam::copyResults(statistics, stats);
  frame_testing::expectSame(stats, naive);
}

/// Gathers a frame's statistics both ways.
void compare(const FrameCase& frame) {
  const kernels::KernelTable& kernel = kernels::active();
  const auto statistics = std::make_unique<CFrameStatistics[]>(3);
  CFrameStatistics &low = statistics[0], &high = statistics[1], &merged = statistics[2];
  NaiveStatistics naive[3];
  const RowOfTerms terms(frame.width);
  std::mt19937 random(7);
  Pixels rows[3] = {Pixels(frame.width), Pixels(frame.width), Pixels(frame.width)};
  std::vector<std::vector<std::uint8_t>> bytes;
  for (unsigned int y = 0; y < 2 * frame.height; ++y) {
    for (std::uint16_t& pixel : rows[0])
      pixel = pixelOf(frame, y / 2, y % 2 == 1, random);
    bytes.push_back(packed(rows[0]));
  }

  std::optional<faults::Failing> failing;
  if (frame.withoutMemory) failing.emplace(0, faults::Extent::FromThenOn);
  orvacam::JointHistogram joint(low, high, merged, rule, frame.uniform ? &uniformTerms : nullptr,
                                std::size_t{frame.width} * frame.height);
  for (int y = 0; y < static_cast<int>(frame.height); ++y) {
    const kernels::PackedPair run = {bytes[2 * y].data(), bytes[2 * y + 1].data(), frame.width / 2,
                                     rows[0].data(),      rows[1].data(),          rows[2].data(),
                                     &joint.notes()};
    if (frame.uniform)
      kernel.mergePackedUniform(run, rule, uniformTerms);
    else
      kernel.mergePackedPlanes(run, rule, terms.planes());
    joint.add(run, {3, y, 4, 5 + y}, {nullptr, 0});
    for (int x = 0; x < static_cast<int>(frame.width); ++x) {
      naive[0].add(rows[0][x], 3 + x, 2 * y);
      naive[1].add(rows[1][x], 3 + x, 2 * y + 1);
      naive[2].add(rows[2][x], 4 + x, 5 + y);
    }
  }
  joint.finish();
  if (frame.withoutMemory) {
    const bool had = faults::Failing::had(faults::Call::New);
    failing.reset();
    EXPECT_TRUE(had);
  }
  for (unsigned int plane = 0; plane < 3; ++plane) {
    SCOPED_TRACE(::testing::Message() << "plane " << plane);
    expectSame(statistics[plane], naive[plane]);
  }
}

TEST(JointHistogram, GathersWhatPixelByPixelSumsGive) {
  for (const Scene scene : {Sky, RisingSky, SkyThenNoise, Noise, BrighterAndBrighter})
    for (const auto& [width, height] : {std::pair(4096u, 64u), std::pair(1022u, 200u), std::pair(64u, 64u)})
      for (const bool uniform : {true, false}) {
        SCOPED_TRACE(::testing::Message()
                     << "scene " << scene << ", width " << width << ", uniform " << uniform);
        compare({scene, width, height, uniform, false});
        if (HasFatalFailure() || HasNonfatalFailure()) return;
      }
}

TEST(JointHistogram, GathersTheSameWithoutMemoryOfItsOwn) {
  for (const Scene scene : {Sky, SkyThenNoise})
    for (const bool uniform : {true, false}) {
      SCOPED_TRACE(::testing::Message() << "scene " << scene << ", uniform " << uniform);
      compare({scene, 2048, 128, uniform, true});
    }
}

TEST(JointHistogram, TakesNoMemoryForASmallFrame) {
  const auto statistics = std::make_unique<CFrameStatistics[]>(3);
  const faults::MemoryWatch watch;
  const orvacam::JointHistogram small(statistics[0], statistics[1], statistics[2], rule, &uniformTerms,
                                      65536);
  EXPECT_EQ(watch.bytes(), 0u);
  const orvacam::JointHistogram large(statistics[0], statistics[1], statistics[2], rule, &uniformTerms,
                                      1U << 24);
  EXPECT_GT(watch.bytes(), 0u);
  EXPECT_LE(watch.bytes(), 560u * 1024);
}

TEST(StatisticsWithoutMemory, AreTheSame) {
  // A plane that is large and quiet enough for neighbours to be counted in pairs.
  const auto statistics = std::make_unique<CFrameStatistics>();
  NaiveStatistics naive;
  std::mt19937 random(3);
  Pixels row(2048);
  std::optional<faults::Failing> failing(std::in_place, 0, faults::Extent::FromThenOn);
  for (int y = 0; y < 60; ++y) {
    for (std::uint16_t& pixel : row)
      pixel = static_cast<std::uint16_t>(900 + random() % 12);
    orvacam::addRow(*statistics, row.data(), row.size(), 0, y);
    for (std::size_t x = 0; x < row.size(); ++x)
      naive.add(row[x], static_cast<int>(x), y);
  }
  const bool had = faults::Failing::had(faults::Call::New);
  failing.reset();
  EXPECT_TRUE(had);
  expectSame(*statistics, naive);
}

}  // namespace
