// Bits, byte order, digits and time strings.

#include <gtest/gtest.h>
#include <orvacam/support/util.h>

#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

TEST(UtilBitPos, IsTheIndexOfTheLowestSetBit) {
  for (unsigned int bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(utilBitPos(1u << bit), bit);
    EXPECT_EQ(utilBitPos(0xFFFFFFFFu << bit), bit);
  }
  EXPECT_EQ(utilBitPos(0x80000000u), 31u);
  EXPECT_EQ(utilBitPos(0), 0xFFFFFFFFu);
}

TEST(UtilBuf, ReadsLittleEndianWithTheFlagAndBigEndianWithout) {
  const unsigned char bytes[] = {0x81, 0x02, 0x03, 0xF4};
  EXPECT_EQ(utilBufToUint16(bytes, false), 0x8102);
  EXPECT_EQ(utilBufToUint16(bytes, true), 0x0281);
  EXPECT_EQ(utilBufToInt16(bytes, false), 0x8102 - 0x10000);
  EXPECT_EQ(utilBufToInt16(bytes, true), 0x0281);
  EXPECT_EQ(utilBufToUint32(bytes, false), 0x810203F4u);
  EXPECT_EQ(utilBufToUint32(bytes, true), 0xF4030281u);
  EXPECT_EQ(utilBufToInt32(bytes, false), static_cast<int>(0x810203F4ll - 0x100000000ll));
  EXPECT_EQ(utilBufToInt32(bytes, true), static_cast<int>(0xF4030281ll - 0x100000000ll));
}

TEST(UtilBuf, NeedsNoAlignmentAndReadsNoByteMore) {
  const std::unique_ptr<unsigned char[]> exact(new unsigned char[5]{9, 1, 2, 3, 4});
  EXPECT_EQ(utilBufToUint32(exact.get() + 1, false), 0x01020304u);
  EXPECT_EQ(utilBufToUint16(exact.get() + 3, true), 0x0403);
}

TEST(UtilBufBCD, DecodesTwoBytesWhateverTheLength) {
  const unsigned char bytes[] = {0x12, 0x34};
  for (const unsigned int length : {0u, 1u, 2u, 3u, 0xFFFFFFFFu})
    EXPECT_EQ(utilBufBCDToUint32(bytes, length), 1234u);
}

TEST(UtilBufBCD, CountsNibblesAboveNineAsTheyAre) {
  const unsigned char bytes[] = {0xFA, 0x0F};
  EXPECT_EQ(utilBufBCDToUint32(bytes, 2), 15u * 1000 + 10 * 100 + 0 * 10 + 15);
}

TEST(UtilUint32ToBuf, WritesTheLowBytesMostSignificantFirst) {
  using Bytes = std::vector<unsigned char>;
  const Bytes expected[] = {{}, {0xF4}, {0x03, 0xF4}, {0x02, 0x03, 0xF4}, {0x81, 0x02, 0x03, 0xF4}};
  for (unsigned int length = 0; length <= 4; ++length) {
    Bytes bytes(length);
    EXPECT_EQ(utilUint32ToBuf(0x810203F4u, bytes.data(), length), length);
    EXPECT_EQ(bytes, expected[length]);
  }
}

TEST(UtilUint32ToBuf, WritesFourBytesAtMost) {
  unsigned char bytes[] = {9, 9, 9, 9, 9};
  EXPECT_EQ(utilUint32ToBuf(0x01020304u, bytes, 5), 4u);
  EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + 5), (std::vector<unsigned char>{1, 2, 3, 4, 9}));
  EXPECT_EQ(utilUint32ToBuf(1, nullptr, 4), 0u);
}

TEST(UtilUint32ToBufBCD, FillsFromTheLastByteBackwards) {
  using Bytes = std::vector<unsigned char>;
  struct Row {
    unsigned int value;
    Bytes bytes;
  };
  for (const Row& row : {Row{1234, {0x00, 0x12, 0x34}}, Row{1234, {0x34}}, Row{0, {0x00, 0x00}},
                         Row{99, {0x99}}, Row{7, {0x07}}, Row{4294967295u, {0x42, 0x94, 0x96, 0x72, 0x95}},
                         Row{4294967295u, {0x00, 0x42, 0x94, 0x96, 0x72, 0x95}}}) {
    Bytes bytes(row.bytes.size(), 0xEE);
    utilUint32ToBufBCD(row.value, bytes.data(), static_cast<unsigned int>(bytes.size()));
    EXPECT_EQ(bytes, row.bytes) << row.value;
  }
}

TEST(UtilUint32ToBufBCD, WritesNothingWithoutBufferOrLength) {
  unsigned char byte = 0xEE;
  utilUint32ToBufBCD(12, &byte, 0);
  EXPECT_EQ(byte, 0xEE);
  utilUint32ToBufBCD(12, nullptr, 3);
}

// ---- Digits

struct Digits {
  explicit Digits(const std::string& text) : bytes(text.begin(), text.end()), cursor(bytes.data()) {}
  std::ptrdiff_t moved() const { return cursor - bytes.data(); }
  std::vector<unsigned char> bytes;
  unsigned char* cursor;
  unsigned int value = 77;
};

TEST(UtilParseAsciiDec, ReadsAsManyDigitsAsAskedFor) {
  Digits digits("0123456789");
  EXPECT_EQ(utilParseAsciiDecToNum(digits.cursor, 4, digits.value), 0);
  EXPECT_EQ(digits.value, 123u);
  EXPECT_EQ(digits.moved(), 4);
  EXPECT_EQ(utilParseAsciiDecToNum(digits.cursor, 6, digits.value), 0);
  EXPECT_EQ(digits.value, 456789u);
  EXPECT_EQ(digits.moved(), 10);
  EXPECT_EQ(utilParseAsciiDecToNum(digits.cursor, 0, digits.value), 0);
  EXPECT_EQ(digits.value, 0u);
  EXPECT_EQ(digits.moved(), 10);
}

TEST(UtilParseAsciiDec, StopsBehindABadCharacterWithTheValueMultiplied) {
  for (const char bad : {'/', ':', 'A', ' ', '\0', '\xB0'}) {
    Digits digits(std::string("12") + bad + "4");
    EXPECT_EQ(utilParseAsciiDecToNum(digits.cursor, 4, digits.value), -1);
    EXPECT_EQ(digits.value, 120u);
    EXPECT_EQ(digits.moved(), 3);
  }
}

TEST(UtilParseAsciiHex, ReadsDigitsOfBothCases) {
  Digits digits("0fF9aAbE");
  EXPECT_EQ(utilParseAsciiHexToNum(digits.cursor, 8, digits.value), 0);
  EXPECT_EQ(digits.value, 0x0FF9AABEu);
  EXPECT_EQ(digits.moved(), 8);
  EXPECT_EQ(utilParseAsciiHexToNum(digits.cursor, 0, digits.value), 0);
  EXPECT_EQ(digits.value, 0u);
}

TEST(UtilParseAsciiHex, StopsBehindABadCharacterWithTheValueMultiplied) {
  for (const char bad : {'/', ':', '@', 'G', '`', 'g', '\0', '\xC6'}) {
    Digits digits(std::string("a1") + bad + "4");
    EXPECT_EQ(utilParseAsciiHexToNum(digits.cursor, 4, digits.value), -1);
    EXPECT_EQ(digits.value, 0xA10u);
    EXPECT_EQ(digits.moved(), 3);
  }
}

TEST(UtilParseAscii, WrapsBeyond32Bits) {
  Digits dec("99999999999");
  EXPECT_EQ(utilParseAsciiDecToNum(dec.cursor, 11, dec.value), 0);
  EXPECT_EQ(dec.value, static_cast<unsigned int>(99999999999ull));
  Digits hex("123456789");
  EXPECT_EQ(utilParseAsciiHexToNum(hex.cursor, 9, hex.value), 0);
  EXPECT_EQ(hex.value, 0x23456789u);
}

// ---- Time strings

/// What came of a time string given in a heap block of exactly its length, without a zero behind it.
struct ParsedTime {
  explicit ParsedTime(const std::string& text) : ParsedTime(text, text.size()) {}
  ParsedTime(const std::string& text, std::size_t length) : bytes(new char[length]) {
    std::memcpy(bytes.get(), text.data(), length);
    status = utilParseTimeString(bytes.get(), static_cast<unsigned int>(length), year, month, day, seconds);
  }
  std::unique_ptr<char[]> bytes;
  unsigned int year = 1, month = 2, day = 3;
  double seconds = 4.0;
  int status = 5;
};

TEST(UtilParseTimeString, ReadsDateAndSecondsOfTheDay) {
  const ParsedTime time("2024/02/29 23:59:58.123456789");
  EXPECT_EQ(time.status, 0);
  EXPECT_EQ(time.year, 2024u);
  EXPECT_EQ(time.month, 2u);
  EXPECT_EQ(time.day, 29u);
  EXPECT_EQ(time.seconds, 86398.0 + 123456789 / 1e9);
}

TEST(UtilParseTimeString, SkipsAnySeparators) {
  const ParsedTime time("2024x02909T23?59!580123456789");
  EXPECT_EQ(time.status, 0);
  EXPECT_EQ(time.day, 9u);
  EXPECT_EQ(time.seconds, 86398.0 + 123456789 / 1e9);
}

TEST(UtilParseTimeString, ClearsTheTopBitOfTheFirstCharacterInTheCallersBuffer) {
  const ParsedTime time(
      "\xB2"
      "024/01/02 00:00:01.000000000");
  EXPECT_EQ(time.status, 0);
  EXPECT_EQ(time.year, 2024u);
  EXPECT_EQ(time.bytes[0], '2');
}

TEST(UtilParseTimeString, DividesTheShortFractionByTheSameNumber) {
  for (const char* mark : {" NOGPS", "NOGPS!", " ERROR"}) {
    const ParsedTime time("2024/01/02 00:00:07.250" + std::string(mark));
    EXPECT_EQ(time.status, 0) << mark;
    EXPECT_EQ(time.seconds, 7.0 + 250 / 1e9) << mark;
  }
}

TEST(UtilParseTimeString, LooksForTheMarkWithinTheTextAlone) {
  // Behind a zero, and behind the length.
  EXPECT_EQ(ParsedTime(std::string("2024/01/02 00:00:07.250\0NOGPS", 29)).status, -1);
  EXPECT_EQ(ParsedTime("2024/01/02 00:00:07.250 NOGPS", 28).status, -1);
  EXPECT_EQ(ParsedTime("2024/01/02 00:00:07.250 NOGPS", 29).status, 0);
}

TEST(UtilParseTimeString, RefusesNullShortAndBlankTexts) {
  unsigned int year = 1, month = 2, day = 3;
  double seconds = 4.0;
  EXPECT_EQ(utilParseTimeString(nullptr, 30, year, month, day, seconds), -1);
  EXPECT_EQ(seconds, 4.0);
  for (const std::string& text : {std::string("2024/01/02 03:04:05.000000"),
                                  std::string("\0"
                                              "024/01/02 03:04:05.00000000",
                                              28),
                                  std::string(" 024/01/02 03:04:05.00000000")}) {
    const bool tooShort = text.size() == 26;
    const ParsedTime time(text, tooShort ? 25 : text.size());
    EXPECT_EQ(time.status, -1);
    EXPECT_EQ(time.year, 1u);
    EXPECT_EQ(time.month, 2u);
    EXPECT_EQ(time.day, 3u);
    EXPECT_EQ(time.seconds, 0.0);
    EXPECT_EQ(time.bytes[0], text[0]);
  }
}

TEST(UtilParseTimeString, StopsAtTheFirstPartThatIsNoNumber) {
  struct Row {
    const char* text;
    unsigned int year, month, day;
    double seconds;
  };
  for (const Row& row : {Row{"20x4/01/02 03:04:05.000000000", 200, 2, 3, 0.0},
                         Row{"2024/x1/02 03:04:05.000000000", 2024, 0, 3, 0.0},
                         Row{"2024/01/0x 03:04:05.000000000", 2024, 1, 0, 0.0},
                         Row{"2024/01/02 x3:04:05.000000000", 2024, 1, 2, 0.0},
                         Row{"2024/01/02 03:x4:05.000000000", 2024, 1, 2, 10800.0},
                         Row{"2024/01/02 03:04:x5.000000000", 2024, 1, 2, 11040.0},
                         Row{"2024/01/02 03:04:05.x00000000", 2024, 1, 2, 11045.0},
                         // What was read of the fraction counts, the value multiplied once more.
                         Row{"2024/01/02 03:04:05.12x000000", 2024, 1, 2, 11045.0 + 120 / 1e9}}) {
    const ParsedTime time(row.text);
    EXPECT_EQ(time.status, -1) << row.text;
    EXPECT_EQ(time.year, row.year) << row.text;
    EXPECT_EQ(time.month, row.month) << row.text;
    EXPECT_EQ(time.day, row.day) << row.text;
    EXPECT_EQ(time.seconds, row.seconds) << row.text;
  }
}

TEST(UtilParseTimeString, ReadsNothingBehindItsBytes) {
  const std::string whole = "2024/01/02 03:04:05.123456789";
  for (std::size_t length = 26; length < whole.size(); ++length)
    EXPECT_EQ(ParsedTime(whole, length).status, -1) << length;
  EXPECT_EQ(ParsedTime(whole, whole.size()).status, 0);
}

}  // namespace
