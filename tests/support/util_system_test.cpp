// Time, wide and narrow text, files and directories.

#include <gtest/gtest.h>
#include <orvacam/support/util.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "metadata/SettableHeader.h"

namespace {

timespec now(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return time;
}

unsigned long milliseconds(const timespec& time) {
  return static_cast<unsigned long>(time.tv_sec) * 1000 + static_cast<unsigned long>(time.tv_nsec) / 1000000;
}

// ---- Time

TEST(UtilTime, IsTheMonotonicClockInMilliseconds) {
  const unsigned long before = milliseconds(now(CLOCK_MONOTONIC));
  unsigned long stored = 0;
  const unsigned long first = utilTimeGetMS(&stored);
  const unsigned long second = utilTimeGetMS();
  const unsigned long after = milliseconds(now(CLOCK_MONOTONIC));
  EXPECT_EQ(stored, first);
  EXPECT_LE(before, first);
  EXPECT_LE(first, second);
  EXPECT_LE(second, after);
}

TEST(UtilTime, DifferenceAfterAWrapIsOneLess) {
  EXPECT_EQ(utilTimeDiff(3, 5), 2u);
  EXPECT_EQ(utilTimeDiff(5, 5), 0u);
  EXPECT_EQ(utilTimeDiff(5, 3), 0xFFFFFFFFFFFFFFFDu);
  EXPECT_EQ(utilTimeDiff(~0UL, 0), 0u);
  EXPECT_EQ(utilTimeDiff(0, ~0UL), ~0UL);
}

TEST(UtilTime, SleepsAtLeastAsLongAsAsked) {
  const unsigned long before = utilTimeGetMS();
  EXPECT_EQ(utilSleep(3), 0);
  EXPECT_GE(utilTimeGetMS() - before, 2u);
  EXPECT_EQ(utilSleep(0), 0);
}

TEST(UtilLocalTime, IsTheTimeOfDayOfTheTimeZone) {
  const timespec before = now(CLOCK_REALTIME);
  unsigned int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 1000;
  utilOSGetLocalTime(&year, &month, &day, &hour, &minute, &second, &millisecond);
  const timespec after = now(CLOCK_REALTIME);
  tm local{};
  local.tm_year = static_cast<int>(year) - 1900;
  local.tm_mon = static_cast<int>(month) - 1;
  local.tm_mday = static_cast<int>(day);
  local.tm_hour = static_cast<int>(hour);
  local.tm_min = static_cast<int>(minute);
  local.tm_sec = static_cast<int>(second);
  local.tm_isdst = -1;
  const unsigned long told = static_cast<unsigned long>(std::mktime(&local)) * 1000 + millisecond;
  EXPECT_LT(millisecond, 1000u);
  EXPECT_LE(milliseconds(before), told);
  EXPECT_LE(told, milliseconds(after));
}

TEST(UtilLocalTime, SkipsFieldsThatNobodyAsksFor) {
  utilOSGetLocalTime(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  unsigned int day = 99;
  utilOSGetLocalTime(nullptr, nullptr, &day, nullptr, nullptr, nullptr, nullptr);
  EXPECT_GE(day, 1u);
  EXPECT_LE(day, 31u);
}

TEST(UtilLocalTime, IsWrittenTheSameInEveryLocale) {
  for (const char* locale : {"C", "de_DE.UTF-8", "fa_IR.UTF-8"}) {
    const ScopedLocale scope(locale);
    std::vector<char> text(64, '#');
    utilOSGetLocalTimeString(text.data(), static_cast<unsigned int>(text.size()));
    std::string shape = text.data();
    std::replace_if(
        shape.begin(), shape.end(), [](char c) { return c >= '0' && c <= '9'; }, '0');
    EXPECT_EQ(shape, "0000-00-00T00:00:00.000");
    for (std::size_t i = std::strlen(text.data()); i < text.size(); ++i)
      EXPECT_EQ(text[i], '\0') << "the rest of the buffer is cleared";
  }
}

std::string localTimeText() {
  unsigned int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
  utilOSGetLocalTime(&year, &month, &day, &hour, &minute, &second, &millisecond);
  char text[64];
  std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u.%03u", year, month, day, hour, minute,
                second, millisecond);
  return text;
}

TEST(UtilLocalTime, TextIsTheTimeOfNow) {
  char text[64];
  const std::string before = localTimeText();
  utilOSGetLocalTimeString(text, sizeof text);
  const std::string after = localTimeText();
  EXPECT_LE(before, text);
  EXPECT_LE(text, after);
}

TEST(UtilLocalTime, TextIsCutToTheBuffer) {
  char text[8];
  std::memset(text, '#', sizeof text);
  utilOSGetLocalTimeString(text, 5);
  EXPECT_EQ(std::strlen(text), 4u);
  EXPECT_EQ(text[5], '#');
  utilOSGetLocalTimeString(text, 0);
  EXPECT_EQ(std::strlen(text), 4u);
  utilOSGetLocalTimeString(nullptr, 5);
}

// ---- Wide and narrow text

TEST(UtilText, GoesThroughAStaticBufferOf1023Characters) {
  const std::string longText(1100, 'x');
  EXPECT_EQ(utilCharToWideStrStatic(longText.c_str()), std::wstring(1023, L'x'));
  EXPECT_EQ(utilWideToMbsStatic(std::wstring(1100, L'y').c_str()), std::string(1023, 'y'));
  const wchar_t* const wide = utilCharToWideStrStatic("ab");
  EXPECT_EQ(std::wstring(wide), L"ab");
  EXPECT_EQ(std::wstring(wide, 1024), L"ab" + std::wstring(1022, L'\0')) << "the buffer is cleared first";
  const char* const narrow = utilWideToMbsStatic(L"cd");
  EXPECT_EQ(std::string(narrow, 1024), "cd" + std::string(1022, '\0'));
  EXPECT_EQ(utilCharToWideStrStatic("other"), wide) << "one buffer";
  EXPECT_EQ(utilWideToMbsStatic(L"other"), narrow) << "one buffer";
}

TEST(UtilText, OfNullIsEmpty) {
  EXPECT_EQ(utilCharToWideStrStatic(nullptr)[0], L'\0');
  EXPECT_EQ(utilWideToMbsStatic(nullptr)[0], '\0');
}

TEST(UtilText, IsUtf8InAHostThatNeverChoseALocale) {
  EXPECT_STREQ(utilWideToMbsStatic(L"\u03B1"), "\xCE\xB1");
  EXPECT_EQ(std::wstring(utilCharToWideStrStatic("\xCE\xB1")), L"\u03B1");
}

TEST(UtilW2S, ReplacesTheOutputByTheNarrowForm) {
  std::string narrow = "before";
  utilW2S(L"frame.raw", narrow);
  EXPECT_EQ(narrow, "frame.raw");
  utilW2S(std::wstring(5000, L'z'), narrow);
  EXPECT_EQ(narrow, std::string(5000, 'z'));
  utilW2S(L"", narrow);
  EXPECT_EQ(narrow, "");
}

TEST(UtilW2S, GivesAsManyBytesAsThereAreCharactersAtMost) {
  std::string narrow;
  utilW2S(L"a\u03B1", narrow);  // 3 bytes for 2 characters
  EXPECT_EQ(narrow, "a");
  utilW2S(L"\u03B1 b", narrow);
  EXPECT_EQ(narrow, "\xCE\xB1 ");
}

// ---- Files

TEST(UtilFileOpen, OpensByWideNames) {
  const TestFolder folder;
  for (const char* name : {"plain.raw", "n\xC3\xA4me \xCE\xB1.raw"}) {
    std::FILE* file = utilOSWideFileOpen(utilCharToWideStrStatic(folder.file(name).c_str()), L"wb");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::fwrite("abc", 1, 3, file), 3u);
    std::fclose(file);
    EXPECT_EQ(folder.read(name), (std::vector<unsigned char>{'a', 'b', 'c'}));
  }
}

TEST(UtilFileOpen, YieldsNullWhereNothingCanBeOpened) {
  const TestFolder folder;
  const std::wstring name = folder.wideFile("none.raw");
  EXPECT_EQ(utilOSWideFileOpen(nullptr, L"rb"), nullptr);
  EXPECT_EQ(utilOSWideFileOpen(name.c_str(), nullptr), nullptr);
  EXPECT_EQ(utilOSWideFileOpen(name.c_str(), L"rb"), nullptr);
  EXPECT_EQ(utilOSWideFileOpen(name.c_str(), L""), nullptr);
  EXPECT_EQ(utilOSWideFileOpen(std::wstring(6000, L'x').c_str(), L"wb"), nullptr);
}

TEST(UtilFileOpen, CutsLongModes) {
  const TestFolder folder;
  // The first letters decide; what is behind the 31st is never seen.
  std::FILE* file =
      utilOSWideFileOpen(folder.wideFile("f").c_str(), (L"wb" + std::wstring(100, L' ')).c_str());
  ASSERT_NE(file, nullptr);
  std::fclose(file);
}

TEST(UtilCopyFile, CopiesNothingAndLeavesAnEmptyDestination) {
  const TestFolder folder;
  const std::wstring source = folder.write("source", {1, 2, 3});
  const std::wstring destination = folder.write("destination", {9, 9});
  EXPECT_EQ(utilOSWideCopyFile(source.c_str(), destination.c_str()), 0);
  EXPECT_TRUE(folder.has("destination"));
  EXPECT_EQ(folder.read("destination"), std::vector<unsigned char>());
  EXPECT_EQ(folder.read("source"), (std::vector<unsigned char>{1, 2, 3}));
}

TEST(UtilCopyFile, FailsForNullAndForFilesThatCannotBeOpened) {
  const TestFolder folder;
  const std::wstring source = folder.write("source", {1});
  const std::wstring none = folder.wideFile("none");
  EXPECT_EQ(utilOSWideCopyFile(nullptr, none.c_str()), -1);
  EXPECT_EQ(utilOSWideCopyFile(source.c_str(), nullptr), -1);
  EXPECT_EQ(utilOSWideCopyFile(none.c_str(), folder.wideFile("destination").c_str()), -1);
  EXPECT_FALSE(folder.has("destination"));
  EXPECT_EQ(utilOSWideCopyFile(source.c_str(), folder.wideFile("missing/destination").c_str()), -1);
  EXPECT_EQ(folder.read("source"), std::vector<unsigned char>{1});
}

TEST(UtilPathGet, IsTheWorkingDirectoryWithASlash) {
  const TestFolder folder;
  std::filesystem::create_directory(folder.path() / "n\xC3\xA4me");
  const InFolder inside(folder.path() / "n\xC3\xA4me");
  std::vector<wchar_t> path(4096, L'#');
  utilOSPathGet(path.data(), 4096);
  const std::wstring expected = folder.path().wstring() + L"/n\u00E4me/";
  EXPECT_EQ(std::wstring(path.data()), expected);
  for (std::size_t i = expected.size(); i < path.size(); ++i)
    ASSERT_EQ(path[i], L'\0');

  // Exactly enough room, and one character less.
  std::vector<wchar_t> exact(expected.size() + 1, L'#');
  utilOSPathGet(exact.data(), static_cast<unsigned int>(exact.size()));
  EXPECT_EQ(std::wstring(exact.data()), expected);
  for (std::size_t size = 1; size < exact.size(); ++size) {
    std::vector<wchar_t> small(size, L'#');
    utilOSPathGet(small.data(), static_cast<unsigned int>(size));
    ASSERT_EQ(small, std::vector<wchar_t>(size, L'\0')) << size;
  }
}

TEST(UtilPathGet, StaysEmptyWithoutAWorkingDirectory) {
  const TestFolder folder;
  std::filesystem::create_directory(folder.path() / "gone");
  const InFolder inside(folder.path() / "gone");
  std::filesystem::remove(folder.path() / "gone");
  wchar_t path[100] = L"before";
  utilOSPathGet(path, 100);
  EXPECT_EQ(path[0], L'\0');
  wchar_t untouched[] = L"x";
  utilOSPathGet(untouched, 0);
  EXPECT_EQ(untouched[0], L'x');
  utilOSPathGet(nullptr, 5);
}

TEST(UtilShowError, WritesOneCharacterOfTheMessageAndTheError) {
  ::testing::internal::CaptureStderr();
  errno = ENOENT;
  utilOSShowError(L"Message");
  errno = EACCES;
  utilOSShowError(nullptr);
  errno = ENOENT;
  utilOSShowError(L"");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "M: error 2: No such file or directory\n error 13: Permission denied\n: error 2: No such file or "
            "directory\n");
}

// ---- Directories

TEST(UtilMakeDirectory, MakesEveryMissingDirectoryAlongThePath) {
  const TestFolder folder;
  const mode_t mask = umask(0);
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile("a/b/c").c_str()), 0);
  umask(mask);
  for (const char* name : {"a", "a/b", "a/b/c"}) {
    struct stat status {};
    ASSERT_EQ(stat(folder.file(name).c_str(), &status), 0) << name;
    EXPECT_TRUE(S_ISDIR(status.st_mode)) << name;
    EXPECT_EQ(status.st_mode & 07777, 0775u) << name;
  }
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile("a/b/c").c_str()), 0) << "an existing path";
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile("a//d/").c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "a" / "d"));
}

TEST(UtilMakeDirectory, TakesPathsRelativeToTheWorkingDirectory) {
  const TestFolder folder;
  const InFolder inside(folder.path());
  EXPECT_EQ(utilOSMakeDirectory(L"x"), 0);
  EXPECT_EQ(utilOSMakeDirectory(L"y/z"), 0);
  EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "x"));
  EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "y" / "z"));
  EXPECT_EQ(utilOSMakeDirectory(L"/"), 0);
}

TEST(UtilMakeDirectory, StopsAtAFileInTheWay) {
  const TestFolder folder;
  folder.write("file", {1});
  errno = 0;
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile("file/below/it").c_str()), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(folder.read("file"), std::vector<unsigned char>{1});
  // A path that exists is good, whatever it is.
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile("file").c_str()), 0);
}

TEST(UtilMakeDirectory, PassesOnWhatTheSystemRefuses) {
  EXPECT_EQ(utilOSMakeDirectory(nullptr), -1);
  EXPECT_EQ(utilOSMakeDirectory(L""), -1);
  EXPECT_EQ(errno, ENOENT);
  const TestFolder folder;
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile(std::string(300, 'n')).c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile(std::string(300, 'n') + "/below").c_str()), -1);
  EXPECT_EQ(utilOSMakeDirectory(std::wstring(9000, L'n').c_str()), -1)
      << "cut at 4095 bytes, and still too long";
}

TEST(UtilMakeDirectory, TakesADanglingLinkForADirectoryThatIsThere) {
  const TestFolder folder;
  std::filesystem::create_symlink("nowhere", folder.path() / "link");
  EXPECT_EQ(utilOSMakeDirectory(folder.wideFile("link").c_str()), 0) << "mkdir says that it exists";
}

TEST(UtilDirectoryExists, TellsDirectoriesFromFilesAndNothing) {
  const TestFolder folder;
  folder.write("file", {1});
  EXPECT_TRUE(utilOSDirectoryExists(folder.path().wstring()));
  EXPECT_FALSE(utilOSDirectoryExists(folder.wideFile("file")));
  EXPECT_FALSE(utilOSDirectoryExists(folder.wideFile("none")));
  EXPECT_FALSE(utilOSDirectoryExists(L""));
}

TEST(UtilDiskSpace, IsWhatTheFileSystemStates) {
  const TestFolder folder;
  unsigned long available = 1, total = 2;
  struct statvfs before {};
  struct statvfs after {};
  // Others write to the same disk: ask until nothing changed meanwhile.
  for (int attempt = 0; attempt < 10000; ++attempt) {
    ASSERT_EQ(statvfs(folder.path().c_str(), &before), 0);
    ASSERT_EQ(utilOSGetDiskAvailableSpace(folder.path().wstring(), available, total), 0);
    ASSERT_EQ(statvfs(folder.path().c_str(), &after), 0);
    if (before.f_bavail == after.f_bavail) break;
  }
  EXPECT_EQ(available, before.f_bsize * before.f_bavail);
  EXPECT_EQ(total, before.f_frsize * before.f_blocks);
}

TEST(UtilDiskSpace, LeavesTheOutputsWhenThePathIsMissing) {
  const TestFolder folder;
  unsigned long available = 1, total = 2;
  EXPECT_EQ(utilOSGetDiskAvailableSpace(folder.wideFile("none"), available, total), -1);
  EXPECT_EQ(available, 1u);
  EXPECT_EQ(total, 2u);
}

}  // namespace
