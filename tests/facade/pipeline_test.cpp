// CAlgo: one call turns a raw frame into planes, metadata and statistics.

#include <orvacam.h>

#include <algorithm>
#include <cstring>

#include "TestFolder.h"
#include "frames/FrameTesting.h"
#include "support/Cameras.h"
#include "support/Contains.h"

namespace {

using namespace frame_testing;

using cameras::Mode;

sim::HeaderFields fieldsOf(const Mode& mode) {
  sim::HeaderFields f = header(mode.model, mode.bits, mode.hdr, 24, 10);
  f.quadrants = mode.quadrants;
  f.lowGain = 1;
  f.highGain = 2;
  if (mode.bits == 12) {
    f.postRefPixels = 4;
    f.preRefRows = 2;
  }
  return f;
}

// ---- The façade's own rules

class Facade : public ::testing::Test {
 protected:
  Facade() : raw(fieldsOf(cameras::modeNamed("GSense400Hdr"))) {
    algo.Initialize({0x01000400, false}, nullptr);
  }
  RawFrame raw;
  CAlgo algo;
  Images images;
};

TEST_F(Facade, DoesNothingWithoutImages) {
  EXPECT_EQ(algo.MergeImage(nullptr, 0, nullptr, nullptr), 0);
  EXPECT_EQ(algo.MergeImage(nullptr, 0, &images, nullptr), -1);
  EXPECT_EQ(algo.MergeFile(nullptr, &images, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(algo.MergeFile(L"x", nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(algo.MergeFile(L"/nowhere/frame.raw", &images, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(algo.DeInitialize(), 0);
}

TEST_F(Facade, RefusesWhatDoesNotParseAndDeliversNothing) {
  Bytes junk(1000, 'x');
  images.bLowImageRequest = true;
  EXPECT_EQ(algo.MergeImage(junk.data(), junk.size(), &images, nullptr), -1);
  EXPECT_EQ(images.pLowImage, nullptr);
}

TEST_F(Facade, RefusesFramesWhoseCaptureTimeDoesNotParse) {
  // The fields in front of it are read, so that the pixels could be found: they are not looked for.
  raw.bytes[152] = 'x';
  images.bLowImageRequest = true;
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = true;
  EXPECT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats), -1);
  const TestFolder folder;
  const std::wstring file = folder.write("frame.raw", raw.bytes);
  EXPECT_EQ(algo.MergeFile(file.c_str(), &images, &stats, nullptr, nullptr), -1);
  const conv_info_t info{ORVA_IMAGE_FORMAT_TIFF, nullptr, nullptr};
  EXPECT_EQ(algo.ConvertFile(file.c_str(), &info, folder.wideFile("o.raw").c_str()), -1);
  EXPECT_EQ(images.pLowImage, nullptr);
  EXPECT_EQ(stats.statsLow.pHistogram, nullptr);
  EXPECT_FALSE(folder.has("o_LOW.tiff"));
}

TEST_F(Facade, TakesNothingOfOneFrameIntoTheNext) {
  sim::HeaderFields full = raw.fields;
  full.backSideIlluminated = full.globalReset = full.gpsError = full.extraFlagBit7 = true;
  full.otherBlock.assign(5, 9);
  const sim::HeaderFields plain = header("VESTRA PLAIN", 16, false, 6, 4);
  const TestFolder folder;
  for (const bool fromFile : {false, true}) {
    CAlgo used, fresh;
    Bytes processed[2] = {Bytes(400), Bytes(400)};
    for (CAlgo* each : {&used, &fresh}) {
      RawFrame first(full, 4), next(plain, 1);
      Bytes& metaData = processed[each == &used ? 0 : 1];
      unpacked_images_t request{};
      request.bMetaDataRequest = true;
      request.uiMetaDataSize = 400;
      request.pLowMetaData = request.pHighMetaData = request.pMergedMetaData = metaData.data();
      for (RawFrame* frame : {&first, &next}) {
        if (frame == &first && each == &fresh) continue;
        const std::wstring file = folder.write("frame.raw", frame->bytes);
        ASSERT_EQ(fromFile ? each->MergeFile(file.c_str(), &request, nullptr, nullptr, nullptr)
                           : each->MergeImage(frame->bytes.data(), frame->bytes.size(), &request, nullptr),
                  0);
      }
    }
    // The high-gain black levels are those of the last header that has them.
    EXPECT_EQ(processed[0][218], full.blackLevelHigh);
    EXPECT_EQ(processed[0][220], full.blackLevelSunHigh);
    processed[0][218] = processed[0][220] = 0;
    for (std::size_t i = 0; i < 400; ++i)
      EXPECT_EQ(int{processed[0][i]}, int{processed[1][i]})
          << "byte " << i << (fromFile ? " from a file" : "");
  }
}

TEST_F(Facade, DeliversMetadataInMemoryOnlyWhenAskedAndFromFilesIntoEveryBuffer) {
  Bytes low(384, 9), high(384, 9);
  const auto request = [&] {
    images.uiMetaDataSize = 384;
    images.pLowMetaData = low.data();
    images.pHighMetaData = high.data();
  };
  request();
  ASSERT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, nullptr), 0);
  EXPECT_EQ(low, Bytes(384, 9));
  const TestFolder folder;
  ASSERT_EQ(algo.MergeFile(folder.write("f", raw.bytes).c_str(), &images, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(std::memcmp(low.data(), "Meta", 4), 0);
  EXPECT_EQ(std::memcmp(high.data(), "Meta", 4), 0);
  EXPECT_EQ(images.pMergedMetaData, nullptr);
  images.pLowMetaData = images.pHighMetaData = nullptr;
}

TEST_F(Facade, FailsAfterClearingACallersBufferThatIsTooSmall) {
  Pixels plane(raw.framePixels(), 7);
  images.bLowImageRequest = true;
  images.pLowImage = plane.data();
  images.ulLowImageSize = 2 * raw.framePixels() - 2;
  EXPECT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, nullptr), -1);
  EXPECT_EQ(plane[plane.size() - 2], 0);
  EXPECT_EQ(plane.back(), 7);
  images.pLowImage = nullptr;
}

TEST_F(Facade, GathersStatisticsOfPlanesThatWereNotDelivered) {
  unpacked_stats_t stats{};
  stats.statsHigh.bRequest = true;
  ASSERT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats), 0);
  expectSame(stats.statsHigh, streamStatistics(raw, 1));
  EXPECT_EQ(stats.statsLow.pHistogram, nullptr);  // nobody asked
  EXPECT_EQ(images.pHighImage, nullptr);
  algo.FreeStatsPointers(&stats);
  EXPECT_EQ(stats.statsHigh.pHistogram, nullptr);
  EXPECT_EQ(stats.statsHigh.uiHistogramSize, 0u);
  algo.FreeStatsPointers(nullptr);
  algo.FreeFramePointers(nullptr);
  algo.GetStats(nullptr, &stats);
}

TEST_F(Facade, DeliversStatisticsAlsoOfAMergeThatFailed) {
  const TestFolder folder;
  const std::wstring file = folder.write("frame.raw", raw.bytes);
  for (const bool fromFile : {false, true}) {
    unpacked_stats_t stats{};
    stats.statsLow.bRequest = stats.statsMerged.bRequest = true;
    stats.statsLow.uiMax = stats.statsMerged.uiMax = 77;
    unsigned short tooSmall = 7;
    images.bLowImageRequest = true;
    images.pLowImage = &tooSmall;
    images.ulLowImageSize = sizeof tooSmall;
    EXPECT_EQ(fromFile ? algo.MergeFile(file.c_str(), &images, &stats, nullptr, nullptr)
                       : algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats),
              -1);
    images.pLowImage = nullptr;
    EXPECT_EQ(stats.statsLow.uiHistogramSize, 65535u);
    EXPECT_NE(stats.statsLow.pHistogram, nullptr);
    EXPECT_NE(stats.statsMerged.pHistogram, nullptr);
    EXPECT_EQ(stats.statsHigh.pHistogram, nullptr);
    EXPECT_EQ(stats.statsLow.uiMax, 0u);  // of no pixels
    EXPECT_EQ(stats.statsMerged.uiMax, 0u);
    algo.FreeStatsPointers(&stats);
  }
}

TEST_F(Facade, GivesAllSixBuffersBackAndKeepsTheirRecord) {
  Images::all(images);
  ASSERT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, nullptr), 0);
  for (const void* buffer : buffersOf(images))
    EXPECT_NE(buffer, nullptr);
  for (const unsigned long size : {images.ulLowImageSize, images.ulHighImageSize, images.ulMergedImageSize})
    EXPECT_EQ(size, 2 * raw.framePixels());
  for (const unsigned long pixels :
       {images.ulLowImagePixels, images.ulHighImagePixels, images.ulMergedImagePixels})
    EXPECT_EQ(pixels, raw.framePixels());
  EXPECT_EQ(images.uiMetaDataSize, 384u);
  algo.FreeFramePointers(&images);
  for (const void* buffer : buffersOf(images))
    EXPECT_EQ(buffer, nullptr);
  EXPECT_TRUE(images.bMergedImageRequest);
}

TEST_F(Facade, DeliversNoMergedStatisticsOfTheFrameBefore) {
  unpacked_stats_t stats{};
  stats.statsMerged.bRequest = true;
  images.bMergedImageRequest = true;
  ASSERT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats), 0);
  ASSERT_GT(stats.statsMerged.uiMax, 0u);
  RawFrame single(fieldsOf(cameras::modeNamed("GSense400Single")));  // which is not merged
  ASSERT_EQ(algo.MergeImage(single.bytes.data(), single.bytes.size(), &images, &stats), 0);
  EXPECT_EQ(stats.statsMerged.uiMax, 0u);
  EXPECT_EQ(stats.statsMerged.dMean, 0.0);
  EXPECT_EQ(std::count(stats.statsMerged.pHistogram, stats.statsMerged.pHistogram + 65535, 0.0), 65535);
  algo.FreeStatsPointers(&stats);
}

TEST_F(Facade, UsesACallersHistogramAsFarAsItGoes) {
  std::vector<double> histogram(11, -1.0);
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = true;
  stats.statsLow.pHistogram = histogram.data();
  stats.statsLow.uiHistogramSize = 10;
  ASSERT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats), 0);
  EXPECT_GE(histogram[9], 0.0);
  EXPECT_EQ(histogram[10], -1.0);
}

TEST_F(Facade, FollowsSizeAndGainFromFrameToFrame) {
  images.bMergedImageRequest = images.bLowImageRequest = images.bHighImageRequest = true;
  for (const auto& [gain, width] : {std::pair{0u, 16u}, std::pair{3u, 40u}, std::pair{0u, 8u}}) {
    sim::HeaderFields f = header("VESTRA VS400", 12, true, width, 6);
    f.lowGain = gain;
    RawFrame frame(f, 3, width);
    algo.FreeFramePointers(&images);
    ASSERT_EQ(algo.MergeImage(frame.bytes.data(), frame.bytes.size(), &images, nullptr), 0);
    const double ratio = (gain == 0 ? 47.8469 : 8.6059) / 7.5988;
    const Pixels low = frame.plane(0), high = frame.plane(1), merged = images.merged();
    for (std::size_t i = 0; i < merged.size(); ++i)
      ASSERT_EQ(merged[i], mergedPixel(ratio, low[i], high[i]));
  }
}

TEST_F(Facade, KeepsTheCallersCorrectionFramesUntilIdentityIsAskedFor) {
  unsigned int width = 0, height = 0;
  raw.metaData.GetFrameDimensions(width, height);
  std::vector<short> additive(width * height, -8);
  ref_frames_t record{};
  record.uiWidth = width;
  record.uiHeight = height;
  record.pAdditiveHigh = additive.data();
  EXPECT_EQ(algo.SetHWMergeReferenceFrames(&record, false), -1);  // the height is still that of construction
  ASSERT_EQ(algo.SetHWMergeReferenceFrames(&record, true), 0);    // identity frames of this size
  ASSERT_EQ(algo.SetHWMergeReferenceFrames(&record, false), 0);
  algo.SetHWMergeEnables({0, 0, 2});
  images.bMergedImageRequest = true;
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, nullptr), 0);
    const unsigned int high = raw.planes[1][0];
    EXPECT_EQ(images.pMergedImage[0], high == 0 ? 0 : high - 1);
  }
  ASSERT_EQ(algo.SetHWMergeReferenceFrames(&record, true), 0);
  ASSERT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, nullptr), 0);
  EXPECT_EQ(images.pMergedImage[0], raw.planes[1][0]);
}

TEST_F(Facade, CorrectsEachChannelWithItsOwnPlanes) {
  ref_frames_t record{};
  raw.metaData.GetFrameDimensions(record.uiWidth, record.uiHeight);
  const std::size_t pixels = std::size_t{record.uiWidth} * record.uiHeight;
  std::vector<short> addLow(pixels, 8), addHigh(pixels, 16);                        // one and two counts
  std::vector<unsigned short> mulLow(pixels, 3 * 1024), mulHigh(pixels, 2 * 1024);  // times three and two
  record.pAdditiveLow = addLow.data();
  record.pAdditiveHigh = addHigh.data();
  record.pMultiplicativeLow = mulLow.data();
  record.pMultiplicativeHigh = mulHigh.data();
  ASSERT_EQ(algo.SetHWMergeReferenceFrames(&record, true), 0);  // frames of this size
  ASSERT_EQ(algo.SetHWMergeReferenceFrames(&record, false), 0);
  images.bMergedImageRequest = true;
  for (const unsigned int channel : {0u, 1u}) {
    algo.SetHWMergeEnables({0, 0, channel + 1});
    ASSERT_EQ(algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, nullptr), 0);
    const Pixels plane = raw.plane(channel), merged = images.merged();
    ASSERT_EQ(merged.size(), plane.size());
    for (std::size_t i = 0; i < merged.size(); ++i) {
      const double corrected = std::min(plane[i] + channel + 1.0, 4095.875) * (3 - channel);
      ASSERT_EQ(merged[i], std::round(corrected)) << channel << ", " << i;
    }
  }
}

TEST_F(Facade, LoadsEveryPlaneOfTheRecordAndStopsAtTheFirstFailure) {
  ref_frames_t record{};
  record.uiWidth = record.uiHeight = 2;
  EXPECT_EQ(algo.SetHWMergeReferenceFrames(nullptr, false), 0);
  EXPECT_EQ(algo.SetHWMergeReferenceFrames(&record, true), 0);
  EXPECT_EQ(algo.SetHWMergeReferenceFrames(&record, false), 0);  // nothing to load
  short additive[4] = {};
  unsigned short multiplicative[4] = {1024, 1024, 1024, 1024};
  record.pAdditiveLow = record.pAdditiveHigh = additive;
  record.pMultiplicativeLow = record.pMultiplicativeHigh = multiplicative;
  EXPECT_EQ(algo.SetHWMergeReferenceFrames(&record, false), 0);
  record.uiHeight = 3;  // 2 x 3 values against frames of 2 x 2
  EXPECT_EQ(algo.SetHWMergeReferenceFrames(&record, false), -1);
}

TEST_F(Facade, HandsThresholdsAndEnablesOnInTheirOrder) {
  unsigned short first = 0, second = 0;
  algo.GetHWMergeThresholds(first, second);
  EXPECT_EQ(first, 3700);
  EXPECT_EQ(second, 128);
  algo.SetHWMergeThresholds(11, 22);
  algo.GetHWMergeThresholds(first, second);
  EXPECT_EQ(first, 11);
  EXPECT_EQ(second, 22);
  algo.SetHWMergeEnables({1, 2, 3});
  hw_merge_enables_t enables{};
  algo.GetHWMergeEnables(enables);
  EXPECT_EQ(enables.uiMergeType, 3u);
}

TEST_F(Facade, DerivesTheGainRatioFromTheSensorsOwnTables) {
  EXPECT_DOUBLE_EQ(algo.DeriveGainRatioFromMetaData(raw.metaData), 17.3611 / 1.7492);
  CFrameMetaData unknown;
  EXPECT_EQ(algo.DeriveGainRatioFromMetaData(unknown), 1.0);
}

TEST_F(Facade, UsesReferenceFilesAndSaysWhenTheyFail) {
  const TestFolder folder;
  const LogCapture log;
  CAlgo fresh;
  const std::wstring frame = folder.write("frame.raw", raw.bytes);
  unsigned int width = 0, height = 0;
  raw.metaData.GetFrameDimensions(width, height);
  sim::HeaderFields plain = raw.fields;
  Bytes dsnu = sim::writeHeader(plain, 3);
  for (unsigned int i = 0; i < 2 * width * height; ++i)
    dsnu.insert(dsnu.end(), {0xF0, 0xFF});  // -16, two counts
  const std::wstring reference = folder.write("dsnu", dsnu);
  fresh.SetHWMergeEnables({0, 0, 2});
  images.bMergedImageRequest = true;
  ASSERT_EQ(fresh.MergeFile(frame.c_str(), &images, nullptr, reference.c_str(), nullptr), 0);
  const unsigned int high = raw.planes[1][0];
  EXPECT_EQ(images.pMergedImage[0], high < 2 ? 0 : high - 2);

  // The multiplicative file alone: twice the pixel.
  Bytes prnu = sim::writeHeader(plain, 3);
  for (unsigned int i = 0; i < 2 * width * height; ++i)
    prnu.insert(prnu.end(), {0x00, 0x08});
  ASSERT_EQ(fresh.MergeFile(frame.c_str(), &images, nullptr, nullptr, folder.write("prnu", prnu).c_str()), 0);
  EXPECT_EQ(images.pMergedImage[0], std::round(2 * std::min<double>(high, 4095.875)));
  // Without files the next frame goes uncorrected.
  ASSERT_EQ(fresh.MergeFile(frame.c_str(), &images, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(images.pMergedImage[0], high);

  EXPECT_EQ(fresh.MergeFile(frame.c_str(), &images, nullptr, L"/nowhere", nullptr), -1);
  EXPECT_TRUE(contains(log.text(), "ERROR, MergeFile: Error allocating reference frames w: " +
                                       std::to_string(width) + " h: " + std::to_string(height) + "\n"));
}

TEST_F(Facade, LogsItsEntryAndExit) {
  const LogCapture log;
  CAlgo fresh;
  fresh.Initialize({0, false}, nullptr);
  EXPECT_EQ(log.text(), "UNKNO, Initialize: ENTERED pNVMergeSettings= (nil)\nUNKNO, Initialize: LEAVING\n");
  fresh.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, nullptr);
  EXPECT_TRUE(
      contains(log.text(), "UNKNO, InitFrame: uiSourceSize= " + std::to_string(raw.bytes.size()) + "\n"));
  const TestFolder folder;
  fresh.MergeFile(folder.write("f", raw.bytes).c_str(), &images, nullptr, nullptr, nullptr);
  EXPECT_TRUE(contains(log.text(), "UNKNO, InitFrame: (file)\n"));
}

TEST_F(Facade, MakesNoFrameWithoutMetadata) {
  EXPECT_EQ(algo.InitFrame(nullptr, raw.bytes.data(), raw.bytes.size(), &images), nullptr);
  EXPECT_EQ(algo.InitFrame(nullptr, static_cast<std::FILE*>(nullptr), &images), nullptr);
  const std::unique_ptr<IFrame> frame(
      algo.InitFrame(&raw.metaData, static_cast<std::FILE*>(nullptr), nullptr));
  ASSERT_NE(frame, nullptr);  // its stream failed, which its operations say
  EXPECT_EQ(frame->Unpack(&images), -1);
}

TEST_F(Facade, TakesHeadersOfAllVersions) {
  for (unsigned int version = 1; version <= 4; ++version) {
    sim::HeaderFields f = header("VESTRA VS2020", 12, true, 16, 6);
    RawFrame frame(f, version);
    Images own;
    Images::all(own);
    ASSERT_EQ(algo.MergeImage(frame.bytes.data(), frame.bytes.size(), &own, nullptr), 0) << version;
    EXPECT_EQ(own.low(), frame.plane(0));
    EXPECT_EQ(own.high(), frame.plane(1));
    // Headers of versions 1 and 2 are too short to hold a processed one.
    EXPECT_EQ(own.uiMetaDataSize, version == 1 ? 156u : version == 2 ? 246u : 384u);
    EXPECT_EQ(own.pLowMetaData[0], version < 3 ? 0 : 'M');
  }
}

}  // namespace
