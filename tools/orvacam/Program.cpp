#include "Program.h"

#include <fcntl.h>
#include <malloc.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <new>
#include <orvacam.hpp>

#include "Workers.h"
#include "files/OutputFile.h"

namespace tool {

namespace {

extern "C" void stop(int number) {
  Workers::stopAll();
  orvacam::files::OutputFile::removeUnfinished();
  // The shell's prompt is not to stand behind a line of progress.
  if (StatusLine::isShown() && write(STDERR_FILENO, "\n", 1) != 1) _exit(128 + number);
  _exit(128 + number);
}

std::size_t edits(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j)
    row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                        std::tolower(static_cast<unsigned char>(b[j - 1]));
      const std::size_t best = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
      diagonal = row[j];
      row[j] = best;
    }
  }
  return row[b.size()];
}

/// Standard descriptors that the caller has closed: else the next file that is opened becomes standard
/// output.
void holdStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF) continue;
    // Printing fails and says so; messages have nowhere to go.
    const int opened = open("/dev/null", descriptor == STDERR_FILENO ? O_WRONLY : O_RDONLY);
    if (opened != descriptor) _exit(Failed);
  }
}

}  // namespace

void Outcome::add(int code) {
  constexpr int fromGrave[] = {WrongUsage, NotWritten, Failed, Good};
  const auto rank = [&](int c) { return std::find(std::begin(fromGrave), std::end(fromGrave), c); };
  if (rank(code) < rank(m_code)) m_code = code;
}

int attempt(const std::string& subject, const std::function<void()>& task) {
  return attemptCode(subject, [&] {
    task();
    return static_cast<int>(Good);
  });
}

int attemptCode(const std::string& subject, const std::function<int()>& task) {
  try {
    return task();
  } catch (const UsageError& error) {
    complainOfUsage(error.what());
    return WrongUsage;
  } catch (const orvacam::files::WriteError& error) {
    complain(error.path(), error.what());
    return NotWritten;
  } catch (const orvacam::Error& error) {
    complain(error.path().empty() ? subject : error.path(), error.what());
  } catch (const std::bad_alloc&) {
    complain(subject, "there is not enough memory for it");
  } catch (const std::exception& error) {
    complain(subject, error.what());
  }
  return Failed;
}

void flushOutput() {
  if (!std::cout.flush()) throw orvacam::files::WriteError("standard output", "cannot be written");
}

void prepareProcess() {
  holdStandardDescriptors();
  struct sigaction action {};
  action.sa_handler = stop;
  sigfillset(&action.sa_mask);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    // What the caller has us ignore (nohup) stays ignored.
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
      sigaction(number, &action, nullptr);
  }
  signal(SIGXFSZ, SIG_IGN);
}

void keepMemory() {
  constexpr int most = 1 << 30;
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, most);
}

unsigned processors() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;
  return std::min(std::max(1U, static_cast<unsigned>(CPU_COUNT(&set))), maximalJobs);
}

std::string nearest(const std::string& word, const std::vector<std::string>& names) {
  std::size_t best = 3;
  std::string found;
  for (const std::string& name : names) {
    const std::size_t distance = edits(word, name);
    if (distance < best && distance < name.size()) {
      best = distance;
      found = name;
    }
  }
  return found;
}

}  // namespace tool
