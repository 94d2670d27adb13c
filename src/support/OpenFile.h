#ifndef ORVACAM_SRC_SUPPORT_OPEN_FILE_H
#define ORVACAM_SRC_SUPPORT_OPEN_FILE_H

#include <cstddef>
#include <cstdio>
#include <memory>

namespace orvacam {

/// The longest path as the system's bytes, its closing zero included; what is longer is cut.
constexpr std::size_t pathCapacity = 4096;

/// A stream that is closed at the end.
struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, FileCloser>;

// Opening never waits: the other end of a FIFO that stands where a file should may never come.

/// A stream of a regular file; null, with errno set, for anything else. The mode is that of fopen, for files
/// that are there: "rb" or "r+b". The caller closes the stream.
std::FILE* openRegularFile(const wchar_t* pName, const char* pMode);

/// open() for writing, where writing does not wait either; -1, with errno set, for a FIFO and where it cannot
/// be opened. A file that is made gets the mode, as far as the process's mask lets it.
int openForWriting(const char* pName, int iFlags, unsigned int uiMode);

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_OPEN_FILE_H
