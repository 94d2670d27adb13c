#ifndef ORVACAM_FILES_PNG_WRITER_H
#define ORVACAM_FILES_PNG_WRITER_H

#include <string>
#include <utility>
#include <vector>

#include "files/Raster.h"

namespace orvacam::files {

/// A grey PNG of 8 or 16 bits with its texts (keyword, text in Latin 1). Throws std::runtime_error,
/// std::bad_alloc.
std::vector<unsigned char> pngFile(const Raster& raster,
                                   const std::vector<std::pair<std::string, std::string>>& texts);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_PNG_WRITER_H
