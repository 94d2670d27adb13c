#include "Commands.h"

namespace tool {

std::vector<Command> allCommands() {
  return {convertCommand(), infoCommand(),    statsCommand(),    checkCommand(), stackCommand(),
          previewCommand(), roiCommand(),     repairCommand(),   gainsCommand(), calibrateCommand(),
          measureCommand(), camerasCommand(), simulateCommand(), reportCommand()};
}

}  // namespace tool
