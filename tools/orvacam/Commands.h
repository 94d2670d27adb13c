#ifndef ORVACAM_TOOL_COMMANDS_H
#define ORVACAM_TOOL_COMMANDS_H

#include "Options.h"

namespace tool {

// Each in the source of its name.
Command convertCommand();
Command infoCommand();
Command statsCommand();
Command checkCommand();
Command stackCommand();
Command previewCommand();
Command roiCommand();
Command repairCommand();
Command reportCommand();
Command gainsCommand();
Command calibrateCommand();
Command measureCommand();
Command camerasCommand();
Command simulateCommand();

/// All of them, in the order in which they are shown. Their values are fresh.
std::vector<Command> allCommands();

}  // namespace tool

#endif  // ORVACAM_TOOL_COMMANDS_H
