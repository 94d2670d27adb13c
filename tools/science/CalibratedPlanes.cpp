#include <algorithm>
#include <cmath>
#include <limits>

#include "science/CalibrationDraft.h"

namespace orvacam::science {

namespace {

constexpr double offLevel = 4;  // deviations of a frame's noise; beyond, values are left out

/// As pixels are combined: the median, of two frames the lower level.
double usualLevel(const CalibrationDraft& draft, unsigned p) {
  std::vector<double> levels;
  for (const auto& level : draft.survey.levels)
    levels.push_back(level[p]);
  const std::size_t place = levels.size() == 2 ? 0 : levels.size() / 2;
  const auto usual = levels.begin() + static_cast<std::ptrdiff_t>(place);
  std::nth_element(levels.begin(), usual, levels.end());
  return *usual;
}

/// Variance that a mean of all frames still has: half of them against the other half. Where one half was
/// left out (few frames, one of them spoilt), by the noise of what is left.
double leftInMean(const CalibrationDraft& draft, const RowSums& sums, double temporal) {
  const auto frames = static_cast<double>(draft.result.frames),
             pixels = static_cast<double>(draft.imagePixels());
  if (sums.halfPixels < pixels / 2)
    return temporal / std::fmax(1, frames - static_cast<double>(sums.rejected) / pixels);
  const double even = std::ceil(frames / 2), odd = std::floor(frames / 2);
  const double mean = sums.halves / sums.halfPixels;
  return std::fmax(sums.halfSquares / sums.halfPixels - mean * mean, 0) * even * odd / (frames * frames);
}

/// Of the frames whose level is not off; the drift is that of all.
void setLevel(CalibrationDraft& draft, unsigned p, const Estimate& temporal) {
  CalibratedPlane& plane = draft.result.planes[p];
  std::vector<double> levels;
  double least = std::numeric_limits<double>::infinity(), most = -least, mean = 0, squares = 0;
  for (std::size_t i = 0; i < draft.survey.levels.size(); ++i) {
    const double level = draft.survey.levels[i][p];
    least = std::fmin(least, level);
    most = std::fmax(most, level);
    if (!draft.isOff(i, p, std::sqrt(temporal.value))) levels.push_back(level);
  }
  plane.drift = most - least;
  const auto frames = static_cast<double>(levels.size());
  for (const double level : levels)
    mean += level / frames;
  for (const double level : levels)
    squares += (level - mean) * (level - mean);
  // Light that changes from flat to flat, or an offset that drifts, is more than the pixels' noise.
  const double scale = draft.flat() ? mean : 1;
  const double noise = temporal.value * scale * scale / frames / static_cast<double>(draft.imagePixels());
  plane.level = {mean, std::sqrt(std::fmax(noise, frames > 1 ? squares / (frames - 1) / frames : 0))};
}

Estimate meanSquare(double squares, double freedom) {
  return freedom > 0 ? Estimate{squares / freedom, squares / freedom * std::sqrt(2 / freedom)} : Estimate{};
}

double sumOfSquares(const std::vector<double>& values) {
  double all = 0;
  for (const double value : values)
    all += value * value;
  return all;
}

/// The variance of the means over the image region, in parts of columns, rows and pixels, less the noise
/// that a mean of these frames still has. Listed pixels count as the mean.
void setPattern(CalibrationDraft& draft, unsigned p, const Estimate& temporal, double unit) {
  const Region& image = draft.survey.image;
  const std::vector<float>& means = draft.maps[p].means;
  const std::vector<std::uint8_t>& mask = draft.result.planes[p].mask;
  const double width = image.width, height = image.height;
  double sum = 0, count = 0;
  draft.eachImagePixel([&](std::size_t pixel) {
    if (mask[pixel] != 0) return;
    sum += means[pixel];
    count += 1;
  });
  const double mean = sum / count;
  std::vector<double> rows(image.height), columns(image.width);
  const auto off = [&](std::size_t pixel) { return mask[pixel] != 0 ? 0.0 : means[pixel] - mean; };
  draft.eachImagePixel([&](std::size_t pixel) {
    rows[pixel / draft.survey.size.width - image.y] += off(pixel) / width;
    columns[pixel % draft.survey.size.width - image.x] += off(pixel) / height;
  });
  double rest = 0;
  draft.eachImagePixel([&](std::size_t pixel) {
    const double r = off(pixel) - rows[pixel / draft.survey.size.width - image.y] -
                     columns[pixel % draft.survey.size.width - image.x];
    rest += r * r;
  });
  const Estimate white = meanSquare(rest, (width - 1) * (height - 1));
  const double noise = temporal.value / static_cast<double>(draft.result.frames);
  CalibratedPlane& plane = draft.result.planes[p];
  const auto scaled = [unit](Estimate variance, double less) {
    variance.value -= less;
    const Estimate root = rootOf(variance);
    return Estimate{unit * root.value, unit * root.error};
  };
  const Estimate column = meanSquare(sumOfSquares(columns), width - 1),
                 row = meanSquare(sumOfSquares(rows), height - 1);
  plane.pixels = scaled(white, noise);
  plane.columns = scaled(column, white.value / height);
  plane.rows = scaled(row, white.value / width);
  const Estimate total = {white.value + column.value + row.value,
                          std::hypot(white.error, column.error, row.error)};
  plane.before = scaled(total, noise + white.value / height + white.value / width);
}

void describe(CalibrationDraft& draft, unsigned p) {
  CalibratedPlane& plane = draft.result.planes[p];
  const RowSums& sums = draft.maps[p].sums;
  plane.rejected = sums.rejected;
  const double unit = draft.flat() ? 100 : 1;                     // percent of the level
  Estimate temporal = {draft.survey.noise[p].variance, unknown};  // where no pixel is ordinary
  if (sums.freedom > 0) {
    temporal.value = sums.temporal / sums.freedom;
    temporal.error = temporal.value * std::sqrt(2 / sums.freedom);
  }
  setLevel(draft, p, temporal);
  setPattern(draft, p, temporal, unit);
  plane.noise = rootOf(temporal);
  if (draft.flat()) {  // from parts of the level to counts
    plane.noise.value *= plane.level.value;
    plane.noise.error *= plane.level.value;
  }
  plane.after = unit * std::sqrt(leftInMean(draft, sums, temporal.value));
}

}  // namespace

bool CalibrationDraft::isOff(std::size_t frame, unsigned plane, double noise) const {
  static const double ofRounding = std::sqrt(1.0 / 12);  // pixels are whole counts
  const double off = std::fabs(survey.levels[frame][plane] - usualLevels[plane]);
  return !flat() && off > offLevel * std::fmax(noise, ofRounding);
}

void describePlanes(CalibrationDraft& draft) {
  for (unsigned p = 0; p < draft.maps.size(); ++p) {
    draft.usualLevels[p] = usualLevel(draft, p);
    describe(draft, p);
  }
}

}  // namespace orvacam::science
