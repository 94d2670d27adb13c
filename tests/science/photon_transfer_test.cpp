#include "science/PhotonTransfer.h"

#include <gmock/gmock.h>

#include <cmath>
#include <vector>

namespace {

using namespace orvacam::science;
using ::testing::HasSubstr;

/// A camera of 2 electrons per ADU, 3 electrons of read noise, an offset of 100 ADU and 8 electrons of dark
/// current per second, without a statistical error. Rounding adds 1/12.
struct Camera {
  double gain = 2, readNoise = 3, offset = 100, darkCurrent = 8, full = 4095;

  double rounding() const { return 1.0 / 12; }
  double darkMean(double seconds) const { return offset + darkCurrent * seconds / gain; }
  double variance(double electrons) const {
    return (readNoise * readNoise + electrons) / (gain * gain) + rounding();
  }
  DarkLevel dark(double seconds, int frames = 2) const {
    DarkLevel level;
    level.exposure = seconds;
    level.frameMeans.assign(static_cast<std::size_t>(frames), darkMean(seconds));
    if (frames > 1) level.variance = {variance(darkCurrent * seconds), 0.01};
    level.pixels = 10000;
    return level;
  }
  /// Light of so many electrons.
  CurvePoint flat(double seconds, double electrons) const {
    CurvePoint point;
    point.exposure = seconds;
    point.moments.pixels = 10000;
    const double mean = darkMean(seconds) + electrons / gain;
    if (mean >= full) {
      point.moments.mean[0] = point.moments.mean[1] = full;
      point.moments.atFull = 1;
      return point;
    }
    point.moments.mean[0] = point.moments.mean[1] = mean;
    point.moments.variance = variance(electrons + darkCurrent * seconds);
    point.moments.varianceError = 0.01 * point.moments.variance;
    return point;
  }
};

/// Flats in constant light of `rate` electrons per second, their darks.
struct Series {
  std::vector<CurvePoint> flats;
  std::vector<DarkLevel> darks;
};

Series seriesOf(const Camera& camera, const std::vector<double>& exposures, double rate = 1000) {
  Series series;
  for (const double t : exposures) {
    series.flats.push_back(camera.flat(t, rate * t));
    series.darks.push_back(camera.dark(t));
  }
  return series;
}

std::string noteOn(const PlaneTransfer& plane, const std::string& field) {
  for (const Note& note : plane.notes)
    if (note.field == field) return note.text;
  return "";
}

PlaneTransfer measured(const Camera& camera, const Series& series) {
  return photonTransfer(series.flats, series.darks, camera.full);
}

const std::vector<double> usual = {0.5, 1, 2, 3, 4, 5, 6, 7, 7.5, 8.5, 9};  // 8.5 s and more are saturated

TEST(PhotonTransfer, FindsWhatTheCameraIs) {
  const Camera camera;
  const PlaneTransfer plane = measured(camera, seriesOf(camera, usual));
  EXPECT_NEAR(plane.gain.value, 2, 1e-9);
  EXPECT_NEAR(plane.readNoise.value, 3, 1e-9);
  EXPECT_NEAR(plane.readNoiseAdu.value, 1.5, 1e-9);
  EXPECT_NEAR(plane.offset.value, 100, 1e-9);
  EXPECT_NEAR(plane.darkCurrent.value, 8, 1e-9);
  EXPECT_NEAR(plane.linearityError.value, 0, 1e-9);
  EXPECT_TRUE(plane.notes.empty());
  // The brightest flat of 7.5 s has 7500 electrons; the next one is at full scale.
  EXPECT_NEAR(plane.saturation.value, 7500, 1e-6);
  EXPECT_NEAR(plane.saturationAdu.value, 3750, 1e-9);
}

TEST(PhotonTransfer, FollowsTheStandardsFormulas) {
  const Camera camera;
  const PlaneTransfer plane = measured(camera, seriesOf(camera, usual));
  // Darks of 0.5 s: (9 + 4) / 4 + 1/12 ADU squared, times 2 squared.
  const double dark = std::sqrt(13 + 4.0 / 12);
  const double threshold = std::sqrt(dark * dark + 0.25) + 0.5;
  EXPECT_NEAR(plane.threshold.value, threshold, 1e-9);
  EXPECT_NEAR(plane.dynamicRange.value, 20 * std::log10(7500 / threshold), 1e-9);
  EXPECT_NEAR(plane.bestSnr.value, 10 * std::log10(7500), 1e-9);
}

TEST(PhotonTransfer, FitsTheGainUpToSeventyPercentOfSaturation) {
  const Camera camera;
  const PlaneTransfer plane = measured(camera, seriesOf(camera, usual));
  for (const CurvePoint& point : plane.curve) {
    EXPECT_EQ(point.fitted, point.exposure <= 5) << point.exposure;  // 0.7 x 7.5 s is 5.25 s
    EXPECT_EQ(point.saturated, point.exposure > 8) << point.exposure;
  }
}

TEST(PhotonTransfer, WeighsTheGainsErrorFromPointsAndDarks) {
  // Two points, excess = signal / 2: with own errors and one of their common darks. By hand:
  // K = sum x y / sum x^2; var = (sum (x e)^2 + (sum x)^2 d^2) / (sum x^2)^2.
  Camera camera;
  camera.darkCurrent = 0;
  Series series;
  series.darks.push_back(camera.dark(1));
  for (const double electrons : {1000.0, 3000.0})
    series.flats.push_back(camera.flat(1, electrons));
  const PlaneTransfer plane = measured(camera, series);
  const double x1 = 500, x2 = 1500, e1 = 0.01 * camera.variance(1000), e2 = 0.01 * camera.variance(3000),
               d = 0.01;
  const double xx = x1 * x1 + x2 * x2;
  const double slope = std::sqrt(x1 * x1 * e1 * e1 + x2 * x2 * e2 * e2 + (x1 + x2) * (x1 + x2) * d * d) / xx;
  EXPECT_NEAR(plane.gain.value, 2, 1e-9);
  EXPECT_NEAR(plane.gain.error, slope * 2 * 2, 1e-12);
  // Read noise in electrons: of the variance of the darks and of the gain.
  const double adu = 0.01 / (2 * 1.5);
  EXPECT_NEAR(plane.readNoiseAdu.error, adu, 1e-5);
  EXPECT_NEAR(plane.readNoise.error, std::hypot(2 * plane.readNoiseAdu.error, 1.5 * plane.gain.error), 1e-9);
}

TEST(PhotonTransfer, WidensTheErrorWherePointsDoNotLieOnALine) {
  const Camera camera;
  Series series = seriesOf(camera, usual);
  const double before = measured(camera, series).gain.error;
  for (std::size_t i = 0; i < series.flats.size(); i += 2)
    series.flats[i].moments.variance *= 1.1;  // ten of its errors
  EXPECT_GT(measured(camera, series).gain.error, 4 * before);
}

TEST(PhotonTransfer, DoubtsPairsOfDifferentLevels) {
  const Camera camera;
  Series series = seriesOf(camera, usual);
  series.flats[1].moments.mean[0] += 12;  // of 500
  series.flats[1].moments.mean[1] -= 12;
  EXPECT_EQ(noteOn(measured(camera, series), "gain_e_per_adu"), "");
  series.flats[1].moments.mean[0] += 3;
  EXPECT_THAT(noteOn(measured(camera, series), "gain_e_per_adu"), HasSubstr("differ by up to 5.384 %"));
}

TEST(PhotonTransfer, SaysThatPairsDifferWhereThatHidesTheGain) {
  const Camera camera;
  Series series = seriesOf(camera, {1, 2, 3, 4, 9});
  series.flats[1].moments.mean[0] += 300;  // of 1000
  series.flats[1].moments.mean[1] -= 300;
  series.flats[1].moments.variance *= 50;
  const PlaneTransfer plane = measured(camera, series);
  EXPECT_FALSE(plane.gain.known());
  EXPECT_THAT(noteOn(plane, "gain_e_per_adu"), HasSubstr("differ by up to 60"));
  EXPECT_TRUE(std::any_of(plane.notes.begin(), plane.notes.end(), [](const Note& note) {
    return note.text.find("does not rise with the signal") != std::string::npos;
  }));
}

TEST(PhotonTransfer, SeparatesDarkCurrentFromReadNoise) {
  Camera camera;
  camera.darkCurrent = 400;
  const PlaneTransfer plane = measured(camera, seriesOf(camera, {1, 2, 3, 4, 5, 6}));
  EXPECT_NEAR(plane.darkCurrent.value, 400, 1e-6);
  EXPECT_NEAR(plane.readNoise.value, 3, 1e-6);
  EXPECT_NEAR(plane.offset.value, 100, 1e-6);
}

TEST(PhotonTransfer, TakesTheErrorOfTheDarkCurrentFromTheScatterOfTheFrames) {
  // Means 10, 12 at 1 s and 20, 22 at 3 s: slope 5, residuals 1: sqrt((4 / 2) / 4).
  Camera camera;
  Series series;
  for (const auto& [seconds, first] : {std::pair{1.0, 10.0}, std::pair{3.0, 20.0}}) {
    DarkLevel dark = camera.dark(seconds);
    dark.frameMeans = {first, first + 2};
    series.darks.push_back(dark);
    series.flats.push_back(camera.flat(seconds, 1000 * seconds));
  }
  const PlaneTransfer plane = measured(camera, series);
  EXPECT_DOUBLE_EQ(plane.darkCurrentAdu.value, 5);
  EXPECT_DOUBLE_EQ(plane.darkCurrentAdu.error, std::sqrt(0.5));
}

TEST(PhotonTransfer, TrustsNoFramesThatAgreeByChance) {
  // The darks' means are all the same; the noise of their pixels leaves sqrt(variance / 10000) to each.
  const Camera camera;
  const PlaneTransfer plane = measured(camera, seriesOf(camera, {1, 3}));
  const double one = std::sqrt(camera.variance(8) / 10000);
  EXPECT_NEAR(plane.darkCurrentAdu.error, one / 2,
              1e-9);  // over sqrt(4), two frames each a second off the mean
  EXPECT_NEAR(plane.offset.error, std::hypot(one / std::sqrt(2), one / 2), 1e-9);
}

TEST(PhotonTransfer, CountsALoneDarkOfAnotherExposureForTheDarkCurrentAlone) {
  const Camera camera;
  Series series = seriesOf(camera, {1, 2, 3});
  series.darks.push_back(camera.dark(0.1, 1));
  const PlaneTransfer plane = measured(camera, series);
  EXPECT_NEAR(plane.darkCurrent.value, 8, 1e-9);
  EXPECT_NEAR(plane.readNoise.value, 3, 1e-9);
}

// ---- What is not known

TEST(PhotonTransfer, SaysThatSaturationWasNotReached) {
  const Camera camera;
  const PlaneTransfer plane = measured(camera, seriesOf(camera, {1, 2, 3, 4}));
  EXPECT_NEAR(plane.gain.value, 2, 1e-9);
  EXPECT_FALSE(plane.saturation.known());
  EXPECT_FALSE(plane.dynamicRange.known());
  EXPECT_FALSE(plane.bestSnr.known());
  EXPECT_TRUE(plane.threshold.known());
  EXPECT_THAT(noteOn(plane, "saturation_e"), HasSubstr("do not reach saturation"));
}

TEST(PhotonTransfer, TakesFlatsOfOneLevelNotForSaturation) {
  // Three pairs of one level whose variances scatter by their errors.
  const Camera camera;
  Series series = seriesOf(camera, {1, 2, 3, 3, 3});
  series.flats[2].moments.variance *= 1.02;
  series.flats[4].moments.mean[0] += 0.5;
  EXPECT_FALSE(measured(camera, series).saturation.known());
}

TEST(PhotonTransfer, FindsSaturationBelowFullScaleWhereTheNoiseFalls) {
  const Camera camera;
  Series series = seriesOf(camera, {1, 2, 3, 4, 5});
  series.flats[4].moments.variance /= 3;
  EXPECT_NEAR(measured(camera, series).saturation.value, 4000, 1e-6);
  EXPECT_EQ(noteOn(measured(camera, series), "saturation_e"),
            "Saturation lies between the levels of 2000 and 2500 ADU; the lower one is given, and saturation "
            "may be up to 25 % more. Levels closer together there make it sharp.");
  // The true end lies anywhere before the next point, 500 ADU farther.
  EXPECT_NEAR(measured(camera, series).saturationAdu.error, 500 / std::sqrt(3), 1e-6);
}

TEST(PhotonTransfer, NeedsTwoLevelsForTheGain) {
  const Camera camera;
  const PlaneTransfer one = measured(camera, seriesOf(camera, {1}));
  EXPECT_FALSE(one.gain.known());
  EXPECT_FALSE(one.readNoise.known());
  EXPECT_NEAR(one.readNoiseAdu.value, std::sqrt(2.25 + 2), 1e-9);  // dark current included: one exposure
  EXPECT_THAT(noteOn(one, "gain_e_per_adu"), HasSubstr("there is one"));
  EXPECT_THAT(noteOn(one, "dark_current_e_per_s"), HasSubstr("one exposure"));
  const PlaneTransfer none = measured(camera, seriesOf(camera, {9, 10}));
  EXPECT_FALSE(none.gain.known());
  EXPECT_THAT(noteOn(none, "gain_e_per_adu"), HasSubstr("there is none"));
  EXPECT_FALSE(pointForUniformity(none, camera.full).has_value());
}

TEST(PhotonTransfer, KnowsNoGainOfPlanesWithoutNoise) {
  Series series = seriesOf(Camera(), {1, 2, 3});
  for (CurvePoint& point : series.flats)
    point.moments.variance = point.moments.varianceError = 0;
  for (DarkLevel& dark : series.darks)
    dark.variance = {0, 0};
  const PlaneTransfer plane = photonTransfer(series.flats, series.darks, 4095);
  EXPECT_FALSE(plane.gain.known());
  EXPECT_FALSE(plane.saturation.known());
  EXPECT_FALSE(plane.readNoiseAdu.known());
  EXPECT_THAT(noteOn(plane, "gain_e_per_adu"), HasSubstr("does not rise"));
  EXPECT_THAT(noteOn(plane, "read_noise_e"), HasSubstr("0.24"));
}

TEST(PhotonTransfer, KnowsNothingOfFlatsThatAreNotBrighterThanDarks) {
  const Camera camera;
  const PlaneTransfer plane = measured(camera, seriesOf(camera, {1, 2, 3}, 0));
  EXPECT_FALSE(plane.gain.known());
  EXPECT_FALSE(plane.saturation.known());
  EXPECT_FALSE(plane.linearityError.known());
  EXPECT_FALSE(pointForUniformity(plane, camera.full).has_value());
}

TEST(PhotonTransfer, GivesALimitWhereRoundingHidesTheReadNoise) {
  Camera camera;
  camera.gain = 20;  // 3 electrons are 0.15 ADU: with rounding 0.106 ADU squared
  camera.darkCurrent = 0;
  const PlaneTransfer plane = measured(camera, seriesOf(camera, {10, 20, 40, 60, 80, 85}));
  EXPECT_NEAR(plane.gain.value, 20, 1e-6);
  EXPECT_FALSE(plane.readNoise.known());
  EXPECT_FALSE(plane.readNoiseAdu.known());
  EXPECT_NEAR(plane.readNoiseLimit, 20 * std::sqrt(0.24 - 1.0 / 12), 1e-6);
  EXPECT_NEAR(plane.threshold.value, std::sqrt(0.49 * 0.49 * 400 + 0.25) + 0.5, 1e-6);
}

/// The variance of normal noise about an offset when it is rounded to whole numbers.
double roundedVariance(double deviation, double offset) {
  const auto below = [&](double x) { return 0.5 * std::erfc((offset - x) / deviation / std::sqrt(2.0)); };
  double sum = 0, squares = 0;
  for (int k = -20; k <= 20; ++k) {
    const double part = below(k + 0.5) - below(k - 0.5);
    sum += part * k, squares += part * k * k;
  }
  return squares - sum * sum;
}

TEST(PhotonTransfer, HoldsWhatRoundingHidesInTheErrorOfTheReadNoise) {
  // Worst at whole and half counts; errors are on the mean square of all offsets.
  for (const double noise : {0.47, 0.5, 0.6}) {
    Camera camera;
    camera.gain = 20;
    camera.darkCurrent = 0;
    for (const double offset : {0.0, 0.5}) {
      Series series = seriesOf(camera, {10, 20, 40, 60, 80, 85});
      for (DarkLevel& dark : series.darks)
        dark.variance = {roundedVariance(noise, offset), 0};
      const PlaneTransfer plane = measured(camera, series);
      const double off = std::fabs(plane.readNoiseAdu.value - noise);
      EXPECT_NEAR(off / plane.readNoiseAdu.error, std::sqrt(2.0), 0.45) << noise << " at " << offset;
    }
  }
}

TEST(PhotonTransfer, HoldsTheDarkCurrentsErrorInThatOfTheReadNoise) {
  // Darks of 1 s: 200 ADU of dark current are 100 ADU squared. Means that scatter by 4 ADU do not know it
  // well.
  Camera camera;
  camera.darkCurrent = 400;
  Series series = seriesOf(camera, {1, 2, 3, 4, 5, 6});
  for (DarkLevel& dark : series.darks)
    dark.frameMeans.back() += 4;
  const PlaneTransfer plane = measured(camera, series);
  const Estimate noise = plane.readNoiseAdu;
  const double variance = std::pow(noise.value + noise.error, 2) - std::pow(noise.value, 2);
  const double shot = std::hypot(plane.darkCurrentAdu.error / 2, 100 * plane.gain.error / 2);
  EXPECT_GT(shot, 0.1);
  EXPECT_NEAR(variance, std::hypot(shot, 0.01), 0.01 * shot);
}

TEST(PhotonTransfer, WarnsOfAnOffsetThatCutsTheNoise) {
  const Camera camera;
  Series series = seriesOf(camera, usual);
  series.darks[0].atZero = 0.05;
  EXPECT_THAT(noteOn(measured(camera, series), "offset_adu"), HasSubstr("5 % of the pixels"));
}

// ---- Linearity

TEST(PhotonTransfer, MeasuresTheMeanDeviationFromTheStraightLine) {
  // Signals 100 t, but one 2 % high. The weighted line and its deviations come from a slow search.
  Camera camera;
  camera.darkCurrent = 0;
  Series series = seriesOf(camera, {1, 2, 3, 4, 5});
  for (double& mean : series.flats[2].moments.mean)
    mean += 0.02 * 1500;
  const PlaneTransfer plane = measured(camera, series);
  double best = 1e9, error = 0;
  for (double a = -20; a <= 20; a += 0.05)
    for (double b = 490; b <= 520; b += 0.05) {
      double squares = 0, deviations = 0;
      for (int t = 1; t <= 5; ++t) {
        const double y = 500 * t * (t == 3 ? 1.02 : 1), line = a + b * t;
        squares += (y - line) * (y - line) / (y * y);
        deviations += 100 * std::fabs(y - line) / line / 5;
      }
      if (squares < best) best = squares, error = deviations;
    }
  EXPECT_NEAR(plane.linearityError.value, error, 0.01);
  EXPECT_GT(plane.linearityError.value, 0.3);
  EXPECT_GT(plane.linearityError.error, 0);
}

TEST(PhotonTransfer, JudgesLinearityBetweenFiveAndNinetyFivePercent) {
  const Camera camera;  // saturation 7.5 s: from 0.375 to 7.125 s
  const PlaneTransfer plane = measured(camera, seriesOf(camera, {0.3, 0.5, 1, 2, 4, 6, 7, 7.5, 8.5, 9}));
  for (const CurvePoint& point : plane.curve)
    EXPECT_EQ(std::isfinite(point.deviation), point.exposure >= 0.5 && point.exposure <= 7) << point.exposure;
}

TEST(PhotonTransfer, DoesNotClaimLinearityWithoutConstantLight) {
  const Camera camera;
  Series lamp;
  lamp.darks.push_back(camera.dark(1));
  for (const double electrons : {1000.0, 2000.0, 4000.0})
    lamp.flats.push_back(camera.flat(1, electrons));
  EXPECT_THAT(noteOn(measured(camera, lamp), "linearity_error_percent"), HasSubstr("three exposures"));
  Series changed = seriesOf(camera, {1, 2, 3, 3});
  for (double& mean : changed.flats[3].moments.mean)
    mean *= 1.05;
  const PlaneTransfer plane = measured(camera, changed);
  EXPECT_FALSE(plane.linearityError.known());
  EXPECT_THAT(noteOn(plane, "linearity_error_percent"), HasSubstr("flats of 3 s have signals from"));
}

TEST(PhotonTransfer, DoubtsLightThatDoesNotFollowTheExposure) {
  const Camera camera;
  Series series;
  for (const auto& [seconds, electrons] :
       {std::pair{1.0, 4000.0}, {2.0, 1000.0}, {3.0, 6000.0}, {4.0, 2000.0}}) {
    series.flats.push_back(camera.flat(seconds, electrons));
    series.darks.push_back(camera.dark(seconds));
  }
  const PlaneTransfer plane = measured(camera, series);
  EXPECT_GT(plane.linearityError.value, 10);
  EXPECT_THAT(noteOn(plane, "linearity_error_percent"), HasSubstr("hardly constant"));
}

// ---- A merged plane, and uniformity

TEST(PhotonTransfer, LeavesPointsNearTheChangeOverAlone) {
  // Where both gains meet, pixels of both make a variance that is none of noise.
  const Camera camera;
  Series series = seriesOf(camera, {1, 2, 3, 4, 5});
  series.flats[2].between = true;
  series.flats[2].moments.variance *= 100;
  series.flats[3].above = series.flats[4].above = true;
  series.flats[3].moments.variance += 40;
  series.flats[4].moments.variance += 40;
  const PlaneTransfer plane = photonTransfer(series.flats, series.darks, 65535);
  EXPECT_NEAR(plane.gain.value, 2, 1e-9);
  EXPECT_FALSE(plane.saturation.known());
}

TEST(PhotonTransfer, MeasuresUniformityAtHalfOfSaturation) {
  const Camera camera;
  PlaneTransfer plane = measured(camera, seriesOf(camera, usual));
  const auto at = pointForUniformity(plane, camera.full);
  ASSERT_TRUE(at.has_value());
  EXPECT_EQ(plane.curve[*at].exposure, 4);  // 3.75 s is half
  // Flat 104 - 4, dark 4 (ADU squared): the root of 100 over a signal of 2000; rows below 0 by their error.
  const SpatialVariance flat{16, 2100, {104, 3}, {1, 3}, {40, 3}, {63, 3}, {85, 3}};
  const SpatialVariance dark{8, 100, {4, 4}, {2, 4}, {1, 4}, {1, 4}, {4, 4}};
  addNonuniformity(plane, flat, dark);
  EXPECT_DOUBLE_EQ(plane.prnuSignal, 2000);
  EXPECT_DOUBLE_EQ(plane.prnu.value, 0.5);
  EXPECT_NEAR(plane.prnu.error, 100 * (std::sqrt(105) - 10) / 2000, 1e-12);
  EXPECT_DOUBLE_EQ(plane.prnuRow.value, 0);
  EXPECT_NEAR(plane.prnuRow.error, 100 * std::sqrt(5) / 2000, 1e-12);
  EXPECT_NEAR(plane.prnuColumn.value, 100 * std::sqrt(39) / 2000, 1e-12);
  EXPECT_NEAR(plane.prnuLocal.value, 100 * 9.0 / 2000, 1e-12);
  EXPECT_NEAR(plane.dsnu.value, 4, 1e-9);
  EXPECT_NEAR(plane.dsnuRow.value, 2 * std::sqrt(2), 1e-9);
  EXPECT_EQ(plane.flatFrames, 16u);
  EXPECT_EQ(plane.darkFrames, 8u);
}

TEST(PhotonTransfer, GivesPrnuWithoutAGainButNoDsnuInElectrons) {
  const Camera camera;
  PlaneTransfer plane = measured(camera, seriesOf(camera, {1}));
  addNonuniformity(plane, {2, 2100, {104, 3}, {1, 3}, {40, 3}, {63, 3}, {}},
                   {2, 100, {4, 4}, {2, 4}, {1, 4}, {1, 4}, {}});
  EXPECT_TRUE(plane.prnu.known());
  EXPECT_FALSE(plane.dsnu.known());
}

}  // namespace
