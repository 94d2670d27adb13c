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
    return {{"header.raw", "needs 384 bytes for its header, ends at byte 100"},
            {"cut.raw",
             "needs 432 bytes (6 x 4 pixels of 16 bits behind a header of 384 bytes), ends at byte 431"},
            {"empty.raw", "is empty"},
            {"text.raw", "is not a raw frame: it does not start with \"Meta\""},
            {"folder.raw", ""},
            {"missing.raw", "cannot be opened: No such file or directory"}};
  }
};
using Info = Program;

TEST_F(TheProgram, TellsItsVersionAndCommands) {
  EXPECT_EQ(good({"--version"}), "orvacam 2.1.4\n");
  const auto version = nlohmann::json::parse(good({"--version", "--json"}));
  EXPECT_EQ(version["schema"], "orvacam.version/1");
  EXPECT_EQ(version["version"], "2.1.4");
  EXPECT_THAT(version["commands"], ::testing::Contains("cameras"));
  EXPECT_THAT(version["formats"], ::testing::Contains("ome-tiff"));
  refused({"--json"}, "--json");
  const std::string help = good({"--help"});
  for (const char* command :
       {"convert", "info", "stats", "check", "stack", "preview", "roi", "repair", "gains", "simulate"}) {
    EXPECT_THAT(help, HasSubstr(command));
    EXPECT_THAT(good({command, "--help"}), HasSubstr("OPTIONS")) << command;
  }
}

TEST_F(TheProgram, RefusesUnknownAndMissingOptions) {
  writeFlat("a.raw", 1);
  refused({"develop"}, "there is no command 'develop'");
  refused({"convrt", "a.raw", "-o", "out"}, "there is no command 'convrt'; did you mean 'convert'?");
  refused({"info"}, "no input is named");
  refused({"info", "a.raw", "--colour"}, "info: there is no option '--colour'");
  refused({"info", "a.raw", "--jsn"}, "did you mean '--json'?");
  refused({"convert", "a.raw", "--ouput", "out"}, "there is no option '--ouput'; did you mean '--output'?");
  refused({"--jobs", "2", "convert", "a.raw", "-o", "out"}, "--jobs: stands behind the command");
  refused({"convert", "a.raw"}, "--output is required");
  refused({"convert", "a.raw", "-o", "out", "--output", "other"}, "--output: is given more than once");
  refused({"convert", "a.raw", "-o", ""}, "--output: the name is empty");
  refused({"convert", "", "-o", "out"}, "the name is empty");
  const char* const named = "cannot be standard output; ./- is what is called so";
  refused({"stats", "a.raw", "--histogram-csv", "-"}, named);
  refused({"repair", "a.fit", "-o", "-"}, named);
  for (const char* const option : {"-o", "--hot-pixels", "--mask"}) {
    Arguments calibrate = {"calibrate", "dark", "a.raw", "b.raw", option, "-"};
    if (option != std::string("-o")) calibrate.insert(calibrate.end(), {"-o", "d.dsnu"});
    refused(calibrate, named);
  }
  const char* const twice = "standard output would be written twice";
  refused({"simulate", "GSENSE4040", "-o", "-", "--truth", "-"}, twice);
  refused({"stack", "a.raw", "--method", "sigma", "-o", "-", "--map-rejected", "-"}, twice);
  refused({"report", "a.raw", "-o", "-"}, named);
  refused({"info", "a.raw", "--log", "-"}, named);
  refused({"measure", "--flats", "a.raw", "--darks", "b.raw", "-o", "-"}, named);
  refused({"convert", "a.raw", "-o", "out", "--format", "picture"},
          "there is no 'picture'; there are fits, tiff");
  refused({"convert", "a.raw", "-o", "out", "--format", "fit"}, "did you mean 'fits'?");
  refused({"convert", "a.raw", "-o", "out", "--thresholds", "1;2"}, "HIGH,DIFFERENCE");
  refused({"convert", "a.raw", "-o", "out", "--thresholds", "70000,2"}, "HIGH,DIFFERENCE");
  refused({"stack", "a.raw"}, "--output is required");
  refused({"stack", "-o", "a.fits"}, "no input is named");
  refused({"stack", "a.raw", "-o", "mean.png"}, "mean.png should end in .fits");
  refused({"stats", "-", "-"}, "standard input can be one input only");
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

TEST_F(TheProgram, NamesTheHelpThatFitsAWrongCall) {
  refused({"convert", "a.raw", "-o", "x", "--skip-existing", "--overwrite"},
          "do not go together (orvacam convert --help)\n");
  refused({"info"}, "no input is named (orvacam info --help)\n");
  refused({"stack", "-o", "x"}, "(orvacam stack --help)\n");
  refused({"convrt"}, "did you mean 'convert'? (orvacam --help)\n");
}

TEST_F(TheProgram, RefusesOptionsThatDoNotGoTogether) {
  writeFlat("a.raw", 1);
  const Arguments pairs[] = {{"--native", "--compress", "rice"},
                             {"--native", "--crop", "image"},
                             {"--native", "--planes", "low"},
                             {"--native", "--single-file"},
                             {"--native", "--reproducible"},
                             {"--native", "--bias", "b"},
                             {"--native", "-f", "npy"},
                             {"--bias", "b", "--dsnu", "d"},
                             {"--compress", "rice", "-f", "tiff"},
                             {"--single-file", "-f", "png"},
                             {"--skip-existing", "--overwrite"}};
  refused({"convert", "a.raw", "-o", "out", "--planes", "low,high", "--dsnu", "d"},
          "--dsnu and --planes without merged, to which it would apply, do not go together");
  refused({"convert", "a.raw", "-o", "out", "--planes", "low", "--thresholds", "1,2"},
          "--thresholds and --planes");
  refused({"preview", "a.raw", "-o", "out", "--plane", "high", "--prnu", "p"},
          "--prnu and --plane without merged");
  for (const Arguments& options : pairs) {
    Arguments command = {"convert", "a.raw", "-o", "out"};
    command.insert(command.end(), options.begin(), options.end());
    refused(command, "--");
  }
}

TEST_F(TheProgram, ShowsItsCommandsWhenItIsAskedNothing) {
  const std::string shown = good({});
  for (const char* command :
       {"convert", "info", "stats", "check", "stack", "preview", "roi", "repair", "gains", "simulate"})
    EXPECT_THAT(shown, HasSubstr("    orvacam " + std::string(command)));
}

TEST_F(TheProgram, ListsWhatIsSupported) {
  const std::string text = good({"cameras"});
  const auto all = nlohmann::json::parse(good({"cameras", "--json"}));
  EXPECT_EQ(all["schema"], "orvacam.cameras/1");
  std::set<std::string> simulated;
  for (const auto& row : all["cameras"]) {
    const std::string sensor = row["sensor"];
    EXPECT_THAT(text, HasSubstr("\n" + sensor + " "));
    if (row["simulated"] == true) simulated.insert(sensor);
    if (sensor == "GSENSE400") EXPECT_EQ(row["modes"], (nlohmann::json{"single", "hdr"}));
    if (sensor == "GSENSE4040") EXPECT_EQ(row["model"], "VESTRA VS4040");
  }
  for (const sim::Camera& camera : sim::cameras())
    EXPECT_EQ(simulated.count(camera.name), 1u) << camera.name;
}

TEST_F(TheProgram, FailsWhenItsOutputCannotBeWritten) {
  folder.write("a.raw", Sample(fieldsOf("GSENSE400", "hdr", 32, 16), 1).bytes);
  Surroundings full;
  full.standardOutput = "/dev/full";
  const Arguments commands[] = {{"info", "a.raw"},      {"info", "--json", "a.raw"}, {"stats", "a.raw"},
                                {"gains", "GSENSE400"}, {"check", "a.raw"},          {}};
  for (const Arguments& command : commands) {
    const Ran ran = orvacam(command, full);
    EXPECT_EQ(ran.exitCode, 3);
    EXPECT_EQ(ran.err, "orvacam: standard output: cannot be written\n");
  }
  EXPECT_EQ(orvacam({"convert", "a.raw", "-o", "-", "--planes", "low"}, full).exitCode, 3);
}

TEST_F(TheProgram, SaysOfEachBadInputWhatIsWrong) {
  for (const auto& [name, what] : writeBadFrames()) {
    if (name != "cut.raw") bad({"info", name}, name, what);  // its header is whole
    const Ran check = orvacam({"check", "--json", name});
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_EQ(nlohmann::json::parse(check.out)["ok"], false) << name;
    EXPECT_EQ(nlohmann::json::parse(check.out)["findings"][0]["severity"], "error") << name;
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
    EXPECT_EQ(lines(info.out), 2u);
  }
}

TEST_F(TheProgram, ReplacesEarlierOutputsOnlyWhenAsked) {
  writeFlat("a.raw", 21);
  fs::create_directory(folder.path() / "out");
  for (const char* name : {"out/a.tiff", "out/a.fits", "out/a.png", "mean.tif", "h.csv", "s.raw"})
    folder.write(name, Bytes(100000, 'x'));
  const std::pair<Arguments, const char*> commands[] = {
      {{"convert", "a.raw", "-o", "out"}, "out/a.fits"},
      {{"convert", "a.raw", "-o", "out", "-f", "tiff"}, "out/a.tiff"},
      {{"preview", "a.raw", "-o", "out"}, "out/a.png"},
      {{"stack", "a.raw", "-o", "mean.tif", "--dtype", "uint16"}, "mean.tif"},
      {{"simulate", "GENERIC", "-o", "s.raw", "--width", "4", "--height", "4"}, "s.raw"}};
  for (const auto& [command, name] : commands) {
    bad(command, name, "is there already; --overwrite replaces it", 3);
    Arguments again = command;
    again.push_back("--overwrite");
    good(again);
  }
  EXPECT_EQ(orvacam({"stats", "a.raw", "--histogram-csv", "h.csv"}).exitCode, 3);
  good({"stats", "a.raw", "--histogram-csv", "h.csv", "--overwrite"});
  EXPECT_EQ(fits("out/a.fits"), Pixels(24, 21));
  EXPECT_EQ(tiff("out/a.tiff"), Pixels(24, 21));
  EXPECT_EQ(tiff("mean.tif"), Pixels(24, 21));
  EXPECT_EQ(textOf(folder.read("h.csv")), "value,image\n21,24\n");
  EXPECT_EQ(folder.read("s.raw").size(), 384u + 32u);
  EXPECT_EQ(allNames(),
            (Names{"a.raw", "h.csv", "mean.tif", "out", "out/a.fits", "out/a.png", "out/a.tiff", "s.raw"}));
}

TEST_F(TheProgram, GivesNewFilesTheUsualMode) {
  writeFlat("a.raw", 21);
  const mode_t mask = umask(022);
  good({"convert", "a.raw", "-o", "out"});
  good({"stack", "a.raw", "-o", "mean.tif"});
  umask(mask);
  for (const char* name : {"out/a.fits", "mean.tif"}) {
    struct stat status {};
    ASSERT_EQ(stat(folder.file(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0644u) << name;
  }
}

TEST_F(TheProgram, SaysWhereItCannotWrite) {
  writeHdr("a.raw", 8, 4);
  fs::create_directory(folder.path() / "taken.fit");
  writeHdr("b.raw", 8, 4);
  bad({"convert", "a.raw", "-o", "b.raw"}, "b.raw", "is no folder and cannot be made one", 3);
  bad({"convert", "a.raw", "-o", "b.raw/out"}, "b.raw/out", "is no folder and cannot be made one", 3);
  bad({"stack", "a.raw", "-o", "none/mean.fit"}, "none/mean.fit", "cannot be written: No such file", 3);
  bad({"stack", "a.raw", "-o", "taken.fit"}, "taken.fit", "is a folder", 3);
  bad({"roi", "a.raw", "-o", "none/b.raw", "--x", "0", "--y", "0", "--width", "2", "--height", "1"},
      "none/b.raw", "cannot be written: No such file", 3);
}

TEST_F(TheProgram, LeavesNothingBehindOnAFullDisk) {
  good({"simulate", "GSENSE4040", "--mode", "hdr", "-o", "a.raw", "--width", "64", "--height", "48"});
  fs::create_directory(folder.path() / "out");
  folder.write("out/a_LOW.fits", {'o', 'l', 'd'});
  folder.write("mean.fit", {'o', 'l', 'd'});
  const auto before = contents();
  Surroundings full;
  full.longestFile = 4000;
  const Arguments commands[] = {
      {"convert", "a.raw", "-o", "out", "--overwrite", "--planes", "low"},
      {"convert", "a.raw", "-o", "out", "-f", "tiff", "--planes", "high"},
      {"convert", "a.raw", "-o", "out", "--native", "--quiet"},
      {"stack", "a.raw", "-o", "mean.fit", "--overwrite"},
      {"stack", "a.raw", "-o", "mean.tif"},
      {"simulate", "GENERIC", "-o", "b.raw", "--width", "64", "--height", "64"},
      {"roi", "a.raw", "-o", "b.raw", "--x", "0", "--y", "0", "--width", "64", "--height", "40"}};
  for (const auto& command : commands) {
    const Ran ran = orvacam(command, full);
    EXPECT_EQ(ran.exitCode, 3) << ran.err;
    EXPECT_THAT(ran.err, AllOf(StartsWith("orvacam: "), HasSubstr("rit"))) << command[0];
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
  const Arguments locales = sanitized ? Arguments{"C.UTF-8"} : Arguments{"C", "C.UTF-8", "de_DE.UTF-8"};
  for (const std::string& name : names)
    for (const std::string& locale : locales) {
      SCOPED_TRACE(name + " in " + locale);
      const Surroundings in{{{"LC_ALL", locale}}, 0, {}};
      const std::string stem = fs::path(name).stem().string(), out = stem + " out \xE9";
      writeFlat("plain", 77);
      fs::rename(folder.path() / "plain", folder.path() / name);
      good({"convert", "./" + name, "-o", "./" + out}, in);
      EXPECT_EQ(fits(out + "/" + stem + ".fits"), Pixels(24, 77));
      good({"convert", "./" + name, "-o", "./" + out, "--native", "--quiet"}, in);
      EXPECT_EQ(fs::file_size(folder.file(out + "/" + stem + ".fit")), 24u * 2u);
      good({"convert", "./" + name, "-o", "./" + out, "-f", "tiff"}, in);
      EXPECT_EQ(tiff(out + "/" + stem + ".tiff"), Pixels(24, 77));
      good({"stack", "./" + name, "-o", "./" + stem + ".tif", "--dtype", "uint16"}, in);
      EXPECT_EQ(tiff(stem + ".tif"), Pixels(24, 77));
      EXPECT_EQ(nlohmann::json::parse(good({"info", "--json", "./" + name}, in))["schema"], "orvacam.info/1");
      EXPECT_EQ(nlohmann::json::parse(good({"stats", "--json", "./" + name}, in))["schema"],
                "orvacam.stats/1");
      EXPECT_EQ(allNames(), (Names{name, out, out + "/" + stem + ".fit", out + "/" + stem + ".fits",
                                   out + "/" + stem + ".tiff", stem + ".tif"}));
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
                                {"convert", "a.raw", "-o", "out", "--overwrite"},
                                {"simulate", "GSENSE4040", "--mode", "hdr", "-o", "b.raw", "--width", "32",
                                 "--height", "16", "--background", "400.5", "--overwrite"}};
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
  EXPECT_EQ(all["schema"], "orvacam.info/1");
  EXPECT_EQ(all["file"], "a.raw");
  const auto& values = all["header"]["values"];
  EXPECT_EQ(values.at("CameraModel"), "VESTRA VS4040");
  EXPECT_EQ(values.at("ExposureTime"), 100000);
  EXPECT_EQ(all["header"]["units"].at("ExposureTime"), "10 us");
  EXPECT_EQ(values.at("SensorChipTemp"), -195);
  EXPECT_EQ(values.at("HDRMode"), true);
  EXPECT_EQ(values.at("VerticalPixels"), 4);
  const auto& derived = all["derived"];
  EXPECT_EQ(derived["sensor"], "GSENSE4040");
  EXPECT_EQ(derived["planes"], (nlohmann::json{"low", "high", "merged"}));
  EXPECT_EQ(derived["width"], 8);
  EXPECT_EQ(derived["exposure_seconds"], 1);
  EXPECT_EQ(derived["time_utc"], "2024-05-17T21:04:33.123456700");
  EXPECT_EQ(derived["temperature_celsius"], -19.5);
}

TEST_F(Info, PicksKeysByPatternInTheOrderAsked) {
  writeHdr("a.raw", 8, 4);
  EXPECT_EQ(
      good({"info", "a.raw", "--keys", "time_utc,exposuret*"}),
      "time_utc                = 2024-05-17T21:04:33.123456700\nExposureTime            = 100000 10 us\n");
  EXPECT_EQ(good({"info", "a.raw", "--csv", "--keys", "cameramodel,FrameNumbe?"}),
            "file,CameraModel,FrameNumber\na.raw,VESTRA VS4040,7\n");
  refused({"info", "a.raw", "--keys", "ExposureTim"},
          "there is no key 'ExposureTim'; did you mean 'ExposureTime'?");
  refused({"info", "a.raw", "--keys", "none*"}, "there is no key 'none*'");
}

TEST_F(Info, GivesAsJsonWhatIsAskedAndNothingElse) {
  writeFlat("a.raw", 3);
  const auto header = [this](const char* keys) {
    auto all = nlohmann::json::parse(good({"info", "a.raw", "--json", "--keys", keys}));
    EXPECT_EQ(all["schema"], "orvacam.info/1");
    return std::pair(all["header"], all["derived"]);
  };
  const auto [values, derived] = header("ExposureTime,width");
  EXPECT_EQ(values,
            (nlohmann::json{{"values", {{"ExposureTime", 100000}}}, {"units", {{"ExposureTime", "10 us"}}}}));
  EXPECT_EQ(derived, (nlohmann::json{{"width", 6}}));
  EXPECT_EQ(header("CameraM*").first["values"].size(), 1u);
  EXPECT_EQ(header("CameraM*").second, nlohmann::json::object());
}

TEST_F(Info, ReadsTheTagsOfForeignTiffFiles) {
  for (const bool tagged : {true, false}) {
    TIFF* const file = TIFFOpen(folder.file("a.tiff").c_str(), "w");
    ASSERT_NE(file, nullptr);
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, 5);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, 1);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 8);
    if (tagged) {
      TIFFSetField(file, TIFFTAG_IMAGEDESCRIPTION, "a cell");
      TIFFSetField(file, TIFFTAG_MODEL, "Microscope 7");
      TIFFSetField(file, TIFFTAG_DATETIME, "2024:05:17 21:04:33");
    }
    unsigned char row[5] = {};
    TIFFWriteEncodedStrip(file, 0, row, 5);
    TIFFClose(file);
    const auto all = nlohmann::json::parse(good({"info", "a.tiff", "--json"}));
    EXPECT_EQ(all["derived"]["width"], 5) << all;
    EXPECT_EQ(all["derived"]["height"], 1);
    const auto& values = all["header"]["values"];
    EXPECT_EQ(values.size(), tagged ? 3u : 0u) << values;
    if (tagged)
      EXPECT_EQ(values, (nlohmann::json{{"ImageDescription", "a cell"},
                                        {"Model", "Microscope 7"},
                                        {"DateTime", "2024:05:17 21:04:33"}}));
  }
}

TEST_F(Info, ReadsTheFilesThatTheProgramWrote) {
  writeHdr("a.raw", 8, 4);
  good({"convert", "a.raw", "-o", "out", "--single-file"});
  good({"convert", "a.raw", "-o", "out", "-f", "tiff", "--planes", "low"});
  const auto fitsSays = nlohmann::json::parse(good({"info", "--json", "out/a.fits"}));
  EXPECT_EQ(fitsSays["header"]["values"]["INSTRUME"], "VESTRA VS4040");
  EXPECT_EQ(fitsSays["header"]["values"]["EXPTIME"], 1);
  EXPECT_EQ(fitsSays["header"]["units"]["EXPTIME"], "s");
  EXPECT_EQ(fitsSays["derived"]["planes"], (nlohmann::json{"low", "high", "merged"}));
  EXPECT_EQ(fitsSays["derived"]["width"], 8);
  const auto tiffSays = nlohmann::json::parse(good({"info", "--json", "out/a_LOW.tiff"}));
  EXPECT_EQ(tiffSays["header"]["values"]["CameraModel"], "VESTRA VS4040");
  EXPECT_EQ(tiffSays["derived"]["sensor"], "GSENSE4040");
}

TEST_F(Info, ShowsControlCharactersEscaped) {
  sim::HeaderFields fields = fieldsOf("GENERIC", "single", 6, 4);
  fields.serial = "A\x1b[31m\nB";
  folder.write("a.raw", Sample(fields, 1).bytes);
  EXPECT_THAT(good({"info", "a.raw", "--keys", "CameraSerialNumber"}), HasSubstr("= A\\x1B[31m\\nB\n"));
  EXPECT_THAT(good({"info", "a.raw"}), ::testing::Not(HasSubstr("\x1b")));
}

}  // namespace
