#include "science/PhotonTransfer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <numeric>

namespace orvacam::science {

namespace {

constexpr double roundingVariance = 1.0 / 12;         // of a value that is rounded to whole ADU
constexpr double hiddenVariance = 0.24;               // below this, rounding hides the noise (EMVA 1288)
constexpr double hiddenDeviation = 0.49;              // its root: what is used instead
constexpr double fitPart = 0.7;                       // of saturation, where the gain is fitted
constexpr double linearFrom = 0.05, linearTo = 0.95;  // of saturation, where linearity is judged
constexpr double pairsDiffer = 0.05;                  // a part of the signal

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

void say(PlaneTransfer& plane, const char* field, const std::string& text) {
  plane.notes.push_back({field, text});
}

const DarkLevel& darkOf(const PlaneTransfer& plane, double exposure) {
  return *std::find_if(plane.darks.begin(), plane.darks.end(),
                       [&](const DarkLevel& dark) { return dark.exposure == exposure; });
}

/// The darks that noise and offset are taken from: the shortest exposure of two frames or more.
const DarkLevel& shortestDark(const PlaneTransfer& plane) {
  return *std::find_if(plane.darks.begin(), plane.darks.end(),
                       [](const DarkLevel& dark) { return dark.variance.known(); });
}

/// Of a frame's mean, by its own noise: frames may scatter less by chance, above all two of them.
double ownVariance(const DarkLevel& dark) {
  return std::fmax(dark.variance.value / dark.pixels, dark.meanVariance);
}

void subtractDarks(PlaneTransfer& plane) {
  for (CurvePoint& point : plane.curve) {
    const DarkLevel& dark = darkOf(plane, point.exposure);
    point.signal = point.moments.meanOfBoth() - dark.mean();
    point.excess = {point.moments.variance - dark.variance.value,
                    std::hypot(point.moments.varianceError, dark.variance.error)};
  }
}

/// EMVA 1288 puts saturation where the temporal variance is greatest. From the brightest point down: the
/// greatest variance before it falls again by more than its error. Where all points are alike or rise to the
/// last, saturation was not reached, unless the brightest is at full scale.
std::optional<std::size_t> saturationPoint(const PlaneTransfer& plane) {
  std::optional<std::size_t> best;
  bool fell = false;  // brighter points have less variance
  const auto differs = [&](const CurvePoint& more, const CurvePoint& less) {
    return more.moments.variance - less.moments.variance >
           3 * std::hypot(more.moments.varianceError, less.moments.varianceError);
  };
  for (std::size_t i = plane.curve.size(); i-- > 0;) {
    const CurvePoint& point = plane.curve[i];
    if (point.between) continue;
    if (!best) {
      best = i;
    } else if (point.moments.variance > plane.curve[*best].moments.variance) {
      fell = fell || differs(point, plane.curve[*best]);
      best = i;
    } else if (differs(plane.curve[*best], point)) {
      break;
    }
  }
  if (best && !fell && plane.curve[*best].moments.atFull <= fewPixels) return std::nullopt;
  return best;
}

/// Distance to the next brighter point: the true saturation lies within, on the mean square a third of it
/// away.
double gapAbove(const PlaneTransfer& plane, std::size_t i) {
  return i + 1 < plane.curve.size() ? plane.curve[i + 1].signal - plane.curve[i].signal : 0;
}

void findSaturation(PlaneTransfer& plane) {
  const auto at = saturationPoint(plane);
  if (!at) {
    say(plane, "saturation_e",
        "The flats do not reach saturation: the noise does not fall again towards the brightest flat. "
        "Saturation capacity and dynamic range are not known.");
    return;
  }
  const CurvePoint& point = plane.curve[*at];
  if (point.signal <= 0) {
    say(plane, "saturation_e", "No flat between the darks and saturation: saturation is not known.");
    return;
  }
  plane.saturationAdu = {point.signal, gapAbove(plane, *at) / std::sqrt(3.0)};
  for (std::size_t i = 0; i < plane.curve.size(); ++i)
    plane.curve[i].saturated = i > *at;
}

/// The signal that parts of saturation are counted from.
double referenceSignal(const PlaneTransfer& plane, double fullScale) {
  return plane.saturationAdu.known() ? plane.saturationAdu.value : fullScale - shortestDark(plane).mean();
}

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
          "equal "
          "exposure are paired in their order.");
}

void fitGain(PlaneTransfer& plane, double fullScale) {
  const double most = fitPart * referenceSignal(plane, fullScale);
  std::vector<const CurvePoint*> points;
  for (CurvePoint& point : plane.curve) {
    point.fitted = !point.between && !point.above && !point.saturated && point.signal > 0 &&
                   point.signal <= most && point.moments.atFull <= fewPixels;
    if (point.fitted) points.push_back(&point);
  }
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
  sayIfPairsDiffer(plane, points);
}

/// The straight line through the means of all dark frames.
void fitDarkCurrent(PlaneTransfer& plane) {
  double count = 0, t = 0, y = 0;
  for (const DarkLevel& dark : plane.darks)
    for (const double mean : dark.frameMeans)
      ++count, t += dark.exposure, y += mean;
  t /= count, y /= count;
  double tt = 0, ty = 0, yy = 0;
  for (const DarkLevel& dark : plane.darks)
    for (const double mean : dark.frameMeans) {
      tt += square(dark.exposure - t);
      ty += (dark.exposure - t) * (mean - y);
      yy += square(mean - y);
    }
  if (!(tt > 0)) {
    say(plane, "dark_current_e_per_s",
        "The dark current is not known: the darks have one exposure. Read noise and offset include it.");
    return;
  }
  const double slope = ty / tt;
  const double scatter = std::fmax(ownVariance(shortestDark(plane)), (yy - slope * ty) / (count - 2));
  plane.darkCurrentAdu = {slope, std::sqrt(scatter / tt)};
  plane.darkCurrent = {slope * plane.gain.value,
                       std::hypot(plane.darkCurrentAdu.error * plane.gain.value, slope * plane.gain.error)};
}

void findOffset(PlaneTransfer& plane) {
  const DarkLevel& dark = shortestDark(plane);
  const auto frames = static_cast<double>(dark.frameMeans.size());
  double scatter = 0;
  for (const double mean : dark.frameMeans)
    scatter += square(mean - dark.mean()) / (frames - 1);
  plane.offset = {dark.mean(), std::sqrt(std::fmax(scatter, ownVariance(dark)) / frames)};
  if (plane.darkCurrentAdu.known()) {
    plane.offset.value -= plane.darkCurrentAdu.value * dark.exposure;
    plane.offset.error = std::hypot(plane.offset.error, plane.darkCurrentAdu.error * dark.exposure);
  }
  if (dark.atZero > fewPixels)
    say(plane, "offset_adu",
        number(100 * dark.atZero) +
            " % of the pixels of the darks are 0: the offset is too low for the noise, which comes out too "
            "small.");
}

/// Dark current leaves K times its ADU as variance.
Estimate darkShotVariance(const PlaneTransfer& plane, const DarkLevel& dark) {
  if (!plane.darkCurrentAdu.known() || !plane.gain.known()) return {0, 0};
  const Estimate adu = {plane.darkCurrentAdu.value * dark.exposure,
                        plane.darkCurrentAdu.error * dark.exposure};
  const Estimate variance = quotient(adu, plane.gain);
  return {std::fmax(0, variance.value), variance.error};
}

/// Rounding adds 1/12 to a variance v, and up to (1 / pi^2 + 4 v) exp(-2 pi^2 v) more or less: where the
/// offset lies between two counts decides. On the mean square, that over sqrt 2.
double roundingError(double v) {
  constexpr double pi = 3.14159265358979323846;
  return (1 / square(pi) + 4 * v) * std::exp(-2 * square(pi) * v) / std::sqrt(2.0);
}

void findReadNoise(PlaneTransfer& plane) {
  const DarkLevel& dark = shortestDark(plane);
  if (dark.variance.value < hiddenVariance) {
    plane.readNoiseLimit = std::sqrt(hiddenVariance - roundingVariance) * plane.gain.value;
    say(plane, "read_noise_e",
        "Rounding to whole ADU hides the read noise: the darks' variance of " + number(dark.variance.value) +
            " is below 0.24 ADU squared. It is below 0.40 ADU; the dynamic range is a lower limit.");
    return;
  }
  const Estimate shot = darkShotVariance(plane, dark);
  const double whole = dark.variance.value - roundingVariance;
  const Estimate variance = {whole - shot.value,
                             std::hypot(dark.variance.error, shot.error, roundingError(whole))};
  plane.readNoiseAdu = rootOf(variance);
  if (!plane.gain.known()) return;
  plane.readNoise = {
      plane.readNoiseAdu.value * plane.gain.value,
      std::hypot(plane.readNoiseAdu.error * plane.gain.value, plane.readNoiseAdu.value * plane.gain.error)};
}

Estimate decibel(const Estimate& ratio) {
  constexpr double perFactor = 20;
  return {perFactor * std::log10(ratio.value), perFactor / std::log(10.0) * ratio.error / ratio.value};
}

/// Capacity, sensitivity threshold sqrt(sigma^2 + 1/4) + 1/2 with the darks' noise in electrons, their ratio.
void findRange(PlaneTransfer& plane) {
  if (!plane.gain.known()) return;
  const DarkLevel& dark = shortestDark(plane);
  const bool hidden = dark.variance.value < hiddenVariance;
  const Estimate adu = hidden ? Estimate{hiddenDeviation, 0} : rootOf(dark.variance);
  const Estimate noise = {adu.value * plane.gain.value,
                          std::hypot(adu.error * plane.gain.value, adu.value * plane.gain.error)};
  const double root = std::sqrt(square(noise.value) + 0.25);
  plane.threshold = {root + 0.5, noise.error * noise.value / root};
  if (!plane.saturationAdu.known()) return;
  plane.saturation = {
      plane.saturationAdu.value * plane.gain.value,
      std::hypot(plane.saturationAdu.error * plane.gain.value, plane.saturationAdu.value * plane.gain.error)};
  plane.dynamicRange = decibel(quotient(plane.saturation, plane.threshold));
  plane.bestSnr = decibel(rootOf(plane.saturation));
}

// ---- Linearity

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
        "takes "
        "for granted.");
}

Estimate electrons(const Estimate& variance, const Estimate& gain) {
  const Estimate root = rootOf(variance);
  return {root.value * gain.value, std::hypot(root.error * gain.value, root.value * gain.error)};
}

Estimate percent(const Estimate& flat, const Estimate& dark, double signal) {
  const Estimate root = rootOf({flat.value - dark.value, std::hypot(flat.error, dark.error)});
  return {100 * root.value / signal, 100 * root.error / signal};
}

}  // namespace

double DarkLevel::mean() const {
  return std::accumulate(frameMeans.begin(), frameMeans.end(), 0.0) / static_cast<double>(frameMeans.size());
}

PlaneTransfer photonTransfer(std::vector<CurvePoint> points, std::vector<DarkLevel> darks, double fullScale) {
  PlaneTransfer plane;
  plane.curve = std::move(points);
  plane.darks = std::move(darks);
  std::sort(plane.darks.begin(), plane.darks.end(),
            [](const DarkLevel& a, const DarkLevel& b) { return a.exposure < b.exposure; });
  std::stable_sort(plane.curve.begin(), plane.curve.end(), [](const CurvePoint& a, const CurvePoint& b) {
    return a.moments.meanOfBoth() < b.moments.meanOfBoth();
  });
  subtractDarks(plane);
  findSaturation(plane);
  fitGain(plane, fullScale);
  fitDarkCurrent(plane);
  findOffset(plane);
  findReadNoise(plane);
  findRange(plane);
  findLinearity(plane, fullScale);
  return plane;
}

std::optional<std::size_t> pointForUniformity(const PlaneTransfer& plane, double fullScale) {
  const double half = referenceSignal(plane, fullScale) / 2;
  std::optional<std::size_t> best;
  for (std::size_t i = 0; i < plane.curve.size(); ++i) {
    const CurvePoint& point = plane.curve[i];
    if (point.saturated || point.between || point.signal <= 0 || point.moments.atFull > fewPixels) continue;
    if (!best || std::fabs(point.signal - half) < std::fabs(plane.curve[*best].signal - half)) best = i;
  }
  return best;
}

void addNonuniformity(PlaneTransfer& plane, const SpatialVariance& flat, const SpatialVariance& dark) {
  plane.flatFrames = flat.frames;
  plane.darkFrames = dark.frames;
  plane.prnuSignal = flat.mean - dark.mean;
  plane.prnu = percent(flat.total, dark.total, plane.prnuSignal);
  plane.prnuRow = percent(flat.row, dark.row, plane.prnuSignal);
  plane.prnuColumn = percent(flat.column, dark.column, plane.prnuSignal);
  plane.prnuPixel = percent(flat.pixel, dark.pixel, plane.prnuSignal);
  plane.prnuLocal = percent(flat.local, dark.local, plane.prnuSignal);
  if (!plane.gain.known()) return;
  plane.dsnu = electrons(dark.total, plane.gain);
  plane.dsnuRow = electrons(dark.row, plane.gain);
  plane.dsnuColumn = electrons(dark.column, plane.gain);
  plane.dsnuPixel = electrons(dark.pixel, plane.gain);
}

}  // namespace orvacam::science
