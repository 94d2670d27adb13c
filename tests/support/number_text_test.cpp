// Numbers in text, whatever the locale.

#include "support/NumberText.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

namespace {

using orvacam::fixedText;
using orvacam::parseDouble;

/// A program that has chosen decimal commas.
class GermanProgram {
 public:
  GermanProgram() {
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr)
      ADD_FAILURE() << "the locale de_DE.UTF-8 is not installed";
  }
  ~GermanProgram() { std::setlocale(LC_ALL, "C"); }
};

TEST(FixedText, IsWhatPrintfWritesInTheCLocale) {
  const double values[] = {0.0,
                           -0.0,
                           1.0,
                           -1.5,
                           32768.0,
                           0.1,
                           2.5,
                           0.0000005,
                           1e15,
                           1e300,
                           -1e300,
                           123456.789,
                           1e-10,
                           0.05,
                           0.15,
                           1e22,
                           5e-324,
                           1.7976931348623157e308,
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity(),
                           std::nan("")};
  for (const double value : values)
    for (const int decimals : {0, 1, 3, 4, 6, 17}) {
      char expected[400];
      std::snprintf(expected, sizeof expected, "%.*f", decimals, value);
      EXPECT_EQ(fixedText(value, decimals), expected);
    }
  EXPECT_EQ(fixedText(1.0), "1.000000");
  EXPECT_EQ(fixedText(1.5, -3), "2");
}

TEST(FixedText, RoundsRandomNumbersLikePrintf) {
  std::mt19937_64 random(11);
  for (int i = 0; i < 20000; ++i) {
    const double value =
        (static_cast<double>(random()) - 9e18) / static_cast<double>(random() >> (random() % 60) | 1);
    char expected[400];
    std::snprintf(expected, sizeof expected, "%f", value);
    ASSERT_EQ(fixedText(value), expected);
  }
}

TEST(FixedText, DoesNotFollowTheProgramsLocale) {
  const GermanProgram german;
  char commas[20];
  std::snprintf(commas, sizeof commas, "%.1f", 1.5);
  ASSERT_STREQ(commas, "1,5");  // the locale is in force
  EXPECT_EQ(fixedText(1.5, 1), "1.5");
  EXPECT_EQ(fixedText(1234567.0, 1), "1234567.0");
}

TEST(ParseDouble, ReadsWhatStrtodReads) {
  const char* const texts[] = {"1",
                               "-2.5",
                               "  +3e2xyz",
                               "\t\n.5",
                               "5.",
                               "abc",
                               "",
                               "-",
                               "+-1",
                               "--1",
                               "1e",
                               "1e+",
                               "1e5",
                               "0x1F",
                               "-0x.8",
                               "0x",
                               "0xg",
                               "inf",
                               "-inf",
                               "nan",
                               "1e400",
                               "-1e400",
                               "1e-400",
                               "infinity",
                               "0x1p4",
                               "1,5",
                               "00012",
                               "1 2",
                               "0x-1",
                               "-0",
                               "123456789012345678901234567890",
                               "4.9e-324",
                               "1.7976931348623157e308",
                               "0x1p5000",
                               "0x1p-5000",
                               "0.0e999"};
  for (const char* text : texts) {
    const double expected = std::strtod(text, nullptr);
    const double actual = parseDouble(text);
    if (std::isnan(expected))
      EXPECT_TRUE(std::isnan(actual)) << text;
    else
      EXPECT_EQ(actual, expected) << text;
    EXPECT_EQ(std::signbit(actual), std::signbit(expected)) << text;
  }
}

TEST(ParseDouble, DoesNotFollowTheProgramsLocale) {
  const GermanProgram german;
  EXPECT_EQ(parseDouble("1.5"), 1.5);
  EXPECT_EQ(parseDouble("1,5"), 1.0);
}

}  // namespace
