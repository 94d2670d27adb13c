#ifndef ORVACAM_TESTS_SUPPORT_RUN_PROGRAM_H
#define ORVACAM_TESTS_SUPPORT_RUN_PROGRAM_H

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

/// How a program ended and what it said.
struct Ran {
  int exitCode = -1;  ///< -1 when it did not end by itself
  std::string out, err;
  long peakKilobytes = 0;
};

/// What is special about a run.
struct Surroundings {
  std::vector<std::pair<std::string, std::string>> environment;
  unsigned long longestFile = 0;  ///< bytes after which writing fails, as on a full disk; 0 without limit
  std::string standardOutput;     ///< where it goes instead of to `out`
};

namespace run_program {

inline std::string contentOf(std::FILE* file) {
  std::string text;
  std::rewind(file);
  char part[4096];
  for (std::size_t count = 0; (count = std::fread(part, 1, sizeof part, file)) > 0;)
    text.append(part, count);
  std::fclose(file);
  return text;
}

/// In the child: becomes the program, or ends with 120 or 121.
[[noreturn]] inline void become(const std::string& program, const std::filesystem::path& folder, char** argv,
                                const Surroundings& surroundings, int out, int err) {
  if (!surroundings.standardOutput.empty()) out = open(surroundings.standardOutput.c_str(), O_WRONLY);
  if (dup2(out, STDOUT_FILENO) < 0 || dup2(err, STDERR_FILENO) < 0 || chdir(folder.c_str()) != 0) _exit(120);
  setenv("LC_ALL", "C.UTF-8", 1);
  for (const auto& [name, value] : surroundings.environment)
    setenv(name.c_str(), value.c_str(), 1);
  if (surroundings.longestFile > 0) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{surroundings.longestFile, surroundings.longestFile};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(120);
  }
  execvp(program.c_str(), argv);
  _exit(121);
}

}  // namespace run_program

/// Runs a program in a folder, without a shell.
inline Ran runProgram(const std::string& program, const std::filesystem::path& folder,
                      const std::vector<std::string>& arguments, const Surroundings& surroundings = {}) {
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  std::FILE* const out = std::tmpfile();
  std::FILE* const err = std::tmpfile();
  const pid_t child = fork();
  if (child == 0) run_program::become(program, folder, argv.data(), surroundings, fileno(out), fileno(err));
  Ran ran;
  int status = 0;
  rusage usage{};
  if (child > 0 && wait4(child, &status, 0, &usage) == child && WIFEXITED(status))
    ran.exitCode = WEXITSTATUS(status);
  ran.peakKilobytes = usage.ru_maxrss;
  ran.out = run_program::contentOf(out);
  ran.err = run_program::contentOf(err);
  return ran;
}

#endif  // ORVACAM_TESTS_SUPPORT_RUN_PROGRAM_H
