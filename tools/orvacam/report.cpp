// orvacam report: hands over to the Python package, which draws the page.

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "Commands.h"
#include "Inputs.h"

namespace tool {

namespace {

struct ReportOptions {
  InputOptions inputs;
  std::string output;
  Names measure, compare;
  bool overwrite = false;
};

// Nothing is imported from the working folder, where frames lie and maybe a numpy.py.
constexpr const char* handOver =
    "import sys\n"
    "sys.path[:] = [folder for folder in sys.path if folder]\n"
    "try:\n"
    "    from orvacam._report.__main__ import main\n"
    "except ImportError as error:\n"
    "    sys.exit('orvacam: report: %s has no package orvacam that works (%s): apt install python3-orvacam'\n"
    "             % (sys.executable, error))\n"
    "sys.exit(main())\n";

/// The interpreter that has the package: the system's, or what the user says.
std::string interpreter() {
  const char* const chosen = std::getenv("ORVACAM_PYTHON");
  return chosen != nullptr && *chosen != '\0' ? chosen : ORVACAM_PYTHON;
}

/// A file without a name that holds the paths, each ended by a NUL: a night may be more than a command line
/// holds.
std::string listOfFrames(const std::vector<Input>& inputs) {
  std::string content;
  for (const Input& input : inputs)
    content += input.path + '\0';
  const int file = memfd_create("frames", 0);
  if (file < 0) throw Failure(std::string("cannot be handed over: ") + std::strerror(errno));
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t count = write(file, content.data() + done, content.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) throw Failure(std::string("cannot be handed over: ") + std::strerror(errno));
    done += static_cast<std::size_t>(count);
  }
  return "/proc/self/fd/" + std::to_string(file);
}

/// Becomes the interpreter, whose exit code is the program's. Throws Failure.
int become(const std::string& python, Names words) {
  std::vector<char*> arguments;
  for (std::string& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execv(python.c_str(), arguments.data());
  throw Failure(python + " cannot be started (" + std::strerror(errno) +
                "): apt install python3-orvacam, or name an interpreter in ORVACAM_PYTHON");
}

/// Throws UsageError.
void requireOutputApart(const std::vector<Input>& inputs, const ReportOptions& options) {
  Targets targets;
  for (const Input& input : inputs)
    targets.isInput(input.path);
  for (const Names& names : {options.measure, options.compare})
    for (const std::string& path : names)
      targets.isInput(path);
  targets.claim(options.output);
}

int report(const ReportOptions& options) {
  const bool hasFrames = !options.inputs.files.empty() || !options.inputs.list.empty();
  if (!hasFrames && options.measure.empty() && options.compare.empty())
    throw UsageError("report: name a frame, --compare A,B or --measure FILE.json");
  if (!options.compare.empty() && options.compare.size() != 2)
    throw UsageError("--compare: takes two frames, A,B");
  const std::vector<Input> inputs = hasFrames ? inputsOf(options.inputs) : std::vector<Input>();
  requireOutputApart(inputs, options);
  Outcome outcome;
  std::vector<Input> frames;
  for (const Input& input : inputs)
    if (input.wrong.empty())
      frames.push_back(input);
    else
      outcome.add(attempt(input.path, [&] { throw Failure(input.wrong); }));
  if (outcome.code() != Good) return outcome.code();
  const std::string python = interpreter();
  Names words = {python, "-c", handOver, "--list", listOfFrames(frames), "--output=" + options.output};
  for (const std::string& path : options.measure)
    words.push_back("--measure=" + path);
  for (const std::string& path : options.compare)
    words.push_back("--compare=" + path);
  if (options.overwrite) words.emplace_back("--overwrite");
  flushOutput();
  return become(python, words);
}

void describe(Command& c, ReportOptions& o) {
  addInputs(c, o.inputs);
  c.add("-o,--output", &o.output, "The page to write", fileValue("FILE.html")).required();
  c.add("--measure", &o.measure, "Also draw what measure or calibrate found (--json)",
        fileValue("FILE.json").commas());
  c.add("--compare", &o.compare, "Also compare two frames: their difference, and the read noise of the pair",
        framesValue("A,B").commas());
  c.add("--overwrite", o.overwrite, "Replace a page that exists");
}

}  // namespace

Command reportCommand() {
  return commandOf<ReportOptions>(
      "report", "Frames as one page of HTML: picture, levels, gains, header. Needs the Python package.",
      {"orvacam report frame.raw -o report.html", "orvacam report night/ -o night.html",
       "orvacam report -o pair.html --compare dark1.raw,dark2.raw"},
      describe, report);
}

}  // namespace tool
