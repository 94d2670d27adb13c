// orvacam measure.

#include <nlohmann/json.hpp>

#include "Program.h"
#include "simulator/Instrument.h"

namespace {

using namespace program_testing;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Measure : public Program {
 protected:
  /// A frame of the simulated camera: flats collect so many electrons, darks none.
  void shoot(const std::string& name, double seconds, double electrons,
             const std::function<void(sim::HeaderFields&)>& change = nullptr) {
    sim::HeaderFields fields = fieldsOf(camera, mode, width, height);
    fields.exposure = static_cast<unsigned int>(std::lround(seconds * 100000));
    fields.frameNumber = ++number;
    if (change) change(fields);
    const auto type = electrons > 0 ? sim::FrameType::Flat : sim::FrameType::Dark;
    folder.write(name, sim::encodeFrame(fields, 3,
                                        sim::exposeFrame(*sim::findCamera(camera), fields, instrument, type,
                                                         electrons, sim::Sky())));
  }
  /// Two flats and two darks of a second each level: f1a, f1b, d1a, ...
  void shootSeries(const std::vector<double>& exposures, double electronsPerSecond) {
    for (std::size_t i = 0; i < exposures.size(); ++i)
      for (const char* const which : {"a", "b"}) {
        shoot("f" + std::to_string(i) + which, exposures[i], exposures[i] * electronsPerSecond);
        shoot("d" + std::to_string(i) + which, exposures[i], 0);
        flats.push_back("f" + std::to_string(i) + which);
        darks.push_back("d" + std::to_string(i) + which);
      }
  }
  Arguments arguments(const Arguments& others = {}) const {
    Arguments all = {"measure", "--flats"};
    all.insert(all.end(), flats.begin(), flats.end());
    all.push_back("--darks");
    all.insert(all.end(), darks.begin(), darks.end());
    all.insert(all.end(), others.begin(), others.end());
    return all;
  }
  json measured(const Arguments& others = {}) const {
    Arguments all = others;
    all.push_back("--json");
    return json::parse(good(arguments(all)));
  }

  const char *camera = "GENERIC", *mode = "single";
  unsigned int width = 64, height = 48, number = 0;
  sim::Instrument instrument;
  Arguments flats, darks;
};

std::vector<std::string> fieldsOfNotes(const json& of) {
  std::vector<std::string> fields;
  for (const json& note : of.at("notes"))
    fields.push_back(note.at("field"));
  return fields;
}

TEST_F(Measure, ShowsEachNumberWithItsError) {
  shootSeries({0.5, 1, 2, 3, 4, 5, 6, 7}, 20000);  // 2 electrons a count: 65535 are 131070
  const std::string text = good(arguments());
  EXPECT_THAT(text,
              HasSubstr("Photon transfer of 16 flats and 16 darks by EMVA 1288, linear model, release 4.0; "
                        "the light is not known in photons.\n"));
  const json plane = measured().at("planes").at("image");
  char line[96];
  const double gain = plane.at("gain_e_per_adu"), error = plane.at("gain_e_per_adu_error");
  EXPECT_NEAR(gain, 2, 3 * error);
  std::snprintf(line, sizeof line, "system gain             e-/ADU  %.3f +- %.3f\n", gain, error);
  EXPECT_THAT(text, HasSubstr(line));
  EXPECT_THAT(text, HasSubstr("DSNU1288                e-      "));
}

TEST_F(Measure, TellsHowTheCurveCameToBe) {
  shootSeries({0.5, 1, 2, 3, 4, 5, 6, 7}, 20000);
  const json all = measured({"-o", "report"});
  EXPECT_EQ(all.at("schema"), "orvacam.measure/1");
  EXPECT_EQ(all.at("frames"), 32);
  EXPECT_TRUE(all.at("merge").is_null());
  EXPECT_TRUE(all.at("ratio").is_null());
  const json& curve = all.at("planes").at("image").at("curve");
  ASSERT_EQ(curve.size(), 8u);
  double before = 0;
  for (const json& point : curve) {
    EXPECT_GT(point.at("mean_adu"), before);
    before = point.at("mean_adu");
    const double seconds = point.at("exposure_seconds");
    EXPECT_EQ(point.at("saturated"), seconds == 7) << seconds;
    EXPECT_EQ(point.at("fitted"), seconds <= 4) << seconds;  // 70 % of 6 s: 4.2 s
    if (seconds < 7) {
      EXPECT_NEAR(point.at("signal_adu"), 10000 * seconds, 50);
    }
  }
  // The same, a line each.
  std::istringstream csv(textOf(folder.read("report/photon_transfer.csv")));
  std::string line;
  std::getline(csv, line);
  EXPECT_THAT(line, ::testing::StartsWith("plane,exposure_seconds,mean_adu,signal_adu,variance_adu2,"));
  for (const json& point : curve) {
    std::getline(csv, line);
    EXPECT_THAT(line,
                ::testing::StartsWith("image," + point.at("exposure_seconds").dump() + "," +
                                      point.at("mean_adu").dump() + "," + point.at("signal_adu").dump()));
    EXPECT_EQ(std::count(line.begin(), line.end(), ','), 13);
  }
  EXPECT_FALSE(std::getline(csv, line));
  EXPECT_EQ(files("report"), Names{"photon_transfer.csv"});
}

TEST_F(Measure, PairsFlatsInTheirOrderWithinEqualExposure) {
  // A lamp: levels 3000, 3000, 9000, 9000 at 1 s, and a pair at 2 s between them.
  shoot("a", 1, 3000), shoot("b", 2, 20000), shoot("c", 1, 3000);
  shoot("d", 1, 9000), shoot("e", 2, 20000), shoot("f", 1, 9000);
  for (const char* const dark : {"d1", "d2", "d3"})
    shoot(dark, 1, 0), darks.emplace_back(dark);
  for (const char* const dark : {"e1", "e2"})
    shoot(dark, 2, 0), darks.emplace_back(dark);
  flats = {"a", "b", "c", "d", "e", "f"};
  const json plane = measured().at("planes").at("image");
  ASSERT_EQ(plane.at("curve").size(), 3u);
  const double signals[] = {1500, 4500, 10000};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(plane.at("curve")[i].at("signal_adu"), signals[i], 20);
    EXPECT_NEAR(plane.at("curve")[i].at("excess_variance_adu2"), signals[i] / 2, 0.15 * signals[i] / 2);
  }
  EXPECT_EQ(plane.at("darks")[0].at("frames"), 3);  // the third has no second one and counts all the same
  EXPECT_EQ(plane.at("dsnu_frames"), 2);            // those of 2 s
  EXPECT_TRUE(plane.at("linearity_error_percent").is_null());
  EXPECT_THAT(fieldsOfNotes(plane),
              AllOf(::testing::Contains("linearity_error_percent"), ::testing::Contains("saturation_e")));
}

TEST_F(Measure, AveragesAllFlatsOfTheLevelForTheUniformity) {
  for (int i = 0; i < 8; ++i) {
    flats.push_back("f" + std::to_string(i));
    darks.push_back("d" + std::to_string(i));
    shoot(flats.back(), 1, 60000);
    shoot(darks.back(), 1, 0);
  }
  shoot("g0", 1, 5000), shoot("g1", 1, 5000);
  flats.emplace_back("g0"), flats.emplace_back("g1");
  const json plane = measured().at("planes").at("image");
  EXPECT_EQ(plane.at("prnu_frames"), 8);
  EXPECT_EQ(plane.at("dsnu_frames"), 8);
  EXPECT_NEAR(plane.at("prnu_percent"), 1, 0.1);
  EXPECT_NEAR(plane.at("prnu_signal_adu"), 30000, 100);
}

TEST_F(Measure, LooksAtBothGainsAndTheirMerge) {
  camera = "GSENSE4040", mode = "hdr";
  shootSeries({0.5, 1, 1.5, 2, 4, 10, 20}, 1000);
  const json all = measured();
  ASSERT_EQ(all.at("planes").size(), 3u);
  const json& merge = all.at("merge");
  EXPECT_NEAR(all.at("ratio").at("table"), 18.6916 / 0.8194, 0.001);
  const double measuredRatio = all.at("ratio").at("measured"), error = all.at("ratio").at("measured_error");
  EXPECT_NEAR(measuredRatio, 18.6916 / 0.8194, 3 * error);
  EXPECT_LT(error, 0.1);
  // Without references, the offsets of 100 and 110 counts lie 100 x ratio - 110 apart, and below the
  // change-over the difference threshold takes the low gain for it.
  EXPECT_NEAR(merge.at("step_adu"), 100.1 * 22.81 - 110, 25);
  EXPECT_GT(merge.at("step_sigma"), 10);
  EXPECT_EQ(merge.at("straight"), false);
  EXPECT_EQ(merge.at("lifted"), 1);
  EXPECT_THAT(fieldsOfNotes(merge), ElementsAre("lifted"));
  const std::string text = good(arguments());
  EXPECT_THAT(text, AllOf(HasSubstr("merge, from high to low gain at 3700 ADU:\n"), HasSubstr("not straight"),
                          HasSubstr("100 % of the pixels from the low gain")));
  // Another threshold that nothing differs by: high-gain pixels below it.
  const json other = measured({"--thresholds", "3000,60000"});
  EXPECT_EQ(other.at("merge").at("high_threshold"), 3000);
  EXPECT_EQ(other.at("merge").at("lifted"), 0);
}

TEST_F(Measure, FindsAMergeStraightWhoseReferencesBringTheOffsetsTogether) {
  // Offsets of 110 and 100 counts without a pattern, and little noise. Both gains are to begin at 32 merged
  // counts: terms of 32 - 110 and 32 / 22.81 - 100 in eighths.
  camera = "GSENSE4040", mode = "hdr";
  instrument.readNoise = 0.8;
  instrument.columnNoise = instrument.rowNoise = instrument.pixelNoise = 0;
  shootSeries({0.5, 1, 1.5, 2, 4, 10, 20}, 1000);
  Bytes reference = sim::writeHeader(fieldsOf("GSENSE4040", "single", width, height), 3);
  for (const int eighths : {-789, -624})
    for (unsigned int i = 0; i < width * height; ++i) {
      reference.push_back(static_cast<unsigned char>(eighths & 255));
      reference.push_back(static_cast<unsigned char>(eighths >> 8 & 255));
    }
  folder.write("camera.dsnu", reference);
  const json all = measured({"--dsnu", "camera.dsnu"});
  const json& merge = all.at("merge");
  const double step = merge.at("step_adu"), error = merge.at("step_adu_error");
  EXPECT_NEAR(step, 22.81 * (1.403 - 1.375), 4 * error);  // what rounding to eighths leaves
  EXPECT_LT(std::fabs(step), 3);
  EXPECT_EQ(merge.at("lifted"), 0);
  EXPECT_EQ(merge.at("straight"), true);
  EXPECT_TRUE(merge.at("notes").empty());
  // The merged plane is then as good as the high gain, and reaches as far as the low one.
  const json &merged = all.at("planes").at("merged"), &high = all.at("planes").at("high");
  EXPECT_EQ(merged.at("darks")[0].at("variance_adu2"), high.at("darks")[0].at("variance_adu2"));
  EXPECT_NEAR(merged.at("gain_e_per_adu"), 0.8194, 3 * merged.at("gain_e_per_adu_error").get<double>());
  EXPECT_THAT(good(arguments({"--dsnu", "camera.dsnu"})),
              HasSubstr("the response is               straight\n"));
}

TEST_F(Measure, MeasuresTwoPlanesThatAreNotMerged) {
  camera = "GSENSE6060", mode = "hdr";
  const auto plain = [](sim::HeaderFields& fields) { fields.hdr = false; };
  for (const char* const name : {"a", "b"}) {
    shoot(std::string("f") + name, 1, 3000, plain);
    shoot(std::string("g") + name, 1, 6000, plain);
    shoot(std::string("d") + name, 1, 0, plain);
  }
  flats = {"fa", "fb", "ga", "gb"}, darks = {"da", "db"};
  const json all = measured();
  EXPECT_EQ(all.at("planes").size(), 2u);
  EXPECT_TRUE(all.at("merge").is_null());
  EXPECT_GT(all.at("planes").at("low").at("gain_e_per_adu"), 0);
}

TEST_F(Measure, LeavesReferencePixelsOut) {
  camera = "GSENSE4040", mode = "16bit";
  for (const char* const name : {"a", "b"})
    for (const auto& [kind, electrons] : {std::pair{"f", 8000.0}, {"g", 16000.0}, {"d", 0.0}})
      shoot(std::string(kind) + name, 1, electrons,
            [](sim::HeaderFields& fields) { fields.preRefPixels = 8, fields.postRefRows = 4; });
  flats = {"fa", "fb", "ga", "gb"}, darks = {"da", "db"};
  const json plane = measured().at("planes").at("image");
  const double whole = plane.at("curve")[0].at("signal_adu");
  EXPECT_NEAR(plane.at("curve")[1].at("signal_adu").get<double>() / whole, 2, 0.02);
  EXPECT_LT(plane.at("prnu_percent"), 2);  // dark borders would be tens of percent
}

// ---- What is answered by null

TEST_F(Measure, AnswersNullInWordsForFramesWithoutNoise) {
  const auto write = [&](const std::string& name, unsigned int value, unsigned int frame) {
    sim::HeaderFields fields = fieldsOf("GENERIC", "single", 8, 6);
    fields.frameNumber = frame;
    folder.write(
        name, sim::encodeFrame(fields, 3, sim::makePlanes(sim::layoutOf(fields), [&](const sim::PixelPlace&) {
                                 return static_cast<std::uint16_t>(value);
                               })));
  };
  write("a", 500, 1), write("b", 500, 2), write("c", 900, 3), write("d", 900, 4), write("e", 100, 5),
      write("f", 100, 6);
  flats = {"a", "b", "c", "d"}, darks = {"e", "f"};
  const json plane = measured().at("planes").at("image");
  for (const char* const field : {"gain_e_per_adu", "gain_e_per_adu_error", "read_noise_e", "read_noise_adu",
                                  "saturation_e", "dynamic_range_db", "linearity_error_percent", "dsnu_e",
                                  "dark_current_e_per_s", "dark_current_e_per_s_error"})
    EXPECT_TRUE(plane.at(field).is_null()) << field;
  EXPECT_EQ(plane.at("offset_adu"), 100);
  EXPECT_EQ(plane.at("prnu_percent"), 0);
  EXPECT_THAT(fieldsOfNotes(plane),
              ::testing::IsSupersetOf({"gain_e_per_adu", "saturation_e", "read_noise_e",
                                       "linearity_error_percent", "dark_current_e_per_s"}));
  EXPECT_THAT(good(arguments()),
              HasSubstr("image: The gain is not known: the noise of the flats does not rise"));
}

TEST_F(Measure, AnswersNullForOneLevel) {
  shootSeries({1}, 30000);
  const json plane = measured().at("planes").at("image");
  EXPECT_TRUE(plane.at("gain_e_per_adu").is_null());
  EXPECT_FALSE(plane.at("prnu_percent").is_null());
  EXPECT_FALSE(plane.at("read_noise_adu").is_null());
}

TEST_F(Measure, AnswersNullForFlatsThatAreAllSaturated) {
  shootSeries({1, 2}, 1e6);
  const json plane = measured().at("planes").at("image");
  EXPECT_TRUE(plane.at("gain_e_per_adu").is_null());
  EXPECT_TRUE(plane.at("prnu_percent").is_null());
  EXPECT_EQ(plane.at("curve")[0].at("at_full_scale"), 1);
  EXPECT_THAT(fieldsOfNotes(plane), ::testing::Contains("prnu_percent"));
}

// ---- What is refused

TEST_F(Measure, RefusesAFlatWithoutASecondOne) {
  shootSeries({1, 2}, 10000);
  shoot("more", 2, 20000);
  flats.emplace_back("more");
  bad(arguments(), "more", "is a flat of 2 s without a second one");
}

TEST_F(Measure, RefusesAFlatWithoutTwoDarksOfItsExposure) {
  shootSeries({1, 2.5}, 10000);
  darks = {"d0a", "d0b", "d1b"};
  bad(arguments(), "f1a", "is a flat of 2.5 s and has 1 dark of its exposure; it takes two");
  darks = {"d0a", "d0b"};
  bad(arguments(), "f1a", "has 0 darks of its exposure");
}

TEST_F(Measure, RefusesUnlikeFramesAndNamesTheField) {
  shootSeries({1, 2}, 10000);
  const std::pair<std::function<void(sim::HeaderFields&)>, const char*> cases[] = {
      {[](sim::HeaderFields& f) { f.lowGain = 1; }, "LDRGain is 1, of the first frame 0"},
      {[](sim::HeaderFields& f) { f.blackLevel = 7; }, "BlackLevelAdjust is 7, of the first frame 100"},
      {[](sim::HeaderFields& f) { f.chipTemperature = -180; },
       "SensorChipTemp is -18, of the first frame -19.5 degrees Celsius"},
      {[](sim::HeaderFields& f) { f.width = 66; }, "the size is 66 x 48"},
      {[](sim::HeaderFields& f) { f.model = "VESTRA VS4040", f.dataBits = 16; }, "the sensor is GSENSE4040"},
      {[](sim::HeaderFields& f) { f.startRow = 8; }, "ImageStartRow is 8"},
      {[](sim::HeaderFields& f) { f.dataZeroPoint = 0, f.dataBits = 14; }, "DataPixelBitDepth is 14"}};
  for (const auto& [change, what] : cases) {
    shoot("d1b", 2, 0, change);
    bad(arguments(), "d1b", std::string("is unlike the first frame: ") + what);
  }
}

TEST_F(Measure, CountsNoFrameTwice) {
  shootSeries({1, 2}, 10000);
  const Arguments before = darks;
  darks.emplace_back("d0a");
  bad(arguments(), "d0a", "is given twice");
  fs::create_symlink("d0a", folder.path() / "link");
  darks.back() = "link";
  bad(arguments(), "link", "is given twice, also as d0a");
  darks.back() = "f0a";
  bad(arguments(), "f0a", "is given twice");
  darks = before;
  fs::copy_file(folder.path() / "f0a", folder.path() / "copy");
  flats[1] = "copy";
  bad(arguments(), "copy", "holds the same frame as f0a");
}

TEST_F(Measure, RefusesWhatIsNoWholeFrame) {
  shootSeries({1, 2}, 10000);
  darks[1] = "none";
  bad(arguments(), "none", "cannot be opened");
  Bytes bytes = folder.read("d0b");
  bytes.resize(bytes.size() - 1);
  folder.write("cut", bytes);
  darks[1] = "cut";
  bad(arguments(), "cut", "needs 6528 bytes");
  folder.write("text", {'h', 'e', 'l', 'l', 'o'});
  darks[1] = "text";
  bad(arguments(), "text", "is not a raw frame");
  fs::create_directory(folder.path() / "empty");
  darks[1] = "empty";
  bad(arguments(), "empty", "holds no frame");
}

TEST_F(Measure, TakesFolders) {
  shootSeries({1, 2}, 10000);
  for (const auto& [name, frames] : {std::pair{"flats", flats}, {"darks", darks}}) {
    fs::create_directory(folder.path() / name);
    for (const std::string& frame : frames)
      fs::rename(folder.path() / frame, folder.path() / name / frame);
  }
  flats = {"flats"}, darks = {"darks"};
  EXPECT_EQ(measured().at("frames"), 8);
}

TEST_F(Measure, RefusesCallsThatCannotBeMeant) {
  shootSeries({1, 2}, 10000);
  refused({"measure", "--darks", "d0a"}, "--flats");
  refused({"measure", "--flats", "f0a"}, "--darks");
  Arguments all = arguments();
  all[2] = "-";
  refused(all, "standard input");
  refused(arguments({"--bias", "b"}), "--bias");
  refused(arguments({"--thresholds", "1"}), "--thresholds");
}

TEST_F(Measure, RefusesCorrectionsThatHaveNothingToMerge) {
  shootSeries({1, 2}, 10000);
  bad(arguments({"--thresholds", "3000,100"}), "f0a",
      "has nothing to merge, to which --thresholds would apply");
  bad(arguments({"--dsnu", "none.ref"}), "none.ref", "cannot be opened");
}

TEST_F(Measure, NeverWritesOverAFileUnasked) {
  shootSeries({1, 2}, 10000);
  fs::create_directory(folder.path() / "report");
  folder.write("report/photon_transfer.csv", {'x'});
  bad(arguments({"-o", "report"}), "report/photon_transfer.csv", "is there already", 3);
  good(arguments({"-o", "report", "--overwrite"}));
  EXPECT_GT(folder.read("report/photon_transfer.csv").size(), 100u);
  bad(arguments({"-o", "f0a"}), "f0a", "is no folder", 3);
  fs::create_directory(folder.path() / "frames");
  fs::rename(folder.path() / "f0a", folder.path() / "frames/photon_transfer.csv");
  flats[0] = "frames/photon_transfer.csv";
  refused(arguments({"-o", "frames", "--overwrite"}), "is an input");
}

// A sanitizer keeps freed memory: what a process takes then means nothing.
#if !ORVACAM_SANITIZED
TEST_F(Measure, NeedsNoMoreMemoryForMoreFrames) {
  width = 600, height = 400;
  shootSeries({1}, 30000);
  const long few = orvacam(arguments()).peakKilobytes;
  for (int i = 0; i < 28; ++i) {
    flats.push_back("more" + std::to_string(i));
    shoot(flats.back(), 1, 30000);
  }
  const long many = orvacam(arguments()).peakKilobytes;
  EXPECT_GT(few, 0);
  EXPECT_LT(many, few + 3500) << "28 frames more have 13400 kB";
}
#endif

}  // namespace
