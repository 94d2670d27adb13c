// Numbers as text: printf and strtod of the C locale are the second implementation.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "metadata/SettableHeader.h"
#include "support/NumberText.h"

namespace {

using orvacam::fixedText;
using orvacam::parseDouble;

constexpr unsigned int seed = 20240601;

std::string printed(double value, int decimals) {
  char text[512];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::uint64_t bitsOf(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

bool sameNumber(double a, double b) {
  return bitsOf(a) == bitsOf(b) || (std::isnan(a) && std::isnan(b));
}

TEST(FixedText, WritesSixDecimalsUnlessTold) {
  EXPECT_EQ(fixedText(1.5), "1.500000");
  EXPECT_EQ(fixedText(-273.15, 1), "-273.1");
  EXPECT_EQ(fixedText(0.0000005), "0.000000");  // a little less than the half
  EXPECT_EQ(fixedText(2.5, 0), "2");            // a half goes to the even digit, as printf has it
  EXPECT_EQ(fixedText(3.5, 0), "4");
  EXPECT_EQ(fixedText(0.125, 2), "0.12");
}

TEST(FixedText, KeepsTheSignOfZeroAndNamesWhatIsNoNumber) {
  EXPECT_EQ(fixedText(-0.0, 2), "-0.00");
  EXPECT_EQ(fixedText(-1e-9, 3), "-0.000");
  EXPECT_EQ(fixedText(HUGE_VAL), "inf");
  EXPECT_EQ(fixedText(-HUGE_VAL), "-inf");
  EXPECT_EQ(fixedText(std::copysign(std::nan(""), 1.0)), "nan");
  EXPECT_EQ(fixedText(std::copysign(std::nan(""), -1.0)), "-nan");
}

TEST(FixedText, WritesEveryDigitOfHugeNumbers) {
  const std::string largest = fixedText(DBL_MAX, 6);
  EXPECT_EQ(largest.size(), 309u + 1 + 6);
  EXPECT_EQ(largest.substr(0, 17), "17976931348623157");
  EXPECT_EQ(largest, printed(DBL_MAX, 6));
  EXPECT_EQ(fixedText(-DBL_MAX, 64), printed(-DBL_MAX, 64));
  EXPECT_EQ(fixedText(1e22, 0), "10000000000000000000000");
}

TEST(FixedText, IsWhatPrintfWritesInTheCLocale) {
  std::mt19937_64 random(seed);
  for (int i = 0; i < 200000; ++i) {
    const std::uint64_t bits = random();
    double value = 0.0;
    if (i % 2 == 0)
      std::memcpy(&value, &bits, sizeof value);
    else
      value = (static_cast<double>(bits >> 32) - 2e9) / (1 + static_cast<double>(bits & 0xFFF));
    const int decimals = static_cast<int>(random() % 16);
    ASSERT_EQ(fixedText(value, decimals), printed(value, decimals))
        << "seed " << seed << ", number " << i << ", bits " << bitsOf(value) << ", decimals " << decimals;
  }
}

TEST(FixedText, DoesNotFollowAHostWithDecimalCommas) {
  const ScopedLocale german("de_DE.UTF-8");
  ASSERT_EQ(printed(1.5, 1), "1,5") << "the locale has no decimal comma, so that this test shows nothing";
  EXPECT_EQ(fixedText(1.5, 1), "1.5");
  EXPECT_EQ(fixedText(1234567.25), "1234567.250000");
}

TEST(ParseDouble, ReadsTheNumberThatStartsTheText) {
  struct Row {
    const char* text;
    double value;
  };
  for (const Row& row : {Row{"1.5", 1.5},          Row{"-1.5", -1.5},
                         Row{"+2", 2.0},           Row{" \t\n\v\f\r7", 7.0},
                         Row{"-0", -0.0},          Row{".5", 0.5},
                         Row{"5.", 5.0},           Row{"1e3", 1000.0},
                         Row{"1E+3", 1000.0},      Row{"25e-1", 2.5},
                         Row{"1e", 1.0},           Row{"1e+", 1.0},
                         Row{"12 /comment", 12.0}, Row{"3.25'", 3.25},
                         Row{"1,5", 1.0},          Row{"0x10", 16.0},
                         Row{"-0X.8p1", -1.0},     Row{"0x1p-3", 0.125},
                         Row{"0x", 0.0},           Row{"-0x", -0.0},
                         Row{"0xg", 0.0},          Row{"0xinf", 0.0},
                         Row{"0x-1", 0.0},         Row{"0x.", 0.0},
                         Row{"inf", HUGE_VAL},     Row{"-INFINITY", -HUGE_VAL}}) {
    EXPECT_TRUE(sameNumber(parseDouble(row.text), row.value))
        << row.text << " gives " << parseDouble(row.text);
    EXPECT_TRUE(sameNumber(std::strtod(row.text, nullptr), row.value)) << "the row itself: " << row.text;
  }
  EXPECT_TRUE(std::isnan(parseDouble("nan")));
  EXPECT_TRUE(std::isnan(parseDouble("-NaN")));
}

TEST(ParseDouble, GivesZeroWhereNoNumberStands) {
  for (const char* text : {"", " ", "-", "+", "abc", "--1", "+-1", "-+1", "- 1", ".", "e5", "'1'", "T"})
    EXPECT_EQ(bitsOf(parseDouble(text)), bitsOf(0.0)) << "'" << text << "'";
}

TEST(ParseDouble, ReadsNothingBehindTheView) {
  const char digits[] = {'1', '2', '3', '4'};
  EXPECT_EQ(parseDouble(std::string_view(digits, 2)), 12.0);
  EXPECT_EQ(parseDouble(std::string_view(digits, 4)), 1234.0);
  EXPECT_EQ(parseDouble(std::string_view("1\0002", 3)), 1.0);
}

TEST(ParseDouble, GoesToInfinityOrZeroBeyondTheRangeOfADouble) {
  const std::string zeros(400, '0');
  struct Row {
    std::string text;
    double value;
  };
  for (const Row& row :
       {Row{"1e400", HUGE_VAL}, Row{"-1e400", -HUGE_VAL}, Row{"1e-400", 0.0}, Row{"-1e-400", -0.0},
        Row{"1" + zeros, HUGE_VAL}, Row{"0." + zeros + "1", 0.0},
        // Digits and exponent pull in different directions.
        Row{"1" + zeros + "e-50", HUGE_VAL}, Row{"0." + zeros + "1e50", 0.0}, Row{"1" + zeros + "e-400", 1.0},
        Row{"0." + zeros + "1e401", 1.0}, Row{"1e99999999999999999999", HUGE_VAL},
        Row{"1e-99999999999999999999", 0.0}, Row{"1e+99999999999999999999", HUGE_VAL},
        Row{"0e99999999999999999999", 0.0}, Row{"0." + zeros + "e999", 0.0}, Row{"0x1p2000", HUGE_VAL},
        Row{"0x1p-2000", 0.0}, Row{"0x" + zeros + "1p2000", HUGE_VAL}, Row{"0x0." + zeros + "1p100", 0.0},
        Row{"0x1" + zeros + "p-100", HUGE_VAL}, Row{"4.9e-324", 4.9e-324},
        Row{"1.7976931348623157e308", DBL_MAX}, Row{"1.7976931348623159e308", HUGE_VAL}}) {
    EXPECT_TRUE(sameNumber(parseDouble(row.text), row.value))
        << row.text << " gives " << parseDouble(row.text);
    EXPECT_TRUE(sameNumber(std::strtod(row.text.c_str(), nullptr), row.value))
        << "the row itself: " << row.text;
  }
}

TEST(ParseDouble, IsWhatStrtodReadsInTheCLocale) {
  std::mt19937 random(seed);
  const std::string alphabet = "0123456789..eE-+ 00x";
  for (int i = 0; i < 300000; ++i) {
    std::string text(random() % 14, ' ');
    for (char& c : text)
      c = alphabet[random() % alphabet.size()];
    if (random() % 3 == 0) text += (random() % 2 == 0 ? "e" : "e-") + std::to_string(random() % 400);
    if (random() % 8 == 0) text.insert(random() % (text.size() + 1), std::string(random() % 400, '0'));
    ASSERT_TRUE(sameNumber(parseDouble(text), std::strtod(text.c_str(), nullptr)))
        << "seed " << seed << ", '" << text << "' gives " << parseDouble(text);
  }
}

TEST(ParseDouble, ReadsBackWhatPrintfWrites) {
  std::mt19937_64 random(seed);
  for (int i = 0; i < 100000; ++i) {
    const std::uint64_t bits = random();
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    char text[64];
    std::snprintf(text, sizeof text, "%.17g", value);
    ASSERT_TRUE(sameNumber(parseDouble(text), value)) << "seed " << seed << ", " << text;
  }
}

TEST(ParseDouble, DoesNotFollowAHostWithDecimalCommas) {
  const ScopedLocale german("de_DE.UTF-8");
  ASSERT_EQ(std::strtod("1,5", nullptr), 1.5) << "the locale has no decimal comma: this test shows nothing";
  EXPECT_EQ(parseDouble("1.5"), 1.5);
  EXPECT_EQ(parseDouble("1,5"), 1.0);
}

}  // namespace
