#ifndef ORVACAM_FILES_TIFF_WRITER_H
#define ORVACAM_FILES_TIFF_WRITER_H

#include <optional>
#include <string>
#include <vector>

#include "files/Raster.h"
#include "files/Text.h"

namespace orvacam::files {

/// What a TIFF file says beside its pixels.
struct TiffFacts {
  std::string model;
  std::string description;  ///< ImageDescription, ASCII
  std::optional<Instant> time;
  double pixelWidth = 0, pixelHeight = 0;  ///< µm; 0 when it is not known
};

/// One grey picture of 16-bit or floating-point pixels. BigTIFF when it would pass 4 GiB. Throws
/// std::runtime_error, std::bad_alloc.
std::vector<unsigned char> tiffFile(const Raster& raster, const TiffFacts& facts);

/// A channel of an OME-TIFF file.
struct Channel {
  std::string name;
  Raster raster;
};

/// Channels of equal size and depth in one file, with OME-XML. The description of the facts is not used.
std::vector<unsigned char> omeTiffFile(const std::vector<Channel>& channels, const TiffFacts& facts,
                                       const std::string& imageName, double exposureSeconds);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_TIFF_WRITER_H
