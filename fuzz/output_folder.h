#ifndef ORVACAM_FUZZ_OUTPUT_FOLDER_H
#define ORVACAM_FUZZ_OUTPUT_FOLDER_H

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "fuzz_support.h"

namespace fuzz {

inline Bytes contentOf(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// A folder for files that a target lets the library write: empty at first, gone at the end.
class OutputFolder {
 public:
  explicit OutputFolder(const char* name = "out")
      : m_path(std::filesystem::temp_directory_path() /
               ("orvacam_fuzz_" + std::to_string(::getpid()) + "_" + name)) {
    std::filesystem::create_directories(m_path);
  }
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;
  ~OutputFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  const std::filesystem::path& path() const { return m_path; }
  /// The name of a frame, which those of the files follow from.
  std::filesystem::path file() const { return m_path / "frame.raw"; }
  /// Every file's name and bytes.
  std::map<std::string, Bytes> content() const {
    std::map<std::string, Bytes> files;
    for (const auto& entry : std::filesystem::directory_iterator(m_path))
      files[entry.path().filename().string()] = contentOf(entry.path());
    return files;
  }

 private:
  std::filesystem::path m_path;
};

}  // namespace fuzz

#endif  // ORVACAM_FUZZ_OUTPUT_FOLDER_H
