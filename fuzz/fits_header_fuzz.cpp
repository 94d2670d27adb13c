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

  for (unsigned int room : {0u, 79u, 80u, 2880u, 5760u}) {
    std::vector<unsigned char> out(room);
    fits.DoWriteHeader(out.data(), room, header);
  }
  return 0;
}
