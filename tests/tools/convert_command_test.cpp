// orvacam convert.

#include <sstream>

#include "Program.h"

namespace {

using namespace program_testing;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class Convert : public Program {
 protected:
  Sample hdr{fieldsOf("GSENSE400", "hdr", 100, 60), 1};
  Sample single{fieldsOf("GSENSE4040", "single", 90, 70), 2};
};

TEST_F(Convert, WritesThreeTiffFilesOfAnHdrFrame) {
  folder.write("night.raw", hdr.bytes);
  const Ran ran = orvacam({"convert", "night.raw", "-o", "out/deeper", "--format", "tiff"});
  EXPECT_EQ(ran.exitCode, 0);
  EXPECT_THAT(ran.out + ran.err, IsEmpty());
  EXPECT_THAT(files("out/deeper"), ElementsAre("night_HIGH.tiff", "night_LOW.tiff", "night_MERGED.tiff"));
  EXPECT_EQ(tiff("out/deeper/night_LOW.tiff"), hdr.planes[0]);
  EXPECT_EQ(tiff("out/deeper/night_HIGH.tiff"), hdr.planes[1]);
  const Pixels merged = tiff("out/deeper/night_MERGED.tiff");
  ASSERT_EQ(merged.size(), 6000u);
  // High-gain pixels below the threshold stay, unless the low-gain one, times 6.2966, is far above.
  for (std::size_t i = 0; i < merged.size(); ++i) {
    const double low = hdr.planes[0][i] * 47.8469 / 7.5988;
    const unsigned int high = hdr.planes[1][i];
    if (high < 3700 && low < high + 120)
      ASSERT_EQ(merged[i], high) << i;
    else if (high >= 3700 || low > high + 136)
      ASSERT_NEAR(merged[i], low, 0.5 + 4095 / 1024.0) << i;
  }
}

TEST_F(Convert, WritesWholeFitsFilesByDefault) {
  const std::vector<sim::Plane> planes = writeHdr("a.raw", 40, 80);
  good({"convert", "a.raw", "-o", "new/out"});
  EXPECT_EQ(allNames(), (Names{"a.raw", "new", "new/out", "new/out/a_HIGH.fits", "new/out/a_LOW.fits",
                               "new/out/a_MERGED.fits"}));
  EXPECT_EQ(fits("new/out/a_LOW.fits"), planes[0]);
  EXPECT_EQ(fits("new/out/a_HIGH.fits"), planes[1]);
  EXPECT_EQ(fits("new/out/a_MERGED.fits"), planes[1]);
  EXPECT_EQ(folder.read("new/out/a_LOW.fits").size() % 2880, 0u);
}

TEST_F(Convert, WritesTheFixedFilesWhenAskedWhichEndEarly) {
  const std::vector<sim::Plane> planes = writeHdr("a.raw", 40, 80);
  const Ran ran = orvacam({"convert", "a.raw", "-o", "out", "--native"});
  EXPECT_EQ(ran.exitCode, 0);
  EXPECT_EQ(lines(ran.err), 1u);
  EXPECT_THAT(ran.err, HasSubstr("standard readers"));
  EXPECT_THAT(files("out"), ElementsAre("a_HIGH.fit", "a_LOW.fit", "a_MERGED.fit"));
  const std::size_t present = 40 * 80 - 2880;  // these files end 5760 bytes early
  const auto begins = [&](const std::string& file, const sim::Plane& plane) {
    EXPECT_EQ(folder.read(file).size(), 40u * 80u * 2u);
    EXPECT_THAT(textOf(folder.read(file)), StartsWith("SIMPLE  = T"));
    EXPECT_EQ(fixedFits(file), Pixels(plane.begin(), plane.begin() + present));
  };
  begins("out/a_LOW.fit", planes[0]);
  begins("out/a_HIGH.fit", planes[1]);
  begins("out/a_MERGED.fit", planes[1]);
  good({"convert", "a.raw", "-o", "out", "--native", "-f", "tiff", "--quiet"});
  EXPECT_EQ(fixedTiff("out/a_LOW.tiff"), planes[0]);
  EXPECT_EQ(fixedTiff("out/a_MERGED.tiff"), planes[1]);
}

TEST_F(Convert, WritesOneFileOfASingleImage) {
  for (unsigned int version = 1; version <= 4; ++version)
    folder.write("v" + std::to_string(version) + ".raw", Sample(single.fields, 2, version).bytes);
  ASSERT_EQ(orvacam({"convert", "v1.raw", "v2.raw", "v3.raw", "v4.raw", "-o", ".", "-f", "tiff"}).exitCode,
            0);
  for (unsigned int version = 1; version <= 4; ++version)
    EXPECT_EQ(tiff("v" + std::to_string(version) + ".tiff"), single.planes[0]) << version;
}

TEST_F(Convert, GoesOnAfterInputsThatFail) {
  folder.write("good1.raw", hdr.bytes);
  folder.write("good2.raw", single.bytes);
  folder.write("empty.raw", {});
  folder.write("text.raw", Bytes(2000, 'x'));
  Bytes cut = hdr.bytes;
  cut.pop_back();
  folder.write("cut.raw", cut);
  cut.resize(200);
  folder.write("header.raw", cut);
  cut.resize(5);
  folder.write("start.raw", cut);
  fs::create_directory(folder.path() / "folder.raw");
  sim::HeaderFields inverted = single.fields;
  inverted.startRow = 5;
  inverted.height = 0;  // ends in row 4
  folder.write("inverted.raw", sim::writeHeader(inverted, 3));
  sim::HeaderFields silent = fieldsOf("CCD4320", "single", 20, 10);
  silent.quadrants = 0;
  folder.write("silent.raw", Sample(silent, 1).bytes);
  folder.write("depth.raw", [] {
    sim::HeaderFields odd = fieldsOf("GENERIC", "single", 20, 10);
    odd.dataBits = 14;
    return Sample(odd, 1).bytes;
  }());

  const Ran ran = orvacam({"convert", "none.raw", "good1.raw", "empty.raw", "text.raw", "cut.raw",
                           "header.raw", "start.raw", "folder.raw", "inverted.raw", "silent.raw", "depth.raw",
                           "good2.raw", "-o", "out", "--format", "tiff"});
  EXPECT_EQ(ran.exitCode, 1);
  std::istringstream said(ran.err);
  const std::pair<const char*, const char*> expected[] = {
      {"none.raw", "cannot be opened: No such file or directory"},
      {"empty.raw", "is empty"},
      {"text.raw", "does not start with \"Meta\""},
      {"cut.raw", "needs 18384 bytes"},
      {"header.raw", "needs 384 bytes for its header, ends at byte 200"},
      {"start.raw", "needs 8 bytes for its header, ends at byte 5"},
      {"folder.raw", "holds no frame"},
      {"inverted.raw", "rows"},
      {"silent.raw", "amplifiers"},
      {"depth.raw", "14"}};
  std::string line;
  for (const auto& [name, what] : expected) {
    ASSERT_TRUE(std::getline(said, line)) << name;
    EXPECT_THAT(line, StartsWith("orvacam: " + std::string(name) + ": "));
    EXPECT_THAT(line, HasSubstr(what));
  }
  EXPECT_FALSE(std::getline(said, line)) << line;
  EXPECT_THAT(files("out"),
              ElementsAre("good1_HIGH.tiff", "good1_LOW.tiff", "good1_MERGED.tiff", "good2.tiff"));
  EXPECT_EQ(tiff("out/good1_LOW.tiff"), hdr.planes[0]);
  EXPECT_EQ(tiff("out/good2.tiff"), single.planes[0]);
}

TEST_F(Convert, SaysWhatOfAHeaderIsWrong) {
  const auto damaged = [&](std::size_t at, std::initializer_list<unsigned char> bytes) {
    Bytes frame = single.bytes;
    std::copy(bytes.begin(), bytes.end(), frame.begin() + static_cast<std::ptrdiff_t>(at));
    folder.write("frame.raw", frame);
    return orvacam({"convert", "frame.raw", "-o", "out", "--overwrite"});
  };
  // A time that cannot be read is left out, with a note; the pixels are there.
  const Ran timeless = damaged(152, {' '});
  EXPECT_EQ(timeless.exitCode, 0);
  EXPECT_EQ(timeless.err, "orvacam: frame.raw: its capture time cannot be read and is left out\n");
  EXPECT_EQ(keyword("out/frame.fits", "DATE-OBS"), "");
  EXPECT_EQ(fits("out/frame.fits"), single.planes[0]);
  fs::remove_all(folder.path() / "out");
  const Ran inverted = damaged(124, {0x12, 0x34, 0, 0, 0, 59});
  EXPECT_EQ(inverted.exitCode, 1);
  EXPECT_THAT(inverted.err, AllOf(HasSubstr("4660"), HasSubstr("59")));
  EXPECT_THAT(files("out"), IsEmpty());
  for (const auto& [version, size] :
       {std::pair(1u, 156), std::pair(2u, 246), std::pair(3u, 384), std::pair(4u, 384)}) {
    Bytes cut = sim::writeHeader(single.fields, version);
    cut.pop_back();
    folder.write("cut.raw", cut);
    bad({"info", "cut.raw"}, "cut.raw",
        "needs " + std::to_string(size) + " bytes for its header, ends at byte " + std::to_string(size - 1));
  }
}

TEST_F(Convert, RefusesATruncatedFrameAtEveryLength) {
  // 16-bit frames of these sensors are silently left empty by the library when bytes are missing.
  const Sample wide(fieldsOf("GSENSE2020", "16bit", 12, 6), 4);
  const Sample packed(fieldsOf("GSENSE6060", "hdr", 8, 3), 5);
  fs::create_directory(folder.path() / "out");
  for (const Sample* whole : {&wide, &packed})
    for (const std::size_t missing : {std::size_t{1}, std::size_t{2}, whole->bytes.size() - 384}) {
      Bytes cut = whole->bytes;
      cut.resize(cut.size() - missing);
      folder.write("cut.raw", cut);
      bad({"convert", "cut.raw", "-o", "out"}, "cut.raw",
          "needs " + std::to_string(whole->bytes.size()) + " bytes");
      bad({"convert", "cut.raw", "-o", "out"}, "cut.raw", "ends at byte " + std::to_string(cut.size()));
    }
}

TEST_F(Convert, RefusesNamesThatTwoInputsWouldTake) {
  for (const char* name : {"a", "b"})
    fs::create_directory(folder.path() / name);
  folder.write("a/frame.raw", single.bytes);
  folder.write("b/frame.dat", Sample(single.fields, 99).bytes);
  folder.write("night.raw", hdr.bytes);
  folder.write("night_LOW.raw", single.bytes);
  refused({"convert", "a/frame.raw", "b/frame.dat", "-o", "out"}, "out/frame.fits would be written twice");
  refused({"convert", "night.raw", "night_LOW.raw", "-o", "out"},
          "out/night_LOW.fits would be written twice");
  refused({"convert", "night_LOW.raw", "night.raw", "-o", "out"},
          "out/night_LOW.fits would be written twice");
  // Of these, one has no plane that is called low.
  good({"convert", "a/frame.raw", "night_LOW.raw", "-o", "out"});
  folder.write("a/frame_LOW.raw", single.bytes);
  good({"convert", "a/frame.raw", "a/frame_LOW.raw", "-o", "both"});
  EXPECT_THAT(files("both"), ElementsAre("frame.fits", "frame_LOW.fits"));
}

TEST_F(Convert, TakesTheReferenceFilesOfASimulatedFrame) {
  good({"simulate", "GSENSE4040", "--mode", "hdr", "-o", "a.raw", "--width", "32", "--height", "16",
        "--stars", "0", "--dsnu", "d", "--prnu", "p"});
  good({"convert", "a.raw", "-o", "plain", "-f", "tiff"});
  good({"convert", "a.raw", "-o", "calibrated", "-f", "tiff", "--dsnu", "d", "--prnu", "p"});
  const auto mean = [this](const std::string& file) {
    double sum = 0;
    for (const unsigned int v : tiff(file))
      sum += v;
    return sum / 512;
  };
  // 400 electrons at 0.8194 a count; the 20 counts of bias go.
  EXPECT_NEAR(mean("plain/a_MERGED.tiff"), 20 + 400 / 0.8194, 5);
  EXPECT_NEAR(mean("calibrated/a_MERGED.tiff"), 400 / 0.8194, 5);
  EXPECT_EQ(tiff("plain/a_LOW.tiff"), tiff("calibrated/a_LOW.tiff"));
}

TEST_F(Convert, CorrectsTheMergedImageWithReferenceFiles) {
  const sim::Camera& camera = *sim::findCamera("GSENSE6060");
  sim::HeaderFields fields = fieldsOf("GSENSE6060", "hdr", 64, 20);
  fields.preRefPixels = 6, fields.postRefPixels = 4, fields.preRefRows = 2, fields.postRefRows = 1;
  sim::Sky dark;
  dark.stars = 0;
  dark.background = dark.readNoise = 0;
  dark.columnPattern = 12;
  folder.write("dark.raw", sim::encodeFrame(fields, 3, sim::exposeSky(camera, fields, dark)));
  folder.write("d.ref", sim::dsnuFile(camera, fields, dark));
  folder.write("p.ref", sim::prnuFile(camera, fields, dark));
  ASSERT_EQ(orvacam({"convert", "dark.raw", "-o", "plain", "-f", "tiff"}).exitCode, 0);
  const Ran ran =
      orvacam({"convert", "dark.raw", "-o", "out", "-f", "tiff", "--dsnu", "d.ref", "--prnu", "p.ref"});
  ASSERT_EQ(ran.exitCode, 0) << ran.err;
  // Reference pixels and rows are corrected like those of the image.
  for (const unsigned short pixel : tiff("out/dark_MERGED.tiff"))
    ASSERT_LE(pixel, 1);
  for (const unsigned short pixel : tiff("plain/dark_MERGED.tiff"))
    ASSERT_GE(pixel, 6);  // 20 less the deepest column and row
  EXPECT_EQ(tiff("out/dark_LOW.tiff"), tiff("plain/dark_LOW.tiff"));
}

TEST_F(Convert, SaysWhichCorrectionFileIsWrong) {
  const sim::Camera& camera = *sim::findCamera("GSENSE400");
  folder.write("a.raw", hdr.bytes);
  folder.write("junk", Bytes(1000, 'j'));
  Bytes cut = sim::dsnuFile(camera, hdr.fields, sim::Sky());
  cut.resize(cut.size() - 1);
  folder.write("cut", cut);
  fs::create_directory(folder.path() / "out");
  const std::pair<const char*, const char*> cases[] = {
      {"none", "cannot be opened: No such file or directory"},
      {"out", "is no regular file"},
      {"junk", "does not start with \"Meta\""}};
  for (const char* option : {"--dsnu", "--prnu", "--calibration"})
    for (const auto& [name, why] : cases)
      bad({"convert", "a.raw", "-o", "out", option, name}, name, why);
  for (const char* option : {"--dsnu", "--prnu"})
    bad({"convert", "a.raw", "-o", "out", option, "cut"}, "cut", "24384");
  folder.write("small", sim::dsnuFile(camera, fieldsOf("GSENSE400", "hdr", 100, 59), sim::Sky()));
  bad({"convert", "a.raw", "-o", "out", "--dsnu", "small"}, "a.raw", "100 x 59");
}

TEST_F(Convert, RefusesTheBiasFileOfAnotherSensor) {
  folder.write("a.raw", hdr.bytes);
  folder.write("bias", Sample(fieldsOf("GSENSE4040", "hdr", hdr.fields.width, hdr.fields.height), 1).bytes);
  fs::create_directory(folder.path() / "out");
  bad({"convert", "a.raw", "-o", "out", "--bias", "bias"}, "a.raw",
      "is of the sensor GSENSE400, the bias file of GSENSE4040");
}

TEST_F(Convert, RefusesCorrectionsThatDoNotApply) {
  folder.write("a.raw", single.bytes);
  folder.write("d", sim::dsnuFile(*sim::findCamera("GSENSE400"), hdr.fields, sim::Sky()));
  folder.write("nv", blockOfASetting());
  fs::create_directory(folder.path() / "out");
  bad({"convert", "a.raw", "-o", "out", "--dsnu", "d"}, "a.raw", "nothing to merge");
  bad({"convert", "a.raw", "-o", "out", "--thresholds", "3000,100"}, "a.raw", "nothing to merge");
  bad({"convert", "a.raw", "-o", "out", "--calibration", "nv"}, "a.raw", "nothing to merge");
  bad({"convert", "a.raw", "-o", "out", "--planes", "merged"}, "a.raw", "has no plane 'merged'");
}

TEST_F(Convert, NeedsAFolderToWriteTo) {
  folder.write("a.raw", single.bytes);
  folder.write("taken", {});
  bad({"convert", "a.raw", "-o", "taken"}, "taken", "is no folder and cannot be made one", 3);
  bad({"convert", "a.raw", "-o", "taken/deeper"}, "taken/deeper", "is no folder and cannot be made one", 3);
  fs::create_directories(folder.path() / "out" / "a.fits" / "in");
  bad({"convert", "a.raw", "-o", "out"}, "out/a.fits", "is a folder", 3);
}

TEST_F(Convert, WritesTheOtherFixedFilesWhenAFolderIsInTheWayOfOne) {
  folder.write("a.raw", hdr.bytes);
  folder.write("b.raw", single.bytes);
  fs::create_directories(folder.path() / "out" / "a_LOW.fit" / "in");
  const Ran ran = orvacam({"convert", "a.raw", "b.raw", "-o", "out", "--native", "--quiet"});
  EXPECT_EQ(ran.exitCode, 3);
  EXPECT_EQ(ran.err, "orvacam: out/a_LOW.fit: is a folder\n");
  EXPECT_TRUE(fs::is_directory(folder.path() / "out" / "a_LOW.fit" / "in"));
  EXPECT_EQ(files("out").count("b.fit"), 1u);
}

TEST_F(Convert, NeverWritesAnImpossibleDate) {
  sim::HeaderFields fields = fieldsOf("GSENSE400", "single", 8, 4);
  fields.time.month = 2;
  fields.time.day = 30;
  folder.write("a.raw", Sample(fields, 1).bytes);
  for (const char* const format : {"fits", "tiff", "ome-tiff", "png16", "npy"})
    EXPECT_EQ(orvacam({"convert", "a.raw", "-o", "out", "-f", format}).exitCode, 0) << format;
  EXPECT_EQ(orvacam({"stack", "a.raw", "-o", "out/mean.fits"}).exitCode, 0);
  for (const std::string& name : files("out")) {
    std::string text = textOf(folder.read("out/" + name));
    // The description of a TIFF file has the header's own text as well, which is what the camera sent.
    const bool description = fs::path(name).extension() == ".tiff";
    for (const char* const date : {"2024-02-30", "2024:02:30", "2024-03-01", "2024:03:01"})
      EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr(date))) << name;
    if (!description) EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr("2024/02/30"))) << name;
  }
  const Ran native = orvacam({"convert", "a.raw", "-o", "native", "--native", "--quiet"});
  EXPECT_EQ(native.exitCode, 1);
  EXPECT_EQ(native.err, "orvacam: a.raw: has a capture time that cannot be, and fixed files need one\n");
  EXPECT_TRUE(files("native").empty());
}

}  // namespace
