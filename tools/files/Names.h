#ifndef ORVACAM_FILES_NAMES_H
#define ORVACAM_FILES_NAMES_H

#include <string>
#include <vector>

namespace orvacam::files {

/// A file's name without its folder and its last extension: "a.b.raw" is "a.b", ".raw" stays; "-" is "stdin".
std::string stemOf(const std::string& path);

/// What a plane adds to the name: "_LOW", "_HIGH", "_MERGED" of frames with several planes, else nothing.
std::string suffixOf(const std::string& plane, const std::vector<std::string>& planesOfFrame);

/// "LOW", "HIGH", "MERGED", "IMAGE".
std::string upperName(const std::string& plane);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_NAMES_H
