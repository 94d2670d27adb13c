#ifndef ORVACAM_FILES_DAMAGE_H
#define ORVACAM_FILES_DAMAGE_H

#include <string>
#include <vector>

namespace orvacam::files {

/// What is wrong with a standard file, as far as the file itself shows it.
struct Damage {
  enum Kind {
    CutOff,   ///< bytes that it states are not there
    Broken,   ///< what it states cannot be, or its data are not those that were written
    Changed,  ///< its header is not the one that was written; the data are
    Trailing  ///< bytes behind its end, or none where the last block should be filled up
  } kind;
  std::string text;  ///< one sentence without the file's name
};

/// Of a FITS file: headers and sizes of all units, and the sums that they state (FITS 4.0, 4.4.2.7). Reads
/// the file once, a piece at a time. Throws std::runtime_error for what has no FITS header.
std::vector<Damage> damageOfFits(const std::string& path);

/// Of a TIFF file: its directories, and where they say that the pixels lie. Pixels are not read: TIFF has no
/// sums. Throws std::runtime_error for what has no TIFF directory.
std::vector<Damage> damageOfTiff(const std::string& path);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_DAMAGE_H
