#ifndef ORVACAM_TOOL_HELP_H
#define ORVACAM_TOOL_HELP_H

#include "Command.h"

namespace tool {

/// The commands, an example each.
std::string overviewOf(const std::vector<Command>& commands);
/// What --help shows: of the program, of a command.
std::string helpOf(const std::vector<Command>& commands);
std::string helpOf(const Command& command);

/// What --version --json shows: what this build can do.
std::string versionJson(const std::vector<Command>& commands);
/// The options of the program itself.
std::vector<Option> programOptions();

/// How an option's value is written: "FILE...", "NUMBER", "" for none.
std::string valueOf(const Option& option);
/// What there is to say of an option: its description, its choices or limits, its standard.
std::string sentencesOf(const Option& option);

}  // namespace tool

#endif  // ORVACAM_TOOL_HELP_H
