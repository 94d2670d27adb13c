#include "files/TiffFile.h"

#include <stdexcept>

namespace orvacam::files {

TiffFile openTiff(const std::string& path) {
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);
  TiffFile file(TIFFOpen(path.c_str(), "rm"));
  if (!file) throw std::runtime_error("has no TIFF directory that can be read");
  return file;
}

}  // namespace orvacam::files
