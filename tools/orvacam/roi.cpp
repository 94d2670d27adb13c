// orvacam roi: a region of a packed frame as a raw frame of its own.

#include <CLI/CLI.hpp>

#include "common.h"

namespace tool {

namespace sim = orvacam::simulator;

namespace {

struct Options {
  std::string file;
  std::string output;
  frame_roi_t region{};
};

/// Throws Failure for frames whose packed rows cannot be cut.
void requireCuttable(const Frame& frame) {
  frame.requirePixels();
  if (frame.camera().uiDeviceType != ORVA_DEVICE_GSENSE4040 || frame.fields.dataBits == 16)
    throw Failure("cannot be cut: regions are cut out of packed GSENSE4040 frames only");
  for (const sim::Section& section : sim::layoutOf(frame.fields).sections)
    if (section.before % 2 + section.pixels % 2 + section.after % 2 != 0)
      throw Failure("cannot be cut: pixels are packed in pairs, and an odd number of them is in its rows");
  if (frame.hdr() && frame.fields.preRefPixels > 0)
    throw Failure("cannot be cut: its header has reference pixels that an HDR frame does not carry");
}

/// The packed bytes of the region, behind as many bytes as the frame's header has.
Bytes regionBytes(Frame& frame, frame_roi_t region) {
  const std::size_t header = frame.headerSize();
  const std::size_t rowBytes = frame.width / 2 * std::size_t{3};
  if (frame.hdr()) {
    // The library skips the rows ahead of the region once; in an HDR stream each of them stands twice.
    const std::size_t rows = std::min<std::size_t>(std::size_t{region.uiY} + frame.fields.preRefRows,
                                                   (frame.bytes.size() - header) / rowBytes);
    const auto start = frame.bytes.begin() + static_cast<std::ptrdiff_t>(header);
    frame.bytes.erase(start, start + static_cast<std::ptrdiff_t>(rows * rowBytes));
  }
  const std::size_t size = std::size_t{region.uiWidth} / 2 * 3 * region.uiHeight * (frame.hdr() ? 2 : 1);
  if (size > frame.bytes.size()) throw Failure("is smaller than the region");
  Bytes out(header + size);
  const std::unique_ptr<IFrame> raw(CFrameFactory::Create(frame.header));
  raw->Initialize(frame.header, frame.bytes.data(), frame.bytes.size(), nullptr);
  if (raw->CopyROIToBuffer(region, out.data(), static_cast<unsigned int>(out.size())) < 0)
    throw Failure("cannot be cut: the region does not lie inside the image");
  return out;
}

/// The header of the region as a frame of its own, without reference pixels and rows. Its rows count from 0:
/// a start row would be looked up in correction frames of the region's size.
Bytes regionHeader(const Frame& frame, const frame_roi_t& region) {
  CFrameMetaData header(frame.header);
  header.SetDimensions(region.uiWidth * std::max(1u, frame.fields.horizontalBinning),
                       region.uiHeight * std::max(1u, frame.fields.verticalBinning));
  for (const ORVA_META_KEYS key : {ORVA_META_KEY_PRE_REFERENCE_ROWS, ORVA_META_KEY_POST_REFERENCE_ROWS,
                                   ORVA_META_KEY_PRE_ROW_REF_PIXELS, ORVA_META_KEY_POST_ROW_REF_PIXELS})
    header.SetValue(key, "0");
  Bytes bytes(384);
  if (header.Binarize(bytes.data(), static_cast<unsigned int>(bytes.size())) < 0)
    throw Failure("cannot be cut: the region's header cannot be written");
  return bytes;
}

Bytes cut(const Options& options) {
  Frame frame(options.file);
  requireCuttable(frame);
  unsigned int width = 0, height = 0;
  frame.header.GetImageDimensionsBinned(width, height);
  const frame_roi_t& region = options.region;
  if (region.uiX % 2 + region.uiWidth % 2 != 0)
    throw Failure("cannot be cut: pixels are packed in pairs, so that column and width are even");
  if (std::size_t{region.uiX} + region.uiWidth > width || std::size_t{region.uiY} + region.uiHeight > height)
    throw Failure("cannot be cut: the region does not lie inside the image of " + std::to_string(width) +
                  " x " + std::to_string(height) + " pixels");
  Bytes out = regionHeader(frame, region);
  const Bytes pixels = regionBytes(frame, region);
  out.insert(out.end(), pixels.begin() + frame.headerSize(), pixels.end());
  return out;
}

}  // namespace

void addRoi(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("roi", "Cut a region out of a GSENSE4040 frame, without unpacking it.");
  command->add_option("FILE", options->file, "Raw frame file")->required();
  command->add_option("-o,--output", options->output, "The raw frame file to write")->required();
  command->add_option("--x", options->region.uiX, "First column of the image, even")->required();
  command->add_option("--y", options->region.uiY, "First row of the image")->required();
  command->add_option("--width", options->region.uiWidth, "Even")->required()->check(CLI::Range(2, 65534));
  command->add_option("--height", options->region.uiHeight)->required()->check(CLI::Range(1, 65535));
  command->callback([options, &exitCode] {
    Bytes region;
    exitCode = report(options->file, [&] { region = cut(*options); });
    if (exitCode == 0) exitCode = report(options->output, [&] { writeFile(options->output, region); });
  });
}

}  // namespace tool
