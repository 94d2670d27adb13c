#ifndef ORVACAM_TESTS_TOOLS_BACKGROUND_H
#define ORVACAM_TESTS_TOOLS_BACKGROUND_H

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "Program.h"

namespace program_testing {

/// Waits until something is so; false when it is not for too long.
inline bool becomes(const std::function<bool()>& so, std::chrono::seconds atMost = std::chrono::seconds(60)) {
  const auto end = std::chrono::steady_clock::now() + atMost;
  while (!so()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

/// orvacam, running beside the test; what it says goes to a file, or to a terminal.
class Background {
 public:
  enum Errors { ToFile, ToTerminal };

  Background(const fs::path& folder, Arguments arguments, Errors errors = ToFile,
             const Names& environment = {})
      : m_said(folder / "said") {
    arguments.insert(arguments.begin(), "orvacam");
    std::vector<char*> argv;
    for (std::string& word : arguments)
      argv.push_back(word.data());
    argv.push_back(nullptr);
    m_process = errors == ToTerminal ? forkpty(&m_terminal, nullptr, nullptr, nullptr) : fork();
    if (m_process != 0) return;
    // A group of its own, to which a test can send what a terminal would.
    if (errors == ToFile) setpgid(0, 0);
    if (errors == ToFile) {
      const int file = open(m_said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
      if (dup2(file, STDERR_FILENO) < 0 || dup2(file, STDOUT_FILENO) < 0) _exit(120);
    }
    setenv("TERM", "xterm", 1);
    unsetenv("NO_COLOR");
    for (const std::string& setting : environment)
      if (putenv(strdup(setting.c_str())) != 0) _exit(120);
    if (chdir(folder.c_str()) != 0) _exit(120);
    execv(ORVACAM_TOOL, argv.data());
    _exit(121);
  }
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;
  ~Background() {
    if (m_process > 0) {
      kill(m_process, SIGKILL);
      waitpid(m_process, nullptr, 0);
    }
    if (m_terminal >= 0) close(m_terminal);
  }

  pid_t process() const { return m_process; }
  void tell(int number) const { kill(m_process, number); }
  /// With its workers, as a terminal tells all that it runs.
  void tellAll(int number) const { kill(-m_process, number); }
  /// Waits for its end: its exit code, or the negative number of the signal that ended it.
  int end(rusage* usage = nullptr) {
    int status = 0;
    if (wait4(m_process, &status, 0, usage) != m_process) return 1000;
    m_process = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  std::string said() const {
    std::ifstream file(m_said, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  /// All that comes on the terminal until it ends.
  std::string onTerminal() const {
    std::string text;
    char part[4096];
    for (ssize_t count = 0; (count = read(m_terminal, part, sizeof part)) > 0;)
      text.append(part, static_cast<std::size_t>(count));
    return text;
  }

 private:
  fs::path m_said;
  pid_t m_process = 0;
  int m_terminal = -1;
};

}  // namespace program_testing

#endif  // ORVACAM_TESTS_TOOLS_BACKGROUND_H
