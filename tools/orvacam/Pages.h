#ifndef ORVACAM_TOOL_PAGES_H
#define ORVACAM_TOOL_PAGES_H

#include "Command.h"

namespace tool {

/// A file that is made from what the commands say of themselves.
struct Page {
  std::string path;  ///< below the folder that shared files are installed in
  std::string text;
};

/// The manual pages, one a command and one for the program, and the completions of bash, zsh and fish.
std::vector<Page> pagesOf(const std::vector<Command>& commands);

}  // namespace tool

#endif  // ORVACAM_TOOL_PAGES_H
