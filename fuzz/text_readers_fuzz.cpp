// The readers of times and numbers.

#include <orvacam.h>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<unsigned char> bytes = fuzz::copyOf(data, size);
  const auto length = static_cast<unsigned int>(bytes.size());

  unsigned int year = 0, month = 0, day = 0;
  double seconds = 0;
  std::vector<char> text(bytes.begin(), bytes.end());
  utilParseTimeString(text.data(), length, year, month, day, seconds);

  unsigned int number = 0;
  unsigned char* cursor = bytes.data();
  utilParseAsciiDecToNum(cursor, length, number);
  FUZZ_REQUIRE(cursor <= bytes.data() + bytes.size());
  cursor = bytes.data();
  utilParseAsciiHexToNum(cursor, length, number);
  FUZZ_REQUIRE(cursor <= bytes.data() + bytes.size());
  if (length >= 2) utilBufBCDToUint32(bytes.data(), length);

  std::string value(text.begin(), text.end());
  CFrameMetaData header;
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT + 2; ++key)
    header.SetValue(static_cast<ORVA_META_KEYS>(key), value);
  return 0;
}
