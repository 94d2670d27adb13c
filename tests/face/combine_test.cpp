// Pixels of many frames into one: the definitions, worked out here without sorting anything.

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "face/FaceTesting.h"

using namespace face_testing;
using orvacam::Combined;
using orvacam::Combining;
using orvacam::Stack;
using Method = Stack::Method;

namespace {

constexpr Method methods[] = {Method::mean,    Method::sum,        Method::median,    Method::minimum,
                              Method::maximum, Method::sigma_clip, Method::winsorized};

double medianOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

long double sumOf(const std::vector<double>& values) {
  long double sum = 0;
  for (const double value : values)
    sum += value;
  return sum;
}

double deviationOf(const std::vector<double>& values) {
  const long double mean = sumOf(values) / values.size();
  long double squares = 0;
  for (const double value : values)
    squares += (value - mean) * (value - mean);
  return static_cast<double>(std::sqrt(squares / values.size()));
}

struct Expected {
  double value, deviation;
  std::size_t rejected;
};

Expected clipped(std::vector<double> values, double low, double high, bool winsorized) {
  std::vector<double> gone;
  const std::vector<double> all = values;
  double lowest = 0, highest = 0, centre = 0;
  for (int round = 0; round < 20 && !values.empty(); ++round) {
    centre = medianOf(values);
    const double deviation = deviationOf(values);
    lowest = centre - low * deviation;
    highest = centre + high * deviation;
    std::vector<double> stay;
    for (const double value : values)
      (value >= lowest && value <= highest ? stay : gone).push_back(value);
    if (stay.size() == values.size()) break;
    values = stay;
  }
  const double left = values.empty() ? 0 : deviationOf(values);
  if (!winsorized)
    return {values.empty() ? centre : static_cast<double>(sumOf(values) / values.size()), left, gone.size()};
  // Those that went lie below or above the ones that stay; with none left, below or above the middle.
  long double sum = sumOf(values);
  for (const double value : gone)
    sum += (values.empty() ? value < centre : value < values.front()) ? lowest : highest;
  return {static_cast<double>(sum / all.size()), left, gone.size()};
}

Expected expectedOf(const Combining& how, const std::vector<double>& values) {
  const double deviation = deviationOf(values);
  switch (how.method) {
    case Method::mean: {
      long double sum = 0, weights = 0;
      for (std::size_t i = 0; i < values.size(); ++i) {
        const double weight = how.weights.empty() ? 1 : how.weights[i];
        sum += static_cast<long double>(weight) * values[i];
        weights += weight;
      }
      return {static_cast<double>(sum / weights), deviation, 0};
    }
    case Method::sum:
      return {static_cast<double>(sumOf(values)), deviation, 0};
    case Method::median:
      return {medianOf(values), deviation, 0};
    case Method::minimum:
      return {*std::min_element(values.begin(), values.end()), deviation, 0};
    case Method::maximum:
      return {*std::max_element(values.begin(), values.end()), deviation, 0};
    default:
      return clipped(values, how.sigma_low, how.sigma_high, how.method == Method::winsorized);
  }
}

/// What the library makes of rows, and the same rows as they were given.
template <typename Pixel>
struct Outcome {
  Outcome(const Combining& how, const std::vector<std::vector<Pixel>>& frames)
      : values(frames.front().size()), deviations(values.size()), rejected(values.size()) {
    std::vector<const Pixel*> rows;
    for (const auto& frame : frames)
      rows.push_back(frame.data());
    combine(how, rows, values.size(), Combined{values.data(), deviations.data(), rejected.data()});
  }
  std::vector<double> values, deviations;
  std::vector<std::uint16_t> rejected;
};

template <typename Pixel>
void holdsToTheDefinition(const Combining& how, const std::vector<std::vector<Pixel>>& frames) {
  const Outcome<Pixel> run(how, frames);
  for (std::size_t i = 0; i < run.values.size(); ++i) {
    std::vector<double> values;
    for (std::size_t f = 0; f < frames.size(); ++f)
      values.push_back(frames[f][i] * (how.scales.empty() ? 1 : how.scales[f]) +
                       (how.offsets.empty() ? 0 : how.offsets[f]));
    const Expected expected = expectedOf(how, values);
    ASSERT_NEAR(run.values[i], expected.value, std::abs(expected.value) * 1e-13) << i;
    ASSERT_NEAR(run.deviations[i], expected.deviation, 1e-9 + expected.deviation * 1e-12) << i;
    ASSERT_EQ(run.rejected[i], expected.rejected) << i;
  }
}

/// Noise with bright and dark outliers, in odd numbers of pixels.
std::vector<std::vector<std::uint16_t>> noisyFrames(std::size_t frames, unsigned int seed,
                                                    std::size_t pixels = 77) {
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(1000, 20);
  std::vector<std::vector<std::uint16_t>> all(frames, std::vector<std::uint16_t>(pixels));
  for (auto& frame : all)
    for (auto& pixel : frame) {
      const unsigned int kind = random() % 24;
      pixel = static_cast<std::uint16_t>(kind == 0 ? random() % 65536 : kind == 1 ? 0 : noise(random));
    }
  return all;
}

}  // namespace

TEST(FaceCombine, HoldsToTheDefinitionOfEveryMethod) {
  for (const Method method : methods)
    for (const std::size_t frames : {1, 2, 3, 4, 7, 16, 33, 90}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(method) << " of " << frames);
      Combining how;
      how.method = method;
      holdsToTheDefinition(how, noisyFrames(frames, 3));
      how.sigma_low = 1.5;
      how.sigma_high = 2;
      holdsToTheDefinition(how, noisyFrames(frames, 4));
    }
}

TEST(FaceCombine, ScalesAndOffsetsComeFirst) {
  for (const Method method : methods) {
    SCOPED_TRACE(static_cast<int>(method));
    Combining how;
    how.method = method;
    for (int f = 0; f < 12; ++f) {
      how.scales.push_back(0.75 + f / 16.0);
      how.offsets.push_back(f * 10.5 - 40);
    }
    const auto frames = noisyFrames(12, 5);
    holdsToTheDefinition(how, frames);
    std::vector<std::vector<double>> doubles;
    for (const auto& frame : frames)
      doubles.emplace_back(frame.begin(), frame.end());
    EXPECT_EQ((Outcome<double>(how, doubles).values), (Outcome<std::uint16_t>(how, frames).values));
    how.scales.clear();
    holdsToTheDefinition(how, doubles);
  }
}

TEST(FaceCombine, DoublesGiveWhatIntegersGive) {
  for (const Method method : methods) {
    const auto frames = noisyFrames(25, 6);
    std::vector<std::vector<double>> doubles;
    for (const auto& frame : frames)
      doubles.emplace_back(frame.begin(), frame.end());
    Combining how;
    how.method = method;
    const Outcome<std::uint16_t> integers(how, frames);
    const Outcome<double> others(how, doubles);
    EXPECT_EQ(integers.rejected, others.rejected);
    for (std::size_t i = 0; i < integers.values.size(); ++i)
      EXPECT_NEAR(integers.values[i], others.values[i], 1e-9);
  }
}

TEST(FaceCombine, WeighsMeans) {
  Combining how;
  how.weights = {1, 0, 2.5, 4};
  holdsToTheDefinition(how, noisyFrames(4, 7));
}

TEST(FaceCombine, AValueAtTheLimitStays) {
  // 16 zeros, -9 and 9 about 100: the deviation is 3, and 3 of it exactly 9.
  std::vector<std::vector<std::uint16_t>> frames(18, {100});
  frames[4] = {91};
  frames[11] = {109};
  Combining how;
  how.method = Method::sigma_clip;
  EXPECT_EQ((Outcome<std::uint16_t>(how, frames).rejected[0]), 0);
  how.sigma_high = 2.999;
  EXPECT_EQ((Outcome<std::uint16_t>(how, frames).rejected[0]), 2);  // 109 goes, and then 91 is outside, too
  EXPECT_EQ((Outcome<std::uint16_t>(how, frames).values[0]), 100);
}

TEST(FaceCombine, WinsorizedValuesAreSetToTheLimitsOfTheLastRound) {
  // 30 values of 100 +- 1 and one outlier; once it is gone, the limits are 100 +- 3.
  std::vector<std::vector<std::uint16_t>> frames;
  for (int f = 0; f < 30; ++f)
    frames.push_back({static_cast<std::uint16_t>(f % 2 == 0 ? 99 : 101)});
  frames.push_back({60000});
  Combining how;
  how.method = Method::winsorized;
  const Outcome<std::uint16_t> run(how, frames);
  EXPECT_EQ(run.rejected[0], 1);
  EXPECT_DOUBLE_EQ(run.values[0], (30 * 100 + 103) / 31.0);
  EXPECT_EQ(run.deviations[0], 1);
}

TEST(FaceCombine, WhereAllWouldGoTheMedianStays) {
  Combining how;
  how.method = Method::sigma_clip;
  how.sigma_low = how.sigma_high = 0.5;
  const Outcome<std::uint16_t> run(how, {{10}, {20}});
  EXPECT_EQ(run.values[0], 15);
  EXPECT_EQ(run.rejected[0], 2);
  EXPECT_EQ(run.deviations[0], 0);
}

TEST(FaceCombine, PartsOfARowGiveTheWholeRow) {
  const auto frames = noisyFrames(9, 8, 200);
  for (const Method method : methods) {
    Combining how;
    how.method = method;
    const Outcome<std::uint16_t> whole(how, frames);
    std::vector<double> values(200);
    for (std::size_t first = 0, count = 1; first < 200;
         first += count, count = std::min(count + 5, 200 - first)) {
      std::vector<const std::uint16_t*> rows;
      for (const auto& frame : frames)
        rows.push_back(frame.data() + first);
      combine(how, rows, count, Combined{values.data() + first, nullptr, nullptr});
    }
    EXPECT_EQ(values, whole.values);
  }
}

TEST(FaceCombine, RefusesWhatCannotBeMeant) {
  const std::uint16_t pixel = 1;
  const std::vector<const std::uint16_t*> rows = {&pixel, &pixel};
  double value = 7;
  constexpr double infinite = std::numeric_limits<double>::infinity();
  const Combining wrong[] = {{static_cast<Method>(7)},
                             {Method::mean, 3, 3, {}, {}, {1}},
                             {Method::mean, 3, 3, {}, {}, {0, 0}},
                             {Method::mean, 3, 3, {}, {}, {-1, 5}},
                             {Method::mean, 3, 3, {1, std::nan("")}},
                             {Method::mean, 3, 3, {}, {1, -infinite}},
                             {Method::median, 3, 3, {}, {}, {1, 1}},
                             {Method::sigma_clip, 0, 3},
                             {Method::winsorized, 3, infinite}};
  for (const Combining& how : wrong)
    EXPECT_EQ(reasonOf([&] {
                combine(how, rows, 1, Combined{&value, nullptr, nullptr});
              }),
              Reason::bad_argument)
        << &how - wrong;
  const Combined out{&value, nullptr, nullptr};
  EXPECT_EQ(reasonOf([&] { orvacam::combine<std::uint16_t>({}, {}, 1, out); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] {
              orvacam::combine<std::uint16_t>({}, {&pixel, nullptr}, 1, out);
            }),
            Reason::bad_argument);
  const double bad = infinite;
  EXPECT_EQ(reasonOf([&] { orvacam::combine<double>({}, {&bad}, 1, out); }), Reason::bad_argument);
  const void* const untyped[] = {&pixel};
  orva_combining how{sizeof how, ORVA_STACK_MEAN, 3, 3, nullptr, nullptr, nullptr};
  orva_combined target{sizeof target, &value, nullptr, nullptr};
  EXPECT_EQ(orva_combine(&how, ORVA_PIXEL_F32, untyped, 1, 1, &target), -ORVA_BAD_ARGUMENT);
  EXPECT_EQ(orva_combine(nullptr, ORVA_PIXEL_U16, untyped, 1, 1, &target), -ORVA_BAD_ARGUMENT);
  EXPECT_EQ(orva_combine(&how, ORVA_PIXEL_U16, nullptr, 1, 1, &target), -ORVA_BAD_ARGUMENT);
  EXPECT_EQ(orva_combine(&how, ORVA_PIXEL_U16, untyped, 1, 1, nullptr), -ORVA_BAD_ARGUMENT);
  EXPECT_EQ(value, 7);
}
