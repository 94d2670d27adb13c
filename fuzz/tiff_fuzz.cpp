// TIFF directories made of any tags, and the headers of any frame.

#include <orvacam.h>

#include "fuzz_support.h"

namespace {

using fuzz::Bytes;

void addTags(CTiffMaker& maker, fuzz::Input& input) {
  const unsigned int count = input.upTo(40);
  for (unsigned int i = 0; i < count; ++i) {
    _tiff_tag_t tag{};
    tag.usTag = static_cast<unsigned short>(input.word());
    tag.usType = static_cast<unsigned short>(input.upTo(7));
    tag.uiCount = input.hostile();
    tag.uiValue = input.number();
    const unsigned int elements = input.upTo(80);
    // As large as the widest type may read it.
    Bytes data(std::size_t{elements} * 8, static_cast<unsigned char>(i));
    FUZZ_REQUIRE(maker.AddTag(tag, input.flag() ? data.data() : nullptr, elements) >= -1);
  }
}

void binarize(const CTiffMaker& maker) {
  for (const unsigned int room : {0u, 655u, 656u, 700u}) {
    Bytes block(room, 'x');
    const int status = maker.Binarize(block.data(), room, (room & 1) != 0);
    FUZZ_REQUIRE(status == -1 || (status == 656 && room >= 656));
    if (status < 0) FUZZ_REQUIRE(block == Bytes(room, 'x'));
  }
}

}  // namespace

FUZZ_TARGET(data, size) {
  fuzz::Input input(data, size);
  CTiffMaker maker;
  const auto tag = static_cast<unsigned short>(input.word());
  const auto type = static_cast<TIFF_TAGTYPE>(input.upTo(8));
  maker.SetTag(tag, type, input.number());
  const unsigned int pixelWidth = input.number(), pixelHeight = input.upTo(300);
  maker.SetPixelSize(pixelWidth, pixelHeight);
  addTags(maker, input);
  const unsigned int width = input.number(), height = input.word();
  maker.SetImageDimensions(width, height);
  binarize(maker);
  maker.InitTags(input.hostile());
  binarize(maker);

  // A whole header: as large as the frame's header says, or not there at all.
  CFrameMetaData header;
  Bytes rest = input.rest();
  header.Parse(rest.data(), fuzz::length(rest));
  const std::uint64_t needed = std::uint64_t{header.GetBinarizeSize()} + 656;
  // A FITS text may state more than any header has. For that, there never is room.
  const auto whole = static_cast<unsigned int>(std::min<std::uint64_t>(needed, 0xFFFF + 656));
  for (const unsigned int room : {0u, 656u, whole - 1, whole, 2000u}) {
    Bytes block(room, 'x');
    const int status = maker.WriteHeader(block.data(), room, header, (size & 1) != 0);
    FUZZ_REQUIRE(status == -1 || (static_cast<unsigned int>(status) == needed && room >= needed));
  }
  return 0;
}
