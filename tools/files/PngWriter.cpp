#include "files/PngWriter.h"

#include <png.h>

#include <cstdio>
#include <new>
#include <stdexcept>

namespace orvacam::files {

namespace {

/// libpng's callbacks may not throw through its C code: failures are noted, and told at the end.
struct Sink {
  std::vector<unsigned char> bytes;
  char failure[128] = "";
  bool outOfMemory = false;
};

void append(png_structp png, png_bytep data, std::size_t length) {
  auto* const sink = static_cast<Sink*>(png_get_io_ptr(png));
  try {
    sink->bytes.insert(sink->bytes.end(), data, data + length);
  } catch (const std::bad_alloc&) {
    sink->outOfMemory = true;
    png_error(png, "out of memory");
  }
}

void flush(png_structp) {}

void failed(png_structp png, png_const_charp what) {
  std::snprintf(static_cast<Sink*>(png_get_error_ptr(png))->failure, sizeof Sink::failure, "%s", what);
  png_longjmp(png, 1);
}

void warned(png_structp, png_const_charp) {}

/// Nothing here has a destructor: libpng leaves by longjmp.
bool writeAll(png_structp png, png_infop info, const Raster& raster, png_textp texts, int textCount) {
  if (setjmp(png_jmpbuf(png))) return false;
  const int depth = raster.sample == Raster::U8 ? 8 : 16;
  // No limit but the format's own: 2^31 - 1.
  png_set_user_limits(png, 0x7FFFFFFF, 0x7FFFFFFF);
  png_set_IHDR(png, info, raster.size.width, raster.size.height, depth, PNG_COLOR_TYPE_GRAY,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, 3);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
  if (textCount > 0) png_set_text(png, info, texts, textCount);
  png_write_info(png, info);
  if (depth == 16) png_set_swap(png);
  const auto* row = static_cast<const unsigned char*>(raster.data);
  for (std::uint32_t y = 0; y < raster.size.height; ++y, row += raster.size.width * raster.sampleBytes())
    png_write_row(png, row);
  png_write_end(png, info);
  return true;
}

}  // namespace

std::vector<unsigned char> pngFile(const Raster& raster,
                                   const std::vector<std::pair<std::string, std::string>>& texts) {
  Sink sink;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, failed, warned);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (info == nullptr) {
    png_destroy_write_struct(&png, nullptr);
    throw std::bad_alloc();
  }
  png_set_write_fn(png, &sink, append, flush);
  std::vector<png_text> records(texts.size());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    records[i].compression = PNG_TEXT_COMPRESSION_NONE;
    records[i].key = const_cast<char*>(texts[i].first.c_str());
    records[i].text = const_cast<char*>(texts[i].second.c_str());
    records[i].text_length = texts[i].second.size();
  }
  const bool written = writeAll(png, info, raster, records.data(), static_cast<int>(records.size()));
  png_destroy_write_struct(&png, &info);
  if (sink.outOfMemory) throw std::bad_alloc();
  if (!written) throw std::runtime_error(std::string("cannot be made a PNG file: ") + sink.failure);
  return std::move(sink.bytes);
}

}  // namespace orvacam::files
