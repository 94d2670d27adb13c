// orvacam preview: pictures to look at.

#include <algorithm>
#include <filesystem>

#include "Commands.h"
#include "Corrections.h"
#include "ForEach.h"
#include "PlaneFile.h"
#include "files/Names.h"
#include "files/Stretch.h"

namespace tool {

namespace {

struct PreviewOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  OutputOptions outputs;
  std::string folder, plane, stretch = "auto";
  unsigned longest = 2048;
};

const orvacam::Plane& planeOf(const orvacam::Decoded& decoded, const std::string& name) {
  return name == "merged" ? decoded.merged
         : name == "high" ? decoded.high
         : name == "low"  ? decoded.low
                          : decoded.image;
}

std::string previewed(const std::vector<std::string>& planes, const std::string& wanted) {
  const auto has = [&](const char* name) {
    return std::find(planes.begin(), planes.end(), name) != planes.end();
  };
  if (!wanted.empty()) {
    // A frame without planes says why when it is decoded.
    if (!planes.empty() && !has(wanted.c_str())) throw Failure("has no plane '" + wanted + "'");
    return wanted;
  }
  return has("merged") ? "merged" : has("image") ? "image" : "low";
}

Content pictureOf(const orvacam::Frame& frame, const PreviewOptions& options, Corrections& corrections) {
  const std::string name = previewed(frame.planes(), options.plane);
  const orvacam::Decoded decoded = corrections.decode(
      frame, {name == "low", name == "high", name == "merged", name == "image", false, false});
  const orvacam::Plane& plane = planeOf(decoded, name);
  files::Subject subject = files::subjectOf(frame.header(), name);
  corrections.describe(subject, frame.header());
  const files::Stretch stretch(plane, subject.image, subject.saturation(),
                               files::stretchNamed(options.stretch).value());
  const files::Picture picture = files::pictureOf(plane, subject.image, options.longest, stretch);
  return pictureContent(picture.raster(), subject);
}

int preview(const PreviewOptions& options) {
  const std::vector<Input> inputs = inputsOf(options.inputs);
  const bool toOutput = options.folder == "-";
  if (toOutput && inputs.size() != 1) throw UsageError("-o -: takes one input");
  const auto target = [&](const Input& input) {
    return toOutput ? "-" : options.folder + "/" + input.under + files::stemOf(input.path) + ".png";
  };
  Targets targets;
  for (const Input& input : inputs)
    targets.isInput(input.path);
  addInputs(targets, options.corrections);
  for (const Input& input : inputs)
    if (input.wrong.empty()) targets.claim(target(input));
  if (!toOutput) prepareFolder(options.folder);
  Corrections corrections(options.corrections);
  return forEach(inputs, [&](const Input& input) {
    std::error_code none;
    const std::string path = target(input);
    if (options.outputs.skipExisting && !toOutput && std::filesystem::exists(path, none)) return;
    const Content picture = pictureOf(readFrame(input.path), options, corrections);
    if (!toOutput && !input.under.empty()) prepareFolder(options.folder + "/" + input.under);
    writeContent(path, picture, options.outputs.overwrite);
  });
}

void describe(Command& c, PreviewOptions& o) {
  addInputs(c, o.inputs);
  addJobs(c);
  c.add("-o,--output", &o.folder, "The folder to write to, made when it is missing; - for standard output",
        folderValue())
      .required();
  c.add("--max", &o.longest, "Pixels of the longer side at most", wholeNumber(1, 65535));
  c.add("--plane", &o.plane, "Show this plane", oneOf("PLANE", planeNames()));
  c.add("--stretch", &o.stretch, "How values become brightness", oneOf("CURVE", {"auto", "asinh", "linear"}));
  addCorrections(c, o.corrections);
  c.add("--overwrite", o.outputs.overwrite, "Replace files that exist");
  c.add("--skip-existing", o.outputs.skipExisting, "Make only what is missing");
}

int checked(const PreviewOptions& o) {
  requireApart(o.corrections);
  if (!o.plane.empty()) requireMerged(o.corrections, {o.plane}, "--plane");
  requireApart(o.outputs);
  return preview(o);
}

}  // namespace

Command previewCommand() {
  return commandOf<PreviewOptions>("preview", "Pictures to look at: 8-bit PNG files, stretched.",
                                   {"orvacam preview night/ -o pictures"}, describe, checked);
}

}  // namespace tool
