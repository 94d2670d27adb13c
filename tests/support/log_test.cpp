// The log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <orvacam/support/CLog.h>

#include <chrono>
#include <cstdarg>
#include <regex>
#include <sstream>
#include <thread>

#include "TestFolder.h"

namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

/// A log in a folder of its own.
class Log : public ::testing::Test {
 protected:
  Log() : before(std::filesystem::current_path()) {
    std::filesystem::current_path(folder.path());
    log = new CLog;
  }
  ~Log() override {
    delete log;
    std::filesystem::current_path(before);
  }
  std::vector<std::filesystem::path> files(const char* directory = "MarloLogs") const {
    std::vector<std::filesystem::path> all;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path() / directory))
      all.push_back(entry.path());
    return all;
  }
  std::string text() const {
    std::string all;
    for (const auto& file : files()) {
      std::ifstream in(file);
      all.append(std::istreambuf_iterator<char>(in), {});
    }
    return all;
  }
  /// What is written without its time.
  std::string lines() const {
    return std::regex_replace(text(), std::regex("[0-9/]{10} [0-9:]{8}\\.[0-9]{3}, "), "");
  }

  TestFolder folder;
  std::filesystem::path before;
  CLog* log;
};

TEST_F(Log, IsOffFromTheStartAndOpensNoFile) {
  EXPECT_EQ(log->m_eLogLevel, 0);
  log->log(CLOGLEVEL_ERROR, L"nothing\n");
  log->log(CLOGLEVEL_ERROR, "nothing\n");
  EXPECT_TRUE(files().empty());
}

TEST_F(Log, WritesLinesUpToItsThreshold) {
  log->m_eLogLevel = CLOGLEVEL_TRACE;
  log->log(CLOGLEVEL_TRACE_FIBRE, L"too quiet\n");
  log->log(CLOGLEVEL_ENTRY, L"too quiet\n");
  log->log(CLOGLEVEL_TRACE, L"%s: %d\n", "Name", 7);
  EXPECT_EQ(lines(), "TRACE, Name: 7\n");
  log->m_eLogLevel = CLOGLEVEL_ENTRY;
  log->log(CLOGLEVEL_ENTRY, L"heard\n");
  EXPECT_THAT(lines(), HasSubstr("UNKNO, heard\n"));
}

TEST_F(Log, HasAWordForEveryLevel) {
  log->m_eLogLevel = static_cast<CLOGLEVEL>(100);
  for (int level = 1; level <= 9; ++level) {
    log->log(static_cast<CLOGLEVEL>(level), L"w");
    log->log(static_cast<CLOGLEVEL>(level), "n");
  }
  EXPECT_EQ(
      lines(),
      "ERROR, w\nERROR, n\nWARN , w\nWARN , n\nINFO , w\nINFO , n\nREGRW, w\nUNKNO, n\nDEBUG, w\nDEBUG, n\n"
      "TRACE, w\nTRACE, n\nFIBRE, w\nFIBRE, n\nUNKNO, w\nUNKNO, n\nUNKNO, w\nUNKNO, n\n");
}

void callVlog(CLog* log, void (CLog::*entry)(const wchar_t*, va_list), const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  (log->*entry)(format, args);
  va_end(args);
}

TEST_F(Log, FixedLevelEntriesWriteWhateverTheThreshold) {
  log->logError(L"%d", 1);
  log->logWarning(L"%d", 2);
  log->logInfo(L"%d", 3);
  log->logTrace(L"%d", 4);
  log->logTraceFibre(L"%d", 5);
  callVlog(log, &CLog::vlogError, L"%d", 6);
  callVlog(log, &CLog::vlogWarning, L"%d", 7);
  callVlog(log, &CLog::vlogInfo, L"%d", 8);
  callVlog(log, &CLog::vlogDebug, L"%d", 9);
  callVlog(log, &CLog::vlogTrace, L"%d", 10);
  callVlog(log, &CLog::vlogTraceFibre, L"%d", 11);
  EXPECT_EQ(
      lines(),
      "ERROR, 1\nWARN , 2\nINFO , 3\nTRACE, 4\nFIBRE, 5\nERROR, 6\nWARN , 7\nINFO , 8\nDEBUG, 9\nTRACE, 10\n"
      "FIBRE, 11\n");
}

TEST_F(Log, WritesNothingForAnEmptyOrNullFormat) {
  log->m_eLogLevel = CLOGLEVEL_ENTRY;
  log->log(CLOGLEVEL_ERROR, L"");
  log->log(CLOGLEVEL_ERROR, "");
  log->logError(L"");
  log->logError(nullptr);
  log->logTraceFibre(nullptr);
  callVlog(log, &CLog::vlogDebug, nullptr);
  EXPECT_TRUE(files().empty());
}

TEST_F(Log, EndsEveryLineWithOneLineFeedAndStampsIt) {
  log->m_eLogLevel = CLOGLEVEL_ERROR;
  log->log(CLOGLEVEL_ERROR, L"with\n");
  log->log(CLOGLEVEL_ERROR, L"without");
  log->log(CLOGLEVEL_ERROR, "narrow\n");
  EXPECT_EQ(lines(), "ERROR, with\nERROR, without\nERROR, narrow\n");
  EXPECT_THAT(
      text(),
      MatchesRegex("([0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}, ERROR, [a-z]+\n){3}"));
}

TEST_F(Log, CutsLongLinesSoThatALineFeedStillEndsThem) {
  log->m_eLogLevel = CLOGLEVEL_ERROR;
  for (const std::size_t length : {1021u, 1022u, 1023u, 1024u, 5000u}) {
    const std::string message(length, 'a');
    log->log(CLOGLEVEL_ERROR, "%s", message.c_str());
    log->log(CLOGLEVEL_ERROR, L"%s", message.c_str());
  }
  std::istringstream in(lines());
  std::size_t count = 0;
  for (std::string line; std::getline(in, line); ++count)
    EXPECT_EQ(line.size() - 7, std::min<std::size_t>(1022, count < 2 ? 1021 : 1022)) << count;
  EXPECT_EQ(count, 10u);
}

TEST_F(Log, KeepsALineOf1022CharactersAndItsLineFeed) {
  log->m_eLogLevel = CLOGLEVEL_ERROR;
  const std::string message = std::string(1022, 'b') + "\n";
  log->log(CLOGLEVEL_ERROR, "%s", message.c_str());
  EXPECT_EQ(lines(), "ERROR, " + message);
}

TEST_F(Log, LosesNoLineWhoseTextIsNotOfTheLocale) {
  log->m_eLogLevel = CLOGLEVEL_ERROR;
  log->log(CLOGLEVEL_ERROR, L"%ls", L"\u20ac uro");
  log->log(CLOGLEVEL_ERROR, L"%s after", "\xFF\xFE");
  EXPECT_THAT(lines(), HasSubstr("ERROR, \xE2\x82\xAC uro\n"));
  EXPECT_THAT(lines(), HasSubstr(" after\n"));
}

TEST_F(Log, TellsHowManyBytesItWrote) {
  struct Probe {
    static unsigned int wide(CLog* log, const wchar_t* format, ...) {
      va_list args;
      va_start(args, format);
      const unsigned int written = log->logData(L"WORD5", format, args);
      va_end(args);
      return written;
    }
    static unsigned int narrow(CLog* log, const char* format, ...) {
      va_list args;
      va_start(args, format);
      const unsigned int written = log->logData("WORD5", format, args);
      va_end(args);
      return written;
    }
  };
  EXPECT_EQ(Probe::wide(log, L"abc"), 32u + 4u);  // time, word, separators; text and line feed
  EXPECT_EQ(Probe::narrow(log, "abcd\n"), 32u + 5u);
}

TEST_F(Log, NamesFilesByPrefixAndTime) {
  log->logError(L"x");
  ASSERT_EQ(files().size(), 1u);
  EXPECT_THAT(files()[0].filename().string(),
              MatchesRegex("Log_[0-9]{8}_[0-9]{2}\\.[0-9]{2}\\.[0-9]{2}\\.[0-9]{3}\\.txt"));
}

TEST_F(Log, OpensEveryFileWithItsHeader) {
  log->setNewFileHeader(L"The header");
  log->logError(L"x");
  EXPECT_EQ(lines(), "The header\nERROR, x\n");
  log->setNewFileHeader(std::wstring(3000, L'h').c_str());
  log->setNewFileHeader(nullptr);
}

TEST_F(Log, ClosesWithItsReason) {
  log->logError(L"x");
  log->closeLogFile(L"(A Reason)");
  log->closeLogFile(L"(Not Open)");
  EXPECT_THAT(
      text(),
      MatchesRegex("(.|\n)*ERROR, x\n\n\nFile Closed \\(A Reason\\) at [0-9/]{10} [0-9:]{8}\\.[0-9]{3}\n"));
}

TEST_F(Log, ShutsDownAtItsEnd) {
  log->logError(L"x");
  delete log;
  EXPECT_THAT(text(), HasSubstr("\n\nFile Closed (Shutting Down) at "));
  log = new CLog;
}

TEST_F(Log, ReplacesAFileThatPasses64MiB) {
  EXPECT_FALSE(log->logFileTooLarge());
  log->logError(L"first");
  EXPECT_FALSE(log->logFileTooLarge());
  std::filesystem::resize_file(files()[0], 0x4000000);  // sparse
  EXPECT_FALSE(log->logFileTooLarge());
  std::filesystem::resize_file(files()[0], 0x4000001);
  EXPECT_TRUE(log->logFileTooLarge());
  std::this_thread::sleep_for(std::chrono::milliseconds(2));  // files of one millisecond have one name
  log->logError(L"second");
  EXPECT_EQ(files().size(), 2u);
}

TEST_F(Log, AppendsToItsDirectory) {
  log->setLogPath(L"x");
  log->logError(L"there");
  EXPECT_EQ(files("MarloLogsx").size(), 1u);
  log->setLogPath(nullptr);
}

TEST_F(Log, GoesOnWithoutAFileThatCannotBeOpened) {
  std::filesystem::remove_all(folder.path() / "MarloLogs");
  std::ofstream(folder.path() / "MarloLogs") << "a file is in the way";
  ::testing::internal::CaptureStderr();
  log->logError(L"one");
  log->logError(L"two");
  const std::string shown = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(shown, "A: error 20: Not a directory\nA: error 20: Not a directory\n");
  EXPECT_EQ(log->makeLogDirectory(), 0);  // something is there
}

TEST_F(Log, IsOneForAllAndMadeAnewAfterItsRelease) {
  CLog::release();
  EXPECT_EQ(CLog::m_pInstance, nullptr);
  CLog* const first = CLog::getInstance();
  EXPECT_EQ(CLog::getInstance(), first);
  EXPECT_EQ(CLog::m_pInstance, first);
  first->m_eLogLevel = CLOGLEVEL_INFO;
  CLog::release();
  EXPECT_EQ(CLog::getInstance()->m_eLogLevel, 0);
  CLog::release();
}

TEST_F(Log, KeepsLinesOfSeveralThreadsWhole) {
  log->m_eLogLevel = CLOGLEVEL_ERROR;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([this, t] {
      for (int i = 0; i < 200; ++i)
        log->log(CLOGLEVEL_ERROR, L"thread %d says %d\n", t, i);
    });
  for (std::thread& thread : threads)
    thread.join();
  std::istringstream in(lines());
  std::size_t count = 0;
  for (std::string line; std::getline(in, line); ++count)
    ASSERT_THAT(line, MatchesRegex("ERROR, thread [0-3] says [0-9]+"));
  EXPECT_EQ(count, 800u);
}

}  // namespace
