// Sizes, device type, temperatures, positions and times that follow from a header's fields.

#include <gtest/gtest.h>
#include <orvacam/types/device_types.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "metadata/SettableHeader.h"
#include "support/Cameras.h"

namespace {

constexpr unsigned int preset = 77777;

SettableHeader cameraOf(const std::string& model) {
  SettableHeader header;
  header.setText(11, model);
  return header;
}

unsigned int typeOf(const std::string& model) {
  unsigned int type = preset;
  const int status = cameraOf(model).GetDeviceType(type);
  EXPECT_EQ(status, type == preset ? -1 : 0) << model;
  return type;
}

struct Size {
  unsigned int width;
  unsigned int height;
  bool operator==(const Size& other) const { return width == other.width && height == other.height; }
};
std::ostream& operator<<(std::ostream& stream, const Size& size) {
  return stream << size.width << " x " << size.height;
}

using SizeQuery = int (CFrameMetaData::*)(unsigned int&, unsigned int&) const;
using CountQuery = int (CFrameMetaData::*)(unsigned int&) const;

Size ask(const CFrameMetaData& header, SizeQuery query, int status = 0) {
  Size size{preset, preset};
  EXPECT_EQ((header.*query)(size.width, size.height), status);
  return size;
}

unsigned int ask(const CFrameMetaData& header, CountQuery query, int status = 0) {
  unsigned int count = preset;
  EXPECT_EQ((header.*query)(count), status);
  return count;
}

// ---- Device

TEST(DeviceType, FollowsFromTheModelText) {
  for (const cameras::Camera& camera : cameras::all)
    if (camera.model != nullptr) {
      EXPECT_EQ(typeOf(camera.model), camera.device) << camera.model;
    }
}

TEST(DeviceType, FollowsFromAPartOfTheModelText) {
  EXPECT_EQ(typeOf("VS2020-FSI"), cameras::of("GSENSE2020").device);
  EXPECT_EQ(typeOf("VS4040-BSI"), cameras::of("GSENSE4040").device);
  EXPECT_EQ(typeOf("argent 230-84 mono"), cameras::of("CCD230-84").device);
  EXPECT_EQ(typeOf("My Argent 4320"), cameras::of("CCD4320").device);
  EXPECT_EQ(typeOf("cam IMX183 color"), cameras::of("IMX183").device);
}

TEST(DeviceType, OfAnUnknownModelFailsAndLeavesTheTypeAlone) {
  for (const char* model : {"", "<>", "ARGENT 9999", "230-42", "4320", "VS", "imx183"})
    EXPECT_EQ(typeOf(model), preset) << model;
}

TEST(DeviceType, OfTheSensorDesignationsIsCaseSensitive) {
  EXPECT_EQ(typeOf("vs4040"), preset);
  EXPECT_EQ(typeOf("Vs400"), preset);
}

TEST(DeviceType, TriesTheDesignationsInOrder) {
  EXPECT_EQ(typeOf("VS6060 VS400"), 0x01000400U);
  EXPECT_EQ(typeOf("ARGENT VS2020 230-42"), 0x01002020U);
  EXPECT_EQ(typeOf("ARGENT 4320 230-84"), 0x03023084U);
}

TEST(DeviceType, OfAnArgentWithoutItsDesignationIsUnknownEvenWithAnotherSensor) {
  EXPECT_EQ(typeOf("Argent IMX183"), preset);
}

TEST(DeviceType, LooksAtTheModelUpToItsFirstZero) {
  EXPECT_EQ(typeOf(std::string("VS4040\0\0\0", 9)), 0x01004040U);
  EXPECT_EQ(typeOf(std::string("X\0VS4040", 8)), preset);
}

TEST(DeviceType, DoesNotReadBehindAModelOfFortyBytesWithoutAZero) {
  EXPECT_EQ(typeOf(std::string(34, 'x') + "VS6060"), 0x01006060U);
  EXPECT_EQ(typeOf(std::string(37, 'x') + "VS6"), preset);
}

// ---- Sizes

TEST(Dimensions, OfTheImageIncludeBothEnds) {
  SettableHeader header;
  header.setImage(0, 4095, 0, 4095);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageDimensions), (Size{4096, 4096}));
  EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameDimensions), (Size{4096, 4096}));
  EXPECT_EQ(ask(smallFrame(), &CFrameMetaData::GetImageDimensions), (Size{16, 10}));
  header.setImage(9, 9, 3, 3);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageDimensions), (Size{1, 1}));
}

TEST(Dimensions, OfTheFrameAddReferencePixelsAndRows) {
  EXPECT_EQ(ask(smallFrame(), &CFrameMetaData::GetFrameDimensions), (Size{24, 19}));
}

TEST(Dimensions, WithStopBeforeStartFail) {
  SettableHeader columns = smallFrame();
  columns.setImage(24, 23, 4, 13);
  // The height can be computed and is written.
  EXPECT_EQ(ask(columns, &CFrameMetaData::GetImageDimensions, -1), (Size{preset, 10}));
  EXPECT_EQ(ask(columns, &CFrameMetaData::GetFrameDimensions, -1), (Size{preset, 10}));

  SettableHeader rows = smallFrame();
  rows.setImage(8, 23, 14, 13);
  EXPECT_EQ(ask(rows, &CFrameMetaData::GetImageDimensions, -1), (Size{16, preset}));

  SettableHeader both;
  both.setImage(1, 0, 1, 0);
  EXPECT_EQ(ask(both, &CFrameMetaData::GetImageDimensions, -1), (Size{preset, preset}));
}

TEST(Dimensions, BinnedAreRoundedUp) {
  SettableHeader header;
  header.setImage(0, 4095, 0, 4095).set(5, 3).set(6, 2);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageDimensionsBinned), (Size{1366, 2048}));
  header.set(5, 2).set(6, 5);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageDimensionsBinned), (Size{2048, 820}));
  header.set(5, 5000).set(6, 4096);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageDimensionsBinned), (Size{1, 1}));
}

TEST(Dimensions, WithBinningOfZeroOrOneAreNotBinned) {
  for (const unsigned int binning : {0U, 1U}) {
    SettableHeader header = smallFrame();
    header.set(5, binning).set(6, binning);
    EXPECT_EQ(ask(header, &CFrameMetaData::GetImageDimensionsBinned), (Size{16, 10}));
    EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameDimensionsBinned), (Size{24, 19}));
    EXPECT_EQ(ask(header, &CFrameMetaData::GetRefPixelsBinned), (Size{5, 3}));
    EXPECT_EQ(ask(header, &CFrameMetaData::GetRefRowsBinned), (Size{7, 2}));
  }
}

TEST(Dimensions, BinnedRoundEachReferenceCountOnItsOwn) {
  SettableHeader header = smallFrame();
  header.set(5, 2).set(6, 3);
  // 5 + 3 pixels become 3 + 2, 7 + 2 rows become 3 + 1.
  EXPECT_EQ(ask(header, &CFrameMetaData::GetRefPixelsBinned), (Size{3, 2}));
  EXPECT_EQ(ask(header, &CFrameMetaData::GetRefRowsBinned), (Size{3, 1}));
  EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameDimensionsBinned), (Size{8 + 5, 4 + 4}));
}

TEST(Dimensions, BinnedWithStopBeforeStartFailWithTheOtherOneWritten) {
  SettableHeader rows = smallFrame();
  rows.setImage(8, 23, 14, 13).set(5, 2);
  Size size{0, 0};
  EXPECT_EQ(rows.GetImageDimensionsBinned(size.width, size.height), -1);
  EXPECT_EQ(size, (Size{8, 0}));
  SettableHeader columns = smallFrame();
  columns.setImage(24, 23, 4, 13).set(6, 3);
  size = {0, 0};
  EXPECT_EQ(columns.GetFrameDimensionsBinned(size.width, size.height), -1);
  EXPECT_EQ(size.height, 4U + 3U + 1U);
}

TEST(PixelCounts, AreProductsOfTheDimensions) {
  SettableHeader header = smallFrame();
  header.set(5, 2).set(6, 3);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageSizePixels), 160U);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameSizePixels), 24U * 19U);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageSizePixelsBinned), 8U * 4U);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameSizePixelsBinned), 13U * 8U);
}

TEST(PixelCounts, AreNotWrittenForAnInvertedImageUnlessBinned) {
  SettableHeader header = smallFrame();
  header.setImage(24, 23, 4, 13);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageSizePixels, -1), preset);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameSizePixels, -1), preset);
  // The binned outputs start at 0.
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageSizePixelsBinned, -1), 0U);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameSizePixelsBinned, -1), 8U * 19U);
}

TEST(PixelCounts, WrapAt32Bits) {
  SettableHeader header;
  header.setImage(0, 65535, 0, 65535);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageSizePixels), 0U);
  header.set(71, 1).set(69, 1);  // 65537 x 65537 = 2^32 + 2^17 + 1
  EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameSizePixels), 131073U);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetFrameSizePixelsBinned), 131073U);
}

TEST(PixelSize, IsTheBitDepthOfTheData) {
  SettableHeader header;
  header.set(19, 12);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetPixelSize), 12U);
}

TEST(FrameBytes, AreRoundedUpToWholeBytes) {
  const auto bytes = SettableHeader::DoComputeFrameSizeFromPixelSize;
  EXPECT_EQ(bytes(12, 4096, 4096), 25165824U);
  EXPECT_EQ(bytes(12, 1, 1), 2U);
  EXPECT_EQ(bytes(12, 2, 1), 3U);
  EXPECT_EQ(bytes(16, 3, 5), 30U);
  EXPECT_EQ(bytes(0, 9, 9), 0U);
  EXPECT_EQ(bytes(1, 7, 1), 1U);
  // 65536 * 65536 * 16 bits are 0 modulo 2^32; 2^32 - 1 bits plus 8 are 7, which gives 0 bytes.
  EXPECT_EQ(bytes(16, 65536, 65536), 0U);
  EXPECT_EQ(bytes(1, 0xFFFFFFFF, 1), 0U);
}

/// 21 columns and 10 rows of 12 bits, 4 reference pixels, 3 reference rows.
SettableHeader rawFrame(const char* model, bool hdr) {
  SettableHeader header = cameraOf(model);
  header.setImage(0, 20, 0, 9).set(71, 3).set(70, 1).set(69, 2).set(68, 1).set(19, 12).setBool(40, hdr);
  return header;
}

unsigned int rawBytes(const char* model, bool hdr) {
  return ask(rawFrame(model, hdr), &CFrameMetaData::GetImageSizeBytes);
}

TEST(ImageSizeBytes, FollowTheSensorsLayout) {
  // Image block: 21 x 13 x 12 bits = 409.5, so 410 bytes. Reference block: 4 x 13 x 12 bits = 78 bytes; 4 x 6
  // x 12 bits = 36 bytes on the sensor that pairs rows. One block of all: 25 x 13 x 12 bits = 487.5, so 488
  // bytes.
  EXPECT_EQ(rawBytes("VS400", false), 446U);
  EXPECT_EQ(rawBytes("VS400", true), 892U);
  EXPECT_EQ(rawBytes("VS2020", false), 976U);
  EXPECT_EQ(rawBytes("VS2020", true), 976U);
  EXPECT_EQ(rawBytes("VS4040", false), 976U);
  EXPECT_EQ(rawBytes("VS4040", true), 976U);
  EXPECT_EQ(rawBytes("VS6060", false), 488U);
  EXPECT_EQ(rawBytes("VS6060", true), 976U);
  EXPECT_EQ(rawBytes("ARGENT 4320", true), 488U);
  EXPECT_EQ(rawBytes("IMX183", false), 488U);
}

TEST(ImageSizeBytes, OfAFullGsense4040FrameAre50331648) {
  SettableHeader header = cameraOf("VS4040");
  header.setImage(0, 4095, 0, 4095).set(19, 12);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageSizeBytes), 50331648U);
}

TEST(ImageSizeBytes, AreDividedByTheBinning) {
  // Doubled before the division in the sensors with separate blocks, after it in the one with a single block.
  SettableHeader blocks = rawFrame("VS2020", false);
  blocks.set(5, 2).set(6, 3);
  EXPECT_EQ(ask(blocks, &CFrameMetaData::GetImageSizeBytes), 162U);  // 976 / 6
  SettableHeader single = rawFrame("VS6060", true);
  single.set(5, 5).set(6, 1);
  EXPECT_EQ(ask(single, &CFrameMetaData::GetImageSizeBytes), 194U);  // 2 * (488 / 5)
}

TEST(ImageSizeBytes, WithABinningOfZeroAreZero) {
  for (const char* model : {"VS400", "VS6060"}) {
    SettableHeader header = rawFrame(model, true);
    header.set(6, 0);
    EXPECT_EQ(ask(header, &CFrameMetaData::GetImageSizeBytes), 0U);
  }
}

TEST(ImageSizeBytes, OfAnUnknownDeviceFailWithZero) {
  EXPECT_EQ(ask(rawFrame("unknown", false), &CFrameMetaData::GetImageSizeBytes, -1), 0U);
}

TEST(ImageSizeBytes, OfAnInvertedImageFailWithZero) {
  SettableHeader header = rawFrame("VS4040", false);
  header.setImage(5, 4, 0, 9);
  EXPECT_EQ(ask(header, &CFrameMetaData::GetImageSizeBytes, -1), 0U);
}

// ---- Temperatures, positions, gains

TEST(Temperature, OfTheSensorIsInTenthsOfADegree) {
  SettableHeader header;
  header.setInt(74, -105);
  EXPECT_DOUBLE_EQ(header.GetSensorTemperature(), -10.5);
  EXPECT_DOUBLE_EQ(SettableHeader::DoGetConvertedTemperature(7), 0.7);
}

TEST(GpsPosition, IsNegativeWithoutTheHemisphereBit) {
  SettableHeader header;
  header.set(2, 3).set(29, 0x01C9C380).set(33, 0x81C9C380);
  EXPECT_DOUBLE_EQ(header.GetGPSLatitude(), -50.0);
  EXPECT_DOUBLE_EQ(header.GetGPSLongitude(), 50.0);
}

TEST(GpsPosition, OfVersion1IsZero) {
  SettableHeader header;
  header.set(2, 1).set(29, 0x81C9C380).set(33, 0x81C9C380);
  EXPECT_EQ(header.GetGPSLatitude(), 0.0);
  EXPECT_EQ(header.GetGPSLongitude(), 0.0);
}

TEST(GainValues, AreElectronsPerCountOfTheFramesSettings) {
  SettableHeader header = cameraOf("VS400");
  header.set(26, 2).set(28, 7);
  EXPECT_DOUBLE_EQ(header.GetLowGainValue(), 12.6904);
  EXPECT_DOUBLE_EQ(header.GetHighGainValue(), 0.5549);
}

TEST(GainValues, FollowTheBackSideIlluminatedFlag) {
  SettableHeader header = cameraOf("VS2020");
  header.set(26, 63);
  EXPECT_DOUBLE_EQ(header.GetLowGainValue(), 8.0);
  header.setBool(3, true);  // that one has 26 settings
  EXPECT_DOUBLE_EQ(header.GetLowGainValue(), 1.0);
}

TEST(GainValues, AreOneWithoutATable) {
  EXPECT_EQ(cameraOf("IMX183").GetLowGainValue(), 1.0);
  EXPECT_EQ(cameraOf("no such camera").GetHighGainValue(), 1.0);
}

// ---- Texts

SettableHeader captured() {
  SettableHeader header;
  header.set(12, 2024U << 16 | 3 << 8 | 9).setDouble(13, 3723.0).setDouble(14, 4005006.0);
  return header;
}

TEST(CaptureDate, IsWrittenAsOneText) {
  char text[64];
  captured().GetCaptureDate(text, sizeof text);
  EXPECT_STREQ(text, "2024-03-09T01:02:03.004005006");
}

TEST(CaptureDate, IsCutToTheBufferWhichIsClearedFirst) {
  std::vector<char> text(12, 'x');
  captured().GetCaptureDate(text.data(), 11);
  EXPECT_EQ(std::string(text.data(), 11), std::string("2024-03-09\0", 11));
  EXPECT_EQ(text[11], 'x');
  std::vector<char> large(100, 'x');
  captured().GetCaptureDate(large.data(), 100);
  EXPECT_EQ(std::string(large.begin() + 29, large.end()), std::string(71, '\0'));
}

TEST(CaptureDate, IgnoresANullOrEmptyBuffer) {
  captured().GetCaptureDate(nullptr, 10);
  char untouched = 'x';
  captured().GetCaptureDate(&untouched, 0);
  EXPECT_EQ(untouched, 'x');
}

TEST(Clock, ShowsHoursMinutesSecondsAndMicroseconds) {
  const struct {
    unsigned long usecs;
    const char* text;
  } clocks[] = {{0, "0:0.0.000000"},
                {1, "0:0.0.000001"},
                {59999999, "0:0.59.999999"},
                {3661000002, "1:1.1.000002"},
                {90000000000, "25:0.0.000000"}};
  for (const auto& clock : clocks) {
    char text[64];
    CFrameMetaData::GetClockFromUsecs(clock.usecs, text, sizeof text);
    EXPECT_STREQ(text, clock.text);
  }
}

TEST(Clock, IsCutToTheBuffer) {
  char text[6] = "xxxxx";
  CFrameMetaData::GetClockFromUsecs(3661000002, text, 5);
  EXPECT_STREQ(text, "1:1.");
  EXPECT_EQ(text[5], '\0');
  CFrameMetaData::GetClockFromUsecs(1, nullptr, 5);
  char untouched = 'x';
  CFrameMetaData::GetClockFromUsecs(1, &untouched, 0);
  EXPECT_EQ(untouched, 'x');
}

// ---- Header as received

TEST(RawMetaData, CopiesAsManyBytesAsTheHeaderStates) {
  SettableHeader header;
  for (unsigned int i = 0; i < sizeof header.m_RawHeader; ++i)
    header.m_RawHeader[i] = static_cast<unsigned char>(i * 3);
  header.set(1, 156);
  std::vector<unsigned char> copy(157, 0xEE);
  EXPECT_EQ(header.GetRawMetaData(copy.data(), 156), 0);
  EXPECT_EQ(std::memcmp(copy.data(), header.m_RawHeader, 156), 0);
  EXPECT_EQ(copy[156], 0xEE);
}

TEST(RawMetaData, NeedsABufferThatHoldsTheHeader) {
  SettableHeader header;
  header.set(1, 156);
  std::vector<unsigned char> copy(155, 0xEE);
  EXPECT_EQ(header.GetRawMetaData(copy.data(), 155), -1);
  EXPECT_EQ(copy, std::vector<unsigned char>(155, 0xEE));
  EXPECT_EQ(header.GetRawMetaData(nullptr, 1000), -1);
}

TEST(RawMetaData, OfMoreThanTheKeptBytesIsRefused) {
  SettableHeader header;
  std::vector<unsigned char> copy(70000);
  header.set(1, 1024);
  EXPECT_EQ(header.GetRawMetaData(copy.data(), 70000), 0);
  header.set(1, 1025);
  EXPECT_EQ(header.GetRawMetaData(copy.data(), 70000), -1);
  header.set(1, 65535);
  EXPECT_EQ(header.GetRawMetaData(copy.data(), 70000), -1);
}

}  // namespace
