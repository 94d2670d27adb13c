// FITS headers read back into metadata, from memory and from a stream, and written again.

#include <orvacam.h>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<unsigned char> bytes = fuzz::copyOf(data, size);
  CFitsInterface fits;
  CFrameMetaData header;
  bool end = false;
  fits.ParseMetaData(bytes.data(), static_cast<unsigned int>(bytes.size()), header, end);
  header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size()));

  const fuzz::MemoryFile file(data, size);
  fits.ParseMetaData(file.stream(), header);
  header.Parse(file.stream());

  // Room for a header and no pixels.
  for (unsigned int room : {5759u, 5760u, 6000u}) {
    std::vector<unsigned short> out(room / 2 + 1);
    FUZZ_REQUIRE(fits.CreateImageBuffer(out.data(), room, 0, header, false) == (room < 5760 ? -1 : 0));
  }
  return 0;
}
