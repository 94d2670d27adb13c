// Bias, DSNU and PRNU files, held to a simulated camera whose fixed pattern, noise and defects are known, to
// a plain reading of the files and to the library's merge.

#include "science/Calibration.h"

#include <gmock/gmock.h>

#include <cmath>
#include <fstream>
#include <map>
#include <set>

#include "TestFolder.h"
#include "science/Refused.h"
#include "simulator/Instrument.h"

namespace {

namespace science = orvacam::science;
namespace sim = orvacam::simulator;
using orvacam::Frame;
using science::Calibration;
using science::CalibrationKind;
using science::CalibrationSource;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Bytes = std::vector<unsigned char>;

/// Two bytes of a file, the low one first.
unsigned littleAt(const std::string& file, std::size_t at) {
  return static_cast<unsigned char>(file.at(at)) |
         static_cast<unsigned>(static_cast<unsigned char>(file.at(at + 1))) << 8;
}
/// A big-endian number of a header.
unsigned bigAt(const std::string& file, std::size_t at, unsigned bytes) {
  unsigned value = 0;
  for (unsigned i = 0; i < bytes; ++i)
    value = value << 8 | static_cast<unsigned char>(file.at(at + i));
  return value;
}
/// A plane of a reference file as numbers.
std::vector<double> planeOf(const std::string& file, unsigned plane, bool isSigned, double one) {
  const std::size_t pixels = std::size_t{bigAt(file, 81, 2)} * bigAt(file, 83, 2);
  std::vector<double> terms;
  for (std::size_t i = 0; i < pixels; ++i) {
    const unsigned stored = littleAt(file, 384 + 2 * (plane * pixels + i));
    terms.push_back((isSigned && stored > 32767 ? double(stored) - 65536 : double(stored)) / one);
  }
  return terms;
}

struct Moments {
  double count = 0, sum = 0, squares = 0;
  void add(double value) { count += 1, sum += value, squares += value * value; }
  double mean() const { return sum / count; }
  double deviation() const { return std::sqrt(std::max(0.0, squares / count - mean() * mean())); }
};

class Calibrating : public ::testing::Test {
 protected:
  Calibrating() { useCamera("GSENSE400", "hdr"); }

  void useCamera(const char* name, const char* mode) {
    camera = sim::findCamera(name);
    fields = sim::withGains(*camera, sim::headerFor(*camera, mode).value());
    fields.width = 96;
    fields.height = 64;
  }
  std::vector<sim::Plane> expose(sim::FrameType type, unsigned number, double seconds, double level) {
    fields.frameNumber = number;
    fields.exposure = static_cast<unsigned>(seconds * 1e5);
    return sim::exposeFrame(*camera, fields, instrument, type, level, sim::Sky());
  }
  std::string keep(const std::string& name, const std::vector<sim::Plane>& planes, unsigned version = 3) {
    frames[name] = sim::encodeFrame(fields, version, planes);
    return name;
  }
  std::string take(sim::FrameType type, unsigned number, double seconds = 0, double level = 0) {
    const char* const kinds[] = {"light", "bias", "dark", "flat"};
    return keep(kinds[static_cast<int>(type)] + std::to_string(number), expose(type, number, seconds, level));
  }
  CalibrationSource source(CalibrationKind kind, unsigned count, double seconds = 2, double level = 12000) {
    CalibrationSource s = sourceOf(kind);
    for (unsigned i = 0; i < count; ++i)
      s.frames.push_back(kind == CalibrationKind::bias   ? take(sim::FrameType::Bias, i)
                         : kind == CalibrationKind::dark ? take(sim::FrameType::Dark, i, seconds)
                                                         : take(sim::FrameType::Flat, i, seconds, level));
    return s;
  }
  CalibrationSource sourceOf(CalibrationKind kind) {
    CalibrationSource s;
    s.kind = kind;
    s.read = [this](const std::string& name) {
      const Bytes& bytes = frames.at(name);
      return Frame::copy(bytes.data(), bytes.size());
    };
    return s;
  }
  /// Writes a calibration's file, to be read by the library.
  std::string write(const std::string& name, const Calibration& calibration) {
    folder.write(name, {calibration.file.begin(), calibration.file.end()});
    return folder.file(name);
  }
  orvacam::Decoded decode(orvacam::Decoder& decoder, const std::string& name) {
    const Bytes& bytes = frames.at(name);
    return decoder.decode(Frame::copy(bytes.data(), bytes.size()));
  }
  Calibration dark(unsigned count = 16) { return science::calibrate(source(CalibrationKind::dark, count)); }
  Calibration flat(const Calibration& darks, unsigned count = 16, double level = 12000) {
    CalibrationSource s = source(CalibrationKind::flat, count, 2, level);
    s.dark = write("dsnu", darks);
    return science::calibrate(s);
  }
  void refused(const CalibrationSource& s, const std::string& about, const std::string& what) {
    try {
      science::calibrate(s);
      ADD_FAILURE() << "nothing was refused; expected: " << what;
    } catch (const science::Refused& refused) {
      EXPECT_EQ(refused.path(), about);
      EXPECT_THAT(refused.what(), HasSubstr(what));
    }
  }
  double readNoise(unsigned plane) const {  // counts, rounding included
    const sim::PlaneTruth truth = sim::truthOf(*camera, fields, instrument).planes[plane];
    return std::sqrt(truth.readNoise * truth.readNoise / truth.gain / truth.gain + 1.0 / 12);
  }
  std::vector<double> fixed(unsigned plane, double level = 0) {
    return sim::fixedPattern(*camera, fields, instrument, level)[plane];
  }

  const sim::Camera* camera = nullptr;
  sim::HeaderFields fields;
  sim::Instrument instrument;
  std::map<std::string, Bytes> frames;
  TestFolder folder;
};

// ---- The planted pattern

TEST_F(Calibrating, FindsThePlantedDarkPatternWithinItsStatisticalError) {
  const Calibration made = dark(15);  // 16 would meet steps of 1/8 halfway too often
  const double ratio = made.usedRatio;
  for (unsigned p = 0; p < 2; ++p) {
    SCOPED_TRACE(p);
    const std::vector<double> terms = planeOf(made.file, p, true, 8);
    const std::vector<double> planted = fixed(p);
    ASSERT_EQ(terms.size(), planted.size());
    Moments errors;
    for (std::size_t i = 0; i < terms.size(); ++i)
      errors.add(terms[i] - ((p == 1 ? made.pedestal : made.pedestal / ratio) - planted[i]));
    // Noise of a mean of 15 frames (dark current adds little), and steps of 1/8.
    const double shot =
        4 / (p == 1 ? camera->highAt(0) * camera->highAt(0) : camera->lowAt(0) * camera->lowAt(0));
    const double expected = std::sqrt((readNoise(p) * readNoise(p) + shot) / 15 + 1.0 / 64 / 12);
    EXPECT_NEAR(errors.deviation(), expected, 0.04 * expected);
    EXPECT_NEAR(errors.mean(), 0, 0.02);
    EXPECT_NEAR(made.planes[p].after, std::sqrt(errors.squares / errors.count), 0.05 * expected);
  }
}

TEST_F(Calibrating, FindsThePlantedResponseWithinItsStatisticalError) {
  const Calibration made = flat(dark(16), 16, 15000);
  const double gains[] = {camera->lowAt(0), camera->highAt(0)};
  for (unsigned p = 0; p < 2; ++p) {
    SCOPED_TRACE(p);
    const std::vector<double> factors = planeOf(made.file, p, false, 1024);
    const std::vector<double> lit = fixed(p, 1e6), unlit = fixed(p, 0);
    Moments errors, corrections;
    for (std::size_t i = 0; i < factors.size(); ++i) {
      const double correction = factors[i] / (p == 0 ? made.usedRatio : 1);
      corrections.add(correction);
      errors.add(correction * (lit[i] - unlit[i]) * gains[p] / 1e6 - 1);
    }
    EXPECT_NEAR(corrections.mean(), 1, 2e-4);
    const double signal = 15000 / gains[p];
    const double variance = readNoise(p) * readNoise(p) * 2 + signal / gains[p];  // of a flat and the dark's
    const double step = 1 / 1024.0 / (p == 0 ? made.usedRatio : 1) / std::sqrt(12.0);
    const double expected = std::hypot(std::sqrt(variance / 16) / signal, step);
    EXPECT_NEAR(errors.deviation(), expected, 0.05 * expected);
    EXPECT_NEAR(made.planes[p].after, 100 * expected, 6 * expected);
    EXPECT_NEAR(made.planes[p].before.value, 1, 0.03);
  }
}

TEST_F(Calibrating, BringsTheMergedFrameDownToItsNoise) {
  instrument.columnNoise = 20;  // 2.6 counts
  const Calibration darks = dark(20), flats = flat(darks, 20);
  orvacam::Decoder plain, corrected;
  corrected.dsnu(write("d", darks)).prnu(write("p", flats));
  take(sim::FrameType::Dark, 500, 2);
  Moments before, after;
  const orvacam::Decoded raw = decode(plain, "dark500"), dark = decode(corrected, "dark500");
  for (std::uint32_t y = 0; y < 64; ++y)
    for (std::uint32_t x = 0; x < 96; ++x) {
      before.add(raw.high(x, y));
      after.add(dark.merged(x, y));
    }
  EXPECT_GT(before.deviation(), 4 * readNoise(1));
  // One frame's noise, a twentieth of its variance from the mean, and the rounding of the merge.
  const double noise = std::sqrt(darks.planes[1].noise.value * darks.planes[1].noise.value * 1.05 + 1.0 / 12);
  EXPECT_NEAR(after.deviation(), noise, 0.03 * noise);
  EXPECT_NEAR(after.mean(), darks.pedestal, 0.1);

  take(sim::FrameType::Flat, 500, 2, 12000);
  Moments uneven, even;
  const orvacam::Decoded rawFlat = decode(plain, "flat500"), evenFlat = decode(corrected, "flat500");
  for (std::uint32_t y = 0; y < 64; ++y)
    for (std::uint32_t x = 0; x < 96; ++x) {
      uneven.add(rawFlat.high(x, y));
      even.add(evenFlat.merged(x, y));
    }
  const double shot = std::sqrt(12000.0) / camera->highAt(0);
  EXPECT_GT(uneven.deviation(), 1.3 * shot);
  EXPECT_NEAR(even.deviation(), shot * std::sqrt(1.05), 0.03 * shot);
}

TEST_F(Calibrating, MeasuresOffsetNoiseAndPattern) {
  for (const char* name : {"GSENSE400", "GSENSE2020", "GSENSE6060"}) {
    SCOPED_TRACE(name);
    useCamera(name, "hdr");
    const Calibration made = science::calibrate(source(CalibrationKind::bias, 16));
    const sim::Truth truth = sim::truthOf(*camera, fields, instrument);
    ASSERT_EQ(made.planes.size(), 2u);
    for (unsigned p = 0; p < 2; ++p) {
      const science::CalibratedPlane& plane = made.planes[p];
      const sim::PlaneTruth& known = truth.planes[p];
      EXPECT_EQ(plane.name, known.name);
      EXPECT_NEAR(plane.level.value, known.offset, 5 * plane.level.error);
      const double noise = std::sqrt(std::pow(known.readNoise / known.gain, 2) + 1.0 / 12);
      EXPECT_NEAR(plane.noise.value, noise, std::max(5 * plane.noise.error, 0.004 * noise));
      const double pattern = std::hypot(known.columnNoise, known.rowNoise, known.pixelNoise) / known.gain;
      EXPECT_NEAR(plane.before.value, pattern, 0.03 * pattern);
      EXPECT_NEAR(plane.columns.value, known.columnNoise / known.gain, 0.06 * pattern);
      EXPECT_NEAR(plane.rows.value, known.rowNoise / known.gain, 0.06 * pattern);
      EXPECT_NEAR(plane.pixels.value, known.pixelNoise / known.gain, 0.06 * pattern);
      EXPECT_NEAR(plane.gain / known.gain, 1, 0.01);  // as the header has it
    }
  }
}

TEST_F(Calibrating, ListsHotBlinkingAndDeadPixels) {
  instrument.hotPixels = 25, instrument.blinking = 15, instrument.deadPixels = 8;
  const Calibration darks = dark(20), flats = flat(darks, 20);
  const sim::Truth truth = sim::truthOf(*camera, fields, instrument);
  const auto listed = [](const Calibration& made, unsigned plane, science::OddKind kind) {
    std::vector<std::pair<unsigned, unsigned>> places;
    for (const science::OddPixel& pixel : made.oddPixels)
      if (pixel.plane == plane && pixel.kind == kind) places.push_back({pixel.x, pixel.y});
    return places;
  };
  const auto planted = [](const std::vector<sim::Place>& all) {
    std::vector<std::pair<unsigned, unsigned>> places;
    for (const sim::Place& place : all)
      places.push_back({place.x, place.y});
    return places;
  };
  for (unsigned p = 0; p < 2; ++p) {
    EXPECT_EQ(listed(darks, p, science::Hot), planted(truth.hot));
    EXPECT_EQ(listed(darks, p, science::Blinking), planted(truth.blinking));
    EXPECT_EQ(listed(flats, p, science::Dead), planted(truth.dead));
    EXPECT_EQ(darks.planes[p].hot, 25u);
    EXPECT_EQ(darks.planes[p].blinking, 15u);
    EXPECT_EQ(flats.planes[p].dead, 8u);
    std::map<unsigned, unsigned> bits;
    for (const unsigned bit : darks.planes[p].mask)
      ++bits[bit];
    EXPECT_EQ(bits, (std::map<unsigned, unsigned>{{0, 96 * 64 - 40}, {1, 25}, {4, 15}}));
    // A dead pixel is left as it is.
    for (const sim::Place& place : truth.dead)
      EXPECT_NEAR(planeOf(flats.file, p, false, 1024)[place.y * 96 + place.x], p == 0 ? flats.usedRatio : 1,
                  1e-3);
  }
}

// ---- What does not belong to the camera

TEST_F(Calibrating, LeavesCosmicRaysOutEvenOfThreeFrames) {
  for (const unsigned count : {2u, 3u, 4u, 9u}) {
    SCOPED_TRACE(count);
    const CalibrationSource clean = source(CalibrationKind::dark, count);
    const std::string without = science::calibrate(clean).file;
    fields.frameNumber = 1;
    std::vector<sim::Plane> planes = expose(sim::FrameType::Dark, 1, 2, 0);
    for (const std::size_t hit : {100u, 101u, 3000u})
      for (sim::Plane& plane : planes)
        plane[hit] = static_cast<std::uint16_t>(plane[hit] + 300);
    keep("dark1", planes);
    const Calibration made = science::calibrate(clean);
    EXPECT_EQ(made.planes[1].blinking, 0u);
    EXPECT_EQ(made.planes[1].hot, 0u);
    for (unsigned p = 0; p < 2; ++p) {
      const std::vector<double> a = planeOf(without, p, true, 8), b = planeOf(made.file, p, true, 8);
      for (std::size_t i = 0; i < a.size(); ++i)
        ASSERT_NEAR(a[i], b[i], i == 100 || i == 101 || i == 3000 ? 3.0 : 0.2) << i;
    }
  }
}

TEST_F(Calibrating, LeavesCosmicRaysOutThatHitAPixelTwice) {
  // Two of twelve frames: such a pixel is listed as blinking, and the hits stay out of its mean all the same.
  const CalibrationSource s = source(CalibrationKind::dark, 12);
  const std::string without = science::calibrate(s).file;
  for (const unsigned number : {3u, 8u}) {
    std::vector<sim::Plane> planes = expose(sim::FrameType::Dark, number, 2, 0);
    for (sim::Plane& plane : planes)
      plane[1000] = static_cast<std::uint16_t>(plane[1000] + 900);
    keep("dark" + std::to_string(number), planes);
  }
  const Calibration made = science::calibrate(s);
  EXPECT_EQ(made.planes[1].blinking, 1u);
  for (unsigned p = 0; p < 2; ++p)
    EXPECT_NEAR(planeOf(made.file, p, true, 8)[1000], planeOf(without, p, true, 8)[1000], 1.5);
}

TEST_F(Calibrating, TakesTheDarkerOneOfTwoFrames) {
  for (const unsigned lit : {0u, 1u}) {
    SCOPED_TRACE(lit);
    const CalibrationSource s = source(CalibrationKind::dark, 2);
    const Calibration good = science::calibrate(s);
    std::vector<sim::Plane> planes = expose(sim::FrameType::Dark, lit, 2, 0);
    for (sim::Plane& plane : planes)
      for (std::uint16_t& pixel : plane)
        pixel = static_cast<std::uint16_t>(pixel + 500);
    const std::string name = keep("dark" + std::to_string(lit), planes);
    const Calibration made = science::calibrate(s);
    for (unsigned p = 0; p < 2; ++p)
      EXPECT_NEAR(made.planes[p].level.value, good.planes[p].level.value, 0.5);
    EXPECT_EQ(made.warnings.back(), "left out, as their level is more than four deviations off: " + name);
  }
}

TEST_F(Calibrating, KnowsTheLevelOfFramesWithoutNoise) {
  instrument.readNoise = 0;
  fields.width = 100;  // so that levels are no round numbers
  fields.height = 70;
  const Calibration made = science::calibrate(source(CalibrationKind::bias, 4));
  const sim::Truth truth = sim::truthOf(*camera, fields, instrument);
  for (unsigned p = 0; p < 2; ++p) {
    EXPECT_NEAR(made.planes[p].level.value, truth.planes[p].offset, 0.1);
    EXPECT_EQ(made.planes[p].drift, 0);
    EXPECT_EQ(made.planes[p].rejected, 0u);
  }
  EXPECT_THAT(made.warnings, ElementsAre("made from 4 frames: ten or more are better"));
}

TEST_F(Calibrating, IsNotSpoiltByOneFrameWhereverItStands) {
  // Frames that are too noisy, lit, or empty; as the first, second, third or last one.
  const auto spoil = [](std::vector<sim::Plane>& planes, int how) {
    for (sim::Plane& plane : planes)
      for (std::size_t i = 0; i < plane.size(); ++i)
        plane[i] = how == 0   ? static_cast<std::uint16_t>(plane[i] + 60 * (i * 7919 % 2))
                   : how == 1 ? static_cast<std::uint16_t>(plane[i] + i * 200 / plane.size())
                              : std::uint16_t{0};
  };
  for (const unsigned count : {3u, 10u}) {
    const CalibrationSource s = source(CalibrationKind::dark, count);
    const std::map<std::string, Bytes> whole = frames;
    const Calibration good = science::calibrate(s);
    for (const int how : {0, 1, 2})
      for (const unsigned at : {0u, 1u, 2u, count - 1}) {
        SCOPED_TRACE(std::to_string(at) + " of " + std::to_string(count) + ", " + std::to_string(how));
        frames = whole;
        std::vector<sim::Plane> planes = expose(sim::FrameType::Dark, at, 2, 0);
        spoil(planes, how);
        keep("dark" + std::to_string(at), planes);
        const Calibration made = science::calibrate(s);
        for (unsigned p = 0; p < 2; ++p) {
          EXPECT_NEAR(made.planes[p].noise.value, good.planes[p].noise.value,
                      0.1 * good.planes[p].noise.value);
          EXPECT_NEAR(made.planes[p].level.value, good.planes[p].level.value, 0.5);
          // Of three frames, two are left.
          EXPECT_NEAR(made.planes[p].after / good.planes[p].after, count == 3 ? std::sqrt(1.5) : 1, 0.25);
        }
        EXPECT_NEAR(made.pedestal, good.pedestal, 1);
        const std::string name = "dark" + std::to_string(at);
        EXPECT_THAT(made.warnings.back(),
                    HasSubstr(how == 2 ? "more than four deviations off: " + name : "left out"));
      }
  }
}

TEST_F(Calibrating, IsNotSpoiltByAFlatOfAnotherShape) {
  const Calibration darks = dark();
  CalibrationSource s = source(CalibrationKind::flat, 8);
  s.dark = write("dsnu", darks);
  const Calibration good = science::calibrate(s);
  std::vector<sim::Plane> planes = expose(sim::FrameType::Flat, 0, 2, 12000);
  for (sim::Plane& plane : planes)
    for (std::size_t i = 0; i < plane.size(); ++i)
      plane[i] = static_cast<std::uint16_t>(plane[i] * (0.5 + 1.0 * static_cast<double>(i) / plane.size()));
  keep("flat0", planes);
  const Calibration made = science::calibrate(s);
  for (unsigned p = 0; p < 2; ++p)
    EXPECT_LT(made.planes[p].after, 1.25 * good.planes[p].after);
  EXPECT_THAT(made.warnings.back(), HasSubstr("one or more frames are unlike the others"));
}

TEST_F(Calibrating, TakesFlatsOfATwilightSkyWithItsStars) {
  const Calibration darks = dark();
  CalibrationSource twilight = sourceOf(CalibrationKind::flat);
  twilight.dark = write("dsnu", darks);
  for (unsigned i = 0; i < 16; ++i) {
    std::vector<sim::Plane> planes = expose(sim::FrameType::Flat, i, 2, 6000 + 700.0 * i);
    for (unsigned y = 0; y < 3; ++y)  // a star that wanders
      for (unsigned x = 0; x < 3; ++x)
        for (unsigned p = 0; p < 2; ++p) {
          std::uint16_t& pixel = planes[p][(10 + 3 * i + y) * 96 + 5 + 4 * i + x];
          pixel = static_cast<std::uint16_t>(pixel + (p == 0 ? 40 : 250));
        }
    twilight.frames.push_back(keep("t" + std::to_string(i), planes));
  }
  const Calibration made = science::calibrate(twilight);
  const std::vector<double> factors = planeOf(made.file, 1, false, 1024);
  const std::vector<double> lit = fixed(1, 1e6), unlit = fixed(1, 0);
  Moments errors;
  double worst = 0;
  for (std::size_t i = 0; i < factors.size(); ++i) {
    const double error = factors[i] * (lit[i] - unlit[i]) * camera->highAt(0) / 1e6 - 1;
    errors.add(error);
    worst = std::max(worst, std::fabs(error));
  }
  EXPECT_LT(errors.deviation(), 0.003);
  EXPECT_LT(worst, 0.02);  // a star left in would be 250 counts of 1500 in one of 16 frames: 1 % more
  EXPECT_GT(made.planes[1].drift, 1000);
}

// ---- The files

TEST_F(Calibrating, WritesTermsThatAPlainReaderAndTheMergeUnderstandAlike) {
  instrument.hotPixels = 10;
  const Calibration darks = dark(), flats = flat(darks);
  EXPECT_EQ(darks.file.substr(0, 4), "Meta");
  EXPECT_EQ(bigAt(darks.file, 4, 2), 384u);
  EXPECT_EQ(bigAt(darks.file, 6, 2), 3u);
  EXPECT_EQ(bigAt(darks.file, 81, 2), 96u);
  EXPECT_EQ(bigAt(darks.file, 83, 2), 64u);
  EXPECT_EQ(bigAt(darks.file, 99, 2), 1u);
  EXPECT_EQ(bigAt(darks.file, 122, 2), 0u);
  EXPECT_EQ(bigAt(darks.file, 225, 2), darks.pedestal);
  EXPECT_EQ(bigAt(flats.file, 225, 2), 0u);
  EXPECT_EQ(darks.file.size(), 384u + 4 * 96 * 64);
  EXPECT_EQ(flats.file.size(), darks.file.size());
  const orvacam::Header header = orvacam::Header::parse(darks.file.data(), darks.file.size());
  EXPECT_EQ(header.sensor(), "GSENSE400");
  EXPECT_EQ(header.number("MergeLineOffset"), darks.pedestal);
  EXPECT_EQ(*header.temperature_celsius(), -19.5);
  EXPECT_EQ(header.exposure_seconds(), 2);

  orvacam::Decoder decoder;
  decoder.dsnu(write("d", darks)).prnu(write("p", flats));
  take(sim::FrameType::Light, 900, 2);
  const orvacam::Decoded decoded = decode(decoder, "light900");
  std::vector<double> add[2], multiply[2];
  for (unsigned p = 0; p < 2; ++p) {
    add[p] = planeOf(darks.file, p, true, 8);
    multiply[p] = planeOf(flats.file, p, false, 1024);
  }
  unsigned fromLow = 0;
  for (std::size_t i = 0; i < add[0].size(); ++i) {
    const unsigned raw[2] = {decoded.low.data()[i], decoded.high.data()[i]};
    double value[2];
    for (unsigned p = 0; p < 2; ++p)
      value[p] = std::round(
          std::min(65535.0, std::max(0.0, std::min(4095.875, raw[p] + add[p][i])) * multiply[p][i]));
    const bool low = value[1] >= 3700 || value[0] - value[1] > 128;
    fromLow += low ? 1 : 0;
    ASSERT_EQ(decoded.merged.data()[i], low ? value[0] : value[1]) << i;
  }
  EXPECT_GT(fromLow, 20u);
}

TEST_F(Calibrating, HoldsTheRoundedMeanAsTheTerm) {
  const CalibrationSource all = source(CalibrationKind::bias, 5);
  const Calibration bias = science::calibrate(all);
  orvacam::Decoder decoder;
  std::vector<double> sums[2] = {std::vector<double>(96 * 64), std::vector<double>(96 * 64)};
  for (const std::string& name : all.frames) {
    const orvacam::Decoded decoded = decode(decoder, name);
    for (std::size_t i = 0; i < 96 * 64; ++i) {
      sums[0][i] += decoded.low.data()[i];
      sums[1][i] += decoded.high.data()[i];
    }
  }
  CalibrationSource darks = all;
  darks.kind = CalibrationKind::dark;
  darks.pedestal = 12;
  const Calibration dsnu = science::calibrate(darks);
  std::uint64_t others = 0;  // pixels of which a value was left out
  for (unsigned p = 0; p < 2; ++p) {
    const std::vector<double> counts = planeOf(bias.file, p, false, 1),
                              terms = planeOf(dsnu.file, p, true, 8);
    for (std::size_t i = 0; i < counts.size(); ++i) {
      const double mean = sums[p][i] / 5, pedestal = p == 1 ? 12 : 12 / dsnu.usedRatio;
      const bool same =
          std::fabs(counts[i] - mean) <= 0.5001 && std::fabs(terms[i] - (pedestal - mean)) <= 0.06251;
      others += same ? 0 : 1;
    }
  }
  EXPECT_LE(others, bias.planes[0].rejected + bias.planes[1].rejected);
  EXPECT_LT(others, 12u);
}

TEST_F(Calibrating, MakesFilesForEverySensorLayoutAndHeader) {
  struct {
    const char *camera, *mode;
    unsigned width, before, after, above;
  } const layouts[] = {{"GSENSE400", "hdr", 40, 0, 0, 0},    {"GSENSE2020", "hdr", 40, 0, 8, 3},
                       {"GSENSE4040", "hdr", 42, 0, 0, 0},   {"GSENSE6060", "hdr", 40, 4, 6, 2},
                       {"GSENSE6060", "hdr", 38, 0, 0, 0},   {"GSENSE400", "single", 40, 0, 0, 0},
                       {"CCD230-42", "single", 40, 3, 3, 2}, {"GENERIC", "single", 33, 0, 0, 0}};
  for (const auto& layout : layouts)
    for (const unsigned version : {1u, 2u, 3u, 4u}) {
      SCOPED_TRACE(std::string(layout.camera) + " " + layout.mode + " version " + std::to_string(version));
      useCamera(layout.camera, layout.mode);
      if (camera->ccd && version < 3) continue;
      fields.width = layout.width, fields.height = 24;
      fields.preRefPixels = layout.before, fields.postRefPixels = layout.after,
      fields.preRefRows = layout.above;
      fields = sim::asVersion(fields, version);
      const bool pair = std::string(layout.mode) == "hdr";
      CalibrationSource s = sourceOf(pair ? CalibrationKind::dark : CalibrationKind::bias);
      for (unsigned i = 0; i < 3; ++i)
        s.frames.push_back(keep("f" + std::to_string(i), expose(sim::FrameType::Dark, i, 1, 0), version));
      const Calibration made = science::calibrate(s);
      const orvacam::Size size = s.read("f0").header().frame_size();
      EXPECT_EQ(bigAt(made.file, 81, 2), size.width);
      EXPECT_EQ(bigAt(made.file, 83, 2), size.height);
      ASSERT_EQ(made.file.size(), 384 + std::size_t{pair ? 4u : 2u} * size.width * size.height);
      if (!pair) continue;
      orvacam::Decoder decoder;
      decoder.dsnu(write("d", made));
      Moments level;
      const orvacam::Plane merged = decode(decoder, "f1").merged;
      const orvacam::Region image = s.read("f0").header().image_region();
      for (std::uint32_t y = image.y; y < image.y + image.height; ++y)
        for (std::uint32_t x = image.x; x < image.x + image.width; ++x)
          level.add(merged(x, y));
      EXPECT_NEAR(level.mean(), made.pedestal, 0.5);
    }
}

TEST_F(Calibrating, PutsNeutralRowsAheadOfSubFrames) {
  fields.startRow = 20;
  const Calibration darks = dark(4), flats = flat(darks, 4);
  for (const Calibration* made : {&darks, &flats}) {
    EXPECT_EQ(bigAt(made->file, 83, 2), 84u);
    EXPECT_EQ(bigAt(made->file, 122, 2), 0u);  // its rows count from the sensor's first
    EXPECT_EQ(bigAt(made->file, 126, 2), 83u);
  }
  for (std::size_t i = 0; i < 20 * 96; ++i) {
    ASSERT_EQ(planeOf(darks.file, 0, true, 8)[i], 0);
    ASSERT_EQ(planeOf(darks.file, 1, true, 8)[i], 0);
    if (i % 500 != 0) continue;
    ASSERT_NEAR(planeOf(flats.file, 0, false, 1024)[i], flats.usedRatio, 1e-3);
    ASSERT_EQ(planeOf(flats.file, 1, false, 1024)[i], 1);
  }
  orvacam::Decoder decoder;
  decoder.dsnu(write("d", darks)).prnu(write("p", flats));
  Moments level;
  const orvacam::Plane merged = decode(decoder, "dark2").merged;
  for (std::size_t i = 0; i < 96 * 64; ++i)
    level.add(merged.data()[i]);
  EXPECT_NEAR(level.mean(), darks.pedestal, 0.2);
  EXPECT_LT(level.deviation(), 1.1);
}

TEST_F(Calibrating, GivesTheSameFileInBandsOfAnyHeight) {
  instrument.hotPixels = 5, instrument.blinking = 5;
  useCamera("GSENSE400", "hdr");
  fields.width = 256, fields.height = 250;
  for (const CalibrationKind kind : {CalibrationKind::dark, CalibrationKind::flat}) {
    const Calibration darks = kind == CalibrationKind::flat ? dark(12) : Calibration();
    CalibrationSource s = source(kind, 12);
    if (kind == CalibrationKind::flat) s.dark = write("dsnu", darks);
    std::map<std::string, unsigned> reads;
    const auto read = s.read;
    s.read = [&](const std::string& name) {
      ++reads[name];
      return read(name);
    };
    const Calibration whole = science::calibrate(s);
    EXPECT_EQ(reads["dark3"] + reads["flat3"], 1u);
    reads.clear();
    s.memory = std::uint64_t{28} << 20;
    const Calibration bands = science::calibrate(s);
    EXPECT_GT(reads["dark3"] + reads["flat3"], 1u);
    EXPECT_TRUE(bands.file == whole.file);
    EXPECT_EQ(bands.oddPixels.size(), whole.oddPixels.size());
    for (unsigned p = 0; p < 2; ++p) {
      EXPECT_EQ(bands.planes[p].mask, whole.planes[p].mask);
      EXPECT_EQ(bands.planes[p].noise.value, whole.planes[p].noise.value);
      EXPECT_EQ(bands.planes[p].after, whole.planes[p].after);
    }
    s.memory = 1 << 20;
    refused(s, s.frames.front(), "1M of memory do not hold one frame");
  }
}

// ---- Pedestal and ratio

TEST_F(Calibrating, ChoosesThePedestalThatServes) {
  const Calibration low = dark();
  EXPECT_EQ(low.smallestPedestal, 0u);
  EXPECT_EQ(low.pedestal, std::ceil(6 * low.planes[1].noise.value));

  // Darks so high that a pixel saturates less than 3700 above them.
  instrument.pixelNoise = 300;
  CalibrationSource s = source(CalibrationKind::dark, 12);
  const Calibration high = science::calibrate(s);
  double darkest = 0;
  std::set<std::pair<unsigned, unsigned>> listed;
  for (const science::OddPixel& pixel : high.oddPixels)
    if (pixel.plane == 1) listed.insert({pixel.x, pixel.y});
  const std::vector<double> planted = fixed(1);
  for (std::size_t i = 0; i < planted.size(); ++i)
    if (listed.count({unsigned(i % 96), unsigned(i / 96)}) == 0) darkest = std::max(darkest, planted[i]);
  ASSERT_GT(darkest, 250);
  EXPECT_NEAR(high.smallestPedestal, std::max(0.0, darkest - 395), 2);
  EXPECT_GE(high.pedestal, high.smallestPedestal);
}

TEST_F(Calibrating, RefusesAPedestalThatKeepsSaturatedPixelsBelowTheThreshold) {
  instrument.columnNoise = 0, instrument.rowNoise = 0;
  fields.blackLevelHigh = 600;
  CalibrationSource s = sourceOf(CalibrationKind::dark);
  for (unsigned i = 0; i < 4; ++i) {
    std::vector<sim::Plane> planes = expose(sim::FrameType::Dark, i, 2, 0);
    for (std::uint16_t& pixel : planes[1])
      pixel = static_cast<std::uint16_t>(pixel + 400);
    s.frames.push_back(keep("d" + std::to_string(i), planes));
  }
  const Calibration made = science::calibrate(s);
  EXPECT_GT(made.smallestPedestal, 110u);
  EXPECT_EQ(made.pedestal, made.smallestPedestal);
  s.pedestal = made.smallestPedestal;
  const Calibration least = science::calibrate(s);
  // Every pixel that saturates reaches the threshold, one of them hardly.
  double lowest = 1e9;
  for (const double term : planeOf(least.file, 1, true, 8))
    lowest = std::min(lowest, 4095 + term);
  EXPECT_GE(lowest, 3700);
  EXPECT_LT(lowest, 3701);
  s.pedestal = made.smallestPedestal - 1;
  refused(s, "", "the smallest that serves is " + std::to_string(made.smallestPedestal));
  s.highThreshold = 9000;
  refused(s, "",
          "the merge's high threshold of 9000 takes a pedestal of " +
              std::to_string(made.smallestPedestal + 5300) + ", and a DSNU file holds 4095 at most");
  s.highThreshold = 3690;  // a merge that changes over earlier needs less
  s.pedestal.reset();
  EXPECT_EQ(science::calibrate(s).smallestPedestal, made.smallestPedestal - 10);
}

TEST_F(Calibrating, TakesThePedestalOffFlatsWhateverItIs) {
  CalibrationSource darks = source(CalibrationKind::dark, 8);
  std::string files[2];
  for (unsigned i = 0; i < 2; ++i) {
    darks.pedestal = i == 0 ? 0 : 63;
    CalibrationSource flats = source(CalibrationKind::flat, 8);
    flats.dark = write("d" + std::to_string(i), science::calibrate(darks));
    files[i] = science::calibrate(flats).file;
  }
  for (unsigned p = 0; p < 2; ++p) {
    const std::vector<double> none = planeOf(files[0], p, false, 1024),
                              some = planeOf(files[1], p, false, 1024);
    for (std::size_t i = 0; i < none.size(); ++i)
      ASSERT_NEAR(none[i], some[i], p == 0 ? 0.004 : 0.0011);  // roundings of the low terms aside
  }
}

TEST_F(Calibrating, MeasuresTheGainRatioWithItsUncertainty) {
  for (const char* name : {"GSENSE400", "GSENSE6060"}) {
    SCOPED_TRACE(name);
    useCamera(name, "hdr");
    const double truth = camera->lowAt(0) / camera->highAt(0);
    const double level = 0.7 * sim::usualLevel(*camera, fields);
    const Calibration darks = dark(16);
    CalibrationSource s = source(CalibrationKind::flat, 16, 2, level);
    s.dark = write("dsnu", darks);
    const Calibration table = science::calibrate(s);
    EXPECT_NEAR(table.measuredRatio.value, truth, 5 * table.measuredRatio.error);
    EXPECT_LT(table.measuredRatio.error, 0.002 * truth);
    EXPECT_NEAR(table.tableRatio, truth, 0.001);
    EXPECT_EQ(table.usedRatio, table.tableRatio);
    s.measuredRatio = true;
    EXPECT_EQ(science::calibrate(s).usedRatio, table.measuredRatio.value);
    s.measuredRatio = false;
    s.ratio = 7.5;
    const Calibration chosen = science::calibrate(s);
    Moments factors;
    for (const double factor : planeOf(chosen.file, 0, false, 1024))
      factors.add(factor);
    EXPECT_NEAR(factors.mean(), 7.5, 0.001);
    EXPECT_THAT(chosen.warnings,
                ElementsAre(HasSubstr("the gain ratio is 7.5000, and the DSNU file was made with")));
    s.ratio = 63.5;
    refused(s, "", "the merge takes factors below 64");
    s.ratio = 64;
    refused(s, "", "does not fit the merge, which takes factors below 64");
  }
}

// ---- What is refused, and what is said

TEST_F(Calibrating, RefusesFramesThatDoNotBelongTogether) {
  refused(source(CalibrationKind::dark, 1), "dark0", "needs two at least");
  refused(sourceOf(CalibrationKind::dark), "", "needs two at least");
  CalibrationSource s = source(CalibrationKind::dark, 3);
  s.frames.push_back(take(sim::FrameType::Dark, 7, 3));
  refused(s, "dark7", "ExposureTime is 300000");
  s = source(CalibrationKind::dark, 3);
  frames["dark2"].resize(5000);
  refused(s, "dark2", "needs");
  s = source(CalibrationKind::dark, 3);
  frames["dark0"].resize(5000);
  refused(s, "dark0", "needs");
}

TEST_F(Calibrating, MakesTermsOfTheMergeOfPairsAlone) {
  useCamera("GSENSE400", "single");
  refused(source(CalibrationKind::dark, 3), "dark0", "has one plane");
  EXPECT_THAT(science::calibrate(source(CalibrationKind::bias, 3)).planes, ::testing::SizeIs(1));
  useCamera("GSENSE6060", "hdr");
  fields.hdr = false;
  refused(source(CalibrationKind::dark, 3), "dark0", "two gains that are not merged");
  const Calibration bias = science::calibrate(source(CalibrationKind::bias, 3));
  EXPECT_EQ(bias.planes.size(), 2u);
}

TEST_F(Calibrating, RefusesFlatsThatAreTooBrightOrTooDark) {
  CalibrationSource s = source(CalibrationKind::flat, 3, 2, 12000);
  s.dark = write("dsnu", dark(3));
  std::vector<sim::Plane> planes = expose(sim::FrameType::Flat, 9, 2, 12000);
  for (unsigned i = 0; i < 6; ++i)  // of 6144 pixels: just below 0.1 %
    planes[1][i * 50] = 4014;
  keep("flat1", planes);
  EXPECT_NO_THROW(science::calibrate(s));
  planes[1][4000] = 4014;
  keep("flat1", planes);
  refused(s, "flat1", "is saturated: 0.11 % of the high plane's image pixels are at 4014 or above");
  planes[1][4000] = 4013;
  keep("flat1", planes);
  EXPECT_NO_THROW(science::calibrate(s));
  keep("flat2", expose(sim::FrameType::Flat, 2, 2, 0));
  refused(s, "flat2", "shows no light: the low plane lies");
}

TEST_F(Calibrating, RefusesFlatsThatHalfOfThePixelsDoNotSee) {
  CalibrationSource s = source(CalibrationKind::flat, 3, 2, 12000);
  s.dark = write("dsnu", dark(3));
  for (unsigned i = 0; i < 3; ++i) {
    std::vector<sim::Plane> planes = expose(sim::FrameType::Flat, i, 2, 12000);
    const std::vector<sim::Plane> black = expose(sim::FrameType::Flat, i, 2, 0);
    for (unsigned p = 0; p < 2; ++p)  // 38 of 64 rows
      std::copy(black[p].begin(), black[p].begin() + 38 * 96, planes[p].begin());
    keep("flat" + std::to_string(i), planes);
  }
  refused(s, "", "the frames are no flats: half of the image pixels of the low plane show less than 0.0");
}

TEST_F(Calibrating, HoldsFlatsToTheFileThatTakesTheirOffsetOff) {
  const std::string good = write("dsnu", dark(3));
  const std::string bias = write("bias", science::calibrate(source(CalibrationKind::bias, 3)));
  CalibrationSource s = source(CalibrationKind::flat, 3);
  s.bias = bias;
  EXPECT_NO_THROW(science::calibrate(s));

  fields.startRow = 1;  // one row too far
  s = source(CalibrationKind::flat, 3);
  s.dark = good;
  refused(s, good, "of 96 x 64 does not cover flats of 96 x 64 from row 1 on");
  fields.startRow = 0, fields.height = 60;
  s = source(CalibrationKind::flat, 3);
  s.dark = good;
  EXPECT_NO_THROW(science::calibrate(s));
  fields.width = 94;
  s = source(CalibrationKind::flat, 3);
  s.dark = good;
  refused(s, good, "does not cover flats of 94 x 60");
  useCamera("GSENSE2020", "hdr");
  s = source(CalibrationKind::flat, 3, 2, 1500);
  s.dark = good;
  refused(s, good, "is of a GSENSE400, the flats are of a GSENSE2020");
  useCamera("GSENSE400", "single");
  const std::string single = write("one", science::calibrate(source(CalibrationKind::bias, 3)));
  useCamera("GSENSE400", "hdr");
  s = source(CalibrationKind::flat, 3);
  s.bias = single;
  refused(s, single, "holds one plane, the flats have two");
  const Bytes whole = folder.read("one");
  folder.write("cut", {whole.begin(), whole.begin() + 1000});
  s.bias = folder.file("cut");
  refused(s, s.bias, "needs 12672 bytes for a plane of 96 x 64, ends at byte 1000");
  s.bias = folder.file("missing");
  EXPECT_THROW(science::calibrate(s), orvacam::Error);
}

TEST_F(Calibrating, WarnsOfOffsetsThatHardlyAreSome) {
  CalibrationSource lit = source(CalibrationKind::flat, 10, 2, 12000);
  lit.kind = CalibrationKind::dark;
  EXPECT_THAT(science::calibrate(lit).warnings,
              ElementsAre(AllOf(HasSubstr("the high plane's offset"), HasSubstr("taken in the dark?"))));
  CalibrationSource low = sourceOf(CalibrationKind::dark);
  for (unsigned i = 0; i < 10; ++i) {
    std::vector<sim::Plane> planes = expose(sim::FrameType::Dark, i, 2, 0);
    for (std::uint16_t& pixel : planes[1])
      pixel = static_cast<std::uint16_t>(std::max(0, pixel - 110));
    low.frames.push_back(keep("low" + std::to_string(i), planes));
  }
  EXPECT_THAT(science::calibrate(low).warnings,
              ElementsAre(AllOf(HasSubstr("the high plane's offset"), HasSubstr("cut off at 0"))));
}

TEST_F(Calibrating, ReadsReferenceFilesByTheirFirstAndLastPixel) {
  // As the merge does: the header's numbers of pixels (bytes 81 to 84) play no part.
  Calibration darks = dark(3);
  CalibrationSource s = source(CalibrationKind::flat, 3);
  s.dark = write("dsnu", darks);
  const std::string expected = science::calibrate(s).file;
  for (const char byte : {'\0', '\x7F'}) {
    std::fill(darks.file.begin() + 81, darks.file.begin() + 85, byte);
    s.dark = write("other", darks);
    EXPECT_EQ(science::calibrate(s).file, expected);
  }
  darks.file[127] = 0, darks.file[126] = 0, darks.file[123] = 5;  // rows 5 to 0
  s.dark = write("none", darks);
  refused(s, s.dark, "for a plane of 96 x 0");
}

TEST_F(Calibrating, TellsOneKindOfReferenceFileFromAnother) {
  const Calibration darks = dark(), flats = flat(darks);
  const std::string bias = write("bias", science::calibrate(source(CalibrationKind::bias, 8)));
  const std::string dsnu = write("dsnu", darks), prnu = write("prnu", flats);
  CalibrationSource s = source(CalibrationKind::flat, 3);
  for (const std::string& file : {bias, prnu}) {
    s.dark = file;
    refused(s, file, "which is no offset: it is no DSNU file");
  }
  s.dark.clear();
  s.bias = dsnu;
  refused(s, dsnu, "which is no offset: it is no bias file");
}

TEST_F(Calibrating, WarnsOfWhatWeakensTheResult) {
  EXPECT_THAT(dark(9).warnings, ElementsAre(HasSubstr("made from 9 frames")));
  const Calibration darks = dark(10);
  EXPECT_THAT(darks.warnings, IsEmpty());
  CalibrationSource exposed = source(CalibrationKind::dark, 10);
  exposed.kind = CalibrationKind::bias;
  EXPECT_THAT(science::calibrate(exposed).warnings, ElementsAre(HasSubstr("exposed for 2.000 s")));
  CalibrationSource s = source(CalibrationKind::flat, 10, 5, 900);
  s.dark = write("dsnu", darks);
  EXPECT_THAT(science::calibrate(s).warnings,
              ElementsAre(HasSubstr("the flats were exposed for 5.000 s, the darks for 2.000 s"),
                          AllOf(HasSubstr("the corrections of the low plane"), HasSubstr("more flats")),
                          HasSubstr("the corrections of the high plane")));
}

TEST(ReferenceTerms, CutOffWhatTheirBitsDoNotHoldAndCountIt) {
  science::FixedPoint dsnu = science::dsnuTerms();
  EXPECT_EQ(dsnu(-0.5), 65532);
  EXPECT_EQ(dsnu.back(65532), -0.5);
  EXPECT_EQ(dsnu(4095.875), 32767);
  EXPECT_EQ(dsnu(-4096), 32768);
  EXPECT_EQ(dsnu.clipped, 0u);
  EXPECT_EQ(dsnu(4096), 32767);
  EXPECT_EQ(dsnu(-4097), 32768);
  EXPECT_EQ(dsnu.clipped, 2u);
  EXPECT_EQ(dsnu(0.0625), 0);  // halves to even
  EXPECT_EQ(dsnu(0.1875), 2);
  science::FixedPoint prnu = science::prnuTerms();
  EXPECT_EQ(prnu(1), 1024);
  EXPECT_EQ(prnu(63.9995), 65535);
  EXPECT_EQ(prnu.clipped, 0u);
  EXPECT_EQ(prnu(64), 65535);
  EXPECT_EQ(prnu(-1), 0);
  EXPECT_EQ(prnu.clipped, 2u);
}

}  // namespace
