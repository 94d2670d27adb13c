#include "science/PairMoments.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvacam::science {

namespace {

struct Sums {
  std::uint64_t a = 0, b = 0, zero = 0, full = 0;
};

Sums sumsOf(const Image<std::uint16_t>& a, const Image<std::uint16_t>& b, const Region& r,
            std::uint32_t fullScale) {
  Sums sums;
  for (std::uint32_t y = r.y; y < r.y + r.height; ++y) {
    const std::uint16_t* const rowA = a.row(y) + r.x;
    const std::uint16_t* const rowB = b.row(y) + r.x;
    std::uint32_t zero = 0, full = 0;
    for (std::uint32_t x = 0; x < r.width; ++x) {
      const std::uint32_t va = rowA[x], vb = rowB[x];
      sums.a += va;
      sums.b += vb;
      zero += static_cast<std::uint32_t>(va == 0) + static_cast<std::uint32_t>(vb == 0);
      full += static_cast<std::uint32_t>(va >= fullScale) + static_cast<std::uint32_t>(vb >= fullScale);
    }
    sums.zero += zero;
    sums.full += full;
  }
  return sums;
}

/// Half the variance of the means of these lines' differences: temporal noise of a line's mean.
double noiseOfMeans(const std::vector<std::int64_t>& sums, double length) {
  const auto count = static_cast<double>(sums.size());
  double mean = 0, squares = 0;
  for (const std::int64_t sum : sums)
    mean += static_cast<double>(sum) / length / count;
  for (const std::int64_t sum : sums)
    squares += square(static_cast<double>(sum) / length - mean);
  return squares / (count - 1) / 2;
}

/// Splits the variance. With r, c, p of rows, columns, pixels, the means of rows of w pixels vary by r + p /
/// w, those of columns of h pixels by c + p / h, and single pixels by r + c + p.
void split(PairMoments& m, const std::vector<std::int64_t>& rowSums,
           const std::vector<std::int64_t>& columnSums) {
  const auto width = static_cast<double>(columnSums.size()), height = static_cast<double>(rowSums.size());
  m.meanVariance = m.variance / m.pixels;
  const double share = 1 - 1 / width - 1 / height;
  if (rowSums.size() < 2 || columnSums.size() < 2 || share <= 0) return;
  const double ofRows = noiseOfMeans(rowSums, width), ofColumns = noiseOfMeans(columnSums, height);
  const double pixel = std::fmax(0, m.variance - ofRows - ofColumns) / share;
  const auto error = [](double variance, double count) { return variance * std::sqrt(2 / (count - 1)); };
  m.row = {ofRows - pixel / width, error(ofRows, height)};
  m.column = {ofColumns - pixel / height, error(ofColumns, width)};
  // Beyond what independent pixels explain.
  const double more = std::fmax(0, square(m.row.error) - square(error(pixel / width, height))) +
                      std::fmax(0, square(m.column.error) - square(error(pixel / height, width)));
  m.varianceError = std::sqrt(square(m.varianceError) + more);
  m.meanVariance = std::fmax(m.meanVariance, ofRows / height + ofColumns / width - pixel / m.pixels);
}

double meanDifference(const Image<std::uint16_t>& a, const Image<std::uint16_t>& b, const Region& r) {
  const Sums sums = sumsOf(a, b, r, 65536);
  return (static_cast<double>(sums.a) - static_cast<double>(sums.b)) /
         (static_cast<double>(r.width) * r.height);
}

}  // namespace

PairMoments momentsOf(const Image<std::uint16_t>& a, const Image<std::uint16_t>& b, const Region& r,
                      std::uint32_t fullScale) {
  PairMoments m;
  m.pixels = static_cast<double>(r.width) * r.height;
  const Sums sums = sumsOf(a, b, r, fullScale);
  m.mean[0] = static_cast<double>(sums.a) / m.pixels;
  m.mean[1] = static_cast<double>(sums.b) / m.pixels;
  m.atZero = static_cast<double>(sums.zero) / (2 * m.pixels);
  m.atFull = static_cast<double>(sums.full) / (2 * m.pixels);

  // The whole part of the difference of the means goes first, so that fourth powers are those of the noise.
  const auto shift = static_cast<std::int64_t>(std::llround(m.mean[0] - m.mean[1]));
  std::uint64_t squares = 0;
  double fourths = 0;
  std::vector<std::int64_t> rowSums(r.height), columnSums(r.width);
  for (std::uint32_t y = r.y; y < r.y + r.height; ++y) {
    const std::uint16_t* const rowA = a.row(y) + r.x;
    const std::uint16_t* const rowB = b.row(y) + r.x;
    double inRow = 0;
    for (std::uint32_t x = 0; x < r.width; ++x) {
      const std::int64_t d = static_cast<std::int64_t>(rowA[x]) - rowB[x] - shift;
      const auto squared = static_cast<std::uint64_t>(d * d);
      squares += squared;
      inRow += static_cast<double>(squared) * static_cast<double>(squared);
      rowSums[y - r.y] += d;
      columnSums[x] += d;
    }
    fourths += inRow;
  }
  const double rest = m.mean[0] - m.mean[1] - static_cast<double>(shift);
  const double second = static_cast<double>(squares) / m.pixels - rest * rest;
  const double fourth = fourths / m.pixels;
  m.variance = std::fmax(second, 0) / 2;
  m.varianceError = std::sqrt(std::fmax(fourth - second * second, 0) / (4 * m.pixels));
  split(m, rowSums, columnSums);
  return m;
}

double covarianceOf(const Image<std::uint16_t>& firstA, const Image<std::uint16_t>& firstB,
                    const Image<std::uint16_t>& secondA, const Image<std::uint16_t>& secondB,
                    const Region& r) {
  const double first = meanDifference(firstA, firstB, r), second = meanDifference(secondA, secondB, r);
  std::int64_t products = 0;
  for (std::uint32_t y = r.y; y < r.y + r.height; ++y)
    for (std::uint32_t x = r.x; x < r.x + r.width; ++x)
      products += (static_cast<std::int64_t>(firstA(x, y)) - firstB(x, y)) *
                  (static_cast<std::int64_t>(secondA(x, y)) - secondB(x, y));
  return (static_cast<double>(products) / (static_cast<double>(r.width) * r.height) - first * second) / 2;
}

}  // namespace orvacam::science
