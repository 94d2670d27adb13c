// What holds for thousands of frames: jobs, progress, the log, a watched folder.

#include <fstream>
#include <nlohmann/json.hpp>

#include "Background.h"

namespace {

using namespace program_testing;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// A night of frames, among them some that cannot be read.
class Night : public Program {
 protected:
  Night() {
    fs::create_directory(folder.path() / "night");
    for (int i = 10; i < 40; ++i)
      writeFlat("night/f" + std::to_string(i) + ".raw", static_cast<unsigned>(i));
    for (const char* const cut : {"night/f13.raw", "night/f22.raw", "night/f37.raw"})
      fs::resize_file(folder.path() / cut, 400);
  }
  static Arguments with(Arguments command, const Arguments& more) {
    command.insert(command.end(), more.begin(), more.end());
    return command;
  }
};
using Jobs = Night;
using ProgressShown = Night;
using LogFile = Night;

TEST_F(Jobs, GiveTheSameResultsAndMessagesInTheSameOrder) {
  const Arguments commands[] = {{"info", "night"},
                                {"info", "night", "--json"},
                                {"info", "night", "--csv", "--keys", "Exposure*,time_utc"},
                                {"stats", "night"},
                                {"stats", "night", "--json", "--histogram-csv", "h.csv", "--overwrite"},
                                {"check", "night", "--json"},
                                {"convert", "night", "-o", "out", "--overwrite", "--reproducible"},
                                {"preview", "night", "-o", "out", "--overwrite"}};
  for (const Arguments& command : commands) {
    SCOPED_TRACE(command[0]);
    const Ran one = orvacam(with(command, {"--jobs", "1"}));
    const auto made = contents();
    const Ran four = orvacam(with(command, {"-j", "4"}));
    EXPECT_EQ(one.exitCode, command[0] == "info" ? 0 : 1);
    EXPECT_EQ(four.exitCode, one.exitCode);
    EXPECT_EQ(four.out, one.out);
    EXPECT_EQ(four.err, one.err);
    EXPECT_EQ(contents(), made);
  }
  EXPECT_EQ(files("out").size(), 2 * 27u);
  EXPECT_EQ(fits("out/f39.fits"), Pixels(24, 39));
  EXPECT_EQ(lines(textOf(folder.read("h.csv"))), 1 + 27u);
}

TEST_F(Jobs, GoOnWhenAWorkerIsBroughtDown) {
  // The first worker waits for a standard input that never comes.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int before = dup(STDIN_FILENO);
  ASSERT_GE(dup2(ends[0], STDIN_FILENO), 0);
  Background run(folder.path(), {"convert", "-", "night/f11.raw", "night/f12.raw", "night/f14.raw", "-o",
                                 "out", "--jobs", "2"});
  ASSERT_GE(dup2(before, STDIN_FILENO), 0);
  ASSERT_TRUE(becomes([&] { return folder.has("out/f14.fits"); }));
  const std::string task = std::to_string(run.process());
  std::ifstream children("/proc/" + task + "/task/" + task + "/children");
  pid_t first = 0;
  ASSERT_TRUE(children >> first);
  kill(first, SIGKILL);
  EXPECT_EQ(run.end(), 1);
  EXPECT_EQ(run.said(), "orvacam: standard input: the process that worked on it was ended: Killed\n");
  EXPECT_THAT(files("out"), ::testing::ElementsAre("f11.fits", "f12.fits", "f14.fits"));
  for (const int file : {ends[0], ends[1], before})
    close(file);
}

TEST_F(Jobs, AreAtLeastOne) {
  refused({"stats", "night", "--jobs", "0"}, "--jobs: '0' is no whole number from 1 to 256");
  refused({"stats", "night", "--jobs", "many"}, "--jobs");
}

// ---- Progress

TEST_F(ProgressShown, IsJsonForProgramsWhenAskedFor) {
  for (const char* const jobs : {"1", "3"}) {
    const Ran ran = orvacam({"stats", "night", "--progress", "json", "--jobs", jobs});
    std::istringstream err(ran.err);
    std::vector<nlohmann::json> events;
    for (std::string line; std::getline(err, line);)
      if (line.front() == '{') events.push_back(nlohmann::json::parse(line));
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.front()["event"], "progress");
    EXPECT_EQ(events.front()["done"], 1);
    EXPECT_EQ(events.front()["total"], 30);
    EXPECT_GT(events.front()["rate_per_second"], 0);
    EXPECT_GT(events.front()["seconds_left"], 0);
    EXPECT_EQ(events.back()["event"], "end");
    EXPECT_EQ(events.back()["done"], 30);
    EXPECT_EQ(events.back()["failed"], 3);
    EXPECT_EQ(events.back()["seconds_left"], 0);
  }
}

TEST_F(ProgressShown, IsSilentWhereNobodyLooksUnlessAskedFor) {
  EXPECT_EQ(good({"stats", "night/f10.raw", "night/f11.raw"}).find("of"), std::string::npos);
  EXPECT_THAT(orvacam({"stats", "night/f10.raw", "--progress", "always"}).err,
              AllOf(StartsWith("orvacam: 1 of 1, "), Not(HasSubstr("\r"))));
  EXPECT_THAT(orvacam({"stats", "night/f10.raw", "--progress", "always", "--quiet"}).err, IsEmpty());
  refused({"stats", "night", "--progress", "some"}, "there are auto, always, never, json");
}

TEST_F(ProgressShown, IsOneLineOnATerminal) {
  Background run(folder.path(), {"stats", "night", "--jobs", "2"}, Background::ToTerminal);
  const std::string shown = run.onTerminal();
  EXPECT_EQ(run.end(), 1);
  EXPECT_THAT(shown, HasSubstr("\r\x1b[K1 of 30, "));
  EXPECT_THAT(shown, HasSubstr(" left"));
  EXPECT_THAT(shown, HasSubstr("\x1b[31morvacam:\x1b[0m night/f13.raw: "));
  EXPECT_THAT(shown, HasSubstr("30 of 30 (3 failed), "));
  // Results do not stand behind a line of progress.
  EXPECT_THAT(shown, Not(HasSubstr("leftnight/")));
  EXPECT_THAT(shown, Not(HasSubstr("/snight/")));
}

TEST_F(ProgressShown, HasNoColoursWhereNoneAreWanted) {
  for (const Names& environment : {Names{"NO_COLOR=1"}, Names{"TERM=dumb"}}) {
    Background run(folder.path(), {"stats", "night", "--progress", "never"}, Background::ToTerminal,
                   environment);
    const std::string shown = run.onTerminal();
    EXPECT_EQ(run.end(), 1);
    EXPECT_THAT(shown, AllOf(HasSubstr("orvacam: night/f13.raw: "), Not(HasSubstr("\x1b"))));
  }
  EXPECT_THAT(orvacam({"stats", "night"}).err, Not(HasSubstr("\x1b")));
}

// ---- The log

TEST_F(LogFile, IsAppendedToAndSaysWhatBecameOfEachInput) {
  folder.write("log", {'o', 'l', 'd', '\n'});
  EXPECT_EQ(orvacam({"convert", "night", "-o", "out", "--log", "log", "--quiet", "--jobs", "2"}).exitCode, 1);
  const std::string log = textOf(folder.read("log"));
  EXPECT_THAT(log, AllOf(StartsWith("old\n20"), HasSubstr("Z begin: 30 inputs\n"),
                         HasSubstr("Z night/f10.raw: done\n"), HasSubstr("Z night/f13.raw: failed\n"),
                         HasSubstr("Z night/f13.raw: needs 432 bytes"), HasSubstr("Z 27 done, 3 failed\n"),
                         HasSubstr("Z end: exit code 1\n")));
  EXPECT_EQ(lines(log), 1 + 1 + 30 + 3 + 2u);
}

TEST_F(LogFile, IsNoInputAndNoOtherOutput) {
  refused({"stats", "night", "--log", "night/f10.raw"}, "is an input and cannot be written to");
  refused({"check", "--files-from", "night/f10.raw", "--log", "./night/f10.raw"}, "is an input");
  refused({"check", "night/f10.raw", "--files-from", "none", "--log", "night/f10.raw"}, "is an input");
  refused({"stats", "night/f11.raw", "--bias", "night/f10.raw", "--log", "night/f10.raw"}, "is an input");
  refused({"stats", "night", "--histogram-csv", "x", "--log", "./x"}, "would be written twice");
  refused({"convert", "night", "-o", "out", "--log", "out/f10.fits"}, "would be written twice");
}

TEST_F(LogFile, ThatCannotBeWrittenIsSaidAndDoesNotStopTheRest) {
  const Ran ran = orvacam({"info", "night/f10.raw", "--keys", "FrameNumber", "--log", "none/log"});
  EXPECT_EQ(ran.exitCode, 3);
  EXPECT_EQ(ran.out, "FrameNumber             = 7\n");
  EXPECT_EQ(ran.err, "orvacam: none/log: cannot be written: No such file or directory\n");
}

TEST_F(LogFile, IsNeverAFrameWhateverGoesWrongFirst) {
  fs::create_directory(folder.path() / "none");
  writeHdr("d.ref", 16, 8);
  const auto before = folder.read("d.ref");
  const Ran ran = orvacam({"calibrate", "flat", "none", "--dark", "d.ref", "-o", "x", "--log", "d.ref"});
  EXPECT_EQ(ran.exitCode, 3);
  EXPECT_THAT(ran.err, AllOf(HasSubstr("orvacam: none: holds no frame\n"),
                             HasSubstr("orvacam: d.ref: is a frame or a picture and stays as it is\n")));
  EXPECT_EQ(folder.read("d.ref"), before);
}

// ---- A watched folder

class Watch : public Program {
 protected:
  Watch() {
    fs::create_directory(folder.path() / "in");
    writeFlat("frame", 7);
    frame = folder.read("frame");
  }
  bool comes(const std::string& name) const {
    return becomes([&] { return folder.has(name); });
  }

  Bytes frame;
};

TEST_F(Watch, ConvertsWhatIsThereAndWhatComesUntilItIsStopped) {
  folder.write("in/old.raw", frame);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    fs::remove_all(folder.path() / "out");
    for (const char* const name : {"in/direct.raw", "in/moved.raw", "in/linked.raw", "in/late.raw"})
      fs::remove(folder.path() / name);
    Background run(folder.path(), {"convert", "--watch", "in", "-o", "out", "--jobs", "2"});
    ASSERT_TRUE(comes("out/old.fits"));
    folder.write("in/direct.raw", frame);
    fs::copy_file(folder.path() / "frame", folder.path() / "elsewhere");
    fs::rename(folder.path() / "elsewhere", folder.path() / "in/moved.raw");
    fs::create_hard_link(folder.path() / "frame", folder.path() / "in/linked.raw");
    folder.write("in/notes.txt", {'n', 'o', 't', 'e'});
    folder.write("in/.hidden.raw", frame);
    for (const char* const name : {"out/direct.fits", "out/moved.fits", "out/linked.fits"})
      EXPECT_TRUE(comes(name)) << name;
    EXPECT_EQ(fits("out/moved.fits"), Pixels(24, 7));
    run.tell(number);
    EXPECT_EQ(run.end(), 0);
    EXPECT_EQ(run.said(), "");
    EXPECT_THAT(files("out"), ::testing::ElementsAre("direct.fits", "linked.fits", "moved.fits", "old.fits"));
  }
}

TEST_F(Watch, WaitsForSlowWriters) {
  Background run(folder.path(), {"convert", "--watch", "in", "-o", "out"});
  std::ofstream slow(folder.file("in/slow.raw"), std::ios::binary);
  const auto write = [&](std::size_t from, std::size_t to) {
    slow.write(reinterpret_cast<const char*>(frame.data() + from), static_cast<std::streamsize>(to - from));
    slow.flush();
  };
  write(0, 100);
  // It is written in several openings, too: each time it is closed it is looked at.
  std::ofstream pieces(folder.file("in/pieces.raw"), std::ios::binary);
  pieces.write(reinterpret_cast<const char*>(frame.data()), 390);
  pieces.close();
  folder.write("in/whole.raw", frame);
  ASSERT_TRUE(comes("out/whole.fits"));
  EXPECT_FALSE(folder.has("out/slow.fits"));
  EXPECT_FALSE(folder.has("out/pieces.fits"));
  pieces.open(folder.file("in/pieces.raw"), std::ios::binary | std::ios::app);
  pieces.write(reinterpret_cast<const char*>(frame.data()) + 390,
               static_cast<std::streamsize>(frame.size() - 390));
  pieces.close();
  write(100, frame.size());
  EXPECT_TRUE(comes("out/pieces.fits"));
  // It has all its bytes, but its writer has not let go of it.
  folder.write("in/next.raw", frame);
  ASSERT_TRUE(comes("out/next.fits"));
  EXPECT_FALSE(folder.has("out/slow.fits"));
  slow.close();
  EXPECT_TRUE(comes("out/slow.fits"));
  folder.write("in/never.raw", Bytes(frame.begin(), frame.begin() + 400));
  folder.write("in/last.raw", frame);
  ASSERT_TRUE(comes("out/last.fits"));
  EXPECT_TRUE(becomes([&] { return files("out").size() == 5; }));
  run.tell(SIGTERM);
  EXPECT_EQ(run.end(), 0);
  EXPECT_EQ(run.said(), "orvacam: in/never.raw: was not whole when the watch ended\n");
}

TEST_F(Watch, ResumesAndSaysWhatFails) {
  folder.write("in/a.raw", frame);
  folder.write("in/b.raw", frame);
  good({"convert", "in/a.raw", "-o", "out"});
  Background run(folder.path(), {"convert", "--watch", "in", "-o", "out", "--log", "log"});
  ASSERT_TRUE(comes("out/b.fits"));
  // The log tells when what was there has been passed over.
  ASSERT_TRUE(
      becomes([&] { return textOf(folder.read("log")).find("in/a.raw: done") != std::string::npos; }));
  Bytes other = frame;
  other.back() ^= 1;
  folder.write("in/a.raw", other);  // the camera wrote another frame of that name
  Bytes wrong = frame;
  wrong[4] = 0, wrong[5] = 200, wrong[6] = 0, wrong[7] = 99;  // no header version of ours
  folder.write("in/wrong.raw", wrong);
  for (int i = 0; i < 50; ++i) {
    folder.write("in/gone.raw", frame);
    fs::remove(folder.path() / "in/gone.raw");
  }
  folder.write("in/z.raw", frame);
  ASSERT_TRUE(comes("out/z.fits"));
  for (const char* said : {"in/wrong.raw", "out/a.fits"})
    EXPECT_TRUE(becomes([&] { return run.said().find(said) != std::string::npos; })) << said;
  run.tell(SIGINT);
  EXPECT_EQ(run.end(), 0);
  EXPECT_THAT(run.said(), HasSubstr("orvacam: out/a.fits: is there already; --overwrite replaces it\n"));
  EXPECT_THAT(run.said(), HasSubstr("orvacam: in/wrong.raw: "));
  EXPECT_THAT(textOf(folder.read("log")),
              AllOf(HasSubstr("Z begin: watching\n"), HasSubstr("Z end: exit code 0\n")));
}

TEST_F(Watch, FollowsSubfoldersWhenAsked) {
  fs::create_directory(folder.path() / "in/old");
  folder.write("in/old/a.raw", frame);
  Background run(folder.path(), {"convert", "--watch", "in", "-o", "out", "--recursive"});
  ASSERT_TRUE(comes("out/old/a.fits"));
  fs::create_directories(folder.path() / "in/new/deep");
  folder.write("in/new/deep/b.raw", frame);
  EXPECT_TRUE(comes("out/new/deep/b.fits"));
  fs::remove_all(folder.path() / "in/new");
  folder.write("in/old/c.raw", frame);
  EXPECT_TRUE(comes("out/old/c.fits"));
  run.tell(SIGINT);
  EXPECT_EQ(run.end(), 0);
  EXPECT_EQ(run.said(), "");
}

TEST_F(Watch, EndsWhenTheFolderGoesAway) {
  for (const bool moved : {false, true}) {
    fs::create_directories(folder.path() / "in");
    folder.write("in/a.raw", frame);
    Background run(folder.path(), {"convert", "--watch", "in", "-o", "out", "--overwrite"});
    ASSERT_TRUE(comes("out/a.fits"));
    if (moved)
      fs::rename(folder.path() / "in", folder.path() / "away");
    else
      fs::remove_all(folder.path() / "in");
    EXPECT_EQ(run.end(), 1);
    EXPECT_EQ(run.said(), "orvacam: in: is gone\n");
    fs::remove_all(folder.path() / "out");
  }
  bad({"convert", "--watch", "none", "-o", "."}, "none", "cannot be watched: No such file or directory");
}

TEST_F(Watch, LooksThroughTheFolderWhenEventsAreLost) {
  Background run(folder.path(), {"convert", "--watch", "in", "-o", "out", "--jobs", "1"});
  folder.write("in/first.raw", frame);
  ASSERT_TRUE(comes("out/first.fits"));
  // While it is stopped, more happens than the system keeps.
  run.tell(SIGSTOP);
  std::size_t most = 16384;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
  ASSERT_LE(most, 1000000u);
  const std::string a = folder.file("in/x"), b = folder.file("in/y");
  folder.write("in/x", {'x'});
  for (std::size_t i = 0; i < most + 10; ++i)
    fs::rename(i % 2 == 0 ? a : b, i % 2 == 0 ? b : a);
  folder.write("in/lost.raw", frame);
  run.tell(SIGCONT);
  EXPECT_TRUE(comes("out/lost.fits"));
  run.tell(SIGINT);
  EXPECT_EQ(run.end(), 0);
  EXPECT_THAT(run.said(), HasSubstr("events were lost"));
}

TEST_F(Watch, TakesNoOtherInputs) {
  folder.write("a.raw", frame);
  refused({"convert", "a.raw", "--watch", "in", "-o", "out"}, "--watch and FILE do not go together");
  refused({"convert", "--watch", "in", "-o", "-"}, "--watch and -o - do not go together");
  refused({"convert", "--watch", "in", "--files-from", "a.raw", "-o", "out"}, "--watch and --files-from");
}

// ---- Commands that read frames more than once, and the report

using LogOfACommand = Program;

Bytes textBytes(const std::string& text) {
  return {text.begin(), text.end()};
}

TEST_F(LogOfACommand, CountsFramesOfACalibrationOnce) {
  for (const unsigned int seed : {1u, 2u, 3u})
    folder.write("d" + std::to_string(seed) + ".raw",
                 Sample(fieldsOf("GENERIC", "single", 16, 8), seed).bytes);
  const Ran ran = orvacam({"calibrate", "bias", "d1.raw", "d2.raw", "d3.raw", "-o", "b.ref", "--progress",
                           "json", "--log", "log"});
  EXPECT_EQ(ran.exitCode, 0) << ran.err;
  EXPECT_THAT(ran.err, HasSubstr(R"({"event": "end", "done": 3, "total": 3, "failed": 0,)"));
  EXPECT_THAT(textOf(folder.read("log")),
              AllOf(HasSubstr("Z d2.raw: done\n"), HasSubstr("Z 3 done, 0 failed\n"),
                    HasSubstr("Z end: exit code 0\n")));
}

TEST_F(LogOfACommand, IsThereForARegionAndAMeasurement) {
  writeHdr("a.raw", 64, 48);
  const Arguments region = {"--x", "0", "--y", "0", "--width", "4", "--height", "4"};
  Arguments roi = {"roi", "a.raw", "-o", "cut.raw", "--log", "log"};
  roi.insert(roi.end(), region.begin(), region.end());
  good(roi);
  EXPECT_THAT(textOf(folder.read("log")), HasSubstr("Z a.raw: done\n"));
  roi[5] = "a.raw";
  refused(roi, "a.raw is an input and cannot be written to");
  const Ran ran = orvacam({"measure", "--flats", "a.raw", "none.raw", "--darks", "cut.raw", "--log", "log2",
                           "--progress", "json"});
  EXPECT_EQ(ran.exitCode, 1);
  EXPECT_THAT(textOf(folder.read("log2")), AllOf(HasSubstr("No such file"), HasSubstr("end: exit code 1\n")));
}

TEST_F(LogOfACommand, HoldsWhatPythonSaysOfAReport) {
  writeHdr("a.raw", 64, 48);
  writeHdr("b.raw", 64, 48);
  folder.write("python", textBytes("#!/bin/sh\necho 'orvacam: b.raw: ends too early' >&2\n"
                                   "printf 'a warning' >&2\necho page > page.html\nexit 1\n"));
  fs::permissions(folder.path() / "python", fs::perms::owner_all);
  const Surroundings surroundings = {{{"ORVACAM_PYTHON", folder.file("python")}}, 0, {}};
  const Ran ran = orvacam({"report", "a.raw", "b.raw", "-o", "page.html", "--log", "log"}, surroundings);
  EXPECT_EQ(ran.exitCode, 1);
  EXPECT_EQ(ran.err, "orvacam: b.raw: ends too early\norvacam: a warning\n");
  EXPECT_THAT(textOf(folder.read("log")),
              AllOf(HasSubstr("Z begin: 2 inputs\n"), HasSubstr("Z b.raw: ends too early\n"),
                    HasSubstr("Z a warning\n"), HasSubstr("Z a.raw: done\n"), HasSubstr("Z b.raw: failed\n"),
                    HasSubstr("Z end: exit code 1\n")));
  folder.write("python", textBytes("#!/bin/sh\nkill -9 $$\n"));
  EXPECT_THAT(orvacam({"report", "a.raw", "-o", "page.html", "--log", "log"}, surroundings).err,
              HasSubstr("was ended: Killed"));
  fs::remove(folder.path() / "python");
  EXPECT_THAT(orvacam({"report", "a.raw", "-o", "page.html", "--log", "log"}, surroundings).err,
              HasSubstr("cannot be started"));
}

}  // namespace
