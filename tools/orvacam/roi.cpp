// orvacam roi: a region of a packed frame as a raw frame of its own.

#include <CLI/CLI.hpp>

#include "common.h"

namespace tool {

namespace {

struct Options {
  std::string file;
  std::string output;
  frame_roi_t region{};
};

void cut(const Options& options) {
  Frame frame(options.file);
  const std::unique_ptr<IFrame> raw(CFrameFactory::Create(frame.header));
  raw->Initialize(frame.header, frame.bytes.data(), frame.bytes.size(), nullptr);

  frame_roi_t region = options.region;
  const unsigned int headerSize = frame.header.GetBinarizeSize();
  const bool hdr = frame.header.Value(ORVA_META_KEY_HDR_MODE).GetValueBool();
  const unsigned long pixels = static_cast<unsigned long>(region.uiWidth) * region.uiHeight * (hdr ? 2 : 1);
  if (pixels / 2 * 3 > frame.bytes.size()) throw Failure("the region is larger than the frame");
  Bytes out(headerSize + pixels / 2 * 3);
  unsigned int device = 0;
  if (frame.header.GetDeviceType(device) < 0 || device != ORVA_DEVICE_GSENSE4040)
    throw Failure("regions can be cut out of GSENSE4040 frames only");
  if (raw->CopyROIToBuffer(region, out.data(), static_cast<unsigned int>(out.size())) < 0)
    throw Failure("the region is not inside the frame, or its column or width is odd");

  // The header of the region: a frame of its own, from row 0 on (a start row would be looked up in the correction
  // frames), without reference pixels and rows, in the bytes that are left for it.
  CFrameMetaData header(frame.header);
  header.SetDimensions(region.uiWidth, region.uiHeight);
  for (const ORVA_META_KEYS key : {ORVA_META_KEY_PRE_REFERENCE_ROWS, ORVA_META_KEY_POST_REFERENCE_ROWS,
                                   ORVA_META_KEY_PRE_ROW_REF_PIXELS, ORVA_META_KEY_POST_ROW_REF_PIXELS})
    header.SetValue(key, "0");
  Bytes headerBytes(384);
  if (header.Binarize(headerBytes.data(), 384) < 0) throw Failure("the region's header cannot be written");
  headerBytes.insert(headerBytes.end(), out.begin() + headerSize, out.end());
  OutputFile file(options.output);
  file.write(headerBytes);
  file.commit();
}

}  // namespace

void addRoi(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("roi", "Cut a region out of a GSENSE4040 frame, without unpacking it.");
  command->add_option("FILE", options->file, "Raw frame file")->required();
  command->add_option("-o,--output", options->output, "The raw frame file to write")->required();
  command->add_option("--x", options->region.uiX, "First column, even")->required();
  command->add_option("--y", options->region.uiY, "First row")->required();
  command->add_option("--width", options->region.uiWidth, "Even")->required()->check(CLI::Range(2, 65534));
  command->add_option("--height", options->region.uiHeight)->required()->check(CLI::Range(1, 65535));
  command->callback([options, &exitCode] {
    exitCode = forEachFile({options->file}, [&](const std::string&) { cut(*options); });
  });
}

}  // namespace tool
