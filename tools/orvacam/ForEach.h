#ifndef ORVACAM_TOOL_FOR_EACH_H
#define ORVACAM_TOOL_FOR_EACH_H

#include <functional>
#include <string>
#include <vector>

#include "Inputs.h"

namespace tool {

/// Works on an input, also on one that is none, and gives the exit code; what it prints and complains of is
/// shown in input order. It may give a result. It runs in a process of its own where there are several jobs:
/// what it changes is lost.
using Task = std::function<int(const Input& input, std::string& result)>;
/// Gets what a task has given, if anything, in input order, in this process.
using Collect = std::function<void(const Input& input, std::string result)>;

/// Runs a task for each input, --jobs of them beside each other; a failure is reported and does not stop the
/// others. Gives the exit code.
int forEach(const std::vector<Input>& inputs, const Task& task, const Collect& collect = nullptr);
/// The same for a task that throws where it fails.
int forEach(const std::vector<Input>& inputs, const std::function<void(const Input&)>& task);

/// Runs a task for each input in this process, one after the other, until one fails. Gives the exit code.
int untilFailure(const std::vector<Input>& inputs, const std::function<void(const Input&)>& task);

/// Throws Failure for an input that is none: a folder without frames.
void requireUsable(const Input& input);
/// "standard input" for "-".
std::string shownName(const Input& input);

}  // namespace tool

#endif  // ORVACAM_TOOL_FOR_EACH_H
