#ifndef ORVACAM_TESTS_TEST_FOLDER_H
#define ORVACAM_TESTS_TEST_FOLDER_H

#include <gtest/gtest.h>
#include <orvacam/support/CLog.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/// A folder of a test's own, removed at its end.
class TestFolder {
 public:
  TestFolder() {
    std::string path = (std::filesystem::temp_directory_path() / "orvacam-test-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) ADD_FAILURE() << "no temporary folder";
    m_path = path;
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  std::string file(const std::string& name) const { return (m_path / name).string(); }
  std::wstring wideFile(const std::string& name) const { return (m_path / name).wstring(); }

  std::filesystem::path put(const std::string& name, const std::vector<unsigned char>& bytes) const {
    std::ofstream out(m_path / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return m_path / name;
  }
  std::wstring write(const std::string& name, const std::vector<unsigned char>& bytes) const {
    return put(name, bytes).wstring();
  }
  std::vector<unsigned char> read(const std::string& name) const {
    std::ifstream in(m_path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  bool has(const std::string& name) const { return std::filesystem::exists(m_path / name); }
  const std::filesystem::path& path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

/// Works in a folder while this lives.
class InFolder {
 public:
  explicit InFolder(const std::filesystem::path& path) : m_before(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  InFolder(const InFolder&) = delete;
  InFolder& operator=(const InFolder&) = delete;
  ~InFolder() { std::filesystem::current_path(m_before); }

 private:
  std::filesystem::path m_before;
};

/// What the library logs while this lives: a fresh log at the most talkative level, in a folder of its own.
class LogCapture {
 public:
  LogCapture() {
    CLog::release();
    CLog::getInstance()->m_eLogLevel = CLOGLEVEL_ENTRY;
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  // Objects keep a pointer to the log, so that it is emptied rather than released.
  ~LogCapture() { CLog::getInstance()->m_eLogLevel = CLOGLEVEL_OFF; }

  /// Every line logged so far, from its level word on.
  std::string text() const {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.path() / "MarloLogs")) {
      std::ifstream in(entry.path());
      for (std::string line; std::getline(in, line);) {
        const std::size_t comma = line.find(", ");
        if (comma != line.npos) all += line.substr(comma + 2) + "\n";
      }
    }
    return all;
  }

 private:
  TestFolder m_folder;
  InFolder m_inside{m_folder.path()};
};

#endif  // ORVACAM_TESTS_TEST_FOLDER_H
