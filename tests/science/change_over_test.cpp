#include "science/ChangeOver.h"

#include <gmock/gmock.h>

namespace {

using namespace orvacam::science;
using ::testing::HasSubstr;

/// Low gain = 50 + light / 20, high gain = 100 + light, threshold 3700: the merge takes ratio x low from
/// there.
MergedPoint pointOf(double light, double ratio, double addedLow = 0, double addedHigh = 0) {
  MergedPoint point;
  point.low = 50 + light / 20;
  point.high = std::min(4095.0, 100 + light);
  point.below = light < 3000;
  point.above = light > 4000;
  point.merged = point.below ? point.high + addedHigh : ratio * (point.low + addedLow);
  point.lowVariance = 1e-6 + light / 400 * 1e-4;
  point.highVariance = 1e-6 + light * 1e-4;
  point.covariance = light / 20 * 1e-4;
  return point;
}

MergedPoint darkPoint() {
  return {50, 100, 100, 1e-6, 1e-6};
}

PlaneTransfer highPlane() {
  PlaneTransfer plane;
  plane.gain = {2, 0.01};
  DarkLevel dark;
  dark.frameMeans = {100, 100};
  dark.variance = {4, 0.1};
  plane.darks.push_back(dark);
  plane.curve.emplace_back();
  plane.curve.back().moments.mean[0] = plane.curve.back().moments.mean[1] = 4095;
  return plane;
}

std::vector<MergedPoint> pointsOf(const std::vector<double>& lights, double ratio, double addedLow = 0,
                                  double addedHigh = 0) {
  std::vector<MergedPoint> points;
  for (const double light : lights)
    points.push_back(pointOf(light, ratio, addedLow, addedHigh));
  return points;
}

TEST(ChangeOver, FindsTheStepThatOffsetsMake) {
  // At high 3700: light 3600, low 230; 20 x 230 is 900 above. Of offsets: 20 x 50 - 100. Noise: 4 + 3600 / 2.
  const auto result = changeOver(pointsOf({500, 1000, 2000, 2900, 5000, 9000}, 20), darkPoint(),
                                 {20, false, 3700}, highPlane());
  EXPECT_NEAR(result.ratio.value, 20, 1e-9);
  EXPECT_NEAR(result.step.value, 900, 1e-6);
  EXPECT_NEAR(result.offset.value, 900, 1e-9);
  EXPECT_NEAR(result.slope.value, 1, 1e-9);
  EXPECT_NEAR(result.noise, std::sqrt(1804), 1e-9);
  EXPECT_NEAR(result.stepInNoise, 900 / std::sqrt(1804), 1e-9);
  EXPECT_FALSE(result.straight());
  EXPECT_TRUE(result.notes.empty());
}

TEST(ChangeOver, FindsTheStepThatAWrongRatioMakes) {
  // A ratio of 20.2 gives 20.2 x 230 = 4646 for 3700; light grows by 1 % too much.
  const auto result = changeOver(pointsOf({500, 1000, 2000, 2900, 5000}, 20.2), darkPoint(),
                                 {20.2, false, 3700}, highPlane());
  EXPECT_NEAR(result.step.value, 946, 1e-6);
  EXPECT_NEAR(result.slope.value, 1.01, 1e-9);
  EXPECT_NEAR(result.ratio.value, 20, 1e-9);
}

TEST(ChangeOver, IsStraightWithTermsThatBringBothOffsetsTogether) {
  // DSNU terms: high + 10, low + 110 / 20 - 50: both begin at 110.
  const double low = 110.0 / 20 - 50;
  const auto points = pointsOf({500, 1000, 2000, 2900, 5000, 8000}, 20, low, 10);
  const auto result = changeOver(points, darkPoint(), {20, true, 3700}, highPlane());
  EXPECT_NEAR(result.step.value, 0, 1e-6);
  EXPECT_NEAR(result.offset.value, 0, 1e-6);
  EXPECT_TRUE(result.straight());
  // The ratio of a PRNU file is not told: two levels above show it.
  const auto unknownRatio = changeOver(points, darkPoint(), {0, true, 3700}, highPlane());
  EXPECT_NEAR(unknownRatio.step.value, 0, 1e-6);
  EXPECT_NEAR(unknownRatio.slope.value, 1, 1e-9);
}

TEST(ChangeOver, NeedsNoBrightFlatsWithoutReferences) {
  const auto points = pointsOf({500, 1000, 2900}, 20);
  EXPECT_NEAR(changeOver(points, darkPoint(), {20, false, 3700}, highPlane()).step.value, 900, 1e-6);
  const auto result = changeOver(points, darkPoint(), {20, true, 3700}, highPlane());
  EXPECT_FALSE(result.step.known());
  EXPECT_FALSE(result.straight());
  EXPECT_NEAR(result.ratio.value, 20, 1e-9);
  ASSERT_EQ(result.notes.size(), 1u);
  EXPECT_THAT(result.notes[0].text, HasSubstr("above the merge's threshold"));
  EXPECT_FALSE(
      changeOver(pointsOf({500, 1000, 5000}, 20), darkPoint(), {0, true, 3700}, highPlane()).step.known());
}

TEST(ChangeOver, IsNotKnownFromOneLevel) {
  for (const std::vector<double>& lights : {std::vector<double>{}, {500}, {500, 500}, {500, 5000}}) {
    const auto result = changeOver(pointsOf(lights, 20), darkPoint(), {20, false, 3700}, highPlane());
    EXPECT_FALSE(result.ratio.known());
    EXPECT_FALSE(result.step.known());
    ASSERT_EQ(result.notes.size(), 1u);
    EXPECT_THAT(result.notes[0].text, HasSubstr("two levels"));
  }
}

TEST(ChangeOver, HasTheErrorOfTheLine) {
  // Two points, weights 1 / v of low - high / 20: the line's error at high 3700, times the ratio.
  const auto points = pointsOf({900, 2900}, 20);
  const auto result = changeOver(points, darkPoint(), {20, false, 3700}, highPlane());
  const double v = 1e-6 + 1e-6 / 400;  // shot noise is common and cancels
  const double error = std::sqrt(v / 2 + 1700. * 1700 * v / (2 * 1000. * 1000));
  EXPECT_NEAR(result.step.error, 20 * error, 1e-9);
  EXPECT_NEAR(result.ratio.error, 400 * std::sqrt(v / (2 * 1000. * 1000)), 1e-9);
}

TEST(ChangeOver, CountsAStepWithinItsErrorAsStraight) {
  ChangeOver step;
  EXPECT_FALSE(step.straight());
  step.step = {1, 0.4};
  step.stepInNoise = 0.5;
  EXPECT_TRUE(step.straight());
  step.step.error = 0.1;
  EXPECT_FALSE(step.straight());
  step.stepInNoise = 0.05;
  EXPECT_TRUE(step.straight());
}

TEST(ChangeOver, KnowsNoNoiseWithoutAGain) {
  PlaneTransfer high = highPlane();
  high.gain = {};
  const auto result = changeOver(pointsOf({500, 1000}, 20), darkPoint(), {20, false, 3700}, high);
  EXPECT_TRUE(result.step.known());
  EXPECT_FALSE(std::isfinite(result.stepInNoise));
}

TEST(ChangeOver, WarnsOfAHighGainThatNeverReachesTheThreshold) {
  PlaneTransfer high = highPlane();
  high.saturationAdu = {3000, 10};
  high.curve.back().moments.mean[0] = high.curve.back().moments.mean[1] = 3500;
  const auto result = changeOver(pointsOf({500, 1000}, 20), darkPoint(), {20, false, 3700}, high);
  ASSERT_EQ(result.notes.size(), 1u);
  EXPECT_THAT(result.notes[0].text, HasSubstr("saturates below"));
}

}  // namespace
