// Files that are there whole, or not at all.

#include "files/OutputFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "TestFolder.h"

namespace {

/// What the file system under test cannot do.
bool withoutNewNames = false, withoutLinks = false, withoutNames = false;

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

}  // namespace
