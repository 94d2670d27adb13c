#ifndef ORVACAM_FILES_FITS_WRITER_H
#define ORVACAM_FILES_FITS_WRITER_H

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "files/KeywordTable.h"
#include "files/Raster.h"

namespace orvacam::files {

/// An image of a FITS file and what is said of it.
struct FitsImage {
  std::vector<Card> cards;
  Raster raster;
};

/// How the images of a file are laid out.
struct FitsLayout {
  bool extensions =
      false;  ///< an empty primary array, then each image as an extension; else one image, the primary
  bool rice = false;          ///< tiles, compressed without loss; 16-bit pixels only
  std::vector<Card> primary;  ///< what an empty primary array says
};

/// Where a header-data unit lies in a file.
struct FitsUnitPlace {
  std::size_t header, data, end;
};

/// A FITS file in memory.
class FitsFile {
 public:
  /// Throws std::runtime_error when CFITSIO cannot make it, std::bad_alloc.
  FitsFile(const std::vector<FitsImage>& images, const FitsLayout& layout);
  const void* data() const { return m_bytes.get(); }
  std::size_t size() const { return m_size; }

 private:
  struct Free {
    void operator()(unsigned char* bytes) const { std::free(bytes); }
  };
  using Bytes = std::unique_ptr<unsigned char, Free>;
  void assemble(const std::vector<FitsImage>& images, const std::vector<FitsUnitPlace>& headers);

  Bytes m_bytes;
  std::size_t m_size = 0;
};

/// The sum of big-endian 32-bit words, carries put back in at the end (FITS 4.0, appendix J), of a multiple
/// of 4 bytes; and two sums as one.
std::uint32_t wordSum(const unsigned char* bytes, std::size_t length);
std::uint32_t addedSums(std::uint32_t a, std::uint32_t b);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_FITS_WRITER_H
