// What readers of others say of our FITS files: cfitsio, fitsverify and astropy.

#include <fitsio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvacam/imagefiles/CFitsInterface.h>

#include <cstring>
#include <string>
#include <vector>

#include "imagefiles/ImageFileTesting.h"
#include "support/RunProgram.h"

namespace {

using testing::HasSubstr;

constexpr unsigned int width = 120;
constexpr unsigned int height = 60;
constexpr long pixelCount = 120L * 60;
constexpr long missingPixels = 5760 / 2;

/// A file as CreateImageFile leaves it: without its last 5760 bytes.
class ShortFile : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(CFitsInterface().CreateImageFile(path, pixels.data(), frameHeader(width, height)), 0);
  }

  TestFolder directory;
  const std::string path = directory.file("short.fit");
  const std::vector<unsigned short> pixels = ramp(static_cast<std::size_t>(pixelCount));
};

/// A file with all its bytes: an image made in memory, with the fill that ExtraBytes asks for.
class WholeFile : public testing::Test {
 protected:
  void SetUp() override {
    unsigned int header = 0;
    unsigned int trailer = 0;
    CFitsInterface::ExtraBytes(static_cast<unsigned long>(pixelCount), 16, header, trailer);
    std::vector<unsigned short> image((header + trailer) / 2 + pixels.size());
    std::memcpy(image.data() + header / 2, pixels.data(), 2 * pixels.size());
    ASSERT_EQ(CFitsInterface().CreateImageBuffer(image.data(), header, static_cast<unsigned int>(pixelCount),
                                                 frameHeader(width, height), false),
              0);
    fill(path, std::string(reinterpret_cast<char*>(image.data()), 2 * image.size()));
  }

  TestFolder directory;
  const std::string path = directory.file("whole.fit");
  const std::vector<unsigned short> pixels = ramp(static_cast<std::size_t>(pixelCount));
};

/// A file opened with cfitsio.
class Reader {
 public:
  explicit Reader(const std::string& path) {
    fits_open_diskfile(&m_file, path.c_str(), READONLY, &m_status);
    EXPECT_EQ(m_status, 0);
  }
  ~Reader() {
    int ignored = 0;
    fits_close_file(m_file, &ignored);
    fits_clear_errmsg();
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  std::string text(const char* keyword) {
    char value[FLEN_VALUE] = "";
    fits_read_key(m_file, TSTRING, keyword, value, nullptr, &m_status);
    EXPECT_EQ(m_status, 0) << keyword;
    return value;
  }
  double number(const char* keyword) {
    double value = 0.0;
    fits_read_key(m_file, TDOUBLE, keyword, &value, nullptr, &m_status);
    EXPECT_EQ(m_status, 0) << keyword;
    return value;
  }
  std::string comment(const char* keyword) {
    char value[FLEN_VALUE] = "";
    char comment[FLEN_COMMENT] = "";
    fits_read_keyword(m_file, keyword, value, comment, &m_status);
    EXPECT_EQ(m_status, 0) << keyword;
    return comment;
  }
  int keywords() {
    int count = 0;
    fits_get_hdrspace(m_file, &count, nullptr, &m_status);
    EXPECT_EQ(m_status, 0);
    return count;
  }
  int imageType() {
    int type = 0;
    fits_get_img_equivtype(m_file, &type, &m_status);
    EXPECT_EQ(m_status, 0);
    return type;
  }
  void unscaled() {
    fits_set_bscale(m_file, 1.0, 0.0, &m_status);
    EXPECT_EQ(m_status, 0);
  }
  /// The status of reading some pixels from a position on.
  template <typename Pixel>
  int read(int type, long first, long count, std::vector<Pixel>& values) {
    long position[2] = {first % long{width} + 1, first / long{width} + 1};
    values.assign(static_cast<std::size_t>(count), 0);
    int status = 0;
    fits_read_pix(m_file, type, position, count, nullptr, values.data(), nullptr, &status);
    return status;
  }

 private:
  fitsfile* m_file = nullptr;
  int m_status = 0;
};

// ---- cfitsio

TEST_F(ShortFile, HasKeywordsThatCfitsioReads) {
  Reader reader(path);
  EXPECT_EQ(reader.keywords(), 61);  // 59 values and 2 comments; the end is not counted
  EXPECT_EQ(reader.number("BITPIX"), 16);
  EXPECT_EQ(reader.number("NAXIS1"), width);
  EXPECT_EQ(reader.number("NAXIS2"), height);
  EXPECT_EQ(reader.number("BZERO"), 32768.0);
  EXPECT_EQ(reader.number("BSCALE"), 1.0);
  EXPECT_EQ(reader.text("INSTRUME"), "VESTRA VS4040");
  EXPECT_EQ(reader.text("SERIAL"), "SN-0042");
  EXPECT_EQ(reader.text("VERAPI"), "Created By liborvacam 2.1.4");
  EXPECT_EQ(reader.text("DATE-OBS"), "2024-02-29T01:02:03.004005006");
  EXPECT_EQ(reader.number("SENSTEMP"), -25.3);
  EXPECT_EQ(reader.number("ILLSTRDL"), -45);
  EXPECT_EQ(reader.number("SHUTCLDL"), -76);
  EXPECT_EQ(reader.number("FRAMENUM"), 321);
  EXPECT_EQ(reader.number("GAINLOW"), 2.0);
  EXPECT_EQ(reader.number("GEO_LAT"), 50.0);
  EXPECT_EQ(reader.number("GEO_LONG"), -50.0);
  EXPECT_EQ(reader.number("TRKSTPRW"), 0);
  EXPECT_EQ(reader.comment("EXPTIME"), "Duration of exposure in 10us periods");
  EXPECT_EQ(reader.comment("GEO_LONG"), "[deg] Geocentric longitude");
}

TEST_F(ShortFile, IsAnImageOfUnsignedPixelsForCfitsio) {
  EXPECT_EQ(Reader(path).imageType(), USHORT_IMG);
}

TEST_F(ShortFile, GivesCfitsioThePixelsBeforeTheMissingBytes) {
  Reader reader(path);
  std::vector<unsigned short> values;
  ASSERT_EQ(reader.read(TUSHORT, 0, pixelCount - missingPixels, values), 0);
  for (std::size_t i = 0; i < values.size(); ++i)
    ASSERT_EQ(values[i], static_cast<unsigned short>(pixels[i] + 32768)) << i;
}

TEST_F(ShortFile, EndsForCfitsioAtTheMissingBytes) {
  Reader reader(path);
  std::vector<unsigned short> values;
  EXPECT_EQ(reader.read(TUSHORT, pixelCount - missingPixels - 1, 1, values), 0);
  const int behind = reader.read(TUSHORT, pixelCount - missingPixels, 1, values);
  EXPECT_TRUE(behind == END_OF_FILE || behind == READ_ERROR) << behind;
  const int all = reader.read(TUSHORT, 0, pixelCount, values);
  EXPECT_TRUE(all == END_OF_FILE || all == READ_ERROR) << all;
}

TEST_F(WholeFile, GivesCfitsioEveryPixelPlus32768) {
  Reader reader(path);
  std::vector<unsigned short> values;
  ASSERT_EQ(reader.read(TUSHORT, 0, pixelCount, values), 0);
  for (std::size_t i = 0; i < values.size(); ++i)
    ASSERT_EQ(values[i], static_cast<unsigned short>(pixels[i] + 32768)) << i;
}

TEST_F(WholeFile, GivesCfitsioThePixelsAsTheyAreWhereBzeroIsNotApplied) {
  Reader reader(path);
  reader.unscaled();
  std::vector<short> values;
  ASSERT_EQ(reader.read(TSHORT, 0, pixelCount, values), 0);
  for (std::size_t i = 0; i < values.size(); ++i)
    ASSERT_EQ(static_cast<unsigned short>(values[i]), pixels[i]) << i;
}

// ---- fitsverify

/// The lines in which fitsverify complains.
std::vector<std::string> complaintsAbout(const std::string& path) {
  std::vector<std::string> complaints;
  const Ran ran = runProgram(ORVACAM_FITSVERIFY, ".", {"-e", path});
  const std::string output = ran.out + ran.err;
  for (std::size_t at = output.find("*** "); at != output.npos; at = output.find("*** ", at + 1)) {
    const std::string line = output.substr(at, output.find('\n', at) - at);
    if (line.find("Error:") != line.npos || line.find("Warning:") != line.npos) complaints.push_back(line);
  }
  return complaints;
}

/// The values of the five mandatory keywords start in column 11, where the standard wants them right-aligned
/// in column 30.
std::vector<testing::Matcher<std::string>> freeFormats() {
  std::vector<testing::Matcher<std::string>> complaints;
  for (const auto& [keyword, type] :
       {std::pair("SIMPLE", "logical"), std::pair("BITPIX", "integer"), std::pair("NAXIS ", "integer"),
        std::pair("NAXIS1", "integer"), std::pair("NAXIS2", "integer")})
    complaints.push_back(testing::AllOf(
        HasSubstr(keyword), HasSubstr(std::string("mandatory keyword is not in ") + type + " fixed format")));
  return complaints;
}

TEST_F(WholeFile, HasMandatoryKeywordsInFreeFormatForFitsverify) {
  EXPECT_THAT(complaintsAbout(path), testing::UnorderedElementsAreArray(freeFormats()));
}

TEST_F(ShortFile, AlsoLacksItsLastByteForFitsverify) {
  auto expected = freeFormats();
  // Header, pixels and fill would be 5760 + 14400 bytes, which is a whole number of blocks.
  expected.push_back(HasSubstr("Error trying to read last byte of the file at byte 20160"));
  EXPECT_THAT(complaintsAbout(path), testing::UnorderedElementsAreArray(expected));
}

// ---- astropy

Ran readWithAstropy(const std::string& kind, const std::string& path) {
  return runProgram(ORVACAM_PYTHON, ".",
                    {ORVACAM_ASTROPY_READER, kind, path, std::to_string(width), std::to_string(height)});
}

TEST_F(WholeFile, IsReadByAstropyWithEveryPixelPlus32768) {
  const Ran ran = readWithAstropy("whole", path);
  EXPECT_EQ(ran.exitCode, 0) << ran.out << ran.err;
}

TEST_F(ShortFile, HasAHeaderForAstropyAndTooFewPixels) {
  const Ran ran = readWithAstropy("short", path);
  EXPECT_EQ(ran.exitCode, 0) << ran.out << ran.err;
}

TEST_F(ShortFile, IsNotTakenForAWholeOneByTheAstropyScript) {
  EXPECT_NE(readWithAstropy("whole", path).exitCode, 0);
}

}  // namespace
