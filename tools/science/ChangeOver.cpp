#include "science/ChangeOver.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace orvacam::science {

namespace {

double square(double value) {
  return value * value;
}

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

/// The weighted line; errors grow where the points scatter by more than theirs.
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
  if (samples.size() < 2 || !(xx > 0)) return std::nullopt;
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

/// Low against high gain. How far a point is off the line, the noise of low - slope x high says; the slope
/// for it comes from the end points.
std::optional<Line> lowAgainstHigh(const std::vector<const MergedPoint*>& below) {
  if (below.size() < 2) return std::nullopt;
  const auto [least, most] =
      std::minmax_element(below.begin(), below.end(),
                          [](const MergedPoint* a, const MergedPoint* b) { return a->high < b->high; });
  const double width = (*most)->high - (*least)->high;
  if (!(width > 0)) return std::nullopt;
  const double slope = ((*most)->low - (*least)->low) / width;
  constexpr double finest = 1e-12;  // planes without noise weigh alike
  std::vector<Sample> samples;
  for (const MergedPoint* p : below)
    samples.push_back(
        {p->high, p->low,
         std::fmax(finest, p->lowVariance - 2 * slope * p->covariance + square(slope) * p->highVariance)});
  return lineThrough(samples);
}

/// What the merge adds to the high gain (0 without references).
double addedToHigh(const std::vector<const MergedPoint*>& below) {
  double sum = 0;
  for (const MergedPoint* p : below)
    sum += p->merged - p->high;
  return sum / static_cast<double>(below.size());
}

/// Merged against low gain, above the change-over.
std::optional<Line> mergedAgainstLow(const std::vector<const MergedPoint*>& above, const MergeSettings& s) {
  if (s.ratio <= 0) {
    std::vector<Sample> samples;
    for (const MergedPoint* p : above)
      samples.push_back({p->low, p->merged, 1});
    auto line = above.size() < 2 ? std::nullopt : lineThrough(samples);
    if (line) line->slope.error = line->atCentre.error = 0;  // the merge is arithmetic, not measured
    return line;
  }
  Line line;
  line.slope = {s.ratio, 0};
  line.atCentre = {0, 0};
  if (above.empty()) return s.dsnu ? std::nullopt : std::optional<Line>(line);
  for (const MergedPoint* p : above)
    line.atCentre.value += (p->merged - s.ratio * p->low) / static_cast<double>(above.size());
  return line;
}

void say(ChangeOver& result, const char* field, const char* text) {
  result.notes.push_back({field, text});
}

}  // namespace

bool ChangeOver::straight() const {
  constexpr double small = 0.1;
  return step.known() && (std::fabs(step.value) <= 3 * step.error || std::fabs(stepInNoise) <= small);
}

ChangeOver changeOver(const std::vector<MergedPoint>& points, const MergedPoint& dark,
                      const MergeSettings& settings, const PlaneTransfer& high) {
  ChangeOver result;
  std::vector<const MergedPoint*> below, above;
  for (const MergedPoint& point : points) {
    if (point.below) below.push_back(&point);
    if (point.above) above.push_back(&point);
  }
  const auto link = lowAgainstHigh(below);
  if (!link || !(link->slope.value > 0)) {
    say(result, "ratio",
        "The gain ratio and the step at the change-over are not known: it takes flats of two levels or more "
        "that "
        "the high gain shows below the merge's threshold.");
    return result;
  }
  result.ratio = quotient({1, 0}, link->slope);
  const auto lowSide = mergedAgainstLow(above, settings);
  if (!lowSide) {
    say(result, "step_adu",
        "The step at the change-over is not known: with references, it takes flats above the merge's "
        "threshold "
        "that the low gain shows (two levels with a PRNU file).");
    return result;
  }
  const double added = addedToHigh(below);
  const double at = settings.threshold - added;  // high-gain ADU at the change-over
  const Estimate low = link->at(at);
  const double slope = lowSide->slope.value;
  result.step = {lowSide->at(low.value).value - settings.threshold, slope * low.error};
  result.slope = {slope * link->slope.value, slope * link->slope.error};
  result.offset = {lowSide->at(dark.low).value - (dark.high + added),
                   std::hypot(slope * std::sqrt(dark.lowVariance), std::sqrt(dark.highVariance))};
  if (high.saturationAdu.known() && high.curve.back().moments.meanOfBoth() < at)
    say(result, "step_adu",
        "The high gain saturates below the merge's threshold: bright pixels are never taken from the low "
        "gain.");
  if (high.gain.known()) {
    const DarkLevel& first = high.darks.front();
    const double shot = (at - first.mean()) / high.gain.value;
    const double still = first.variance.known() ? first.variance.value : 0;
    result.noise = std::sqrt(std::fmax(0, still + shot));
    if (result.noise > 0) result.stepInNoise = result.step.value / result.noise;
  }
  return result;
}

}  // namespace orvacam::science
