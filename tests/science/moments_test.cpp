#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

#include "science/Nonuniformity.h"
#include "science/PairMoments.h"

namespace {

using namespace orvacam;
using Pixels = std::vector<std::uint16_t>;

Image<std::uint16_t> imageOf(std::uint32_t width, std::uint32_t height, const Pixels& pixels) {
  return Image<std::uint16_t>::copy({width, height}, pixels.data());
}

TEST(PairMoments, AreThoseOfAHandCalculation) {
  // Differences 3, -1, 1, 1: mean 1, squares about it 4, 4, 0, 0: half of their mean is 1. Fourth powers 16,
  // 16, 0, 0: (8 - 2^2) / (4 x 4) = 1/4 is the square of the error.
  const auto a = imageOf(2, 2, {13, 9, 0, 101});
  const auto b = imageOf(2, 2, {10, 10, 65535, 100});
  auto pixels = Pixels{13, 9, 11, 101};
  const auto m =
      science::momentsOf(imageOf(2, 2, pixels), imageOf(2, 2, {10, 10, 10, 100}), {0, 0, 2, 2}, 100);
  EXPECT_EQ(m.pixels, 4);
  EXPECT_EQ(m.mean[0], 33.5);
  EXPECT_EQ(m.mean[1], 32.5);
  EXPECT_EQ(m.meanOfBoth(), 33);
  EXPECT_EQ(m.variance, 1);
  EXPECT_EQ(m.varianceError, 0.5);
  EXPECT_EQ(m.atFull, 0.25);
  EXPECT_EQ(m.atZero, 0);
  EXPECT_EQ(science::momentsOf(a, b, {0, 0, 2, 2}).atZero, 0.125);
}

TEST(PairMoments, LookAtTheRegionAlone) {
  Pixels first(8 * 5, 60000), second(8 * 5, 0);
  for (const std::uint32_t y : {1u, 2u})
    for (const std::uint32_t x : {2u, 3u, 4u})
      first[y * 8 + x] = 7, second[y * 8 + x] = 7;
  const auto m = science::momentsOf(imageOf(8, 5, first), imageOf(8, 5, second), {2, 1, 3, 2});
  EXPECT_EQ(m.pixels, 6);
  EXPECT_EQ(m.meanOfBoth(), 7);
  EXPECT_EQ(m.variance, 0);
}

TEST(PairMoments, TakeNeitherPatternNorChangedLightForNoise) {
  // A pattern of 65000 ADU, and light that changed by 300: no noise. Without rounding, sums would not survive
  // it.
  Pixels first, second;
  for (std::uint32_t i = 0; i < 4096; ++i) {
    first.push_back(static_cast<std::uint16_t>(i * 15));
    second.push_back(static_cast<std::uint16_t>(i * 15 + 300));
  }
  const auto m = science::momentsOf(imageOf(64, 64, first), imageOf(64, 64, second), {0, 0, 64, 64});
  EXPECT_EQ(m.variance, 0);
  EXPECT_EQ(m.varianceError, 0);
  EXPECT_EQ(m.mean[1] - m.mean[0], 300);
}

TEST(PairMoments, HaveTheErrorThatTheirScatterShows) {
  std::mt19937_64 random(5);
  std::normal_distribution<double> noise(1000, 12);
  double sum = 0, squares = 0, error = 0;
  constexpr int rounds = 200;
  for (int i = 0; i < rounds; ++i) {
    Pixels a, b;
    for (int p = 0; p < 1024; ++p) {
      a.push_back(static_cast<std::uint16_t>(std::lround(noise(random))));
      b.push_back(static_cast<std::uint16_t>(std::lround(noise(random))));
    }
    const auto m = science::momentsOf(imageOf(32, 32, a), imageOf(32, 32, b), {0, 0, 32, 32});
    sum += m.variance, squares += m.variance * m.variance, error += m.varianceError;
  }
  const double mean = sum / rounds;
  const double scatter = std::sqrt(squares / rounds - mean * mean);
  EXPECT_NEAR(mean, 144 + 1 / 12.0, 3 * scatter / std::sqrt(rounds));
  EXPECT_NEAR(error / rounds / scatter, 1, 0.2);  // the scatter itself is known to 5 %
  EXPECT_NEAR(error / rounds, mean * std::sqrt(2 / 1024.0), 0.03 * mean * std::sqrt(2 / 1024.0));
}

/// Frames of 48 x 32 pixels whose rows (3 ADU), columns (2 ADU) and pixels (5 ADU) are noisy.
class NoisyLines {
 public:
  static constexpr std::uint32_t width = 48, height = 32;

  Image<std::uint16_t> frame() {
    std::vector<double> rows(height), columns(width);
    for (double& row : rows)
      row = 3 * m_normal(m_random);
    for (double& column : columns)
      column = 2 * m_normal(m_random);
    Pixels pixels;
    for (std::uint32_t y = 0; y < height; ++y)
      for (std::uint32_t x = 0; x < width; ++x)
        pixels.push_back(
            static_cast<std::uint16_t>(std::lround(1000 + rows[y] + columns[x] + 5 * m_normal(m_random))));
    return imageOf(width, height, pixels);
  }
  science::PairMoments pair() { return science::momentsOf(frame(), frame(), {0, 0, width, height}); }

 private:
  std::mt19937_64 m_random{7};
  std::normal_distribution<double> m_normal;
};

/// Mean and scatter of what was seen.
struct Seen {
  double count = 0, sum = 0, squares = 0;
  void add(double value) { count += 1, sum += value, squares += value * value; }
  double mean() const { return sum / count; }
  double scatter() const { return std::sqrt(squares / count - mean() * mean()); }
};

TEST(PairMoments, TellTheNoiseOfRowsAndColumnsApart) {
  NoisyLines camera;
  Seen rows, columns, variances, means, errors, rowErrors, columnErrors, meanVariances;
  for (int i = 0; i < 400; ++i) {
    const science::PairMoments m = camera.pair();
    rows.add(m.row.value), columns.add(m.column.value), variances.add(m.variance), means.add(m.mean[0]);
    errors.add(m.varianceError), rowErrors.add(m.row.error), columnErrors.add(m.column.error);
    meanVariances.add(m.meanVariance);
  }
  EXPECT_NEAR(rows.mean(), 9, 3 * rows.scatter() / 20);  // of 400 rounds
  EXPECT_NEAR(columns.mean(), 4, 3 * columns.scatter() / 20);
  // Errors are what the rounds scatter by, which they tell to 4 %; single pixels would explain a third of it.
  EXPECT_NEAR(errors.mean() / variances.scatter(), 1, 0.15);
  EXPECT_NEAR(rowErrors.mean() / rows.scatter(), 1, 0.15);
  EXPECT_NEAR(columnErrors.mean() / columns.scatter(), 1, 0.15);
  EXPECT_NEAR(std::sqrt(meanVariances.mean()) / means.scatter(), 1, 0.15);
}

TEST(PairMoments, HaveNoLinesToTellApartInTwoByTwoPixels) {
  const auto m =
      science::momentsOf(imageOf(2, 2, {13, 9, 11, 101}), imageOf(2, 2, {10, 10, 10, 100}), {0, 0, 2, 2});
  EXPECT_EQ(m.row.value, 0);
  EXPECT_EQ(m.column.value, 0);
  EXPECT_EQ(m.meanVariance, 0.25);
}

TEST(MeanImage, TakesNoisyRowsAndColumnsNotForAPattern) {
  NoisyLines camera;
  Seen row, column, pixel, local, rowErrors;
  for (int i = 0; i < 60; ++i) {
    const auto a = camera.frame(), b = camera.frame();
    const Region all{0, 0, NoisyLines::width, NoisyLines::height};
    const science::PairMoments m = science::momentsOf(a, b, all);
    science::MeanImage image(all);
    image.add(a), image.add(b);
    const auto v = image.variance({{m.variance, m.varianceError}, m.row, m.column});
    row.add(v.row.value), column.add(v.column.value), pixel.add(v.pixel.value), local.add(v.local.value);
    rowErrors.add(v.row.error);
  }
  for (const Seen* const part : {&row, &column, &pixel, &local})
    EXPECT_NEAR(part->mean(), 0, 3 * part->scatter() / std::sqrt(60));
  EXPECT_NEAR(rowErrors.mean() / row.scatter(), 1, 0.3);
}

TEST(PairMoments, OfTwoPlanesHaveTheirCommonNoise) {
  // Differences 2, -2 and 20, -20: covariance 40, of which half. The light of both changed by 1 and 5 as
  // well.
  const auto low = imageOf(2, 1, {13, 9}), lowB = imageOf(2, 1, {10, 10});
  const auto high = imageOf(2, 1, {125, 85}), highB = imageOf(2, 1, {100, 100});
  EXPECT_DOUBLE_EQ(science::covarianceOf(low, lowB, high, highB, {0, 0, 2, 1}), 20);
}

// ---- Mean images

TEST(MeanImage, SplitsRowsColumnsAndPixels) {
  // Rows 1 and 5, columns 2 and 4 about 3, nothing remains: variances 8 and 2.
  science::MeanImage image({0, 0, 2, 2});
  image.add(imageOf(2, 2, {0, 2, 4, 6}));
  const auto v = image.variance({0, 0});
  EXPECT_EQ(v.frames, 1u);
  EXPECT_DOUBLE_EQ(v.mean, 3);
  EXPECT_DOUBLE_EQ(v.row.value, 8);
  EXPECT_DOUBLE_EQ(v.column.value, 2);
  EXPECT_DOUBLE_EQ(v.pixel.value, 0);
  EXPECT_DOUBLE_EQ(v.total.value, 10);
  EXPECT_DOUBLE_EQ(v.row.error, 8 * std::sqrt(2.0));
}

TEST(MeanImage, TakesOffTheNoiseThatAMeanKeeps) {
  // (0, 4; 4, 0): rows and columns are 2, each pixel is 2 off: 16 / 1. Two frames of it with a temporal
  // variance of 6 keep 3.
  science::MeanImage image({1, 1, 2, 2});
  const auto frame = imageOf(3, 3, {9, 9, 9, 9, 0, 4, 9, 4, 0});
  image.add(frame);
  image.add(frame);
  const auto v = image.variance({6, 1});
  EXPECT_EQ(v.frames, 2u);
  EXPECT_DOUBLE_EQ(v.mean, 2);
  EXPECT_DOUBLE_EQ(v.pixel.value, 13);
  EXPECT_DOUBLE_EQ(v.pixel.error, 0.5);
  EXPECT_DOUBLE_EQ(v.row.value, -8);  // a variance may come out below 0: 0 - 16 / 2
  EXPECT_DOUBLE_EQ(science::rootOf(v.row).value, 0);
}

TEST(MeanImage, FindsAPlantedPatternWithinItsError) {
  constexpr std::uint32_t width = 160, height = 120, frames = 8;
  std::array<int, 3> within{};
  constexpr int rounds = 12;
  for (int round = 0; round < rounds; ++round) {
    std::mt19937_64 random(round);
    std::normal_distribution<double> normal;
    std::vector<double> rows(height), columns(width), pixels(width * height);
    for (double& row : rows)
      row = 3 * normal(random);
    for (double& column : columns)
      column = 5 * normal(random);
    for (double& pixel : pixels)
      pixel = 7 * normal(random);
    science::MeanImage image({0, 0, width, height});
    for (std::uint32_t f = 0; f < frames; ++f) {
      Pixels frame;
      for (std::uint32_t y = 0; y < height; ++y)
        for (std::uint32_t x = 0; x < width; ++x)
          frame.push_back(static_cast<std::uint16_t>(
              std::lround(1000 + rows[y] + columns[x] + pixels[y * width + x] + 20 * normal(random))));
      image.add(imageOf(width, height, frame));
    }
    const auto v = image.variance({400 + 1 / 12.0, 0});
    const std::array<science::Estimate, 3> found = {v.row, v.column, v.pixel};
    const std::array<double, 3> planted = {9, 25, 49};
    for (std::size_t i = 0; i < 3; ++i)
      if (std::fabs(found[i].value - planted[i]) < 2 * found[i].error) ++within[i];
  }
  for (const int count : within)
    EXPECT_GE(count, rounds - 2);  // two errors hold 95 %
}

TEST(MeanImage, TakesUnevenLightNotForAPatternOfItsSurroundings) {
  // White noise of 25 ADU squared and a temporal variance of 100 in 4 frames, under light that falls off by
  // half.
  constexpr std::uint32_t width = 200, height = 150, frames = 4;
  std::mt19937_64 random(3);
  std::normal_distribution<double> normal;
  std::vector<double> pattern(width * height);
  for (double& pixel : pattern)
    pixel = 5 * normal(random);
  science::MeanImage image({0, 0, width, height});
  for (std::uint32_t f = 0; f < frames; ++f) {
    Pixels frame;
    for (std::uint32_t y = 0; y < height; ++y)
      for (std::uint32_t x = 0; x < width; ++x) {
        const double dx = x / 400.0, dy = y / 400.0;
        frame.push_back(static_cast<std::uint16_t>(std::lround(
            10000 / (1 + 0.5 * (dx * dx + dy * dy)) + pattern[y * width + x] + 10 * normal(random))));
      }
    image.add(imageOf(width, height, frame));
  }
  const auto v = image.variance({100 + 1 / 12.0, 0});
  EXPECT_GT(v.total.value, 1e4);
  EXPECT_NEAR(v.local.value, 25, 3 * v.local.error);
  EXPECT_LT(v.local.error, 1);
}

TEST(MeanImage, TakesTheLowPassOfTheStandardFromASinglePixel) {
  // One pixel of 1000 in the middle of 39 x 39: what is left there is 1000 (1 - k^2), k the middle weight of
  // the 19: sums over boxes of 7 and 11 overlap by 7 at the shifts -1 to 1: 7 / 77.
  Pixels pixels(39 * 39, 0);
  pixels[19 * 39 + 19] = 1000;
  science::MeanImage image({0, 0, 39, 39});
  image.add(imageOf(39, 39, pixels));
  const std::vector<double> box = {1, 2, 3, 4, 5, 6, 7, 7, 7, 7, 7, 6, 5, 4, 3, 2, 1};  // / 77
  std::vector<double> kernel(19);
  for (std::size_t i = 0; i < box.size(); ++i)
    kernel[i] += box[i] / 308, kernel[i + 1] += box[i] / 154, kernel[i + 2] += box[i] / 308;
  EXPECT_DOUBLE_EQ(kernel[9], 7 / 77.0);
  double second = 0, sum = 0, squares = 0;
  for (int y = -10; y <= 10; ++y)  // the pixels with whole surroundings
    for (int x = -10; x <= 10; ++x) {
      const bool near = std::abs(x) <= 9 && std::abs(y) <= 9;
      const double low =
          near ? 1000 * kernel[static_cast<std::size_t>(x + 9)] * kernel[static_cast<std::size_t>(y + 9)] : 0;
      const double rest = (x == 0 && y == 0 ? 1000 : 0) - low;
      sum += rest, second += rest * rest;
    }
  for (const double weight : kernel)
    squares += weight * weight;
  const double left = 1 - 2 * kernel[9] * kernel[9] + squares * squares;
  const double variance = second / 441 - sum / 441 * sum / 441;
  EXPECT_NEAR(image.variance({0, 0}).local.value, variance / left, 1e-9 * variance);
}

TEST(MeanImage, KnowsNoSurroundingsInASmallImage) {
  for (const std::uint32_t size : {19u, 20u}) {
    science::MeanImage image({0, 0, size, size});
    image.add(imageOf(size, size, Pixels(size * size, 7)));
    EXPECT_EQ(image.variance({0, 0}).local.known(), size == 20) << size;
  }
}

TEST(MeanImage, KnowsNothingOfALineOrOfNothing) {
  science::MeanImage line({0, 0, 3, 1});
  line.add(imageOf(3, 1, {1, 2, 3}));
  EXPECT_FALSE(line.variance({0, 0}).total.known());
  EXPECT_DOUBLE_EQ(line.variance({0, 0}).mean, 2);
  EXPECT_FALSE(science::MeanImage({0, 0, 3, 3}).variance({0, 0}).total.known());
}

TEST(MeanImage, HoldsAsManyFramesAsItsSumsCan) {
  science::MeanImage image({0, 0, 1, 1});
  const auto white = imageOf(1, 1, {65535});
  for (int i = 0; i < 65536; ++i)
    image.add(white);
  EXPECT_DOUBLE_EQ(image.variance({0, 0}).mean, 65535);
  EXPECT_THROW(image.add(white), std::length_error);
  EXPECT_EQ(image.frames(), 65536u);
}

}  // namespace
