// The grammar of FITS header cards and what their keywords mean as metadata.

#include "metadata/FitsCards.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "metadata/KeyNames.h"
#include "metadata/SettableHeader.h"

namespace {

using namespace orvacam::fits;

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

/// A card: the text, filled with blanks up to 80 characters.
std::string card(std::string text) {
  text.resize(80, ' ');
  return text;
}

struct Parsed {
  int status;
  std::string keyword;
  std::string value;
  bool operator==(const Parsed& other) const {
    return status == other.status && keyword == other.keyword && value == other.value;
  }
};
std::ostream& operator<<(std::ostream& stream, const Parsed& parsed) {
  return stream << parsed.status << " '" << parsed.keyword << "' '" << parsed.value << "'";
}

Parsed parse(const std::string& text) {
  Parsed parsed{0, "before", "before"};
  const std::string whole = card(text);
  parsed.status = parseNextKey(bytesOf(whole), whole.size(), parsed.keyword, parsed.value);
  return parsed;
}

int parseHeader(const std::string& header, CFrameMetaData& meta, bool& end) {
  return parseMetaData(bytesOf(header), static_cast<unsigned int>(header.size()), meta, end);
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using Stream = std::unique_ptr<std::FILE, CloseFile>;

Stream streamOf(const std::string& content) {
  Stream stream(std::tmpfile());
  std::fwrite(content.data(), 1, content.size(), stream.get());
  return stream;
}

// ---- Recognition

TEST(FitsFrame, StartsWithSimpleWhateverTheCase) {
  for (const char* start : {"SIMPLE", "simple  = T", "SiMpLe="})
    EXPECT_TRUE(isFitsFrame(reinterpret_cast<const unsigned char*>(start), std::strlen(start))) << start;
  for (const char* start : {"", "SIMPL", "SIMPLX", "Meta12"})
    EXPECT_FALSE(isFitsFrame(reinterpret_cast<const unsigned char*>(start), std::strlen(start))) << start;
  EXPECT_FALSE(isFitsFrame(bytesOf("SIMPLE"), 5));
  EXPECT_FALSE(isFitsFrame(nullptr, 6));
}

TEST(FitsFrame, IsRecognisedInEveryLocale) {
  const ScopedLocale turkish("tr_TR.UTF-8");  // where "i" and "I" are two letters
  EXPECT_TRUE(isFitsFrame(bytesOf("simple"), 6));
  EXPECT_EQ(findKeyIndex("simple"), 100);
}

// ---- One card

TEST(FitsCard, HasAKeywordAndAValue) {
  EXPECT_EQ(parse("EXPTIME = 1200 / Duration"), (Parsed{0, "EXPTIME", "1200"}));
  EXPECT_EQ(parse("XBINNING= 2"), (Parsed{0, "XBINNING", "2"}));
  EXPECT_EQ(parse("BZERO=32768.0"), (Parsed{0, "BZERO", "32768.0"}));
  EXPECT_EQ(parse("SIMPLE  =                    T / conforms"), (Parsed{0, "SIMPLE", "T"}));
}

TEST(FitsCard, EndsAnUnquotedValueAtTheFirstBlankOrSlash) {
  EXPECT_EQ(parse("A       = 12/comment"), (Parsed{0, "A", "12"}));
  EXPECT_EQ(parse("A       = 12 34"), (Parsed{0, "A", "12"}));
  EXPECT_EQ(parse("A       = /comment"), (Parsed{0, "A", ""}));
  EXPECT_EQ(parse("A       ="), (Parsed{0, "A", ""}));
  EXPECT_EQ(parse("A       = " + std::string(70, '7')), (Parsed{0, "A", std::string(70, '7')}));
}

TEST(FitsCard, RunsAQuotedValueToTheNextQuote) {
  EXPECT_EQ(parse("INSTRUME= 'VESTRA VS4040  ' / Camera"), (Parsed{0, "INSTRUME", "VESTRA VS4040  "}));
  EXPECT_EQ(parse("INSTRUME= ''"), (Parsed{0, "INSTRUME", ""}));
  EXPECT_EQ(parse("INSTRUME= 'It''s'"), (Parsed{0, "INSTRUME", "It"}));
  EXPECT_EQ(parse("INSTRUME= '" + std::string(69, 'q')), (Parsed{0, "INSTRUME", std::string(69, 'q')}));
}

TEST(FitsCard, EndsAQuotedValueAtASlashInsideIt) {
  EXPECT_EQ(parse("SERIAL  = 'A/B' / serial"), (Parsed{0, "SERIAL", "A"}));
}

TEST(FitsCard, CutsAKeywordAtEightCharacters) {
  // The ninth character then stands where "=" is expected.
  EXPECT_EQ(parse("LONGKEYWORD= 1"), (Parsed{-1, "LONGKEYW", ""}));
  EXPECT_EQ(parse("EIGHTLET= 1"), (Parsed{0, "EIGHTLET", "1"}));
}

TEST(FitsCard, OfAKeywordWithoutAnEqualsSignFails) {
  EXPECT_EQ(parse("HISTORY calibrated"), (Parsed{-1, "HISTORY", ""}));
}

TEST(FitsCard, OfACommentOrWithNothingBehindTheKeywordIsNoFailure) {
  EXPECT_EQ(parse("COMMENT   any = 'text'"), (Parsed{0, "COMMENT", ""}));
  EXPECT_EQ(parse("END"), (Parsed{0, "END", ""}));
  EXPECT_EQ(parse(""), (Parsed{0, "", ""}));
}

TEST(FitsCard, WithLeadingBlanksHasAnEmptyKeyword) {
  EXPECT_EQ(parse("  = 5"), (Parsed{0, "", "5"}));
  EXPECT_EQ(parse("  KEY = 5"), (Parsed{-1, "", ""}));
}

TEST(FitsCard, NeedsEightyBytes) {
  const std::string text = card("A       = 1");
  std::string keyword = "before";
  std::string value = "before";
  EXPECT_EQ(parseNextKey(bytesOf(text), 79, keyword, value), -1);
  EXPECT_EQ(keyword + value, "");
  EXPECT_EQ(parseNextKey(nullptr, 80, keyword, value), -1);
  EXPECT_EQ(parseNextKey(bytesOf(text), 80, keyword, value), 0);
}

TEST(FitsCard, OfMoreThanEightyBytesIsReadUpToTheEightieth) {
  const std::string text = card("A       = " + std::string(70, '1')) + "22";
  std::string keyword;
  std::string value;
  EXPECT_EQ(parseNextKey(bytesOf(text), text.size(), keyword, value), 0);
  EXPECT_EQ(value, std::string(70, '1'));
}

// ---- Keywords

TEST(FitsKeywords, StandAtTheirMetadataKeys) {
  const char* const expected[] = {
      "MAGIC",    "MDLENGTH", "MDVER",    "BKSDILL",  "BASETEMP", "XBINNING", "YBINNING", "BLKLVLAD",
      "BLKLVLSN", "BLKHAD",   "BLKHN",    "INSTRUME", "DATE-OBS", "TIMS-OBS", "TIMN-OBS", "CCD-TEMP",
      "COOLDUTY", "CTLBLK1",  "CMS",      "DPIXDEP",  "DZPOINT",  "DEADPXCR", "EXPTIME",  "DATE",
      "FPGATEMP", "FRAMENUM", "GAINLOW",  "GAINGLOB", "GAINHIGH", "GEO_LAT",  "GLATDEG",  "GLATMIN",
      "GLATDIR",  "GEO_LONG", "GLONGDEG", "GLONGMIN", "GLONGDIR", "GBLRESET", "GPS_ERR",  "GPS_LOCK",
      "HDR-MODE", "H_ADUE",   "HPIXELS",  "HPIXSIZE", "HRZDIRIN", "ILLSTRDL", "ILLSTPDL", "IMGHGT",
      "CAM-MODE", "IMGSTACL", "IMGSTARW", "IMGSTPCL", "IMGSTPRW", "IMGSTERW", "IMGTYPE",  "IMGWIDTH",
      "ISHIFRM",  "ISHIONLY", "ISMRGFRM", "ISSFTBIN", "ISSTKFRM", "LOWDARK",  "LOWNOISE", "MERGE_GR",
      "MERGE_LO", "NONRWALL", "NUMDTCH",  "PXLORDIM", "PSTREFRW", "PREREFRW", "RFPXLPRW", "PRFPXPRW",
      "SNRPXLDP", "SENSRDQ",  "SENSTEMP", "SERIAL",   "SHUTCLDL", "SHUTOPDL", "TEMPSETP", "TSTLGA",
      "TSTHGA",   "TRKFRMPR", "TRKSTRCL", "TRKSTRRW", "TRKSTPCL", "TRKSTPRW", "USSFTAVE", "VERAPI",
      "VERSAPP",  "VERFIRM",  "VPIXELS",  "VPIXSIZE", "VRTDIRIN", "V4OFF",    "V4INFO",   "V4PIXFMT",
      "V4OTYPE",  "V4OLEN",   "V4OOFF",   "V4RES",    "SIMPLE",   "BITPIX",   "NAXIS",    "EXTEND",
      "COMMENT",  "NAXIS",    "NAXIS1",   "NAXIS2",   "BZERO",    "BSCALE",   "XORGSUBF", "YORGSUBF",
      "END"};
  ASSERT_EQ(sizeof expected / sizeof expected[0], 113U);
  for (int i = 0; i < 113; ++i) {
    EXPECT_EQ(keywords[i].name, expected[i]) << i;
    // The first of two entries of one name is found.
    EXPECT_EQ(findKeyIndex(expected[i]), i == 105 ? 102 : i) << expected[i];
  }
}

TEST(FitsKeywords, AreFoundWhateverTheCaseButOnlyWhole) {
  EXPECT_EQ(findKeyIndex("expTime"), 22);
  for (const char* keyword : {"", "EXP", "EXPTIMES", "EXPTIME ", "NAXIS3"})
    EXPECT_EQ(findKeyIndex(keyword), -1) << keyword;
}

TEST(FitsKeywords, HaveTheirDescriptions) {
  EXPECT_STREQ(keywords[0].description, "Magic Number");
  EXPECT_STREQ(keywords[1].description, "Meta Data Length");
  EXPECT_STREQ(keywords[110].description, "Subframe origin on X axis");
  EXPECT_STREQ(keywords[112].description, "End");
}

TEST(FitsValues, BecomeMetadata) {
  CFrameMetaData meta;
  processKeyValue("exptime", "1200", meta);
  processKeyValue("INSTRUME", "VESTRA VS4040", meta);
  processKeyValue("SENSTEMP", "-10.500000", meta);
  processKeyValue("DATE-OBS", "2024-01-02T03:04:05.000000006", meta);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_EXPOSURE_TIME).GetValueUint(), 1200U);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_SENSOR_CHIP_TEMP).GetValueDouble(), -10.5);
  EXPECT_TRUE(meta.Value(ORVA_META_KEY_CAMERA_MODEL).IsEqual("VESTRA VS4040", 13));
  EXPECT_EQ(meta.Value(ORVA_META_KEY_CAPTURE_DATE).GetValueUint(), 2024U << 16 | 1 << 8 | 2);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_CAPTURE_TIME).GetValueUint(), 11045U);
}

TEST(FitsValues, OfUnknownAndOfFormatKeywordsAreIgnored) {
  CFrameMetaData meta;
  CFrameMetaData untouched;
  for (const char* keyword : {"NAXIS", "SIMPLE", "BZERO", "XORGSUBF", "NOSUCH", ""})
    processKeyValue(keyword, "1234", meta);
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT; ++key)
    EXPECT_EQ(meta.Value(ORVA_META_KEYS(key)).GetValueDouble(),
              untouched.Value(ORVA_META_KEYS(key)).GetValueDouble());
}

TEST(FitsValues, DoNotFollowTheLocale) {
  const ScopedLocale german("de_DE.UTF-8");
  CFrameMetaData meta;
  processKeyValue("GLATMIN", "8.25", meta);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_GPS_LATITUDE_MINUTES).GetValueDouble(), 8.25);
}

// ---- Headers

TEST(FitsHeader, IsReadUpToItsEnd) {
  CFrameMetaData meta;
  bool end = false;
  EXPECT_EQ(
      parseHeader(card("SIMPLE  = T") + card("FRAMENUM= 7") + card("end") + card("FRAMENUM= 8"), meta, end),
      0);
  EXPECT_TRUE(end);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 7U);
}

TEST(FitsHeader, TakesAnyKeywordThatBeginsWithEndForTheEnd) {
  CFrameMetaData meta;
  bool end = false;
  EXPECT_EQ(parseHeader(card("ENDING  = 1"), meta, end), 0);
  EXPECT_TRUE(end);
}

TEST(FitsHeader, StopsAtACardThatDoesNotParse) {
  CFrameMetaData meta;
  bool end = true;
  EXPECT_EQ(
      parseHeader(card("FRAMENUM= 7") + card("HISTORY x") + card("FRAMENUM= 8") + card("END"), meta, end),
      -1);
  EXPECT_FALSE(end);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 7U);
}

TEST(FitsHeader, OfABufferWithoutEndYieldsTheLastCardsResult) {
  CFrameMetaData meta;
  bool end = true;
  EXPECT_EQ(parseHeader(card("FRAMENUM= 7") + "FRAMENUM= 8", meta, end), 0);
  EXPECT_FALSE(end);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 7U);
}

TEST(FitsHeader, OfABufferWithoutAWholeCardFails) {
  CFrameMetaData meta;
  bool end = true;
  EXPECT_EQ(parseHeader("FRAMENUM= 7", meta, end), -1);
  EXPECT_FALSE(end);
  EXPECT_EQ(parseMetaData(nullptr, 800, meta, end), -1);
}

TEST(FitsHeader, OfAStreamGoesOnInTheNextBlock) {
  std::string header = card("SIMPLE  = T");
  for (int i = 1; i < 36; ++i)
    header += card("COMMENT");
  ASSERT_EQ(header.size(), 2880U);
  const Stream stream = streamOf(header + card("FRAMENUM= 9") + card("END"));
  std::fseek(stream.get(), 100, SEEK_SET);  // it is read from its start all the same
  CFrameMetaData meta;
  EXPECT_EQ(parseMetaData(stream.get(), meta), 0);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 9U);
}

TEST(FitsHeader, OfAStreamWithoutEndFailsAndKeepsWhatWasRead) {
  for (const int blanks : {0, 35, 36, 71}) {
    std::string header = card("FRAMENUM= 9");
    for (int i = 0; i < blanks; ++i)
      header += card("");
    CFrameMetaData meta;
    EXPECT_EQ(parseMetaData(streamOf(header).get(), meta), -1) << blanks;
    EXPECT_EQ(meta.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 9U);
  }
}

TEST(FitsHeader, OfAnEmptyUnseekableOrMissingStreamFails) {
  CFrameMetaData meta;
  EXPECT_EQ(parseMetaData(nullptr, meta), -1);
  EXPECT_EQ(parseMetaData(streamOf("").get(), meta), -1);
  std::FILE* const pipe = popen("echo SIMPLE", "r");
  ASSERT_NE(pipe, nullptr);
  EXPECT_EQ(parseMetaData(pipe, meta), -1);
  pclose(pipe);
}

TEST(FitsHeader, OfAStreamStopsInTheBlockThatFails) {
  std::string header = card("HISTORY x");
  for (int i = 1; i < 36; ++i)
    header += card("");
  CFrameMetaData meta;
  EXPECT_EQ(parseMetaData(streamOf(header + card("FRAMENUM= 9") + card("END")).get(), meta), -1);
  EXPECT_EQ(meta.Value(ORVA_META_KEY_FRAME_NUMBER).GetValueUint(), 0U);
}

TEST(FitsHeader, OfAnyBytesIsReadWithinItsBounds) {
  constexpr unsigned int seed = 20240229;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const char characters[] = "SIMPLENDXY=/' 0123456789.eE-\0\xFF";
  for (int round = 0; round < 2000; ++round) {
    std::vector<unsigned char> bytes(random() % 400);
    for (unsigned char& byte : bytes)
      byte = static_cast<unsigned char>(characters[random() % (sizeof characters - 1)]);
    CFrameMetaData meta;
    bool end = false;
    const int result = parseMetaData(bytes.data(), static_cast<unsigned int>(bytes.size()), meta, end);
    EXPECT_TRUE(result == 0 || result == -1);
    EXPECT_TRUE(bytes.size() >= 80 || result == -1);
  }
}

}  // namespace
