#include "files/OutputFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/file.h>
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
#include <tuple>
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

/// Locks what this process has just made. False when a process that clears up was faster, or has removed it.
bool lockNew(int file) {
  if (flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
  struct stat status {};
  return fstat(file, &status) == 0 && status.st_nlink > 0;  // a file system without locks has nobody to fear
}

/// Makes a hidden file or folder with `make(path)`, which opens it, and locks it until it is closed.
/// Processes of two containers may have one host name and number: a name that is taken is passed over. The
/// path and what was opened, or "", -1 and errno.
template <typename Make>
std::pair<std::string, int> makeHidden(const std::string& folder, Make make) {
  for (int tries = 0; tries < 1000; ++tries) {
    std::string path = hiddenName(folder);
    const WithoutSignals held;  // whose handlers must know the path as soon as it is ours, and not before
    const int file = make(path.c_str());
    if (file >= 0 && lockNew(file)) {
      remember(path);
      return {std::move(path), file};
    }
    if (file >= 0)
      ::close(file);
    else if (errno != EEXIST)
      return {"", -1};
  }
  errno = EEXIST;
  return {"", -1};
}

int makeFile(const char* path) {
  return open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

int makeFolder(const char* path) {
  if (mkdir(path, 0700) != 0) return -1;
  const int folder = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
  if (folder >= 0) return folder;
  const int error = errno;
  rmdir(path);
  errno = error == ENOENT ? EEXIST : error;  // somebody has cleared it: as if the name were taken
  return -1;
}

/// The process in a hidden name behind its prefix, 0 for another name.
pid_t processIn(const char* rest) {
  char* end = nullptr;
  errno = 0;
  const long process = std::strtol(rest, &end, 10);
  return end != rest && *end == '-' && errno == 0 && process > 0 && process <= INT_MAX
             ? static_cast<pid_t>(process)
             : 0;
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

/// Removes a hidden file or folder whose process is gone, or had this one's number before; unless it is
/// locked: its process is one of another container, or this one itself.
void removeAbandoned(const std::string& path, pid_t process) {
  const bool sameNumber = process == getpid();
  if (!sameNumber && (kill(process, 0) == 0 || errno != ESRCH)) return;
  // NFS locks only what is open to write.
  int file = open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (file < 0 && errno == EISDIR) file = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  const bool locked = flock(file, LOCK_EX | LOCK_NB) == 0;
  const bool inUse = !locked && (sameNumber || errno == EWOULDBLOCK);
  std::error_code ignored;
  if (!inUse) std::filesystem::remove_all(path, ignored);
  if (file >= 0) ::close(file);
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
  std::tie(m_temporary, m_file) = makeHidden(folderOf(m_target), makeFile);
  if (m_file >= 0) return;
  if (errno == EEXIST) throw WriteError(m_path, "cannot be written: its hidden names are taken");
  fail(errno);
}

void OutputFile::close() noexcept {
  if (m_file >= 0) ::close(m_file);
  m_file = -1;
}

OutputFile::~OutputFile() {
  if (!m_temporary.empty()) {
    unlink(m_temporary.c_str());
    forget(m_temporary);
  }
  close();
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
  // What has come there meanwhile stays.
  const auto give = m_existing == Existing::replace ? std::rename : renameWhereFree;
  if (give(m_temporary.c_str(), m_target.c_str()) != 0) fail(errno);
  forget(m_temporary);
  m_temporary.clear();
  close();  // not before: closed, it is locked no more
  flushed(open(folderOf(m_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

void OutputFile::cleanUp(const std::string& folder) {
  DIR* const list = opendir(folder.c_str());
  if (list == nullptr) return;
  const std::string prefix = hiddenPrefix();
  while (const dirent* const entry = readdir(list)) {
    if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) != 0) continue;
    const pid_t process = processIn(entry->d_name + prefix.size());
    if (process > 0) removeAbandoned(folder + "/" + entry->d_name, process);
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

WorkFolder::WorkFolder(const std::string& folder) {
  std::tie(m_path, m_lock) = makeHidden(folder, makeFolder);
  if (m_lock < 0) throw WriteError(folder, std::string("cannot be written to: ") + std::strerror(errno));
}

WorkFolder::~WorkFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
  forget(m_path);
  close(m_lock);
}

}  // namespace orvacam::files
