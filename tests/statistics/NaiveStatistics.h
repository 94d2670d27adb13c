#ifndef ORVACAM_TESTS_FRAMES_NAIVE_STATISTICS_H
#define ORVACAM_TESTS_FRAMES_NAIVE_STATISTICS_H

#include <gtest/gtest.h>
#include <orvacam/types/plane_stats.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace frame_testing {

/// Statistics by the documented algorithm, literally: doubles per pixel, then two walks over the histogram;
/// or exact ones, without the two oddities of the documented classes.
struct NaiveStatistics {
  NaiveStatistics() = default;
  explicit NaiveStatistics(bool isExact) : exact(isExact) {}

  bool exact = false;
  double count = 0, sum = 0, squares = 0;
  std::vector<double> histogram = std::vector<double>(65536, 0.0);
  unsigned int max = 0, min = 65535;
  int_point_t maxPoint{0, 0}, minPoint{0, 0};

  void add(unsigned int value, int x, int y) {
    count += 1;
    sum += value;
    squares += exact ? double{1} * value * value : static_cast<double>(static_cast<int>(value * value));
    histogram[value] += 1;
    if (value > max) max = value, maxPoint = {x, y};
    if (value < min) min = value, minPoint = {x, y};
  }
  /// 65535 has no entry.
  double entry(unsigned int v) const { return v < (exact ? 65536u : 65535u) ? histogram[v] : 0; }
  double mean() const { return sum / count; }
  double deviation() const { return std::sqrt((squares - sum * sum / count) / count); }
  double midpoint() const { return min + ((max + 1 - min) >> 1); }
  double mode() const {
    double best = 0, at = 0;
    for (unsigned int v = min; v <= max; ++v)
      if (entry(v) > best) best = entry(v), at = v;
    return at;
  }
  unsigned int lowClip() const {
    unsigned int clip = 0;
    double passed = 0;
    for (unsigned int v = min; v <= max; ++v) {
      if (0.05 * count > passed) clip = v;
      passed += entry(v);
    }
    return clip;
  }
  unsigned int highClip() const {
    unsigned int clip = 0;
    double passed = 0;
    for (unsigned int v = max + 1; v-- > min;) {
      if (0.001 * count > passed) clip = v;
      passed += entry(v);
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

/// The same results, and the same histograms where there are some.
inline void expectSame(const image_plane_stats_t& actual, const image_plane_stats_t& expected) {
  expectSameNumber(actual.dMean, expected.dMean);
  expectSameNumber(actual.dStdDev, expected.dStdDev);
  expectSameNumber(actual.dMode, expected.dMode);
  expectSameNumber(actual.dMidpoint, expected.dMidpoint);
  EXPECT_EQ(actual.uiMax, expected.uiMax);
  EXPECT_EQ(actual.uiMin, expected.uiMin);
  EXPECT_EQ(actual.maxPoint.x, expected.maxPoint.x);
  EXPECT_EQ(actual.maxPoint.y, expected.maxPoint.y);
  EXPECT_EQ(actual.minPoint.x, expected.minPoint.x);
  EXPECT_EQ(actual.minPoint.y, expected.minPoint.y);
  EXPECT_EQ(actual.uiLowClip, expected.uiLowClip);
  EXPECT_EQ(actual.uiHighClip, expected.uiHighClip);
  if (expected.pHistogram == nullptr || actual.pHistogram == nullptr) return;
  const auto entries =
      static_cast<std::ptrdiff_t>(std::min({actual.uiHistogramSize, expected.uiHistogramSize, 65535u}));
  EXPECT_TRUE(std::equal(actual.pHistogram, actual.pHistogram + entries, expected.pHistogram));
}

/// All results of computed statistics, and the histogram where the record has one.
inline void expectSame(const image_plane_stats_t& stats, const NaiveStatistics& naive) {
  expectSame(stats, {naive.lowClip(), naive.highClip(), 65535, const_cast<double*>(naive.histogram.data()),
                     naive.mean(), naive.midpoint(), naive.mode(), naive.deviation(), naive.maxPoint,
                     naive.max, naive.minPoint, naive.min, false});
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
