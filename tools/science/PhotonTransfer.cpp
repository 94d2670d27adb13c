#include "science/PhotonTransfer.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "science/TransferSteps.h"

namespace orvacam::science {

void say(PlaneTransfer& plane, const char* field, const std::string& text) {
  plane.notes.push_back({field, text});
}

const DarkLevel& darkOf(const PlaneTransfer& plane, double exposure) {
  return *std::find_if(plane.darks.begin(), plane.darks.end(),
                       [&](const DarkLevel& dark) { return dark.exposure == exposure; });
}

const DarkLevel& shortestDark(const PlaneTransfer& plane) {
  return *std::find_if(plane.darks.begin(), plane.darks.end(),
                       [](const DarkLevel& dark) { return dark.variance.known(); });
}

double referenceSignal(const PlaneTransfer& plane, double fullScale) {
  return plane.saturationAdu.known() ? plane.saturationAdu.value : fullScale - shortestDark(plane).mean();
}

namespace {

constexpr double hiddenDeviation = 0.49;  // the root of hiddenVariance: what is used instead

void subtractDarks(PlaneTransfer& plane) {
  for (CurvePoint& point : plane.curve) {
    const DarkLevel& dark = darkOf(plane, point.exposure);
    point.signal = point.moments.meanOfBoth() - dark.mean();
    point.excess = {point.moments.variance - dark.variance.value,
                    std::hypot(point.moments.varianceError, dark.variance.error)};
  }
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
  const Estimate noise = product(adu, plane.gain);
  const double root = std::sqrt(square(noise.value) + 0.25);
  plane.threshold = {root + 0.5, noise.error * noise.value / root};
  if (!plane.saturationAdu.known()) return;
  plane.saturation = product(plane.saturationAdu, plane.gain);
  plane.dynamicRange = decibel(quotient(plane.saturation, plane.threshold));
  plane.bestSnr = decibel(rootOf(plane.saturation));
}

Estimate electrons(const Estimate& variance, const Estimate& gain) {
  return product(rootOf(variance), gain);
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
  measureDarks(plane);
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
