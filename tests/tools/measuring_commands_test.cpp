// orvacam stats, stack, roi and gains, where frames are not the plainest.

#include <gmock/gmock.h>
#include <orvacam.h>

#include <nlohmann/json.hpp>

#include "Program.h"

namespace {

using namespace program_testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Stats = Program;
using Stack = Program;
using Gains = Program;

// ---- stats ------------------------------------------------------------------------------------------------

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
    const nlohmann::json planes = nlohmann::json::parse(ran.out).at(0).at("planes");
    ASSERT_EQ(planes.size(), marked ? 3u : 2u);
    const char* const names[] = {"low", "high"};
    for (unsigned int i = 0; i < 2; ++i) {
      const Naive naive = naiveOf(sample, i);
      EXPECT_EQ(planes[i].at("plane"), names[i]);
      EXPECT_NEAR(planes[i].at("mean").get<double>(), naive.mean, 1e-9);
      EXPECT_EQ(planes[i].at("minimum"),
                (nlohmann::json{{"value", naive.minimum}, {"x", naive.minX}, {"y", naive.minY}}));
      EXPECT_EQ(planes[i].at("maximum"),
                (nlohmann::json{{"value", naive.maximum}, {"x", naive.maxX}, {"y", naive.maxY}}));
    }
  }
}

TEST_F(Stats, SayThatAHistogramCannotBeWrittenAndStillPrint) {
  folder.write("a.raw", Sample(fieldsOf("IMX183", "single", 8, 8), 1).bytes);
  const Ran ran = orvacam({"stats", "a.raw", "--histogram-csv", "none/h.csv"});
  EXPECT_EQ(ran.exitCode, 1);
  EXPECT_EQ(ran.err, "orvacam: none/h.csv: cannot be written: No such file or directory\n");
  EXPECT_THAT(ran.out, HasSubstr("image"));
}

// ---- stack ------------------------------------------------------------------------------------------------

TEST_F(Stack, BlamesTheInputThatFailsAndLeavesTheOldOutput) {
  const Sample sample(fieldsOf("GSENSE400", "single", 20, 10), 1);
  folder.write("a.raw", sample.bytes);
  Bytes cut = sample.bytes;
  cut.pop_back();
  folder.write("cut.raw", cut);
  folder.write("mean.tif", {1, 2, 3});
  const std::pair<const char*, const char*> cases[] = {
      {"none.raw", "cannot be opened: No such file or directory"},
      {"cut.raw", "is truncated: it needs 684 bytes for its pixels, and ends at byte 683"}};
  for (const auto& [name, why] : cases) {
    const Ran ran = orvacam({"stack", "a.raw", name, "-o", "mean.tif"});
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_EQ(ran.err, std::string("orvacam: ") + name + ": " + why + "\n");
    EXPECT_EQ(folder.read("mean.tif"), (Bytes{1, 2, 3}));
  }
  EXPECT_THAT(files(), ElementsAre("a.raw", "cut.raw", "mean.tif"));
}

TEST_F(Stack, HasTheFirstFramesHeaderMarkedAsStacked) {
  std::vector<std::string> arguments = {"stack", "-o", "mean.tiff"};
  for (unsigned int i = 0; i < 3; ++i) {
    sim::HeaderFields fields = fieldsOf("GSENSE4040", "hdr", 20, 10);
    fields.frameNumber = 100 + i;
    arguments.push_back(folder.file("frame" + std::to_string(i)));
    folder.write("frame" + std::to_string(i), Sample(fields, i).bytes);
  }
  ASSERT_EQ(orvacam(arguments).exitCode, 0);
  Bytes file = folder.read("mean.tiff");
  CFrameMetaData header;
  ASSERT_GE(header.Parse(file.data() + 656, 384), 0);
  EXPECT_EQ(header.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 100u);
  EXPECT_TRUE(header.Value(ORVA_META_KEY_TEST_IS_STACKED_FRAME).GetValueBool());
  EXPECT_FALSE(header.Value(ORVA_META_KEY_HDR_MODE).GetValueBool());
  EXPECT_EQ(header.Value(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH).GetValueUint(), 16u);
}

// A sanitizer keeps freed memory: what a process takes then means nothing.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Stack, TakesNoMoreMemoryForMoreFrames) {
  folder.write("a.raw", Sample(fieldsOf("GSENSE2020", "16bit", 1024, 1024), 1).bytes);
  const auto peakOf = [&](std::size_t frames) {
    std::vector<std::string> arguments = {"stack", "-o", "mean.tiff"};
    arguments.insert(arguments.end(), frames, "a.raw");
    const Ran ran = orvacam(arguments);
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    EXPECT_THAT(ran.err, IsEmpty()) << "progress is for terminals";
    return ran.peakKilobytes;
  };
  const long few = peakOf(2);
  EXPECT_LT(peakOf(22), few + 2048) << "20 frames more have 40960 KiB";
}
#endif

// ---- roi --------------------------------------------------------------------------------------------------

class Roi : public Program {
 protected:
  Ran cut(unsigned int x, unsigned int y, unsigned int width, unsigned int height) const {
    return orvacam({"roi", "a.raw", "-o", "cut.raw", "--x", std::to_string(x), "--y", std::to_string(y),
                    "--width", std::to_string(width), "--height", std::to_string(height)});
  }
  /// The planes of the cut file, by way of the program's own conversion.
  std::vector<Pixels> planes(bool hdr) const {
    const Ran ran = orvacam({"convert", "cut.raw", "-o", ".", "-f", "tiff"});
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    if (!hdr) return {tiff("cut.tiff")};
    return {tiff("cut_LOW.tiff"), tiff("cut_HIGH.tiff")};
  }
};

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
      {fieldsOf("GSENSE2020", "hdr", 20, 10), "packed GSENSE4040 frames only"},
      {fieldsOf("GSENSE4040", "16bit", 20, 10), "packed GSENSE4040 frames only"},
      {odd, "an odd number of them is in its rows"},
      {skewed, "reference pixels that an HDR frame does not carry"}};
  for (const auto& [fields, why] : cases) {
    folder.write("a.raw", Sample(fields, 1).bytes);
    const Ran ran = cut(0, 0, 4, 4);
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_THAT(ran.err, HasSubstr(why));
    EXPECT_THAT(files(), ElementsAre("a.raw"));
  }
}

// ---- gains ------------------------------------------------------------------------------------------------

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
      {{'M', 'e', 't', 'a', 0, 32, 0, 1, 0},
       "is truncated: it needs 32 bytes for its settings, and ends at byte 9"}};
  for (const auto& [block, why] : cases) {
    folder.write("nv", block);
    const Ran ran = orvacam({"gains", "GSENSE4040", "--nv", "nv"});
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_THAT(ran.err, HasSubstr(why));
    EXPECT_THAT(ran.out, IsEmpty());
  }
}

}  // namespace
