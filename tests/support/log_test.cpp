// The log: its lines, its files, its levels.

#include <gtest/gtest.h>
#include <orvacam/support/CLog.h>
#include <orvacam/support/util.h>

#include <cstdarg>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "TestFolder.h"
#include "metadata/SettableHeader.h"

namespace {

/// A log with everything in reach.
class OpenLog : public CLog {
 public:
  using CLog::m_Directory;
  using CLog::m_FileHeader;
  using CLog::m_FileName;
  using CLog::m_FilePrefix;
  using CLog::m_MessageBuffer;
  using CLog::m_Mutex;
  using CLog::m_pFile;

  /// logData, as a caller with an argument list has it.
  template <typename Character>
  unsigned int write(const Character* pWord, const Character* pFormat, ...) {
    va_list args;
    va_start(args, pFormat);
    const unsigned int written = logData(pWord, pFormat, args);
    va_end(args);
    return written;
  }
  void narrowList(CLOGLEVEL eLevel, const char* pFormat, ...) {
    va_list args;
    va_start(args, pFormat);
    DoLog(eLevel, pFormat, args);
    va_end(args);
  }
  void wideList(void (CLog::*pEntry)(const wchar_t*, va_list), const wchar_t* pFormat, ...) {
    va_list args;
    va_start(args, pFormat);
    (this->*pEntry)(pFormat, args);
    va_end(args);
  }
};

/// A text with 0 for every digit.
std::string shapeOf(std::string text) {
  for (char& c : text)
    if (c >= '0' && c <= '9') c = '0';
  return text;
}

/// A text with "<time>" for the times of lines, which are collected where that is asked for.
std::string timed(std::string text, std::vector<std::string>* times = nullptr) {
  const std::string shape = "0000/00/00 00:00:00.000";
  std::string shapes = shapeOf(text);
  for (std::size_t at = 0; (at = shapes.find(shape, at)) != shapes.npos; at += 6) {
    if (times != nullptr) times->push_back(text.substr(at, shape.size()));
    text.replace(at, shape.size(), "<time>");
    shapes.replace(at, shape.size(), "<time>");
  }
  return text;
}

/// Each test works in a folder of its own.
class Log : public ::testing::Test {
 protected:
  std::vector<std::filesystem::path> files() const {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(m_Folder.path() / "MarloLogs"))
      found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    return found;
  }
  static std::string read(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  /// The only log file's text.
  std::string text() const {
    const auto found = files();
    EXPECT_EQ(found.size(), 1u);
    return found.empty() ? std::string() : read(found.front());
  }
  /// The same without the time of each line.
  std::string lines() const { return without(timed(text()), "<time>, "); }

  static std::string without(std::string all, const std::string& part) {
    for (std::size_t at = 0; (at = all.find(part, at)) != all.npos;)
      all.erase(at, part.size());
    return all;
  }

  TestFolder m_Folder;
  InFolder m_Inside{m_Folder.path()};
};

// ---- Set-up

TEST_F(Log, StartsOffWithADirectoryButNoFile) {
  const OpenLog log;
  EXPECT_EQ(log.m_eLogLevel, 0);
  EXPECT_EQ(log.m_pFile, nullptr);
  EXPECT_EQ(std::wstring(log.m_FileHeader), L"");
  EXPECT_EQ(std::wstring(log.m_FilePrefix), L"Log");
  // The doubled slash is kept.
  EXPECT_EQ(std::wstring(log.m_Directory), std::filesystem::current_path().wstring() + L"//MarloLogs");
  EXPECT_TRUE(std::filesystem::is_directory("MarloLogs"));
  EXPECT_TRUE(files().empty());
}

// The first line opens the file, which needs texts of both kinds.
TEST_F(Log, LeavesTheStaticTextsOfItsCallersAlone) {
  OpenLog log;
  log.write(L"WORD ", L"%ls %s", utilCharToWideStrStatic("wide"), utilWideToMbsStatic(L"narrow"));
  EXPECT_EQ(lines(), "WORD , wide narrow\n");
}

TEST_F(Log, IsOneInstanceUntilItIsReleased) {
  CLog::release();
  EXPECT_EQ(CLog::m_pInstance, nullptr);
  CLog* const log = CLog::getInstance();
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(CLog::m_pInstance, log);
  EXPECT_EQ(CLog::getInstance(), log);
  log->m_eLogLevel = CLOGLEVEL_INFO;
  CLog::release();
  EXPECT_EQ(CLog::m_pInstance, nullptr);
  EXPECT_EQ(CLog::getInstance()->m_eLogLevel, CLOGLEVEL_OFF) << "a new one";
  CLog::release();
  CLog::release();
}

TEST_F(Log, IsReleasedThroughItsVirtualDestructor) {
  struct Derived : CLog {
    explicit Derived(bool& gone) : m_Gone(gone) {}
    ~Derived() override { m_Gone = true; }
    bool& m_Gone;
  };
  CLog::release();
  bool gone = false;
  CLog::m_pInstance = new Derived(gone);
  CLog::release();
  EXPECT_TRUE(gone);
}

TEST_F(Log, SetLogPathAppendsToTheDirectory) {
  OpenLog log;
  log.setLogPath(L"x");
  EXPECT_EQ(std::wstring(log.m_Directory), std::filesystem::current_path().wstring() + L"//MarloLogsx");
  EXPECT_TRUE(std::filesystem::is_directory("MarloLogsx"));
  log.setLogPath(L"/deeper/still");
  EXPECT_TRUE(std::filesystem::is_directory("MarloLogsx/deeper/still"));
  log.setLogPath(nullptr);
  EXPECT_TRUE(std::filesystem::is_directory("MarloLogsx/deeper/still"));
}

TEST_F(Log, PathsEndAt4095Characters) {
  OpenLog log;
  log.setLogPath(std::wstring(5000, L'x').c_str());
  EXPECT_EQ(std::wcslen(log.m_Directory), 4095u);
  log.setLogPath(L"y");
  EXPECT_EQ(std::wcslen(log.m_Directory), 4095u);
  EXPECT_EQ(log.makeLogDirectory(), -1);
}

TEST_F(Log, MakeLogDirectoryYieldsItsStatus) {
  OpenLog log;
  std::filesystem::remove("MarloLogs");
  EXPECT_EQ(log.makeLogDirectory(), 0);
  EXPECT_TRUE(std::filesystem::is_directory("MarloLogs"));
  EXPECT_EQ(log.makeLogDirectory(), 0);
  std::filesystem::remove("MarloLogs");
  m_Folder.write("MarloLogs", {});
  log.setLogPath(L"/below");
  EXPECT_EQ(log.makeLogDirectory(), -1);
}

// ---- Lines

TEST_F(Log, WritesTimeLevelWordAndMessage) {
  OpenLog log;
  log.m_eLogLevel = CLOGLEVEL_ERROR;
  log.log(CLOGLEVEL_ERROR, L"%s: count= %d of %ls", "Initialize", 7, L"wide");
  log.log(CLOGLEVEL_ERROR, "%s: %d", "narrow", 8);
  EXPECT_EQ(timed(text()), "<time>, ERROR, Initialize: count= 7 of wide\n<time>, ERROR, narrow: 8\n");
}

std::string timeNow(const char* format) {
  unsigned int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
  utilOSGetLocalTime(&year, &month, &day, &hour, &minute, &second, &millisecond);
  char text[64];
  std::snprintf(text, sizeof text, format, year, month, day, hour, minute, second, millisecond);
  return text;
}

TEST_F(Log, TellsTheTimeOfNow) {
  constexpr const char* lineTime = "%04u/%02u/%02u %02u:%02u:%02u.%03u";
  constexpr const char* fileTime = "Log_%04u%02u%02u_%02u.%02u.%02u.%03u.txt";
  const std::string before = timeNow(lineTime), fileBefore = timeNow(fileTime);
  {
    OpenLog log;
    log.logInfo(L"wide");
    log.write("WORD?", "narrow");
  }
  const std::string after = timeNow(lineTime), fileAfter = timeNow(fileTime);
  std::vector<std::string> times;
  timed(text(), &times);
  for (const std::string& time : times) {
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
  }
  EXPECT_EQ(times.size(), 3u) << "two lines and the closing one";
  EXPECT_LE(fileBefore, files().front().filename().string());
  EXPECT_LE(files().front().filename().string(), fileAfter);
}

TEST_F(Log, EndsEachLineWithOneLineFeed) {
  OpenLog log;
  log.m_eLogLevel = CLOGLEVEL_ERROR;
  log.log(CLOGLEVEL_ERROR, L"wide\n");
  log.log(CLOGLEVEL_ERROR, L"wide");
  log.log(CLOGLEVEL_ERROR, "narrow\n");
  log.log(CLOGLEVEL_ERROR, "narrow");
  log.log(CLOGLEVEL_ERROR, L"two\n\n");
  EXPECT_EQ(lines(), "ERROR, wide\nERROR, wide\nERROR, narrow\nERROR, narrow\nERROR, two\n\n");
}

TEST_F(Log, WritesNothingForAnEmptyFormatAndALineForAnEmptyMessage) {
  OpenLog log;
  log.m_eLogLevel = CLOGLEVEL_ENTRY;
  const char* const empty = "";
  log.log(CLOGLEVEL_ERROR, L"");
  log.log(CLOGLEVEL_ERROR, empty);
  log.log(CLOGLEVEL_ERROR, static_cast<const wchar_t*>(nullptr));
  log.log(CLOGLEVEL_ERROR, static_cast<const char*>(nullptr));
  log.logError(L"");
  log.logError(nullptr);
  EXPECT_TRUE(files().empty());
  log.log(CLOGLEVEL_ERROR, L"%s", "");
  log.log(CLOGLEVEL_ERROR, "%s", "");
  EXPECT_EQ(lines(), "ERROR, \nERROR, \n");
}

TEST_F(Log, CutsLinesAt1023CharactersWithALineFeedAtTheEnd) {
  struct Row {
    std::size_t length;
    bool feed;         // the message's last character is a line feed
    std::size_t kept;  // characters before the line feed that ends the line
  };
  for (const Row& row :
       {Row{1021, false, 1021}, Row{1022, false, 1022}, Row{1023, false, 1022}, Row{1024, false, 1022},
        Row{5000, false, 1022}, Row{300000, false, 1022}, Row{1022, true, 1021}, Row{1023, true, 1022},
        Row{1024, true, 1022}, Row{5000, true, 1022}, Row{(1 << 20) - 1, false, 1022},
        Row{1 << 20, false, 1022}, Row{(1 << 20) + 1, true, 1022}, Row{5000000, false, 1022}}) {
    std::string message(row.length, 'm');
    if (row.feed) message.back() = '\n';
    const std::string expected = "ERROR, " + std::string(row.kept, 'm') + "\n";
    for (const bool wide : {false, true}) {
      OpenLog log;
      log.m_eLogLevel = CLOGLEVEL_ERROR;
      if (wide)
        log.log(CLOGLEVEL_ERROR, L"%s", message.c_str());
      else
        log.log(CLOGLEVEL_ERROR, "%s", message.c_str());
      EXPECT_EQ(lines(), expected) << row.length << (row.feed ? " with" : " without") << " line feed";
      std::filesystem::remove(files().front());
      log.closeLogFile(nullptr);
    }
  }
}

TEST_F(Log, CutsWideLinesAt1023BytesBetweenCharacters) {
  OpenLog log;
  log.m_eLogLevel = CLOGLEVEL_ERROR;
  log.log(CLOGLEVEL_ERROR, L"%ls", std::wstring(1000, L'\u20AC').c_str());  // three bytes each
  std::string expected = "ERROR, ";
  for (int i = 0; i < 340; ++i)  // 1020 bytes; one more does not fit before the line feed
    expected += "\xE2\x82\xAC";
  EXPECT_EQ(lines(), expected + "\n");
}

TEST_F(Log, WritesTheFormatOfAMessageThatCannotBeFormatted) {
  OpenLog log;
  log.m_eLogLevel = CLOGLEVEL_ERROR;
  // The host's locale has no character for these bytes.
  log.log(CLOGLEVEL_ERROR, L"%s: name %s\n", "Initialize", "\xC3\xA4");
  EXPECT_EQ(lines(), "ERROR, %s: name %s\n");
}

TEST_F(Log, EndsAMessageAtAZeroCharacter) {
  OpenLog log;
  log.m_eLogLevel = CLOGLEVEL_ERROR;
  log.log(CLOGLEVEL_ERROR, "a%cb", 0);
  log.log(CLOGLEVEL_ERROR, L"c%lcd", static_cast<wint_t>(0));
  EXPECT_EQ(lines(), "ERROR, a\nERROR, c\n");
}

TEST_F(Log, LineTimesDoNotFollowTheLocale) {
  const ScopedLocale german("de_DE.UTF-8");
  OpenLog log;
  log.m_eLogLevel = CLOGLEVEL_ERROR;
  log.log(CLOGLEVEL_ERROR, L"%s", "M\xC3\xBCnchen");
  log.log(CLOGLEVEL_ERROR, L"%ls", L"M\u00FCnchen");
  EXPECT_EQ(lines(), "ERROR, M\xC3\xBCnchen\nERROR, M\xC3\xBCnchen\n");
}

TEST_F(Log, LogDataYieldsTheBytesWritten) {
  OpenLog log;
  // "YYYY/MM/DD hh:mm:ss.mmm, " is 25 bytes, "WORD?, " 7.
  EXPECT_EQ(log.write(L"WORD?", L"%ls", L"\u20AC"), 25u + 7 + 3 + 1);
  EXPECT_EQ(log.write("WORD?", "%d", 12), 25u + 7 + 2 + 1);
  EXPECT_EQ(log.write("WORD?", "12\n"), 25u + 7 + 2 + 1);
  EXPECT_EQ(text().size(), 36u + 35 + 35);
  EXPECT_EQ(lines(), "WORD?, \xE2\x82\xAC\nWORD?, 12\nWORD?, 12\n");
}

// ---- Levels

TEST_F(Log, KnowsAWordForEachLevel) {
  struct Row {
    int level;
    const char* wide;
    const char* narrow;
  };
  std::string expected;
  OpenLog log;
  log.m_eLogLevel = static_cast<CLOGLEVEL>(100);
  for (const Row& row : {Row{1, "ERROR", "ERROR"}, Row{2, "WARN ", "WARN "}, Row{3, "INFO ", "INFO "},
                         Row{4, "REGRW", "UNKNO"},  // the narrow entry has no word of its own for this one
                         Row{5, "DEBUG", "DEBUG"}, Row{6, "TRACE", "TRACE"}, Row{7, "FIBRE", "FIBRE"},
                         Row{8, "UNKNO", "UNKNO"}, Row{9, "UNKNO", "UNKNO"}, Row{0, "UNKNO", "UNKNO"},
                         Row{-1, "UNKNO", "UNKNO"}}) {
    log.log(static_cast<CLOGLEVEL>(row.level), L"%d", row.level);
    log.log(static_cast<CLOGLEVEL>(row.level), "%d", row.level);
    log.narrowList(static_cast<CLOGLEVEL>(row.level), "%d", row.level);
    const std::string message = ", " + std::to_string(row.level) + "\n";
    expected += row.wide + message + row.narrow + message + row.narrow + message;
  }
  EXPECT_EQ(lines(), expected);
}

TEST_F(Log, DropsLevelsAboveTheThreshold) {
  for (int threshold = 0; threshold <= 8; ++threshold) {
    OpenLog log;
    log.m_eLogLevel = static_cast<CLOGLEVEL>(threshold);
    std::string expected;
    for (int level = 1; level <= 9; ++level) {
      log.log(static_cast<CLOGLEVEL>(level), L"wide %d", level);
      log.log(static_cast<CLOGLEVEL>(level), "narrow %d", level);
      if (level <= threshold)
        expected += "wide " + std::to_string(level) + "\nnarrow " + std::to_string(level) + "\n";
    }
    if (threshold == 0) {
      EXPECT_TRUE(files().empty());
      continue;
    }
    std::string messages;
    std::istringstream in(lines());
    for (std::string line; std::getline(in, line);)
      messages += line.substr(7) + "\n";  // behind the level's word
    EXPECT_EQ(messages, expected) << threshold;
    std::filesystem::remove(files().front());
  }
}

TEST_F(Log, WhenOffTakesNoLock) {
  OpenLog log;
  pthread_mutex_lock(&log.m_Mutex);
  log.log(CLOGLEVEL_ERROR, L"not written");
  log.log(CLOGLEVEL_ERROR, "not written");
  log.m_eLogLevel = CLOGLEVEL_ERROR;
  log.log(CLOGLEVEL_INFO, L"not written");
  pthread_mutex_unlock(&log.m_Mutex);
  EXPECT_TRUE(files().empty());
}

TEST_F(Log, FixedLevelEntriesWriteWhateverTheThreshold) {
  OpenLog log;
  log.logError(L"%d", 1);
  log.logWarning(L"%d", 2);
  log.logInfo(L"%d", 3);
  log.logTrace(L"%d", 4);
  log.logTraceFibre(L"%d", 5);
  log.wideList(&CLog::vlogError, L"%d", 6);
  log.wideList(&CLog::vlogWarning, L"%d", 7);
  log.wideList(&CLog::vlogInfo, L"%d", 8);
  log.wideList(&CLog::vlogDebug, L"%d", 9);
  log.wideList(&CLog::vlogTrace, L"%d", 10);
  log.wideList(&CLog::vlogTraceFibre, L"%d", 11);
  EXPECT_EQ(lines(),
            "ERROR, 1\nWARN , 2\nINFO , 3\nTRACE, 4\nFIBRE, 5\n"
            "ERROR, 6\nWARN , 7\nINFO , 8\nDEBUG, 9\nTRACE, 10\nFIBRE, 11\n");
}

TEST_F(Log, FixedLevelEntriesIgnoreNullAndEmptyFormats) {
  OpenLog log;
  for (const wchar_t* format : {static_cast<const wchar_t*>(nullptr), L""}) {
    log.logError(format);
    log.logWarning(format);
    log.logInfo(format);
    log.logTrace(format);
    log.logTraceFibre(format);
    for (auto entry : {&CLog::vlogError, &CLog::vlogWarning, &CLog::vlogInfo, &CLog::vlogDebug,
                       &CLog::vlogTrace, &CLog::vlogTraceFibre})
      log.wideList(entry, format);
  }
  EXPECT_TRUE(files().empty());
}

// ---- Files

TEST_F(Log, FilesAreNamedAfterPrefixAndTime) {
  OpenLog log;
  log.logInfo(L"line");
  const std::string name = files().front().filename().string();
  EXPECT_EQ(shapeOf(name), "Log_00000000_00.00.00.000.txt");
  EXPECT_EQ(std::wstring(log.m_FileName),
            std::wstring(log.m_Directory) + L"/" + files().front().filename().wstring());
}

TEST_F(Log, AFileOpensWithTheHeaderAndClosesWithTheReason) {
  {
    OpenLog log;
    log.setNewFileHeader(L"My camera \u03B1");
    log.logInfo(L"line");
  }
  EXPECT_EQ(timed(text()),
            "My camera \xCE\xB1\n<time>, INFO , line\n\n\nFile Closed (Shutting Down) at <time>\n");
}

TEST_F(Log, AFileCloseWithoutReasonNamesNone) {
  OpenLog log;
  log.logInfo(L"line");
  log.closeLogFile(nullptr);
  EXPECT_EQ(log.m_pFile, nullptr);
  EXPECT_EQ(timed(text()), "<time>, INFO , line\n\n\nFile Closed at <time>\n");
  log.closeLogFile(L"again");  // nothing is open
  EXPECT_EQ(text().find("again"), std::string::npos);
}

TEST_F(Log, LongHeadersAndReasonsAreCut) {
  OpenLog log;
  log.setNewFileHeader(std::wstring(5000, L'h').c_str());
  EXPECT_EQ(std::wstring(log.m_FileHeader), std::wstring(1022, L'h') + L"\n");
  log.logInfo(L"line");
  log.closeLogFile(std::wstring(5000, L'r').c_str());
  EXPECT_EQ(text().substr(0, 1024), std::string(1022, 'h') + "\n" + text().substr(1023, 1));
  EXPECT_EQ(text().back(), '\n');
  log.setNewFileHeader(nullptr);
  EXPECT_EQ(std::wstring(log.m_FileHeader), L"\n");
}

TEST_F(Log, AnotherFileClosesTheOneBefore) {
  OpenLog log;
  log.setNewFileHeader(L"My camera");
  log.logInfo(L"first");
  std::wcscpy(log.m_FilePrefix, L"Next");
  log.openNewFile();
  ASSERT_EQ(files().size(), 2u);
  EXPECT_EQ(timed(read(files()[0])), "My camera\n<time>, INFO , first\n\n\nFile Closed at <time>\n");
  log.closeLogFile(L"(Done)");
  EXPECT_EQ(timed(read(files()[1])), "My camera\n\n\nFile Closed (Done) at <time>\n");
}

TEST_F(Log, TwoFilesOfTheSameMillisecondAreOne) {
  OpenLog log;
  bool met = false;
  for (int attempt = 0; attempt < 10000 && !met; ++attempt) {
    log.openNewFile();
    log.write("WORD?", "first");
    const std::wstring first = log.m_FileName;
    log.openNewFile();
    met = first == log.m_FileName;
  }
  ASSERT_TRUE(met) << "no two files were opened within one millisecond";
  EXPECT_EQ(read(log.m_FileName), "") << "the second truncates the first";
}

TEST_F(Log, AFileBeyond64MebibytesIsReplaced) {
  constexpr std::uintmax_t limit = 64 * 1024 * 1024;
  OpenLog log;
  EXPECT_FALSE(log.logFileTooLarge()) << "no file is open";
  log.logInfo(L"first");
  const std::filesystem::path big = files().front();

  std::filesystem::resize_file(big, limit + 1);  // sparse
  EXPECT_TRUE(log.logFileTooLarge());
  std::filesystem::resize_file(big, limit);
  EXPECT_FALSE(log.logFileTooLarge());
  log.logInfo(L"second");
  EXPECT_EQ(std::filesystem::file_size(big), limit + 25 + 7 + 7) << "the limit itself is not too large";

  EXPECT_TRUE(log.logFileTooLarge());
  std::wcscpy(log.m_FilePrefix, L"Next");  // so that the two are told apart within a millisecond
  log.logInfo(L"third");
  ASSERT_EQ(files().size(), 2u);
  EXPECT_EQ(files()[0], big);
  std::ifstream in(big, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(limit));
  std::stringstream end;
  end << in.rdbuf();
  EXPECT_EQ(timed(end.str()), "<time>, INFO , second\n\n\nFile Closed (File Too Large) at <time>\n");
  EXPECT_EQ(timed(read(files()[1])), "<time>, INFO , third\n");
}

TEST_F(Log, AFileThatCannotBeOpenedIsReportedAtEachAttempt) {
  OpenLog log;
  std::filesystem::remove("MarloLogs");
  ::testing::internal::CaptureStderr();
  log.logInfo(L"lost");
  EXPECT_EQ(log.write("WORD?", "lost"), 0u);
  EXPECT_EQ(log.write(L"WORD?", L"lost"), 0u);
  // The message's first character is all that standard error sees of it.
  const std::string once = "A: error 2: No such file or directory\n";
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), once + once + once);
  EXPECT_EQ(log.m_pFile, nullptr);
  EXPECT_EQ(std::wstring(log.m_MessageBuffer), L"An error occurred while trying to open the log file " +
                                                   std::wstring(log.m_FileName) +
                                                   L".\nExecution will continue without logging.");

  m_Folder.write("MarloLogs", {});
  ::testing::internal::CaptureStderr();
  log.logInfo(L"lost");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "A: error 20: Not a directory\n");
  EXPECT_EQ(log.makeLogDirectory(), 0) << "something is there";
  std::filesystem::remove("MarloLogs");
  EXPECT_EQ(log.makeLogDirectory(), 0);
  log.logInfo(L"found");
  EXPECT_EQ(lines(), "INFO , found\n");
}

// ---- Locks

/// A mutex that says no to the thread that holds it already.
void makeRefusing(pthread_mutex_t& mutex) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_init(&mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

TEST_F(Log, AFailureToLockIsRaisedAsASystemError) {
  OpenLog log;
  makeRefusing(log.m_Mutex);
  log.m_eLogLevel = CLOGLEVEL_ERROR;
  pthread_mutex_lock(&log.m_Mutex);
  EXPECT_THROW(log.log(CLOGLEVEL_ERROR, L"line"), std::system_error);
  EXPECT_THROW(log.log(CLOGLEVEL_ERROR, "line"), std::system_error);
  EXPECT_THROW(log.logError(L"line"), std::system_error);
  pthread_mutex_unlock(&log.m_Mutex);
  log.logError(L"line");
  EXPECT_EQ(lines(), "ERROR, line\n");
}

TEST_F(Log, AFailureToLockEndsTheProgramAtShutDown) {
  EXPECT_DEATH(
      {
        OpenLog log;
        makeRefusing(log.m_Mutex);
        pthread_mutex_lock(&log.m_Mutex);
      },
      "");
}

}  // namespace
