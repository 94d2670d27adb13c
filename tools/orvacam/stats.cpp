// orvacam stats: statistics of each plane.

#include <cstdio>
#include <iostream>
#include <optional>

#include "Commands.h"
#include "Corrections.h"
#include "ForEach.h"
#include "PlaneFile.h"
#include "files/Json.h"

namespace tool {

namespace {

struct StatsOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  bool json = false, overwrite = false;
  std::string histogram;
};

struct Named {
  const char* name;
  orvacam::Plane plane;
};

std::vector<Named> planesOf(const orvacam::Decoded& decoded) {
  std::vector<Named> planes;
  for (const Named& named : {Named{"low", decoded.low}, Named{"high", decoded.high},
                             Named{"merged", decoded.merged}, Named{"image", decoded.image}})
    if (!named.plane.empty()) planes.push_back(named);
  return planes;
}

std::string jsonOf(const orvacam::Extreme& extreme) {
  return files::JsonObject().whole("value", extreme.value).whole("x", extreme.x).whole("y", extreme.y).str();
}

std::string jsonOf(const orvacam::Statistics& s) {
  return files::JsonObject()
      .whole("count", static_cast<std::int64_t>(s.count))
      .number("mean", s.mean)
      .number("deviation", s.deviation)
      .whole("mode", s.mode)
      .raw("minimum", jsonOf(s.minimum))
      .raw("maximum", jsonOf(s.maximum))
      .raw("clip", "[" + std::to_string(s.clip_low) + ", " + std::to_string(s.clip_high) + "]")
      .str();
}

void printJson(const std::string& path, const std::vector<Named>& planes) {
  files::JsonObject all;
  for (const Named& named : planes)
    all.raw(named.name, jsonOf(named.plane.statistics().value()));
  std::cout << files::JsonObject()
                   .text("schema", "orvacam.stats/1")
                   .text("file", path)
                   .raw("planes", all.str())
                   .str()
            << '\n';
}

void print(const std::string& path, const std::vector<Named>& planes) {
  std::cout << files::shownText(path) << ":\n";
  for (const Named& named : planes) {
    const orvacam::Statistics& s = named.plane.statistics().value();
    char line[256];
    std::snprintf(
        line, sizeof line,
        "  %-7s mean %10.3f  deviation %10.3f  mode %5u  min %5u at (%u, %u)  max %5u at (%u, %u)  clip "
        "%u..%u\n",
        named.name, s.mean, s.deviation, s.mode, s.minimum.value, s.minimum.x, s.minimum.y, s.maximum.value,
        s.maximum.x, s.maximum.y, s.clip_low, s.clip_high);
    std::cout << line;
  }
}

/// "value" and a column of counts for each plane; a line for each value that is there.
std::string histogramOf(const std::vector<Named>& planes) {
  std::string text = "value";
  for (const Named& named : planes)
    text += std::string(",") + named.name;
  for (std::size_t value = 0; value < 65536; ++value) {
    std::string line = "\n" + std::to_string(value);
    bool any = false;
    for (const Named& named : planes) {
      const std::uint32_t count = named.plane.statistics()->histogram.at(value);
      any = any || count > 0;
      line += "," + std::to_string(count);
    }
    if (any) text += line;
  }
  return text + "\n";
}

/// The same of many files: "file,plane,value,count".
std::string countsOf(const std::string& path, const std::vector<Named>& planes) {
  std::string text;
  const std::string file = files::csvField(path);
  for (const Named& named : planes) {
    const std::vector<std::uint32_t>& counts = named.plane.statistics()->histogram;
    for (std::size_t value = 0; value < counts.size(); ++value)
      if (counts[value] > 0)
        text += file + "," + named.name + "," + std::to_string(value) + "," + std::to_string(counts[value]) +
                "\n";
  }
  return text;
}

/// The file of histograms, which grows as frames are done.
class Histograms {
 public:
  Histograms(const StatsOptions& options, bool single) : m_options(options), m_single(single) {}

  /// Throws files::WriteError.
  void add(const std::string& counts) {
    if (m_failed) return;
    try {
      if (!m_file) begin();
      m_file->write(counts.data(), counts.size());
    } catch (const files::WriteError&) {
      m_failed = true;
      throw;
    }
  }
  /// Gives it its name, if there is anything in it.
  int end() {
    if (!m_file || m_failed) return Good;
    return attempt(m_options.histogram, [&] { m_file->commit(); });
  }

 private:
  void begin() {
    files::OutputFile::cleanUp(files::folderOf(m_options.histogram));
    m_file.emplace(m_options.histogram,
                   m_options.overwrite ? files::Existing::replace : files::Existing::refuse);
    const std::string heading = "file,plane,value,count\n";
    if (!m_single) m_file->write(heading.data(), heading.size());
  }

  const StatsOptions& m_options;
  bool m_single, m_failed = false;
  std::optional<files::OutputFile> m_file;
};

int stats(const StatsOptions& options) {
  const std::vector<Input> inputs = inputsOf(options.inputs);
  Targets targets;
  for (const Input& input : inputs)
    targets.isInput(input.path);
  addInputs(targets, options.corrections);
  const bool counts = !options.histogram.empty(), single = inputs.size() == 1;
  if (counts) targets.claim(options.histogram);
  Corrections corrections(options.corrections);
  Histograms histograms(options, single);
  const auto task = [&](const Input& input, std::string& result) {
    requireUsable(input);
    const orvacam::Frame frame = readFrame(input.path);
    const std::vector<Named> planes =
        planesOf(corrections.decode(frame, {true, true, true, true, true, counts}));
    if (counts) result = single ? histogramOf(planes) : countsOf(input.path, planes);
    if (options.json)
      printJson(input.path, planes);
    else
      print(input.path, planes);
    return static_cast<int>(Good);
  };
  Outcome outcome;
  outcome.add(
      forEach(inputs, task, [&](const Input&, const std::string& result) { histograms.add(result); }));
  outcome.add(histograms.end());
  return outcome.code();
}

void describe(Command& c, StatsOptions& o) {
  addInputs(c, o.inputs);
  addJobs(c);
  c.add("--json", o.json, "An object for each file, one a line");
  c.add("--histogram-csv", &o.histogram, "Write the histograms to a file", fileValue());
  c.add("--overwrite", o.overwrite, "Replace a file that exists");
  addCorrections(c, o.corrections);
}

int checked(const StatsOptions& o) {
  requireApart(o.corrections);
  requireNamed(o.histogram, "--histogram-csv");
  return stats(o);
}

}  // namespace

Command statsCommand() {
  return commandOf<StatsOptions>("stats", "Statistics of the image in each plane.",
                                 {"orvacam stats frame.raw --json"}, describe, checked);
}

}  // namespace tool
