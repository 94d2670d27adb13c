// orvacam report: hands over to the Python package, which draws the page.

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "Commands.h"
#include "Inputs.h"
#include "Progress.h"

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

/// Says again what comes from a pipe, a message a line, until it is closed. Gives the lines.
Names passedOn(int pipe) {
  Names lines;
  std::string text;
  char part[4096];
  for (;;) {
    const ssize_t count = read(pipe, part, sizeof part);
    if (count < 0 && errno == EINTR) continue;
    if (count > 0) text.append(part, static_cast<std::size_t>(count));
    if (count <= 0 && !text.empty() && text.back() != '\n') text += '\n';
    for (std::size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
      const std::string line = text.substr(0, end), own = "orvacam: ";
      lines.push_back(line.rfind(own, 0) == 0 ? line.substr(own.size()) : line);
      complain("", lines.back());
    }
    if (count <= 0) return lines;
  }
}

/// Runs the interpreter beside this process, which logs what it says and what became of the frames. Throws
/// Failure.
int runLogged(const std::string& python, const Names& words, const std::vector<Input>& frames) {
  Progress progress(frames.size());
  int ends[2];
  if (pipe(ends) != 0) throw Failure(std::string("cannot be handed over: ") + std::strerror(errno));
  const pid_t process = fork();
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    _exit(attempt("report", [&] { become(python, words); }));
  }
  close(ends[1]);
  if (process < 0) {
    close(ends[0]);
    throw Failure(std::string("cannot be handed over: ") + std::strerror(errno));
  }
  const Names lines = passedOn(ends[0]);
  close(ends[0]);
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) throw Failure(python + " was ended: " + strsignal(WTERMSIG(status)));
  for (const Input& frame : frames)
    progress.step(frame.path, std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
                    return line.rfind(frame.path + ": ", 0) == 0;
                  }));
  return WEXITSTATUS(status);
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
  requireNamed(options.output, "--output");
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
  return settings().log.empty() ? become(python, words) : runLogged(python, words, frames);
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
