// FITS headers read back into metadata, from memory and from a stream, and written again.

#include <orvacam.h>

#include "fuzz_support.h"

namespace {

using fuzz::Bytes;

constexpr unsigned int headerBytes = 5760;

Bytes written(const Bytes& header) {
  Bytes bytes(384);
  CFrameMetaData metaData;
  bool end = false;
  CFitsInterface::ParseMetaData(header.data(), fuzz::length(header), metaData, end);
  FUZZ_REQUIRE(metaData.Binarize(bytes.data(), 384) == 384);
  return bytes;
}

/// Room for a header, with no pixels or with a few.
void write(const CFrameMetaData& metaData, unsigned int pixels) {
  CFitsInterface fits;
  for (const unsigned int room : {headerBytes - 1, headerBytes, headerBytes + 240}) {
    fuzz::Pixels image((room + 1) / 2 + pixels, 0x1234);
    const int status = fits.CreateImageBuffer(image.data(), room, pixels, metaData, false);
    FUZZ_REQUIRE(status == (room < headerBytes ? -1 : 0));
    if (status < 0) continue;
    FUZZ_REQUIRE(pixels == 0 || image[room / 2] == 0x3412);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(image.data());
    FUZZ_REQUIRE(CFitsInterface::IsFitsFrame(bytes, room));
    // What was written is read back to the end.
    CFrameMetaData again;
    bool end = false;
    CFitsInterface::ParseMetaData(bytes, room, again, end);
    FUZZ_REQUIRE(end);
  }
}

void readCards(const Bytes& bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += 80) {
    const Bytes card = fuzz::copyOf(bytes.data() + at, std::min<std::size_t>(80, bytes.size() - at));
    std::string keyword, value;
    const int status = CFitsInterface::ParseNextKey(card.data(), fuzz::length(card), keyword, value);
    FUZZ_REQUIRE(status == 0 || status == -1);
    FUZZ_REQUIRE(card.size() == 80 || status == -1);
    FUZZ_REQUIRE(keyword.size() <= 80 && value.size() <= 80);
    const int place = CFitsInterface::FindKeyIndex(keyword);
    FUZZ_REQUIRE(place >= -1 && place <= 112);
    CFrameMetaData metaData;
    CFitsInterface::ProcessKeyValue(keyword, value, metaData);
  }
}

/// One card of any text, in room for a card and in less.
void writeCards(fuzz::Input input) {
  const unsigned int number = input.number();
  const int integer = static_cast<int>(number);
  const bool logical = (number & 1) != 0;
  const double real = input.real();
  const Bytes some = input.rest();
  const std::string text(some.begin(), some.end());
  const void* const values[] = {&logical, text.c_str(), &number, &integer, &real, nullptr};
  const unsigned int types[] = {FITS_VALUE_LOGICAL, FITS_VALUE_STRING, FITS_VALUE_UNSIGNED,
                                FITS_VALUE_SIGNED,  FITS_VALUE_FLOAT,  FITS_VALUE_STRING};
  for (unsigned int i = 0; i < 6; ++i)
    for (const unsigned int room : {0u, 79u, 80u, 163u}) {
      CFitsInterface fits;
      Bytes card(room, 'x');
      FUZZ_REQUIRE(fits.RecWriteNextKey(card.data(), room, text.c_str(), types[i], values[i], text.c_str()) ==
                   (room < 80 ? -1 : 0));
      FUZZ_REQUIRE(room < 163 || card[162] == 'x');
    }
  CFitsInterface fits;
  Bytes comments(400, 'x');
  fits.RecWriteNextKey(comments.data(), 400, text.c_str());
}

}  // namespace

FUZZ_TARGET(data, size) {
  Bytes bytes = fuzz::copyOf(data, size);
  CFrameMetaData header;
  bool end = false;
  const int status = CFitsInterface::ParseMetaData(bytes.data(), fuzz::length(bytes), header, end);
  FUZZ_REQUIRE(status == 0 || status == -1);
  CFrameMetaData parsed;
  parsed.Parse(bytes.data(), fuzz::length(bytes));

  // A stream is read in blocks of 2880 bytes: whole ones give what the bytes give.
  const fuzz::MemoryFile file(data, size);
  CFrameMetaData fromStream;
  const int streamStatus = CFitsInterface::ParseMetaData(file.stream(), fromStream);
  FUZZ_REQUIRE(streamStatus == 0 || streamStatus == -1);
  if (end && size % 2880 == 0) {
    Bytes ours(384);
    FUZZ_REQUIRE(fromStream.Binarize(ours.data(), 384) == 384 && ours == written(bytes));
  }
  fromStream.Parse(file.stream());

  write(header, static_cast<unsigned int>(size % 5));
  readCards(bytes);
  writeCards(fuzz::Input(data, size));
  return 0;
}
