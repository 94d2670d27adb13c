// Files that are there whole, or not at all.

#include "files/OutputFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "TestFolder.h"

namespace {

/// What the file system under test cannot do.
bool withoutNewNames = false, withoutLinks = false, withoutNames = false, withoutLocks = false;

/// What is locked is cleared by somebody else, who locks it first or has removed it by then.
int toBeFaster = 0, toHaveRemoved = 0;

}  // namespace

// In place of the C library's.
extern "C" int renameat2(int from, const char* path, int to, const char* name, unsigned int flags) noexcept {
  if (!withoutNewNames) return static_cast<int>(syscall(SYS_renameat2, from, path, to, name, flags));
  errno = EINVAL;
  return -1;
}
extern "C" int rename(const char* path, const char* name) noexcept {
  if (!withoutNames) return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, path, AT_FDCWD, name, 0));
  errno = EIO;
  return -1;
}
extern "C" int link(const char* path, const char* name) noexcept {
  if (!withoutLinks) return static_cast<int>(syscall(SYS_linkat, AT_FDCWD, path, AT_FDCWD, name, 0));
  errno = EPERM;
  return -1;
}
extern "C" int flock(int file, int operation) noexcept {
  const bool removed = toHaveRemoved > 0 && toHaveRemoved-- > 0;
  if (removed || (toBeFaster > 0 && toBeFaster-- > 0)) {
    std::error_code none;
    std::filesystem::remove(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file)), none);
    errno = EWOULDBLOCK;
    return removed ? 0 : -1;
  }
  if (!withoutLocks) return static_cast<int>(syscall(SYS_flock, file, operation));
  errno = ENOLCK;
  return -1;
}

namespace {

using namespace orvacam::files;
namespace fs = std::filesystem;

struct OutputFiles : ::testing::Test {
  std::size_t count() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()));
  }
  TestFolder folder;
};

TEST_F(OutputFiles, AppearWhenTheyAreWhole) {
  {
    OutputFile file(folder.file("a"), Existing::refuse);
    file.write("abc", 3);
    file.write("de", 2);
    EXPECT_FALSE(folder.has("a"));
    file.commit();
    EXPECT_EQ(folder.read("a"), (std::vector<unsigned char>{'a', 'b', 'c', 'd', 'e'}));
  }
  EXPECT_EQ(count(), 1u);
  {
    OutputFile dropped(folder.file("b"), Existing::refuse);
    dropped.write("abc", 3);
  }
  EXPECT_EQ(count(), 1u);
}

TEST_F(OutputFiles, ReplaceOnlyWhenAsked) {
  folder.write("a", {'o'});
  EXPECT_THROW(OutputFile(folder.file("a"), Existing::refuse), WriteError);
  OutputFile file(folder.file("b"), Existing::refuse);
  folder.write("b", {'o'});  // somebody was faster
  EXPECT_THROW(file.commit(), WriteError);
  EXPECT_EQ(folder.read("b"), (std::vector<unsigned char>{'o'}));
  OutputFile other(folder.file("a"), Existing::replace);
  other.write("n", 1);
  other.commit();
  EXPECT_EQ(folder.read("a"), (std::vector<unsigned char>{'n'}));
}

TEST_F(OutputFiles, TakeOnlyFreeNamesOnEveryFileSystem) {
  withoutNewNames = true;
  for (const bool links : {true, false}) {
    withoutLinks = !links;
    OutputFile file(folder.file("a"), Existing::refuse), late(folder.file("a"), Existing::refuse);
    file.write("abc", 3);
    file.commit();
    EXPECT_EQ(folder.read("a"), (std::vector<unsigned char>{'a', 'b', 'c'})) << links;
    EXPECT_THROW(late.commit(), WriteError) << links;
    EXPECT_EQ(folder.read("a").size(), 3u) << links;
    fs::remove(folder.path() / "a");
  }
  {
    withoutNames = true;
    OutputFile file(folder.file("a"), Existing::refuse);
    EXPECT_THROW(file.commit(), WriteError);
    withoutNames = false;
  }
  EXPECT_EQ(count(), 0u);
  withoutNewNames = withoutLinks = false;
}

TEST_F(OutputFiles, AreNoFoldersAndNoDevices) {
  fs::create_directory(folder.path() / "d");
  ASSERT_EQ(mkfifo(folder.file("f").c_str(), 0600), 0);
  for (const char* name : {"d", "f", "none/a"})
    EXPECT_THROW(OutputFile(folder.file(name), Existing::replace), WriteError) << name;
  fs::create_symlink("loop", folder.path() / "loop");
  EXPECT_THROW(OutputFile(folder.file("loop"), Existing::replace), WriteError);
}

TEST_F(OutputFiles, AreRemovedByAHandler) {
  OutputFile file(folder.file("a"), Existing::refuse);
  const WorkFolder work(folder.path().string());
  // Under whatever names: the writer of the fixed files has hidden ones of its own. They fill several lists.
  for (int i = 0; i < 300; ++i)
    std::ofstream(work.path() + "/" + std::string(100, 'n') + std::to_string(i)) << "x";
  fs::create_directory(work.path() + "/inner");
  std::ofstream(work.path() + "/inner/one") << "x";
  EXPECT_EQ(count(), 2u);
  OutputFile::removeUnfinished();
  EXPECT_EQ(count(), 0u);
}

TEST_F(OutputFiles, OfWorkFoldersGoWithThem) {
  {
    const WorkFolder work(folder.path().string());
    std::ofstream(work.path() + "/other") << "x";
  }
  EXPECT_EQ(count(), 0u);
  EXPECT_THROW(WorkFolder(folder.file("none")), WriteError);
}

/// The hidden names begin so for this process; behind it stands a number that only grows.
struct HiddenNames : OutputFiles {
  HiddenNames() {
    const OutputFile file(folder.file("a"), Existing::refuse);
    const std::string name = fs::directory_iterator(folder.path())->path().filename();
    const std::size_t count = name.rfind('-'), process = name.rfind('-', count - 1);
    host = name.substr(0, process + 1);
    last = std::stoul(name.substr(count + 1));
  }
  std::string nameOf(pid_t process, unsigned long count) const {
    return host + std::to_string(process) + "-" + std::to_string(count);
  }
  /// A process that is gone.
  static pid_t gone() {
    const pid_t process = fork();
    if (process == 0) _exit(0);
    waitpid(process, nullptr, 0);
    return process;
  }
  std::string host;
  unsigned long last = 0;
};

TEST_F(HiddenNames, ThatAreTakenArePassedOver) {
  // As those of a process with this number that was killed, or lives in another container.
  for (unsigned long count = last + 1; count <= last + 3; ++count)
    folder.write(nameOf(getpid(), count), {'x'});
  {
    const WorkFolder work(folder.path().string());
    OutputFile file(folder.file("b"), Existing::refuse);
    EXPECT_EQ(work.path(), folder.file(nameOf(getpid(), last + 4)));
    EXPECT_TRUE(folder.has(nameOf(getpid(), last + 5)));
    file.commit();
  }
  EXPECT_EQ(count(), 4u);
  for (unsigned long count = last + 6; count <= last + 1005; ++count)
    folder.write(nameOf(getpid(), count), {'x'});
  EXPECT_THROW(OutputFile(folder.file("c"), Existing::refuse), WriteError);
  EXPECT_EQ(count(), 1004u);
}

TEST_F(HiddenNames, ThatSomebodyClearsAtOnceAreGivenUp) {
  for (int* const faster : {&toBeFaster, &toHaveRemoved}) {
    *faster = 2;
    {
      const OutputFile file(folder.file("a"), Existing::refuse);
      EXPECT_EQ(*faster, 0);
      EXPECT_EQ(count(), 1u);
    }
    *faster = 2;
    const WorkFolder work(folder.path().string());
    EXPECT_EQ(*faster, 0);
    EXPECT_TRUE(fs::is_directory(work.path()));
  }
}

TEST_F(HiddenNames, AreClearedWhenTheirProcessIsGone) {
  const pid_t dead = gone();
  folder.write(nameOf(dead, 1), {'x'});
  fs::create_directory(folder.file(nameOf(dead, 2)));
  folder.write(nameOf(dead, 2) + "/inner", {'x'});
  fs::create_symlink("/nowhere", folder.file(nameOf(dead, 3)));
  folder.write(nameOf(getpid(), 9999), {'x'});  // of this number, but from before
  folder.write(nameOf(getppid(), 1), {'x'});
  OutputFile::cleanUp(folder.path().string());
  EXPECT_EQ(count(), 1u);
  EXPECT_TRUE(folder.has(nameOf(getppid(), 1)));
}

TEST_F(HiddenNames, StayWhileTheyAreLocked) {
  const pid_t dead = gone();  // seen from here; in its container it lives
  folder.write(nameOf(dead, 1), {'x'});
  fs::create_directory(folder.file(nameOf(dead, 2)));
  OutputFile own(folder.file("a"), Existing::refuse);
  const WorkFolder work(folder.path().string());
  const int file = open(folder.file(nameOf(dead, 1)).c_str(), O_WRONLY | O_CLOEXEC);
  const int inner = open(folder.file(nameOf(dead, 2)).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (const int locked : {file, inner})
    ASSERT_EQ(flock(locked, LOCK_EX | LOCK_NB), 0);
  OutputFile::cleanUp(folder.path().string());
  EXPECT_EQ(count(), 4u);
  for (const int locked : {file, inner})
    close(locked);
  OutputFile::cleanUp(folder.path().string());
  EXPECT_EQ(count(), 2u);
  own.commit();
  EXPECT_TRUE(folder.has("a"));
}

TEST_F(HiddenNames, AreToldByTheirProcessWhereThereAreNoLocks) {
  withoutLocks = true;
  {
    const pid_t dead = gone();
    folder.write(nameOf(dead, 1), {'x'});
    fs::create_directory(folder.file(nameOf(dead, 2)));
    OutputFile own(folder.file("a"), Existing::refuse);
    const WorkFolder work(folder.path().string());
    OutputFile::cleanUp(folder.path().string());
    EXPECT_EQ(count(), 2u);
    own.commit();
  }
  withoutLocks = false;
  EXPECT_EQ(count(), 1u);
}

}  // namespace
