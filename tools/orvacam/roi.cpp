// orvacam roi: a region of a packed frame as a frame of its own, or converted.

#include <algorithm>

#include "Corrections.h"
#include "Inputs.h"
#include "PlaneFile.h"
#include "files/Names.h"

namespace tool {

namespace {

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

}  // namespace

int roi(const RoiOptions& options) {
  const auto format = options.format.empty() ? formatOfPath(options.output) : formatNamed(options.format);
  Targets targets;
  targets.isInput(options.file);
  addInputs(targets, options.corrections);
  targets.claim(options.output);
  return attempt(options.file, [&] {
    const orvacam::Frame region =
        readFrame(options.file).cut({options.x, options.y, options.width, options.height});
    if (options.output != "-") files::OutputFile::cleanUp(files::folderOf(options.output));
    writeContent(options.output,
                 format ? converted(region, options, *format) : contentOf(std::string(region.bytes())),
                 options.outputs.overwrite);
  });
}

}  // namespace tool
