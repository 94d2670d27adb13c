// The command-line program where files are not what they should be and disks are full.

#include "robustness/Frames.h"
#include "robustness/Surroundings.h"
#include "tools/Program.h"

namespace {

using namespace program_testing;
using robustness::becomeOrdinary;
using robustness::inChild;
using robustness::makeDiskSmall;
using robustness::Obstacle;
using robustness::put;

/// Runs the program as somebody who may not do everything, and within a minute.
std::string complaintOf(const TestFolder& folder, const std::vector<std::string>& arguments,
                        const std::string& subject, int exitCode = 1) {
  return inChild([&]() -> std::string {
    if (!becomeOrdinary()) return "the rights of root cannot be given up";
    const Ran ran = run(folder.path(), arguments);
    const std::string shown = arguments[0] + ": exit code " + std::to_string(ran.exitCode) + ", " + ran.err;
    if (ran.exitCode != exitCode) return shown;
    if (ran.err.rfind("orvacam: ", 0) != 0 || ran.err.find(subject) == std::string::npos) return shown;
    return std::count(ran.err.begin(), ran.err.end(), '\n') == 1 ? "" : shown;
  });
}

class ToolInputs : public Program, public ::testing::WithParamInterface<Obstacle> {};
INSTANTIATE_TEST_SUITE_P(All, ToolInputs, ::testing::ValuesIn(robustness::obstacles),
                         [](const auto& info) { return nameOf(info.param); });

TEST_P(ToolInputs, AreNamedInOneSentenceAndLeaveNothingBehind) {
  const auto fields = robustness::fieldsOf(robustness::modeNamed("GSense4040Hdr"));
  folder.write("good.raw", robustness::frameOf(fields));
  put(GetParam(), folder.file("bad.raw"), robustness::frameOf(fields));
  std::filesystem::create_directory(folder.file("out"));
  const std::set<std::string> before = files();
  const std::vector<std::string> commands[] = {
      {"info", "bad.raw"},
      {"stats", "bad.raw"},
      {"convert", "bad.raw", "-o", "out"},
      {"convert", "good.raw", "-o", "out", "--dsnu", "bad.raw"},
      {"convert", "good.raw", "-o", "out", "--prnu", "bad.raw"},
      {"stack", "good.raw", "bad.raw", "-o", "mean.fit"},
      {"roi", "bad.raw", "-o", "region.raw", "--x", "0", "--y", "0", "--width", "2", "--height", "1"},
      {"gains", "GSENSE4040", "--nv", "bad.raw"}};
  for (const auto& command : commands) {
    EXPECT_EQ(complaintOf(folder, command, "bad.raw"), "");
    EXPECT_EQ(files(), before) << command[0];
    EXPECT_TRUE(files("out").empty()) << command[0];
  }
}

/// The commands that write, and what each would write in the folder "out".
struct Writer {
  std::vector<std::string> command;
  const char* output;
};
const Writer writers[] = {
    {{"simulate", "GENERIC", "-o", "out/b.raw", "--width", "200", "--height", "200"}, "b.raw"},
    {{"convert", "good.raw", "-o", "out", "--planes", "low"}, "good_LOW.fits"},
    {{"convert", "good.raw", "-o", "out", "-f", "tiff", "--planes", "low"}, "good_LOW.tiff"},
    {{"preview", "good.raw", "-o", "out", "--stretch", "linear"}, "good.png"},
    {{"stack", "good.raw", "-o", "out/mean.tif"}, "mean.tif"},
    {{"stats", "good.raw", "--histogram-csv", "out/counts.csv"}, "counts.csv"},
    {{"roi", "good.raw", "-o", "out/b.raw", "--x", "0", "--y", "0", "--width", "200", "--height", "190"},
     "b.raw"}};

class ToolOutputs : public Program {
 protected:
  ToolOutputs() {
    folder.write("good.raw",
                 robustness::frameOf(robustness::fieldsOf(robustness::modeNamed("GSense4040Hdr"), 200, 200)));
    std::filesystem::create_directory(folder.file("out"));
  }
};

TEST_F(ToolOutputs, AreNotThereWhenTheDiskIsFull) {
  for (const Writer& writer : writers)
    EXPECT_EQ(inChild([&]() -> std::string {
                if (!makeDiskSmall(folder.file("out"), 8 * 1024)) return "the disk cannot be made small";
                const Ran ran = run(folder.path(), writer.command);
                if (ran.exitCode != 3 || ran.err.rfind("orvacam: ", 0) != 0)
                  return writer.command[0] + ran.err;
                return files("out").empty() ? "" : writer.command[0] + " left a file behind";
              }),
              "");
}

TEST_F(ToolOutputs, AreNotMadeInAFolderThatMayNotBeWritten) {
  chmod(folder.file("out").c_str(), 0555);
  for (const Writer& writer : writers) {
    EXPECT_EQ(complaintOf(folder, writer.command, "out", 3), "");
    EXPECT_TRUE(files("out").empty()) << writer.command[0];
  }
}

TEST_F(ToolOutputs, TakeThePlaceOfNothingButAFile) {
  for (const Writer& writer : writers) {
    const std::string name = folder.file(std::string("out/") + writer.output);
    std::filesystem::create_directory(name);
    std::ofstream(name + "/inside").flush();
    EXPECT_EQ(complaintOf(folder, writer.command, writer.output, 3), "");
    EXPECT_EQ(files("out").size(), 1u) << writer.command[0];
    std::filesystem::remove_all(name);
  }
}

TEST_F(ToolOutputs, DoNotWaitForTheReaderOfAFifo) {
  for (const Writer& writer : writers) {
    const std::string name = folder.file(std::string("out/") + writer.output);
    ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
    EXPECT_EQ(inChild([&]() -> std::string {
                run(folder.path(), writer.command);  // refused or replaced
                return "";
              }),
              "");
    for (const std::string& left : files("out"))
      std::filesystem::remove(folder.file("out/" + left));
  }
}

TEST_F(Program, TakesLittleMemoryForASmallFileThatClaimsToBeLarge) {
  std::filesystem::create_directory(folder.file("out"));
  for (const char* model : robustness::models)
    for (const unsigned int version : {1u, 4u}) {
      folder.write("claim.raw",
                   robustness::claim(model, version, 65535, 65535, version == 4, version == 4 ? 12 : 16));
      for (const std::vector<std::string>& command :
           {std::vector<std::string>{"stats", "claim.raw"}, {"convert", "claim.raw", "-o", "out"}}) {
        const Ran ran = orvacam(command);
        EXPECT_EQ(ran.exitCode, 1) << model << ", version " << version << ", " << command[0];
        EXPECT_EQ(ran.err.rfind("orvacam: claim.raw: ", 0), 0u) << ran.err;
        if (!sanitized) EXPECT_LT(ran.peakKilobytes, 64 * 1024) << model << ", " << command[0];
      }
      EXPECT_TRUE(files("out").empty()) << model;
    }
}

}  // namespace
