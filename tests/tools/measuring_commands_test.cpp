// orvacam stats, stack, roi and gains.

#include <nlohmann/json.hpp>
#include <sstream>

#include "Program.h"

namespace {

using namespace program_testing;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using Stats = Program;
using Stack = Program;
using Gains = Program;

// ---- stats

struct Naive {
  double mean = 0;
  unsigned int minimum = 65536, maximum = 0;
  unsigned int minX = 0, minY = 0, maxX = 0, maxY = 0;
};

/// Of the image in a plane, at places in the frame.
Naive naiveOf(const Sample& sample, unsigned int plane) {
  const sim::HeaderFields& f = sample.fields;
  Naive result;
  for (unsigned int y = f.preRefRows; y < f.preRefRows + f.height; ++y)
    for (unsigned int x = f.preRefPixels; x < f.preRefPixels + f.width; ++x) {
      const unsigned int value = sample.at(plane, x, y);
      result.mean += value / (1.0 * f.width * f.height);
      if (value < result.minimum) result.minimum = value, result.minX = x, result.minY = y;
      if (value > result.maximum) result.maximum = value, result.maxX = x, result.maxY = y;
    }
  return result;
}

TEST_F(Stats, LeaveOutReferencePixelsAndRows) {
  sim::HeaderFields fields = fieldsOf("GSENSE6060", "hdr", 30, 12);
  fields.preRefPixels = 4, fields.postRefPixels = 6, fields.preRefRows = 2, fields.postRefRows = 3;
  for (const bool marked : {true, false}) {  // 12-bit frames of this sensor have two planes, marked or not
    fields.hdr = marked;
    const Sample sample(fields, 11);
    folder.write("a.raw", sample.bytes);
    const Ran ran = orvacam({"stats", "--json", "a.raw"});
    ASSERT_EQ(ran.exitCode, 0) << ran.err;
    const nlohmann::json planes = nlohmann::json::parse(ran.out).at("planes");
    ASSERT_EQ(planes.size(), marked ? 3u : 2u);
    const char* const names[] = {"low", "high"};
    for (unsigned int i = 0; i < 2; ++i) {
      const Naive naive = naiveOf(sample, i);
      EXPECT_EQ(planes.contains(names[i]), true);
      EXPECT_NEAR(planes[names[i]].at("mean").get<double>(), naive.mean, 1e-9);
      EXPECT_EQ(planes[names[i]].at("minimum"),
                (nlohmann::json{{"value", naive.minimum}, {"x", naive.minX}, {"y", naive.minY}}));
      EXPECT_EQ(planes[names[i]].at("maximum"),
                (nlohmann::json{{"value", naive.maximum}, {"x", naive.maxX}, {"y", naive.maxY}}));
    }
  }
}

TEST_F(Stats, OfKnownPixels) {
  // 1 to 8, but for one 1000: sum 36 - 7 + 1000, mean 1029 / 8.
  writePlain("a.raw", 4, 2,
             [](unsigned int x, unsigned int y) { return x == 2 && y == 1 ? 1000 : y * 4 + x + 1; });
  const auto all = nlohmann::json::parse(good({"stats", "--json", "a.raw"}));
  EXPECT_EQ(all["schema"], "orvacam.stats/1");
  EXPECT_EQ(all["file"], "a.raw");
  ASSERT_EQ(all.at("planes").size(), 1u);
  const auto& plane = all["planes"]["image"];
  EXPECT_EQ(plane["count"], 8);
  EXPECT_DOUBLE_EQ(plane["mean"], 128.625);
  double squares = 0;
  for (const double v : {1., 2., 3., 4., 5., 6., 1000., 8.})
    squares += (v - 128.625) * (v - 128.625);
  EXPECT_NEAR(plane["deviation"], std::sqrt(squares / 8), 1e-9);
  EXPECT_EQ(plane["mode"], 1);
  EXPECT_EQ(plane["clip"].size(), 2u);
  EXPECT_EQ(plane["minimum"], (nlohmann::json{{"value", 1}, {"x", 0}, {"y", 0}}));
  EXPECT_EQ(plane["maximum"], (nlohmann::json{{"value", 1000}, {"x", 2}, {"y", 1}}));
  EXPECT_THAT(good({"stats", "a.raw"}),
              AllOf(StartsWith("a.raw:\n"), HasSubstr("mean    128.625"), HasSubstr("max  1000 at (2, 1)")));
}

TEST_F(Stats, CountTheImageOfEachPlane) {
  writeHdr("a.raw", 8, 4, 3);
  const auto all = nlohmann::json::parse(good({"stats", "--json", "a.raw"}));
  ASSERT_EQ(all.at("planes").size(), 3u);
  EXPECT_DOUBLE_EQ(all["planes"]["low"]["mean"], 15.5);
  EXPECT_DOUBLE_EQ(all["planes"]["high"]["mean"], 3515.5);
  EXPECT_DOUBLE_EQ(all["planes"]["merged"]["mean"], 3515.5);  // the high-gain channel is far from its end
}

TEST_F(Stats, GiveAnObjectALineForManyFiles) {
  writeFlat("a.raw", 3);
  writeFlat("b.raw", 4);
  const Ran ran = orvacam({"stats", "--json", "a.raw", "none.raw", "b.raw"});
  EXPECT_EQ(ran.exitCode, 1);
  std::istringstream text(ran.out);
  std::string line;
  for (const char* name : {"a.raw", "b.raw"}) {
    ASSERT_TRUE(std::getline(text, line));
    EXPECT_EQ(nlohmann::json::parse(line)["file"], name);
  }
  EXPECT_FALSE(std::getline(text, line));
  good({"stats", "a.raw", "b.raw", "--histogram-csv", "h.csv"});
  EXPECT_EQ(textOf(folder.read("h.csv")), "file,plane,value,count\na.raw,image,3,24\nb.raw,image,4,24\n");
}

TEST_F(Stats, WriteAHistogramOfEveryPixelOrSayWhyNot) {
  writeHdr("a.raw", 8, 4);
  good({"stats", "a.raw", "--histogram-csv", "h.csv"});
  std::istringstream csv(textOf(folder.read("h.csv")));
  std::string line;
  std::getline(csv, line);
  EXPECT_EQ(line, "value,low,high,merged");
  unsigned int sums[3] = {}, value = 0, counts[3] = {};
  int count = 0;
  for (char comma = 0; std::getline(csv, line); ++count) {
    std::istringstream fields(line);
    ASSERT_TRUE(fields >> value >> comma >> counts[0] >> comma >> counts[1] >> comma >> counts[2]) << line;
    EXPECT_EQ(counts[0], value < 32 ? 1u : 0u) << line;
    for (int i = 0; i < 3; ++i)
      sums[i] += counts[i];
  }
  EXPECT_EQ(count, 64);
  EXPECT_THAT(sums, ::testing::Each(32u));
  const Ran ran = orvacam({"stats", "a.raw", "--histogram-csv", "none/h.csv"});
  EXPECT_EQ(ran.exitCode, 3);
  EXPECT_EQ(ran.err, "orvacam: none/h.csv: cannot be written: No such file or directory\n");
  EXPECT_THAT(ran.out, HasSubstr("low"));
}

// ---- stack

TEST_F(Stack, BlamesTheInputThatFailsAndLeavesTheOldOutput) {
  const Sample sample(fieldsOf("GSENSE400", "single", 20, 10), 1);
  folder.write("a.raw", sample.bytes);
  Bytes cut = sample.bytes;
  cut.pop_back();
  folder.write("cut.raw", cut);
  folder.write("mean.tif", {1, 2, 3});
  const std::pair<const char*, const char*> cases[] = {
      {"none.raw", "cannot be opened: No such file or directory"},
      {"cut.raw",
       "needs 684 bytes (20 x 10 pixels of 12 bits behind a header of 384 bytes), ends at byte 683"}};
  for (const auto& [name, why] : cases) {
    bad({"stack", "a.raw", name, "-o", "mean.tif", "--overwrite"}, name, why);
    EXPECT_EQ(folder.read("mean.tif"), (Bytes{1, 2, 3}));
  }
  EXPECT_THAT(files(), ElementsAre("a.raw", "cut.raw", "mean.tif"));
}

TEST_F(Stack, HasTheFirstFramesHeaderAndSaysWhatItIs) {
  Arguments arguments = {"stack", "-o", "mean.fits"};
  for (unsigned int i = 0; i < 3; ++i) {
    sim::HeaderFields fields = fieldsOf("GSENSE4040", "hdr", 20, 10);
    fields.frameNumber = 100 + i;
    fields.time.minute = 10 - i;
    arguments.push_back(folder.file("frame" + std::to_string(i)));
    folder.write("frame" + std::to_string(i), Sample(fields, i).bytes);
  }
  good(arguments);
  EXPECT_EQ(keyword("mean.fits", "FRAMENUM"), "100");
  EXPECT_EQ(keyword("mean.fits", "NCOMBINE"), "3");
  EXPECT_EQ(keyword("mean.fits", "EXPTIME"), "1.");
  EXPECT_EQ(keyword("mean.fits", "LIVETIME"), "3.");
  EXPECT_EQ(keyword("mean.fits", "READOUTM"), "'HDR-MERGED'");
  EXPECT_EQ(keyword("mean.fits", "DATE-OBS"), "'2024-05-17T21:08:33.123456700'");
  EXPECT_EQ(keyword("mean.fits", "DATE-END"), "'2024-05-17T21:10:34.123456700'");
  arguments[2] = "sum.fits";
  arguments.insert(arguments.end(), {"--method", "sum"});
  good(arguments);
  EXPECT_EQ(keyword("sum.fits", "EXPTIME"), "3.");
  EXPECT_EQ(keyword("sum.fits", "BITPIX"), "-32");
}

TEST_F(Stack, MakesTheExactMeanInEveryType) {
  Pixels truncated;
  std::vector<float> mean, sum;
  for (unsigned int i = 0; i < 24; ++i) {
    const unsigned int total = 100 + i + 65000 + 3 * i;
    truncated.push_back(static_cast<unsigned short>(total / 3));
    mean.push_back(static_cast<float>(total / 3.0));
    sum.push_back(static_cast<float>(total));
  }
  writePlain("a.raw", 6, 4, [](unsigned int x, unsigned int y) { return 100 + y * 6 + x; });
  writePlain("b.raw", 6, 4, [](unsigned int, unsigned int) { return 65000; });
  writePlain("c.raw", 6, 4, [](unsigned int x, unsigned int y) { return 3 * (y * 6 + x); });
  good({"stack", "a.raw", "b.raw", "c.raw", "-o", "mean.tiff", "--dtype", "uint16"});
  EXPECT_EQ(tiff("mean.tiff"), truncated);
  good({"stack", "a.raw", "b.raw", "c.raw", "-o", "mean.fits"});
  EXPECT_EQ(read_images::fitsPixels<float>(folder.file("mean.fits")), mean);
  good({"stack", "a.raw", "b.raw", "c.raw", "-o", "sum.tif", "--method", "sum"});
  EXPECT_EQ(read_images::tiffPixels<float>(folder.file("sum.tif")), sum);
  good({"stack", "a.raw", "b.raw", "c.raw", "-o", "sum.fits", "--method", "sum", "--dtype", "float64"});
  EXPECT_EQ(read_images::fitsPixels<double>(folder.file("sum.fits")),
            std::vector<double>(sum.begin(), sum.end()));
  refused({"stack", "a.raw", "-o", "s.fits", "--method", "sum", "--dtype", "uint16"}, "uint16 holds no sum");
}

TEST_F(Stack, TakesTheMergedPlanesOfHdrFrames) {
  const std::vector<sim::Plane> planes = writeHdr("a.raw", 40, 80);
  writeHdr("b.raw", 40, 80);
  for (const char* name : {"mean.fit", "mean.fits", "mean.fts"}) {
    good({"stack", "a.raw", "b.raw", "-o", name, "--dtype", "uint16"});
    EXPECT_EQ(keyword(name, "INSTRUME"), "'VESTRA VS4040'");
    EXPECT_EQ(fits(name), planes[1]);
  }
  good({"stack", "a.raw", "b.raw", "-o", "low.fits", "--plane", "low", "--dtype", "uint16"});
  EXPECT_EQ(fits("low.fits"), planes[0]);
}

TEST_F(Stack, TakesOnlyFramesThatAreAlikeAndEachOnce) {
  writeFlat("a.raw", 1);
  writePlain("wide.raw", 8, 3, [](unsigned int, unsigned int) { return 1; });
  writeHdr("hdr.raw", 6, 4);
  sim::HeaderFields longer = fieldsOf("GENERIC", "single", 6, 4);
  longer.exposure *= 60;
  folder.write("longer.raw", Sample(longer, 1).bytes);
  bad({"stack", "a.raw", "wide.raw", "-o", "mean.fit"}, "wide.raw", "is unlike the first frame");
  bad({"stack", "a.raw", "hdr.raw", "-o", "mean.fit"}, "hdr.raw", "is unlike the first frame: the sensor");
  bad({"stack", "a.raw", "longer.raw", "-o", "mean.fit"}, "longer.raw",
      "ExposureTime is 6000000, of the first frame 100000");
  bad({"stack", "a.raw", "./a.raw", "-o", "mean.fit"}, "mean.fit", "./a.raw is the same file as a.raw");
  fs::create_hard_link(folder.path() / "a.raw", folder.path() / "b.raw");
  bad({"stack", "a.raw", "b.raw", "-o", "mean.fit", "--force"}, "mean.fit", "is the same file as a.raw");
  good({"stack", "a.raw", "longer.raw", "-o", "mean.fit", "--force"});
}

// A sanitizer keeps freed memory: what a process takes then means nothing.
#if !ORVACAM_SANITIZED
TEST_F(Stack, TakesNoMoreMemoryForMoreFrames) {
  for (int i = 0; i < 22; ++i)
    folder.write("f" + std::to_string(i), Sample(fieldsOf("GSENSE2020", "16bit", 1024, 1024), 1).bytes);
  const auto peakOf = [&](int frames) {
    Arguments arguments = {"stack", "-o", "mean.tiff", "--overwrite"};
    for (int i = 0; i < frames; ++i)
      arguments.push_back("f" + std::to_string(i));
    const Ran ran = orvacam(arguments);
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    return ran.peakKilobytes;
  };
  const long few = peakOf(2);
  EXPECT_LT(peakOf(22), few * 12 / 10) << "20 frames more have 40960 KiB";
}
#endif

// ---- roi

class Roi : public Program {
 protected:
  Ran cut(unsigned int x, unsigned int y, unsigned int width, unsigned int height) const {
    return orvacam({"roi", "a.raw", "-o", "cut.raw", "--overwrite", "--x", std::to_string(x), "--y",
                    std::to_string(y), "--width", std::to_string(width), "--height", std::to_string(height)});
  }
  /// The planes of the cut file, by way of the program's own conversion.
  std::vector<Pixels> planes(bool hdr) const {
    const Ran ran = orvacam({"convert", "cut.raw", "-o", ".", "-f", "tiff", "--overwrite"});
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    if (!hdr) return {tiff("cut.tiff")};
    return {tiff("cut_LOW.tiff"), tiff("cut_HIGH.tiff")};
  }
};

TEST_F(Roi, IsConvertedToEveryFormatThatItsNameTells) {
  writeHdr("a.raw", 64, 48);
  const Arguments region = {"--x", "4", "--y", "6", "--width", "40", "--height", "20", "--plane", "low"};
  const auto cutTo = [&](const std::string& name) {
    Arguments all = {"roi", "a.raw", "-o", name};
    all.insert(all.end(), region.begin(), region.end());
    good(all);
  };
  cutTo("cut.npy");
  cutTo("cut.fits");
  cutTo("cut.tif");
  const Pixels pixels = tiff("cut.tif");
  EXPECT_EQ(fits("cut.fits"), pixels);
  const Bytes npy = folder.read("cut.npy");
  ASSERT_GT(npy.size(), 2 * pixels.size());
  Pixels ofNpy(pixels.size());
  std::memcpy(ofNpy.data(), npy.data() + npy.size() - 2 * pixels.size(), 2 * pixels.size());
  EXPECT_EQ(ofNpy, pixels);
}

TEST_F(Roi, CutsTheSamePixelsOutOfEveryKindOfFrame) {
  for (const bool hdr : {false, true})
    for (const unsigned int version : {1u, 3u, 4u}) {
      sim::HeaderFields fields = fieldsOf("GSENSE4040", hdr ? "hdr" : "single", 40, 30);
      if (!hdr) fields.preRefPixels = 4;
      if (version > 2) fields.postRefPixels = 6;
      fields.preRefRows = 3, fields.postRefRows = 2;
      const Sample sample(fields, version, version);
      folder.write("a.raw", sample.bytes);
      const unsigned int regions[][4] = {{0, 0, 40, 30}, {6, 1, 10, 5}, {38, 29, 2, 1}, {0, 15, 40, 15}};
      for (const auto& [x, y, width, height] : regions) {
        SCOPED_TRACE(::testing::Message()
                     << "hdr " << hdr << " version " << version << " at " << x << ", " << y);
        const Ran ran = cut(x, y, width, height);
        ASSERT_EQ(ran.exitCode, 0) << ran.err;
        const std::vector<Pixels> cutPlanes = planes(hdr);
        for (unsigned int p = 0; p < cutPlanes.size(); ++p) {
          Pixels expected;
          for (unsigned int row = 0; row < height; ++row)
            for (unsigned int column = 0; column < width; ++column)
              expected.push_back(sample.at(p, fields.preRefPixels + x + column, fields.preRefRows + y + row));
          EXPECT_EQ(cutPlanes[p], expected) << "plane " << p;
        }
      }
    }
}

TEST_F(Roi, IsAFrameWithPlacesOfItsOwn) {
  writeHdr("a.raw", 16, 10);
  ASSERT_EQ(cut(4, 3, 6, 2).exitCode, 0);
  EXPECT_EQ(folder.read("cut.raw").size(), 384u + 6 * 2 * 2 * 3 / 2);
  const auto stats = nlohmann::json::parse(good({"stats", "--json", "cut.raw"}));
  EXPECT_EQ(stats["planes"]["low"]["minimum"], (nlohmann::json{{"value", 52}, {"x", 0}, {"y", 0}}));
  EXPECT_EQ(stats["planes"]["low"]["maximum"], (nlohmann::json{{"value", 73}, {"x", 5}, {"y", 1}}));
}

TEST_F(Roi, CutsBinnedFrames) {
  sim::HeaderFields fields = fieldsOf("GSENSE4040", "single", 80, 60);
  fields.horizontalBinning = 2, fields.verticalBinning = 3;
  const Sample sample(fields, 5);  // 40 x 20 pixels
  folder.write("a.raw", sample.bytes);
  ASSERT_EQ(cut(10, 4, 8, 6).exitCode, 0);
  Pixels expected;
  for (unsigned int y = 4; y < 10; ++y)
    for (unsigned int x = 10; x < 18; ++x)
      expected.push_back(sample.planes[0].at(y * 40 + x));
  EXPECT_EQ(planes(false)[0], expected);
  EXPECT_THAT(cut(10, 4, 32, 6).err, HasSubstr("does not lie inside the image of 40 x 20 pixels"));
}

TEST_F(Roi, RefusesFramesWhosePackedRowsCannotBeCut) {
  sim::HeaderFields odd = fieldsOf("GSENSE4040", "single", 21, 10);
  sim::HeaderFields skewed = fieldsOf("GSENSE4040", "hdr", 20, 10);
  skewed.preRefPixels = 2;
  const std::pair<sim::HeaderFields, const char*> cases[] = {
      {fieldsOf("GSENSE2020", "hdr", 20, 10), "regions are cut out of packed frames of a GSENSE4040"},
      {fieldsOf("GSENSE4040", "16bit", 20, 10), "regions are cut out of packed frames of a GSENSE4040"},
      {odd, "an odd number of pixels that are packed in pairs"},
      {skewed, "that the frames of a GSENSE4040 do not carry there"}};
  for (const auto& [fields, why] : cases) {
    folder.write("a.raw", Sample(fields, 1).bytes);
    const Ran ran = cut(0, 0, 4, 4);
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_THAT(ran.err, HasSubstr(why));
    EXPECT_THAT(files(), ElementsAre("a.raw"));
  }
}

TEST_F(Roi, CutsNoRegionThatIsNotThere) {
  writeHdr("a.raw", 16, 10);
  writeFlat("plain.raw", 1);
  const auto refuses = [this](const char* file, const char* x, const char* y, const char* width,
                              const char* height, const char* what) {
    bad({"roi", file, "-o", "b.raw", "--x", x, "--y", y, "--width", width, "--height", height}, file, what);
  };
  refused({"roi", "a.raw", "-o", "b.raw", "--x", "1", "--y", "0", "--width", "2", "--height", "1"},
          "both are even");
  refused({"roi", "a.raw", "-o", "b.raw", "--x", "0", "--y", "0", "--width", "3", "--height", "1"},
          "both are even");
  refuses("a.raw", "12", "0", "6", "1", "does not lie inside the image of 16 x 10 pixels");
  refuses("a.raw", "0", "9", "2", "2", "does not lie inside the image of 16 x 10 pixels");
  refuses("a.raw", "4294967294", "0", "2", "1", "does not lie inside the image of 16 x 10 pixels");
  refuses("plain.raw", "0", "0", "2", "1", "packed frames of a GSENSE4040");
}

// ---- gains

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

TEST_F(Gains, OfEverySensorAreShown) {
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

TEST_F(Gains, AreShownWithACamerasOwnValues) {
  folder.write("nv", blockOfASetting());
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

TEST_F(Gains, ShowTheRatioOfEachSettingBesideTheBuiltInOne) {
  // A version 1 block: ratios 1.1, 1.1, 40 and 40; 2.5 electrons per count at high gain 25, 50 at low
  // gain 25.
  const Bytes block = {'M', 'e', 't', 'a', 0, 44, 0, 1, 0, 0, 4, 76, 0, 0, 4,  76,  0, 0,  156, 64, 0,   0,
                       156, 64,  0,   1,   0, 1,  0, 0, 0, 0, 0, 25, 0, 0, 97, 168, 0, 25, 0,   7,  161, 32};
  folder.write("nv", block);
  for (const char* variant : {"plain", "--bsi"}) {
    std::vector<std::string> arguments = {"gains", "gsense2020", "--nv", "nv"};
    if (*variant == '-') arguments.push_back(variant);
    const Ran ran = orvacam(arguments);
    ASSERT_EQ(ran.exitCode, 0) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr("built in"));
    EXPECT_THAT(ran.out, HasSubstr("       50.0000         2.5000        20.0000         1.0000\n"));
    EXPECT_THAT(ran.out, HasSubstr("       18.6916         0.8194        22.8113        22.8113\n"));
  }
  const Ran without = orvacam({"gains", "GSENSE2020"});
  EXPECT_THAT(without.out, ::testing::Not(HasSubstr("built in")));
  EXPECT_THAT(without.out, ::testing::Not(HasSubstr("50.0000")));
}

TEST_F(Gains, RefuseABlockThatIsNotOrNotWhollyThere) {
  const std::pair<Bytes, const char*> cases[] = {
      {{}, "does not start with \"Meta\""},
      {{'M', 'e', 't', 'b', 0, 9, 0, 1, 0}, "does not start with \"Meta\""},
      {{'M', 'e', 't', 'a', 0, 9, 0, 5, 0}, "its version 5 at byte 6 is none of 1 to 4"},
      {{'M', 'e', 't', 'a', 0, 9, 1, 1, 0}, "its version 257 at byte 6 is none of 1 to 4"},
      {{'M', 'e', 't', 'a', 0, 8, 0, 1, 0}, "its length 8 at byte 4 is not 9 to 1024"},
      {{'M', 'e', 't', 'a', 4, 1, 0, 1, 0}, "its length 1025 at byte 4 is not 9 to 1024"},
      {{'M', 'e', 't', 'a', 0, 32, 0, 1, 0}, "it needs 32 bytes, ends at byte 9"}};
  for (const auto& [block, why] : cases) {
    folder.write("nv", block);
    const Ran ran = orvacam({"gains", "GSENSE4040", "--nv", "nv"});
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_THAT(ran.err, HasSubstr(why));
    EXPECT_THAT(ran.out, IsEmpty());
  }
}

TEST_F(Gains, AreNotShownOfUnknownSensorsOrFromForeignBlocks) {
  refused({"gains", "FILM"}, "there is no 'FILM'; there are GSENSE400, ");
  refused({"gains", "GSENSE4000"}, "did you mean 'GSENSE400'?");
  bad({"gains", "GSENSE400", "--nv", "none"}, "none", "cannot be opened");
  folder.write("text", Bytes(100, 'x'));
  bad({"gains", "GSENSE400", "--nv", "text"}, "text", "is no camera's calibration block");
  Bytes block = blockOfASetting();
  block.pop_back();
  folder.write("cut", block);
  bad({"gains", "GSENSE400", "--nv", "cut"}, "cut", "it needs 44 bytes, ends at byte 43");
}

}  // namespace
