// The utility functions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvacam/support/util.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "TestFolder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

// ---- Time
// ----------------------------------------------------------------------------------------------------

TEST(UtilTime, CountsMillisecondsUp) {
  unsigned long stored = 0;
  const unsigned long first = utilTimeGetMS(&stored);
  EXPECT_EQ(first, stored);
  EXPECT_EQ(utilSleep(2), 0);
  EXPECT_GE(utilTimeGetMS(), first + 2);
}

TEST(UtilTime, DifferenceOfAWrappedIntervalIsOneLess) {
  EXPECT_EQ(utilTimeDiff(3, 5), 2u);
  EXPECT_EQ(utilTimeDiff(5, 5), 0u);
  EXPECT_EQ(utilTimeDiff(5, 3), 0xFFFFFFFFFFFFFFFDu);
}

TEST(UtilTime, LocalTimeSkipsNullFields) {
  unsigned int year = 0, month = 0, day = 0, hour = 99, minute = 99, second = 99, millisecond = 9999;
  utilOSGetLocalTime(&year, &month, &day, &hour, &minute, &second, &millisecond);
  EXPECT_GE(year, 2024u);
  EXPECT_TRUE(month >= 1 && month <= 12);
  EXPECT_TRUE(day >= 1 && day <= 31);
  EXPECT_LT(hour, 24u);
  EXPECT_LT(minute, 60u);
  EXPECT_LE(second, 60u);
  EXPECT_LT(millisecond, 1000u);
  utilOSGetLocalTime(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}

TEST(UtilTime, LocalTimeStringIsCutAndCleared) {
  char text[40];
  std::memset(text, 'x', sizeof text);
  utilOSGetLocalTimeString(text, sizeof text);
  EXPECT_THAT(text, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"));
  EXPECT_EQ(text[39], '\0');
  utilOSGetLocalTimeString(text, 5);
  EXPECT_EQ(std::strlen(text), 4u);
  utilOSGetLocalTimeString(nullptr, 5);
}

struct Parsed {
  int status;
  unsigned int year = 7, month = 7, day = 7;
  double seconds = 7;
};

Parsed parse(std::string text) {
  std::vector<char> exact(text.begin(), text.end());  // a sanitizer sees a byte read too far
  Parsed p{};
  p.year = p.month = p.day = 7;
  p.seconds = 7;
  p.status = utilParseTimeString(exact.data(), exact.size(), p.year, p.month, p.day, p.seconds);
  return p;
}

TEST(UtilParseTime, ReadsNanoseconds) {
  const Parsed p = parse("2024/01/02 03:04:05.000000006");
  EXPECT_EQ(p.status, 0);
  EXPECT_EQ(p.year, 2024u);
  EXPECT_EQ(p.month, 1u);
  EXPECT_EQ(p.day, 2u);
  EXPECT_DOUBLE_EQ(p.seconds, 11045.000000006);
}

TEST(UtilParseTime, ReadsThreeDigitsWithoutAClockAndDividesThemByABillionToo) {
  EXPECT_DOUBLE_EQ(parse("2024/01/02 00:00:01.500NOGPS  ").seconds, 1 + 500 / 1e9);
  EXPECT_DOUBLE_EQ(parse("2024/01/02 00:00:01.250 ERROR ").seconds, 1 + 250 / 1e9);
  EXPECT_EQ(parse("2024/01/02 00:00:01.500NOGPS  ").status, 0);
}

TEST(UtilParseTime, RefusesShortBlankAndMalformedTexts) {
  const Parsed brief = parse("2024/01/02 03:04:05.00000");
  EXPECT_EQ(brief.status, -1);
  EXPECT_EQ(brief.year, 7u);
  EXPECT_EQ(brief.seconds, 0.0);
  EXPECT_EQ(parse(" 2024/01/02 03:04:05.000000006").status, -1);
  EXPECT_EQ(parse(std::string(30, '\0')).status, -1);
  EXPECT_EQ(parse("2024/0x/02 03:04:05.000000006").status, -1);
  const Parsed seconds = parse("2024/01/02 03:04:5x.000000006");
  EXPECT_EQ(seconds.status, -1);
  EXPECT_EQ(seconds.seconds, 11040.0);  // what was read so far
  EXPECT_EQ(parse("2024/01/02 03:04:05.00000x006").status, -1);
  EXPECT_EQ(parse("2024/01/02 03:04:05.000000").status, -1);  // the fraction ends early
  unsigned int n = 0;
  double d = 3;
  EXPECT_EQ(utilParseTimeString(nullptr, 30, n, n, n, d), -1);
}

TEST(UtilParseTime, ClearsTheTopBitOfTheFirstCharacter) {
  char text[] =
      "\xB2"
      "024-01-02T03:04:05.000000006";
  unsigned int year = 0, month = 0, day = 0;
  double seconds = 0;
  EXPECT_EQ(utilParseTimeString(text, 29, year, month, day, seconds), 0);
  EXPECT_EQ(text[0], '2');
  EXPECT_EQ(year, 2024u);
}

// ---- Bits, byte order and digits
// -----------------------------------------------------------------------------

TEST(UtilBits, PositionOfTheLowestBit) {
  EXPECT_EQ(utilBitPos(0), 0xFFFFFFFFu);
  for (unsigned int i = 0; i < 32; ++i)
    EXPECT_EQ(utilBitPos(0xFFFFFFFFu << i), i);
  EXPECT_EQ(utilBitPos(0x80000000u), 31u);
}

TEST(UtilBytes, ReadsBothByteOrders) {
  const unsigned char b[] = {0x81, 0x02, 0x03, 0x84};
  EXPECT_EQ(utilBufToUint16(b, true), 0x0281);
  EXPECT_EQ(utilBufToUint16(b, false), 0x8102);
  EXPECT_EQ(utilBufToInt16(b, false), -32510);
  EXPECT_EQ(utilBufToUint32(b, true), 0x84030281u);
  EXPECT_EQ(utilBufToUint32(b, false), 0x81020384u);
  EXPECT_EQ(utilBufToInt32(b, false), static_cast<int>(0x81020384u));
}

TEST(UtilBytes, ReadsFourDecimalDigitsWhateverTheLength) {
  const unsigned char b[] = {0x12, 0x34};
  for (const unsigned int length : {0u, 1u, 2u, 9u})
    EXPECT_EQ(utilBufBCDToUint32(b, length), 1234u);
  const unsigned char beyond[] = {0xFA, 0xBC};
  EXPECT_EQ(utilBufBCDToUint32(beyond, 2), 15u * 1000 + 10 * 100 + 11 * 10 + 12);
}

TEST(UtilBytes, WritesBigEndianBytes) {
  unsigned char b[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_EQ(utilUint32ToBuf(0x01020304, b, 2), 2u);
  EXPECT_THAT(b, ElementsAre(3, 4, 9, 9, 9, 9));
  EXPECT_EQ(utilUint32ToBuf(0x01020304, b, 6), 4u);
  EXPECT_THAT(b, ElementsAre(1, 2, 3, 4, 9, 9));
  EXPECT_EQ(utilUint32ToBuf(1, b, 0), 0u);
  EXPECT_EQ(utilUint32ToBuf(1, nullptr, 4), 0u);
}

TEST(UtilBytes, WritesDecimalDigitsFromTheLastByteBackwards) {
  unsigned char b[4] = {9, 9, 9, 9};
  utilUint32ToBufBCD(1234, b, 3);
  EXPECT_THAT(b, ElementsAre(0x00, 0x12, 0x34, 9));
  utilUint32ToBufBCD(987654, b, 2);
  EXPECT_THAT(b, ElementsAre(0x76, 0x54, 0x34, 9));
  utilUint32ToBufBCD(1, b, 0);
  utilUint32ToBufBCD(1, nullptr, 3);
  EXPECT_THAT(b, ElementsAre(0x76, 0x54, 0x34, 9));
}

TEST(UtilDigits, MoveTheCursorPastABadCharacter) {
  unsigned char decimal[] = "1234x";
  unsigned char* cursor = decimal;
  unsigned int value = 7;
  EXPECT_EQ(utilParseAsciiDecToNum(cursor, 0, value), 0);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(utilParseAsciiDecToNum(cursor, 3, value), 0);
  EXPECT_EQ(value, 123u);
  EXPECT_EQ(cursor, decimal + 3);
  EXPECT_EQ(utilParseAsciiDecToNum(cursor, 2, value), -1);
  EXPECT_EQ(value, 40u);  // multiplied once more
  EXPECT_EQ(cursor, decimal + 5);

  unsigned char hex[] = "aF0g";
  cursor = hex;
  EXPECT_EQ(utilParseAsciiHexToNum(cursor, 3, value), 0);
  EXPECT_EQ(value, 0xAF0u);
  EXPECT_EQ(utilParseAsciiHexToNum(cursor, 1, value), -1);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(cursor, hex + 4);
}

// ---- Text
// ----------------------------------------------------------------------------------------------------

TEST(UtilText, StaticBuffersAreOnePerThread) {
  wchar_t* const mine = utilCharToWideStrStatic("mine");
  wchar_t* other = nullptr;
  std::thread([&other] { other = utilCharToWideStrStatic("other"); }).join();
  EXPECT_NE(mine, other);
  EXPECT_STREQ(mine, L"mine");
  EXPECT_EQ(utilCharToWideStrStatic("again"), mine);
}

TEST(UtilText, IsCutAtTheBuffersSize) {
  const std::string text(2000, 'a');
  EXPECT_EQ(std::wcslen(utilCharToWideStrStatic(text.c_str())), 1023u);
  EXPECT_EQ(std::strlen(utilWideToMbsStatic(std::wstring(2000, L'b').c_str())), 1023u);
  EXPECT_STREQ(utilWideToMbsStatic(nullptr), "");
  EXPECT_STREQ(utilCharToWideStrStatic(nullptr), L"");
}

TEST(UtilText, WideStringsBecomeNarrowAtMostAsLong) {
  std::string out = "before";
  utilW2S(L"", out);
  EXPECT_EQ(out, "");
  utilW2S(L"text", out);
  EXPECT_EQ(out, "text");
  utilW2S(L"a\u20acb", out);  // three bytes are wanted for the second character
  EXPECT_EQ(out, "a");
}

// ---- Files
// ---------------------------------------------------------------------------------------------------

TEST(UtilFiles, OpensByWideName) {
  const TestFolder folder;
  folder.write("a b", {1, 2});
  EXPECT_EQ(utilOSWideFileOpen(nullptr, L"rb"), nullptr);
  EXPECT_EQ(utilOSWideFileOpen(L"x", nullptr), nullptr);
  EXPECT_EQ(utilOSWideFileOpen(folder.wideFile("none").c_str(), L"rb"), nullptr);
  std::FILE* file = utilOSWideFileOpen(folder.wideFile("a b").c_str(), L"rb");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(std::fgetc(file), 1);
  std::fclose(file);
}

TEST(UtilFiles, CopyCreatesAnEmptyDestination) {
  const TestFolder folder;
  const std::wstring source = folder.write("source", std::vector<unsigned char>(10000, 1));
  EXPECT_EQ(utilOSWideCopyFile(source.c_str(), folder.wideFile("copy").c_str()), 0);
  EXPECT_TRUE(folder.has("copy"));
  EXPECT_TRUE(folder.read("copy").empty());
  EXPECT_EQ(utilOSWideCopyFile(nullptr, source.c_str()), -1);
  EXPECT_EQ(utilOSWideCopyFile(source.c_str(), nullptr), -1);
  EXPECT_EQ(utilOSWideCopyFile(folder.wideFile("none").c_str(), folder.wideFile("x").c_str()), -1);
  EXPECT_FALSE(folder.has("x"));
  EXPECT_EQ(utilOSWideCopyFile(source.c_str(), folder.wideFile("no/x").c_str()), -1);
}

TEST(UtilFiles, MakesEveryMissingDirectory) {
  const TestFolder folder;
  const std::wstring deep = folder.wideFile("a/b//c/");
  EXPECT_EQ(utilOSMakeDirectory(deep.c_str()), 0);
  EXPECT_TRUE(utilOSDirectoryExists(folder.wideFile("a/b/c")));
  EXPECT_EQ(utilOSMakeDirectory(deep.c_str()), 0);
  folder.write("file", {1});
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile("file").c_str()), 0);  // an existing path
  errno = 0;
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile("file/under").c_str()), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(utilOSMakeDirectory(nullptr), -1);
  EXPECT_EQ(utilOSMakeDirectory(L""), -1);
  EXPECT_NE(utilOSMakeDirectory(L"/proc/none/x"), 0);
  EXPECT_FALSE(utilOSDirectoryExists(folder.wideFile("file")));
  EXPECT_FALSE(utilOSDirectoryExists(folder.wideFile("none")));
}

TEST(UtilFiles, TellsTheDisksSpace) {
  unsigned long available = 1, total = 1;
  EXPECT_EQ(utilOSGetDiskAvailableSpace(L"/", available, total), 0);
  EXPECT_GE(total, available);
  available = total = 77;
  EXPECT_NE(utilOSGetDiskAvailableSpace(L"/no/such/place", available, total), 0);
  EXPECT_EQ(available + total, 154u);
}

TEST(UtilFiles, TellsTheWorkingDirectory) {
  wchar_t path[5000];
  utilOSPathGet(path, 5000);
  EXPECT_EQ(std::wstring(path), std::filesystem::current_path().wstring() + L"/");
  utilOSPathGet(path, 3);  // does not fit
  EXPECT_EQ(path[0], L'\0');
  utilOSPathGet(nullptr, 10);
  utilOSPathGet(path, 0);
}

TEST(UtilFiles, ShowsTheFirstCharacterOfAnErrorMessageOnly) {
  ::testing::internal::CaptureStderr();
  errno = ENOENT;
  utilOSShowError(L"Message");
  errno = ENOENT;
  utilOSShowError(nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "M: error 2: No such file or directory\n error 2: No such file or directory\n");
}

}  // namespace
