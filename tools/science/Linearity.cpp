#include <algorithm>
#include <cmath>
#include <map>

#include "science/TransferSteps.h"

namespace orvacam::science {

namespace {

constexpr double linearFrom = 0.05, linearTo = 0.95;  // of saturation, where linearity is judged

std::string whyNoLinearity(const std::vector<CurvePoint*>& points) {
  std::map<double, std::pair<double, double>> ranges;  // of the signal, by exposure
  for (const CurvePoint* point : points) {
    const auto [range, isNew] = ranges.insert({point->exposure, {point->signal, point->signal}});
    range->second = {std::min(range->second.first, point->signal),
                     std::max(range->second.second, point->signal)};
  }
  constexpr double sameLight = 1.02;
  if (points.size() < 3 || ranges.size() < 3)
    return "it takes flats of three exposures or more, in constant light, between 5 and 95 % of saturation; "
           "there are " +
           std::to_string(ranges.size()) + ".";
  for (const auto& [exposure, range] : ranges)
    if (range.second > sameLight * range.first)
      return "the light was not constant: flats of " + number(exposure) + " s have signals from " +
             number(range.first) + " to " + number(range.second) + " ADU.";
  return "";
}

/// The line a + b t with the least relative deviations: sum ((y - a - b t) / y)^2.
std::pair<double, double> lineOf(const std::vector<CurvePoint*>& points) {
  double w = 0, wt = 0, wtt = 0, wy = 0, wty = 0;
  for (const CurvePoint* point : points) {
    const double weight = 1 / square(point->signal), t = point->exposure;
    w += weight, wt += weight * t, wtt += weight * t * t;
    wy += weight * point->signal, wty += weight * t * point->signal;
  }
  const double b = (w * wty - wt * wy) / (w * wtt - wt * wt);
  return {(wy - b * wt) / w, b};
}

/// The standard error of a point's deviation: noise of its pixels, and of the light as pairs show it.
double deviationError(const std::vector<CurvePoint*>& points) {
  double noise = 0, light = 0;
  for (const CurvePoint* point : points) {
    const PairMoments& m = point->moments;
    noise += m.variance / (2 * m.pixels) / square(point->signal);
    light += square((m.mean[0] - m.mean[1]) / point->signal) / 4;
  }
  return 100 * std::sqrt(std::max(noise, light) / static_cast<double>(points.size()));
}

}  // namespace

/// EMVA 1288: the mean relative deviation from the line, between 5 and 95 % of saturation.
void findLinearity(PlaneTransfer& plane, double fullScale) {
  const double reference = referenceSignal(plane, fullScale);
  std::vector<CurvePoint*> points;
  for (CurvePoint& point : plane.curve)
    if (!point.saturated && point.signal > 0 && point.signal >= linearFrom * reference &&
        point.signal <= linearTo * reference)
      points.push_back(&point);
  const std::string why = whyNoLinearity(points);
  if (!why.empty()) {
    say(plane, "linearity_error_percent", "The linearity error is not known: " + why);
    return;
  }
  const auto [a, b] = lineOf(points);
  double sum = 0;
  for (CurvePoint* point : points) {
    const double line = a + b * point->exposure;
    point->deviation = 100 * (point->signal - line) / line;
    sum += std::fabs(point->deviation);
  }
  const auto count = static_cast<double>(points.size());
  plane.linearityError = {sum / count, deviationError(points) / std::sqrt(count)};
  constexpr double much = 10;
  if (plane.linearityError.value > much)
    say(plane, "linearity_error_percent",
        "The signal does not follow the exposure: the light was hardly constant, which the linearity error "
        "takes for granted.");
}

}  // namespace orvacam::science
