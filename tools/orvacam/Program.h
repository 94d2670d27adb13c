#ifndef ORVACAM_TOOL_PROGRAM_H
#define ORVACAM_TOOL_PROGRAM_H

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Messages.h"

namespace tool {

/// What was wrong with an input, in one sentence without its name.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A call that cannot be meant, in one sentence that begins with what it is about. Nothing is done.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum ExitCode { Good = 0, Failed = 1, WrongUsage = 2, NotWritten = 3 };

/// The exit code of several things done one after the other: the gravest of theirs.
class Outcome {
 public:
  void add(int code);
  int code() const { return m_code; }

 private:
  int m_code = Good;
};

/// Runs a task on a file, reports what it throws and gives the exit code for it.
int attemptCode(const std::string& subject, const std::function<int()>& task);
/// The same for a task without an exit code of its own.
int attempt(const std::string& subject, const std::function<void()>& task);

/// Makes sure that what was printed has arrived. Throws Failure.
void flushOutput();

/// What a process does once. From INT, TERM and HUP on it removes what is half written and ends; a full file
/// system answers instead of killing.
void prepareProcess();

/// What one frame lets go is kept for the next: fresh pages cost more than what is done with them.
void keepMemory();

/// How many processors there are for this process, and the most jobs that can be asked for.
unsigned processors();
constexpr unsigned maximalJobs = 256;

/// The name that is two edits or fewer away from a word, whatever the case; "" when there is none.
std::string nearest(const std::string& word, const std::vector<std::string>& names);

}  // namespace tool

#endif  // ORVACAM_TOOL_PROGRAM_H
