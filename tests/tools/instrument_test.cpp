// The simulated camera that is to be calibrated: what its frames say is what is known of it.

#include <gmock/gmock.h>

#include <cmath>
#include <set>

#include "simulator/Instrument.h"
#include "simulator/Noise.h"

namespace {

namespace sim = orvacam::simulator;
using ::testing::ElementsAreArray;
using ::testing::Not;

// ---- Random numbers

struct Moments {
  double count = 0, sum = 0, squares = 0, cubes = 0;
  void add(double v) { count += 1, sum += v, squares += v * v, cubes += v * v * v; }
  double mean() const { return sum / count; }
  double variance() const { return squares / count - mean() * mean(); }
  double thirdMoment() const {
    return cubes / count - 3 * mean() * squares / count + 2 * mean() * mean() * mean();
  }
};

TEST(SimulatedNoise, IsNormallyDistributedUpToItsTails) {
  Moments moments;
  constexpr int draws = 2000000;
  int beyond[5] = {};
  for (int i = 0; i < draws; ++i) {
    const double z = sim::normalOf(sim::bitsAt(sim::keyOf(5, 1), static_cast<std::uint64_t>(i)));
    moments.add(z);
    for (int n = 0; n < 5; ++n)
      if (z > n) ++beyond[n];
  }
  EXPECT_NEAR(moments.mean(), 0, 4 / std::sqrt(draws));
  EXPECT_NEAR(moments.variance(), 1, 4 * std::sqrt(2.0 / draws));
  for (int n = 0; n < 5; ++n) {
    const double expected = draws * std::erfc(n / std::sqrt(2.0)) / 2;
    EXPECT_NEAR(beyond[n], expected, 4 * std::sqrt(expected)) << n << " deviations";
  }
  // The rarest and the commonest draws.
  EXPECT_NEAR(sim::normalOf(0), 7.1, 0.1);
  EXPECT_NEAR(sim::normalOf(1), -7.1, 0.1);
  EXPECT_NEAR(sim::normalOf(~std::uint64_t{1}), 0, 1e-9);
}

TEST(SimulatedNoise, CountsElectronsAsPoissonDid) {
  for (const double mean : {0.01, 0.7, 4.0, 11.9, 12.1, 30.0, 500.0, 1e5}) {
    SCOPED_TRACE(mean);
    Moments moments;
    constexpr int draws = 400000;
    for (int i = 0; i < draws; ++i) {
      const double count = sim::poissonOf(mean, sim::bitsAt(sim::keyOf(6, 2), static_cast<std::uint64_t>(i)));
      ASSERT_GE(count, 0);
      ASSERT_EQ(count, std::floor(count));
      moments.add(count);
    }
    EXPECT_NEAR(moments.mean(), mean, 4 * std::sqrt(mean / draws));
    EXPECT_NEAR(moments.variance(), mean, 4 * mean * std::sqrt((2 + 1 / mean) / draws));
    if (mean < 20) {
      EXPECT_NEAR(moments.thirdMoment(), mean, 0.1 * mean + 0.02);
    }
  }
  EXPECT_EQ(sim::poissonOf(0, 12345), 0);
  EXPECT_EQ(sim::poissonOf(-1, 12345), 0);
}

// ---- Frames

class SimulatedInstrument : public ::testing::TestWithParam<const char*> {
 protected:
  SimulatedInstrument() {
    fields = sim::headerFor(camera, camera.electronsHigh > 0 ? "hdr" : "single").value();
    fields.width = 160;
    fields.height = 120;
  }
  std::vector<sim::Plane> expose(sim::FrameType type, unsigned number, double level = 0, double seconds = 0) {
    fields.frameNumber = number;
    fields.exposure = static_cast<unsigned>(seconds * 1e5);
    sim::Sky sky;
    sky.seed = instrument.seed;
    return sim::exposeFrame(camera, fields, instrument, type, level, sky);
  }
  /// Mean, variance from frame to frame and mean per pixel, over 16 frames.
  struct Series {
    double mean = 0, variance = 0;
    std::vector<double> pixels;
  };
  std::vector<Series> series(sim::FrameType type, double level = 0, double seconds = 0) {
    constexpr unsigned frames = 16;
    std::vector<std::vector<Moments>> all;
    for (unsigned number = 0; number < frames; ++number) {
      const std::vector<sim::Plane> planes = expose(type, number, level, seconds);
      all.resize(planes.size());
      for (std::size_t p = 0; p < planes.size(); ++p) {
        all[p].resize(planes[p].size());
        for (std::size_t i = 0; i < planes[p].size(); ++i)
          all[p][i].add(planes[p][i]);
      }
    }
    std::vector<Series> result(all.size());
    for (std::size_t p = 0; p < all.size(); ++p)
      for (const Moments& m : all[p]) {
        result[p].mean += m.mean() / static_cast<double>(all[p].size());
        result[p].variance += m.variance() * frames / (frames - 1.0) / static_cast<double>(all[p].size());
        result[p].pixels.push_back(m.mean());
      }
    return result;
  }

  const sim::Camera& camera = *sim::findCamera(GetParam());
  sim::HeaderFields fields;
  sim::Instrument instrument;
};

TEST_P(SimulatedInstrument, ShowsInItsFramesWhatIsTrueOfIt) {
  const double level = 0.6 * sim::usualLevel(camera, fields);
  const std::vector<Series> bias = series(sim::FrameType::Bias);
  const std::vector<Series> flat = series(sim::FrameType::Flat, level);
  const std::vector<Series> dark = series(sim::FrameType::Dark, 0, 100);
  const sim::Truth truth = sim::truthOf(camera, fields, instrument);
  ASSERT_EQ(bias.size(), truth.planes.size());
  for (std::size_t p = 0; p < bias.size(); ++p) {
    const sim::PlaneTruth& plane = truth.planes[p];
    SCOPED_TRACE(plane.name);
    // 19200 pixels, 16 frames: a variance is known to sqrt(2 / 288000), 0.26 %.
    const double noise = plane.readNoise / plane.gain;
    const double pixels = static_cast<double>(bias[p].pixels.size());
    EXPECT_NEAR(bias[p].mean, plane.offset, 5 * noise / std::sqrt(16 * pixels) + 1e-9);
    EXPECT_NEAR(std::sqrt(bias[p].variance - 1.0 / 12) / noise, 1, 0.008);
    // Photon transfer: electrons = gain x counts, and their variance is as large as they are.
    const double counts = flat[p].mean - bias[p].mean;
    EXPECT_NEAR(counts * plane.gain / level, 1, 0.003);
    const double shot = flat[p].variance - bias[p].variance;
    EXPECT_NEAR(counts / shot / plane.gain, 1,
                4 * std::sqrt(2 / (15 * pixels)) * std::hypot(flat[p].variance, bias[p].variance) / shot);

    EXPECT_NEAR((dark[p].mean - bias[p].mean) * plane.gain / 100 / plane.darkCurrent, 1,
                5 * std::sqrt(plane.readNoise * plane.readNoise + 200) / 200 / std::sqrt(16 * pixels));
    // The offsets' spread: columns, rows and pixels, and what is left of the noise.
    double spread = 0;
    for (const double pixel : bias[p].pixels)
      spread += (pixel - bias[p].mean) * (pixel - bias[p].mean) / pixels;
    const double offsets = std::hypot(plane.columnNoise, plane.rowNoise, plane.pixelNoise) / plane.gain;
    EXPECT_NEAR(std::sqrt(spread - bias[p].variance / 16) / offsets, 1, 0.03);
    double response = 0;
    for (std::size_t i = 0; i < flat[p].pixels.size(); ++i)
      response += std::pow((flat[p].pixels[i] - bias[p].pixels[i]) / counts - 1, 2) / pixels;
    response -= (flat[p].variance + bias[p].variance) / 16 / counts / counts;
    EXPECT_NEAR(response, 1e-4, p == 0 && bias.size() == 2 ? 1e-4 : 0.1e-4);
  }
  if (bias.size() == 2) {
    EXPECT_NEAR(truth.ratio, (flat[1].mean - bias[1].mean) / (flat[0].mean - bias[0].mean),
                0.003 * truth.ratio);
  }
}

TEST_P(SimulatedInstrument, KeepsItsPatternAndChangesItsNoiseFromFrameToFrame) {
  const auto first = expose(sim::FrameType::Bias, 1);
  EXPECT_EQ(first, expose(sim::FrameType::Bias, 1));
  EXPECT_NE(first, expose(sim::FrameType::Bias, 2));
  EXPECT_NE(first, expose(sim::FrameType::Flat, 1, 0));  // no electrons either
  instrument.readNoise = 0;
  EXPECT_EQ(expose(sim::FrameType::Bias, 1), expose(sim::FrameType::Bias, 2));
  const auto pattern = expose(sim::FrameType::Bias, 1);
  instrument.seed = 2;
  EXPECT_NE(expose(sim::FrameType::Bias, 1), pattern);
}

TEST_P(SimulatedInstrument, HasHotBlinkingAndDeadPixelsWhereItSays) {
  instrument.hotPixels = 12, instrument.blinking = 9, instrument.deadPixels = 7;
  const sim::Truth truth = sim::truthOf(camera, fields, instrument);
  ASSERT_EQ(truth.hot.size(), 12u);
  ASSERT_EQ(truth.blinking.size(), 9u);
  ASSERT_EQ(truth.dead.size(), 7u);
  const double level = 0.6 * sim::usualLevel(camera, fields);
  const auto bias = series(sim::FrameType::Bias);
  const auto dark = series(sim::FrameType::Dark, 0, 1);
  const auto flat = series(sim::FrameType::Flat, level);
  std::vector<std::vector<unsigned>> seen[2];
  for (unsigned number = 0; number < 16; ++number) {
    const auto planes = expose(sim::FrameType::Bias, number);
    for (std::size_t p = 0; p < planes.size(); ++p)
      seen[p].push_back({planes[p].begin(), planes[p].end()});
  }
  for (std::size_t p = 0; p < bias.size(); ++p) {
    const double gain = truth.planes[p].gain;
    const auto at = [&](const sim::Place& place) { return std::size_t{place.y} * fields.width + place.x; };
    for (const sim::Place& place : truth.hot) {
      EXPECT_GT(dark[p].pixels[at(place)] - bias[p].pixels[at(place)], 450 / gain);
      const sim::PlaneTruth& plane = truth.planes[p];
      const double spread = std::hypot(plane.columnNoise, plane.rowNoise, plane.pixelNoise) / gain;
      EXPECT_NEAR(bias[p].pixels[at(place)], plane.offset, 5 * spread);
    }
    for (const sim::Place& place : truth.dead)
      EXPECT_LT((flat[p].pixels[at(place)] - bias[p].pixels[at(place)]) * gain, 0.3 * level);
    for (const sim::Place& place : truth.blinking) {
      std::set<unsigned> values;
      for (const auto& frame : seen[p])
        values.insert(frame[at(place)]);
      EXPECT_GT(*values.rbegin() - *values.begin(), 30 * truth.planes[p].readNoise / gain);
    }
  }
}

TEST_P(SimulatedInstrument, ShowsTheSameSensorInASubFrame) {
  instrument.readNoise = 0;
  const auto whole = expose(sim::FrameType::Bias, 1);
  const unsigned width = fields.width;
  fields.startRow = 20, fields.startColumn = 8, fields.width = 32, fields.height = 10;
  const auto part = expose(sim::FrameType::Bias, 1);
  for (std::size_t p = 0; p < whole.size(); ++p)
    for (unsigned y = 0; y < 10; ++y)
      for (unsigned x = 0; x < 32; ++x)
        ASSERT_EQ(part[p][y * 32 + x], whole[p][(y + 20) * width + x + 8]) << x << ", " << y;
}

TEST_P(SimulatedInstrument, LightsTheImageAloneAndCutsOffAtTheFullScale) {
  fields.preRefRows = 2, fields.postRefRows = 2;
  const auto flat = expose(sim::FrameType::Flat, 1, 1e7);
  for (std::size_t p = 0; p < flat.size(); ++p) {
    const unsigned full = camera.bits == 12 ? 4095 : 65535;
    EXPECT_LT(flat[p][5], 1000u);
    EXPECT_EQ(flat[p][std::size_t{50} * 160 + 80], full);
    EXPECT_EQ(sim::truthOf(camera, fields, instrument).planes[p].fullScale, full);
  }
  const auto light = expose(sim::FrameType::Light, 1);
  const double sky = sim::lightOfSky(fields, {}).at(std::size_t{50} * 160 + 80);
  const sim::PlaneTruth plane = sim::truthOf(camera, fields, instrument).planes.back();
  const double noise = std::sqrt(sky + plane.readNoise * plane.readNoise + 9) / plane.gain;
  EXPECT_NEAR(light.back()[std::size_t{52} * 160 + 80], plane.offset + sky / plane.gain, 5 * noise);
}

INSTANTIATE_TEST_SUITE_P(Cameras, SimulatedInstrument,
                         ::testing::Values("GSENSE400", "GSENSE2020", "GSENSE6060", "CCD230-42", "GENERIC"),
                         [](const auto& info) {
                           std::string name = info.param;
                           name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                           return name;
                         });

}  // namespace
