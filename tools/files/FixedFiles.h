#ifndef ORVACAM_FILES_FIXED_FILES_H
#define ORVACAM_FILES_FIXED_FILES_H

#include <string>

#include "files/Subject.h"

namespace orvacam::files {

/// What kind of file it is, by its content.
enum class FileKind {
  Unreadable,  ///< or no regular file
  Empty,
  Raw,  ///< begins with "Meta"
  Fits,
  FixedFits,  ///< one that CAlgo::ConvertFile wrote
  Tiff,
  FixedTiff,
  Other
};

/// Reads what is needed to tell; never throws for a file's content.
FileKind kindOf(const std::string& path);

/// What a fixed FITS file still holds.
struct FixedFits {
  Subject subject;                    ///< as far as its cards say
  std::vector<std::uint16_t> pixels;  ///< all that there should be; those that the file lacks are 0
  std::size_t present = 0;            ///< how many the file has
};

/// Reads one. Throws std::runtime_error for a file that holds no pixel, or is cut off further.
FixedFits readFixedFits(const std::string& path);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_FIXED_FILES_H
