// The command-line program: one byte chooses the command, two say how long the first file is, the rest are a
// frame and a second file (a frame, a reference file or a calibration block).

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "fuzz_support.h"

#define main orvacamMain
#include "orvacam/main.cpp"
#undef main

namespace {

namespace fs = std::filesystem;
using fuzz::Bytes;

/// The folder that the program works in, with its inputs in "in" and nothing in "out".
class Surroundings {
 public:
  Surroundings() : m_path(fs::temp_directory_path() / ("orvacam_fuzz_tool_" + std::to_string(::getpid()))) {
    fs::create_directories(m_path / "in");
    fs::create_directories(m_path / "out");
    // What the program shows goes nowhere; what it complains of is looked at.
    static const bool quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    FUZZ_REQUIRE(quiet);
    m_errors = std::cerr.rdbuf(m_said.rdbuf());
  }
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;
  ~Surroundings() {
    std::cerr.rdbuf(m_errors);
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }

  std::string in(const char* name) const { return (m_path / "in" / name).string(); }
  std::string out(const char* name = "") const { return (m_path / "out" / name).string(); }
  std::string said() const { return m_said.str(); }
  std::size_t filesOut() const {
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator(m_path / "out")) {
      FUZZ_REQUIRE(entry.path().filename().string().front() != '.');  // nothing temporary is left behind
      ++count;
    }
    return count;
  }

 private:
  fs::path m_path;
  std::ostringstream m_said;
  std::streambuf* m_errors;
};

void write(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/// The commands; whether they write files.
struct Command {
  std::vector<std::string> words;
  bool writes;
};

Command commandOf(unsigned int choice, const Surroundings& s) {
  const std::string first = s.in("frame.raw"), second = s.in("second");
  const Command commands[] = {
      {{"check", first, second, "--jobs", "1"}, false},
      {{"preview", first, "-o", s.out(), "--quiet"}, true},
      {{"convert", first, "-o", s.out(), "--quiet", "--single-file", "--compress", "rice"}, true},
      {{"repair", first, "-o", s.out(), "--raw", second}, true},
      {{"info", first}, false},
      {{"info", "--json", first, second, "--jobs", "1"}, false},
      {{"stats", first}, false},
      {{"convert", first, "-o", s.out(), "-f", "tiff", "--quiet"}, true},
      {{"convert", first, "-o", s.out(), "--dsnu", second, "--quiet"}, true},
      {{"convert", first, "-o", s.out(), "--dsnu", second, "--prnu", second, "--quiet"}, true},
      {{"stack", first, second, "-o", s.out("mean.tif")}, true},
      {{"roi", first, "-o", s.out("region.raw"), "--x", "2", "--y", "1", "--width", "8", "--height", "2"},
       true},
      {{"gains", "GSENSE400", "--nv", second}, false},
      {{"gains", "GSENSE2020", "--nv", second}, false},
  };
  return commands[choice % (sizeof commands / sizeof *commands)];
}

int run(const Command& command) {
  std::vector<std::string> words = {"orvacam"};
  words.insert(words.end(), command.words.begin(), command.words.end());
  std::vector<char*> arguments;
  for (std::string& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return orvacamMain(static_cast<int>(words.size()), arguments.data());
}

}  // namespace

FUZZ_TARGET(data, size) {
  fuzz::Input input(data, size);
  const unsigned int choice = input.byte(), firstLength = input.word();
  const Surroundings surroundings;
  write(surroundings.in("frame.raw"), input.bytes(firstLength));
  write(surroundings.in("second"), input.rest());

  const Command command = commandOf(choice, surroundings);
  const int exitCode = run(command);
  FUZZ_REQUIRE(exitCode == 0 || exitCode == 1);
  const std::string said = surroundings.said();
  // Success says nothing; a failure says what is wrong with which file, a line each. What check finds is its
  // result.
  FUZZ_REQUIRE(command.words[0] == "check" || said.empty() == (exitCode == 0));
  FUZZ_REQUIRE(said.empty() || (said.rfind("orvacam: ", 0) == 0 && said.back() == '\n'));
  FUZZ_REQUIRE(std::count(said.begin(), said.end(), '\n') <= 2);
  const std::size_t files = surroundings.filesOut();
  FUZZ_REQUIRE(files == 0 || (command.writes && exitCode == 0));
  FUZZ_REQUIRE(files > 0 || !command.writes || exitCode == 1);
  return 0;
}
