#ifndef ORVACAM_SUPPORT_CLOG_H
#define ORVACAM_SUPPORT_CLOG_H

#include <orvacam/types/export.h>
#include <pthread.h>

#include <cstdarg>
#include <cstdio>

/// How important a log line is. Lines of a level above the log's threshold are dropped.
enum CLOGLEVEL : int {
  CLOGLEVEL_OFF = 0,
  CLOGLEVEL_ERROR = 1,
  CLOGLEVEL_WARNING = 2,
  CLOGLEVEL_INFO = 3,
  CLOGLEVEL_REGRW = 4,
  CLOGLEVEL_DEBUG = 5,
  CLOGLEVEL_TRACE = 6,
  CLOGLEVEL_TRACE_FIBRE = 7,
  CLOGLEVEL_ENTRY = 8  ///< entry, exit and trace lines of the library's own operations
};

/// The library's one log: time-stamped text lines in files "<prefix>_<time>.txt" in the directory "MarloLogs"
/// under the working directory. A file is opened at the first line written and replaced when it passes 64
/// MiB.
///
/// Off by default. A program that wants the library's lines raises the threshold:
/// \code
///   CLog::getInstance()->m_eLogLevel = CLOGLEVEL_ENTRY;
/// \endcode
///
/// Threads: writes are serialized by one mutex. getInstance and release take no lock: make the instance
/// before threads share it. Formats are printf formats; in wide formats "%s" takes narrow and "%ls" wide
/// text. Lines are cut at 1023 characters, a line feed included; of a message that cannot be formatted
/// (narrow text that the program's locale does not know) the format itself is written. A file that cannot be
/// opened is reported on standard error and logging goes on without one.
class ORVACAM_API CLog {
 public:
  /// Makes the log directory. Programs use getInstance.
  CLog();
  CLog(const CLog&) = delete;
  CLog& operator=(const CLog&) = delete;
  /// Closes the file with "(Shutting Down)".
  virtual ~CLog();

  /// The log, made on the first call, which may throw std::bad_alloc.
  static CLog* getInstance();
  /// Deletes the log; the next getInstance makes a new one.
  static void release();

  /// Appends the text to the log directory (it does not replace it) and makes that directory.
  void setLogPath(const wchar_t* pPath);
  /// Makes the log directory; the status of utilOSMakeDirectory.
  int makeLogDirectory();
  /// A line that opens every new file.
  void setNewFileHeader(const wchar_t* pText);

  /// One line when the threshold is set and not below the level.
  void log(CLOGLEVEL eLevel, const char* pFormat, ...);
  void log(CLOGLEVEL eLevel, const wchar_t* pFormat, ...);
  void DoLog(CLOGLEVEL eLevel, const char* pFormat, va_list args);

  /// One line of a fixed level, whatever the threshold. Nothing for a null or empty format.
  void logError(const wchar_t* pFormat, ...);
  void logWarning(const wchar_t* pFormat, ...);
  void logInfo(const wchar_t* pFormat, ...);
  void logTrace(const wchar_t* pFormat, ...);
  void logTraceFibre(const wchar_t* pFormat, ...);
  void vlogError(const wchar_t* pFormat, va_list args);
  void vlogWarning(const wchar_t* pFormat, va_list args);
  void vlogInfo(const wchar_t* pFormat, va_list args);
  void vlogDebug(const wchar_t* pFormat, va_list args);
  void vlogTrace(const wchar_t* pFormat, va_list args);
  void vlogTraceFibre(const wchar_t* pFormat, va_list args);

  /// The steps of writing; the caller holds the mutex. logData yields the number of bytes written, 0 without
  /// a file.
  unsigned int logData(const char* pWord, const char* pFormat, va_list args);
  unsigned int logData(const wchar_t* pWord, const wchar_t* pFormat, va_list args);
  void openNewFile();
  void closeLogFile(const wchar_t* pReason);
  bool logFileTooLarge();

  /// The one instance, null before getInstance and after release.
  static CLog* m_pInstance;

 protected:
  pthread_mutex_t m_Mutex;
  std::FILE* m_pFile;
  char m_LineBuffer[1024];
  wchar_t m_MessageBuffer[1024];
  wchar_t m_FileHeader[1024];
  wchar_t m_FileName[4096];
  wchar_t m_Directory[4096];
  wchar_t m_FilePrefix[4096];
  bool m_bDirectoryDue;  ///< not made yet, and to be made for the next file

 public:
  /// The threshold; 0 (off) from construction. Set it directly.
  CLOGLEVEL m_eLogLevel;
};

#endif  // ORVACAM_SUPPORT_CLOG_H
