#ifndef ORVACAM_FILES_FITS_WRITER_H
#define ORVACAM_FILES_FITS_WRITER_H

#include <cstdint>
#include <cstdlib>
#include <functional>
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

/// A FITS file that comes into being while it is written: pixels stay the caller's until then, and are
/// converted a piece at a time.
class FitsStream {
 public:
  /// Throws std::runtime_error when CFITSIO cannot make it, std::bad_alloc.
  FitsStream(const std::vector<FitsImage>& images, const FitsLayout& layout);
  std::size_t size() const;
  /// Gives all bytes to a sink, one piece after the other.
  void writeTo(const std::function<void(const void* bytes, std::size_t length)>& sink) const;

 private:
  struct Free {
    void operator()(unsigned char* bytes) const { std::free(bytes); }
  };
  /// Bytes that are ready, and pixels to be converted behind them.
  struct Part {
    std::size_t at, length;
    Raster raster;
  };
  void addSums(const std::vector<FitsImage>& images);

  std::unique_ptr<unsigned char, Free> m_bytes;
  std::vector<Part> m_parts;
};

/// A FITS file in memory.
class FitsFile {
 public:
  /// Throws what FitsStream does.
  FitsFile(const std::vector<FitsImage>& images, const FitsLayout& layout);
  const void* data() const { return m_bytes.data(); }
  std::size_t size() const { return m_bytes.size(); }

 private:
  std::vector<unsigned char> m_bytes;
};

/// The sum of big-endian 32-bit words, carries put back in at the end (FITS 4.0, appendix J), of a multiple
/// of 4 bytes; and two sums as one.
std::uint32_t wordSum(const unsigned char* bytes, std::size_t length);
std::uint32_t addedSums(std::uint32_t a, std::uint32_t b);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_FITS_WRITER_H
