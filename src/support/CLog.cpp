#include <orvacam/support/CLog.h>
#include <orvacam/support/util.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <exception>
#include <iterator>
#include <mutex>
#include <string>
#include <system_error>

#include "support/QuietLog.h"
#include "support/WideText.h"

namespace {

using orvacam::wideToNarrow;

constexpr std::size_t lineCapacity = 1024;
constexpr unsigned int largestFile = 0x4000000;

struct Level {
  int number;
  const char* word;
  const wchar_t* exceptionMessage;
  bool narrowEntry = true;  ///< whether the narrow entry knows the level
};

constexpr Level levels[] = {
    {1, "ERROR", L"CLog::log(): LOG_ERROR Program Exception occurred."},
    {2, "WARN ", L"CLog::log(): LOG_WARNING Program Exception occurred."},
    {3, "INFO ", L"CLog::log(): LOG_INFO Program Exception occurred."},
    // Intended: the narrow entry has no word of its own for this level.
    {4, "REGRW", L"CLog::log(): LOG_REGRW Program Exception occurred.", false},
    {5, "DEBUG", L"CLog::log(): LOG_DEBUG Program Exception occurred."},
    {6, "TRACE", L"CLog::log(): LOG_TRACE Program Exception occurred."},
    {7, "FIBRE", L"CLog::log(): LOG_TRACE_FIBRE Program Exception occurred."},
};
constexpr Level unknownLevel = {0, "UNKNO", L"CLog::log(): LOG_UNKNOWN Program Exception occurred."};

const Level& levelOf(CLOGLEVEL eLevel, bool bNarrow) {
  for (const Level& level : levels)
    if (level.number == eLevel && (level.narrowEntry || !bNarrow)) return level;
  return unknownLevel;
}

/// The local time in a format of seven numbers.
struct TimeText {
  explicit TimeText(const wchar_t* pFormat = L"%04u/%02u/%02u %02u:%02u:%02u.%03u") {
    unsigned int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
    utilOSGetLocalTime(&year, &month, &day, &hour, &minute, &second, &millisecond);
    std::swprintf(text, std::size(text), pFormat, year, month, day, hour, minute, second, millisecond);
  }
  wchar_t text[64];
};

/// The formatted text, whole or cut far behind what a line holds. Formatters that need a buffer of the right
/// size are asked with growing ones. A text that cannot be formatted yields its format, so that the line is
/// not lost.
template <typename Character, typename Print>
std::basic_string<Character> formatted(const Character* pFormat, va_list args, Print print) {
  constexpr std::size_t largest = 1 << 20;
  for (std::size_t capacity = 4 * lineCapacity; capacity <= largest; capacity *= 4) {
    std::basic_string<Character> text(capacity, Character(0));
    va_list copy;
    va_copy(copy, args);
    errno = 0;
    const int length = print(text.data(), capacity, pFormat, copy);
    va_end(copy);
    if (length >= 0 && static_cast<std::size_t>(length) < capacity) {
      text.resize(static_cast<std::size_t>(length));
      return text;
    }
    if (errno == EILSEQ) break;
    if (capacity == largest) {
      text.back() = Character(0);
      return text;  // what fits, up to a zero character
    }
  }
  return pFormat;
}

/// Cuts a message to a line: at most 1023 characters, the last one a line feed. A zero character ends it.
template <typename Character>
void makeLine(std::basic_string<Character>& text) {
  text.resize(std::min(text.find(Character(0)), text.size()));
  if (text.size() >= lineCapacity || (text.size() == lineCapacity - 1 && text.back() != Character('\n')))
    text.resize(lineCapacity - 2);
  if (text.empty() || text.back() != Character('\n')) text.push_back(Character('\n'));
}

std::string lineOf(const char* pFormat, va_list args) {
  std::string line =
      formatted(pFormat, args, [](char* pText, std::size_t size, const char* pForm, va_list list) {
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it follows no va_copy
        return std::vsnprintf(pText, size, pForm, list);
      });
  makeLine(line);
  return line;
}

/// Characters may take several bytes: cut once more, with room for the line feed.
std::string lineOf(const wchar_t* pFormat, va_list args) {
  std::wstring wide =
      formatted(pFormat, args, [](wchar_t* pText, std::size_t size, const wchar_t* pForm, va_list list) {
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it follows no va_copy
        return std::vswprintf(pText, size, pForm, list);
      });
  makeLine(wide);
  wide.pop_back();
  std::string line(lineCapacity, '\0');
  line.resize(wideToNarrow(wide.c_str(), line.data(), lineCapacity - 1));
  return line + '\n';
}

void append(wchar_t* pTarget, std::size_t capacity, const wchar_t* pText) {
  const std::size_t length = std::wcslen(pTarget);
  if (pText != nullptr) std::wcsncat(pTarget, pText, capacity - 1 - length);
}

// ---- Writing

/// Lets free functions at the protected members of the log.
struct Members : CLog {
  static pthread_mutex_t& mutexOf(CLog& log) { return log.*&Members::m_Mutex; }
  static std::FILE*& fileOf(CLog& log) { return log.*&Members::m_pFile; }
};

unsigned int put(std::FILE* file, const char* text) {
  return static_cast<unsigned int>(std::fwrite(text, 1, std::strlen(text), file));
}

template <typename Character>
unsigned int writeLine(CLog& log, const char* word, const Character* format, va_list args) {
  std::FILE*& file = Members::fileOf(log);
  if (log.logFileTooLarge()) log.closeLogFile(L"(File Too Large)");
  if (file == nullptr) log.openNewFile();
  if (file == nullptr) return 0;
  char prefix[lineCapacity];
  std::snprintf(prefix, sizeof prefix, "%ls, %s, ", TimeText().text, word);
  const std::string message = lineOf(format, args);
  unsigned int written = put(file, prefix);
  written += put(file, message.c_str());
  std::fflush(file);
  return written;
}

/// Locks, writes one line unless the format is empty, unlocks; an exception while writing is caught and the
/// message shown.
template <typename Character>
void writeLocked(CLog& log, const char* word, const wchar_t* exceptionMessage, const Character* format,
                 va_list args) {
  if (const int error = pthread_mutex_lock(&Members::mutexOf(log)); error != 0)
    throw std::system_error(error, std::generic_category());
  if (format != nullptr && format[0] != Character(0)) {
    try {
      writeLine(log, word, format, args);
    } catch (...) {
      utilOSShowError(exceptionMessage);
    }
  }
  pthread_mutex_unlock(&Members::mutexOf(log));
}

/// Whether the log that this thread makes leaves its directory to the first line.
thread_local bool t_quietly = false;

}  // namespace

CLog* CLog::m_pInstance = nullptr;

CLog::CLog()
    : m_Mutex{},
      m_pFile(nullptr),
      m_LineBuffer{},
      m_MessageBuffer{},
      m_FileHeader{},
      m_FileName{},
      m_Directory{},
      m_FilePrefix{L"Log"},
      m_bDirectoryDue(t_quietly),
      m_eLogLevel(CLOGLEVEL_OFF) {
  utilOSPathGet(m_Directory, static_cast<unsigned int>(std::size(m_Directory)));
  // Intended: the working directory already ends in "/".
  append(m_Directory, std::size(m_Directory), L"/MarloLogs");
  if (!m_bDirectoryDue) makeLogDirectory();
}

CLog::~CLog() {
  if (pthread_mutex_lock(&m_Mutex) != 0) std::terminate();
  closeLogFile(L"(Shutting Down)");
  pthread_mutex_unlock(&m_Mutex);
}

CLog* CLog::getInstance() {
  if (m_pInstance == nullptr) m_pInstance = new CLog;
  return m_pInstance;
}

void orvacam::makeLogQuietly() {
  struct Quietly {
    Quietly() { t_quietly = true; }
    ~Quietly() { t_quietly = false; }
  };
  static std::mutex making;
  const std::lock_guard<std::mutex> lock(making);
  const Quietly quietly;
  CLog::getInstance();
}

void CLog::release() {
  delete m_pInstance;
  m_pInstance = nullptr;
}

void CLog::setLogPath(const wchar_t* pPath) {
  append(m_Directory, std::size(m_Directory), pPath);  // intended: appends, does not replace
  makeLogDirectory();
}

int CLog::makeLogDirectory() {
  return utilOSMakeDirectory(m_Directory);
}

void CLog::setNewFileHeader(const wchar_t* pText) {
  const std::size_t length = pText != nullptr ? std::min(std::wcslen(pText), lineCapacity - 2) : 0;
  if (length > 0) std::wmemcpy(m_FileHeader, pText, length);
  m_FileHeader[length] = L'\n';
  m_FileHeader[length + 1] = L'\0';
}

// ---- Files

unsigned int CLog::logData(const char* pWord, const char* pFormat, va_list args) {
  return writeLine(*this, pWord, pFormat, args);
}

unsigned int CLog::logData(const wchar_t* pWord, const wchar_t* pFormat, va_list args) {
  char word[lineCapacity];
  wideToNarrow(pWord, word, sizeof word);
  return writeLine(*this, word, pFormat, args);
}

void CLog::openNewFile() {
  if (m_bDirectoryDue) makeLogDirectory();
  m_bDirectoryDue = false;
  closeLogFile(nullptr);
  const TimeText time(L"_%04u%02u%02u_%02u.%02u.%02u.%03u.txt");
  const wchar_t* const parts[] = {m_Directory, L"/", m_FilePrefix, time.text};
  m_FileName[0] = L'\0';
  for (const wchar_t* part : parts)
    append(m_FileName, std::size(m_FileName), part);

  char path[lineCapacity];
  wideToNarrow(m_FileName, path, sizeof path);
  m_pFile = std::fopen(path, "w+b");
  if (m_pFile == nullptr) {
    const int error = errno;
    m_MessageBuffer[0] = L'\0';
    append(m_MessageBuffer, lineCapacity, L"An error occurred while trying to open the log file ");
    append(m_MessageBuffer, lineCapacity, m_FileName);
    append(m_MessageBuffer, lineCapacity, L".\nExecution will continue without logging.");
    errno = error;
    utilOSShowError(m_MessageBuffer);
    return;
  }
  if (m_FileHeader[0] != L'\0') {
    wideToNarrow(m_FileHeader, m_LineBuffer, sizeof m_LineBuffer);
    put(m_pFile, m_LineBuffer);
  }
}

void CLog::closeLogFile(const wchar_t* pReason) {
  if (m_pFile == nullptr) return;
  m_MessageBuffer[0] = L'\0';
  append(m_MessageBuffer, lineCapacity, L"\n\nFile Closed ");
  if (pReason != nullptr) {
    append(m_MessageBuffer, lineCapacity - 64, pReason);
    append(m_MessageBuffer, lineCapacity, L" ");
  }
  append(m_MessageBuffer, lineCapacity, TimeText(L"at %04u/%02u/%02u %02u:%02u:%02u.%03u\n").text);
  wideToNarrow(m_MessageBuffer, m_LineBuffer, sizeof m_LineBuffer);
  put(m_pFile, m_LineBuffer);
  std::fclose(m_pFile);
  m_pFile = nullptr;
}

bool CLog::logFileTooLarge() {
  if (m_pFile == nullptr) return false;
  std::fseek(m_pFile, 0, SEEK_END);
  return static_cast<unsigned int>(std::ftell(m_pFile)) > largestFile;
}

// ---- Entries

void CLog::DoLog(CLOGLEVEL eLevel, const char* pFormat, va_list args) {
  if (m_eLogLevel == CLOGLEVEL_OFF || m_eLogLevel < eLevel) return;
  const Level& level = levelOf(eLevel, true);
  writeLocked(*this, level.word, level.exceptionMessage, pFormat, args);
}

void CLog::log(CLOGLEVEL eLevel, const char* pFormat, ...) {
  va_list args;
  va_start(args, pFormat);
  DoLog(eLevel, pFormat, args);
  va_end(args);
}

void CLog::log(CLOGLEVEL eLevel, const wchar_t* pFormat, ...) {
  if (m_eLogLevel == CLOGLEVEL_OFF || m_eLogLevel < eLevel) return;
  const Level& level = levelOf(eLevel, false);
  va_list args;
  va_start(args, pFormat);
  writeLocked(*this, level.word, level.exceptionMessage, pFormat, args);
  va_end(args);
}

// The fixed-level entries differ in their word and in the message of an exception alone.
#define ORVACAM_FIXED_LEVEL_VLOG(name, word)                                                             \
  void CLog::v##name(const wchar_t* pFormat, va_list args) {                                             \
    if (pFormat != nullptr)                                                                              \
      writeLocked(*this, word, L"CLog::v" #name "(char *): Program Exception occurred.", pFormat, args); \
  }
#define ORVACAM_FIXED_LEVEL_LOG(name, word)                                                           \
  ORVACAM_FIXED_LEVEL_VLOG(name, word)                                                                \
  void CLog::name(const wchar_t* pFormat, ...) {                                                      \
    if (pFormat == nullptr) return;                                                                   \
    va_list args;                                                                                     \
    va_start(args, pFormat);                                                                          \
    writeLocked(*this, word, L"CLog::" #name "(char *): Program Exception occurred.", pFormat, args); \
    va_end(args);                                                                                     \
  }

ORVACAM_FIXED_LEVEL_LOG(logError, "ERROR")
ORVACAM_FIXED_LEVEL_LOG(logWarning, "WARN ")
ORVACAM_FIXED_LEVEL_LOG(logInfo, "INFO ")
ORVACAM_FIXED_LEVEL_LOG(logTrace, "TRACE")
ORVACAM_FIXED_LEVEL_LOG(logTraceFibre, "FIBRE")
ORVACAM_FIXED_LEVEL_VLOG(logDebug, "DEBUG")  // intended: there is no variadic form of this one
