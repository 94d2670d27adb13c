// What the program never does: lose data, leave rubbish behind.

#include <sys/prctl.h>
#include <sys/stat.h>

#include "Background.h"

namespace {

using namespace program_testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using Safety = Program;
class Inputs : public Program {
 protected:
  /// What bash makes of a command line in which $0 is the program.
  Ran shell(const std::string& command) const {
    return runProgram("bash", folder.path(), {"-c", command, ORVACAM_TOOL});
  }
};

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

/// Commands that write many files, stopped at moments that a fixed seed chooses.
class Interrupted : public Program {
 protected:
  Interrupted() {
    fs::create_directory(folder.path() / "in");
    fs::create_directory(folder.path() / "fixed");
    for (unsigned int i = 0; i < 6; ++i)
      folder.write("in/f" + std::to_string(i), Sample(fieldsOf("GSENSE4040", "hdr", 64, 48), i).bytes);
    good({"convert", "in", "-o", "fixed", "--native", "--quiet"});
    inputs = contents();
    // Workers whose parent is gone are this test's children.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
  }
  ~Interrupted() override { prctl(PR_SET_CHILD_SUBREAPER, 0); }

  Arguments command(unsigned int run) const {
    Arguments repair = {"repair", "-o", "out"};
    for (const std::string& name : files("fixed"))
      repair.push_back("fixed/" + name);
    const Arguments commands[] = {{"convert", "in", "-o", "out"},
                                  {"convert", "in", "-o", "out", "--native", "--quiet"},
                                  {"preview", "in", "-o", "out"},
                                  {"stats", "in", "--histogram-csv", "out/h.csv"},
                                  {"convert", "in", "-o", "out", "--single-file", "--compress", "rice"},
                                  repair,
                                  {"convert", "--watch", "in", "-o", "out"},
                                  {"stack", "in", "-o", "out/mean.fits"}};
    Arguments chosen = commands[run % std::size(commands)];
    const bool reproducible = chosen[0] == "repair" || chosen[0] == "stack" ||
                              (chosen[0] == "convert" && chosen[4 % chosen.size()] != "--native");
    if (reproducible) chosen.emplace_back("--reproducible");
    if (chosen[0] != "stack") chosen.insert(chosen.end(), {"--jobs", run % 3 == 0 ? "1" : "2"});
    return chosen;
  }
  /// What is in "out" when nobody interrupts.
  const std::map<std::string, Bytes>& whole(unsigned int run) {
    Arguments key = command(run);
    const auto known = complete.find(key);
    if (known != complete.end()) return known->second;
    fs::create_directory(folder.path() / "out");
    Arguments all = command(run);
    if (all[1] == "--watch") all.erase(all.begin() + 1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_NE(orvacam(all).exitCode, 2);
    lasts[key] = std::chrono::steady_clock::now() - begin;
    return complete[key] = outputs();
  }
  std::map<std::string, Bytes> outputs() const {
    std::map<std::string, Bytes> all;
    for (const std::string& name : files("out")) {
      Bytes& bytes = all[name];
      if (fs::is_regular_file(folder.path() / "out" / name)) bytes = folder.read("out/" + name);
      // The card of a fixed file that says when it was written.
      constexpr std::size_t card = std::size_t{16} * 80;
      if (fs::path(name).extension() == ".fit" && bytes.size() > card + 80)
        std::fill_n(bytes.begin() + card, 80, static_cast<unsigned char>(' '));
    }
    return all;
  }
  static Names names(const std::map<std::string, Bytes>& of) {
    Names all;
    for (const auto& [name, bytes] : of)
      all.insert(name);
    return all;
  }
  /// Stops a run at some moment.
  int stopped(unsigned int run, int number, bool all) {
    fs::remove_all(folder.path() / "out");
    fs::create_directory(folder.path() / "out");
    Background program(folder.path(), command(run));
    state = state * 1664525u + 1013904223u;
    std::this_thread::sleep_for(lasts.at(command(run)) * ((state >> 8) % 1000) / 1000.0);
    all ? program.tellAll(number) : program.tell(number);
    const int code = program.end();
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    fs::remove(folder.path() / "said");
    return code;
  }

  std::map<std::string, Bytes> inputs;
  std::map<Arguments, std::map<std::string, Bytes>> complete;
  std::map<Arguments, std::chrono::duration<double>> lasts;
  unsigned int state = 7;
};

TEST_F(Interrupted, RunsLeaveWholeFilesOrNone) {
  unsigned int stops = 0;
  const unsigned int runs = sanitized ? 16 : 50;  // each command twice at least
  for (unsigned int run = 0; run < runs; ++run) {
    const auto& all = whole(run);
    const int number = run % 3 == 0 ? SIGINT : run % 3 == 1 ? SIGTERM : SIGHUP;
    const int code = stopped(run, number, run % 2 == 0);
    // It may have been done, or not have begun.
    const bool watches = command(run)[1] == "--watch";
    EXPECT_TRUE(code == 0 || code == -number || code == 128 + number ||
                (command(run)[0] == "repair" && code == 1))
        << code;
    if (code == 128 + number || watches) ++stops;
    for (const auto& [name, bytes] : outputs()) {
      ASSERT_EQ(all.count(name), 1u) << name << " of " << command(run)[0];
      EXPECT_EQ(bytes, all.at(name)) << name << " of " << command(run)[0];
    }
    fs::remove_all(folder.path() / "out");
    EXPECT_EQ(contents(), inputs);
  }
  EXPECT_GE(stops, runs / 10) << "too few runs were stopped while they worked";
}

TEST_F(Interrupted, RunsAreFinishedByTheNextOne) {
  unsigned int left = 0;
  for (unsigned int run = 0; run < 16 || (left == 0 && run < 200); ++run) {
    const auto& all = whole(run);
    // Alone, its workers clear away; with them, nobody can.
    const bool everybody = run / 8 == 0;
    stopped(run, SIGKILL, everybody);
    for (const auto& [name, bytes] : outputs()) {
      const bool hidden = name.front() == '.';
      if (hidden) ++left;
      const bool byWorkers =
          command(run)[0] != "stats" && command(run)[0] != "stack" && command(run).back() != "1";
      if (!everybody && byWorkers) EXPECT_FALSE(hidden) << name;
      if (!hidden) EXPECT_EQ(bytes, all.at(name));
    }
    Arguments again = command(run);
    if (again[1] == "--watch") again.erase(again.begin() + 1);
    again.emplace_back("--overwrite");
    orvacam(again);
    EXPECT_EQ(names(outputs()), names(all)) << ::testing::PrintToString(again);
    EXPECT_TRUE(outputs() == all) << ::testing::PrintToString(again);
    fs::remove_all(folder.path() / "out");
    EXPECT_EQ(contents(), inputs);
  }
  EXPECT_GT(left, 0u) << "nothing was cut off";
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

TEST_F(Inputs, AreTakenFromListsOfOtherSystemsAndThroughPipes) {
  writeFlat("a.raw", 1);
  writeFlat("b.raw", 2);
  writeFlat("odd\r", 3);
  const auto exposures = [&](const std::string& list) {
    const std::string text = "a.raw\r\n\r\nodd\r\nb.raw" + list;
    folder.write("list", Bytes(text.begin(), text.end()));
    return lines(good({"info", "--files-from", "list", "--keys", "FrameNumber", "--csv"}));
  };
  EXPECT_EQ(exposures(""), 1 + 3u);
  EXPECT_EQ(exposures("\r\n"), 1 + 3u);
  const Ran piped = shell("\"$0\" info --keys FrameNumber --csv --files-from <(printf 'a.raw\\nb.raw\\n')");
  EXPECT_EQ(piped.exitCode, 0) << piped.err;
  EXPECT_EQ(lines(piped.out), 1 + 2u);
  folder.write("list", {'a', '.', 'r', 'a', 'w', 0, 'b', '.', 'r', 'a', 'w'});
  EXPECT_EQ(lines(good({"info", "--files-from", "list", "-0", "--keys", "FrameNumber", "--csv"})), 1 + 2u);
  const Ran wrong = orvacam({"info", "--files-from", "list"});
  EXPECT_EQ(wrong.exitCode, 1);
  EXPECT_EQ(wrong.err, "orvacam: the list list has names that end with a NUL, which -0 reads\n");
}

TEST_F(Inputs, AreTakenFromStandardInput) {
  writeHdr("a.raw", 16, 8);
  for (const Arguments& options : {Arguments{}, Arguments{"--native"}, Arguments{"-f", "tiff"}}) {
    std::string more = " --quiet";
    for (const std::string& option : options)
      more += " " + option;
    const Ran ran = shell("\"$0\" convert - -o out" + more + " < a.raw");
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    Arguments named = {"convert", "a.raw", "-o", "named", "--quiet"};
    named.insert(named.end(), options.begin(), options.end());
    good(named);
  }
  EXPECT_EQ(fits("out/stdin_LOW.fits"), fits("named/a_LOW.fits"));
  EXPECT_EQ(tiff("out/stdin_HIGH.tiff"), tiff("named/a_HIGH.tiff"));
  for (const char* const plane : {"LOW", "HIGH", "MERGED"})
    EXPECT_EQ(folder.read("out/stdin_" + std::string(plane) + ".fit"),
              folder.read("named/a_" + std::string(plane) + ".fit"));
  EXPECT_EQ(files("out").size(), files("named").size());
}

TEST_F(Inputs, OfStandardInputAreReadOnceHoweverOftenTheyAreLookedAt) {
  writeFlat("a.raw", 7);
  writeFlat("stdin_LOW.raw", 8);
  // A pair on standard input would take the other's name: it is looked at before anything is written.
  const Ran ran = shell("\"$0\" convert - stdin_LOW.raw -o out < a.raw");
  EXPECT_EQ(ran.exitCode, 0) << ran.err;
  EXPECT_EQ(fits("out/stdin.fits"), Pixels(24, 7));
  EXPECT_EQ(fits("out/stdin_LOW.fits"), Pixels(24, 8));
}

TEST_F(Inputs, FromStandardInputThatAreNoFrameAreCalledByThatName) {
  for (const char* const options : {"", " --native --quiet"}) {
    const Ran ran = shell("printf junk | \"$0\" convert - -o out" + std::string(options));
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_EQ(ran.err, "orvacam: standard input: is not a raw frame: it does not start with \"Meta\"\n");
    EXPECT_THAT(files("out"), ::testing::IsEmpty());
  }
}

TEST_F(Inputs, FromStandardInputThatNeverEndsAreRefused) {
  writeHdr("a.raw", 16, 8);
  constexpr long fewKilobytes = 200000;
  const std::string frame = "{ cat a.raw; head -c 1000M /dev/zero; } 2> none";
  for (const char* const command :
       {"info -", "stats -", "convert - -o out", "convert - -o out --native -q"}) {
    const Ran zeros = shell("\"$0\" " + std::string(command) + " < /dev/zero");
    EXPECT_EQ(zeros.exitCode, 1);
    EXPECT_THAT(zeros.err, HasSubstr("standard input: is not a raw frame"));
    const Ran behind = shell(frame + " | \"$0\" " + command);
    EXPECT_EQ(behind.exitCode, 1);
    EXPECT_EQ(behind.err, "orvacam: standard input: goes on behind its frame\n");
    EXPECT_LT(behind.peakKilobytes, fewKilobytes);
  }
  // A header without a size says so, whatever follows.
  Bytes odd = folder.read("a.raw");
  odd[124] = 0x12, odd[125] = 0x34;
  folder.write("a.raw", odd);
  const Ran sizeless = shell("{ cat a.raw; head -c 100000 /dev/zero; } | \"$0\" stats -");
  EXPECT_EQ(sizeless.exitCode, 1);
  EXPECT_THAT(sizeless.err, HasSubstr("4660"));
}

TEST_F(Inputs, ThatAreNoCorrectionsOrListsAreNotReadWhole) {
  writeHdr("a.raw", 16, 8);
  folder.write("zeros", {});
  fs::resize_file(folder.path() / "zeros", std::uintmax_t{3} << 30);  // without a byte on the disk
  constexpr long fewKilobytes = 200000;
  const auto refusedSoon = [&](const Arguments& command, const std::string& what) {
    const Ran ran = orvacam(command);
    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_EQ(ran.err, "orvacam: zeros: " + what + "\n");
    EXPECT_LT(ran.peakKilobytes, fewKilobytes);
  };
  const std::string noFrame = "is not a raw frame: it does not start with \"Meta\"";
  for (const char* const option : {"--dsnu", "--prnu", "--bias"})
    refusedSoon({"convert", "a.raw", "-o", "out", option, "zeros"}, noFrame);
  refusedSoon({"convert", "a.raw", "-o", "out", "--calibration", "zeros"}, "is longer than 1048576 bytes");
  refusedSoon({"gains", "GSENSE4040", "--nv", "zeros"}, "is longer than 1048576 bytes");
  const Ran list = orvacam({"info", "--files-from", "zeros"});
  EXPECT_EQ(list.exitCode, 1);
  EXPECT_EQ(list.err, "orvacam: the list zeros is longer than 268435456 bytes\n");
}

// ---- What the caller gives a program

using Surrounded = Inputs;

TEST_F(Surrounded, ByClosedDescriptorsWritesWholeFiles) {
  writeHdr("a.raw", 64, 48);
  good({"convert", "a.raw", "-o", "open", "--reproducible"});
  const Ran closed =
      shell("exec \"$0\" convert a.raw none.raw -o closed --reproducible --log log <&- >&- 2>&-");
  EXPECT_EQ(closed.exitCode, 1);
  for (const std::string& name : files("open"))
    EXPECT_EQ(folder.read("closed/" + name), folder.read("open/" + name)) << name;
  EXPECT_THAT(textOf(folder.read("log")),
              ::testing::AllOf(::testing::HasSubstr("Z none.raw: cannot be opened"),
                               ::testing::Not(::testing::HasSubstr("orvacam:"))));
  EXPECT_EQ(shell("exec \"$0\" info a.raw >&-").exitCode, 3);
}

TEST_F(Surrounded, ByFewDescriptorsWorksWithFewerProcesses) {
  if (sanitized)
    return;  // UndefinedBehaviorSanitizer looks at objects through pipes, for which none are left
  for (const char* const name : {"a.raw", "b.raw", "c.raw", "d.raw", "e.raw"})
    writeFlat(name, 1);
  const Ran few = shell("ulimit -n 8; exec \"$0\" stats . --jobs 5");
  EXPECT_EQ(few.exitCode, 0) << few.err;
  EXPECT_EQ(few.out, good({"stats", ".", "--jobs", "1"}));
}

TEST_F(Surrounded, ByAPipeThatNobodyReadsDoesNotWaitForALog) {
  writeFlat("a.raw", 1);
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  const Ran ran = orvacam({"convert", "a.raw", "-o", "out", "--log", "pipe"});
  EXPECT_EQ(ran.exitCode, 3);
  EXPECT_EQ(ran.err, "orvacam: pipe: cannot be written: No such device or address\n");
  EXPECT_EQ(files("out"), Names{"a.fits"});
}

}  // namespace
