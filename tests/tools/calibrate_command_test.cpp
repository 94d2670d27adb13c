// orvacam calibrate: what it writes and says, and what it refuses.

#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Program.h"
#include "simulator/Instrument.h"

namespace {

using namespace program_testing;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class Calibrate : public Program {
 protected:
  Calibrate() {
    instrument.hotPixels = 6, instrument.blinking = 4, instrument.deadPixels = 3;
    fields = sim::withGains(camera, fieldsOf("GSENSE400", "hdr", 64, 48));
  }
  /// Frames 0.raw, 1.raw and so on, in a folder.
  void take(const std::string& name, sim::FrameType type, unsigned count, double seconds = 1) {
    fs::create_directory(folder.path() / name);
    for (unsigned i = 0; i < count; ++i) {
      fields.frameNumber = i;
      fields.exposure = static_cast<unsigned>(seconds * 1e5);
      folder.write(
          name + "/" + std::to_string(i) + ".raw",
          sim::encodeFrame(fields, 3, sim::exposeFrame(camera, fields, instrument, type, 12000, sim::Sky())));
    }
  }
  std::vector<std::string> linesOf(const std::string& name) const {
    std::vector<std::string> all;
    std::ifstream in(folder.path() / name);
    for (std::string line; std::getline(in, line);)
      all.push_back(line);
    return all;
  }

  const sim::Camera& camera = *sim::findCamera("GSENSE400");
  sim::HeaderFields fields;
  sim::Instrument instrument;
};

TEST_F(Calibrate, MakesFilesThatEveryCommandTakesAndReportsOnThem) {
  take("bias", sim::FrameType::Bias, 10, 0);
  take("dark", sim::FrameType::Dark, 10);
  take("flat", sim::FrameType::Flat, 10);
  const std::string bias = good({"calibrate", "bias", "bias", "-o", "b.ref"});
  EXPECT_THAT(bias,
              AllOf(StartsWith("bias from 10 frames of a GSENSE400, 0 s\nlow:\n"), HasSubstr("read noise"),
                    HasSubstr("fixed pattern, before"), HasSubstr("blinking pixels         4\n")));
  const std::string dark =
      good({"calibrate", "dark", "dark", "-o", "d.ref", "--hot-pixels", "odd.csv", "--mask", "odd.fits"});
  EXPECT_THAT(dark,
              AllOf(HasSubstr("pedestal"), HasSubstr("smallest that serves"), HasSubstr("gain ratio:")));
  const std::string flat = good({"calibrate", "flat", "flat", "--dark", "d.ref", "-o", "p.ref"});
  EXPECT_THAT(flat, AllOf(HasSubstr("measured"), HasSubstr("dead pixels             3\n")));
  EXPECT_THAT(files(), ElementsAre("b.ref", "bias", "d.ref", "dark", "flat", "odd.csv", "odd.fits", "p.ref"));

  good({"stats", "dark/0.raw", "--dsnu", "d.ref", "--prnu", "p.ref"});
  good({"convert", "dark/0.raw", "-o", "out", "--bias", "b.ref"});
  EXPECT_EQ(folder.read("b.ref").size(), 384u + 2 * 2 * 64 * 48);
}

TEST_F(Calibrate, ListsOddPixelsInATableAndAMask) {
  take("dark", sim::FrameType::Dark, 12);
  good({"calibrate", "dark", "dark", "-o", "d.ref", "--hot-pixels", "odd.csv", "--mask", "odd.fits"});
  const sim::Truth truth = sim::truthOf(camera, fields, instrument);
  std::set<std::string> expected, listed;
  std::vector<unsigned short> masks[2] = {Pixels(64 * 48), Pixels(64 * 48)};
  for (const char* plane : {"low", "high"})
    for (const auto& [kind, places] :
         std::map<std::string, std::vector<sim::Place>>{{"hot", truth.hot}, {"blinking", truth.blinking}})
      for (const sim::Place& place : places) {
        expected.insert(std::string(plane) + "," + std::to_string(place.x) + "," + std::to_string(place.y) +
                        "," + kind);
        masks[plane == std::string("high")][place.y * 64 + place.x] = kind == "hot" ? 1 : 4;
      }
  const std::vector<std::string> table = linesOf("odd.csv");
  ASSERT_EQ(table.size(), 21u);
  EXPECT_EQ(table[0], "plane,x,y,kind,value");
  for (std::size_t i = 1; i < table.size(); ++i) {
    listed.insert(table[i].substr(0, table[i].rfind(',')));
    EXPECT_GT(std::stod(table[i].substr(table[i].rfind(',') + 1)), 0);
  }
  EXPECT_EQ(listed, expected);
  for (const int unit : {2, 3}) {
    EXPECT_EQ(keyword("odd.fits", "EXTNAME", unit), unit == 2 ? "'LOW     '" : "'HIGH    '");
    EXPECT_EQ(keyword("odd.fits", "BITPIX", unit), "8");
    EXPECT_EQ(fits("odd.fits", unit), masks[unit - 2]);
  }
}

TEST_F(Calibrate, ReportsAsJson) {
  take("dark", sim::FrameType::Dark, 9);
  take("flat", sim::FrameType::Flat, 10);
  const Ran ran =
      orvacam({"calibrate", "dark", "dark", "-o", "d.ref", "--json", "--pedestal", "30", "--ratio", "6.5"});
  EXPECT_EQ(ran.exitCode, 0);
  EXPECT_EQ(ran.err, "orvacam: d.ref: made from 9 frames: ten or more are better\n");
  EXPECT_EQ(lines(ran.out), 1u);
  const auto dark = nlohmann::json::parse(ran.out);
  EXPECT_EQ(dark.at("schema"), "orvacam.calibrate/1");
  EXPECT_EQ(dark.at("kind"), "dark");
  EXPECT_EQ(dark.at("frames"), 9);
  EXPECT_EQ(dark.at("pedestal_adu"), 30);
  EXPECT_EQ(dark.at("ratio").at("used"), 6.5);
  EXPECT_NEAR(dark.at("ratio").at("table"), 6.2966, 0.001);
  EXPECT_TRUE(dark.at("ratio").at("measured").is_null());
  EXPECT_EQ(dark.at("warnings").size(), 1u);
  const sim::Truth truth = sim::truthOf(camera, fields, instrument);
  for (const sim::PlaneTruth& known : truth.planes) {
    const auto& plane = dark.at("planes").at(known.name);
    EXPECT_NEAR(plane.at("offset_adu"), known.offset + 2 / known.gain, 0.03);
    EXPECT_GT(plane.at("offset_adu_error"), 0);
    EXPECT_NEAR(plane.at("read_noise_e"), std::hypot(known.readNoise, std::sqrt(2)), 0.03 * known.readNoise);
    EXPECT_GT(plane.at("saturation_e"), 0);
    EXPECT_GT(plane.at("dynamic_range_db"), 40);
    EXPECT_GT(plane.at("fixed_pattern_before_adu"), plane.at("fixed_pattern_after_adu"));
    EXPECT_EQ(plane.at("hot_pixels"), 6);
    EXPECT_EQ(plane.at("blinking_pixels"), 4);
    EXPECT_EQ(plane.at("dead_pixels"), 0);
    EXPECT_EQ(plane.at("clipped_terms"), 0);
  }
  const auto flat = nlohmann::json::parse(orvacam({"calibrate", "flat", "flat", "--dark", "d.ref", "-o",
                                                   "p.ref", "--json", "--ratio", "measured", "--quiet"})
                                              .out);
  EXPECT_NEAR(flat.at("ratio").at("measured"), truth.ratio,
              5 * double(flat.at("ratio").at("measured_error")));
  EXPECT_EQ(flat.at("ratio").at("used"), flat.at("ratio").at("measured"));
  EXPECT_EQ(flat.at("planes").at("high").at("dead_pixels"), 3);
  EXPECT_THAT(flat.at("warnings").dump(), HasSubstr("the DSNU file was made with 6.5000"));
}

TEST_F(Calibrate, RefusesWhatCannotBeMeant) {
  take("f", sim::FrameType::Dark, 2);
  refused({"calibrate"}, "KIND");
  refused({"calibrate", "sky", "f", "-o", "x"}, "there is no kind 'sky'");
  refused({"calibrate", "flat", "f", "-o", "x"}, "needs --dark or --bias");
  refused({"calibrate", "flat", "f", "-o", "x", "--dark", "d", "--bias", "b"}, "do not go together");
  refused({"calibrate", "dark", "f", "-o", "x", "--dark", "d"}, "--dark: only flats need one");
  refused({"calibrate", "bias", "f", "-o", "x", "--bias", "d"}, "--bias: only flats need one");
  refused({"calibrate", "bias", "f", "-o", "x", "--pedestal", "3"}, "--pedestal: it belongs to darks");
  refused({"calibrate", "dark", "f", "-o", "x", "--pedestal", "-3"}, "--pedestal");
  refused({"calibrate", "dark", "f", "-o", "x", "--pedestal", "1.5"}, "--pedestal");
  refused({"calibrate", "bias", "f", "-o", "x", "--thresholds", "3700,128"},
          "--thresholds: they limit the pedestal");
  refused({"calibrate", "bias", "f", "-o", "x", "--ratio", "table"}, "--ratio: a bias file has none");
  refused({"calibrate", "dark", "f", "-o", "x", "--ratio", "measured"}, "flats alone show the ratio");
  for (const char* ratio : {"64", "0", "-2", "nan", "6x", "x"})
    refused({"calibrate", "dark", "f", "-o", "x", "--ratio", ratio}, "--ratio: '" + std::string(ratio));
  for (const char* memory : {"0", "1Q", "much", "1GG", "-1", ""})
    refused({"calibrate", "dark", "f", "-o", "x", "--memory", memory}, "--memory: '" + std::string(memory));
  refused({"calibrate", "dark", "-", "-o", "x"}, "which standard input cannot be");
  refused({"calibrate", "dark", "f/0.raw", "f/1.raw", "-o", "f/0.raw"}, "f/0.raw");
  refused({"calibrate", "dark", "f", "-o", "x", "--mask", "x"}, "x");
  folder.write("d", {1});
  refused({"calibrate", "flat", "f", "--dark", "d", "-o", "d"}, "d");
}

TEST_F(Calibrate, LetsNoDsnuFileTakeAFramesOffsetOff) {
  take("d", sim::FrameType::Dark, 10);
  good({"calibrate", "dark", "d", "-o", "c.dsnu"});
  bad({"stats", "d/0.raw", "--bias", "c.dsnu"}, "c.dsnu", "which is no offset: it is no bias file");
}

TEST_F(Calibrate, LetsNoReferenceFileStandForAnotherKind) {
  take("b", sim::FrameType::Bias, 10, 0);
  take("d", sim::FrameType::Dark, 10);
  take("f", sim::FrameType::Flat, 10);
  good({"calibrate", "bias", "b", "-o", "c.bias"});
  good({"calibrate", "dark", "d", "-o", "c.dsnu"});
  good({"calibrate", "flat", "f", "--dark", "c.dsnu", "-o", "c.prnu"});
  // 100 counts of offset, and the factor 1, would be added as 12.5 and 128 counts.
  for (const char* file : {"c.bias", "c.prnu"})
    bad({"stats", "d/0.raw", "--dsnu", file}, file, "which is no offset: it is no DSNU file");
  for (const char* file : {"c.bias", "c.dsnu"})
    bad({"stats", "d/0.raw", "--prnu", file}, file, "which is no correction: it is no PRNU file");
  bad({"convert", "d/0.raw", "-o", "out", "--native", "--prnu", "c.dsnu"}, "c.dsnu", "no PRNU file");
  good({"stats", "d/0.raw", "--dsnu", "c.dsnu", "--prnu", "c.prnu"});
}

TEST_F(Calibrate, SaysThatNothingCanBeWrittenBeforeItReadsAFrame) {
  take("d", sim::FrameType::Dark, 2);
  folder.write("d/9.raw", {'M', 'e', 't', 'a'});
  folder.write("x", {1});
  folder.write("mean.fits", {1});
  bad({"calibrate", "dark", "d", "-o", "x"}, "x", "is there already", 3);
  bad({"calibrate", "dark", "d", "-o", "none/x"}, "none/x", "No such file or directory", 3);
  bad({"stack", "d", "-o", "mean.fits"}, "mean.fits", "is there already", 3);
  bad({"stack", "d", "--partial", "none/p.fits"}, "none/p.fits", "No such file or directory", 3);
}

TEST_F(Calibrate, NamesTheFrameThatDoesNotBelong) {
  take("f", sim::FrameType::Dark, 4);
  take("g", sim::FrameType::Flat, 3);
  bad({"calibrate", "dark", "f/0.raw", "-o", "x"}, "f/0.raw", "needs two at least");
  bad({"calibrate", "dark", "f/0.raw", "f/1.raw", "f/0.raw", "-o", "x"}, "f/0.raw", "is given twice");
  fs::create_hard_link(folder.path() / "f/0.raw", folder.path() / "link");
  bad({"calibrate", "dark", "f/0.raw", "f/1.raw", "link", "-o", "x"}, "link",
      "is given twice, also as f/0.raw");
  folder.write("copy", folder.read("f/1.raw"));
  bad({"calibrate", "dark", "f", "copy", "-o", "x"}, "copy", "holds the same frame as f/1.raw");
  bad({"calibrate", "dark", "f", "missing", "-o", "x"}, "missing", "No such file");
  fs::create_directory(folder.path() / "empty");
  bad({"calibrate", "dark", "f", "empty", "-o", "x"}, "empty", "");
  folder.write("text", {'h', 'e', 'l', 'l', 'o'});
  bad({"calibrate", "dark", "f", "text", "-o", "x"}, "text", "");
  Bytes cut = folder.read("f/3.raw");
  cut.resize(2000);
  folder.write("cut", cut);
  bad({"calibrate", "dark", "f/0.raw", "f/1.raw", "cut", "-o", "x"}, "cut", "needs");
  bad({"calibrate", "flat", "g", "--dark", "missing", "-o", "x"}, "missing", "No such file");
  bad({"calibrate", "flat", "g", "--dark", "text", "-o", "x"}, "text", "");
  bad({"calibrate", "dark", "f", "-o", "x", "--memory", "1M"}, "f/0.raw", "of memory do not hold");
  fields.highGain = 1;
  take("h", sim::FrameType::Dark, 1);
  bad({"calibrate", "dark", "f", "h/0.raw", "-o", "x"}, "h/0.raw", "HDRGain is 1, of the first frame 0");
}

TEST_F(Calibrate, RefusesAPedestalThatIsTooSmallWithTheOneThatServes) {
  fs::create_directory(folder.path() / "f");
  for (unsigned i = 0; i < 3; ++i) {
    fields.frameNumber = i;
    auto planes = sim::exposeFrame(camera, fields, instrument, sim::FrameType::Dark, 0, sim::Sky());
    for (std::uint16_t& pixel : planes[1])
      pixel = static_cast<std::uint16_t>(pixel + 500);
    folder.write("f/" + std::to_string(i), sim::encodeFrame(fields, 3, planes));
  }
  bad({"calibrate", "dark", "f", "-o", "x", "--pedestal", "100"}, "x", "a pedestal of 100 is too small");
}

TEST_F(Calibrate, OverwritesNothingUnasked) {
  take("f", sim::FrameType::Dark, 10);
  folder.write("x", {1, 2, 3});
  const Ran ran = orvacam({"calibrate", "dark", "f", "-o", "x", "--hot-pixels", "h.csv"});
  EXPECT_EQ(ran.exitCode, 3);
  EXPECT_THAT(ran.err, StartsWith("orvacam: x: "));
  EXPECT_EQ(folder.read("x"), (Bytes{1, 2, 3}));
  EXPECT_TRUE(folder.has("h.csv"));
  good({"calibrate", "dark", "f", "-o", "x", "--hot-pixels", "h.csv", "--overwrite"});
  const Bytes first = folder.read("x");
  good({"calibrate", "dark", "f", "-o", "y"});
  EXPECT_EQ(folder.read("y"), first);
  bad({"calibrate", "dark", "f", "-o", "none/x"}, "none/x", "No such file or directory", 3);
}

}  // namespace
