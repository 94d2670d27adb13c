#include "support/OpenFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/WideText.h"

namespace orvacam {

namespace {

/// Gives a descriptor up; -1 with this error, whatever closing says.
int giveUp(int file, int error) {
  close(file);
  errno = error;
  return -1;
}

/// The kind of the file behind a descriptor, 0 when it cannot be told.
mode_t kindOf(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

}  // namespace

std::FILE* openRegularFile(const wchar_t* pName, const char* pMode) {
  if (pName == nullptr || pMode == nullptr) return nullptr;
  char path[pathCapacity];
  wideToNarrow(pName, path, sizeof path);
  const int access = std::strchr(pMode, '+') != nullptr ? O_RDWR : O_RDONLY;
  const int file = open(path, access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file < 0) return nullptr;
  if (kindOf(file) != S_IFREG) {
    giveUp(file, EINVAL);
    return nullptr;
  }
  std::FILE* const stream = fdopen(file, pMode);
  if (stream == nullptr) giveUp(file, errno);
  return stream;
}

int openForWriting(const char* pName, int iFlags, unsigned int uiMode) {
  const int file = open(pName, iFlags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, uiMode);
  if (file < 0) return -1;
  const mode_t kind = kindOf(file);
  if (kind == 0 || kind == S_IFIFO) return giveUp(file, EINVAL);
  // Only opening was not to wait: a device that is slow for a moment is no failure.
  const int flags = fcntl(file, F_GETFL);
  if (flags < 0 || fcntl(file, F_SETFL, flags & ~O_NONBLOCK) != 0) return giveUp(file, errno);
  return file;
}

}  // namespace orvacam
