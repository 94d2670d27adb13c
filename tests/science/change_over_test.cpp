#include "science/ChangeOver.h"

#include <gmock/gmock.h>

namespace {

using namespace orvacam::science;
using ::testing::HasSubstr;

constexpr double threshold = 3700;

/// Low gain = 50 + light / 20, high gain = 100 + light. The merge chooses from ratio x (low + addedLow) and
/// high + addedHigh.
struct Merge {
  double ratio = 20, addedLow = 0, addedHigh = 0;
};

MergedPoint pointOf(double light, const Merge& merge) {
  MergedPoint point;
  point.low = 50 + light / 20;
  point.high = std::min(4095.0, 100 + light);
  point.correctedLow = merge.ratio * (point.low + merge.addedLow);
  point.correctedHigh = point.high + merge.addedHigh;
  point.below = light < 3000;
  point.lowVariance = 1e-6 + light / 400 * 1e-4;
  point.highVariance = 1e-6 + light * 1e-4;
  point.covariance = light / 20 * 1e-4;
  return point;
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

std::vector<MergedPoint> pointsOf(const std::vector<double>& lights, const Merge& merge = {}) {
  std::vector<MergedPoint> points;
  for (const double light : lights)
    points.push_back(pointOf(light, merge));
  return points;
}

ChangeOver measured(const std::vector<double>& lights, const Merge& merge = {},
                    const PlaneTransfer& high = highPlane()) {
  return changeOver(pointsOf(lights, merge), pointOf(0, merge), threshold, high);
}

TEST(ChangeOver, FindsTheStepThatOffsetsMake) {
  // At high 3700: light 3600, low 230; 20 x 230 is 900 above. Of offsets: 20 x 50 - 100. Noise: 4 + 3600 / 2.
  const auto result = measured({500, 1000, 2000, 2900, 5000, 9000});
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
  // A ratio of 20.2 gives 20.2 x 230 = 4646 for 3700; light counts 1 % too much.
  const auto result = measured({500, 1000, 2000, 2900, 5000}, {20.2, 0, 0});
  EXPECT_NEAR(result.step.value, 946, 1e-6);
  EXPECT_NEAR(result.slope.value, 1.01, 1e-9);
  EXPECT_NEAR(result.ratio.value, 20, 1e-9);
}

TEST(ChangeOver, IsStraightWithTermsThatBringBothOffsetsTogether) {
  // High + 10 and low + 110 / 20 - 50: both begin at 110.
  const auto result = measured({500, 1000, 2000, 2900}, {20, 110.0 / 20 - 50, 10});
  EXPECT_NEAR(result.step.value, 0, 1e-6);
  EXPECT_NEAR(result.offset.value, 0, 1e-6);
  EXPECT_TRUE(result.straight());
  EXPECT_NEAR(result.noise, std::sqrt(4 + 3590 / 2.0), 1e-9);  // less light brings 110 to the threshold
}

TEST(ChangeOver, IsNotKnownFromOneLevel) {
  for (const std::vector<double>& lights : {std::vector<double>{}, {500}, {500, 500}, {500, 5000}}) {
    const auto result = measured(lights);
    EXPECT_FALSE(result.ratio.known());
    EXPECT_FALSE(result.step.known());
    EXPECT_FALSE(result.straight());
    ASSERT_EQ(result.notes.size(), 1u);
    EXPECT_THAT(result.notes[0].text, HasSubstr("two levels"));
  }
}

TEST(ChangeOver, HasTheErrorOfTheLine) {
  // Two points, weights 1 / v of low - high / 20: the line's error at high 3700, times the ratio.
  const auto result = measured({900, 2900});
  const double v = 1e-6 + 1e-6 / 400;  // shot noise is common and cancels
  const double error = std::sqrt(v / 2 + 1700. * 1700 * v / (2 * 1000. * 1000));
  EXPECT_NEAR(result.step.error, 20 * error, 1e-9);
  EXPECT_NEAR(result.ratio.error, 400 * std::sqrt(v / (2 * 1000. * 1000)), 1e-9);
}

TEST(ChangeOver, TellsWhatTheDifferenceThresholdLifts) {
  // Lifts of 5 and 7 at high 1000 and 2000 go on to 10.4 at 3700.
  Merge merge;
  merge.addedLow = -45;  // both begin at 100
  auto points = pointsOf({900, 1900}, merge);
  points[0].lift = 5, points[1].lift = 7;
  points[0].liftError = points[1].liftError = 0.1;
  points[0].fromLow = 0.1, points[1].fromLow = 0.12;
  const auto result = changeOver(points, pointOf(0, merge), threshold, highPlane());
  EXPECT_NEAR(result.step.value, 0, 1e-6);
  EXPECT_NEAR(result.lift.value, 10.4, 1e-9);
  EXPECT_NEAR(result.lift.error, 0.1 * std::sqrt(0.5 + 2200. * 2200 / (2 * 500. * 500)), 1e-9);
  EXPECT_DOUBLE_EQ(result.lifted, 0.12);
  EXPECT_FALSE(result.straight());  // 10.4 of a noise of 42
  ASSERT_EQ(result.notes.size(), 1u);
  EXPECT_THAT(result.notes[0].text, HasSubstr("up to 12 % of the pixels"));
}

TEST(ChangeOver, CountsAStepWithinItsErrorAsStraight) {
  ChangeOver change;
  EXPECT_FALSE(change.straight());
  change.step = {1, 0.4};
  change.lift = {0, 0};
  change.noise = 2;
  EXPECT_TRUE(change.straight());
  change.step.error = 0.1;
  EXPECT_FALSE(change.straight());
  change.noise = 20;
  EXPECT_TRUE(change.straight());
  change.lift.value = 3.1;  // the step less the lift is -2.1
  EXPECT_FALSE(change.straight());
}

TEST(ChangeOver, KnowsNoNoiseWithoutAGain) {
  PlaneTransfer high = highPlane();
  high.gain = {};
  const auto result = measured({500, 1000}, {}, high);
  EXPECT_TRUE(result.step.known());
  EXPECT_FALSE(std::isfinite(result.stepInNoise));
}

TEST(ChangeOver, WarnsOfAHighGainThatNeverReachesTheThreshold) {
  PlaneTransfer high = highPlane();
  high.saturationAdu = {3000, 10};
  high.curve.back().moments.mean[0] = high.curve.back().moments.mean[1] = 3500;
  const auto result = measured({500, 1000}, {}, high);
  ASSERT_EQ(result.notes.size(), 1u);
  EXPECT_THAT(result.notes[0].text, HasSubstr("saturates below"));
}

}  // namespace
