#include "files/OutputFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "files/WithoutSignals.h"

namespace orvacam::files {

namespace {

/// The names that a signal handler removes: fixed memory, since a handler may not ask for any.
struct Unfinished {
  std::atomic<bool> used{false};
  char path[PATH_MAX] = {};
};
Unfinished unfinished[16];

void remember(const std::string& path) {
  if (path.size() >= PATH_MAX) return;
  for (Unfinished& entry : unfinished)
    if (!entry.used) {
      std::memcpy(entry.path, path.c_str(), path.size() + 1);
      entry.used = true;
      return;
    }
}

void forget(const std::string& path) {
  for (Unfinished& entry : unfinished)
    if (entry.used && path == entry.path) entry.used = false;
}

/// ".orvacam-HOST-": the host without what separates, short enough for every file system.
std::string hiddenPrefix() {
  char host[HOST_NAME_MAX + 1] = {};
  gethostname(host, HOST_NAME_MAX);
  std::string name(host);
  for (char& c : name)
    if (c == '/' || c == '-') c = '_';
  return ".orvacam-" + name + "-";
}

/// A hidden name in a folder that no other file of this process has.
std::string hiddenName(const std::string& folder) {
  static std::atomic<unsigned long> count{0};
  return folder + "/" + hiddenPrefix() + std::to_string(getpid()) + "-" + std::to_string(++count);
}

/// The process in a hidden name behind its prefix, 0 for another name.
long processIn(const char* rest) {
  char* end = nullptr;
  errno = 0;
  const long process = std::strtol(rest, &end, 10);
  return end != rest && *end == '-' && errno == 0 && process > 0 && process <= INT_MAX ? process : 0;
}

/// Removes a folder with what is in it. A handler may not call readdir, which asks for memory; the system's
/// own call does not. Folders in it may have folders to a depth that its maker never reaches.
void removeFolder(int parent, const char* name, int depth = 4) noexcept {
  // What lost entries while they were listed may have more.
  for (int round = 0; round < 3 && unlinkat(parent, name, AT_REMOVEDIR) != 0 && errno == ENOTEMPTY; ++round) {
    const int folder = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (folder < 0) return;
    alignas(dirent64) char entries[4096];
    for (long length = 0; (length = syscall(SYS_getdents64, folder, entries, sizeof entries)) > 0;)
      for (long at = 0; at < length;) {
        const auto* const entry = reinterpret_cast<const dirent64*>(entries + at);
        at += entry->d_reclen;
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        if (unlinkat(folder, entry->d_name, 0) != 0 && depth > 0)
          removeFolder(folder, entry->d_name, depth - 1);
      }
    ::close(folder);
  }
}

/// Renames, unless the name is taken; 0, or -1 and errno. Not every file system does that in one step, nor
/// has each of those links to files: there an empty file takes the name, unless it is taken, and is replaced.
int renameWhereFree(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (link(from, to) == 0) {
    unlink(from);
    return 0;
  }
  if (errno != EPERM && errno != ENOSYS && errno != EOPNOTSUPP) return -1;
  const WithoutSignals held;
  const int place = open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (place < 0) return -1;
  ::close(place);
  if (std::rename(from, to) == 0) return 0;
  const int error = errno;
  unlink(to);
  errno = error;
  return -1;
}

void flushed(int file) {
  // Folders of some file systems cannot be flushed; their files have been.
  if (file < 0) return;
  fsync(file);
  ::close(file);
}

}  // namespace

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

void OutputFile::fail(int error) const {
  if (error == EEXIST) throw WriteError(m_path, "is there already; --overwrite replaces it");
  throw WriteError(m_path, std::string("cannot be written: ") + std::strerror(error));
}

OutputFile::OutputFile(std::string path, Existing existing)
    : m_path(std::move(path)), m_target(m_path), m_existing(existing) {
  struct stat status {};
  if (lstat(m_path.c_str(), &status) == 0) {
    if (S_ISLNK(status.st_mode)) {
      std::error_code none;
      m_target = std::filesystem::weakly_canonical(m_path, none).string();
      if (none) throw WriteError(m_path, "cannot be written: " + none.message());
    }
    if (stat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
      throw WriteError(m_path,
                       S_ISDIR(status.st_mode) ? "is a folder" : "is there already and is no regular file");
    if (m_existing == Existing::refuse) fail(EEXIST);
  }
  m_temporary = hiddenName(folderOf(m_target));
  remember(m_temporary);
  m_file = open(m_temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (m_file >= 0) return;
  const int error = errno;
  forget(m_temporary);
  m_temporary.clear();
  if (error == EEXIST) throw WriteError(m_path, "cannot be written: its hidden name is taken");
  fail(error);
}

void OutputFile::close() noexcept {
  if (m_file >= 0) ::close(m_file);
  m_file = -1;
}

OutputFile::~OutputFile() {
  close();
  if (m_temporary.empty()) return;
  unlink(m_temporary.c_str());
  forget(m_temporary);
}

void OutputFile::write(const void* bytes, std::size_t length) {
  const char* next = static_cast<const char*>(bytes);
  while (length > 0) {
    const ssize_t done = ::write(m_file, next, length);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) fail(errno);
    next += done;
    length -= static_cast<std::size_t>(done);
  }
}

void OutputFile::commit() {
  if (fsync(m_file) != 0) fail(errno);
  const int file = std::exchange(m_file, -1);
  if (::close(file) != 0) fail(errno);
  // What has come there meanwhile stays.
  const auto give = m_existing == Existing::replace ? std::rename : renameWhereFree;
  if (give(m_temporary.c_str(), m_target.c_str()) != 0) fail(errno);
  forget(m_temporary);
  m_temporary.clear();
  flushed(open(folderOf(m_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

void OutputFile::cleanUp(const std::string& folder) {
  DIR* const list = opendir(folder.c_str());
  if (list == nullptr) return;
  const std::string prefix = hiddenPrefix();
  while (const dirent* const entry = readdir(list)) {
    if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) != 0) continue;
    const long process = processIn(entry->d_name + prefix.size());
    if (process > 0 && kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH) {
      std::error_code ignored;
      std::filesystem::remove_all(folder + "/" + entry->d_name, ignored);
    }
  }
  closedir(list);
}

void OutputFile::removeUnfinished() noexcept {
  for (Unfinished& entry : unfinished)
    if (entry.used && unlink(entry.path) != 0) removeFolder(AT_FDCWD, entry.path);
}

void OutputFile::forgetUnfinished() noexcept {
  for (Unfinished& entry : unfinished)
    entry.used = false;
}

WorkFolder::WorkFolder(const std::string& folder) : m_path(hiddenName(folder)) {
  remember(m_path);
  if (mkdir(m_path.c_str(), 0700) == 0) return;
  const int error = errno;
  forget(m_path);
  throw WriteError(folder, std::string("cannot be written to: ") + std::strerror(error));
}

WorkFolder::~WorkFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
  forget(m_path);
}

}  // namespace orvacam::files
