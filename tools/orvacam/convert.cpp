// orvacam convert: raw frame files become FITS or TIFF files in one folder.

#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <optional>
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
      throw Failure("is not converted: " + parent.string() + ": " + std::strerror(errno));
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

/// A reference file, open as the library wants it; without one, nothing.
class Reference {
 public:
  Reference(const std::string& path, const Frame& frame) {
    if (path.empty()) return;
    try {
      const Frame reference(path);
      // The merge takes the terms of the rows from the image's first row on; the library leaves the merged
      // plane empty when there are too few.
      if (reference.width != frame.width || reference.height < frame.fields.startRow + frame.height)
        throw Failure("has " + std::to_string(reference.width) + " x " + std::to_string(reference.height) +
                      " terms, which do not cover the frame");
      const std::size_t terms = std::size_t{4} * reference.width * reference.height;  // two planes
      const std::size_t needed = reference.headerSize() + terms;
      if (reference.bytes.size() < needed) throw Failure(truncated("terms", needed, reference.bytes.size()));
      m_held.emplace(path, O_RDWR);
      m_path = m_held->wide();
    } catch (const Failure& failure) {
      throw Failure("is not converted: the reference file " + path + " " + failure.what());
    }
  }
  const wchar_t* path() const { return m_held ? m_path.c_str() : nullptr; }

 private:
  std::optional<HeldPath> m_held;
  std::wstring m_path;
};

/// Moves finished files to the destination. None is moved when one of the names is taken by another input.
void publish(const fs::path& from, const std::vector<std::string>& suffixes, const std::string& extension,
             const fs::path& destination, std::set<std::string>& written) {
  const std::string stem = destination.filename().string();
  for (const std::string& suffix : suffixes)
    if (written.count(stem + suffix) > 0)
      throw Failure("is not converted: " + stem + suffix + extension + " was just made of another input");
  for (const std::string& suffix : suffixes) {
    const fs::path source = from / ("frame" + suffix + extension);
    const fs::path target = destination.parent_path() / (stem + suffix + extension);
    std::error_code error;
    fs::permissions(source, static_cast<fs::perms>(newFileMode()), error);
    fs::rename(source, target, error);
    if (error) throw Failure("is not converted: " + target.string() + ": " + error.message());
    written.insert(stem + suffix);
  }
}

void convert(const std::string& source, const Options& options, std::set<std::string>& written) {
  Frame frame(source);
  frame.requirePixels();
  const Reference dsnu(options.dsnu, frame);
  const Reference prnu(options.prnu, frame);
  const bool tiff = options.format == "tiff";
  const std::string extension = tiff ? ".tiff" : ".fit";
  const std::vector<std::string> suffixes =
      frame.hdr() ? std::vector<std::string>{"_LOW", "_HIGH", "_MERGED"} : std::vector<std::string>{""};

  // Files come into being in a folder of their own and move when all of them are complete.
  const WorkFolder work(options.folder);
  const HeldPath input(source, O_RDONLY);
  const HeldPath folder(work.path(), O_RDONLY | O_DIRECTORY);
  const conv_info_t request{static_cast<unsigned int>(tiff ? ORVA_IMAGE_FORMAT_TIFF : ORVA_IMAGE_FORMAT_FITS),
                            dsnu.path(), prnu.path()};
  CAlgo algo;
  const int status = algo.ConvertFile(input.wide().c_str(), &request, folder.wide(L"frame.raw").c_str());

  // The status is that of the last file; those before it are as long when they are complete.
  const auto sizeOf = [&](const std::string& suffix) {
    std::error_code none;
    return fs::file_size(work.path() + "/frame" + suffix + extension, none);
  };
  constexpr auto missing = static_cast<std::uintmax_t>(-1);
  if (status < 0 && sizeOf(suffixes.back()) == missing) throw Failure(whyNotDecoded(frame));
  for (const std::string& suffix : suffixes)
    if (status < 0 || sizeOf(suffix) != sizeOf(suffixes.back()))
      throw Failure("is not converted: the files in " + options.folder + " cannot be written completely");
  publish(work.path(), suffixes, extension, fs::path(options.folder) / fs::path(source).stem(), written);
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
  command->add_option("--dsnu", options->dsnu,
                      "Reference file of dark signal non-uniformity, for the merged image of HDR frames");
  command->add_option("--prnu", options->prnu,
                      "Reference file of photo response non-uniformity, for the same");
  command->callback([options, &exitCode] {
    std::error_code error;
    fs::create_directories(options->folder, error);
    if (!fs::is_directory(options->folder, error)) {
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
