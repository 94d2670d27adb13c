#ifndef ORVACAM_TESTS_SUPPORT_READ_IMAGES_H
#define ORVACAM_TESTS_SUPPORT_READ_IMAGES_H

// Files read back by the libraries that everybody reads them with.

#include <fitsio.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <string>
#include <vector>

namespace read_images {

/// The pixels of a FITS file's unit, by its place from 1; none when CFITSIO refuses.
template <class Pixel = unsigned short>
std::vector<Pixel> fitsPixels(const std::string& path, int unit = 1) {
  int status = 0, axes = 0;
  fitsfile* file = nullptr;
  long size[2] = {};
  std::vector<Pixel> pixels;
  fits_open_diskfile(&file, path.c_str(), READONLY, &status);
  fits_movabs_hdu(file, unit, nullptr, &status);
  fits_get_img_dim(file, &axes, &status);
  fits_get_img_size(file, 2, size, &status);
  pixels.resize(status == 0 ? static_cast<std::size_t>(size[0] * size[1]) : 0);
  const int type = sizeof(Pixel) == 2 ? TUSHORT : sizeof(Pixel) == 4 ? TFLOAT : TDOUBLE;
  fits_read_img(file, type, 1, static_cast<LONGLONG>(pixels.size()), nullptr, pixels.data(), nullptr,
                &status);
  fits_close_file(file, &status);
  EXPECT_EQ(status, 0) << path;
  return pixels;
}

/// A keyword's value as its card has it: quotes included.
inline std::string fitsValue(const std::string& path, const char* keyword, int unit = 1) {
  int status = 0;
  fitsfile* file = nullptr;
  char value[FLEN_VALUE] = {};
  fits_open_diskfile(&file, path.c_str(), READONLY, &status);
  fits_movabs_hdu(file, unit, nullptr, &status);
  fits_read_keyword(file, keyword, value, nullptr, &status);
  int closed = 0;
  fits_close_file(file, &closed);
  fits_clear_errmsg();
  return status == 0 ? value : "";
}

/// The pixels of a TIFF file's directory.
template <class Pixel = unsigned short>
std::vector<Pixel> tiffPixels(const std::string& path, unsigned int directory = 0) {
  std::vector<Pixel> pixels;
  TIFF* const file = TIFFOpen(path.c_str(), "r");
  EXPECT_NE(file, nullptr) << path;
  if (file == nullptr) return pixels;
  std::uint32_t width = 0, height = 0;
  EXPECT_EQ(TIFFSetDirectory(file, static_cast<std::uint16_t>(directory)), 1);
  TIFFGetField(file, TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(file, TIFFTAG_IMAGELENGTH, &height);
  pixels.resize(std::size_t{width} * height);
  for (std::uint32_t y = 0; y < height; ++y)
    EXPECT_EQ(TIFFReadScanline(file, pixels.data() + std::size_t{y} * width, y, 0), 1);
  TIFFClose(file);
  return pixels;
}

inline std::string tiffText(const std::string& path, unsigned int tag) {
  TIFF* const file = TIFFOpen(path.c_str(), "r");
  const char* text = nullptr;
  std::string copy;
  if (file != nullptr && TIFFGetField(file, tag, &text) == 1) copy = text;
  if (file != nullptr) TIFFClose(file);
  return copy;
}

}  // namespace read_images

#endif  // ORVACAM_TESTS_SUPPORT_READ_IMAGES_H
