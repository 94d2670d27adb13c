#ifndef ORVACAM_FILES_TIFF_FILE_H
#define ORVACAM_FILES_TIFF_FILE_H

#include <tiffio.h>

#include <memory>
#include <string>

namespace orvacam::files {

struct CloseTiff {
  void operator()(TIFF* file) const { TIFFClose(file); }
};
using TiffFile = std::unique_ptr<TIFF, CloseTiff>;

/// Opens a file at its first page; libtiff says nothing on standard error. Throws std::runtime_error for what
/// has no directory.
TiffFile openTiff(const std::string& path);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_TIFF_FILE_H
