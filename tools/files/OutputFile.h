#ifndef ORVACAM_FILES_OUTPUT_FILE_H
#define ORVACAM_FILES_OUTPUT_FILE_H

#include <cstddef>
#include <stdexcept>
#include <string>

namespace orvacam::files {

/// An output that could not be written: which, and why in one sentence without the name.
class WriteError : public std::runtime_error {
 public:
  WriteError(std::string path, const std::string& what) : std::runtime_error(what), m_path(std::move(path)) {}
  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
};

enum class Existing { refuse, replace };

/// A file that appears under its name whole or not at all: written under a hidden name beside the target,
/// flushed to the disk, renamed. The hidden name carries host and process and the file is locked (flock), so
/// that a later run knows what a process left behind that could not clean up. A link is written through. For
/// one thread.
class OutputFile {
 public:
  /// Throws WriteError: the target is there and stays, is no regular file, or its folder cannot be written
  /// to.
  OutputFile(std::string path, Existing existing);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  const std::string& path() const { return m_path; }
  /// Appends. Throws WriteError.
  void write(const void* bytes, std::size_t length);
  /// Gives the file its name. Throws WriteError.
  void commit();

  /// Removes what processes of this host that are gone have left in a folder.
  static void cleanUp(const std::string& folder);
  /// Removes the files that are being written. May be called from a signal handler.
  static void removeUnfinished() noexcept;
  /// In a process that was forked: they are the parent's.
  static void forgetUnfinished() noexcept;

 private:
  [[noreturn]] void fail(int error) const;
  void close() noexcept;

  std::string m_path;       ///< as it was given
  std::string m_target;     ///< behind links
  std::string m_temporary;  ///< "" when there is nothing to remove
  Existing m_existing;
  int m_file = -1;
};

/// A hidden folder for what comes into being under names of somebody else's choice; removed with its files.
/// It is cleaned up as output files are.
class WorkFolder {
 public:
  /// In a folder. Throws WriteError.
  explicit WorkFolder(const std::string& folder);
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  ~WorkFolder();
  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
  int m_lock = -1;
};

/// The folder that a file is in: "." for a bare name.
std::string folderOf(const std::string& path);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_OUTPUT_FILE_H
