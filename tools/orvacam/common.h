#ifndef ORVACAM_TOOL_COMMON_H
#define ORVACAM_TOOL_COMMON_H

#include <orvacam.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tool {

/// What was wrong, in one sentence without the file's name.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using Bytes = std::vector<unsigned char>;

/// Runs a task for each file; a failure is reported as "orvacam: FILE: what" and does not stop the others. 0
/// when all went well.
int forEachFile(const std::vector<std::string>& files, const std::function<void(const std::string&)>& task);
/// One report line on standard error.
void complain(const std::string& subject, const std::string& what);

/// The whole of a regular file. Throws Failure.
Bytes readFile(const std::string& path);

/// A raw frame with its parsed header. Throws Failure with what is wrong with it, as far as the header tells.
struct Frame {
  explicit Frame(const std::string& path);

  Bytes bytes;
  CFrameMetaData header;
};

/// Why a raw frame could not be decoded.
std::string whyNotDecoded(Frame& frame);

/// A file that appears under its final name only when it is complete: written under a temporary name in the
/// same folder, removed unless it is committed.
class OutputFile {
 public:
  explicit OutputFile(const std::filesystem::path& path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  const std::string& temporaryPath() const { return m_temporary; }
  void write(const Bytes& bytes);
  /// Gives the file its final name. Throws Failure.
  void commit();

 private:
  std::filesystem::path m_path;
  std::string m_temporary;
  bool m_committed = false;
};

/// Planes and statistics of one frame, given back at the end.
struct Merged {
  Merged() = default;
  Merged(const Merged&) = delete;
  Merged& operator=(const Merged&) = delete;
  ~Merged() {
    algo.FreeFramePointers(&images);
    algo.FreeStatsPointers(&stats);
  }

  CAlgo algo;
  unpacked_images_t images{};
  unpacked_stats_t stats{};
};

/// Wide text of any bytes.
std::wstring wide(const std::string& text);

/// A value's name and unit.
struct KeyInfo {
  const char* name;
  const char* unit;
};
const KeyInfo& keyInfo(unsigned int key);

// Each adds its command to the program; the command stores its exit code.
void addSimulate(CLI::App& app, int& exitCode);
void addConvert(CLI::App& app, int& exitCode);
void addInfo(CLI::App& app, int& exitCode);
void addStats(CLI::App& app, int& exitCode);
void addStack(CLI::App& app, int& exitCode);
void addRoi(CLI::App& app, int& exitCode);
void addGains(CLI::App& app, int& exitCode);

}  // namespace tool

#endif  // ORVACAM_TOOL_COMMON_H
