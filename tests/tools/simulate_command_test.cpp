// orvacam simulate.

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "Program.h"
#include "simulator/Instrument.h"

namespace {

using namespace program_testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Simulate = Program;

TEST_F(Simulate, WritesTheFrameThatItsOptionsDescribe) {
  const Ran ran =
      orvacam({"simulate",         "gsense4040", "-o",           "a.raw",   "--mode",         "single",
               "--width",          "72",         "--height",     "30",      "--pre-rows",     "2",
               "--post-rows",      "3",          "--pre-pixels", "4",       "--post-pixels",  "8",
               "--bin-x",          "2",          "--bin-y",      "3",       "--low-gain",     "25",
               "--high-gain",      "62",         "--exposure",   "0.00777", "--seed",         "9",
               "--stars",          "5",          "--background", "900",     "--frame-number", "12",
               "--header-version", "4"});
  EXPECT_EQ(ran.exitCode, 0) << ran.err;
  EXPECT_THAT(ran.out + ran.err, IsEmpty());
  sim::HeaderFields f = fieldsOf("GSENSE4040", "single", 72, 30);
  f.preRefRows = 2, f.postRefRows = 3, f.preRefPixels = 4, f.postRefPixels = 8;
  f.horizontalBinning = 2, f.verticalBinning = 3;
  f.lowGain = 25, f.highGain = 62, f.exposure = 777, f.frameNumber = 12;
  sim::Sky sky;
  sky.seed = 9, sky.stars = 5, sky.background = 900;
  EXPECT_EQ(folder.read("a.raw"),
            sim::encodeFrame(f, 4, sim::exposeSky(*sim::findCamera("GSENSE4040"), f, sky)));
  EXPECT_THAT(files(), ElementsAre("a.raw"));
}

TEST_F(Simulate, MakesFramesOfEveryCameraModeAndHeaderThatTheProgramReads) {
  const Arguments versions = sanitized ? Arguments{"3"} : Arguments{"1", "2", "3", "4"};
  for (const sim::Camera& camera : sim::cameras())
    for (const char* mode : {"single", "hdr", "16bit", "cms"})
      for (const std::string& version : versions) {
        const bool has = sim::headerFor(camera, mode).has_value();
        const bool old = version < "3";
        const bool told = has && !(old && (camera.ccd || std::string(mode) == "cms"));
        SCOPED_TRACE(std::string(camera.name) + " " + mode + " " + version);
        const Ran made = orvacam({"simulate", camera.name, "-o", "a.raw", "--mode", mode, "--width", "48",
                                  "--height", "20", "--header-version", version});
        EXPECT_EQ(made.exitCode, told ? 0 : 2) << made.err;
        EXPECT_EQ(folder.has("a.raw"), told);
        if (!told) {
          EXPECT_EQ(lines(made.err), 1u);
          continue;
        }
        const Ran read = orvacam({"stats", "a.raw"});
        EXPECT_EQ(read.exitCode, 0) << read.err;
        EXPECT_EQ(lines(read.out), std::string(mode) == "hdr" ? 4u : 2u);
        fs::remove(folder.path() / "a.raw");
      }
}

TEST_F(Simulate, ReadsACcdThroughTheAmplifiersAskedFor) {
  for (const char* amplifiers : {"4", "8", "16", "32", "60"}) {
    ASSERT_EQ(orvacam({"simulate", "CCD230-84", "-o", "a.raw", "--quadrants", amplifiers, "--width", "16",
                       "--height", "8", "--overwrite"})
                  .exitCode,
              0);
    EXPECT_EQ(folder.read("a.raw").at(140) & 0x3C, std::stoi(amplifiers));
  }
}

TEST_F(Simulate, WritesTheReferenceFilesOfTheSamePattern) {
  ASSERT_EQ(orvacam({"simulate", "GSENSE400", "-o", "a.raw", "--mode", "hdr", "--width", "32", "--height",
                     "16", "--seed", "3", "--dsnu", "d", "--prnu", "p"})
                .exitCode,
            0);
  const sim::Camera& camera = *sim::findCamera("GSENSE400");
  sim::Sky sky;
  sky.seed = 3;
  const sim::HeaderFields fields = fieldsOf("GSENSE400", "hdr", 32, 16);
  EXPECT_EQ(folder.read("a.raw"), sim::encodeFrame(fields, 3, sim::exposeSky(camera, fields, sky)));
  EXPECT_EQ(folder.read("d"), sim::dsnuFile(camera, fields, sky));
  EXPECT_EQ(folder.read("p"), sim::prnuFile(camera, fields, sky));
  EXPECT_THAT(files(), ElementsAre("a.raw", "d", "p"));
}

TEST_F(Simulate, MakesWhatCalibratesACameraAndTellsTheTruthAboutIt) {
  const sim::Camera& camera = *sim::findCamera("GSENSE400");
  sim::Instrument instrument;
  instrument.seed = 3, instrument.readNoise = 5, instrument.columnNoise = 6;
  instrument.hotPixels = 4, instrument.blinking = 2;
  sim::Sky sky;
  sky.seed = 3;
  struct {
    const char* name;
    sim::FrameType type;
    double seconds;
  } const types[] = {{"light", sim::FrameType::Light, 2.5},
                     {"bias", sim::FrameType::Bias, 0},
                     {"dark", sim::FrameType::Dark, 2.5},
                     {"flat", sim::FrameType::Flat, 2.5}};
  for (const auto& type : types) {
    SCOPED_TRACE(type.name);
    Arguments call = {"simulate",     "GSENSE400", "--mode",         "hdr", "--width",      "32",
                      "--height",     "16",        "--seed",         "3",   "--type",       type.name,
                      "--read-noise", "5",         "--column-noise", "6",   "--hot-pixels", "4",
                      "--blinking",   "2",         "--frame-number", "8",   "-o",           "a.raw",
                      "--truth",      "t.json",    "--overwrite"};
    if (type.seconds > 0) call.insert(call.end(), {"--exposure", "2.5"});
    if (type.type == sim::FrameType::Flat) call.insert(call.end(), {"--level", "9000"});
    EXPECT_EQ(good(call), "");
    sim::HeaderFields f = sim::withGains(camera, fieldsOf("GSENSE400", "hdr", 32, 16));
    f.exposure = static_cast<unsigned>(type.seconds * 1e5), f.frameNumber = 8;
    EXPECT_EQ(folder.read("a.raw"),
              sim::encodeFrame(f, 3, sim::exposeFrame(camera, f, instrument, type.type, 9000, sky)));
    const auto truth = nlohmann::json::parse(textOf(folder.read("t.json")));
    const sim::Truth known = sim::truthOf(camera, f, instrument);
    EXPECT_EQ(truth.at("schema"), "orvacam.truth/1");
    EXPECT_EQ(truth.at("ratio"), known.ratio);
    ASSERT_EQ(truth.at("planes").size(), 2u);
    for (const sim::PlaneTruth& plane : known.planes) {
      const auto& said = truth.at("planes").at(plane.name);
      EXPECT_EQ(said.at("offset_adu"), plane.offset);
      EXPECT_EQ(said.at("gain_e_per_adu"), plane.gain);
      EXPECT_EQ(said.at("read_noise_e"), plane.readNoise);
      EXPECT_EQ(said.at("dark_current_e_per_s"), plane.darkCurrent);
      EXPECT_EQ(said.at("column_noise_e"), plane.columnNoise);
      ASSERT_EQ(said.at("hot_pixels").size(), 4u);
      EXPECT_EQ(said.at("hot_pixels")[1][0], known.hot[1].x);
      EXPECT_EQ(said.at("hot_pixels")[1][1], known.hot[1].y);
      EXPECT_EQ(said.at("blinking_pixels").size(), 2u);
    }
  }
  EXPECT_THAT(files(), ElementsAre("a.raw", "t.json"));
}

TEST_F(Simulate, ChecksWhatFramesOfACameraAreMadeOf) {
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--type", "twilight"}, "there is no 'twilight'");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--type", "bias", "--exposure", "1"},
          "a bias frame has none");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--type", "dark", "--level", "9"}, "only flats have one");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--level", "9"}, "only flats have one");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--type", "dark", "--dsnu", "d"}, "orvacam calibrate");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--type", "dark", "--prnu", "d"}, "--prnu: ");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--truth", "a.raw"}, "a.raw");
  refused({"simulate", "GSENSE2020", "-o", "a.raw", "--mode", "cms", "--type", "dark"}, "sampled frames");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--exposure", "-1"}, "no number from 0 to 42949");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--read-noise", "much"}, "no number from 0 to 100000");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--hot-pixels", "-3"}, "--hot-pixels");
  // Without --type, what belongs to such a camera means its light.
  good({"simulate", "GSENSE400", "-o", "a.raw", "--hot-pixels", "3"});
  good({"simulate", "GSENSE400", "-o", "b.raw", "--hot-pixels", "3", "--type", "light"});
  EXPECT_EQ(folder.read("a.raw"), folder.read("b.raw"));
}

TEST_F(Simulate, MakesOnlyFramesOfCamerasAndModesThatThereAre) {
  refused({"simulate", "VS1", "-o", "a.raw"}, "there is no camera 'VS1'; there are GSENSE400, GSENSE2020");
  refused({"simulate", "GSENSE40", "-o", "a.raw"}, "did you mean 'GSENSE400'?");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--mode", "cms"}, "the GSENSE400 has no mode 'cms'");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--mode", "film"}, "there is no 'film'");
  refused({"simulate", "CCD4320", "-o", "a.raw", "--header-version", "2"}, "versions 3 and 4");
  refused({"simulate", "GSENSE2020", "-o", "a.raw", "--mode", "cms", "--header-version", "1"},
          "versions 3 and 4");
  refused({"simulate", "GSENSE400", "-o", "a.raw", "--background", "nan"}, "--background");
}

TEST_F(Simulate, RefusesWhatCouldNotBeDecodedAgain) {
  refused({"simulate", "GSENSE4040", "--mode", "hdr", "-o", "a.raw", "--width", "70", "--height", "30",
           "--pre-pixels", "4"},
          "such a frame could not be decoded");
  refused({"simulate", "CCD230-84", "-o", "a.raw", "--quadrants", "0"}, "such a frame could not be decoded");
}

TEST_F(Simulate, SaysWhyAFileCannotBeWritten) {
  bad({"simulate", "GENERIC", "-o", "none/a.raw"}, "none/a.raw",
      "cannot be written: No such file or directory", 3);
  fs::create_directory(folder.path() / "there");
  bad({"simulate", "GENERIC", "-o", "there"}, "there", "is a folder", 3);
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  bad({"simulate", "GENERIC", "-o", "pipe", "--overwrite"}, "pipe", "no regular file", 3);
  EXPECT_TRUE(fs::is_fifo(folder.path() / "pipe"));
  EXPECT_THAT(files(), ElementsAre("pipe", "there"));
  EXPECT_THAT(files("there"), IsEmpty());
}

TEST_F(Simulate, KeepsTheOldFileWhenTheDiskIsFull) {
  folder.write("a.raw", {1, 2, 3});
  Surroundings full;
  full.longestFile = 1000000;  // of the 1.5 MB of a frame
  const Ran ran = orvacam({"simulate", "GSENSE400", "-o", "a.raw", "--overwrite"}, full);
  EXPECT_EQ(ran.exitCode, 3);
  EXPECT_EQ(ran.err, "orvacam: a.raw: cannot be written: File too large\n");
  EXPECT_EQ(folder.read("a.raw"), (Bytes{1, 2, 3}));
  EXPECT_THAT(files(), ElementsAre("a.raw"));
}

TEST_F(Simulate, WritesThroughALinkAndHonoursTheUsersMask) {
  fs::create_symlink("target.raw", folder.path() / "link.raw");
  folder.write("target.raw", {});
  const mode_t before = umask(027);
  const Ran ran =
      orvacam({"simulate", "GSENSE400", "-o", "link.raw", "--width", "8", "--height", "8", "--overwrite"});
  umask(before);
  ASSERT_EQ(ran.exitCode, 0) << ran.err;
  EXPECT_TRUE(fs::is_symlink(folder.path() / "link.raw"));
  EXPECT_EQ(folder.read("target.raw").size(), 384u + 8 * 8 / 2 * 3);
  EXPECT_EQ(fs::status(folder.path() / "target.raw").permissions(), static_cast<fs::perms>(0640));
}

}  // namespace
