// What libtiff says of our TIFF files.

#include <gtest/gtest.h>
#include <orvacam/imagefiles/CTiffMaker.h>
#include <tiffio.h>

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "imagefiles/ImageFileTesting.h"

namespace {

constexpr unsigned int columns = 120;
constexpr unsigned int rows = 60;

std::vector<std::string>& messages() {
  static std::vector<std::string> all;
  return all;
}

__attribute__((format(printf, 2, 0))) void keepMessage(const char* module, const char* format,
                                                       va_list arguments) {
  char text[512];
  std::vsnprintf(text, sizeof text, format, arguments);
  messages().push_back(std::string(module != nullptr ? module : "") + ": " + text);
}

struct CloseTiff {
  void operator()(TIFF* file) const { TIFFClose(file); }
};
using TiffFile = std::unique_ptr<TIFF, CloseTiff>;

/// A file in each byte order. Pixels are the machine's (little-endian) in both.
class TiffReading : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    messages().clear();
    TIFFSetWarningHandler(keepMessage);
    TIFFSetErrorHandler(keepMessage);
    SettableHeader meta = frameHeader(columns, rows);
    meta.SetPixelEndianFormat(!bigEndian());
    ASSERT_EQ(CTiffMaker().CreateImageFile(path, pixels.data(), meta), 1040);
    file.reset(TIFFOpen(path.c_str(), "rc"));  // "c": strips as they are in the file
    ASSERT_NE(file, nullptr);
  }

  static bool bigEndian() { return GetParam(); }

  template <typename Value>
  Value field(ttag_t tag) {
    Value value{};
    EXPECT_EQ(TIFFGetField(file.get(), tag, &value), 1) << "tag " << tag;
    return value;
  }

  TestFolder directory;
  const std::string path = directory.file("frame.tiff");
  const std::vector<unsigned short> pixels = ramp(std::size_t{columns} * rows);
  TiffFile file;
};

TEST_P(TiffReading, HasTheByteOrderOfItsHeader) {
  EXPECT_EQ(TIFFIsBigEndian(file.get()) != 0, bigEndian());
  EXPECT_EQ(TIFFIsBigTIFF(file.get()), 0);
}

TEST_P(TiffReading, HasEveryTag) {
  EXPECT_EQ(field<uint32_t>(TIFFTAG_SUBFILETYPE), 0U);
  EXPECT_EQ(field<uint32_t>(TIFFTAG_IMAGEWIDTH), columns);
  EXPECT_EQ(field<uint32_t>(TIFFTAG_IMAGELENGTH), rows);
  EXPECT_EQ(field<uint16_t>(TIFFTAG_BITSPERSAMPLE), 16U);
  EXPECT_EQ(field<uint16_t>(TIFFTAG_COMPRESSION), COMPRESSION_NONE);
  EXPECT_EQ(field<uint16_t>(TIFFTAG_PHOTOMETRIC), PHOTOMETRIC_MINISBLACK);
  EXPECT_EQ(field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL), 1U);
  EXPECT_EQ(field<uint32_t>(TIFFTAG_ROWSPERSTRIP), rows);
  EXPECT_EQ(field<uint16_t>(TIFFTAG_RESOLUTIONUNIT), RESUNIT_CENTIMETER);
  EXPECT_FLOAT_EQ(field<float>(TIFFTAG_XRESOLUTION), 100000.0F / 90);
  EXPECT_FLOAT_EQ(field<float>(TIFFTAG_YRESOLUTION), 100000.0F / 45);
  EXPECT_EQ(TIFFNumberOfStrips(file.get()), 1U);
  EXPECT_EQ(TIFFGetStrileOffset(file.get(), 0), 1040U);
  EXPECT_EQ(TIFFGetStrileByteCount(file.get(), 0), columns * rows * 2);
  EXPECT_EQ(TIFFNumberOfDirectories(file.get()), 1U);
}

TEST_P(TiffReading, WarnsOfThePageNumbersSingleValueOnly) {
  ASSERT_EQ(messages().size(), 1U);
  EXPECT_EQ(messages()[0], "TIFFFetchNormalTag: incorrect count for field \"PageNumber\", expected 2, got 1");
}

TEST_P(TiffReading, GivesEveryPixelInTheOrderThatTheHeaderStates) {
  std::vector<unsigned short> read(pixels.size());
  ASSERT_EQ(TIFFReadEncodedStrip(file.get(), 0, read.data(), static_cast<tmsize_t>(2 * read.size())),
            static_cast<tmsize_t>(2 * read.size()));
  for (std::size_t i = 0; i < read.size(); ++i) {
    // The pixels are as in memory, so that a big-endian header makes the reader swap them.
    const unsigned int swapped = (pixels[i] & 255U) << 8 | pixels[i] >> 8;
    ASSERT_EQ(read[i], bigEndian() ? swapped : pixels[i]) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(BothByteOrders, TiffReading, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& tested) {
                           return tested.param ? "BigEndian" : "LittleEndian";
                         });

TEST(TiffReadingWithoutPixelSize, SeesNoResolution) {
  const TestFolder directory;
  const std::string path = directory.file("frame.tiff");
  SettableHeader meta = frameHeader(columns, rows);
  meta.set(43, 0).set(91, 0);  // 100000 / 0
  const std::vector<unsigned short> pixels = ramp(std::size_t{columns} * rows);
  ASSERT_EQ(CTiffMaker().CreateImageFile(path, pixels.data(), meta), 1040);
  TIFFSetWarningHandler(nullptr);
  const TiffFile file(TIFFOpen(path.c_str(), "r"));
  ASSERT_NE(file, nullptr);
  float resolution = -1.0F;
  EXPECT_EQ(TIFFGetField(file.get(), TIFFTAG_XRESOLUTION, &resolution), 1);
  EXPECT_EQ(resolution, 0.0F);
}

}  // namespace
