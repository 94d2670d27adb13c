#ifndef ORVACAM_FILES_NPY_WRITER_H
#define ORVACAM_FILES_NPY_WRITER_H

#include <string>

#include "files/Raster.h"

namespace orvacam::files {

/// What stands ahead of the pixels in a file of numpy's format, version 1.0; the pixels follow as they are.
std::string npyHeader(const Raster& raster);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_NPY_WRITER_H
