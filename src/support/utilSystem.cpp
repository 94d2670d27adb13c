// Time, wide and narrow text, files and directories.

#include <fcntl.h>
#include <orvacam/support/util.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <cwchar>

#include "support/OpenFile.h"
#include "support/WideText.h"

namespace {

using orvacam::narrowToWide;
using orvacam::pathCapacity;
using orvacam::wideToNarrow;

constexpr std::size_t modeCapacity = 32;
constexpr std::size_t textCapacity = 1024;

// One of each per thread: the utilities are not re-entrant, but threads do not disturb each other.
thread_local wchar_t t_wideResult[textCapacity];
thread_local char t_narrowResult[textCapacity];
thread_local char t_path[pathCapacity];
thread_local char t_mode[modeCapacity];

const char* narrowPath(const wchar_t* pPath) {
  wideToNarrow(pPath, t_path, pathCapacity);
  return t_path;
}

/// Makes one directory unless it is there.
int makeOneDirectory(const char* pPath) {
  struct stat status {};
  if (stat(pPath, &status) != 0) {
    const int made = mkdir(pPath, 0775);
    return made != 0 && errno == EEXIST ? 0 : made;
  }
  if (S_ISDIR(status.st_mode)) return 0;
  errno = ENOTDIR;
  return -1;
}

}  // namespace

int utilSleep(unsigned int uiMilliseconds) {
  return usleep(uiMilliseconds * 1000u);
}

unsigned long utilTimeGetMS(unsigned long* pMilliseconds) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const unsigned long milliseconds =
      static_cast<unsigned long>(now.tv_sec) * 1000 + static_cast<unsigned long>(now.tv_nsec) / 1000000;
  if (pMilliseconds != nullptr) *pMilliseconds = milliseconds;
  return milliseconds;
}

unsigned long utilTimeDiff(unsigned long ulStart, unsigned long ulEnd) {
  // Intended: a wrapped interval is one less than the plain difference.
  return ulEnd >= ulStart ? ulEnd - ulStart : ulEnd - ulStart - 1;
}

void utilOSGetLocalTime(unsigned int* pYear, unsigned int* pMonth, unsigned int* pDay, unsigned int* pHour,
                        unsigned int* pMinute, unsigned int* pSecond, unsigned int* pMillisecond) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  const auto store = [](unsigned int* pTarget, long value) {
    if (pTarget != nullptr) *pTarget = static_cast<unsigned int>(value);
  };
  store(pYear, local.tm_year + 1900);
  store(pMonth, local.tm_mon + 1);
  store(pDay, local.tm_mday);
  store(pHour, local.tm_hour);
  store(pMinute, local.tm_min);
  store(pSecond, local.tm_sec);
  store(pMillisecond, now.tv_nsec / 1000000);
}

void utilOSGetLocalTimeString(char* pText, unsigned int uiSize) {
  if (pText == nullptr || uiSize == 0) return;
  std::memset(pText, 0, uiSize);
  unsigned int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
  utilOSGetLocalTime(&year, &month, &day, &hour, &minute, &second, &millisecond);
  std::snprintf(pText, uiSize, "%04u-%02u-%02uT%02u:%02u:%02u.%03u", year, month, day, hour, minute, second,
                millisecond);
}

wchar_t* utilCharToWideStrStatic(const char* pText) {
  std::wmemset(t_wideResult, L'\0', textCapacity);
  narrowToWide(pText, t_wideResult, textCapacity);
  return t_wideResult;
}

char* utilWideToMbsStatic(const wchar_t* pText) {
  std::memset(t_narrowResult, 0, textCapacity);
  wideToNarrow(pText, t_narrowResult, textCapacity);
  return t_narrowResult;
}

void utilW2S(const std::wstring& wide, std::string& narrow) {
  narrow.clear();
  if (wide.empty()) return;
  // Intended: as many bytes as there are characters, so that text outside ASCII is cut.
  std::string bytes(wide.size() + 1, '\0');
  bytes.resize(wideToNarrow(wide.c_str(), bytes.data(), bytes.size()));
  narrow = std::move(bytes);
}

std::FILE* utilOSWideFileOpen(const wchar_t* pName, const wchar_t* pMode) {
  if (pName == nullptr || pMode == nullptr) return nullptr;
  wideToNarrow(pMode, t_mode, modeCapacity);
  return std::fopen(narrowPath(pName), t_mode);
}

int utilOSWideCopyFile(const wchar_t* pSource, const wchar_t* pDestination) {
  if (pSource == nullptr || pDestination == nullptr) return -1;
  // Neither waits for the other end of a FIFO.
  const int source = open(narrowPath(pSource), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const int destination = source >= 0 ? open(narrowPath(pDestination),
                                             O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, 0666)
                                      : -1;
  // Intended: a freshly opened source is not at its end, so that the copy, which goes on only while it is,
  // copies nothing and leaves an empty destination. Callers rely on the destination being there.
  if (source >= 0) close(source);
  if (destination < 0) return -1;
  close(destination);
  return 0;
}

void utilOSPathGet(wchar_t* pPath, unsigned int uiCapacity) {
  if (pPath == nullptr || uiCapacity == 0) return;
  std::wmemset(pPath, L'\0', uiCapacity);
  char path[PATH_MAX];
  if (getcwd(path, sizeof path) == nullptr) return;
  const std::size_t length = narrowToWide(path, pPath, uiCapacity);
  if (length + 1 < uiCapacity)
    pPath[length] = L'/';
  else
    std::wmemset(pPath, L'\0', uiCapacity);
}

void utilOSShowError(const wchar_t* pMessage) {
  const int error = errno;
  if (pMessage != nullptr) {
    // Intended: the wide message goes through a narrow conversion, which ends at the first character's zero
    // bytes.
    std::fprintf(stderr, "%s:", reinterpret_cast<const char*>(pMessage));
  }
  char text[256] = "";
  std::fprintf(stderr, " error %d: %s\n", error, strerror_r(error, text, sizeof text));
  std::fflush(stderr);
}

int utilOSMakeDirectory(const wchar_t* pPath) {
  if (pPath == nullptr) return -1;
  narrowPath(pPath);
  for (char* slash = std::strchr(t_path[0] != '\0' ? t_path + 1 : t_path, '/'); slash != nullptr;
       slash = std::strchr(slash + 1, '/')) {
    *slash = '\0';
    const int status = makeOneDirectory(t_path);
    *slash = '/';
    if (status != 0) return status;
  }
  struct stat status {};
  return stat(t_path, &status) == 0 ? 0 : makeOneDirectory(t_path);
}

bool utilOSDirectoryExists(const std::wstring& path) {
  struct stat status {};
  return stat(narrowPath(path.c_str()), &status) == 0 && S_ISDIR(status.st_mode);
}

int utilOSGetDiskAvailableSpace(const std::wstring& path, unsigned long& ulAvailable,
                                unsigned long& ulTotal) {
  struct statvfs disk {};
  const int status = statvfs(narrowPath(path.c_str()), &disk);
  if (status == 0) {
    ulAvailable = disk.f_bsize * disk.f_bavail;
    ulTotal = disk.f_frsize * disk.f_blocks;
  }
  return status;
}
