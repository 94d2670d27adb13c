#include <algorithm>
#include <cmath>
#include <map>
#include <optional>

#include "science/TransferSteps.h"

namespace orvacam::science {

namespace {

constexpr double fitPart = 0.7;       // of saturation, where the gain is fitted
constexpr double pairsDiffer = 0.05;  // a part of the signal

/// The line through the origin. Points share the darks of their exposure, and so their error.
Estimate slopeOf(const std::vector<const CurvePoint*>& points, const PlaneTransfer& plane) {
  double xx = 0, xy = 0, own = 0;
  std::map<double, double> byExposure;
  for (const CurvePoint* point : points) {
    xx += square(point->signal);
    xy += point->signal * point->excess.value;
    own += square(point->signal * point->moments.varianceError);
    byExposure[point->exposure] += point->signal;
  }
  const double slope = xy / xx;
  double shared = 0, misfit = 0;
  for (const auto& [exposure, sum] : byExposure)
    shared += square(sum * darkOf(plane, exposure).variance.error);
  for (const CurvePoint* point : points)
    if (point->excess.error > 0)
      misfit += square((point->excess.value - slope * point->signal) / point->excess.error);
  const double freedom = static_cast<double>(points.size()) - 1;
  const double scale = std::sqrt(std::fmax(1, misfit / freedom));
  return {slope, scale * std::sqrt(own + shared) / xx};
}

/// Of two flats that differ by a part d, the response's deviation p leaves (p d signal)^2 / 2 in the
/// variance.
void sayIfPairsDiffer(PlaneTransfer& plane, const std::vector<const CurvePoint*>& points) {
  double most = 0;
  for (const CurvePoint* point : points)
    most = std::fmax(most, std::fabs(point->moments.mean[0] - point->moments.mean[1]) / point->signal);
  if (most <= pairsDiffer) return;
  say(plane, "gain_e_per_adu",
      "The flats of a pair differ by up to " + number(100 * most) +
          " %: the pixels' different responses count as noise, and the gain comes out too small. Flats of "
          "equal exposure are paired in their order; by name, f10 comes before f2.");
}

}  // namespace

void fitGain(PlaneTransfer& plane, double fullScale) {
  const double most = fitPart * referenceSignal(plane, fullScale);
  std::vector<const CurvePoint*> points;
  for (CurvePoint& point : plane.curve) {
    point.fitted = !point.between && !point.above && !point.saturated && point.signal > 0 &&
                   point.signal <= most && point.moments.atFull <= fewPixels;
    if (point.fitted) points.push_back(&point);
  }
  // Also where nothing can be fitted for that.
  sayIfPairsDiffer(plane, points);
  if (points.size() < 2) {
    say(plane, "gain_e_per_adu",
        "The gain is not known: it takes two pairs of flats or more between the darks and a signal of " +
            number(most) + " ADU (70 % of saturation); there " + (points.empty() ? "is none." : "is one."));
    return;
  }
  const Estimate slope = slopeOf(points, plane);
  if (!(slope.value > 3 * slope.error)) {
    say(plane, "gain_e_per_adu",
        "The gain is not known: the noise of the flats does not rise with the signal (slope " +
            number(slope.value) + " with an error of " + number(slope.error) + ").");
    return;
  }
  plane.gain = quotient({1, 0}, slope);
}

}  // namespace orvacam::science
