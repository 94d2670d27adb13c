#include "Inputs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>

#include "files/FixedFiles.h"
#include "files/OutputFile.h"

namespace tool {

namespace fs = std::filesystem;
using orvacam::files::WriteError;

namespace {

/// Closes what open gave.
struct Descriptor {
  explicit Descriptor(int number) : file(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (file > STDERR_FILENO) close(file);
  }
  int file;
};

/// The most that is read of a list: millions of names.
constexpr std::uint64_t longestList = std::uint64_t{1} << 28;

/// Reads on until there are so many bytes, or until the file ends.
void readOn(int file, std::string& bytes, std::uint64_t most) {
  std::vector<char> part(std::size_t{1} << 16);
  while (bytes.size() < most) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(part.size(), most - bytes.size()));
    const ssize_t count = ::read(file, part.data(), wanted);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw Failure(std::string("cannot be read: ") + std::strerror(errno));
    if (count == 0) return;
    bytes.append(part.data(), static_cast<std::size_t>(count));
  }
}

/// Throws Failure for more bytes than these.
std::string bytesIn(int file, std::uint64_t most) {
  std::string bytes;
  readOn(file, bytes, most + 1);
  if (bytes.size() > most) throw Failure("is longer than " + std::to_string(most) + " bytes");
  return bytes;
}

/// Bytes beyond which a stream is no frame: two planes of 16 bits, and as much again behind them.
std::uint64_t longestStream(const orvacam::Header& header) {
  constexpr std::uint64_t always = std::uint64_t{1} << 20;
  constexpr std::uint64_t mostPixels = std::uint64_t{1} << 31;  // of a plane that can be decoded
  try {
    const orvacam::Size size = header.frame_size();
    return always + 8 * std::min(std::uint64_t{size.width} * size.height, mostPixels);
  } catch (const orvacam::Error&) {
    return always;  // whatever is asked of the frame says why it has no size
  }
}

/// Standard input can be read once, and is asked for more than once. It may never end: what begins like no
/// frame is refused at once, and so is what goes on behind one.
orvacam::Frame frameOfStandardInput() {
  static std::optional<orvacam::Frame> frame;
  if (frame) return *frame;
  constexpr std::uint64_t start = std::uint64_t{1} << 16;
  std::string bytes;
  readOn(STDIN_FILENO, bytes, start);
  if (bytes.size() == start) {
    const std::uint64_t most = longestStream(orvacam::Header::parse(bytes.data(), bytes.size()));
    readOn(STDIN_FILENO, bytes, most + 1);
    if (bytes.size() > most) throw Failure("goes on behind its frame");
  }
  frame = orvacam::Frame::copy(bytes.data(), bytes.size());
  return *frame;
}

bool hidden(const fs::path& path) {
  return path.filename().native().front() == '.';
}

/// The frames in a folder by the bytes of their path below it.
void addFolder(const std::string& folder, bool recursive, std::vector<Input>& inputs) {
  std::map<std::string, std::string> found;  // path below the folder, the sub-folder in it
  std::vector<std::string> folders = {""};
  std::error_code error;
  while (!folders.empty()) {
    const std::string under = folders.back();
    folders.pop_back();
    fs::directory_iterator entries(fs::path(folder) / under, error);
    if (error) throw Failure("cannot be read: " + error.message());
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
      if (error) throw Failure("cannot be read: " + error.message());
      const fs::path path = entries->path();
      if (hidden(path)) continue;
      const std::string name = path.filename().native();
      const bool link = fs::is_symlink(path, error);
      if (fs::is_directory(path, error)) {
        if (recursive && !link) folders.push_back(under + name + "/");
      } else if (orvacam::files::kindOf(path.native()) == orvacam::files::FileKind::Raw) {
        found.emplace(under + name, under);
      }
    }
  }
  if (found.empty()) throw Failure("holds no frame");
  for (const auto& [below, under] : found)
    inputs.push_back({(fs::path(folder) / below).native(), under, ""});
}

/// A list may come through a pipe: --files-from <(find ...).
std::string listAt(const std::string& path) {
  struct stat status {};
  if (path == "-" || stat(path.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode))
    return readAll(path, longestList);
  const Descriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (opened.file < 0) throw Failure(std::string("cannot be opened: ") + std::strerror(errno));
  return bytesIn(opened.file, longestList);
}

/// A line without the CR that other systems end it with, unless a file is called so.
std::string withoutReturn(std::string line) {
  struct stat status {};
  if (line.back() == '\r' && lstat(line.c_str(), &status) != 0) line.pop_back();
  return line;
}

std::vector<std::string> namesIn(const InputOptions& options) {
  const std::string text = listAt(options.list);
  const char separator = options.nulEnded ? '\0' : '\n';
  if (!options.nulEnded && text.find('\0') != std::string::npos)
    throw Failure("has names that end with a NUL, which -0 reads");
  std::vector<std::string> names;
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t to = std::min(text.find(separator, from), text.size());
    std::string name = text.substr(from, to - from);
    if (!name.empty() && !options.nulEnded) name = withoutReturn(std::move(name));
    if (!name.empty()) names.push_back(std::move(name));
    from = to + 1;
  }
  return names;
}

}  // namespace

std::string readAll(const std::string& path, std::uint64_t most) {
  if (path == "-") return bytesIn(STDIN_FILENO, most);
  const Descriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (opened.file < 0) throw Failure(std::string("cannot be opened: ") + std::strerror(errno));
  struct stat status {};
  if (fstat(opened.file, &status) != 0 || !S_ISREG(status.st_mode)) throw Failure("is no regular file");
  return bytesIn(opened.file, most);
}

std::vector<Input> inputsOf(const InputOptions& options) {
  std::vector<std::string> names = options.files;
  const Identity log = identityOf(settings().log);
  const auto refuseLog = [&](const std::string& path) {
    if (log != Identity{0, 0} && identityOf(path) == log)
      throw UsageError("--log: " + path + " is an input and cannot be written to");
  };
  // Before anything can go wrong, which the log would be told.
  refuseLog(options.list);
  for (const std::string& name : names)
    refuseLog(name);
  if (!options.list.empty()) {
    try {
      for (std::string& name : namesIn(options))
        names.push_back(std::move(name));
    } catch (const Failure& failure) {
      throw Failure("the list " + options.list + " " + failure.what());
    }
  }
  const auto fromStandardInput = std::count(names.begin(), names.end(), "-") + (options.list == "-" ? 1 : 0);
  if (fromStandardInput > 1) throw UsageError("standard input can be one input only");
  if (names.empty() && options.list.empty()) throw UsageError("no input is named");
  std::vector<Input> inputs;
  for (const std::string& name : names) {
    std::error_code none;
    if (name == "-" || !fs::is_directory(name, none)) {
      inputs.push_back({name, "", ""});
      continue;
    }
    try {
      addFolder(name, options.recursive, inputs);
    } catch (const Failure& failure) {
      inputs.push_back({name, "", failure.what()});
    }
  }
  for (const Input& input : inputs)
    refuseLog(input.path);
  return inputs;
}

orvacam::Frame readFrame(const std::string& path) {
  return path == "-" ? frameOfStandardInput() : orvacam::Frame::read(path);
}

Identity identityOf(const std::string& path) {
  struct stat status {};
  if (path == "-" || path.empty() || stat(path.c_str(), &status) != 0) return {0, 0};
  return {status.st_dev, status.st_ino};
}

namespace {

/// One spelling for a path that may not be there yet.
std::string plainPath(const std::string& path) {
  std::error_code error;
  const fs::path plain = fs::weakly_canonical(fs::absolute(path, error), error);
  return error ? path : plain.native();
}

}  // namespace

Targets::Targets() {
  if (!settings().log.empty()) claim(settings().log);
}

void Targets::isInput(const std::string& path) {
  const Identity identity = identityOf(path);
  if (m_written.count(identity) > 0) throw UsageError(path + " is an input and cannot be written to");
  if (identity != Identity{0, 0}) m_inputs.insert(identity);
}

bool Targets::conflicts(const std::string& path) const {
  const Identity identity = identityOf(path);
  return m_inputs.count(identity) > 0 || m_written.count(identity) > 0 || m_paths.count(plainPath(path)) > 0;
}

void Targets::claim(const std::string& path) {
  if (path == "-") {
    if (m_standardOutput) throw UsageError("standard output would be written twice");
    m_standardOutput = true;
    return;
  }
  const Identity identity = identityOf(path);
  if (m_inputs.count(identity) > 0) throw UsageError(path + " is an input and cannot be written to");
  if (!m_paths.insert(plainPath(path)).second || m_written.count(identity) > 0)
    throw UsageError(path + " would be written twice");
  if (identity != Identity{0, 0}) m_written.insert(identity);
}

void prepareFolder(const std::string& path) {
  std::error_code error;
  fs::create_directories(path, error);
  std::error_code none;
  if (!fs::is_directory(path, none))
    throw WriteError(path, "is no folder and cannot be made one" + (error ? ": " + error.message() : ""));
  orvacam::files::OutputFile::cleanUp(path);
}

}  // namespace tool
