// The stretch, held to its formula by hand, and scaling by area.

#include <gtest/gtest.h>

#include <cmath>

#include "files/Stretch.h"

namespace {

using namespace orvacam::files;

orvacam::Image<std::uint16_t> imageOf(std::uint32_t width, std::uint32_t height,
                                      std::vector<std::uint16_t> pixels) {
  return orvacam::Image<std::uint16_t>::copy({width, height}, pixels.data());
}

TEST(Stretches, BringTheMedianToAQuarter) {
  // Median 30, deviations 20 10 0 10 20: median 10, m = 14.826, s = max(0, 30 - 41.5) = 0, w = 4095.
  const auto image = imageOf(5, 1, {10, 20, 30, 40, 50});
  const orvacam::Region all{0, 0, 5, 1};
  const Stretch stretch(image, all, 4095, StretchKind::Auto);
  EXPECT_EQ(stretch.at(30), 64);  // 255 / 4 = 63.75
  EXPECT_EQ(stretch.at(0), 0);
  EXPECT_EQ(stretch.at(4095), 255);
  EXPECT_EQ(stretch.at(60000), 255);
  // x = 30 / 4095, b = 3 x / (2 x + 1); value 100: (b - 1) x / ((2 b - 1) x - b).
  const double x = 30 / 4095.0, b = 3 * x / (2 * x + 1), v = 100 / 4095.0;
  EXPECT_EQ(stretch.at(100), std::lround(255 * (b - 1) * v / ((2 * b - 1) * v - b)));
  const Stretch curve(image, all, 4095, StretchKind::Asinh);
  EXPECT_EQ(curve.at(1000), std::lround(255 * std::asinh(10 * 1000 / 4095.0) / std::asinh(10.0)));
  const Stretch line(image, all, 4095, StretchKind::Linear);
  EXPECT_EQ(line.at(10), 0);
  EXPECT_EQ(line.at(30), 128);
  EXPECT_EQ(line.at(50), 255);
}

TEST(Stretches, OfNearlyEqualPixelsAreLinearAndOfEqualOnesBlack) {
  const auto mostly = imageOf(5, 1, {7, 7, 7, 7, 9});
  const Stretch line(mostly, {0, 0, 5, 1}, 4095, StretchKind::Auto);
  EXPECT_EQ(line.at(7), 0);
  EXPECT_EQ(line.at(8), 128);
  EXPECT_EQ(line.at(9), 255);
  for (const StretchKind kind : {StretchKind::Auto, StretchKind::Asinh, StretchKind::Linear})
    EXPECT_EQ(Stretch(imageOf(2, 1, {7, 7}), {0, 0, 2, 1}, 4095, kind).at(7), 0);
}

TEST(Pictures, AreScaledDownByAreaAndNeverUp) {
  const auto image = imageOf(4, 2, {0, 100, 200, 100, 100, 200, 100, 0});
  const Stretch line(image, {0, 0, 4, 2}, 4095, StretchKind::Linear);
  const Picture half = pictureOf(image, {0, 0, 4, 2}, 2, line);
  EXPECT_EQ(half.size, (orvacam::Size{2, 1}));
  EXPECT_EQ(half.pixels, (std::vector<std::uint8_t>{128, 128}));  // means of 100
  const Picture part = pictureOf(image, {1, 0, 2, 2}, 100, line);
  EXPECT_EQ(part.pixels, (std::vector<std::uint8_t>{128, 255, 255, 128}));
  // Three pixels into two: each is one and a half.
  const auto three = imageOf(3, 1, {0, 60, 120});
  const Stretch to120(three, {0, 0, 3, 1}, 4095, StretchKind::Linear);
  const Picture two = pictureOf(three, {0, 0, 3, 1}, 2, to120);
  EXPECT_EQ(two.pixels, (std::vector<std::uint8_t>{43, 213}));  // 20 and 100 of 120: 42.5, 212.5
}

TEST(Pictures, HaveAMedianBetweenTheMiddleTwo) {
  EXPECT_EQ(medianOf(imageOf(4, 1, {9, 1, 4, 5}), {0, 0, 4, 1}), 4.5);
  EXPECT_EQ(medianOf(imageOf(4, 1, {9, 1, 4, 5}), {1, 0, 3, 1}), 4);
}

}  // namespace
