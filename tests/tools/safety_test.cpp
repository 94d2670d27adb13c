// What the program never does: lose data, leave rubbish behind.

#include <signal.h>
#include <unistd.h>

#include "Program.h"

namespace {

using namespace program_testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using Safety = Program;
using Inputs = Program;

TEST_F(Safety, NeverWritesToAnInput) {
  writeHdr("a.raw", 16, 8);
  writeHdr("b.raw", 16, 8);
  fs::create_hard_link(folder.path() / "a.raw", folder.path() / "hard.fits");
  fs::create_symlink("a.raw", folder.path() / "soft.fits");
  writeFlat("flat.fits", 3);
  const Arguments region = {"--x", "0", "--y", "0", "--width", "2", "--height", "1"};
  for (Arguments command : {Arguments{"stack", "a.raw", "b.raw", "-f", "fits", "-o", "a.raw"},
                            Arguments{"stack", "a.raw", "b.raw", "-o", "hard.fits"},
                            Arguments{"stack", "a.raw", "b.raw", "-o", "soft.fits"},
                            Arguments{"stats", "a.raw", "--histogram-csv", "a.raw"},
                            Arguments{"stats", "b.raw", "--bias", "a.raw", "--histogram-csv", "a.raw"},
                            Arguments{"convert", "flat.fits", "-o", "."}}) {
    command.push_back("--overwrite");
    refused(command, "is an input and cannot be written to");
  }
  Arguments cut = {"roi", "a.raw", "-o", "./a.raw", "--overwrite"};
  cut.insert(cut.end(), region.begin(), region.end());
  refused(cut, "is an input and cannot be written to");
  refused({"simulate", "GENERIC", "-o", "s.raw", "--dsnu", "./s.raw"}, "would be written twice");
}

TEST_F(Safety, ResumesWhatWasInterrupted) {
  writeHdr("a.raw", 16, 8);
  good({"convert", "a.raw", "-o", "out"});
  fs::remove(folder.path() / "out" / "a_HIGH.fits");
  folder.write("out/a_LOW.fits", {'o', 'l', 'd'});
  good({"convert", "a.raw", "-o", "out", "--skip-existing"});
  EXPECT_EQ(folder.read("out/a_LOW.fits"), (Bytes{'o', 'l', 'd'}));
  EXPECT_TRUE(folder.has("out/a_HIGH.fits"));
  const auto before = contents();
  good({"convert", "a.raw", "-o", "out", "--skip-existing"});
  EXPECT_EQ(contents(), before);
}

TEST_F(Safety, ClearsWhatADeadProcessLeft) {
  writeFlat("a.raw", 3);
  fs::create_directory(folder.path() / "out");
  char host[256] = {};
  ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
  std::string name(host);
  for (char& c : name)
    if (c == '-') c = '_';
  const pid_t dead = fork();
  if (dead == 0) _exit(0);
  int status = 0;
  ASSERT_EQ(waitpid(dead, &status, 0), dead);
  const std::string mine = "out/.orvacam-" + name + "-" + std::to_string(getpid()) + "-1";
  folder.write("out/.orvacam-" + name + "-" + std::to_string(dead) + "-1", {'x'});
  folder.write("out/.orvacam-elsewhere-" + std::to_string(dead) + "-1", {'x'});
  folder.write(mine, {'x'});
  good({"convert", "a.raw", "-o", "out"});
  EXPECT_THAT(files("out"),
              ElementsAre(".orvacam-elsewhere-" + std::to_string(dead) + "-1", mine.substr(4), "a.fits"));
}

TEST_F(Safety, LeavesWholeFilesOrNoneWhenItIsStopped) {
  Arguments command = {"orvacam", "convert", "-o", "out"};
  for (int i = 0; i < 6; ++i) {
    folder.write("f" + std::to_string(i), Sample(fieldsOf("GSENSE4040", "hdr", 512, 512), i).bytes);
    command.push_back("f" + std::to_string(i));
  }
  unsigned int state = 7;
  for (int run = 0; run < 12; ++run) {
    const int number = run % 3 == 0 ? SIGINT : run % 3 == 1 ? SIGTERM : SIGHUP;
    const pid_t child = fork();
    if (child == 0) {
      std::vector<char*> argv;
      for (std::string& word : command)
        argv.push_back(word.data());
      argv.push_back(nullptr);
      if (chdir(folder.path().c_str()) != 0) _exit(120);
      execv(ORVACAM_TOOL, argv.data());
      _exit(121);
    }
    state = state * 1664525u + 1013904223u;
    usleep(5000 + state % 60000);
    kill(child, number);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    // It may have been done, or not have begun.
    if (WIFEXITED(status)) EXPECT_TRUE(WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 128 + number);
    if (folder.has("out"))
      for (const std::string& name : files("out")) {
        EXPECT_NE(name.front(), '.') << name;
        EXPECT_EQ(folder.read("out/" + name).size() % 2880, 0u);
        EXPECT_EQ(fits("out/" + name).size(), 512u * 512u);
      }
    fs::remove_all(folder.path() / "out");
  }
}

TEST_F(Inputs, AreTakenFromFoldersInOrderOfTheirNames) {
  fs::create_directories(folder.path() / "night" / "sub");
  writeFlat("night/b.raw", 1);
  writeFlat("night/a.raw", 2);
  writeFlat("night/.hidden.raw", 2);
  writeFlat("night/sub/c.raw", 3);
  folder.write("night/notes.txt", {'t', 'e', 'x', 't'});
  const std::string flat = good({"stats", "night"});
  EXPECT_LT(flat.find("a.raw:"), flat.find("b.raw:"));
  EXPECT_EQ(flat.find("c.raw"), std::string::npos);
  EXPECT_EQ(flat.find("hidden"), std::string::npos);
  good({"convert", "night", "-o", "out", "--recursive"});
  EXPECT_EQ(allNames().count("out/sub/c.fits"), 1u);
  EXPECT_THAT(files("out"), ElementsAre("a.fits", "b.fits", "sub"));
  fs::create_directory(folder.path() / "none");
  bad({"stats", "none"}, "none", "holds no frame");
}

TEST_F(Inputs, AreTakenFromLists) {
  writeHdr("a.raw", 8, 4);
  writeHdr("two words.raw", 8, 4);
  const std::string list = "a.raw\n\ntwo words.raw\n";
  folder.write("list", Bytes(list.begin(), list.end()));
  EXPECT_EQ(lines(good({"check", "--files-from", "list"})), 2u);
  folder.write("nul", {'a', '.', 'r', 'a', 'w', 0});
  EXPECT_EQ(good({"check", "--files-from", "nul", "-0"}), "a.raw: good\n");
  const Ran missing = orvacam({"check", "--files-from", "none"});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_THAT(missing.err, HasSubstr("none cannot be opened"));
}

}  // namespace
