// A thousand frames take no more memory than ten.

#include <regex>

#include "Background.h"
#include "simulator/Instrument.h"

// A sanitizer keeps freed memory: what a process takes then means nothing.
#if !ORVACAM_SANITIZED

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
  }
  ~FlatMemory() override { fs::remove_all(out); }
  /// So many frames of a folder, made by their number.
  void writeFrames(const std::string& name, int count, const std::function<Bytes(int)>& frame) const {
    fs::create_directories(folder.path() / name);
    for (int i = 0; i < count; ++i)
      folder.write(name + "/frame" + std::to_string(10000 + i) + ".raw", frame(i));
  }
  void writeCopies() const {
    const Bytes frame = Sample(fieldsOf("GSENSE4040", "hdr", 64, 48), 1).bytes;
    for (const auto& [name, count] : {std::pair{"few/sub", few}, std::pair{"many/sub", many}})
      writeFrames(name, count, [&](int) { return frame; });
  }
  /// Frames that differ by their noise, of one or several exposures in turn.
  static Bytes exposed(sim::FrameType type, int number, int exposures = 1) {
    static const sim::Instrument instrument;
    const sim::Camera& camera = *sim::findCamera("GSENSE400");
    sim::HeaderFields fields = sim::withGains(camera, fieldsOf("GSENSE400", "hdr", 64, 48));
    fields.frameNumber = static_cast<unsigned>(number);
    fields.exposure = static_cast<unsigned>(100000 * (1 + number % exposures));
    const double electrons = 3000.0 * (1 + number % exposures);
    return sim::encodeFrame(fields, 3,
                            sim::exposeFrame(camera, fields, instrument, type, electrons, sim::Sky()));
  }
  /// The most that a run on a folder takes, in all of its processes the largest.
  long peak(Arguments command, const std::string& of) {
    for (std::string& word : command)
      word = std::regex_replace(word, std::regex("FOLDER"), of);
    const Ran ran = orvacam(command);
    EXPECT_EQ(ran.exitCode, 0) << ran.err.substr(0, 1000);
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
  writeCopies();
  expectFlat({"info", "FOLDER/sub", "--csv", "--keys", "Exposure*,time_utc"});
  expectFlat({"stats", "FOLDER/sub", "--json", "--histogram-csv", "h.csv", "--overwrite"});
  expectFlat({"check", "FOLDER/sub", "--jobs", "1", "--log", "log"});
  expectFlat({"convert", "FOLDER/sub", "-o", "out", "--single-file", "--overwrite"});
  expectFlat({"convert", "FOLDER/sub", "-o", "out", "--jobs", "1", "-f", "ome-tiff", "--skip-existing"});
  expectFlat({"preview", "FOLDER/sub", "-o", "out", "--overwrite"});
  expectFlat({"stack", "FOLDER/sub", "-o", "mean.fits", "--overwrite"});
}

// More values than the limit holds: what the program itself takes is 25M of it.
TEST_F(FlatMemory, OfMethodsThatNeedAllValues) {
  for (const auto& [name, count] : {std::pair{"few", few}, std::pair{"many", many}})
    writeFrames(name, count, [](int i) { return exposed(sim::FrameType::Dark, i); });
  expectFlat({"stack", "FOLDER", "-o", "a.fits", "--overwrite", "--method", "median", "--memory", "26M"});
  expectFlat({"calibrate", "dark", "FOLDER", "-o", "dark.ref", "--overwrite", "--memory", "26M"});
}

TEST_F(FlatMemory, OfMeasuringACamera) {
  constexpr int exposures = 5;
  for (const auto& [name, count] : {std::pair{"few", few}, std::pair{"many", many / 2}}) {
    writeFrames(std::string(name) + "/flats", count,
                [](int i) { return exposed(sim::FrameType::Flat, i, exposures); });
    writeFrames(std::string(name) + "/darks", count,
                [](int i) { return exposed(sim::FrameType::Dark, i, exposures); });
  }
  expectFlat({"measure", "--flats", "FOLDER/flats", "--darks", "FOLDER/darks"});
}

TEST_F(FlatMemory, OfRepairingFiles) {
  writeCopies();
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
  writeCopies();
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
