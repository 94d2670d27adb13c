#ifndef ORVACAM_FILES_FITS_BLOCKS_H
#define ORVACAM_FILES_FITS_BLOCKS_H

#include <cstddef>

namespace orvacam::files {

constexpr std::size_t cardSize = 80;
constexpr std::size_t blockSize = 2880;

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_FITS_BLOCKS_H
