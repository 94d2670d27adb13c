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

/// The plane that is stacked: the merged one of an HDR frame, else the only one.
unsigned short* planeOf(const unpacked_images_t& images, bool hdr) {
  return hdr ? images.pMergedImage : images.pLowImage;
}

void progress(std::size_t done, std::size_t all) {
  if (isatty(STDERR_FILENO) == 0) return;
  std::cerr << '\r' << done << " of " << all << (done == all ? "\n" : "") << std::flush;
}

void stack(const Options& options) {
  const std::string extension = std::filesystem::path(options.output).extension().string();
  const bool tiff = extension == ".tiff" || extension == ".tif";
  if (!tiff && extension != ".fit" && extension != ".fits")
    throw Failure("the output ends in .fit, .fits, .tif or .tiff");

  CStacker stacker;
  Merged merged;  // one set of planes for all frames
  unsigned long pixels = 0;
  std::size_t stacked = 0;
  for (const std::string& file : options.files) {
    Frame frame(file);
    const bool hdr = frame.header.Value(ORVA_META_KEY_HDR_MODE).GetValueBool();
    gain_type_info_t camera{0, frame.header.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
    frame.header.GetDeviceType(camera.uiDeviceType);
    merged.algo.Initialize(camera, nullptr);
    merged.images.bLowImageRequest = merged.images.bMetaDataRequest = true;
    merged.images.bHighImageRequest = merged.images.bMergedImageRequest = hdr;
    if (merged.algo.MergeImage(frame.bytes.data(), frame.bytes.size(), &merged.images, nullptr) < 0)
      throw Failure(file + " " + whyNotDecoded(frame));
    if (stacked == 0) {
      pixels = merged.images.ulLowImagePixels;
      if (stacker.Initialize(pixels) < 0) throw Failure("not enough memory");
    }
    if (merged.images.ulLowImagePixels != pixels ||
        stacker.StackNextFrame(planeOf(merged.images, hdr), pixels) < 0)
      throw Failure(file + " has another size than the first frame");
    progress(++stacked, options.files.size());
  }

  unsigned short* mean = nullptr;
  unsigned int count = 0;
  unsigned char* header = nullptr;
  unsigned int headerLength = 0;
  unsigned char* const base =
      merged.images.pMergedImage != nullptr ? merged.images.pMergedMetaData : merged.images.pLowMetaData;
  CFrameMetaData metaData;
  if (stacker.Finish(&mean, nullptr, &count) < 0 ||
      stacker.GetStackedMetaData(base, merged.images.uiMetaDataSize, &header, &headerLength) < 0 ||
      metaData.Parse(header, headerLength) < 0)
    throw Failure("the stack cannot be finished");

  OutputFile file(options.output);
  const int written = tiff ? CTiffMaker().CreateImageFile(file.temporaryPath(), mean, metaData)
                           : CFitsInterface().CreateImageFile(file.temporaryPath(), mean, metaData);
  if (written < 0) throw Failure("cannot be written");
  file.commit();
}

}  // namespace

void addStack(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("stack", "Average raw frames of one camera.");
  command->add_option("FILE", options->files, "Raw frame files")->required();
  command->add_option("-o,--output", options->output, "The file to write: .fit, .fits, .tif or .tiff")
      ->required();
  command->callback([options, &exitCode] {
    exitCode = forEachFile({options->output}, [&](const std::string&) { stack(*options); });
  });
}

}  // namespace tool
