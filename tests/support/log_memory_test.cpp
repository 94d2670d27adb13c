// What the log does when memory runs out.

#include <gtest/gtest.h>
#include <orvacam/support/CLog.h>

#include <cstdarg>

#include "TestFolder.h"
#include "support/FaultInjector.h"

namespace {

/// Standard error without the number and text of the error, which are those of whatever failed last.
template <typename Action>
std::string shownWithoutMemory(Action action) {
  ::testing::internal::CaptureStderr();
  {
    const faults::Failing failing(0, faults::Extent::FromThenOn, faults::Call::New);
    action();
  }
  const std::string shown = ::testing::internal::GetCapturedStderr();
  return shown.substr(0, shown.find("error"));
}

void list(CLog& log, void (CLog::*pEntry)(const wchar_t*, va_list), const wchar_t* pFormat, ...) {
  va_list args;
  va_start(args, pFormat);
  (log.*pEntry)(pFormat, args);
  va_end(args);
}

TEST(LogWithoutMemory, ShowsAMessageAndGoesOn) {
  const LogCapture capture;
  CLog& log = *CLog::getInstance();
  log.logInfo(L"before");
  // The first character of "CLog::...: Program Exception occurred." is all that standard error sees of it.
  for (int level = 1; level <= 8; ++level) {
    const auto eLevel = static_cast<CLOGLEVEL>(level);
    EXPECT_EQ(shownWithoutMemory([&log, eLevel] { log.log(eLevel, L"lost %d", 1); }), "C: ") << level;
    EXPECT_EQ(shownWithoutMemory([&log, eLevel] { log.log(eLevel, "lost %d", 1); }), "C: ") << level;
  }
  for (auto entry :
       {&CLog::logError, &CLog::logWarning, &CLog::logInfo, &CLog::logTrace, &CLog::logTraceFibre})
    EXPECT_EQ(shownWithoutMemory([&log, entry] { (log.*entry)(L"lost %d", 1); }), "C: ");
  for (auto entry : {&CLog::vlogError, &CLog::vlogWarning, &CLog::vlogInfo, &CLog::vlogDebug,
                     &CLog::vlogTrace, &CLog::vlogTraceFibre})
    EXPECT_EQ(shownWithoutMemory([&log, entry] { list(log, entry, L"lost %d", 1); }), "C: ");
  log.logInfo(L"after");
  EXPECT_EQ(capture.text(), "INFO , before\nINFO , after\n");
}

}  // namespace
