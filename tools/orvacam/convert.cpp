// orvacam convert: raw frame files become FITS or TIFF files in one folder.

#include <CLI/CLI.hpp>
#include <cstring>
#include <set>

#include "common.h"

namespace tool {

namespace fs = std::filesystem;

namespace {

struct Options {
  std::vector<std::string> files;
  std::string folder;
  std::string format = "fits";
  std::string dsnu;
  std::string prnu;
};

/// A folder of its own inside the destination, removed with everything in it.
class WorkFolder {
 public:
  explicit WorkFolder(const fs::path& parent) : m_path((parent / ".orvacam-XXXXXX").string()) {
    if (mkdtemp(m_path.data()) == nullptr)
      throw Failure("cannot write to " + parent.string() + ": " + std::strerror(errno));
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  ~WorkFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
};

void convert(const std::string& source, const Options& options, std::set<std::string>& written) {
  Frame frame(source);
  std::string stem = fs::path(source).stem().string();
  if (!written.insert(stem).second)
    throw Failure("not converted: another input has the same name and its files would be overwritten");

  const std::wstring dsnu = wide(options.dsnu);
  const std::wstring prnu = wide(options.prnu);
  conv_info_t request{
      static_cast<unsigned int>(options.format == "tiff" ? ORVA_IMAGE_FORMAT_TIFF : ORVA_IMAGE_FORMAT_FITS),
      dsnu.empty() ? nullptr : dsnu.c_str(), prnu.empty() ? nullptr : prnu.c_str()};
  // Files come into being in a folder of their own and move when all of them are complete. The library's
  // status is that of the last file; a file that is missing shows an earlier failure.
  const WorkFolder work(options.folder);
  CAlgo algo;
  if (algo.ConvertFile(wide(source).c_str(), &request, wide(work.path() + "/" + stem + ".raw").c_str()) < 0) {
    for (const std::string& reference : {options.dsnu, options.prnu})
      if (!reference.empty() && !fs::is_regular_file(reference))
        throw Failure("not converted: " + reference + " cannot be opened");
    throw Failure(whyNotDecoded(frame));
  }
  const bool hdr = frame.header.Value(ORVA_META_KEY_HDR_MODE).GetValueBool();
  const std::string extension = options.format == "tiff" ? ".tiff" : ".fit";
  const std::vector<std::string> suffixes =
      hdr ? std::vector<std::string>{"_LOW", "_HIGH", "_MERGED"} : std::vector<std::string>{""};
  for (const std::string& suffix : suffixes)
    if (!fs::exists(work.path() + "/" + stem + suffix + extension))
      throw Failure("not converted: " + stem + suffix + extension + " cannot be written");
  for (const std::string& suffix : suffixes)
    fs::rename(work.path() + "/" + stem + suffix + extension,
               fs::path(options.folder) / (stem + suffix + extension));
}

}  // namespace

void addConvert(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("convert", "Convert raw frame files to FITS or TIFF.");
  command->add_option("FILE", options->files, "Raw frame files")->required();
  command->add_option("-o,--output", options->folder, "The folder to write to; made when it is missing")
      ->required();
  command->add_option("-f,--format", options->format)
      ->check(CLI::IsMember({"fits", "tiff"}))
      ->capture_default_str();
  command->add_option("--dsnu", options->dsnu, "Reference file of dark signal non-uniformity");
  command->add_option("--prnu", options->prnu, "Reference file of photo response non-uniformity");
  command->callback([options, &exitCode] {
    std::error_code error;
    fs::create_directories(options->folder, error);
    if (!fs::is_directory(options->folder)) {
      complain(options->folder, "is not a folder and cannot be made one");
      exitCode = 1;
      return;
    }
    std::set<std::string> written;
    exitCode =
        forEachFile(options->files, [&](const std::string& file) { convert(file, *options, written); });
  });
}

}  // namespace tool
