#ifndef ORVACAM_TOOL_COMMAND_LINE_H
#define ORVACAM_TOOL_COMMAND_LINE_H

namespace tool {

/// The whole program but for what a process does once.
int runProgram(int argc, char** argv);

}  // namespace tool

#endif  // ORVACAM_TOOL_COMMAND_LINE_H
