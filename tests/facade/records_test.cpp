// The caller's records: programs fill them field by field or as a whole, so order and types are the
// interface.

#include <gtest/gtest.h>
#include <orvacam.h>

#include <type_traits>

namespace {

template <typename... Types>
struct Fields {};

/// The types of a record's fields, and that they lie in the given order.
template <typename... Types>
Fields<Types...> inOrder(const Types&... fields) {
  const char* previous = nullptr;
  for (const char* field : {reinterpret_cast<const char*>(&fields)...}) {
    EXPECT_LT(previous, field);
    previous = field;
  }
  return {};
}

template <typename Actual, typename Expected>
constexpr bool same = std::is_same_v<Actual, Expected>;

// Each binding names as many fields as the record has: one more or less does not compile.

TEST(Records, OfPlanesAndTheirStatistics) {
  const unpacked_images_t images{};
  [[maybe_unused]] const auto& [size, request, lowMeta, low, lowPixels, lowSize, lowRequest, highMeta, high,
                                highPixels, highSize, highRequest, mergedMeta, merged, mergedPixels,
                                mergedSize, mergedRequest] = images;
  const auto planes =
      inOrder(images.uiMetaDataSize, images.bMetaDataRequest, images.pLowMetaData, images.pLowImage,
              images.ulLowImagePixels, images.ulLowImageSize, images.bLowImageRequest, images.pHighMetaData,
              images.pHighImage, images.ulHighImagePixels, images.ulHighImageSize, images.bHighImageRequest,
              images.pMergedMetaData, images.pMergedImage, images.ulMergedImagePixels,
              images.ulMergedImageSize, images.bMergedImageRequest);
  using Bytes = unsigned char*;
  using Pixels = unsigned short*;
  using Count = unsigned long;
  static_assert(same<std::remove_const_t<decltype(planes)>,
                     Fields<unsigned int, bool, Bytes, Pixels, Count, Count, bool, Bytes, Pixels, Count,
                            Count, bool, Bytes, Pixels, Count, Count, bool>>);

  const unpacked_stats_t all{};
  [[maybe_unused]] const auto& [statsLow, statsHigh, statsMerged] = all;
  inOrder(all.statsLow, all.statsHigh, all.statsMerged);
  const image_plane_stats_t& stats = all.statsLow;
  [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i, j, k, l, m] = stats;
  const auto figures = inOrder(stats.uiLowClip, stats.uiHighClip, stats.uiHistogramSize, stats.pHistogram,
                               stats.dMean, stats.dMidpoint, stats.dMode, stats.dStdDev, stats.maxPoint,
                               stats.uiMax, stats.minPoint, stats.uiMin, stats.bRequest);
  static_assert(same<std::remove_const_t<decltype(figures)>,
                     Fields<unsigned int, unsigned int, unsigned int, double*, double, double, double, double,
                            int_point_t, unsigned int, int_point_t, unsigned int, bool>>);
  static_assert(same<decltype(inOrder(stats.maxPoint.x, stats.maxPoint.y)), Fields<int, int>>);
  inOrder(stats.maxPoint.x, stats.maxPoint.y);
}

TEST(Records, OfGainsAndCalibration) {
  [[maybe_unused]] const auto& [value, valueIndex] = gain_value_t{6600, 63};
  EXPECT_EQ(value, 6600u);
  EXPECT_EQ(valueIndex, 63u);
  static_assert(sizeof(gain_value_t) == 8);
  [[maybe_unused]] const auto& [electrons, gainIndex] = merge_gain_t{2.5, 7};
  EXPECT_EQ(electrons, 2.5);
  EXPECT_EQ(gainIndex, 7u);
  [[maybe_unused]] const auto& [device, backSide] = gain_type_info_t{ORVA_DEVICE_GSENSE2020, true};
  EXPECT_EQ(device, 0x01002020u);
  EXPECT_TRUE(backSide);
  [[maybe_unused]] const auto& [gain, perCount] = electrons_per_count_t{49, 10.0};
  EXPECT_EQ(gain, 49u);
  EXPECT_EQ(perCount, 10.0);

  const merge_line_offsets_t line;
  [[maybe_unused]] const auto& [t, mapping, first, second, high, low, ratio, offsets] = line;
  const auto fields =
      inOrder(line.dTemperature, line.uiMappingThreshold, line.uiMergeThreshold1, line.uiMergeThreshold2,
              line.uiHighGainSetting, line.uiLowGainSetting, line.dGainRatio, line.iLineOffset);
  static_assert(
      same<std::remove_const_t<decltype(fields)>, Fields<double[3], unsigned int, unsigned int, unsigned int,
                                                         unsigned int, unsigned int, double, int[3]>>);
}

TEST(Records, OfMergesAndConversions) {
  const ref_frames_t frames{};
  [[maybe_unused]] const auto& [width, height, addLow, addHigh, mulLow, mulHigh] = frames;
  const auto planes = inOrder(frames.uiWidth, frames.uiHeight, frames.pAdditiveLow, frames.pAdditiveHigh,
                              frames.pMultiplicativeLow, frames.pMultiplicativeHigh);
  static_assert(same<std::remove_const_t<decltype(planes)>,
                     Fields<unsigned int, unsigned int, short*, short*, unsigned short*, unsigned short*>>);
  [[maybe_unused]] const auto& [bits, format, type] = hw_merge_enables_t{1, 2, 3};
  EXPECT_EQ(bits, 1u);
  EXPECT_EQ(format, 2u);
  EXPECT_EQ(type, 3u);
  const hw_merge_enables_t enables{};
  inOrder(enables.uiEnableBits, enables.uiImageFormat, enables.uiMergeType);
  const frame_roi_t roi{};
  [[maybe_unused]] const auto& [x, y, roiWidth, roiHeight] = roi;
  inOrder(roi.uiX, roi.uiY, roi.uiWidth, roi.uiHeight);
  const conv_info_t request{ORVA_IMAGE_FORMAT_FITS, L"dsnu", L"prnu"};
  [[maybe_unused]] const auto& [output, dsnu, prnu] = request;
  EXPECT_EQ(output, 2u);
  EXPECT_STREQ(dsnu, L"dsnu");
  EXPECT_STREQ(prnu, L"prnu");
}

TEST(Records, OfOneMetadataValue) {
  const meta_data_value_t value{};
  [[maybe_unused]] const auto& [number, length, text] = value;
  const auto fields = inOrder(value.dValue, value.iLength, value.szText);
  static_assert(same<std::remove_const_t<decltype(fields)>, Fields<double, int, char[64]>>);
}

TEST(Enumerations, Take32Bits) {
  static_assert(sizeof(ORVA_META_KEYS) == 4 && sizeof(ORVADEVICETYPE) == 4 && sizeof(ORVAGAINTABLE) == 4 &&
                sizeof(ORVA_IMAGE_FORMAT) == 4 && sizeof(CLOGLEVEL) == 4);
  EXPECT_EQ(ORVA_META_KEY_COUNT, 100u);
}

}  // namespace
