// The program as users run it: what it prints, writes and returns, and what it leaves behind when something
// is wrong.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "TestFolder.h"
#include "simulator/Scene.h"

namespace {

namespace fs = std::filesystem;
namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;
using Names = std::set<std::string>;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

struct Result {
  int exitCode;
  std::string out, error;
};

std::string textOf(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

class Program : public ::testing::Test {
 protected:
  struct Surroundings {
    const char* locale = "C.UTF-8";
    unsigned long largestFile = RLIM_INFINITY;
  };

  Result run(const std::vector<std::string>& arguments) { return runIn(Surroundings(), arguments); }

  /// Runs the program in the test's folder.
  Result runIn(const Surroundings& in, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {ORVACAM_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
      argv.push_back(word.data());
    argv.push_back(nullptr);
    const std::string out = m_outputs.file("out"), error = m_outputs.file("error");
    const pid_t child = fork();
    if (child == 0) {
      const auto redirect = [](const std::string& path, int to) {
        return dup2(open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), to) == to;
      };
      const bool redirected = redirect(out, 1) && redirect(error, 2);
      setenv("LC_ALL", in.locale, 1);
      const rlimit limit{in.largestFile, in.largestFile};
      signal(SIGXFSZ, SIG_IGN);
      if (redirected && chdir(folder.path().c_str()) == 0 && setrlimit(RLIMIT_FSIZE, &limit) == 0)
        execv(argv[0], argv.data());
      _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, textOf(m_outputs.read("out")),
            textOf(m_outputs.read("error"))};
  }

  /// A run that works and has nothing to complain of.
  std::string good(const std::vector<std::string>& arguments) {
    const Result result = run(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.error;
    EXPECT_THAT(result.error, IsEmpty());
    return result.out;
  }

  /// A run that fails with one sentence about a file and leaves the folder as it was.
  void bad(const std::vector<std::string>& arguments, const std::string& about, const std::string& what) {
    const std::map<std::string, Bytes> before = contents();
    const Result result = run(arguments);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.error, AllOf(StartsWith("orvacam: " + about + ": "), HasSubstr(what)));
    EXPECT_EQ(std::count(result.error.begin(), result.error.end(), '\n'), 1) << result.error;
    EXPECT_EQ(contents(), before) << "something was left behind";
  }

  /// A run that is refused for its options.
  void refused(const std::vector<std::string>& arguments, const std::string& what) {
    const std::map<std::string, Bytes> before = contents();
    const Result result = run(arguments);
    EXPECT_NE(result.exitCode, 0);
    EXPECT_THAT(result.error, HasSubstr(what));
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(contents(), before);
  }

  /// Every file below the test's folder, but for the library's log.
  std::map<std::string, Bytes> contents() const {
    std::map<std::string, Bytes> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
      const std::string name = fs::relative(entry.path(), folder.path()).string();
      if (name.rfind("MarloLogs", 0) == 0) continue;
      files[name] = entry.is_regular_file() ? folder.read(name) : Bytes();
    }
    return files;
  }
  Names names() const {
    Names all;
    for (const auto& [name, bytes] : contents())
      all.insert(name);
    return all;
  }

  /// A 16-bit frame of a plain sensor, its pixels given by column and row.
  template <typename Value>
  void writePlain(const std::string& name, unsigned int width, unsigned int height, Value value,
                  unsigned int version = 3) {
    sim::HeaderFields fields = sim::headerFor(*sim::findCamera("GENERIC"), "single").value();
    fields.width = width;
    fields.height = height;
    const auto planes = sim::makePlanes(sim::layoutOf(fields), [&](const sim::PixelPlace& p) {
      return static_cast<std::uint16_t>(value(p.x, p.y));
    });
    folder.write(name, sim::encodeFrame(fields, version, planes));
  }
  void writeFlat(const std::string& name, unsigned int value) {
    writePlain(name, 6, 4, [value](unsigned int, unsigned int) { return value; });
  }
  /// A packed HDR frame: the low-gain plane counts pixels up to 159, the high-gain plane has 3500 more.
  std::vector<sim::Plane> writeHdr(const std::string& name, unsigned int width, unsigned int height,
                                   unsigned int preRows = 0) {
    sim::HeaderFields fields = sim::headerFor(*sim::findCamera("GSENSE4040"), "hdr").value();
    fields.width = width;
    fields.height = height;
    fields.preRefRows = preRows;
    const auto planes = sim::makePlanes(sim::layoutOf(fields), [&](const sim::PixelPlace& p) {
      return static_cast<std::uint16_t>((p.y * width + p.x) % 160 + 3500 * p.plane + (p.image ? 0 : 200));
    });
    folder.write(name, sim::encodeFrame(fields, 3, planes));
    return planes;
  }
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

  /// The pixels of a TIFF file, which stand at its end in the machine's order.
  std::vector<unsigned int> tiffPixels(const std::string& name, std::size_t count) const {
    const Bytes file = folder.read(name);
    std::vector<unsigned int> pixels;
    if (file.size() < 2 * count || file[0] != 'I') return pixels;
    for (std::size_t i = file.size() - 2 * count; i < file.size(); i += 2)
      pixels.push_back(file[i] + file[i + 1] * 256u);
    return pixels;
  }
  /// The pixels of a FITS file, most significant byte first behind a header of two blocks. The library's
  /// files are as long as the pixels alone: the last ones are missing.
  std::vector<unsigned int> fitsPixels(const std::string& name) const {
    const Bytes file = folder.read(name);
    std::vector<unsigned int> pixels;
    for (std::size_t i = 2 * 2880; i + 1 < file.size(); i += 2)
      pixels.push_back(file[i] * 256u + file[i + 1]);
    return pixels;
  }

  TestFolder folder;

 private:
  TestFolder m_outputs;
};

// ---- The program itself -----------------------------------------------------------------------------------

TEST_F(Program, TellsItsVersionAndCommands) {
  EXPECT_THAT(good({"--version"}), StartsWith("orvacam 2.1.4"));
  const std::string help = good({"--help"});
  for (const char* command : {"convert", "info", "stats", "stack", "roi", "gains", "simulate"}) {
    EXPECT_THAT(help, HasSubstr(command));
    EXPECT_THAT(good({command, "--help"}), HasSubstr("OPTIONS")) << command;
  }
}

TEST_F(Program, RefusesUnknownAndMissingOptions) {
  writeFlat("a.raw", 1);
  refused({}, "subcommand");
  refused({"develop"}, "subcommand");
  refused({"info"}, "FILE is required");
  refused({"info", "a.raw", "--colour"}, "--colour");
  refused({"convert", "a.raw"}, "--output is required");
  refused({"convert", "a.raw", "-o", "out", "--format", "png"}, "--format");
  refused({"stack", "a.raw"}, "--output is required");
  refused({"stats", "a.raw", "a.raw", "--histogram-csv", "h.csv"}, "takes one input");
  refused({"roi", "a.raw", "-o", "b.raw", "--x", "0", "--y", "0", "--width", "2"}, "--height is required");
  refused({"roi", "a.raw", "-o", "b.raw", "--x", "-2", "--y", "0", "--width", "2", "--height", "1"}, "--x");
  refused({"gains"}, "MODEL is required");
  refused({"simulate", "GENERIC"}, "--output is required");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--width", "wide"}, "--width");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--width", "0"}, "--width");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--height", "16385"}, "--height");
  refused({"simulate", "GENERIC", "-o", "b.raw", "--header-version", "5"}, "--header-version");
}

TEST_F(Program, FailsWhenItsOutputCannotBeWritten) {
  writePlain("a.raw", 6, 4, [](unsigned int x, unsigned int) { return x; });
  const Result result = runIn({"C.UTF-8", 10}, {"info", "a.raw"});
  EXPECT_EQ(result.exitCode, 1);
}

TEST_F(Program, SaysOfEachBadInputWhatIsWrong) {
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

TEST_F(Program, GoesOnAfterABadInput) {
  writeFlat("a.raw", 3);
  writeFlat("z.raw", 4);
  for (const auto& [name, what] : writeBadFrames()) {
    const Result stats = run({"stats", "a.raw", name, "z.raw"});
    EXPECT_EQ(stats.exitCode, 1);
    EXPECT_THAT(stats.error, AllOf(StartsWith("orvacam: " + name + ": "), HasSubstr(what)));
    EXPECT_THAT(stats.out, AllOf(HasSubstr("a.raw:\n"), HasSubstr("z.raw:\n")));

    const Result info = run({"info", "--json", "a.raw", "missing.raw", "z.raw"});
    EXPECT_EQ(info.exitCode, 1);
    EXPECT_EQ(nlohmann::json::parse(info.out).size(), 2u);

    const Result convert = run({"convert", "a.raw", name, "z.raw", "-o", "out", "-f", "tiff"});
    EXPECT_EQ(convert.exitCode, 1);
    EXPECT_THAT(convert.error, HasSubstr(what));
    EXPECT_EQ(tiffPixels("out/a.tiff", 24), std::vector<unsigned int>(24, 3));
    EXPECT_EQ(tiffPixels("out/z.tiff", 24), std::vector<unsigned int>(24, 4));
    fs::remove_all(folder.path() / "out");
  }
}

// ---- simulate ---------------------------------------------------------------------------------------------

TEST_F(Program, SimulatesTheFrameOfItsOptions) {
  good({"simulate",       "gsense4040", "-o",     "a.raw", "--mode",  "hdr", "--width",      "40",
        "--height",       "20",         "--seed", "7",     "--stars", "5",   "--background", "123.5",
        "--frame-number", "99",         "--dsnu", "d",     "--prnu",  "p"});
  EXPECT_EQ(names(), (Names{"a.raw", "d", "p"}));
  const sim::Camera& camera = *sim::findCamera("GSENSE4040");
  sim::HeaderFields fields = sim::headerFor(camera, "hdr").value();
  fields.width = 40;
  fields.height = 20;
  fields.frameNumber = 99;
  sim::Sky sky;
  sky.seed = 7;
  sky.stars = 5;
  sky.background = 123.5;
  EXPECT_EQ(folder.read("a.raw"), sim::encodeFrame(fields, 3, sim::exposeSky(camera, fields, sky)));
  EXPECT_EQ(folder.read("d"), sim::dsnuFile(camera, fields, sky));
  EXPECT_EQ(folder.read("p"), sim::prnuFile(camera, fields, sky));
}

TEST_F(Program, SimulatesWhatTheOtherCommandsRead) {
  for (const sim::Camera& camera : sim::cameras())
    for (const char* mode : {"single", "hdr", "16bit", "cms"})
      for (const char* version : {"1", "2", "3", "4"}) {
        const bool old = *version < '3';
        if (!sim::headerFor(camera, mode) || (old && (camera.ccd || *mode == 'c'))) continue;
        SCOPED_TRACE(std::string(camera.name) + " " + mode + " " + version);
        good({"simulate", camera.name, "-o", "a.raw", "--mode", mode, "--width", "24", "--height", "16",
              "--header-version", version});
        const auto stats = nlohmann::json::parse(good({"stats", "--json", "a.raw"}));
        EXPECT_EQ(stats.at(0).at("planes").size(), mode == std::string("hdr") ? 3u : 1u);
      }
}

TEST_F(Program, SimulatesOnlyCamerasAndModesThatThereAre) {
  bad({"simulate", "VS1", "-o", "a.raw"}, "VS1", "there are GSENSE400, GSENSE2020");
  bad({"simulate", "GSENSE400", "-o", "a.raw", "--mode", "cms"}, "a.raw", "the GSENSE400 has no mode 'cms'");
  bad({"simulate", "GSENSE400", "-o", "a.raw", "--mode", "film"}, "a.raw",
      "the GSENSE400 has no mode 'film'");
  bad({"simulate", "CCD4320", "-o", "a.raw", "--header-version", "2"}, "a.raw", "header versions 3 and 4");
  bad({"simulate", "GSENSE2020", "-o", "a.raw", "--mode", "cms", "--header-version", "1"}, "a.raw",
      "header versions 3 and 4");
}

// ---- info -------------------------------------------------------------------------------------------------

TEST_F(Program, ShowsTheHeader) {
  writeHdr("a.raw", 8, 4);
  EXPECT_THAT(good({"info", "a.raw"}),
              AllOf(HasSubstr("CameraModel             = VESTRA VS4040\n"),
                    HasSubstr("Horizontal Pixels       = 8\n"), HasSubstr("HDR Mode               = TRUE\n"),
                    HasSubstr("Capture Time   = 2024/05/17 21:04:33.123456700\n")));
  EXPECT_THAT(good({"info", "a.raw", "a.raw"}), StartsWith("a.raw:\n"));
}

TEST_F(Program, ShowsTheHeaderAsJson) {
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

// ---- stats ------------------------------------------------------------------------------------------------

TEST_F(Program, GivesTheStatisticsOfKnownPixels) {
  // 1 to 8, but for one 1000: sum 36 - 7 + 1000, mean 1029 / 8.
  writePlain("a.raw", 4, 2,
             [](unsigned int x, unsigned int y) { return x == 2 && y == 1 ? 1000 : y * 4 + x + 1; });
  const auto all = nlohmann::json::parse(good({"stats", "--json", "a.raw"}));
  ASSERT_EQ(all.at(0).at("planes").size(), 1u);
  const auto& plane = all[0]["planes"][0];
  EXPECT_EQ(plane["plane"], "image");
  EXPECT_DOUBLE_EQ(plane["mean"], 128.625);
  double squares = 0;
  for (const double v : {1., 2., 3., 4., 5., 6., 1000., 8.})
    squares += (v - 128.625) * (v - 128.625);
  EXPECT_NEAR(plane["deviation"], std::sqrt(squares / 8), 1e-9);
  EXPECT_EQ(plane["mode"], 1);
  EXPECT_EQ(plane["midpoint"], 501);
  EXPECT_EQ(plane["minimum"], (nlohmann::json{{"value", 1}, {"x", 0}, {"y", 0}}));
  EXPECT_EQ(plane["maximum"], (nlohmann::json{{"value", 1000}, {"x", 2}, {"y", 1}}));
  EXPECT_THAT(good({"stats", "a.raw"}),
              AllOf(StartsWith("a.raw:\n"), HasSubstr("mean    128.625"), HasSubstr("max  1000 at (2, 1)")));
}

TEST_F(Program, CountsTheImageOfEachPlaneWithoutReferenceRows) {
  writeHdr("a.raw", 8, 4, 3);
  const auto all = nlohmann::json::parse(good({"stats", "--json", "a.raw"}));
  ASSERT_EQ(all.at(0).at("planes").size(), 3u);
  EXPECT_EQ(all[0]["planes"][0]["plane"], "low");
  EXPECT_DOUBLE_EQ(all[0]["planes"][0]["mean"], 15.5);
  EXPECT_EQ(all[0]["planes"][1]["plane"], "high");
  EXPECT_DOUBLE_EQ(all[0]["planes"][1]["mean"], 3515.5);
  EXPECT_EQ(all[0]["planes"][2]["plane"], "merged");
  EXPECT_DOUBLE_EQ(all[0]["planes"][2]["mean"], 3515.5);  // the high-gain channel is far from its end
}

TEST_F(Program, WritesAHistogramOfEveryPixel) {
  writeHdr("a.raw", 8, 4);
  good({"stats", "a.raw", "--histogram-csv", "h.csv"});
  std::istringstream csv(textOf(folder.read("h.csv")));
  std::string line;
  std::getline(csv, line);
  EXPECT_EQ(line, "value,low,high,merged");
  unsigned int sums[3] = {}, value = 0, counts[3] = {};
  int lines = 0;
  for (char comma = 0; std::getline(csv, line); ++lines) {
    std::istringstream fields(line);
    ASSERT_TRUE(fields >> value >> comma >> counts[0] >> comma >> counts[1] >> comma >> counts[2]) << line;
    EXPECT_EQ(counts[0], value < 32 ? 1u : 0u) << line;
    for (int i = 0; i < 3; ++i)
      sums[i] += counts[i];
  }
  EXPECT_EQ(lines, 64);
  EXPECT_THAT(sums, ::testing::Each(32u));
  bad({"stats", "a.raw", "--histogram-csv", "none/h.csv"}, "none/h.csv", "cannot be written");
}

// ---- convert ----------------------------------------------------------------------------------------------

TEST_F(Program, ConvertsToFits) {
  const std::vector<sim::Plane> planes = writeHdr("a.raw", 40, 80);
  good({"convert", "a.raw", "-o", "new/out"});
  EXPECT_EQ(names(), (Names{"a.raw", "new", "new/out", "new/out/a_HIGH.fit", "new/out/a_LOW.fit",
                            "new/out/a_MERGED.fit"}));
  const std::size_t present = 40 * 80 - 2880;
  const auto begins = [&](const std::string& file, const sim::Plane& plane) {
    EXPECT_EQ(folder.read(file).size(), 40u * 80u * 2u);
    EXPECT_THAT(textOf(folder.read(file)), StartsWith("SIMPLE  = T"));
    EXPECT_EQ(fitsPixels(file), std::vector<unsigned int>(plane.begin(), plane.begin() + present));
  };
  begins("new/out/a_LOW.fit", planes[0]);
  begins("new/out/a_HIGH.fit", planes[1]);
  begins("new/out/a_MERGED.fit", planes[1]);
}

TEST_F(Program, ConvertsToTiff) {
  const std::vector<sim::Plane> planes = writeHdr("a.raw", 8, 4);
  writeFlat("b.raw", 0x1234);
  good({"convert", "a.raw", "b.raw", "-o", "out", "-f", "tiff"});
  EXPECT_EQ(names(), (Names{"a.raw", "b.raw", "out", "out/a_HIGH.tiff", "out/a_LOW.tiff", "out/a_MERGED.tiff",
                            "out/b.tiff"}));
  const auto numbers = [](const sim::Plane& p) { return std::vector<unsigned int>(p.begin(), p.end()); };
  EXPECT_EQ(tiffPixels("out/a_LOW.tiff", 32), numbers(planes[0]));
  EXPECT_EQ(tiffPixels("out/a_HIGH.tiff", 32), numbers(planes[1]));
  EXPECT_EQ(tiffPixels("out/a_MERGED.tiff", 32), numbers(planes[1]));
  EXPECT_EQ(tiffPixels("out/b.tiff", 24), std::vector<unsigned int>(24, 0x1234));
}

TEST_F(Program, ReplacesEarlierOutputs) {
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
  EXPECT_EQ(tiffPixels("out/a.tiff", 24), std::vector<unsigned int>(24, 21));
  EXPECT_EQ(tiffPixels("mean.tif", 24), std::vector<unsigned int>(24, 21));
  EXPECT_EQ(textOf(folder.read("h.csv")), "value,image\n21,24\n");
  EXPECT_EQ(folder.read("s.raw").size(), 384u + 32u);
  EXPECT_EQ(names(), (Names{"a.raw", "h.csv", "mean.tif", "out", "out/a.fit", "out/a.tiff", "s.raw"}));
}

TEST_F(Program, GivesNewFilesTheUsualMode) {
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

TEST_F(Program, ConvertsOneOfTwoInputsOfTheSameName) {
  fs::create_directory(folder.path() / "other");
  writeFlat("a.raw", 1);
  writeFlat("other/a.raw", 2);
  const Result result = run({"convert", "a.raw", "other/a.raw", "-o", "out", "-f", "tiff"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.error,
              AllOf(StartsWith("orvacam: other/a.raw: is not converted: "), HasSubstr("another input")));
  EXPECT_EQ(tiffPixels("out/a.tiff", 24), std::vector<unsigned int>(24, 1));
  EXPECT_EQ(names(), (Names{"a.raw", "other", "other/a.raw", "out", "out/a.tiff"}));
}

TEST_F(Program, ConvertsWithReferenceFiles) {
  good({"simulate", "GSENSE4040", "--mode", "hdr", "-o", "a.raw", "--width", "32", "--height", "16",
        "--stars", "0", "--dsnu", "d", "--prnu", "p"});
  good({"convert", "a.raw", "-o", "plain", "-f", "tiff"});
  good({"convert", "a.raw", "-o", "calibrated", "-f", "tiff", "--dsnu", "d", "--prnu", "p"});
  const auto mean = [this](const std::string& file) {
    double sum = 0;
    for (const unsigned int v : tiffPixels(file, 512))
      sum += v;
    return sum / 512;
  };
  // 400 electrons at 0.8194 a count; the 20 counts of bias go.
  EXPECT_NEAR(mean("plain/a_MERGED.tiff"), 20 + 400 / 0.8194, 5);
  EXPECT_NEAR(mean("calibrated/a_MERGED.tiff"), 400 / 0.8194, 5);
  EXPECT_EQ(tiffPixels("plain/a_LOW.tiff", 512), tiffPixels("calibrated/a_LOW.tiff", 512));
}

TEST_F(Program, ConvertsNothingWithABadReferenceFile) {
  fs::create_directory(folder.path() / "out");
  writeHdr("a.raw", 8, 4);
  folder.write("text", {'n', 'o'});
  writeFlat("small", 0);
  for (const char* option : {"--dsnu", "--prnu"}) {
    bad({"convert", "a.raw", "-o", "out", option, "none"}, "a.raw", "none cannot be opened");
    bad({"convert", "a.raw", "-o", "out", option, "text"}, "a.raw", "text is not a camera frame");
    bad({"convert", "a.raw", "-o", "out", option, "small"}, "a.raw", "do not cover the frame");
  }
}

TEST_F(Program, SaysWhereItCannotWrite) {
  writeHdr("a.raw", 8, 4);
  fs::create_directory(folder.path() / "taken.fit");
  bad({"convert", "a.raw", "-o", "a.raw"}, "a.raw", "is not a folder and cannot be made one");
  bad({"convert", "a.raw", "-o", "a.raw/out"}, "a.raw/out", "is not a folder and cannot be made one");
  bad({"stack", "a.raw", "-o", "none/mean.fit"}, "none/mean.fit", "cannot be written: No such file");
  bad({"stack", "a.raw", "-o", "taken.fit"}, "taken.fit", "is not a regular file");
  bad({"stack", "a.raw", "-o", "mean.png"}, "mean.png", "should end in .fit, .fits, .tif or .tiff");
  bad({"simulate", "GENERIC", "-o", "none/b.raw"}, "none/b.raw", "cannot be written: No such file");
  bad({"roi", "a.raw", "-o", "none/b.raw", "--x", "0", "--y", "0", "--width", "2", "--height", "1"},
      "none/b.raw", "cannot be written: No such file");
}

TEST_F(Program, LeavesNothingBehindOnAFullDisk) {
  good({"simulate", "GSENSE4040", "--mode", "hdr", "-o", "a.raw", "--width", "64", "--height", "48"});
  fs::create_directory(folder.path() / "out");
  folder.write("out/a_LOW.fit", {'o', 'l', 'd'});
  folder.write("mean.fit", {'o', 'l', 'd'});
  const std::map<std::string, Bytes> before = contents();
  const std::vector<std::string> commands[] = {
      {"convert", "a.raw", "-o", "out"},
      {"convert", "a.raw", "-o", "out", "-f", "tiff"},
      {"stack", "a.raw", "-o", "mean.fit"},
      {"stack", "a.raw", "-o", "mean.tif"},
      {"simulate", "GENERIC", "-o", "b.raw", "--width", "64", "--height", "64"},
      {"roi", "a.raw", "-o", "b.raw", "--x", "0", "--y", "0", "--width", "64", "--height", "40"}};
  for (const auto& command : commands) {
    const Result result = runIn({"C.UTF-8", 4000}, command);
    EXPECT_EQ(result.exitCode, 1) << command[0];
    EXPECT_THAT(result.error, AllOf(StartsWith("orvacam: "), HasSubstr("written"))) << command[0];
    EXPECT_EQ(contents(), before) << command[0];
  }
}

// ---- stack ------------------------------------------------------------------------------------------------

TEST_F(Program, StacksToTheExactMean) {
  std::vector<unsigned int> expected;
  for (unsigned int i = 0; i < 24; ++i)
    expected.push_back((100 + i + 65000 + 3 * i) / 3);  // rounded down
  writePlain("a.raw", 6, 4, [](unsigned int x, unsigned int y) { return 100 + y * 6 + x; });
  writePlain("b.raw", 6, 4, [](unsigned int, unsigned int) { return 65000; });
  writePlain("c.raw", 6, 4, [](unsigned int x, unsigned int y) { return 3 * (y * 6 + x); });
  good({"stack", "a.raw", "b.raw", "c.raw", "-o", "mean.tiff"});
  EXPECT_EQ(tiffPixels("mean.tiff", 24), expected);
}

TEST_F(Program, StacksTheMergedPlanesOfHdrFrames) {
  const std::vector<sim::Plane> planes = writeHdr("a.raw", 40, 80);
  for (const char* name : {"mean.fit", "mean.fits"}) {
    good({"stack", "a.raw", "a.raw", "-o", name});
    EXPECT_THAT(textOf(folder.read(name)), HasSubstr("VESTRA VS4040"));
    EXPECT_EQ(fitsPixels(name),
              std::vector<unsigned int>(planes[1].begin(), planes[1].begin() + (40 * 80 - 2880)));
  }
}

TEST_F(Program, StacksOnlyFramesThatAreAlike) {
  writeFlat("a.raw", 1);
  writePlain("wide.raw", 8, 3, [](unsigned int, unsigned int) { return 1; });
  writeHdr("hdr.raw", 6, 4);
  bad({"stack", "a.raw", "wide.raw", "-o", "mean.fit"}, "wide.raw", "another kind of frame than the first");
  bad({"stack", "a.raw", "hdr.raw", "-o", "mean.fit"}, "hdr.raw", "another kind of frame than the first");
}

// ---- roi --------------------------------------------------------------------------------------------------

TEST_F(Program, CutsARegionThatIsAFrame) {
  const std::vector<sim::Plane> planes = writeHdr("a.raw", 16, 10);
  good({"roi", "a.raw", "-o", "b.raw", "--x", "4", "--y", "3", "--width", "6", "--height", "2"});
  EXPECT_EQ(folder.read("b.raw").size(), 384u + 6 * 2 * 2 * 3 / 2);
  good({"convert", "b.raw", "-o", "out", "-f", "tiff"});
  std::vector<unsigned int> low, high;
  for (unsigned int y = 3; y < 5; ++y)
    for (unsigned int x = 4; x < 10; ++x) {
      low.push_back(planes[0][y * 16 + x]);
      high.push_back(planes[1][y * 16 + x]);
    }
  EXPECT_EQ(tiffPixels("out/b_LOW.tiff", 12), low);
  EXPECT_EQ(tiffPixels("out/b_HIGH.tiff", 12), high);
  const auto stats = nlohmann::json::parse(good({"stats", "--json", "b.raw"}));
  EXPECT_EQ(stats.at(0)["planes"][0]["minimum"], (nlohmann::json{{"value", 52}, {"x", 0}, {"y", 0}}));
  EXPECT_EQ(stats.at(0)["planes"][0]["maximum"], (nlohmann::json{{"value", 73}, {"x", 5}, {"y", 1}}));
}

TEST_F(Program, CutsBehindReferenceRows) {
  writeHdr("a.raw", 16, 10, 2);
  good({"roi", "a.raw", "-o", "b.raw", "--x", "0", "--y", "0", "--width", "16", "--height", "10"});
  const auto stats = nlohmann::json::parse(good({"stats", "--json", "b.raw"}));
  EXPECT_EQ(stats.at(0)["planes"][0]["minimum"]["value"], 0);
  EXPECT_EQ(stats.at(0)["planes"][0]["maximum"]["value"], 159);
}

TEST_F(Program, CutsNoRegionThatIsNotThere) {
  writeHdr("a.raw", 16, 10);
  writeFlat("plain.raw", 1);
  const auto cut = [this](const char* file, const char* x, const char* y, const char* width,
                          const char* height, const char* what) {
    bad({"roi", file, "-o", "b.raw", "--x", x, "--y", y, "--width", width, "--height", height}, file, what);
  };
  cut("a.raw", "1", "0", "2", "1", "column and width are even");
  cut("a.raw", "0", "0", "3", "1", "column and width are even");
  cut("a.raw", "12", "0", "6", "1", "does not lie inside the image of 16 x 10 pixels");
  cut("a.raw", "0", "9", "2", "2", "does not lie inside the image of 16 x 10 pixels");
  cut("a.raw", "4294967294", "0", "2", "1", "does not lie inside the image of 16 x 10 pixels");
  cut("plain.raw", "0", "0", "2", "1", "GSENSE4040 frames only");
}

// ---- gains ------------------------------------------------------------------------------------------------

/// The numbers of a table's line that starts with a setting.
std::vector<double> gainLine(const std::string& table, int setting) {
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::vector<double> numbers;
    for (double number = 0; words >> number;)
      numbers.push_back(number);
    if (!numbers.empty() && numbers[0] == setting) return numbers;
  }
  return {};
}

TEST_F(Program, ShowsGainTables) {
  // Data sheet of the GSENSE400: gain setting 1.
  const std::vector<double> line = gainLine(good({"gains", "gsense400"}), 1);
  ASSERT_EQ(line.size(), 6u);
  EXPECT_EQ(line[1], 1.85);
  EXPECT_EQ(line[3], 17.3611);
  EXPECT_EQ(line[4], 2.5661);
  EXPECT_NEAR(line[5], 17.3611 / 2.5661, 0.0001);
  for (const char* sensor : {"GSENSE2020", "GSENSE4040", "GSENSE6060", "IMX183", "LUMORA420", "LUMORA533",
                             "LUMORA571", "LSGEN", "GENERIC"}) {
    EXPECT_THAT(good({"gains", sensor}), StartsWith("device ")) << sensor;
    EXPECT_THAT(good({"gains", sensor, "--bsi"}), StartsWith("device ")) << sensor;
  }
}

/// A calibration block of version 1 with electrons per count of setting 1: 3 (high gain), 15 (low gain).
Bytes calibrationBlock() {
  Bytes block = {'M', 'e', 't', 'a', 0, 44, 0, 1};
  const auto number = [&block](int bytes, unsigned int value) {
    while (bytes-- > 0)
      block.push_back(static_cast<unsigned char>(value >> 8 * bytes));
  };
  for (const unsigned int ratio : {1000u, 1000u, 5000u, 40000u})
    number(4, ratio);
  for (const unsigned int count : {1u, 1u, 0u, 0u})
    number(2, count);
  number(2, 1), number(4, 30000);
  number(2, 1), number(4, 150000);
  return block;
}

TEST_F(Program, ShowsGainTablesWithACamerasOwnValues) {
  folder.write("nv", calibrationBlock());
  const std::string table = good({"gains", "GSENSE4040", "--nv", "nv"});
  EXPECT_THAT(table, HasSubstr("built in"));
  const std::vector<double> line = gainLine(table, 1);
  ASSERT_EQ(line.size(), 7u);
  EXPECT_EQ(line[3], 15);
  EXPECT_EQ(line[4], 3);
  EXPECT_EQ(line[5], 5);
  EXPECT_NEAR(line[6], 18.6916 / 0.8194, 0.0001);
  EXPECT_EQ(gainLine(table, 2)[3], 18.6916) << "settings that the camera does not store stay";
}

TEST_F(Program, ShowsNoGainTablesOfUnknownSensorsOrFromForeignBlocks) {
  bad({"gains", "FILM"}, "FILM", "is no sensor; there are GSENSE400, ");
  bad({"gains", "GSENSE400", "--nv", "none"}, "none", "cannot be opened");
  folder.write("text", Bytes(100, 'x'));
  bad({"gains", "GSENSE400", "--nv", "text"}, "text", "is not a camera's calibration block");
  Bytes block = calibrationBlock();
  block.pop_back();
  folder.write("cut", block);
  bad({"gains", "GSENSE400", "--nv", "cut"}, "cut",
      "is truncated: it needs 44 bytes for its settings, and ends at byte 43");
  block[7] = 5;
  folder.write("later", block);
  bad({"gains", "GSENSE400", "--nv", "later"}, "later", "its version 5 at byte 6 is none of 1 to 4");
}

// ---- Names and languages ----------------------------------------------------------------------------------

TEST_F(Program, TakesEveryFileName) {
  for (const std::string stem : {"two words",
                                 "n\xC3\xA4"
                                 "chte \xE6\x98\x9F",
                                 "raw \xFF\xFE bytes", "-dash", "a.b"})
    for (const char* locale : {"C", "C.UTF-8", "de_DE.UTF-8"}) {
      SCOPED_TRACE(stem + " in " + locale);
      const auto works = [&](const std::vector<std::string>& arguments) {
        const Result result = runIn({locale}, arguments);
        EXPECT_EQ(result.exitCode, 0) << result.error;
        return result.out;
      };
      const std::string name = stem + ".raw", out = stem + " out";
      writeFlat("plain", 77);
      fs::rename(folder.path() / "plain", folder.path() / name);
      works({"convert", "./" + name, "-o", "./" + out});
      EXPECT_EQ(fs::file_size(folder.file(out + "/" + stem + ".fit")), 24u * 2u);
      works({"convert", "./" + name, "-o", "./" + out, "-f", "tiff"});
      EXPECT_EQ(tiffPixels(out + "/" + stem + ".tiff", 24), std::vector<unsigned int>(24, 77));
      works({"stack", "./" + name, "-o", "./" + stem + ".tif"});
      EXPECT_EQ(tiffPixels(stem + ".tif", 24), std::vector<unsigned int>(24, 77));
      EXPECT_EQ(nlohmann::json::parse(works({"info", "--json", "./" + name})).size(), 1u);
      EXPECT_EQ(nlohmann::json::parse(works({"stats", "--json", "./" + name})).size(), 1u);
      EXPECT_EQ(names(),
                (Names{name, out, out + "/" + stem + ".fit", out + "/" + stem + ".tiff", stem + ".tif"}));
      for (const std::string& made : {name, out, stem + ".tif"})
        fs::remove_all(folder.path() / made);
    }
}

TEST_F(Program, WritesTheSameDigitsInEveryLanguage) {
  folder.write("nv", calibrationBlock());
  good({"simulate", "GSENSE4040", "--mode", "hdr", "-o", "a.raw", "--width", "32", "--height", "16",
        "--background", "400.5"});
  const std::vector<std::string> commands[] = {{"info", "a.raw"},
                                               {"info", "--json", "a.raw"},
                                               {"stats", "a.raw"},
                                               {"stats", "--json", "a.raw"},
                                               {"gains", "GSENSE400", "--nv", "nv"},
                                               {"convert", "a.raw", "-o", "out"},
                                               {"simulate", "GSENSE4040", "--mode", "hdr", "-o", "b.raw",
                                                "--width", "32", "--height", "16", "--background", "400.5"}};
  for (const auto& command : commands) {
    const Result german = runIn({"de_DE.UTF-8"}, command);
    EXPECT_EQ(german.exitCode, 0) << german.error;
    EXPECT_EQ(german.out, good(command)) << command[0];
  }
  EXPECT_EQ(folder.read("a.raw"), folder.read("b.raw"));
}

}  // namespace
