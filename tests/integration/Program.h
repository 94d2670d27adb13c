#ifndef ORVACAM_TESTS_INTEGRATION_PROGRAM_H
#define ORVACAM_TESTS_INTEGRATION_PROGRAM_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

/// What a program wrote to both its outputs, and its exit code.
struct ProgramResult {
  int exitCode;
  std::string output;
};

inline ProgramResult runProgram(const std::string& command) {
  ProgramResult result{-1, {}};
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return result;
  char part[4096];
  for (std::size_t count = 0; (count = std::fread(part, 1, sizeof part, pipe)) > 0;)
    result.output.append(part, count);
  const int status = pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

#endif  // ORVACAM_TESTS_INTEGRATION_PROGRAM_H
