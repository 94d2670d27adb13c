// orvacam stack: the mean of raw frames.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "common.h"

namespace tool {

namespace {

struct Options {
  std::vector<std::string> files;
  std::string output;
};

/// A counter on a terminal, wiped away at the end.
class Progress {
 public:
  explicit Progress(std::size_t all) : m_all(all), m_shown(isatty(STDERR_FILENO) != 0) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() {
    if (m_shown) std::cerr << "\r\x1b[K" << std::flush;
  }
  void done(std::size_t count) const {
    if (m_shown) std::cerr << "\r" << count << " of " << m_all << std::flush;
  }

 private:
  std::size_t m_all;
  bool m_shown;
};

/// The mean of frames that are alike, with the first one's header. One frame is in memory at a time.
class Stack {
 public:
  void add(const std::string& path) {
    Frame frame(path);
    if (m_count == 0)
      m_fields = frame.fields;
    else if (frame.width != m_width || frame.height != m_height || frame.hdr() != m_fields.hdr ||
             frame.fields.model != m_fields.model || frame.fields.dataBits != m_fields.dataBits)
      throw Failure("is another kind of frame than the first");
    m_planes.read(frame);
    const unpacked_images_t& images = m_planes.images();
    const bool merged = frame.hdr();
    if (m_count == 0) {
      m_width = frame.width;
      m_height = frame.height;
      const unsigned char* const header = merged ? images.pMergedMetaData : images.pLowMetaData;
      m_header.assign(header, header + images.uiMetaDataSize);
      if (m_stacker.Initialize(images.ulLowImagePixels) < 0) throw std::bad_alloc();
    }
    // The plane that is stacked is the merged one of an HDR frame, else the only one.
    if (m_stacker.StackNextFrame(merged ? images.pMergedImage : images.pLowImage, images.ulLowImagePixels) <
        0)
      throw Failure("cannot be stacked");
    ++m_count;
  }

  void write(const std::string& path, bool tiff) {
    unsigned short* mean = nullptr;
    unsigned int pixels = 0;
    unsigned char* header = nullptr;
    unsigned int length = 0;
    CFrameMetaData metaData;
    if (m_stacker.Finish(&mean, nullptr, &pixels) < 0 ||
        m_stacker.GetStackedMetaData(m_header.data(), static_cast<unsigned int>(m_header.size()), &header,
                                     &length) < 0 ||
        metaData.Parse(header, length) < 0)
      throw Failure("cannot be made of these frames");
    OutputFile file(path);
    const int written = tiff ? CTiffMaker().CreateImageFile(file.temporaryPath(), mean, metaData)
                             : CFitsInterface().CreateImageFile(file.temporaryPath(), mean, metaData);
    if (written < 0) throw Failure("cannot be written completely");
    file.commit();
  }

 private:
  CStacker m_stacker;
  Planes m_planes;
  Bytes m_header;
  orvacam::simulator::HeaderFields m_fields;
  unsigned int m_width = 0, m_height = 0;
  std::size_t m_count = 0;
};

int stack(const Options& options) {
  const std::string extension = std::filesystem::path(options.output).extension().string();
  const bool tiff = extension == ".tiff" || extension == ".tif";
  if (!tiff && extension != ".fit" && extension != ".fits") {
    complain(options.output, "should end in .fit, .fits, .tif or .tiff");
    return 1;
  }
  Stack frames;
  {
    const Progress progress(options.files.size());
    for (std::size_t i = 0; i < options.files.size(); ++i) {
      // A mean without one of its frames would be another mean.
      if (report(options.files[i], [&] { frames.add(options.files[i]); }) != 0) return 1;
      progress.done(i + 1);
    }
  }
  return report(options.output, [&] { frames.write(options.output, tiff); });
}

}  // namespace

void addStack(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand(
      "stack", "Average raw frames of one camera: the merged planes of HDR frames, else the only one.");
  command->add_option("FILE", options->files, "Raw frame files")->required();
  command->add_option("-o,--output", options->output, "The file to write: .fit, .fits, .tif or .tiff")
      ->required();
  command->callback([options, &exitCode] { exitCode = stack(*options); });
}

}  // namespace tool
