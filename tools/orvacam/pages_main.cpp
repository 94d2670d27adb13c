// Writes the manual pages and completions into a folder: at build time, from what the commands say of
// themselves.

#include <filesystem>
#include <fstream>
#include <iostream>

#include "Commands.h"
#include "Pages.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: orvacam_pages FOLDER\n";
    return 2;
  }
  for (const tool::Page& page : tool::pagesOf(tool::allCommands())) {
    const std::filesystem::path path = std::filesystem::path(argv[1]) / page.path;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    if (!(file << page.text).flush()) {
      std::cerr << "orvacam_pages: " << path << " cannot be written\n";
      return 1;
    }
  }
  return 0;
}
