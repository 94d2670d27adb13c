#include "science/PairMoments.h"

#include <cmath>

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
  for (std::uint32_t y = r.y; y < r.y + r.height; ++y) {
    const std::uint16_t* const rowA = a.row(y) + r.x;
    const std::uint16_t* const rowB = b.row(y) + r.x;
    double inRow = 0;
    for (std::uint32_t x = 0; x < r.width; ++x) {
      const std::int64_t d = static_cast<std::int64_t>(rowA[x]) - rowB[x] - shift;
      const auto square = static_cast<std::uint64_t>(d * d);
      squares += square;
      inRow += static_cast<double>(square) * static_cast<double>(square);
    }
    fourths += inRow;
  }
  const double rest = m.mean[0] - m.mean[1] - static_cast<double>(shift);
  const double second = static_cast<double>(squares) / m.pixels - rest * rest;
  const double fourth = fourths / m.pixels;
  m.variance = std::fmax(second, 0) / 2;
  m.varianceError = std::sqrt(std::fmax(fourth - second * second, 0) / (4 * m.pixels));
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
