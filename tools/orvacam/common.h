#ifndef ORVACAM_TOOL_COMMON_H
#define ORVACAM_TOOL_COMMON_H

#include <orvacam.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/Encoder.h"

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
/// The same for one task on several files; a failure names the file that it is about.
int report(const std::string& file, const std::function<void()>& task);
/// That a file ends before what it should hold: how many bytes it needs, how many are there.
std::string truncated(const std::string& what, std::size_t needed, std::size_t given);
/// One report line on standard error.
void complain(const std::string& subject, const std::string& what);

/// The whole of a regular file. Throws Failure.
Bytes readFile(const std::string& path);

/// A file or folder held open and named by its descriptor: the library takes wide paths, which not every file
/// name survives in every locale. Throws Failure.
class HeldPath {
 public:
  HeldPath(const std::string& path, int flags);
  HeldPath(const HeldPath&) = delete;
  HeldPath& operator=(const HeldPath&) = delete;
  ~HeldPath();

  /// The path for the library, or that of a file in the folder.
  std::wstring wide(const wchar_t* fileInFolder = L"") const;

 private:
  int m_file;
};

/// A raw frame with its parsed header. Throws Failure with what is wrong with it, as far as the header tells.
struct Frame {
  explicit Frame(const std::string& path);

  /// Throws Failure when pixels are missing or the image has none: not every frame class of the library
  /// minds.
  void requirePixels() const;
  bool hdr() const;
  unsigned int headerSize() const { return header.GetBinarizeSize(); }
  gain_type_info_t camera() const;

  Bytes bytes;
  CFrameMetaData header;
  orvacam::simulator::HeaderFields fields;  ///< what of the header decides how the pixels lie
  unsigned int width = 0, height = 0;       ///< of the frame, binned
};

/// Why a frame that has all its pixels could not be decoded.
std::string whyNotDecoded(const Frame& frame);

/// A file that appears under its final name only when it is complete: written under a temporary name in the
/// same folder, removed unless it is committed. Never takes the place of anything but a regular file.
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

/// Writes a whole file. Throws Failure.
void writeFile(const std::string& path, const Bytes& bytes);
/// The mode of a new file that the user's mask allows.
unsigned int newFileMode();

/// The planes of frames, unpacked and merged; buffers serve one frame after the other.
class Planes {
 public:
  Planes() = default;
  Planes(const Planes&) = delete;
  Planes& operator=(const Planes&) = delete;
  ~Planes() { m_algo.FreeFramePointers(&m_images); }

  /// Unpacks a frame of the same size as those before. Throws Failure.
  void read(Frame& frame);

  const unpacked_images_t& images() const { return m_images; }

 private:
  CAlgo m_algo;
  unpacked_images_t m_images{};
};

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
