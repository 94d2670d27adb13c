#ifndef ORVACAM_TOOL_WATCH_H
#define ORVACAM_TOOL_WATCH_H

#include <functional>
#include <string>

#include "Inputs.h"

namespace tool {

/// A file that has come into a watched folder.
struct Arrival {
  Input input;
  bool wasThere =
      false;  ///< before the watch began, or found when events were lost: it may have been worked on
};

/// What became of one.
enum class Fate { Done, Failed, Unfinished, NoFrame };

/// Works on a file, in a process of its own. Throws what is wrong with it.
using WatchTask = std::function<Fate(const Arrival& arrival)>;

/// Works on the files of a folder, and on what comes into it, until the program is told to stop: exit code 0;
/// 1 when the folder goes away. A file is taken when it gets its name and when its writer closes it, and
/// while nobody has it open for writing, as far as the system tells. Where the task says that it is not
/// whole, it is taken again when it has been written to.
int watchFolder(const std::string& folder, bool recursive, const WatchTask& task);

}  // namespace tool

#endif  // ORVACAM_TOOL_WATCH_H
