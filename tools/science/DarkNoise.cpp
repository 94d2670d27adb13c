#include <cmath>

#include "science/TransferSteps.h"

namespace orvacam::science {

namespace {

constexpr double roundingVariance = 1.0 / 12;  // of a value that is rounded to whole ADU

/// Of a frame's mean, by its own noise: frames may scatter less by chance, above all two of them.
double ownVariance(const DarkLevel& dark) {
  return std::fmax(dark.variance.value / dark.pixels, dark.meanVariance);
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
  plane.darkCurrent = product(plane.darkCurrentAdu, plane.gain);
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
  plane.readNoise = product(plane.readNoiseAdu, plane.gain);
}

}  // namespace

void measureDarks(PlaneTransfer& plane) {
  fitDarkCurrent(plane);
  findOffset(plane);
  findReadNoise(plane);
}

}  // namespace orvacam::science
