#include "files/FitsWriter.h"

#include <fitsio.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>

#include "files/FitsBlocks.h"

namespace orvacam::files {

/// The bytes of 256 words at a time are summed side by side, which 16 bits hold.
std::uint32_t wordSum(const unsigned char* bytes, std::size_t length) {
  std::array<std::uint64_t, 4> columns{};
  for (std::size_t at = 0; at < length;) {
    std::uint32_t even = 0, odd = 0;
    const std::size_t until = std::min(length, at + 1024);
    for (; at < until; at += 4) {
      std::uint32_t word;
      std::memcpy(&word, bytes + at, 4);
      even += word & 0x00FF00FFu;
      odd += word >> 8 & 0x00FF00FFu;
    }
    columns[0] += even & 0xFFFF, columns[2] += even >> 16;
    columns[1] += odd & 0xFFFF, columns[3] += odd >> 16;
  }
  // Shifted into their places the columns would not fit: carries go back in after each.
  std::uint64_t sum = 0;
  for (const std::uint64_t column : columns) {
    sum <<= 8;
    sum = (sum & 0xFFFFFFFFu) + (sum >> 32) + (column & 0xFFFFFFFFu) + (column >> 32);
    sum = (sum & 0xFFFFFFFFu) + (sum >> 32);
  }
  return static_cast<std::uint32_t>((sum & 0xFFFFFFFFu) + (sum >> 32));
}

std::uint32_t addedSums(std::uint32_t a, std::uint32_t b) {
  const std::uint64_t sum = std::uint64_t{a} + b;
  return static_cast<std::uint32_t>((sum & 0xFFFFFFFFu) + (sum >> 32));
}

namespace {

// What stands in the two cards until the sums are known.
constexpr const char* openDataSum = "0000000000";
constexpr const char* openCheckSum = "0000000000000000";

void require(int status) {
  if (status == 0) return;
  char text[FLEN_STATUS] = {};
  fits_get_errstatus(status, text);
  fits_clear_errmsg();
  if (status == MEMORY_ALLOCATION) throw std::bad_alloc();
  throw std::runtime_error(std::string("cannot be made a FITS file: ") + text);
}

void writeCard(fitsfile* file, const Card& card) {
  int status = 0;
  const char* const name = card.keyword.c_str();
  const char* const comment = card.comment.c_str();
  if (card.keyword == "HISTORY") {
    fits_write_history(file, std::get<std::string>(card.value).c_str(), &status);
  } else if (const auto* text = std::get_if<std::string>(&card.value)) {
    fits_write_key_longstr(file, name, text->c_str(), comment, &status);
  } else if (const auto* number = std::get_if<double>(&card.value)) {
    constexpr int shortestForm = -15;
    fits_write_key_dbl(file, name, *number, shortestForm, comment, &status);
  } else if (const auto* whole = std::get_if<std::int64_t>(&card.value)) {
    fits_write_key_lng(file, name, *whole, comment, &status);
  } else if (const auto* truth = std::get_if<bool>(&card.value)) {
    fits_write_key_log(file, name, *truth ? 1 : 0, comment, &status);
  }
  require(status);
}

void writeCards(fitsfile* file, const std::vector<Card>& cards) {
  for (const Card& card : cards)
    writeCard(file, card);
  writeCard(file, {"CHECKSUM", openCheckSum, "HDU checksum"});
  writeCard(file, {"DATASUM", openDataSum, "data unit checksum"});
}

constexpr struct {
  int image, pixel;
} types[] = {{BYTE_IMG, TBYTE},
             {USHORT_IMG, TUSHORT},
             {FLOAT_IMG, TFLOAT},
             {DOUBLE_IMG, TDOUBLE},
             {LONGLONG_IMG, TLONGLONG}};

/// An image unit of CFITSIO's: with its pixels in compressed tiles, else of one pixel, its header to be had
/// from it.
void writeImage(fitsfile* file, const FitsImage& image, bool tiles) {
  const Raster& raster = image.raster;
  long size[2] = {1, 1};
  if (tiles) size[0] = static_cast<long>(raster.size.width), size[1] = static_cast<long>(raster.size.height);
  int status = 0;
  fits_create_img(file, types[raster.sample].image, 2, size, &status);
  require(status);
  writeCards(file, image.cards);
  if (tiles)
    fits_write_img(file, types[raster.sample].pixel, 1, static_cast<LONGLONG>(raster.pixels()),
                   const_cast<void*>(raster.data), &status);
  require(status);
}

/// Where a header-data unit lies in what CFITSIO has made.
struct Unit {
  std::size_t header, data, end;
};

std::vector<Unit> unitsOf(fitsfile* file) {
  int status = 0, count = 0;
  fits_flush_file(file, &status);
  fits_get_num_hdus(file, &count, &status);
  std::vector<Unit> units;
  for (int i = 1; i <= count; ++i) {
    LONGLONG header = 0, data = 0, end = 0;
    fits_movabs_hdu(file, i, nullptr, &status);
    fits_get_hduaddrll(file, &header, &data, &end, &status);
    units.push_back(
        {static_cast<std::size_t>(header), static_cast<std::size_t>(data), static_cast<std::size_t>(end)});
  }
  require(status);
  return units;
}

/// The value of a card in a header, behind "KEYWORD = '".
unsigned char* valueOf(unsigned char* header, std::size_t length, const char* keyword) {
  for (std::size_t at = 0; at + cardSize <= length; at += cardSize)
    if (std::memcmp(header + at, keyword, 8) == 0) return header + at + 11;
  throw std::runtime_error("cannot be made a FITS file: a checksum has no card");
}

/// Puts both sums into the header of a unit whose data have this one.
void writeSums(unsigned char* bytes, const Unit& unit, std::uint32_t data) {
  char text[32];
  const std::string digits = std::to_string(data);
  const int written = std::snprintf(text, sizeof text, "%-8s'", digits.c_str());
  unsigned char* const dataSum = valueOf(bytes + unit.header, unit.data - unit.header, "DATASUM ");
  std::memset(dataSum, ' ', std::strlen(openDataSum) + 1);
  std::memcpy(dataSum, text, static_cast<std::size_t>(written));

  char encoded[24] = {};
  fits_encode_chksum(addedSums(data, wordSum(bytes + unit.header, unit.data - unit.header)), 1, encoded);
  std::memcpy(valueOf(bytes + unit.header, unit.data - unit.header, "CHECKSUM"), encoded,
              std::strlen(openCheckSum));
}

std::size_t paddedSize(std::size_t bytes) {
  return (bytes + blockSize - 1) / blockSize * blockSize;
}

std::size_t expectedSize(const std::vector<FitsImage>& images, const FitsLayout& layout) {
  std::size_t size = (layout.primary.size() / 36 + 3) * blockSize;
  for (const FitsImage& image : images)
    size += (image.cards.size() / 36 + 4) * blockSize + (layout.rice ? image.raster.bytes() : 0);
  return size;
}

/// Pixels as FITS has them: the high byte first, unsigned ones less 32768.
void copyPixels(Raster::Sample sample, const void* pixels, std::size_t bytes, unsigned char* to) {
  const auto each = [&](auto zero, auto change) {
    using Word = decltype(zero);
    const auto* const from = static_cast<const Word*>(pixels);
    auto* const words = static_cast<Word*>(static_cast<void*>(to));
    for (std::size_t i = 0; i < bytes / sizeof(Word); ++i)
      words[i] = static_cast<Word>(change(from[i]));
  };
  switch (sample) {
    case Raster::U8:
      std::memcpy(to, pixels, bytes);
      break;
    case Raster::U16:
      each(std::uint16_t{}, [](std::uint16_t v) { return (v << 8 | v >> 8) ^ 0x80; });
      break;
    case Raster::F32:
      each(std::uint32_t{}, [](std::uint32_t v) { return __builtin_bswap32(v); });
      break;
    case Raster::F64:
    case Raster::I64:
      each(std::uint64_t{}, [](std::uint64_t v) { return __builtin_bswap64(v); });
      break;
  }
}

/// The sum of pixels as FITS has them. What stands high byte first there are the numbers themselves.
std::uint32_t pixelSum(const Raster& raster) {
  const auto* const bytes = static_cast<const unsigned char*>(raster.data);
  const std::size_t whole = raster.bytes() / 4 * 4;
  unsigned char rest[4] = {};
  copyPixels(raster.sample, bytes + whole, raster.bytes() - whole, rest);
  if (raster.sample == Raster::U8) return addedSums(wordSum(bytes, whole), wordSum(rest, sizeof rest));
  const bool pairs = raster.sample == Raster::U16;
  std::uint64_t high = 0, low = 0;  // halves of words
  for (std::size_t at = 0; at < whole;) {
    // So many halves are summed in 32 bits.
    const std::size_t until = std::min(whole, at + (std::size_t{1} << 18));
    std::uint32_t first = 0, second = 0;
    for (; at < until; at += 4) {
      std::uint32_t word;
      std::memcpy(&word, bytes + at, 4);
      if (pairs) word ^= 0x80008000u;
      first += word & 0xFFFF;
      second += word >> 16;
    }
    high += pairs ? first : second;
    low += pairs ? second : first;
  }
  const std::uint64_t sum = (high >> 16) + ((high & 0xFFFF) << 16) + low;
  return addedSums(addedSums(static_cast<std::uint32_t>(sum), static_cast<std::uint32_t>(sum >> 32)),
                   wordSum(rest, sizeof rest));
}

/// Replaces the value of a card of a whole number.
void setSize(unsigned char* header, std::size_t length, const char* keyword, std::uint32_t value) {
  char text[32];
  std::snprintf(text, sizeof text, "%20u", value);
  std::memcpy(valueOf(header, length, keyword) - 1, text, 20);
}

/// CFITSIO reads ahead of what it has written, and takes what it finds for content: new memory is zero.
void* grown(void* memory, std::size_t size) {
  void* const larger = std::calloc(1, size);
  if (larger == nullptr) return nullptr;
  std::memcpy(larger, memory, std::min(size, malloc_usable_size(memory)));
  std::free(memory);
  return larger;
}

/// Closes a file that could not be finished.
struct Close {
  void operator()(fitsfile* file) const {
    int status = 0;
    fits_close_file(file, &status);
    fits_clear_errmsg();
  }
};

/// What CFITSIO makes of a file, in memory that it asks for: all of a compressed one, else the headers, each
/// of an image of one pixel.
std::vector<Unit> makeUnits(const std::vector<FitsImage>& images, const FitsLayout& layout, void*& memory) {
  // CFITSIO takes the memory that it is given at first for content: one block. It asks for all the rest at
  // once.
  std::size_t room = blockSize;
  memory = std::calloc(1, room);
  if (memory == nullptr) throw std::bad_alloc();
  int status = 0;
  fitsfile* opened = nullptr;
  fits_create_memfile(&opened, &memory, &room, expectedSize(images, layout), grown, &status);
  require(status);
  std::unique_ptr<fitsfile, Close> file(opened);
  if (layout.extensions) {
    fits_create_img(opened, BYTE_IMG, 0, nullptr, &status);
    require(status);
    writeCards(opened, layout.primary);
  }
  if (layout.rice) fits_set_compression_type(opened, RICE_1, &status);
  for (const FitsImage& image : images)
    writeImage(opened, image, layout.rice);
  std::vector<Unit> units = unitsOf(opened);
  static_cast<void>(file.release());
  fits_close_file(opened, &status);
  require(status);
  return units;
}

}  // namespace

FitsStream::FitsStream(const std::vector<FitsImage>& images, const FitsLayout& layout) {
  void* memory = nullptr;
  std::vector<Unit> units;
  try {
    units = makeUnits(images, layout, memory);
  } catch (...) {
    std::free(memory);
    throw;
  }
  unsigned char* const bytes = static_cast<unsigned char*>(memory);
  m_bytes.reset(bytes);
  const std::size_t empty = units.size() - images.size();  // 1 where all images are extensions
  for (std::size_t i = 0; i < units.size(); ++i) {
    const Unit& unit = units[i];
    // CFITSIO moves each pixel three times: what it need not compress stays where it is.
    if (layout.rice || i < empty) {
      m_parts.push_back({unit.header, unit.end - unit.header, {}});
      // An empty primary array that CFITSIO puts ahead of compressed tiles has no sums.
      if (layout.extensions || i > 0)
        writeSums(bytes, unit, wordSum(bytes + unit.data, unit.end - unit.data));
      continue;
    }
    const Raster& raster = images[i - empty].raster;
    m_parts.push_back({unit.header, unit.data - unit.header, raster});
    setSize(bytes + unit.header, unit.data - unit.header, "NAXIS1  ", raster.size.width);
    setSize(bytes + unit.header, unit.data - unit.header, "NAXIS2  ", raster.size.height);
    writeSums(bytes, unit, pixelSum(raster));
  }
}

std::size_t FitsStream::size() const {
  std::size_t size = 0;
  for (const Part& part : m_parts)
    size += part.length + paddedSize(part.raster.bytes());
  return size;
}

void FitsStream::writeTo(const std::function<void(const void* bytes, std::size_t length)>& sink) const {
  // The second-level cache holds a piece until it is written.
  constexpr std::size_t pieceSize = std::size_t{256} << 10;
  std::vector<unsigned char> piece;
  for (const Part& part : m_parts) {
    sink(m_bytes.get() + part.at, part.length);
    const auto* const pixels = static_cast<const unsigned char*>(part.raster.data);
    const std::size_t filled = part.raster.bytes(), length = paddedSize(filled);
    for (std::size_t at = 0; at < length; at += piece.size()) {
      piece.resize(std::min(pieceSize, length - at));
      const std::size_t own = std::min(piece.size(), std::max(at, filled) - at);
      copyPixels(part.raster.sample, pixels + at, own, piece.data());
      std::fill(piece.begin() + static_cast<std::ptrdiff_t>(own), piece.end(), '\0');
      sink(piece.data(), piece.size());
    }
  }
}

FitsFile::FitsFile(const std::vector<FitsImage>& images, const FitsLayout& layout) {
  const FitsStream stream(images, layout);
  m_bytes.reserve(stream.size());
  stream.writeTo([&](const void* bytes, std::size_t length) {
    const auto* const from = static_cast<const unsigned char*>(bytes);
    m_bytes.insert(m_bytes.end(), from, from + length);
  });
}

}  // namespace orvacam::files
