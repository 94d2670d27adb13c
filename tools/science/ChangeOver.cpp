#include "science/ChangeOver.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

namespace orvacam::science {

namespace {

/// y = atCentre + slope (x - centre): in this form both errors are independent.
struct Line {
  double centre = 0;
  Estimate atCentre, slope;

  Estimate at(double x) const {
    return {atCentre.value + slope.value * (x - centre),
            std::hypot(atCentre.error, slope.error * (x - centre))};
  }
};

struct Sample {
  double x, y, variance;
};

/// The weighted line; errors grow where the points scatter by more than theirs. None through a single x.
std::optional<Line> lineThrough(const std::vector<Sample>& samples) {
  double w = 0, wx = 0, wy = 0;
  for (const Sample& s : samples)
    w += 1 / s.variance, wx += s.x / s.variance, wy += s.y / s.variance;
  Line line;
  line.centre = wx / w;
  double xx = 0, xy = 0, misfit = 0;
  for (const Sample& s : samples) {
    xx += square(s.x - line.centre) / s.variance;
    xy += (s.x - line.centre) * s.y / s.variance;
  }
  const auto [least, most] = std::minmax_element(samples.begin(), samples.end(),
                                                 [](const Sample& a, const Sample& b) { return a.x < b.x; });
  if (samples.empty() || !(most->x > least->x)) return std::nullopt;
  line.slope.value = xy / xx;
  line.atCentre.value = wy / w;
  for (const Sample& s : samples)
    misfit += square(s.y - line.at(s.x).value) / s.variance;
  const double freedom = static_cast<double>(samples.size()) - 2;
  const double scale = freedom > 0 ? std::sqrt(std::fmax(1, misfit / freedom)) : 1;
  line.slope.error = scale / std::sqrt(xx);
  line.atCentre.error = scale / std::sqrt(w);
  return line;
}

using Points = std::vector<const MergedPoint*>;

/// Slope through the darkest and the brightest point: good enough to weigh by.
double roughSlope(const Points& below, double MergedPoint::*low, double MergedPoint::*high) {
  const auto [least, most] =
      std::minmax_element(below.begin(), below.end(),
                          [&](const MergedPoint* a, const MergedPoint* b) { return a->*high < b->*high; });
  const double width = (*most)->*high - (*least)->*high;
  return width > 0 ? ((*most)->*low - (*least)->*low) / width : 0;
}

/// Low against high gain, raw or corrected. How far a point may be off the line, the noise of
/// low - slope x high says, which the correction multiplies.
std::optional<Line> lowAgainstHigh(const Points& below, double MergedPoint::*low, double MergedPoint::*high) {
  if (below.size() < 2) return std::nullopt;
  const double slope = roughSlope(below, &MergedPoint::low, &MergedPoint::high);
  const double factor = slope > 0 ? roughSlope(below, low, high) / slope : 1;
  constexpr double finest = 1e-12;  // planes without noise weigh alike
  std::vector<Sample> samples;
  for (const MergedPoint* p : below) {
    const double variance = p->lowVariance - 2 * slope * p->covariance + square(slope) * p->highVariance;
    samples.push_back({p->*high, p->*low, std::fmax(finest, square(factor) * variance)});
  }
  return lineThrough(samples);
}

void findLift(ChangeOver& result, const Points& below, double threshold) {
  std::vector<Sample> samples;
  double scatter = 0;
  result.lifted = 0;
  for (const MergedPoint* p : below) {
    samples.push_back({p->correctedHigh, p->lift, 1});
    scatter += square(p->liftError) / static_cast<double>(below.size());
    result.lifted = std::fmax(result.lifted, p->fromLow);
  }
  Line line = *lineThrough(samples);
  const double scale = std::sqrt(scatter);  // the line's errors are those of samples with an error of 1
  line.slope.error *= scale;
  line.atCentre.error *= scale;
  result.lift = line.at(threshold);
}

void say(ChangeOver& result, const char* field, const std::string& text) {
  result.notes.push_back({field, text});
}

void sayWhatIsOdd(ChangeOver& result, double threshold, const PlaneTransfer& high) {
  if (high.saturationAdu.known() && high.curve.back().moments.meanOfBoth() < threshold)
    say(result, "step_adu",
        "The high gain saturates below the merge's threshold: bright pixels are not taken from the low gain "
        "for "
        "that.");
  if (result.lifted > fewPixels) {
    char text[256];
    std::snprintf(
        text, sizeof text,
        "Well below the change-over the difference threshold takes up to %.3g %% of the pixels from the "
        "low gain: its noise is as large, or its offset too far from the high gain's.",
        100 * result.lifted);
    say(result, "lifted", text);
  }
}

bool isSmall(const Estimate& step, double noise) {
  constexpr double small = 0.1;
  return std::fabs(step.value) <= 3 * step.error || std::fabs(step.value) <= small * noise;
}

}  // namespace

bool ChangeOver::straight() const {
  return step.known() && isSmall(step, noise) &&
         isSmall({step.value - lift.value, std::hypot(step.error, lift.error)}, noise);
}

ChangeOver changeOver(const std::vector<MergedPoint>& points, const MergedPoint& dark, double threshold,
                      const PlaneTransfer& high) {
  ChangeOver result;
  Points below;
  for (const MergedPoint& point : points)
    if (point.below) below.push_back(&point);
  const auto raw = lowAgainstHigh(below, &MergedPoint::low, &MergedPoint::high);
  const auto corrected = lowAgainstHigh(below, &MergedPoint::correctedLow, &MergedPoint::correctedHigh);
  if (!raw || !corrected || !(raw->slope.value > 0)) {
    say(result, "step_adu",
        "The gain ratio and the step at the change-over are not known: it takes flats of two levels or more "
        "that "
        "the high gain shows well below the merge's threshold.");
    return result;
  }
  result.ratio = quotient({1, 0}, raw->slope);
  result.slope = corrected->slope;
  result.step = corrected->at(threshold);
  result.step.value -= threshold;
  const double factor = corrected->slope.value / raw->slope.value;
  result.offset = {dark.correctedLow - dark.correctedHigh,
                   std::hypot(factor * std::sqrt(dark.lowVariance), std::sqrt(dark.highVariance))};
  findLift(result, below, threshold);
  if (high.gain.known()) {
    // From the darks' noise, and the shot noise of the light that brings the high gain to its threshold.
    const DarkLevel& first = high.darks.front();
    const double still = first.variance.known() ? first.variance.value : 0;
    result.noise = std::sqrt(std::fmax(0, still + (threshold - dark.correctedHigh) / high.gain.value));
    if (result.noise > 0) result.stepInNoise = result.step.value / result.noise;
  }
  sayWhatIsOdd(result, threshold, high);
  return result;
}

}  // namespace orvacam::science
