// FITS files, held to CFITSIO's own reading and to its checksums.

#include <gtest/gtest.h>

#include "TestFolder.h"
#include "files/FitsReader.h"
#include "files/FitsWriter.h"
#include "support/ReadImages.h"

namespace {

using namespace orvacam::files;

struct FitsFiles : ::testing::Test {
  static std::vector<std::uint16_t> pixelsOf(std::uint32_t width, std::uint32_t height) {
    std::vector<std::uint16_t> pixels;
    for (std::uint32_t i = 0; i < width * height; ++i)
      pixels.push_back(static_cast<std::uint16_t>(i * 40503u + 12345u));
    return pixels;
  }
  std::string write(const FitsFile& file) {
    const auto* const bytes = static_cast<const unsigned char*>(file.data());
    folder.write("a.fits", std::vector<unsigned char>(bytes, bytes + file.size()));
    return folder.file("a.fits");
  }
  /// 1 where both sums of a unit are right.
  static int sums(const std::string& path, int unit) {
    int status = 0, data = 0, whole = 0;
    fitsfile* file = nullptr;
    fits_open_diskfile(&file, path.c_str(), READONLY, &status);
    fits_movabs_hdu(file, unit, nullptr, &status);
    fits_verify_chksum(file, &data, &whole, &status);
    fits_close_file(file, &status);
    return status == 0 && data == 1 && whole == 1 ? 1 : 0;
  }
  TestFolder folder;
};

TEST_F(FitsFiles, HoldPixelsOfEverySizeWithRightSums) {
  for (const auto& [width, height] : {std::pair(1u, 1u), std::pair(32u, 32u), std::pair(7u, 5u),
                                      std::pair(1440u, 1u), std::pair(70001u, 2u), std::pair(1000u, 1001u)}) {
    const auto pixels = pixelsOf(width, height);
    const std::string path = write(FitsFile({{{}, {{width, height}, Raster::U16, pixels.data()}}}, {}));
    EXPECT_EQ(read_images::fitsPixels(path), pixels) << width << " x " << height;
    EXPECT_EQ(sums(path, 1), 1) << width << " x " << height;
    EXPECT_EQ(folder.read("a.fits").size() % 2880, 0u);
  }
}

TEST_F(FitsFiles, HoldImagesAsExtensions) {
  const auto pixels = pixelsOf(40, 30);
  std::vector<float> fractions(pixels.begin(), pixels.end());
  for (float& value : fractions)
    value /= 7;
  const std::vector<Card> cards = {{"EXTNAME", std::string("ONE"), ""},
                                   {"HISTORY", std::string(150, 'h'), ""}};
  const std::string path = write(FitsFile(
      {{cards, {{40, 30}, Raster::U16, pixels.data()}}, {{}, {{40, 30}, Raster::F32, fractions.data()}}},
      {true, false, {{"EXPTIME", 1.5, "[s] exposure"}}}));
  EXPECT_EQ(read_images::fitsPixels(path, 2), pixels);
  EXPECT_EQ(read_images::fitsPixels<float>(path, 3), fractions);
  for (const int unit : {1, 2, 3})
    EXPECT_EQ(sums(path, unit), 1) << unit;
  const auto units = readFitsUnits(path);
  ASSERT_EQ(units.size(), 3u);
  EXPECT_EQ(units[0].number("EXPTIME", 0), 1.5);
  EXPECT_EQ(units[1].text("EXTNAME"), "ONE");
  EXPECT_EQ(units[2].number("BITPIX", 0), -32);
}

TEST_F(FitsFiles, AreCompressedWithRightSums) {
  const auto pixels = pixelsOf(300, 200);  // noise: nothing can be saved
  const std::string path =
      write(FitsFile({{{}, {{300, 200}, Raster::U16, pixels.data()}}}, {false, true, {}}));
  EXPECT_EQ(read_images::fitsPixels(path, 2), pixels);
  EXPECT_EQ(sums(path, 2), 1);
}

TEST_F(FitsFiles, HoldTextsWithQuotes) {
  const auto pixels = pixelsOf(4, 4);
  const std::vector<Card> cards = {{"SERIAL", std::string("it's 'so'"), ""},
                                   {"INSTRUME", std::string(40, '\''), ""},
                                   {"FLAG", true, ""},
                                   {"COUNT", std::int64_t{-7}, ""}};
  const std::string path = write(FitsFile({{cards, {{4, 4}, Raster::U16, pixels.data()}}}, {}));
  const FitsUnit unit = readFitsUnits(path).front();
  EXPECT_EQ(unit.text("SERIAL"), "it's 'so'");
  EXPECT_EQ(std::get<bool>(*unit.find("FLAG")), true);
  EXPECT_EQ(unit.number("COUNT", 0), -7);
}

TEST(FitsCards, AreReadAsTheyStand) {
  const auto read = [](std::string text) {
    text.resize(80, ' ');
    return cardOf(text);
  };
  EXPECT_EQ(std::get<std::int64_t>(read("NAXIS1  =                 2048 / width")->value), 2048);
  EXPECT_EQ(read("NAXIS1  =                 2048 / width")->comment, "width");
  EXPECT_EQ(std::get<double>(read("EXPTIME =              1.5D-02")->value), 0.015);
  EXPECT_EQ(std::get<std::string>(read("A       = 'it''s / here  ' / c")->value), "it's / here");
  EXPECT_EQ(std::get<std::string>(read("A       = 'open")->value), "open");
  for (const char* none : {"", "END", "COMMENT text", "A       =", "A       = / comment", "A 5"})
    EXPECT_FALSE(read(none).has_value()) << none;
}

TEST_F(FitsFiles, ThatAreNoneAreRefused) {
  folder.write("short", {'S', 'I', 'M', 'P', 'L', 'E'});
  EXPECT_THROW(readFitsUnits(folder.file("short")), std::runtime_error);
  EXPECT_THROW(readFitsUnits(folder.file("none")), std::runtime_error);
  folder.write("blank", std::vector<unsigned char>(28800, ' '));
  EXPECT_THROW(readFitsUnits(folder.file("blank")), std::runtime_error);
  std::string huge = "SIMPLE  =                    T";
  huge.resize(80, ' ');
  for (const char* card : {"BITPIX  =                   16", "NAXIS   =                    2",
                           "NAXIS1  =           4294967296", "NAXIS2  =           4294967296", "END"}) {
    huge += card;
    huge.resize((huge.size() + 79) / 80 * 80, ' ');
  }
  huge.resize(2880, ' ');
  folder.write("huge", std::vector<unsigned char>(huge.begin(), huge.end()));
  EXPECT_EQ(readFitsUnits(folder.file("huge")).size(), 1u);
}

TEST_F(FitsFiles, GiveLongTextsBackWhole) {
  // Longer than a card: CONTINUE cards hold the rest. Quotes stand twice in them.
  const std::vector<std::uint16_t> pixels(4);
  const std::string longText = std::string(60, 'a') + std::string(40, '\'') + "& b & " + std::string(60, 'c');
  const std::vector<Card> cards = {{"INSTRUME", longText, "camera"},
                                   {"SERIAL", std::string("ends in &"), ""},
                                   {"FRAMENUM", std::int64_t{7}, ""}};
  const FitsUnit unit =
      readFitsUnits(write(FitsFile({{cards, {{2, 2}, Raster::U16, pixels.data()}}}, {}))).front();
  EXPECT_EQ(unit.text("INSTRUME"), longText);
  EXPECT_EQ(unit.text("SERIAL"), "ends in &");
  EXPECT_EQ(unit.number("FRAMENUM", 0), 7);
}

}  // namespace
