// orvacam stack: many frames become one.

#include <charconv>
#include <map>

#include "Commands.h"
#include "Corrections.h"
#include "FrameReader.h"
#include "Stacking.h"
#include "files/Names.h"

namespace tool {

namespace {

void refuseTwins(const std::vector<Input>& inputs) {
  std::map<Identity, std::string> seen;
  for (const Input& input : inputs) {
    const Identity identity = identityOf(input.path);
    if (identity == Identity{0, 0}) continue;
    const auto [at, isNew] = seen.emplace(identity, input.path);
    if (!isNew)
      throw Failure(input.path + " is the same file as " + at->second + " and would be stacked twice");
  }
}

Format formatFor(const std::string& option, const std::string& path) {
  const auto format = path == "-" ? Format::Fits : formatOfPath(path);
  if (!format)
    throw UsageError(option + ": " + path + " should end in .fits, .fit, .fts, .tif, .tiff or .npy");
  return *format;
}

/// Everything that is written, by its name; all or none of it is asked for at once.
int write(const StackOptions& options, Format format, const Stacked& stacked) {
  const auto one = [&](const std::string& path, const Product& product, Format as) {
    return attempt(path, [&] {
      writeContent(path, contentOf({product}, Style{as, false, false}, files::stemOf(path)),
                   options.outputs.overwrite);
    });
  };
  Outcome outcome;
  outcome.add(one(options.output, stacked.product, format));
  if (stacked.rejected)
    outcome.add(
        one(options.rejectedMap, *stacked.rejected, formatFor("--map-rejected", options.rejectedMap)));
  return outcome.code();
}

int writePart(const StackOptions& options, const files::PartialStack& part) {
  writeContent(options.partial, contentOf(files::partialStackFile(part)), options.outputs.overwrite);
  return Good;
}

int run(const StackOptions& options, Format format, const std::vector<Input>& inputs) {
  refuseTwins(inputs);
  requireAnyWritable({options.output, options.partial, options.rejectedMap}, options.outputs.overwrite);
  if (!options.partial.empty()) {
    const auto part = sumsOf(options, inputs);
    return part ? writePart(options, *part) : static_cast<int>(Failed);
  }
  const auto stacked = stackedOf(options, inputs);
  return stacked ? write(options, format, *stacked) : static_cast<int>(Failed);
}

int stack(const StackOptions& options) {
  freeFramesAtOnce();
  const bool isPart = !options.partial.empty();
  const std::string& output = isPart ? options.partial : options.output;
  const Format format = isPart                   ? Format::Fits
                        : options.format.empty() ? formatFor("-o", output)
                                                 : formatNamed(options.format).value();
  std::vector<Input> inputs = inputsOf(options.inputs);
  if (options.combine)
    for (Input& input : inputs)
      if (!input.wrong.empty()) input.wrong = "is a folder; --combine takes the parts in it by their names";
  Targets targets;
  for (const Input& input : inputs)
    targets.isInput(input.path);
  addInputs(targets, options.corrections);
  for (const std::string& path : {output, options.rejectedMap}) {
    if (path.empty()) continue;
    targets.claim(path);
    if (path != "-") files::OutputFile::cleanUp(files::folderOf(path));
  }
  return attemptCode(output, [&] { return run(options, format, inputs); });
}

// ---- The command line

/// Two numbers above 0.
void readSigma(StackOptions& options, const std::string& text) {
  const std::size_t comma = text.find(',');
  const char* const end = text.data() + text.size();
  const char* const middle = text.data() + std::min(comma, text.size());
  const auto low = std::from_chars(text.data(), middle, options.sigmaLow);
  const auto high = comma == std::string::npos ? low : std::from_chars(middle + 1, end, options.sigmaHigh);
  if (comma == std::string::npos) options.sigmaHigh = options.sigmaLow;
  const auto isGood = [](double limit) { return limit > 0 && limit <= 1e6; };
  if (low.ec != std::errc() || low.ptr != middle || high.ec != std::errc() || high.ptr != end ||
      !isGood(options.sigmaLow) || !isGood(options.sigmaHigh))
    throw UsageError("--sigma: '" + text + "' is not LOW,HIGH, both above 0");
  options.hasSigma = true;
}

void describe(Command& c, StackOptions& o) {
  addInputs(c, o.inputs);
  c.add("-o,--output", &o.output,
        "The file to write: .fits, .fit, .fts, .tif, .tiff or .npy; - for FITS on standard output",
        fileValue());
  c.add("-f,--format", &o.format, "Format, whatever the extension", oneOf("FORMAT", {"fits", "tiff", "npy"}));
  c.add("--method", &o.method, "How frames become one", oneOf("METHOD", stackMethods())).standard = "mean";
  c.add(
       "--sigma", [&o](const std::string& text) { readSigma(o, text); },
       "Limits of sigma and winsorized, in deviations below and above the median", textValue("LOW,HIGH"))
      .standard = "3,3";
  c.add("--normalize", &o.normalization,
        "Bring frames to the first one's median of the image by an offset or a factor",
        oneOf("HOW", {"none", "additive", "multiplicative"}));
  c.add("--weights", &o.weights, "Weigh the frames of a mean by their exposures, which may then differ",
        oneOf("WHAT", {"none", "exposure"}));
  addMemory(c, o.memory);
  c.add("--dtype", &o.type, "Type of the pixels; uint16 is the result without its fraction",
        oneOf("TYPE", {"float32", "float64", "uint16"}));
  c.add("--map-rejected", &o.rejectedMap, "Write how many frames were rejected at each pixel", fileValue());
  c.add("--plane", &o.plane, "Stack this plane", oneOf("PLANE", planeNames()));
  c.add("--force", o.force, "Stack frames whose settings differ; sensor, mode and size never may");
  c.add("--partial", &o.partial, "Write exact sums instead, to be combined with those of other frames",
        fileValue());
  c.add("--combine", o.combine, "The files are partial stacks: give the result of all their frames");
  addCorrections(c, o.corrections);
  addOutputs(c, o.outputs, false);
}

bool hasAny(const CorrectionOptions& o) {
  return !o.dsnu.empty() || !o.prnu.empty() || !o.bias.empty() || !o.calibration.empty() || o.hasThresholds;
}

int checked(const StackOptions& o) {
  const bool isPart = !o.partial.empty();
  const bool isSum = o.method == "mean" || o.method == "sum";
  requireApart(o.corrections);
  if (!o.plane.empty()) requireMerged(o.corrections, {o.plane}, "--plane");
  requireApart(isPart, "--partial", !o.output.empty(), "--output");
  if (!isPart && o.output.empty()) throw UsageError("--output is required");
  if (o.type == "uint16" && o.method == "sum") throw UsageError("--dtype: uint16 holds no sum");
  if (o.weights != "none" && o.method != "mean") throw UsageError("--weights: only a mean has weights");
  if (o.hasSigma && !o.rejects()) throw UsageError("--sigma: " + o.method + " has no limits");
  if (!o.rejectedMap.empty() && !o.rejects())
    throw UsageError("--map-rejected: " + o.method + " rejects nothing");
  if (!o.rejectedMap.empty()) formatFor("--map-rejected", o.rejectedMap);
  const std::string sums = isPart ? "--partial" : "--combine";
  if (isPart || o.combine) {
    if (!isSum) throw UsageError(sums + ": there are sums of a mean and a sum alone, not of " + o.method);
    requireApart(true, sums, o.normalization != "none", "--normalize");
    requireApart(true, sums, o.weights != "none", "--weights");
  }
  requireApart(isPart, "--partial", o.type != "float32", "--dtype");
  requireApart(isPart, "--partial", !o.format.empty(), "--format");
  requireApart(o.combine, "--combine", !o.plane.empty(), "--plane");
  requireApart(o.combine, "--combine", hasAny(o.corrections), "corrections, which the parts have");
  return stack(o);
}

}  // namespace

Command stackCommand() {
  return commandOf<StackOptions>(
      "stack",
      "Make one frame of many that are alike: of the merged planes of HDR frames, else the only one.",
      {"orvacam stack night/ -o mean.fits", "orvacam stack night/ --method sigma --sigma 3,2.5 -o clean.fits",
       "orvacam stack host1/ --partial p1.fits", "orvacam stack --combine p1.fits p2.fits -o mean.fits"},
      describe, checked);
}

}  // namespace tool
