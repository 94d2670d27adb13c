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

/// Whether a file's directories, together with the data that they point to, are no larger than the file can
/// make them. libtiff reads the data of every tag: where thousands of tags and pages point to the same bytes,
/// it would take all memory and all time. True for what has no directory.
bool directoriesFitTheFile(const std::string& path);

/// Opens a file at its first page; libtiff says nothing on standard error. Throws std::runtime_error for what
/// has no directory, and for directories that do not fit their file.
TiffFile openTiff(const std::string& path);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_TIFF_FILE_H
