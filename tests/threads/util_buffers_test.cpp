// The utilities' static buffers: one per thread.

#include <gtest/gtest.h>
#include <orvacam/support/util.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "threads/Together.h"

namespace {

constexpr std::size_t threads = 4;

std::string nameOf(std::size_t thread, int round) {
  return "camera" + std::to_string(thread) + "-" +
         std::string(1 + round % 40, static_cast<char>('a' + thread));
}

TEST(StaticBuffers, AreOtherOnesInEveryThread) {
  std::vector<const void*> narrow(threads), wide(threads);
  together(threads, [&](std::size_t i) {
    narrow[i] = utilWideToMbsStatic(L"x");
    wide[i] = utilCharToWideStrStatic("x");
    // One thread's buffers stay where they are.
    EXPECT_EQ(utilWideToMbsStatic(L"y"), narrow[i]);
    EXPECT_EQ(utilCharToWideStrStatic("y"), wide[i]);
  });
  narrow.push_back(utilWideToMbsStatic(L"x"));
  wide.push_back(utilCharToWideStrStatic("x"));
  // Buffers of threads that have ended may be used again, but not that of this one, which lived with them
  // all.
  for (std::size_t i = 0; i < threads; ++i) {
    EXPECT_NE(narrow[i], narrow[threads]);
    EXPECT_NE(wide[i], wide[threads]);
  }
}

TEST(StaticBuffers, KeepEachThreadsTextWhileOthersConvertTheirs) {
  together(threads, [](std::size_t i) {
    for (int round = 0; round < 500; ++round) {
      const std::string text = nameOf(i, round);
      const std::wstring wideText(text.begin(), text.end());
      const wchar_t* const wide = utilCharToWideStrStatic(text.c_str());
      const char* const narrow = utilWideToMbsStatic(wideText.c_str());
      std::this_thread::yield();
      ASSERT_EQ(wideText, wide);
      ASSERT_EQ(text, narrow);
      std::string copied;
      utilW2S(wideText, copied);
      ASSERT_EQ(copied, text);
    }
  });
}

TEST(StaticBuffers, OfPathsLeadEachThreadToItsOwnFiles) {
  const TestFolder folder;
  together(threads, [&](std::size_t i) {
    for (int round = 0; round < 40; ++round) {
      const std::string name = nameOf(i, round);
      const std::wstring directory = folder.wideFile(name);
      ASSERT_EQ(utilOSMakeDirectory(directory.c_str()), 0);
      ASSERT_TRUE(utilOSDirectoryExists(directory));
      const std::wstring file = directory + L"/file";
      std::FILE* const out = utilOSWideFileOpen(file.c_str(), L"wb");
      ASSERT_NE(out, nullptr);
      std::fputs(name.c_str(), out);
      std::fclose(out);
      ASSERT_EQ(utilOSWideCopyFile(file.c_str(), (directory + L"/copy").c_str()), 0);
      const std::vector<unsigned char> bytes = folder.read(name + "/file");
      ASSERT_EQ(std::string(bytes.begin(), bytes.end()), name);
      ASSERT_TRUE(folder.has(name + "/copy"));
      unsigned long available = 0, total = 0;
      ASSERT_EQ(utilOSGetDiskAvailableSpace(directory, available, total), 0);
    }
  });
}

TEST(StaticBuffers, AreNotNeededByWhatWritesIntoTheCallers) {
  together(threads, [](std::size_t) {
    for (int round = 0; round < 200; ++round) {
      char time[32];
      utilOSGetLocalTimeString(time, sizeof time);
      ASSERT_EQ(std::strlen(time), 23u);
      wchar_t path[4096];
      utilOSPathGet(path, 4096);
      ASSERT_EQ(path[0], L'/');
      unsigned int year = 0, month = 0, day = 0;
      double seconds = 0;
      char text[] = "2024/05/17 21:04:33.123456700";
      ASSERT_EQ(utilParseTimeString(text, sizeof text, year, month, day, seconds), 0);
      ASSERT_EQ(day, 17u);
    }
  });
}

}  // namespace
