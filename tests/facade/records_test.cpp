// The caller's records: programs fill them field by field or as a whole, so order and types are the
// interface.

#include <gtest/gtest.h>
#include <orvacam.h>

#include <type_traits>

namespace {

template <typename... Types>
struct Fields {};

/// That a record's fields have these types and lie in the given order.
template <typename Expected, typename... Types>
void expectFields(const Types&... fields) {
  static_assert(std::is_same_v<Fields<Types...>, Expected>);
  const char* previous = nullptr;
  for (const char* field : {reinterpret_cast<const char*>(&fields)...}) {
    EXPECT_LT(previous, field);
    previous = field;
  }
}

using Uint = unsigned int;
using BytePointer = unsigned char*;
using PixelPointer = unsigned short*;
using Count = unsigned long;

// Each binding names as many fields as the record has: one more or less does not compile.

TEST(Records, OfPlanesAndTheirStatistics) {
  const unpacked_images_t images{};
  [[maybe_unused]] const auto& [size, request, lowMeta, low, lowPixels, lowSize, lowRequest, highMeta, high,
                                highPixels, highSize, highRequest, mergedMeta, merged, mergedPixels,
                                mergedSize, mergedRequest] = images;
  expectFields<Fields<Uint, bool, BytePointer, PixelPointer, Count, Count, bool, BytePointer, PixelPointer,
                      Count, Count, bool, BytePointer, PixelPointer, Count, Count, bool>>(
      images.uiMetaDataSize, images.bMetaDataRequest, images.pLowMetaData, images.pLowImage,
      images.ulLowImagePixels, images.ulLowImageSize, images.bLowImageRequest, images.pHighMetaData,
      images.pHighImage, images.ulHighImagePixels, images.ulHighImageSize, images.bHighImageRequest,
      images.pMergedMetaData, images.pMergedImage, images.ulMergedImagePixels, images.ulMergedImageSize,
      images.bMergedImageRequest);

  const unpacked_stats_t all{};
  [[maybe_unused]] const auto& [statsLow, statsHigh, statsMerged] = all;
  expectFields<Fields<image_plane_stats_t, image_plane_stats_t, image_plane_stats_t>>(
      all.statsLow, all.statsHigh, all.statsMerged);
  const image_plane_stats_t& stats = all.statsLow;
  [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i, j, k, l, m] = stats;
  expectFields<Fields<Uint, Uint, Uint, double*, double, double, double, double, int_point_t, Uint,
                      int_point_t, Uint, bool>>(stats.uiLowClip, stats.uiHighClip, stats.uiHistogramSize,
                                                stats.pHistogram, stats.dMean, stats.dMidpoint, stats.dMode,
                                                stats.dStdDev, stats.maxPoint, stats.uiMax, stats.minPoint,
                                                stats.uiMin, stats.bRequest);
  expectFields<Fields<int, int>>(stats.maxPoint.x, stats.maxPoint.y);
}

TEST(Records, OfGainsAndCalibration) {
  const auto& [value, valueIndex] = gain_value_t{6600, 63};
  EXPECT_EQ(value, 6600u);
  EXPECT_EQ(valueIndex, 63u);
  static_assert(sizeof(gain_value_t) == 8);
  const auto& [electrons, gainIndex] = merge_gain_t{2.5, 7};
  EXPECT_EQ(electrons, 2.5);
  EXPECT_EQ(gainIndex, 7u);
  const auto& [device, backSide] = gain_type_info_t{ORVA_DEVICE_GSENSE2020, true};
  EXPECT_EQ(device, 0x01002020u);
  EXPECT_TRUE(backSide);
  const auto& [gain, perCount] = electrons_per_count_t{49, 10.0};
  EXPECT_EQ(gain, 49u);
  EXPECT_EQ(perCount, 10.0);

  const merge_line_offsets_t line;
  [[maybe_unused]] const auto& [t, mapping, first, second, high, low, ratio, offsets] = line;
  expectFields<Fields<double[3], Uint, Uint, Uint, Uint, Uint, double, int[3]>>(
      line.dTemperature, line.uiMappingThreshold, line.uiMergeThreshold1, line.uiMergeThreshold2,
      line.uiHighGainSetting, line.uiLowGainSetting, line.dGainRatio, line.iLineOffset);
}

TEST(Records, OfMergesAndConversions) {
  const ref_frames_t frames{};
  [[maybe_unused]] const auto& [width, height, addLow, addHigh, mulLow, mulHigh] = frames;
  expectFields<Fields<Uint, Uint, short*, short*, PixelPointer, PixelPointer>>(
      frames.uiWidth, frames.uiHeight, frames.pAdditiveLow, frames.pAdditiveHigh, frames.pMultiplicativeLow,
      frames.pMultiplicativeHigh);
  const hw_merge_enables_t enables{};
  [[maybe_unused]] const auto& [bits, format, type] = enables;
  expectFields<Fields<Uint, Uint, Uint>>(enables.uiEnableBits, enables.uiImageFormat, enables.uiMergeType);
  const frame_roi_t roi{};
  [[maybe_unused]] const auto& [x, y, roiWidth, roiHeight] = roi;
  expectFields<Fields<Uint, Uint, Uint, Uint>>(roi.uiX, roi.uiY, roi.uiWidth, roi.uiHeight);
  const conv_info_t request{ORVA_IMAGE_FORMAT_FITS, L"dsnu", L"prnu"};
  const auto& [output, dsnu, prnu] = request;
  EXPECT_EQ(output, 2u);
  EXPECT_STREQ(dsnu, L"dsnu");
  EXPECT_STREQ(prnu, L"prnu");
}

TEST(Records, OfOneMetadataValue) {
  const meta_data_value_t record{};
  [[maybe_unused]] const auto& [number, length, text] = record;
  expectFields<Fields<double, int, char[64]>>(record.value, record.length, record.text);
}

TEST(Objects, AreAsLargeAsTheirHeadersSay) {
  const auto expectKiB = [](std::size_t size, double stated) {
    EXPECT_NEAR(static_cast<double>(size) / 1024, stated, 0.1 * stated);
  };
  expectKiB(sizeof(CAlgo), 0.5 * 1024);
  expectKiB(sizeof(IFrame), 0.8 * 1024);
  expectKiB(sizeof(CHWMergeReferenceFrames), 260);
  expectKiB(sizeof(CMergeAlgoLegacy), 260);
  expectKiB(sizeof(CFrameStatistics), 257);
  expectKiB(sizeof(CFrameMetaData), 4.5);
  expectKiB(sizeof(CStacker), 4.5);
}

TEST(Enumerations, Take32Bits) {
  static_assert(sizeof(ORVA_META_KEYS) == 4 && sizeof(ORVADEVICETYPE) == 4 && sizeof(ORVAGAINTABLE) == 4 &&
                sizeof(ORVA_IMAGE_FORMAT) == 4 && sizeof(CLOGLEVEL) == 4);
  EXPECT_EQ(ORVA_META_KEY_COUNT, 100u);
}

}  // namespace
