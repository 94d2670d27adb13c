#ifndef ORVACAM_TESTS_TOOLS_PROGRAM_H
#define ORVACAM_TESTS_TOOLS_PROGRAM_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "TestFolder.h"
#include "simulator/Scene.h"

namespace program_testing {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;
using Pixels = std::vector<unsigned short>;

/// How the program ended and what it said.
struct Ran {
  int exitCode = -1;  ///< -1 when it did not end by itself
  std::string out, err;
  long peakKilobytes = 0;
};

/// What is special about a run.
struct Surroundings {
  std::vector<std::pair<std::string, std::string>> environment;
  unsigned long longestFile = 0;  ///< bytes after which writing fails, as on a full disk; 0 without limit
  std::string standardOutput;     ///< where it goes instead of to `out`
};

inline std::string contentOf(std::FILE* file) {
  std::string text;
  std::rewind(file);
  char part[4096];
  for (std::size_t count = 0; (count = std::fread(part, 1, sizeof part, file)) > 0;)
    text.append(part, count);
  std::fclose(file);
  return text;
}

/// Runs the program in a folder.
inline Ran run(const std::filesystem::path& folder, const std::vector<std::string>& arguments,
               const Surroundings& surroundings = {}) {
  std::vector<char*> argv = {const_cast<char*>("orvacam")};
  for (const std::string& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  std::FILE* const out = std::tmpfile();
  std::FILE* const err = std::tmpfile();
  const pid_t child = fork();
  if (child == 0) {
    const int output = surroundings.standardOutput.empty()
                           ? fileno(out)
                           : open(surroundings.standardOutput.c_str(), O_WRONLY);
    if (dup2(output, STDOUT_FILENO) < 0 || dup2(fileno(err), STDERR_FILENO) < 0 || chdir(folder.c_str()) != 0)
      _exit(120);
    for (const auto& [name, value] : surroundings.environment)
      setenv(name.c_str(), value.c_str(), 1);
    if (surroundings.longestFile > 0) {
      signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{surroundings.longestFile, surroundings.longestFile};
      setrlimit(RLIMIT_FSIZE, &limit);
    }
    execv(ORVACAM_TOOL, argv.data());
    _exit(121);
  }
  Ran ran;
  int status = 0;
  rusage usage{};
  if (child > 0 && wait4(child, &status, 0, &usage) == child && WIFEXITED(status))
    ran.exitCode = WEXITSTATUS(status);
  ran.peakKilobytes = usage.ru_maxrss;
  ran.out = contentOf(out);
  ran.err = contentOf(err);
  return ran;
}

/// A raw frame of random pixels and the planes that are in it.
struct Sample {
  Sample(const sim::HeaderFields& header, unsigned int seed, unsigned int headerVersion = 3)
      : fields(header), version(headerVersion) {
    const sim::Layout layout = sim::layoutOf(fields);
    const unsigned int largest = layout.packing == sim::Packing::Packed12 ? 4095 : 65534;
    unsigned int state = seed;
    planes = sim::makePlanes(layout, [&](const sim::PixelPlace&) {
      state = state * 1664525u + 1013904223u;
      return static_cast<std::uint16_t>((state >> 12) % (largest + 1));
    });
    bytes = sim::encodeFrame(fields, version, planes);
  }
  unsigned short at(unsigned int plane, unsigned int x, unsigned int y) const {
    return planes.at(plane).at(std::size_t{y} * fields.frameWidth() + x);
  }

  sim::HeaderFields fields;
  unsigned int version;
  std::vector<sim::Plane> planes;
  Bytes bytes;
};

inline sim::HeaderFields fieldsOf(const char* camera, const char* mode, unsigned int width,
                                  unsigned int height) {
  sim::HeaderFields fields = sim::headerFor(*sim::findCamera(camera), mode).value();
  fields.width = width;
  fields.height = height;
  return fields;
}

/// A folder to run the program in.
class Program : public ::testing::Test {
 protected:
  Ran orvacam(const std::vector<std::string>& arguments, const Surroundings& surroundings = {}) const {
    return run(folder.path(), arguments, surroundings);
  }
  /// The names in the folder or one in it, hidden ones included, the log's aside.
  std::set<std::string> files(const std::string& name = "") const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path() / name))
      if (entry.path().filename() != "MarloLogs") names.insert(entry.path().filename().string());
    return names;
  }
  /// The pixels of a TIFF file: behind the 656 bytes of its own header and the frame's 384.
  Pixels tiff(const std::string& name) const { return pixels(folder.read(name), 656 + 384, false); }
  /// The pixels of a FITS file as far as it goes: behind two blocks of header.
  Pixels fits(const std::string& name) const { return pixels(folder.read(name), 5760, true); }

  static Pixels pixels(const Bytes& bytes, std::size_t from, bool bigEndian) {
    Pixels result;
    for (std::size_t i = from; i + 1 < bytes.size(); i += 2)
      result.push_back(static_cast<unsigned short>(bigEndian ? bytes[i] << 8 | bytes[i + 1]
                                                             : bytes[i + 1] << 8 | bytes[i]));
    return result;
  }
  static std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }

  TestFolder folder;
};

}  // namespace program_testing

#endif  // ORVACAM_TESTS_TOOLS_PROGRAM_H
