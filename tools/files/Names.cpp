#include "files/Names.h"

namespace orvacam::files {

std::string stemOf(const std::string& path) {
  if (path == "-") return "stdin";
  const std::string name = path.substr(path.find_last_of('/') + 1);
  const std::size_t dot = name.find_last_of('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

std::string upperName(const std::string& plane) {
  std::string upper = plane;
  for (char& c : upper)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return upper;
}

std::string suffixOf(const std::string& plane, const std::vector<std::string>& planesOfFrame) {
  return planesOfFrame.size() > 1 ? "_" + upperName(plane) : "";
}

}  // namespace orvacam::files
