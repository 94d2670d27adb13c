// orvacam as a whole, what all its commands have in common, and orvacam info.

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "Program.h"

namespace {

using namespace program_testing;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class TheProgram : public Program {
 protected:
  /// Files that are no whole frame, with what is wrong with them: bytes of pixels are 6 * 4 * 2.
  std::map<std::string, std::string> writeBadFrames() {
    writeFlat("whole", 5);
    Bytes frame = folder.read("whole");
    fs::remove(folder.path() / "whole");
    folder.write("header.raw", Bytes(frame.begin(), frame.begin() + 100));
    frame.pop_back();
    folder.write("cut.raw", frame);
    folder.write("empty.raw", {});
    folder.write("text.raw", {'m', 'e', 't', 'a', 'l'});
    fs::create_directory(folder.path() / "folder.raw");
    return {{"header.raw", "is truncated: it needs 384 bytes for its header, and ends at byte 100"},
            {"cut.raw", "is truncated: it needs 432 bytes for its pixels, and ends at byte 431"},
            {"empty.raw", "is empty"},
            {"text.raw", "is not a camera frame: it does not start with \"Meta\""},
            {"folder.raw", "is not a regular file"},
            {"missing.raw", "cannot be opened: No such file or directory"}};
  }
};
using Info = Program;

TEST_F(TheProgram, TellsItsVersionAndCommands) {
  EXPECT_EQ(good({"--version"}), "orvacam 2.1.4\n");
  const std::string help = good({"--help"});
  for (const char* command : {"convert", "info", "stats", "stack", "roi", "gains", "simulate"}) {
    EXPECT_THAT(help, HasSubstr(command));
    EXPECT_THAT(good({command, "--help"}), HasSubstr("OPTIONS")) << command;
  }
}

TEST_F(TheProgram, RefusesUnknownAndMissingOptions) {
  writeFlat("a.raw", 1);
  refused({}, "subcommand");
  refused({"develop"}, "subcommand");
  refused({"info"}, "FILE is required");
  refused({"info", "a.raw", "--colour"}, "--colour");
  refused({"convert", "a.raw"}, "--output is required");
  refused({"convert", "a.raw", "-o", "out", "--format", "png"}, "--format");
  refused({"stack", "a.raw"}, "--output is required");
  refused({"stack", "-o", "a.fits"}, "FILE is required");
  refused({"stats", "a.raw", "a.raw", "--histogram-csv", "h.csv"}, "takes one input");
  refused({"roi", "a.raw", "-o", "b.raw", "--x", "0", "--y", "0", "--width", "2"}, "--height is required");
  refused({"roi", "a.raw", "-o", "b.raw", "--x", "-2", "--y", "0", "--width", "2", "--height", "1"}, "--x");
  refused({"gains"}, "MODEL is required");
  refused({"simulate", "GENERIC"}, "--output is required");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--width", "wide"}, "--width");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--width", "0"}, "--width");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--width", "-5"}, "--width");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--height", "16385"}, "--height");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--header-version", "5"}, "--header-version");
}

TEST_F(TheProgram, FailsWhenItsOutputCannotBeWritten) {
  folder.write("a.raw", Sample(fieldsOf("GSENSE400", "hdr", 32, 16), 1).bytes);
  Surroundings full;
  full.standardOutput = "/dev/full";
  const Arguments commands[] = {
      {"info", "a.raw"}, {"info", "--json", "a.raw"}, {"stats", "a.raw"}, {"gains", "GSENSE400"}};
  for (const Arguments& command : commands) {
    const Ran ran = orvacam(command, full);
    EXPECT_EQ(ran.exitCode, 1) << command[0];
    EXPECT_EQ(ran.err, "orvacam: standard output cannot be written\n");
  }
  Surroundings nearlyFull;
  nearlyFull.longestFile = 10;
  EXPECT_EQ(orvacam({"info", "a.raw"}, nearlyFull).exitCode, 1);
}

TEST_F(TheProgram, SaysOfEachBadInputWhatIsWrong) {
  for (const auto& [name, what] : writeBadFrames()) {
    if (name != "cut.raw") bad({"info", name}, name, what);  // its header is whole
    bad({"stats", name}, name, what);
    bad({"stack", name, "-o", "mean.fit"}, name, what);
    bad({"roi", name, "-o", "region.raw", "--x", "0", "--y", "0", "--width", "2", "--height", "1"}, name,
        what);
    fs::create_directory(folder.path() / "out");
    bad({"convert", name, "-o", "out"}, name, what);
  }
}

TEST_F(TheProgram, GoesOnAfterABadInput) {
  writeFlat("a.raw", 3);
  writeFlat("z.raw", 4);
  for (const auto& [name, what] : writeBadFrames()) {
    const Ran stats = orvacam({"stats", "a.raw", name, "z.raw"});
    EXPECT_EQ(stats.exitCode, 1);
    EXPECT_THAT(stats.err, AllOf(StartsWith("orvacam: " + name + ": "), HasSubstr(what)));
    EXPECT_THAT(stats.out, AllOf(HasSubstr("a.raw:\n"), HasSubstr("z.raw:\n")));

    const Ran info = orvacam({"info", "--json", "a.raw", "missing.raw", "z.raw"});
    EXPECT_EQ(info.exitCode, 1);
    EXPECT_EQ(nlohmann::json::parse(info.out).size(), 2u);
  }
}

TEST_F(TheProgram, ReplacesEarlierOutputs) {
  writeFlat("a.raw", 21);
  fs::create_directory(folder.path() / "out");
  for (const char* name : {"out/a.tiff", "out/a.fit", "mean.tif", "h.csv", "s.raw"})
    folder.write(name, Bytes(100000, 'x'));
  good({"convert", "a.raw", "-o", "out"});
  good({"convert", "a.raw", "-o", "out", "-f", "tiff"});
  good({"stack", "a.raw", "-o", "mean.tif"});
  good({"stats", "a.raw", "--histogram-csv", "h.csv"});
  good({"simulate", "GENERIC", "-o", "s.raw", "--width", "4", "--height", "4"});
  EXPECT_EQ(folder.read("out/a.fit").size(), 24u * 2u);
  EXPECT_EQ(tiff("out/a.tiff"), Pixels(24, 21));
  EXPECT_EQ(tiff("mean.tif"), Pixels(24, 21));
  EXPECT_EQ(textOf(folder.read("h.csv")), "value,image\n21,24\n");
  EXPECT_EQ(folder.read("s.raw").size(), 384u + 32u);
  EXPECT_EQ(allNames(), (Names{"a.raw", "h.csv", "mean.tif", "out", "out/a.fit", "out/a.tiff", "s.raw"}));
}

TEST_F(TheProgram, GivesNewFilesTheUsualMode) {
  writeFlat("a.raw", 21);
  const mode_t mask = umask(022);
  good({"convert", "a.raw", "-o", "out"});
  good({"stack", "a.raw", "-o", "mean.tif"});
  umask(mask);
  for (const char* name : {"out/a.fit", "mean.tif"}) {
    struct stat status {};
    ASSERT_EQ(stat(folder.file(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0644u) << name;
  }
}

TEST_F(TheProgram, SaysWhereItCannotWrite) {
  writeHdr("a.raw", 8, 4);
  fs::create_directory(folder.path() / "taken.fit");
  bad({"convert", "a.raw", "-o", "a.raw"}, "a.raw", "is not a folder and cannot be made one");
  bad({"convert", "a.raw", "-o", "a.raw/out"}, "a.raw/out", "is not a folder and cannot be made one");
  bad({"stack", "a.raw", "-o", "none/mean.fit"}, "none/mean.fit", "cannot be written: No such file");
  bad({"stack", "a.raw", "-o", "taken.fit"}, "taken.fit", "is not a regular file");
  bad({"stack", "a.raw", "-o", "mean.png"}, "mean.png", "should end in .fit, .fits, .tif or .tiff");
  bad({"roi", "a.raw", "-o", "none/b.raw", "--x", "0", "--y", "0", "--width", "2", "--height", "1"},
      "none/b.raw", "cannot be written: No such file");
}

TEST_F(TheProgram, LeavesNothingBehindOnAFullDisk) {
  good({"simulate", "GSENSE4040", "--mode", "hdr", "-o", "a.raw", "--width", "64", "--height", "48"});
  fs::create_directory(folder.path() / "out");
  folder.write("out/a_LOW.fit", {'o', 'l', 'd'});
  folder.write("mean.fit", {'o', 'l', 'd'});
  const auto before = contents();
  Surroundings full;
  full.longestFile = 4000;
  const Arguments commands[] = {
      {"convert", "a.raw", "-o", "out"},
      {"convert", "a.raw", "-o", "out", "-f", "tiff"},
      {"stack", "a.raw", "-o", "mean.fit"},
      {"stack", "a.raw", "-o", "mean.tif"},
      {"simulate", "GENERIC", "-o", "b.raw", "--width", "64", "--height", "64"},
      {"roi", "a.raw", "-o", "b.raw", "--x", "0", "--y", "0", "--width", "64", "--height", "40"}};
  for (const auto& command : commands) {
    const Ran ran = orvacam(command, full);
    EXPECT_EQ(ran.exitCode, 1) << command[0];
    EXPECT_THAT(ran.err, AllOf(StartsWith("orvacam: "), HasSubstr("written"))) << command[0];
    if (command[0] == "convert")
      EXPECT_EQ(ran.err, "orvacam: a.raw: is not converted: the files in out cannot be written completely\n");
    EXPECT_EQ(contents(), before) << command[0];
  }
}

// ---- Names and languages

TEST_F(TheProgram, TakesEveryFileName) {
  const std::string names[] = {"two words.raw",
                               "n\xC3\xA4"
                               "chte \xE6\x98\x9F.raw",
                               "raw \xFF\xFE bytes.raw",
                               "latin\xE9.raw",
                               "it's \"quoted\".raw",
                               "-dash.raw",
                               ".hidden.raw",
                               "no extension",
                               "a.b.c",
                               std::string(240, 'n') + ".raw"};
  for (const std::string& name : names)
    for (const char* locale : {"C", "C.UTF-8", "de_DE.UTF-8"}) {
      SCOPED_TRACE(name + " in " + locale);
      const Surroundings in{{{"LC_ALL", locale}}, 0, {}};
      const std::string stem = fs::path(name).stem().string(), out = stem + " out \xE9";
      writeFlat("plain", 77);
      fs::rename(folder.path() / "plain", folder.path() / name);
      good({"convert", "./" + name, "-o", "./" + out}, in);
      EXPECT_EQ(fs::file_size(folder.file(out + "/" + stem + ".fit")), 24u * 2u);
      good({"convert", "./" + name, "-o", "./" + out, "-f", "tiff"}, in);
      EXPECT_EQ(tiff(out + "/" + stem + ".tiff"), Pixels(24, 77));
      good({"stack", "./" + name, "-o", "./" + stem + ".tif"}, in);
      EXPECT_EQ(tiff(stem + ".tif"), Pixels(24, 77));
      EXPECT_EQ(nlohmann::json::parse(good({"info", "--json", "./" + name}, in)).size(), 1u);
      EXPECT_EQ(nlohmann::json::parse(good({"stats", "--json", "./" + name}, in)).size(), 1u);
      EXPECT_EQ(allNames(),
                (Names{name, out, out + "/" + stem + ".fit", out + "/" + stem + ".tiff", stem + ".tif"}));
      for (const std::string& made : {name, out, stem + ".tif"})
        fs::remove_all(folder.path() / made);
    }
}

TEST_F(TheProgram, WritesTheSameDigitsInEveryLanguage) {
  folder.write("nv", blockOfASetting());
  good({"simulate", "GSENSE4040", "--mode", "hdr", "-o", "a.raw", "--width", "32", "--height", "16",
        "--background", "400.5"});
  const Arguments commands[] = {{"info", "a.raw"},
                                {"info", "--json", "a.raw"},
                                {"stats", "a.raw"},
                                {"stats", "--json", "a.raw"},
                                {"gains", "GSENSE400", "--nv", "nv"},
                                {"convert", "a.raw", "-o", "out"},
                                {"simulate", "GSENSE4040", "--mode", "hdr", "-o", "b.raw", "--width", "32",
                                 "--height", "16", "--background", "400.5"}};
  for (const auto& command : commands) {
    const Ran german = orvacam(command, {{{"LC_ALL", "de_DE.UTF-8"}}, 0, {}});
    EXPECT_EQ(german.exitCode, 0) << german.err;
    EXPECT_EQ(german.out, good(command)) << command[0];
  }
  EXPECT_EQ(folder.read("a.raw"), folder.read("b.raw"));
}

// ---- info

TEST_F(Info, ShowsTheHeader) {
  writeHdr("a.raw", 8, 4);
  EXPECT_THAT(good({"info", "a.raw"}),
              AllOf(HasSubstr("CameraModel             = VESTRA VS4040\n"),
                    HasSubstr("Horizontal Pixels       = 8\n"), HasSubstr("HDR Mode               = TRUE\n"),
                    HasSubstr("Capture Time   = 2024/05/17 21:04:33.123456700\n")));
  EXPECT_THAT(good({"info", "a.raw", "a.raw"}), StartsWith("a.raw:\n"));
}

TEST_F(Info, ShowsTheHeaderAsJson) {
  writeHdr("a.raw", 8, 4);
  const auto all = nlohmann::json::parse(good({"info", "--json", "a.raw"}));
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0]["file"], "a.raw");
  std::map<std::string, nlohmann::json> values;
  for (const auto& entry : all[0]["metadata"])
    values[entry["name"]] = entry;
  EXPECT_EQ(values.size(), all[0]["metadata"].size()) << "two keys of one name";
  EXPECT_EQ(values.at("CameraModel")["value"], "VESTRA VS4040");
  EXPECT_EQ(values.at("CameraModel")["key"], 11);
  EXPECT_EQ(values.at("ExposureTime")["value"], 100000);
  EXPECT_EQ(values.at("ExposureTime")["unit"], "10 us");
  EXPECT_EQ(values.at("SensorChipTemp")["value"], -195);
  EXPECT_EQ(values.at("HDRMode")["value"], 1);
  EXPECT_EQ(values.at("VerticalPixels")["value"], 4);
}

}  // namespace
