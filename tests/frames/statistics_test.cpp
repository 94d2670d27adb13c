// Statistics of a plane against sums worked out pixel by pixel.

#include <gtest/gtest.h>
#include <orvacam/frames/CFrameStatistics.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "frames/NaiveStatistics.h"

namespace {

using namespace frame_testing;

image_plane_stats_t resultsOf(const CFrameStatistics& statistics) {
  image_plane_stats_t stats{};
  statistics.GetResults(stats);
  return stats;
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
  statistics.GetResults(stats);
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
  statistics.GetResults(stats);
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
  std::vector<double> histogram(65535, -1.0);
  image_plane_stats_t stats{};
  stats.pHistogram = histogram.data();
  stats.uiHistogramSize = 65535;
  statistics.GetResults(stats);
  EXPECT_EQ(histogram, std::vector<double>(65535, 0.0));
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
        statistics.AddRow(row.data(), row.size(), 7, y);
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

std::vector<double> histogramOf(const CFrameStatistics& statistics) {
  std::vector<double> histogram(65535, -1.0);
  image_plane_stats_t stats{};
  stats.pHistogram = histogram.data();
  stats.uiHistogramSize = 65535;
  statistics.GetResults(stats);
  return histogram;
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
    statistics->AddRow(row, 6, 0, 1);
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
  statistics.AddRow(row, 4, 0, 0);
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
    statistics.AddRow(row.data(), row.size(), 0, y);
    statistics.AddRow(other.data(), other.size(), 0, 100 + y);
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

TEST_F(Statistics, ARowOfNothingAddsNothing) {
  statistics.AddRow(nullptr, 5, 0, 0);
  const unsigned short pixel = 1;
  statistics.AddRow(&pixel, 0, 0, 0);
  statistics.Compute();
  EXPECT_TRUE(std::isnan(resultsOf(statistics).dMean));
}

}  // namespace
