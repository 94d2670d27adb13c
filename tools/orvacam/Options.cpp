// The command line: the one place that knows how options are spelt, and what goes together.

#include "Options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <iostream>
#include <memory>
#include <orvacam.hpp>

#include "PlaneFile.h"
#include "Program.h"
#include "files/Stretch.h"
#include "files/Text.h"

namespace tool {

namespace sim = orvacam::simulator;

namespace {

using Names = std::vector<std::string>;

std::string listOf(const Names& names) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string near(const std::string& word, const Names& names) {
  const std::string found = nearest(word, names);
  return found.empty() ? "" : "; did you mean '" + found + "'?";
}

/// One of these names, as they are.
CLI::Validator oneOf(const Names& names) {
  CLI::Validator validator;
  validator.operation([names](std::string& value) {
    if (std::find(names.begin(), names.end(), value) != names.end()) return std::string();
    const std::string found = near(value, names);
    return "there is no '" + value + "'" + (found.empty() ? "; there are " + listOf(names) : found);
  });
  validator.description("{" + listOf(names) + "}");
  return validator;
}

/// Two whole numbers with a comma between them.
bool readPair(const std::string& text, unsigned& first, unsigned& second) {
  char rest = 0;
  return text.find_first_not_of("0123456789,") == std::string::npos && text.size() <= 11 &&
         std::sscanf(text.c_str(), "%u,%u%c", &first, &second, &rest) == 2 && first <= 65535 &&
         second <= 65535;
}

// ---- Options that several commands have

void addInputs(CLI::App* command, InputOptions& o,
               const std::string& what = "Raw frames, folders of them, or - for standard input") {
  command->add_option("FILE", o.files, what);
  command->add_flag("-r,--recursive", o.recursive, "Take folders with what lies below them");
  command->add_option("--files-from", o.list, "A file that names inputs, one a line; - for standard input")
      ->type_name("LIST");
  command->add_flag("-0", o.nulEnded, "Names in the list end with a NUL");
}

void addCorrections(CLI::App* command, CorrectionOptions& o) {
  command->add_option("--dsnu", o.dsnu, "Reference file of dark signal non-uniformity, for the merge")
      ->type_name("FILE");
  command->add_option("--prnu", o.prnu, "Reference file of photo response non-uniformity, for the merge")
      ->type_name("FILE");
  command->add_option("--bias", o.bias, "Bias file: its planes are subtracted before merging")
      ->type_name("FILE");
  command
      ->add_option_function<std::string>(
          "--thresholds",
          [&o](const std::string& text) {
            if (!readPair(text, o.high, o.difference))
              throw CLI::ValidationError("--thresholds",
                                         "'" + text + "' is not HIGH,DIFFERENCE, each 0 to 65535");
            o.hasThresholds = true;
          },
          "The merge's high and difference thresholds, in counts")
      ->type_name("HIGH,DIFFERENCE");
  command->add_option("--calibration", o.calibration, "The camera's stored calibration block: gain ratios")
      ->type_name("FILE");
}

void addOutputs(CLI::App* command, OutputOptions& o, bool canSkip) {
  command->add_flag("--overwrite", o.overwrite, "Replace files that exist");
  if (canSkip) command->add_flag("--skip-existing", o.skipExisting, "Make only what is missing");
  command->add_flag("--reproducible", o.reproducible, "The same bytes on any day: no time of writing");
}

template <class Options>
CLI::App* add(CLI::App& app, const char* name, const char* what, Options& options, int (*run)(const Options&),
              int& exitCode) {
  CLI::App* const command = app.add_subcommand(name, what);
  command->add_flag_callback(
      "-q,--quiet", [] { setQuiet(true); }, "No notes, only errors");
  command->callback([&options, run, &exitCode] { exitCode = run(options); });
  return command;
}

void requireApart(bool one, const std::string& a, bool other, const std::string& b) {
  if (one && other) throw UsageError(a + " and " + b + " do not go together");
}

void requireApart(const CorrectionOptions& o) {
  requireApart(!o.bias.empty(), "--bias", !o.dsnu.empty(), "--dsnu");
}

void requireApart(const OutputOptions& o) {
  requireApart(o.skipExisting, "--skip-existing", o.overwrite, "--overwrite");
}

// ---- The commands

int checkedConvert(const ConvertOptions& o) {
  requireApart(o.corrections);
  requireApart(o.outputs);
  const bool fits = o.format == "fits";
  if (!o.compress.empty() && !fits) throw UsageError("--compress: the format " + o.format + " has none");
  if (o.singleFile && !fits) throw UsageError("--single-file: the format " + o.format + " has none");
  if (o.native && !fits && o.format != "tiff") throw UsageError("--native: there are fits and tiff only");
  requireApart(o.native, "--native", !o.compress.empty(), "--compress");
  requireApart(o.native, "--native", o.crop != "none", "--crop");
  requireApart(o.native, "--native", !o.planes.empty(), "--planes");
  requireApart(o.native, "--native", o.singleFile, "--single-file");
  requireApart(o.native, "--native", o.outputs.reproducible, "--reproducible");
  requireApart(o.native, "--native", !o.corrections.bias.empty(), "--bias");
  requireApart(o.native, "--native", o.corrections.hasThresholds, "--thresholds");
  requireApart(o.native, "--native", !o.corrections.calibration.empty(), "--calibration");
  requireApart(o.native, "--native", o.folder == "-", "-o -");
  return convert(o);
}

void addConvert(CLI::App& app, int& exitCode) {
  static ConvertOptions o;
  o = {};
  CLI::App* const c = add(app, "convert", "Convert raw frames to FITS, TIFF, PNG or numpy files.", o,
                          checkedConvert, exitCode);
  addInputs(c, o.inputs);
  c->add_option("-o,--output", o.folder,
                "The folder to write to, made when it is missing; - for standard output")
      ->required()
      ->type_name("FOLDER");
  c->add_option("-f,--format", o.format, "Format of the files")
      ->check(oneOf({"fits", "tiff", "ome-tiff", "png", "png16", "npy"}))
      ->capture_default_str();
  c->add_option("--planes", o.planes, "Write these planes only")
      ->delimiter(',')
      ->check(oneOf({"low", "high", "merged", "image"}));
  c->add_flag("--single-file", o.singleFile, "All planes of a frame in one FITS file, as extensions");
  c->add_option("--compress", o.compress, "Compress FITS files without loss")->check(oneOf({"rice"}));
  c->add_option("--crop", o.crop, "image: leave reference rows and pixels out")
      ->check(oneOf({"none", "image"}))
      ->capture_default_str();
  c->add_flag("--native", o.native,
              "The library's own fixed FITS and TIFF files, for programs that know them");
  addCorrections(c, o.corrections);
  addOutputs(c, o.outputs, true);
}

void addInfo(CLI::App& app, int& exitCode) {
  static InfoOptions o;
  o = {};
  CLI::App* const c =
      add(app, "info", "Show what headers say: of raw frames, and of FITS and TIFF files made of them.", o,
          info, exitCode);
  addInputs(c, o.inputs, "Raw frames, FITS or TIFF files, folders of frames, or -");
  CLI::Option* const json = c->add_flag("--json", o.json, "An object for each file, one a line");
  c->add_flag("--csv", o.csv, "A line for each file")->excludes(json);
  c->add_option("--keys", o.keys, "Only these keys, any case; * and ? stand for others")
      ->delimiter(',')
      ->type_name("NAME,...");
}

int checkedStats(const StatsOptions& o) {
  requireApart(o.corrections);
  return stats(o);
}

void addStats(CLI::App& app, int& exitCode) {
  static StatsOptions o;
  o = {};
  CLI::App* const c = add(app, "stats", "Statistics of the image in each plane.", o, checkedStats, exitCode);
  addInputs(c, o.inputs);
  c->add_flag("--json", o.json, "An object for each file, one a line");
  c->add_option("--histogram-csv", o.histogram, "Write the histograms to a file")->type_name("FILE");
  c->add_flag("--overwrite", o.overwrite, "Replace a file that exists");
  addCorrections(c, o.corrections);
}

void addCheck(CLI::App& app, int& exitCode) {
  static CheckOptions o;
  o = {};
  CLI::App* const c =
      add(app, "check", "Say what is wrong with frames, and which FITS and TIFF files others cannot read.", o,
          check, exitCode);
  addInputs(c, o.inputs, "Raw frames, FITS or TIFF files, folders of frames, or -");
  c->add_flag("--json", o.json, "An object for each file, one a line");
  c->add_flag("--strict", o.strict, "Exit with 1 for notes, too");
}

int checkedStack(const StackOptions& o) {
  requireApart(o.corrections);
  if (o.type == "uint16" && o.method == "sum") throw UsageError("--dtype: uint16 holds no sum");
  return stack(o);
}

void addStack(CLI::App& app, int& exitCode) {
  static StackOptions o;
  o = {};
  CLI::App* const c =
      add(app, "stack",
          "Mean or sum of frames that are alike: the merged planes of HDR frames, else the only one.", o,
          checkedStack, exitCode);
  addInputs(c, o.inputs);
  c->add_option("-o,--output", o.output,
                "The file to write: .fits, .fit, .fts, .tif, .tiff or .npy; - for FITS on standard output")
      ->required()
      ->type_name("FILE");
  c->add_option("-f,--format", o.format, "Format, whatever the extension")
      ->check(oneOf({"fits", "tiff", "npy"}));
  c->add_option("--method", o.method, "mean or sum")->check(oneOf({"mean", "sum"}))->capture_default_str();
  c->add_option("--dtype", o.type, "Type of the pixels; uint16 is the mean without its fraction")
      ->check(oneOf({"float32", "float64", "uint16"}))
      ->capture_default_str();
  c->add_option("--plane", o.plane, "Stack this plane")->check(oneOf({"low", "high", "merged", "image"}));
  c->add_flag("--force", o.force, "Stack frames whose settings differ; sensor, mode and size never may");
  addCorrections(c, o.corrections);
  addOutputs(c, o.outputs, false);
}

int checkedRoi(const RoiOptions& o) {
  requireApart(o.corrections);
  if (o.x % 2 + o.width % 2 != 0)
    throw UsageError("--x, --width: pixels are packed in pairs, so that both are even");
  return roi(o);
}

void addRoi(CLI::App& app, int& exitCode) {
  static RoiOptions o;
  o = {};
  CLI::App* const c =
      add(app, "roi", "Cut a region out of a packed frame, without unpacking it.", o, checkedRoi, exitCode);
  c->add_option("FILE", o.file, "Raw frame, or - for standard input")->required();
  c->add_option("-o,--output", o.output,
                "The file to write: a raw frame; .fits, .fit, .fts, .tif, .tiff and .npy are converted")
      ->required()
      ->type_name("FILE");
  c->add_option("--x", o.x, "First column of the image, even")->required();
  c->add_option("--y", o.y, "First row of the image")->required();
  c->add_option("--width", o.width, "Columns, even")->required()->check(CLI::Range(2, 65534));
  c->add_option("--height", o.height, "Rows")->required()->check(CLI::Range(1, 65535));
  c->add_option("-f,--format", o.format, "Convert, whatever the extension")
      ->check(oneOf({"fits", "tiff", "npy"}));
  c->add_option("--plane", o.plane, "The plane that is converted")
      ->check(oneOf({"low", "high", "merged", "image"}));
  addCorrections(c, o.corrections);
  addOutputs(c, o.outputs, false);
}

int checkedPreview(const PreviewOptions& o) {
  requireApart(o.corrections);
  requireApart(o.outputs);
  return preview(o);
}

void addPreview(CLI::App& app, int& exitCode) {
  static PreviewOptions o;
  o = {};
  CLI::App* const c =
      add(app, "preview", "Pictures to look at: 8-bit PNG files, stretched.", o, checkedPreview, exitCode);
  addInputs(c, o.inputs);
  c->add_option("-o,--output", o.folder,
                "The folder to write to, made when it is missing; - for standard output")
      ->required()
      ->type_name("FOLDER");
  c->add_option("--max", o.longest, "Pixels of the longer side at most")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  c->add_option("--plane", o.plane, "Show this plane")->check(oneOf({"low", "high", "merged", "image"}));
  c->add_option("--stretch", o.stretch, "How values become brightness")
      ->check(oneOf({"auto", "asinh", "linear"}))
      ->capture_default_str();
  addCorrections(c, o.corrections);
  c->add_flag("--overwrite", o.outputs.overwrite, "Replace files that exist");
  c->add_flag("--skip-existing", o.outputs.skipExisting, "Make only what is missing");
}

void addRepair(CLI::App& app, int& exitCode) {
  static RepairOptions o;
  o = {};
  CLI::App* const c =
      add(app, "repair", "Make standard FITS files of the library's own fixed ones.", o, repair, exitCode);
  c->add_option("FILE", o.inputs.files, "Fixed FITS files")->required();
  c->add_option("-o,--output", o.folder, "The folder to write to, made when it is missing")
      ->required()
      ->type_name("FOLDER");
  c->add_option("--raw", o.raw, "The frame that the file was made of: it has the pixels that the file lacks")
      ->type_name("FRAME");
  CLI::Option* const raw = c->get_option("--raw");
  c->add_option("--dsnu", o.dsnu, "DSNU file that a merged file was made with")
      ->type_name("FILE")
      ->needs(raw);
  c->add_option("--prnu", o.prnu, "PRNU file that a merged file was made with")
      ->type_name("FILE")
      ->needs(raw);
  addOutputs(c, o.outputs, false);
}

Names gainSensors() {
  Names names = orvacam::sensors();
  for (const char* const other : {"LUMORA420", "LUMORA533", "LUMORA571"})
    names.emplace_back(other);
  return names;
}

void addGains(CLI::App& app, int& exitCode) {
  static GainsOptions o;
  o = {};
  CLI::App* const c = add(app, "gains", "Show a sensor's gain tables.", o, gains, exitCode);
  c->add_option("MODEL", o.sensor, "The sensor: " + listOf(gainSensors()))
      ->required()
      ->transform([](const std::string& word) {
        std::string name = word;
        for (char& letter : name)
          letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
        return name;
      })
      ->check(oneOf(gainSensors()));
  c->add_option("--nv", o.calibration, "A camera's stored calibration block")->type_name("FILE");
  c->add_flag("--bsi", o.backSideIlluminated, "The back-side-illuminated variant");
}

void addSimulate(CLI::App& app, int& exitCode) {
  static SimulateOptions o;
  o = {};
  Names cameras;
  for (const sim::Camera& camera : sim::cameras())
    cameras.emplace_back(camera.name);
  CLI::App* const c = add(app, "simulate", "Make a raw frame of a night sky.", o, simulate, exitCode);
  sim::HeaderFields& f = o.geometry;
  c->add_option("MODEL", o.camera, "The camera: " + listOf(cameras))->required();
  c->add_option("-o,--output", o.output, "The file to write")->required()->type_name("FILE");
  c->add_option("--mode", o.mode, "Read-out mode")
      ->check(oneOf({"single", "hdr", "16bit", "cms"}))
      ->capture_default_str();
  c->add_option("--header-version", o.version, "Version of the frame's header")
      ->check(CLI::Range(1, 4))
      ->capture_default_str();
  c->add_option("--width", o.width, "Image width")->check(CLI::Range(1, 16384))->capture_default_str();
  c->add_option("--height", o.height, "Image height")->check(CLI::Range(1, 16384))->capture_default_str();
  c->add_option("--pre-pixels", f.preRefPixels, "Reference pixels ahead of each row")
      ->check(CLI::Range(0, 255));
  c->add_option("--post-pixels", f.postRefPixels, "Reference pixels behind each row")
      ->check(CLI::Range(0, 255));
  c->add_option("--pre-rows", f.preRefRows, "Reference rows ahead of the image")->check(CLI::Range(0, 4095));
  c->add_option("--post-rows", f.postRefRows, "Reference rows behind the image")->check(CLI::Range(0, 4095));
  c->add_option("--bin-x", f.horizontalBinning, "Horizontal binning")->check(CLI::Range(1, 255));
  c->add_option("--bin-y", f.verticalBinning, "Vertical binning")->check(CLI::Range(1, 255));
  c->add_option("--low-gain", f.lowGain, "Low gain index")->check(CLI::Range(0, 255));
  c->add_option("--high-gain", f.highGain, "High gain index")->check(CLI::Range(0, 255));
  c->add_option("--exposure", f.exposure, "Exposure in 10 us periods");
  c->add_option("--frame-number", f.frameNumber, "Number of the frame")->check(CLI::Range(0, 65535));
  c->add_option("--quadrants", o.quadrants, "Amplifiers in use (CCD): 0x20 UL, 0x10 UR, 0x08 LL, 0x04 LR")
      ->check(CLI::Range(0, 0x3C));
  c->add_option("--seed", o.sky.seed, "Another sky")->capture_default_str();
  c->add_option("--stars", o.sky.stars, "Number of stars")
      ->check(CLI::Range(0, 100000))
      ->capture_default_str();
  c->add_option("--background", o.sky.background, "Electrons per pixel")
      ->check([](const std::string& text) {
        double number = 0;
        const bool good = CLI::detail::lexical_cast(text, number) && number >= 0 && number <= 1e9;
        return good ? std::string() : "'" + text + "' is no number from 0 to 1e9";
      })
      ->capture_default_str();
  c->add_option("--dsnu", o.dsnu, "Also write the DSNU file that undoes the fixed pattern")
      ->type_name("FILE");
  c->add_option("--prnu", o.prnu, "Also write the PRNU file that undoes the fixed pattern")
      ->type_name("FILE");
  c->add_flag("--overwrite", o.overwrite, "Replace files that exist");
}

// ---- What went wrong on the command line

Names commandsOf(const CLI::App& app) {
  Names names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(command->get_name());
  return names;
}

Names optionsOf(const CLI::App& command) {
  Names names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames())
      names.push_back("--" + name);
    for (const std::string& name : option->get_snames())
      names.push_back("-" + name);
  }
  return names;
}

/// One sentence for what the parser refused.
std::string complaintOf(const CLI::App& app, const CLI::ParseError& error) {
  const auto chosen = app.get_subcommands();
  const CLI::App& command = chosen.empty() ? app : *chosen.front();
  std::string text = error.what();
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    const std::vector<std::string> extras = app.remaining(true);
    const std::string word = extras.empty() ? "" : extras.front().substr(0, extras.front().find('='));
    if (chosen.empty() && word.rfind('-', 0) != 0)
      return "there is no command '" + word + "'" + near(word, commandsOf(app));
    if (word.rfind('-', 0) != 0) return command.get_name() + ": '" + word + "' is one argument too many";
    return (chosen.empty() ? "" : command.get_name() + ": ") + "there is no option '" + word + "'" +
           near(word, optionsOf(command));
  }
  return (chosen.empty() ? "" : command.get_name() + ": ") + text;
}

void showCommands(const CLI::App& app) {
  std::cout << "orvacam " << orvacam::version() << ": raw frames of scientific cameras\n\n";
  constexpr const char* examples[][2] = {
      {"convert", "orvacam convert night/ -o fits"},
      {"info", "orvacam info frame.raw --keys 'Exposure*,time_utc'"},
      {"stats", "orvacam stats frame.raw --json"},
      {"check", "orvacam check night/*.raw"},
      {"stack", "orvacam stack night/ -o mean.fits"},
      {"preview", "orvacam preview night/ -o pictures"},
      {"roi", "orvacam roi frame.raw -o star.fits --x 96 --y 32 --width 64 --height 48"},
      {"repair", "orvacam repair frame.fit -o repaired --raw frame.raw"},
      {"gains", "orvacam gains GSENSE400"},
      {"simulate", "orvacam simulate GSENSE400 --mode hdr -o frame.raw"}};
  for (const auto& [name, example] : examples) {
    const CLI::App* const command = app.get_subcommand(name);
    std::cout << "  " << command->get_description() << "\n    " << example << "\n";
  }
  std::cout << "\norvacam COMMAND --help shows a command's options.\n";
}

int parsed(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
    return Good;
  } catch (const CLI::Success& request) {
    return app.exit(request, std::cout, std::cerr);
  } catch (const CLI::ParseError& error) {
    complain("", complaintOf(app, error) + " (orvacam --help)");
    return WrongUsage;
  } catch (const UsageError& error) {
    complain("", error.what());
    return WrongUsage;
  }
}

}  // namespace

int runProgram(int argc, char** argv) {
  CLI::App app{"Raw frames of scientific cameras: look at them, convert them, stack them, make them.",
               "orvacam"};
  app.set_version_flag("--version", "orvacam " + orvacam::version());
  app.require_subcommand(0, 1);
  int exitCode = Good;
  addConvert(app, exitCode);
  addInfo(app, exitCode);
  addStats(app, exitCode);
  addCheck(app, exitCode);
  addStack(app, exitCode);
  addPreview(app, exitCode);
  addRoi(app, exitCode);
  addRepair(app, exitCode);
  addGains(app, exitCode);
  addSimulate(app, exitCode);
  setQuiet(false);
  Outcome outcome;
  outcome.add(attempt("", [&] {
    if (argc < 2) {
      showCommands(app);
    } else {
      outcome.add(parsed(app, argc, argv));
      if (outcome.code() != WrongUsage) outcome.add(exitCode);
    }
    flushOutput();
  }));
  return outcome.code();
}

}  // namespace tool
