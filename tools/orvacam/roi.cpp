// orvacam roi: a region of a packed frame as a frame of its own, or converted.

#include <algorithm>

#include "Commands.h"
#include "Corrections.h"
#include "ForEach.h"
#include "Inputs.h"
#include "PlaneFile.h"
#include "files/Names.h"

namespace tool {

namespace {

struct RoiOptions {
  std::string file, output, format, plane;
  CorrectionOptions corrections;
  OutputOptions outputs;
  unsigned x = 0, y = 0, width = 0, height = 0;
};

/// The plane that a single file shows: merged, else image, else low.
std::string shownPlane(const std::vector<std::string>& planes, const std::string& wanted) {
  if (!wanted.empty()) {
    if (std::find(planes.begin(), planes.end(), wanted) == planes.end())
      throw Failure("has no plane '" + wanted + "'");
    return wanted;
  }
  for (const char* const name : {"merged", "image"})
    if (std::find(planes.begin(), planes.end(), name) != planes.end()) return name;
  return "low";
}

Content converted(const orvacam::Frame& frame, const RoiOptions& options, Format format) {
  Corrections corrections(options.corrections);
  const std::string name = shownPlane(frame.planes(), options.plane);
  const orvacam::Decoded decoded = corrections.decode(frame, {});
  Product product;
  product.header = frame.header();
  product.subject = files::subjectOf(frame.header(), name);
  corrections.describe(product.subject, frame.header());
  product.pixels = name == "merged" ? decoded.merged
                   : name == "high" ? decoded.high
                   : name == "low"  ? decoded.low
                                    : decoded.image;
  product.raster = files::rasterOf(*product.pixels);
  product.subject.history.push_back("region at column " + std::to_string(options.x) + ", row " +
                                    std::to_string(options.y) + " of the image");
  finish(product.subject, options.outputs.reproducible);
  return contentOf({product}, {format, false, false}, files::stemOf(options.file));
}

int roi(const RoiOptions& options) {
  const auto format = options.format.empty() ? formatOfPath(options.output) : formatNamed(options.format);
  Targets targets;
  targets.isInput(options.file);
  addInputs(targets, options.corrections);
  targets.claim(options.output);
  return forEach({{options.file, "", ""}}, [&](const Input&) {
    const orvacam::Frame region =
        readFrame(options.file).cut({options.x, options.y, options.width, options.height});
    if (options.output != "-") files::OutputFile::cleanUp(files::folderOf(options.output));
    writeContent(options.output,
                 format ? converted(region, options, *format) : contentOf(std::string(region.bytes())),
                 options.outputs.overwrite);
  });
}

void describe(Command& c, RoiOptions& o) {
  c.add("FILE", &o.file, "Raw frame, or - for standard input", framesValue()).required();
  c.add("-o,--output", &o.output,
        "The file to write: a raw frame; .fits, .fit, .fts, .tif, .tiff and .npy are converted", fileValue())
      .required();
  c.add("--x", &o.x, "First column of the image, even", wholeNumber()).required();
  c.add("--y", &o.y, "First row of the image", wholeNumber()).required();
  c.add("--width", &o.width, "Columns, even", wholeNumber(2, 65534)).required();
  c.add("--height", &o.height, "Rows", wholeNumber(1, 65535)).required();
  c.add("-f,--format", &o.format, "Convert, whatever the extension",
        oneOf("FORMAT", {"fits", "tiff", "npy"}));
  c.add("--plane", &o.plane, "The plane that is converted", oneOf("PLANE", planeNames()));
  addCorrections(c, o.corrections);
  addOutputs(c, o.outputs, false);
  addSpeech(c);
}

int checked(const RoiOptions& o) {
  requireApart(o.corrections);
  if (!o.plane.empty()) requireMerged(o.corrections, {o.plane}, "--plane");
  if (o.x % 2 + o.width % 2 != 0)
    throw UsageError("--x, --width: pixels are packed in pairs, so that both are even");
  return roi(o);
}

}  // namespace

Command roiCommand() {
  return commandOf<RoiOptions>("roi", "Cut a region out of a packed frame, without unpacking it.",
                               {"orvacam roi frame.raw -o star.fits --x 96 --y 32 --width 64 --height 48"},
                               describe, checked);
}

}  // namespace tool
