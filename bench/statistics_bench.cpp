// Statistics of one plane.

#include <benchmark/benchmark.h>
#include <fitsio.h>
#include <orvacam.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "Benchmarks.h"
#include "Compare.h"
#include "HdrFrame.h"
#include "statistics/PlaneCounts.h"

namespace {

using namespace orvacam::bench;

/// What a user would write: histogram, sums and extremes with their places, pixel by pixel.
struct PlainStatistics {
  void run(const Plane& plane, unsigned int side) {
    histogram.assign(65536, 0.0);
    sum = squares = 0.0;
    smallest = 65535;
    largest = 0;
    for (std::size_t i = 0; i < plane.size(); ++i) {
      const unsigned int value = plane[i];
      histogram[value] += 1.0;
      sum += value;
      squares += static_cast<double>(value) * value;
      if (value > largest) {
        largest = value;
        largestAt = {static_cast<int>(i % side), static_cast<int>(i / side)};
      }
      if (value < smallest) {
        smallest = value;
        smallestAt = {static_cast<int>(i % side), static_cast<int>(i / side)};
      }
    }
    mean = sum / static_cast<double>(plane.size());
    deviation = std::sqrt(squares / static_cast<double>(plane.size()) - mean * mean);
  }
  std::vector<double> histogram;
  double sum = 0, squares = 0, mean = 0, deviation = 0;
  unsigned int smallest = 0, largest = 0;
  int_point_t smallestAt{}, largestAt{};
};

void statsByCfitsio(Plane& plane, unsigned int side) {
  long good = 0;
  short smallest = 0;  // 12-bit pixels are positive, whichever way they are read
  short largest = 0;
  double mean = 0, sigma = 0, noise1 = 0, noise2 = 0, noise3 = 0, noise5 = 0;
  int status = 0;
  fits_img_stats_short(reinterpret_cast<short*>(plane.data()), side, side, 0, 0, &good, &smallest, &largest,
                       &mean, &sigma, &noise1, &noise2, &noise3, &noise5, &status);
  require(status == 0, "fits_img_stats");
}

unsigned long readOnce(const Plane& plane) {
  unsigned long seen = 0;
  const auto* const words = reinterpret_cast<const unsigned long*>(plane.data());
  for (std::size_t i = 0; i < plane.size() / 4; ++i)
    seen ^= words[i];
  return seen;
}

void statistics(benchmark::State& state, unsigned int side, bool random) {
  Plane plane = hdrFrame(side, random ? Scene::RandomPixels : Scene::Stars).low;
  const auto stats = std::make_unique<CFrameStatistics>();
  const auto gather = [&] {
    stats->Reset();
    for (unsigned int y = 0; y < side; ++y)
      orvacam::addRow(*stats, plane.data() + std::size_t{y} * side, side, 0, static_cast<int>(y));
    stats->Compute();
  };
  gather();
  std::vector<double> histogram(65535);
  image_plane_stats_t result{};
  result.pHistogram = histogram.data();
  result.uiHistogramSize = 65535;
  orvacam::copyResults(*stats, result);
  PlainStatistics plain;
  plain.run(plane, side);
  require(result.dMean == plain.mean && result.uiMax == plain.largest && result.uiMin == plain.smallest &&
              result.maxPoint.x == plain.largestAt.x && result.maxPoint.y == plain.largestAt.y &&
              result.minPoint.x == plain.smallestAt.x && result.minPoint.y == plain.smallestAt.y &&
              std::equal(histogram.begin(), histogram.end(), plain.histogram.begin()),
          "statistics");

  compareWithCopies(state, 2 * plane.size(), gather,
                    {{"reading", [&] { benchmark::DoNotOptimize(readOnce(plane)); }},
                     {"plain loop", [&] { plain.run(plane, side); }, true},
                     {"CFITSIO", [&] { statsByCfitsio(plane, side); }, true}});
}

}  // namespace

void orvacam::bench::addStatisticsRows(bool small) {
  const unsigned int side = fullSide(small);
  addRowForTables("statistics, sky", side,
                  [side](benchmark::State& state) { statistics(state, side, false); });
  addRowForTables("statistics, random pixels", side,
                  [side](benchmark::State& state) { statistics(state, side, true); });
}
