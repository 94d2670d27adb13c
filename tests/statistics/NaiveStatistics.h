#ifndef ORVACAM_TESTS_FRAMES_NAIVE_STATISTICS_H
#define ORVACAM_TESTS_FRAMES_NAIVE_STATISTICS_H

#include <gtest/gtest.h>
#include <orvacam/types/plane_stats.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace frame_testing {

/// Statistics by the documented algorithm, literally: doubles per pixel, then two walks over the histogram.
struct NaiveStatistics {
  double count = 0, sum = 0, squares = 0;
  std::vector<double> histogram = std::vector<double>(65536, 0.0);
  unsigned int max = 0, min = 65535;
  int_point_t maxPoint{0, 0}, minPoint{0, 0};

  void add(unsigned int value, int x, int y) {
    count += 1;
    sum += value;
    squares += static_cast<double>(static_cast<int>(value * value));
    histogram[value] += 1;
    if (value > max) max = value, maxPoint = {x, y};
    if (value < min) min = value, minPoint = {x, y};
  }
  double mean() const { return sum / count; }
  double deviation() const { return std::sqrt((squares - sum * sum / count) / count); }
  double midpoint() const { return min + ((max + 1 - min) >> 1); }
  double mode() const {
    double best = 0, at = 0;
    for (unsigned int v = min; v <= max && v < 65535; ++v)
      if (histogram[v] > best) best = histogram[v], at = v;
    return at;
  }
  unsigned int lowClip() const {
    unsigned int clip = 0;
    double passed = 0;
    for (unsigned int v = min; v <= max; ++v) {
      if (0.05 * count > passed) clip = v;
      if (v < 65535) passed += histogram[v];
    }
    return clip;
  }
  unsigned int highClip() const {
    unsigned int clip = 0;
    double passed = 0;
    for (unsigned int v = max + 1; v-- > min;) {
      if (0.001 * count > passed) clip = v;
      if (v < 65535) passed += histogram[v];
    }
    return clip;
  }
};

/// The same number, or neither is one.
inline void expectSameNumber(double actual, double expected) {
  if (std::isnan(expected))
    EXPECT_TRUE(std::isnan(actual)) << actual;
  else
    EXPECT_EQ(actual, expected);
}

/// All results of computed statistics, and the histogram where the record has one.
inline void expectSame(const image_plane_stats_t& stats, const NaiveStatistics& naive) {
  expectSameNumber(stats.dMean, naive.mean());
  expectSameNumber(stats.dStdDev, naive.deviation());
  EXPECT_EQ(stats.dMode, naive.mode());
  EXPECT_EQ(stats.dMidpoint, naive.midpoint());
  EXPECT_EQ(stats.uiMax, naive.max);
  EXPECT_EQ(stats.uiMin, naive.min);
  EXPECT_EQ(stats.maxPoint.x, naive.maxPoint.x);
  EXPECT_EQ(stats.maxPoint.y, naive.maxPoint.y);
  EXPECT_EQ(stats.minPoint.x, naive.minPoint.x);
  EXPECT_EQ(stats.minPoint.y, naive.minPoint.y);
  EXPECT_EQ(stats.uiLowClip, naive.lowClip());
  EXPECT_EQ(stats.uiHighClip, naive.highClip());
  if (stats.pHistogram == nullptr) return;
  const auto entries = static_cast<std::ptrdiff_t>(std::min(stats.uiHistogramSize, 65535u));
  EXPECT_TRUE(std::equal(stats.pHistogram, stats.pHistogram + entries, naive.histogram.begin()));
}

/// Statistics that were reset and nothing else.
inline void expectReset(const image_plane_stats_t& stats) {
  for (const double result : {stats.dMean, stats.dMidpoint, stats.dMode, stats.dStdDev})
    EXPECT_EQ(result, 0.0);
  EXPECT_EQ(stats.uiMax, 0u);
  EXPECT_EQ(stats.uiMin, 65535u);
  EXPECT_EQ(stats.uiLowClip, 0u);
  EXPECT_EQ(stats.uiHighClip, 0u);
}

}  // namespace frame_testing

#endif  // ORVACAM_TESTS_FRAMES_NAIVE_STATISTICS_H
