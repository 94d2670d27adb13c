// Statistics of a plane against sums worked out pixel by pixel.

#include <gtest/gtest.h>
#include <orvacam/statistics/CFrameStatistics.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "statistics/NaiveStatistics.h"
#include "statistics/PlaneCounts.h"

namespace {

using namespace frame_testing;

image_plane_stats_t resultsOf(const CFrameStatistics& statistics) {
  image_plane_stats_t stats{};
  orvacam::copyResults(statistics, stats);
  return stats;
}

std::vector<double> histogramOf(const CFrameStatistics& statistics) {
  std::vector<double> histogram(65535, -1.0);
  image_plane_stats_t stats{};
  stats.pHistogram = histogram.data();
  stats.uiHistogramSize = 65535;
  orvacam::copyResults(statistics, stats);
  return histogram;
}

class Statistics : public ::testing::Test {
 protected:
  std::unique_ptr<CFrameStatistics> owner = std::make_unique<CFrameStatistics>();
  CFrameStatistics& statistics = *owner;
};

TEST_F(Statistics, OfNoPixelsAreNotNumbersAndTheModeIsZero) {
  statistics.Compute();
  const image_plane_stats_t stats = resultsOf(statistics);
  EXPECT_TRUE(std::isnan(stats.dMean));
  EXPECT_TRUE(std::isnan(stats.dStdDev));
  EXPECT_EQ(stats.dMode, 0.0);
  EXPECT_EQ(stats.uiMax, 0u);
  EXPECT_EQ(stats.uiMin, 65535u);
  EXPECT_EQ(stats.dMidpoint, 2147516416.0);  // 65535 + (1 - 65535 >> 1), in 32 bits without a sign
  EXPECT_EQ(stats.uiLowClip, 0u);
  EXPECT_EQ(stats.uiHighClip, 0u);
}

TEST_F(Statistics, AreNoLargerThanAHistogramOfDoubles) {
  // A frame has three of them and a façade two: several of these stand side by side on a caller's stack.
  EXPECT_LE(sizeof(CFrameStatistics), 65535 * sizeof(double) + 4096);
}

TEST_F(Statistics, OfOneValueAreThatValue) {
  for (int i = 0; i < 100; ++i)
    statistics.AddPixel(1234, {i, 5});
  statistics.Compute();
  const image_plane_stats_t stats = resultsOf(statistics);
  EXPECT_EQ(stats.dMean, 1234.0);
  EXPECT_EQ(stats.dStdDev, 0.0);
  EXPECT_EQ(stats.dMode, 1234.0);
  EXPECT_EQ(stats.uiLowClip, 1234u);
  EXPECT_EQ(stats.uiHighClip, 1234u);
  EXPECT_EQ(stats.dMidpoint, 1234.0);  // 1234 + (1 >> 1)
}

TEST_F(Statistics, TheLowestOfEqualPeaksIsTheMode) {
  for (const unsigned short value : {9, 7, 9, 7, 8})
    statistics.AddPixel(value, {0, 0});
  statistics.Compute();
  EXPECT_EQ(resultsOf(statistics).dMode, 7.0);
}

TEST_F(Statistics, TheFirstOfSeveralExtremesGivesThePosition) {
  statistics.AddPixels(10, {1, 1}, 500, {2, 1});
  statistics.AddPixels(500, {3, 1}, 10, {4, 1});
  statistics.Compute();
  const image_plane_stats_t stats = resultsOf(statistics);
  EXPECT_EQ(stats.maxPoint.x, 2);
  EXPECT_EQ(stats.minPoint.x, 1);
}

TEST_F(Statistics, APlaneOfZerosKeepsTheMaximumPositionAtTheOrigin) {
  statistics.AddPixel(0, {5, 6});
  statistics.Compute();
  EXPECT_EQ(resultsOf(statistics).maxPoint.x, 0);
  EXPECT_EQ(resultsOf(statistics).minPoint.x, 5);
}

TEST_F(Statistics, SquaresFrom46341OnAreNegative) {
  // 46341^2 is the first square beyond a signed 32-bit number: it counts as 2147488281 - 2^32.
  for (const unsigned short value : {46340, 46341}) {
    statistics.Reset();
    statistics.AddPixel(value, {0, 0});
    statistics.AddPixel(0, {1, 0});
    statistics.Compute();
    const double square = value == 46340 ? 2147395600.0 : -2147479015.0;
    const double variance = (square - static_cast<double>(value) * value / 2) / 2;
    if (variance < 0)
      EXPECT_TRUE(std::isnan(resultsOf(statistics).dStdDev));
    else
      EXPECT_EQ(resultsOf(statistics).dStdDev, std::sqrt(variance));
  }
}

TEST_F(Statistics, TheValue65535CountsWithoutAHistogramEntry) {
  statistics.AddPixel(65535, {3, 4});
  statistics.AddPixel(65534, {5, 4});
  statistics.Compute();
  std::vector<double> histogram(65540, -1.0);
  image_plane_stats_t stats{};
  stats.pHistogram = histogram.data();
  stats.uiHistogramSize = 65540;
  orvacam::copyResults(statistics, stats);
  EXPECT_EQ(stats.uiMax, 65535u);
  EXPECT_EQ(stats.maxPoint.x, 3);
  EXPECT_EQ(stats.dMean, 65534.5);
  EXPECT_EQ(stats.dMode, 65534.0);
  EXPECT_EQ(histogram[65534], 1.0);
  EXPECT_EQ(histogram[65535], -1.0);  // 65535 entries, from 0 on
}

TEST_F(Statistics, OnlyThatValueGivesNoMode) {
  statistics.AddPixel(65535, {0, 0});
  statistics.Compute();
  EXPECT_EQ(resultsOf(statistics).dMode, 0.0);
  EXPECT_EQ(resultsOf(statistics).uiMax, 65535u);
}

TEST_F(Statistics, DeliverNoMoreEntriesThanTheRecordHas) {
  statistics.AddPixel(0, {0, 0});
  statistics.AddPixel(2, {0, 0});
  statistics.AddPixel(2, {0, 0});
  std::vector<double> histogram(4, -1.0);
  image_plane_stats_t stats{};
  stats.pHistogram = histogram.data();
  stats.uiHistogramSize = 3;
  stats.bRequest = true;
  orvacam::copyResults(statistics, stats);
  EXPECT_EQ(histogram, (std::vector<double>{1, 0, 2, -1}));
  EXPECT_TRUE(stats.bRequest);
}

TEST_F(Statistics, ResetForgetsEverythingButTheClipPoints) {
  for (int i = 0; i < 50; ++i)
    statistics.AddPixel(static_cast<unsigned short>(100 + i), {i, 0});
  statistics.Compute();
  const image_plane_stats_t before = resultsOf(statistics);
  statistics.Reset();
  statistics.Compute();
  const image_plane_stats_t after = resultsOf(statistics);
  EXPECT_EQ(after.uiLowClip, before.uiLowClip);
  EXPECT_EQ(after.uiHighClip, before.uiHighClip);
  EXPECT_EQ(after.maxPoint.x, 0);
  EXPECT_EQ(histogramOf(statistics), std::vector<double>(65535, 0.0));
}

TEST_F(Statistics, OfRandomPlanesAreThoseOfPixelByPixelSums) {
  std::mt19937 random(20240517);
  for (const unsigned int largest : {1u, 255u, 4095u, 46340u, 65535u}) {
    statistics.Reset();
    NaiveStatistics naive;
    std::vector<unsigned short> row(123);
    for (int y = 0; y < 40; ++y) {
      for (unsigned short& value : row)
        value = static_cast<unsigned short>(random() % (largest + 1));
      if (y % 2 == 0) {
        orvacam::addRow(statistics, row.data(), row.size(), 7, y);
      } else {
        for (std::size_t i = 0; i < row.size(); ++i)
          statistics.AddPixel(row[i], {7 + static_cast<int>(i), y});
      }
      for (std::size_t i = 0; i < row.size(); ++i)
        naive.add(row[i], 7 + static_cast<int>(i), y);
    }
    statistics.Compute();
    SCOPED_TRACE(largest);
    expectSame(resultsOf(statistics), naive);
  }
}

TEST(StatisticsMemory, WhatItHeldBeforeIsNotCounted) {
  // Counts are cleared when values come within the range, in whatever order they come.
  struct alignas(CFrameStatistics) Memory {
    unsigned char bytes[sizeof(CFrameStatistics)];
  };
  const auto memory = std::make_unique<Memory>();
  std::memset(memory->bytes, 0xA5, sizeof memory->bytes);
  auto* const statistics = new (memory->bytes) CFrameStatistics();
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(histogramOf(*statistics), std::vector<double>(65535, 0.0));
    const unsigned short row[] = {30000, 200, 200, 65535, 0, 65534};
    NaiveStatistics naive;
    statistics->AddPixel(40000, {9, 0});
    naive.add(40000, 9, 0);
    orvacam::addRow(*statistics, row, 6, 0, 1);
    for (int i = 0; i < 6; ++i)
      naive.add(row[i], i, 1);
    statistics->Compute();
    expectSame(resultsOf(*statistics), naive);
    naive.histogram.resize(65535);
    EXPECT_EQ(histogramOf(*statistics), naive.histogram);
    statistics->Reset();
  }
  statistics->~CFrameStatistics();
}

TEST_F(Statistics, CopiesGoOnByThemselves) {
  const unsigned short row[] = {500, 510, 505, 505};
  orvacam::addRow(statistics, row, 4, 0, 0);
  const auto copy = std::make_unique<CFrameStatistics>(statistics);
  statistics.AddPixel(5000, {1, 1});
  copy->AddPixel(100, {2, 2});
  copy->Compute();
  EXPECT_EQ(resultsOf(*copy).uiMax, 510u);
  EXPECT_EQ(resultsOf(*copy).dMode, 505.0);
  EXPECT_EQ(resultsOf(*copy).dMean, 424.0);  // 2120 / 5
  std::vector<double> expected(65535, 0.0);
  expected[100] = expected[500] = expected[510] = 1;
  expected[505] = 2;
  EXPECT_EQ(histogramOf(*copy), expected);

  *copy = *copy;  // NOLINT: to itself
  EXPECT_EQ(histogramOf(*copy), expected);
  statistics.Reset();
  *copy = statistics;
  EXPECT_EQ(histogramOf(*copy), std::vector<double>(65535, 0.0));
}

TEST_F(Statistics, OfLongRunsOfOneValueAreExact) {
  const std::vector<unsigned short> row(100003, 65535);
  const std::vector<unsigned short> other(100003, 3);
  NaiveStatistics naive;
  for (int y = 0; y < 3; ++y) {
    orvacam::addRow(statistics, row.data(), row.size(), 0, y);
    orvacam::addRow(statistics, other.data(), other.size(), 0, 100 + y);
  }
  naive.count = 600018;
  naive.histogram[65535] = naive.histogram[3] = 300009;
  naive.sum = 300009.0 * 65538;
  naive.squares = 300009.0 * (9 - 131071);  // 65535^2 is 2^32 - 131071
  naive.max = 65535;
  naive.min = 3;
  naive.minPoint = {0, 100};
  statistics.Compute();
  expectSame(resultsOf(statistics), naive);
}

// ---- Long rows with little noise: neighbours are counted in pairs, in a window that follows the plane

/// A plane whose level, noise and share of bright pixels change from rows to rows.
struct Level {
  unsigned int rows;
  unsigned int around, noise;
  unsigned int brightOneIn;  ///< 0 = none
};

unsigned short pixelOf(const Level& level, std::mt19937& random) {
  const auto bits = static_cast<std::uint32_t>(random());
  if (level.brightOneIn != 0 && bits % level.brightOneIn == 0) return static_cast<unsigned short>(random());
  const unsigned int noise = level.noise == 0 ? 0 : (bits >> 8) % level.noise + (bits >> 20) % level.noise;
  return static_cast<unsigned short>(std::min(level.around + noise, 65535u));
}

const Level quiet = {80, 1000, 8, 0};
const std::vector<std::vector<Level>> planesWithLittleNoise = {
    {quiet},
    {{100, 500, 6, 60}},                                                        // stars
    {{90, 65500, 10, 50}},                                                      // next to the largest value
    {{90, 0, 3, 50}},                                                           // next to the smallest
    {{70, 100, 10, 0}, {70, 140, 10, 0}, {70, 3000, 10, 0}, {70, 100, 10, 0}},  // steps
    {{60, 700, 9, 0}, {10, 0, 30000, 0}, {200, 700, 9, 0}},                     // rows of anything in between
    {{60, 700, 9, 0}, {60, 700, 9, 3}, {120, 700, 9, 20}},  // too many outside, then fewer
    {{90, 2000, 33, 0}},                                    // a little too wide
    {{150, 4095, 0, 0}},                                    // one value
};

TEST_F(Statistics, OfPlanesWithLittleNoiseAreThoseOfPixelByPixelSums) {
  std::mt19937 random(11);
  for (std::size_t plane = 0; plane < planesWithLittleNoise.size(); ++plane)
    for (const unsigned int width : {255u, 256u, 1024u, 1027u, 8192u + 3}) {
      SCOPED_TRACE(::testing::Message() << "plane " << plane << ", width " << width);
      NaiveStatistics naive;
      std::vector<unsigned short> row(width);
      statistics.Reset();
      int y = 0;
      for (const Level& level : planesWithLittleNoise[plane])
        for (const int end = y + static_cast<int>(level.rows); y < end; ++y) {
          for (unsigned short& pixel : row)
            pixel = pixelOf(level, random);
          orvacam::addRow(statistics, row.data(), width, 7, y);
          for (unsigned int x = 0; x < width; ++x)
            naive.add(row[x], 7 + static_cast<int>(x), y);
          if (y % 37 != 36) continue;
          statistics.AddPixel(row[1], {1, y});  // and one by itself
          naive.add(row[1], 1, y);
        }
      std::vector<double> expected = naive.histogram;
      expected.resize(65535);
      EXPECT_EQ(histogramOf(statistics), expected) << "not yet computed";
      statistics.Compute();
      EXPECT_EQ(histogramOf(statistics), expected);
      expectSame(resultsOf(statistics), naive);
      if (HasFailure()) return;
    }
}

TEST_F(Statistics, GoOnAfterResultsAndInCopiesWhilePairsAreCounted) {
  std::mt19937 random(12);
  NaiveStatistics naive;
  std::vector<unsigned short> row(2048);
  const auto addRow = [&](int y) {
    for (unsigned short& pixel : row)
      pixel = pixelOf(quiet, random);
    orvacam::addRow(statistics, row.data(), row.size(), 0, y);
    for (std::size_t x = 0; x < row.size(); ++x)
      naive.add(row[x], static_cast<int>(x), y);
  };
  for (int y = 0; y < 60; ++y)
    addRow(y);
  const auto copy = std::make_unique<CFrameStatistics>(statistics);
  copy->Compute();
  expectSame(resultsOf(*copy), naive);
  const NaiveStatistics atCopy = naive;
  statistics.Compute();
  expectSame(resultsOf(statistics), naive);
  for (int y = 60; y < 90; ++y)
    addRow(y);
  statistics.Compute();
  expectSame(resultsOf(statistics), naive);
  copy->Compute();
  expectSame(resultsOf(*copy), atCopy);
  *copy = statistics;
  copy->Compute();
  expectSame(resultsOf(*copy), naive);
}

TEST_F(Statistics, ARowOfNothingAddsNothing) {
  orvacam::addRow(statistics, nullptr, 5, 0, 0);
  const unsigned short pixel = 1;
  orvacam::addRow(statistics, &pixel, 0, 0, 0);
  statistics.Compute();
  EXPECT_TRUE(std::isnan(resultsOf(statistics).dMean));
}

}  // namespace
