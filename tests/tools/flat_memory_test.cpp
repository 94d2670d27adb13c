// A thousand frames take no more memory than ten.

#include "Background.h"

// A sanitizer keeps freed memory: what a process takes then means nothing.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {

using namespace program_testing;

class FlatMemory : public Program {
 protected:
  static constexpr int few = 10, many = 1000;

  FlatMemory() {
    // Where flushing costs nothing.
    if (fs::is_directory("/dev/shm")) {
      out = "/dev/shm/orvacam-test-" + std::to_string(getpid());
      fs::create_directory(out);
      fs::create_directory_symlink(out, folder.path() / "out");
    }
    const Bytes frame = Sample(fieldsOf("GSENSE4040", "hdr", 64, 48), 1).bytes;
    for (const auto& [name, count] : {std::pair{"few", few}, std::pair{"many", many}}) {
      fs::create_directories(folder.path() / name / "sub");
      for (int i = 0; i < count; ++i)
        folder.write(std::string(name) + "/sub/frame" + std::to_string(10000 + i) + ".raw", frame);
    }
  }
  ~FlatMemory() override { fs::remove_all(out); }
  /// The most that a run on a folder takes, in all of its processes the largest.
  long peak(Arguments command, const std::string& of) {
    command.push_back(of + "/sub");
    const Ran ran = orvacam(command);
    EXPECT_TRUE(ran.exitCode == 0 || command[0] == "repair") << ran.err.substr(0, 1000);
    return ran.peakKilobytes;
  }
  void expectFlat(const Arguments& command) {
    const long least = peak(command, "few"), most = peak(command, "many");
    EXPECT_GT(least, 1000);
    EXPECT_LE(most, least * 12 / 10) << ::testing::PrintToString(command);
    RecordProperty(command[0], std::to_string(least) + " KiB, " + std::to_string(most) + " KiB");
  }

  fs::path out;
};

TEST_F(FlatMemory, OfCommandsThatTakeFrames) {
  expectFlat({"info", "--csv", "--keys", "Exposure*,time_utc"});
  expectFlat({"stats", "--json", "--histogram-csv", "h.csv", "--overwrite"});
  expectFlat({"check", "--jobs", "1", "--log", "log"});
  expectFlat({"convert", "-o", "out", "--single-file", "--overwrite"});
  expectFlat({"convert", "-o", "out", "--jobs", "1", "-f", "ome-tiff", "--skip-existing"});
  expectFlat({"preview", "-o", "out", "--overwrite"});
  expectFlat({"stack", "-o", "mean.fits", "--overwrite"});
}

TEST_F(FlatMemory, OfRepairingFiles) {
  const auto peakOf = [&](const std::string& of) {
    EXPECT_EQ(orvacam({"convert", of + "/sub", "-o", "out/" + of, "--native", "--quiet"}).exitCode, 0);
    Arguments command = {"repair", "-o", "out/repaired", "--overwrite", "--quiet"};
    for (const std::string& name : files("out/" + of))
      if (name.find("_LOW") != std::string::npos) command.push_back("out/" + of + "/" + name);
    EXPECT_GE(command.size(), 5u + few);
    return orvacam(command).peakKilobytes;
  };
  const long least = peakOf("few"), most = peakOf("many");
  EXPECT_LE(most, least * 12 / 10);
}

TEST_F(FlatMemory, OfAWatchedFolder) {
  const auto peakOf = [&](const std::string& of, std::size_t count) {
    Background run(folder.path(), {"convert", "--watch", of + "/sub", "-o", "out/" + of, "--planes", "low"});
    EXPECT_TRUE(becomes([&] { return folder.has("out/" + of) && files("out/" + of).size() >= count; }));
    run.tell(SIGINT);
    rusage usage{};
    EXPECT_EQ(run.end(&usage), 0);
    return usage.ru_maxrss;
  };
  const long least = peakOf("few", few), most = peakOf("many", many);
  EXPECT_LE(most, least * 12 / 10);
}

}  // namespace

#endif
