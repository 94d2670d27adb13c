// What files say, against frames whose headers are known.

#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <sstream>

#include "files/KeywordTable.h"
#include "simulator/Scene.h"

namespace {

using namespace orvacam::files;
namespace sim = orvacam::simulator;
using ::testing::HasSubstr;

orvacam::Header headerOf(const sim::HeaderFields& fields, unsigned int version = 3) {
  const std::vector<unsigned char> bytes = sim::writeHeader(fields, version);
  return orvacam::Header::parse(bytes.data(), bytes.size());
}

sim::HeaderFields usualFields(const char* camera, const char* mode) {
  return sim::headerFor(*sim::findCamera(camera), mode).value();
}

std::map<std::string, Value> valuesOf(const Subject& subject) {
  std::map<std::string, Value> values;
  for (const Card& card : cardsOf(subject))
    values[card.keyword] = card.value;
  return values;
}

TEST(Keywords, AreThoseOfThePage) {
  std::ifstream file(ORVACAM_KEYWORDS_PAGE);
  std::ostringstream page;
  page << file.rdbuf();
  EXPECT_EQ(page.str(), keywordsPage()) << "orvacam_keywords > docs/keywords.md";
}

TEST(Keywords, FitTheirCardsAndStandOnce) {
  std::map<std::string, int> seen;
  for (const Keyword& row : keywords()) {
    EXPECT_LE(std::string(row.name).size(), 8u) << row.name;
    EXPECT_EQ(++seen[row.name], 1) << row.name;
    EXPECT_LE(std::string(row.unit).size() + std::string(row.meaning).size() + 3, 53u) << row.name;
  }
}

TEST(Keywords, ComeFromTheVersionsThatCarryThem) {
  // The face knows which header version brought a value.
  for (const Keyword& row : keywords())
    for (const orvacam::Key& key : orvacam::keys())
      if (key.name == row.source)
        EXPECT_EQ(static_cast<int>(row.since), std::max(1, key.first_version)) << row.name;
}

TEST(Keywords, OfALargestReferenceRegionTakeTheFirstOfEqualOnes) {
  Subject subject = subjectOf(headerOf(usualFields("GENERIC", "single")), "image");
  subject.size = {12, 14};
  subject.image = {1, 2, 10, 10};  // 2 rows ahead (24), 2 behind (24), 1 pixel (10) on either side
  EXPECT_EQ(std::get<std::string>(valuesOf(subject).at("BIASSEC")), "[1:12,1:2]");
  subject.image = {1, 1, 8, 12};  // 12 pixels, 12, 12, 3 x 12
  EXPECT_EQ(std::get<std::string>(valuesOf(subject).at("BIASSEC")), "[10:12,2:13]");
}

TEST(Keywords, SaturateWhereThePlaneEnds) {
  sim::HeaderFields fields = usualFields("GENERIC", "single");
  Subject single = subjectOf(headerOf(fields), "image");
  EXPECT_EQ(single.saturation(), 65535);
  Subject merged = subjectOf(headerOf(usualFields("GSENSE400", "hdr")), "merged");
  merged.merge = MergeFacts{6.5, false, 3700, 128, 0};
  EXPECT_EQ(merged.saturation(), 26618);  // 4095 x 6.5 = 26617.5
  merged.bias = 20;
  EXPECT_EQ(merged.saturation(), 26488);  // 4075 x 6.5 = 26487.5
  merged.merge->ratio = 22.8;
  EXPECT_EQ(merged.saturation(), 65535);
  merged.stack = StackFacts{true, 3, 3, {}, {}};
  EXPECT_EQ(merged.saturation(), 3 * 65535);
  Subject low = subjectOf(headerOf(usualFields("GSENSE400", "hdr")), "low");
  low.bias = 20.5;
  EXPECT_EQ(std::get<double>(valuesOf(low).at("SATURATE")), 4074.5);
}

TEST(Keywords, NameTheClockBehindTheTime) {
  std::vector<unsigned char> bytes = sim::writeHeader(usualFields("GENERIC", "single"), 3);
  const auto clock = [&](const std::string& text) {
    std::fill(bytes.begin() + 152, bytes.begin() + 182, 0);
    std::copy(text.begin(), text.end(), bytes.begin() + 152);
    return valuesOf(subjectOf(orvacam::Header::parse(bytes.data(), bytes.size()), "image"));
  };
  EXPECT_EQ(std::get<std::string>(clock("2024/05/17 21:04:33.123456789").at("TIMESRC")), "GPS");
  const auto camera = clock("2024/05/17 21:04:33.123 NOGPS");
  EXPECT_EQ(std::get<std::string>(camera.at("TIMESRC")), "CAMERA");
  EXPECT_EQ(std::get<std::string>(camera.at("DATE-OBS")), "2024-05-17T21:04:33.123000000");
  const auto none = clock("2024/02/30 21:04:33.123456789");
  for (const char* key : {"TIMESRC", "DATE-OBS", "TIMESYS"})
    EXPECT_EQ(none.count(key), 0u) << key;
}

TEST(Keywords, OfTextsAreAscii) {
  sim::HeaderFields fields = usualFields("GENERIC", "single");
  fields.serial = "S'1\x02\xC3\xA4";
  const Subject subject = subjectOf(headerOf(fields), "image");
  const std::string serial = std::get<std::string>(valuesOf(subject).at("SERIAL"));
  EXPECT_EQ(serial, std::string("S'1") +
                        "?"
                        "?"
                        "?");
  EXPECT_THAT(descriptionOf(headerOf(fields), cardsOf(subject)), HasSubstr("\"SERIAL\": \"S'1?"
                                                                           "?"
                                                                           "?\""));
  for (const char c : descriptionOf(headerOf(fields), cardsOf(subject)))
    ASSERT_LT(static_cast<unsigned char>(c), 0x7F);
}

TEST(Keywords, OfColdSensorsAreNegativeInEveryVersion) {
  sim::HeaderFields fields = usualFields("GENERIC", "single");
  fields.chipTemperature = -401, fields.coolerTemperature = -55;
  for (unsigned int version = 1; version <= 4; ++version) {
    const auto values = valuesOf(subjectOf(headerOf(fields, version), "image"));
    EXPECT_DOUBLE_EQ(std::get<double>(values.at("CCD-TEMP")), -40.1) << version;
    EXPECT_DOUBLE_EQ(std::get<double>(values.at("COOLTEMP")), -5.5) << version;
  }
}

}  // namespace
