// orvacam simulate, and the program as a whole.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "Program.h"

namespace {

using namespace program_testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using TheProgram = Program;
using Simulate = Program;

TEST_F(TheProgram, ExplainsItselfWhenAsked) {
  const Ran help = orvacam({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  for (const char* command : {"convert", "info", "stats", "stack", "roi", "gains", "simulate"}) {
    EXPECT_THAT(help.out, HasSubstr(command));
    EXPECT_EQ(orvacam({command, "--help"}).exitCode, 0);
  }
  EXPECT_EQ(orvacam({"--version"}).out, "orvacam 2.1.4\n");
}

TEST_F(TheProgram, RefusesACommandLineThatItDoesNotUnderstand) {
  const std::vector<std::vector<std::string>> commandLines = {
      {},
      {"develop"},
      {"info"},
      {"info", "--xml", "a.raw"},
      {"convert", "a.raw"},
      {"convert", "a.raw", "-o", "out", "--format", "png"},
      {"stack", "-o", "a.fits"},
      {"roi", "a.raw", "-o", "b.raw", "--x", "0", "--y", "0"},
      {"gains"},
      {"simulate", "GSENSE400"},
      {"simulate", "GSENSE400", "-o", "a.raw", "--width", "0"},
      {"simulate", "GSENSE400", "-o", "a.raw", "--width", "-5"},
      {"simulate", "GSENSE400", "-o", "a.raw", "--header-version", "5"},
      {"stats", "a.raw", "b.raw", "--histogram-csv", "h.csv"}};
  for (const auto& commandLine : commandLines) {
    const Ran ran = orvacam(commandLine);
    EXPECT_GT(ran.exitCode, 0) << ::testing::PrintToString(commandLine);
    EXPECT_FALSE(ran.err.empty()) << ::testing::PrintToString(commandLine);
    EXPECT_THAT(ran.out, IsEmpty());
  }
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(TheProgram, FailsWhenItsOutputCannotBeWritten) {
  folder.write("a.raw", Sample(fieldsOf("GSENSE400", "hdr", 32, 16), 1).bytes);
  Surroundings full;
  full.standardOutput = "/dev/full";
  const std::vector<std::vector<std::string>> commandLines = {
      {"info", "a.raw"}, {"info", "--json", "a.raw"}, {"stats", "a.raw"}, {"gains", "GSENSE400"}};
  for (const auto& commandLine : commandLines) {
    const Ran ran = orvacam(commandLine, full);
    EXPECT_EQ(ran.exitCode, 1) << commandLine[0];
    EXPECT_EQ(ran.err, "orvacam: standard output cannot be written\n");
  }
}

TEST_F(Simulate, WritesTheFrameThatItsOptionsDescribe) {
  const Ran ran = orvacam({"simulate",         "gsense4040", "-o",           "a.raw", "--mode",         "hdr",
                           "--width",          "70",         "--height",     "30",    "--pre-rows",     "2",
                           "--post-rows",      "3",          "--pre-pixels", "4",     "--post-pixels",  "6",
                           "--bin-x",          "2",          "--bin-y",      "3",     "--low-gain",     "25",
                           "--high-gain",      "62",         "--exposure",   "777",   "--seed",         "9",
                           "--stars",          "5",          "--background", "900",   "--frame-number", "12",
                           "--header-version", "4"});
  EXPECT_EQ(ran.exitCode, 0) << ran.err;
  EXPECT_THAT(ran.out + ran.err, IsEmpty());
  sim::HeaderFields f = fieldsOf("GSENSE4040", "hdr", 70, 30);
  f.preRefRows = 2, f.postRefRows = 3, f.preRefPixels = 4, f.postRefPixels = 6;
  f.horizontalBinning = 2, f.verticalBinning = 3;
  f.lowGain = 25, f.highGain = 62, f.exposure = 777, f.frameNumber = 12;
  sim::Sky sky;
  sky.seed = 9, sky.stars = 5, sky.background = 900;
  EXPECT_EQ(folder.read("a.raw"),
            sim::encodeFrame(f, 4, sim::exposeSky(*sim::findCamera("GSENSE4040"), f, sky)));
  EXPECT_THAT(files(), ElementsAre("a.raw"));
}

TEST_F(Simulate, MakesFramesOfEveryCameraModeAndHeaderThatTheProgramReads) {
  for (const sim::Camera& camera : sim::cameras())
    for (const char* mode : {"single", "hdr", "16bit", "cms"})
      for (const char* version : {"1", "2", "3", "4"}) {
        const bool has = sim::headerFor(camera, mode).has_value();
        const bool old = *version < '3';
        const bool told = has && !(old && (camera.ccd || std::string(mode) == "cms"));
        SCOPED_TRACE(std::string(camera.name) + " " + mode + " " + version);
        const Ran made = orvacam({"simulate", camera.name, "-o", "a.raw", "--mode", mode, "--width", "48",
                                  "--height", "20", "--header-version", version});
        EXPECT_EQ(made.exitCode, told ? 0 : 1) << made.err;
        EXPECT_EQ(folder.has("a.raw"), told);
        if (!told) {
          EXPECT_EQ(lines(made.err), 1u);
          continue;
        }
        const Ran read = orvacam({"stats", "a.raw"});
        EXPECT_EQ(read.exitCode, 0) << read.err;
        EXPECT_EQ(lines(read.out), std::string(mode) == "hdr" ? 4u : 2u);
        std::filesystem::remove(folder.path() / "a.raw");
      }
}

TEST_F(Simulate, ReadsACcdThroughTheAmplifiersAskedFor) {
  for (const char* amplifiers : {"4", "8", "16", "32", "60"}) {
    ASSERT_EQ(orvacam({"simulate", "CCD230-84", "-o", "a.raw", "--quadrants", amplifiers, "--width", "16",
                       "--height", "8"})
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
  EXPECT_EQ(folder.read("d"), sim::dsnuFile(camera, fieldsOf("GSENSE400", "hdr", 32, 16), sky));
  EXPECT_EQ(folder.read("p"), sim::prnuFile(camera, fieldsOf("GSENSE400", "hdr", 32, 16), sky));
}

TEST_F(Simulate, NamesTheCamerasWhenItDoesNotKnowOne) {
  const Ran ran = orvacam({"simulate", "GSENSE9", "-o", "a.raw"});
  EXPECT_EQ(ran.exitCode, 1);
  EXPECT_THAT(ran.err, StartsWith("orvacam: GSENSE9: is no camera; there are GSENSE400, GSENSE2020"));
  EXPECT_EQ(orvacam({"simulate", "GSENSE400", "-o", "a.raw", "--mode", "16bit"}).err,
            "orvacam: a.raw: the GSENSE400 has no mode '16bit'\n");
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(Simulate, SaysWhyAFileCannotBeWritten) {
  EXPECT_EQ(orvacam({"simulate", "GSENSE400", "-o", "none/a.raw"}).err,
            "orvacam: none/a.raw: cannot be written: No such file or directory\n");
  std::filesystem::create_directory(folder.path() / "there");
  EXPECT_EQ(orvacam({"simulate", "GSENSE400", "-o", "there"}).err,
            "orvacam: there: is there already and is not a regular file\n");
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(orvacam({"simulate", "GSENSE400", "-o", "pipe"}).exitCode, 1);
  EXPECT_TRUE(std::filesystem::is_fifo(folder.path() / "pipe"));
  EXPECT_THAT(files(), ElementsAre("pipe", "there"));
  EXPECT_THAT(files("there"), IsEmpty());
}

TEST_F(Simulate, KeepsTheOldFileWhenTheDiskIsFull) {
  folder.write("a.raw", {1, 2, 3});
  Surroundings full;
  full.longestFile = 100000;
  const Ran ran = orvacam({"simulate", "GSENSE400", "-o", "a.raw"}, full);
  EXPECT_EQ(ran.exitCode, 1);
  EXPECT_EQ(ran.err, "orvacam: a.raw: cannot be written: File too large\n");
  EXPECT_EQ(folder.read("a.raw"), (Bytes{1, 2, 3}));
  EXPECT_THAT(files(), ElementsAre("a.raw"));
}

TEST_F(Simulate, WritesThroughALinkAndHonoursTheUsersMask) {
  std::filesystem::create_symlink("target.raw", folder.path() / "link.raw");
  folder.write("target.raw", {});
  const mode_t before = umask(027);
  const Ran ran = orvacam({"simulate", "GSENSE400", "-o", "link.raw", "--width", "8", "--height", "8"});
  umask(before);
  ASSERT_EQ(ran.exitCode, 0) << ran.err;
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path() / "link.raw"));
  EXPECT_EQ(folder.read("target.raw").size(), 384u + 8 * 8 / 2 * 3);
  EXPECT_EQ(std::filesystem::status(folder.path() / "target.raw").permissions(),
            static_cast<std::filesystem::perms>(0640));
}

}  // namespace
