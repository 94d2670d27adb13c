// Frame headers: parse from memory and from a stream, ask everything, write back, parse again.

#include <orvacam.h>

#include <array>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<unsigned char> bytes = fuzz::copyOf(data, size);
  CFrameMetaData header;
  header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size()));

  meta_data_value_t value;
  for (unsigned int key = 0; header.GetValueNext(value) >= 0; ++key)
    FUZZ_REQUIRE(key < ORVA_META_KEY_COUNT);
  unsigned int a = 0, b = 0;
  header.GetDeviceType(a);
  header.GetImageDimensions(a, b);
  header.GetFrameDimensions(a, b);
  header.GetImageDimensionsBinned(a, b);
  header.GetFrameDimensionsBinned(a, b);
  header.GetFrameSizePixelsBinned(a);
  header.GetImageSizeBytes(a);
  header.GetGPSLatitude();
  header.GetSensorTemperature();
  header.GetLowGainValue();
  header.GetHighGainValue();

  for (unsigned int room : {0u, 1u, 100u, 32768u}) {
    std::vector<char> text(room);
    header.ToString(text.data(), room);
    FUZZ_REQUIRE(room == 0 || text.back() == '\0');
    std::vector<wchar_t> wide(room);
    header.ToString(wide.data(), room);
    FUZZ_REQUIRE(room == 0 || wide.back() == L'\0');
  }

  for (unsigned int room : {0u, 383u, 384u, 500u}) {
    std::vector<unsigned char> raw(room);
    header.GetRawMetaData(raw.data(), room);
    const int written = header.Binarize(raw.data(), room);
    FUZZ_REQUIRE(written == (room < 384 ? -1 : 384));
    header.BinarizeEx(raw.data(), room, nullptr, 0);
    if (written == 384) {
      CFrameMetaData again;
      again.Parse(raw.data(), room);
    }
  }

  const fuzz::MemoryFile file(data, size);
  CFrameMetaData fromStream;
  fromStream.Parse(file.stream());
  CFrameMetaData copy(fromStream);
  copy = header;
  return 0;
}
