// The library's own fixed FITS files, as somebody may have changed them.

#include "files/FixedFiles.h"

#include <gtest/gtest.h>

#include <map>

#include "TestFolder.h"
#include "files/KeywordTable.h"
#include "simulator/FitsHeader.h"

namespace {

using namespace orvacam::files;
namespace sim = orvacam::simulator;

class FixedFitsFiles : public ::testing::Test {
 protected:
  /// What repairing would say of a file of 60 x 60 pixels with these cards beside those that it needs.
  std::map<std::string, Value> saidOf(const sim::Cards& more) const {
    sim::Cards cards = {{"BITPIX", "16"},
                        {"NAXIS", "2"},
                        {"NAXIS1", "60"},
                        {"NAXIS2", "60"},
                        {"VERAPI", "'Created By liborvacam 2.1.4'"},
                        {"HDR-MODE", "1"}};
    cards.insert(cards.end(), more.begin(), more.end());
    while (cards.size() < 40)  // a header of 5760 bytes
      cards.emplace_back("FILLER", "0");
    std::vector<unsigned char> bytes = sim::writeCards(cards);
    bytes.resize(2 * 60 * 60);
    folder.write("a.fit", bytes);
    EXPECT_EQ(kindOf(folder.file("a.fit")), FileKind::FixedFits);
    const FixedFits fixed = readFixedFits(folder.file("a.fit"));
    EXPECT_EQ(fixed.present, 720u);  // (7200 - 5760) / 2
    std::map<std::string, Value> values;
    for (const Card& card : cardsOf(fixed.subject))
      values[card.keyword] = card.value;
    return values;
  }

  TestFolder folder;
};

TEST_F(FixedFitsFiles, SayWhereTheyWereTaken) {
  const auto values = saidOf({{"GPS_LOCK", "1"}, {"GEO_LAT", "48.25"}, {"GEO_LONG", "-16.5"}});
  EXPECT_DOUBLE_EQ(std::get<double>(values.at("SITELAT")), 48.25);
  EXPECT_DOUBLE_EQ(std::get<double>(values.at("SITELONG")), -16.5);
}

TEST_F(FixedFitsFiles, WithNumbersThatNoHeaderHoldsSayNothingOfThem) {
  const auto values = saidOf({{"GPS_LOCK", "1"},
                              {"GEO_LAT", "1E300"},
                              {"GEO_LONG", "-3600.0"},
                              {"FRAMENUM", "1E300"},
                              {"SENSTEMP", "NAN"},
                              {"IMGSTACL", "-1E19"},
                              {"IMGSTARW", "-7"}});
  for (const char* keyword : {"SITELAT", "GEO_LAT", "SITELONG", "FRAMENUM", "SENSTEMP", "IMGSTACL"})
    EXPECT_EQ(values.count(keyword), 0u) << keyword;
  EXPECT_EQ(std::get<std::int64_t>(values.at("IMGSTARW")), -7);
}

TEST_F(FixedFitsFiles, HaveTheTimeThatIsWrittenOutWhole) {
  const auto time = [this](const std::string& text) {
    const auto values = saidOf({{"DATE-OBS", "'" + text + "'"}});
    return values.count("DATE-OBS") > 0 ? std::get<std::string>(values.at("DATE-OBS")) : "";
  };
  EXPECT_EQ(time("2024-05-17T21:04:33.123456700"), "2024-05-17T21:04:33.123456700");
  // Fewer digits are another number of nanoseconds, and no frame is from before its second.
  for (const char* text : {"2024-05-17T21:04:33.5", "2024-05-17T21:04:33.-00000001",
                           "2024-05-17T21:04:33.1234567008", "2024-02-30T21:04:33.123456700", "yesterday"})
    EXPECT_EQ(time(text), "") << text;
}

}  // namespace
