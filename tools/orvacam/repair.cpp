// orvacam repair: a standard FITS file of one of the library's own fixed ones.

#include <algorithm>

#include "Commands.h"
#include "Corrections.h"
#include "ForEach.h"
#include "PlaneFile.h"
#include "files/FixedFiles.h"

namespace tool {

namespace {

struct RepairOptions {
  InputOptions inputs;
  OutputOptions outputs;
  std::string folder, raw, dsnu, prnu;
};

/// Whether a plane shows the same where the file has pixels.
bool shows(const files::FixedFits& fixed, const orvacam::Plane& plane) {
  return !plane.empty() && plane.size() == fixed.subject.size &&
         std::equal(fixed.pixels.begin(), fixed.pixels.begin() + static_cast<std::ptrdiff_t>(fixed.present),
                    plane.data());
}

/// Takes the missing pixels, and what the header says, from the frame that the file was made of.
void complete(files::FixedFits& fixed, const RepairOptions& options) {
  const orvacam::Frame frame = readFrame(options.raw);
  CorrectionOptions references;
  references.dsnu = options.dsnu;
  references.prnu = options.prnu;
  Corrections corrections(references);
  const orvacam::Decoded decoded = corrections.decode(frame, {});
  for (const auto& [name, plane] : {std::pair{"merged", decoded.merged}, std::pair{"high", decoded.high},
                                    std::pair{"low", decoded.low}, std::pair{"image", decoded.image}}) {
    if (!shows(fixed, plane)) continue;
    std::copy(plane.data() + fixed.present, plane.data() + fixed.pixels.size(),
              fixed.pixels.begin() + static_cast<std::ptrdiff_t>(fixed.present));
    fixed.subject = files::subjectOf(frame.header(), name);
    corrections.describe(fixed.subject, frame.header());
    return;
  }
  throw Failure("shows other pixels than the frame " + options.raw);
}

std::string lossOf(const files::FixedFits& fixed) {
  const std::size_t width = fixed.subject.size.width;
  return std::to_string(fixed.pixels.size() - fixed.present) + " pixels lost, written as 0: from column " +
         std::to_string(fixed.present % width + 1) + " of row " + std::to_string(fixed.present / width + 1) +
         " on";
}

void repairFile(const std::string& path, const std::string& target, const RepairOptions& options) {
  const files::FileKind kind = files::kindOf(path);
  if (kind == files::FileKind::Fits) throw Failure("is a standard FITS file and needs no repair");
  if (kind != files::FileKind::FixedFits) throw Failure("is none of the library's fixed FITS files");
  files::FixedFits fixed = files::readFixedFits(path);
  const bool whole = !options.raw.empty();
  if (whole) complete(fixed, options);
  Product product;
  product.subject = fixed.subject;
  product.subject.history.emplace_back("standard file of a fixed one");
  if (!whole) product.subject.history.push_back(lossOf(fixed));
  finish(product.subject, options.outputs.reproducible);
  product.raster = {fixed.subject.size, files::Raster::U16, fixed.pixels.data()};
  writeContent(target, contentOf({product}, Style(), ""), options.outputs.overwrite);
  if (!whole) throw Failure(lossOf(fixed) + "; --raw FRAME brings them back");
}

int repair(const RepairOptions& options) {
  const std::vector<Input> inputs = inputsOf(options.inputs);
  if (!options.raw.empty() && inputs.size() != 1) throw UsageError("--raw: takes one file to repair");
  const auto target = [&](const Input& input) {
    return options.folder + "/" + input.under + input.path.substr(input.path.find_last_of('/') + 1);
  };
  Targets targets;
  for (const Input& input : inputs)
    targets.isInput(input.path);
  for (const std::string& path : {options.raw, options.dsnu, options.prnu})
    if (!path.empty()) targets.isInput(path);
  for (const Input& input : inputs)
    targets.claim(target(input));
  prepareFolder(options.folder);
  return forEach(inputs, [&](const Input& input) { repairFile(input.path, target(input), options); });
}

void describe(Command& c, RepairOptions& o) {
  c.add("FILE", &o.inputs.files, "Fixed FITS files", framesValue().words()).required();
  addJobs(c);
  addSpeech(c);
  c.add("-o,--output", &o.folder, "The folder to write to, made when it is missing", folderValue())
      .required();
  c.add("--raw", &o.raw, "The frame that the file was made of: it has the pixels that the file lacks",
        fileValue("FRAME"));
  c.add("--dsnu", &o.dsnu, "With --raw: the DSNU file that a merged file was made with", fileValue());
  c.add("--prnu", &o.prnu, "With --raw: the PRNU file that a merged file was made with", fileValue());
  addOutputs(c, o.outputs, false);
}

int checked(const RepairOptions& o) {
  if (o.raw.empty() && !(o.dsnu.empty() && o.prnu.empty()))
    throw UsageError("--dsnu, --prnu: they are for the frame that --raw names");
  requireNamed(o.folder, "--output");
  return repair(o);
}

}  // namespace

Command repairCommand() {
  return commandOf<RepairOptions>("repair", "Make standard FITS files of the library's own fixed ones.",
                                  {"orvacam repair frame.fit -o repaired --raw frame.raw"}, describe,
                                  checked);
}

}  // namespace tool
