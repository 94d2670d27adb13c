// Frame headers: parse from memory and from a stream, ask everything, write back, parse again.

#include <orvacam.h>

#include <algorithm>
#include <array>

#include "fuzz_support.h"
#include "metadata/FrameGeometry.h"

namespace {

using fuzz::Bytes;

std::string textOf(CFrameMetaData& header) {
  std::vector<char> text(32768);
  header.ToString(text.data(), 32768);
  return text.data();
}

Bytes written(CFrameMetaData& header) {
  Bytes bytes(384);
  FUZZ_REQUIRE(header.Binarize(bytes.data(), 384) == 384);
  return bytes;
}

/// Parsing changes nothing in the caller's buffer but top bits, which it clears.
void requireOnlySignBitsCleared(const Bytes& before, const Bytes& after) {
  for (std::size_t i = 0; i < before.size(); ++i)
    FUZZ_REQUIRE(after[i] == before[i] || after[i] == (before[i] & 0x7F));
}

void askValues(CFrameMetaData& header) {
  meta_data_value_t value;
  unsigned int keys = 0;
  while (header.GetValueNext(value) >= 0)
    ++keys;
  FUZZ_REQUIRE(keys == ORVA_META_KEY_COUNT);
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT + 2; ++key) {
    const auto eKey = static_cast<ORVA_META_KEYS>(key);
    FUZZ_REQUIRE(header.GetValue(eKey, value) == (key < ORVA_META_KEY_COUNT ? static_cast<int>(key) : -1));
    const CMetaValues& kept = header.Value(eKey);
    int size = 7;
    Bytes room(7);
    if (kept.GetValue(room.data(), size) == nullptr) FUZZ_REQUIRE(size == -1 && !kept.IsStringValue());
    kept.GetValueInt(), kept.GetValueUint64(), kept.GetValueDouble();
  }
  header.GetSensorTemperature();
  FUZZ_REQUIRE(header.GetGPSLatitude() >= -3600 && header.GetGPSLatitude() <= 3600);
  header.GetGPSLongitude();
  FUZZ_REQUIRE(header.GetLowGainValue() > 0 && header.GetHighGainValue() > 0);
}

/// What a frame's sizes are taken from: bounded or refused, and what the widest arithmetic gives.
void requireSoundGeometry(const CFrameMetaData& header) {
  const orvacam::FrameGeometry geometry(header);
  const bool refused = static_cast<bool>(geometry.fault());
  FUZZ_REQUIRE(refused == !geometry.fault().text().empty());
  FUZZ_REQUIRE(2 * geometry.planePixels() == (refused ? 0 : fuzz::claimedPlane(header, true)));
  FUZZ_REQUIRE(2 * geometry.framePixels() == (refused ? 0 : fuzz::claimedPlane(header, false)));
  FUZZ_REQUIRE(geometry.headerLength() <= 65535);
  if (refused) return;
  FUZZ_REQUIRE(geometry.columns().frame() <= 0x7FFFFFFF && geometry.rows().frame() <= 0x7FFFFFFF);
  FUZZ_REQUIRE(geometry.binnedImagePixels() > 0 && geometry.binnedImagePixels() <= geometry.planePixels());
  unsigned int width = 0, height = 0;
  FUZZ_REQUIRE(header.GetFrameDimensionsBinned(width, height) == 0);
  FUZZ_REQUIRE(geometry.binnedColumns().frame() == width && geometry.binnedRows().frame() == height);
  FUZZ_REQUIRE(header.GetFrameDimensions(width, height) == 0);
  FUZZ_REQUIRE(geometry.columns().frame() == width && geometry.rows().frame() == height);
}

void askGeometry(const CFrameMetaData& header) {
  requireSoundGeometry(header);
  // The documented queries wrap at 32 bits.
  unsigned int width = 0, height = 0, pixels = 0, bytes = 0;
  const int image = header.GetImageDimensionsBinned(width, height);
  if (image == 0) FUZZ_REQUIRE(header.GetImageSizePixelsBinned(pixels) == 0 && pixels == width * height);
  unsigned int frameWidth = 0, frameHeight = 0;
  if (header.GetFrameDimensionsBinned(frameWidth, frameHeight) == 0)
    FUZZ_REQUIRE(image == 0 && header.GetFrameSizePixelsBinned(pixels) == 0 &&
                 pixels == frameWidth * frameHeight);
  header.GetImageSizePixels(pixels);
  header.GetFrameSizePixels(pixels);
  header.GetPixelSize(bytes);
  unsigned int type = 0;
  const int known = header.GetDeviceType(type);
  FUZZ_REQUIRE(known == 0 || known == -1);
  if (header.GetImageSizeBytes(bytes) < 0) FUZZ_REQUIRE(bytes == 0 || known == 0);
}

void renderTexts(CFrameMetaData& header) {
  const std::string whole = textOf(header);
  for (unsigned int room : {0u, 1u, 100u, 2000u, 32768u}) {
    std::vector<char> text(room, 'x');
    const int length = header.ToString(text.data(), room);
    if (room == 0) continue;
    FUZZ_REQUIRE(text.back() == '\0' && length >= 0);
    FUZZ_REQUIRE(whole.compare(0, std::min<std::size_t>(room - 1, whole.size()), text.data()) == 0);
    std::vector<wchar_t> wide(room, L'x');
    FUZZ_REQUIRE(header.ToString(wide.data(), room) == length && wide.back() == L'\0');
    header.GetCaptureDate(text.data(), room);
    FUZZ_REQUIRE(text.back() == '\0');
    header.TimeMetaToString2(text.data(), room);
    FUZZ_REQUIRE(text.back() == '\0');
  }
}

/// What was written is read again as it stands. The one thing that need not come back the same is a capture
/// time or a chip temperature that the reader takes differently, so that the second copy is compared.
void writeBack(CFrameMetaData& header) {
  for (unsigned int room : {0u, 383u, 384u, 500u}) {
    Bytes raw(room, 7);
    header.GetRawMetaData(raw.data(), room);
    FUZZ_REQUIRE(header.Binarize(raw.data(), room) == (room < 384 ? -1 : 384));
    header.BinarizeEx(raw.data(), room, nullptr, 0);
    // The caller vouches for the room of a block of its own.
    const Bytes block = {1, 2, 3, 4, 5};
    raw.resize(room + block.size());
    CFrameMetaData other(header);
    FUZZ_REQUIRE(other.BinarizeEx(raw.data(), room, block.data(), 5) == (room < 384 ? -1 : 384));
    if (room >= 384) FUZZ_REQUIRE(std::equal(block.begin(), block.end(), raw.begin() + 384));
  }
  Bytes first = written(header);
  CFrameMetaData again;
  again.Parse(first.data(), 384);
  // Files are as large as what is read back, planes as what was written.
  const orvacam::FrameGeometry geometry(header);
  if (!geometry.fault() && orvacam::surviveProcessing(header))
    FUZZ_REQUIRE(orvacam::FrameGeometry(again).planePixels() == geometry.planePixels());
  Bytes second = written(again);
  CFrameMetaData third;
  third.Parse(second.data(), 384);
  unsigned int a = 0, b = 0, c = 0, d = 0;
  FUZZ_REQUIRE(again.GetFrameDimensions(a, b) == third.GetFrameDimensions(c, d) && a == c && b == d);
  FUZZ_REQUIRE(again.Value(ORVA_META_KEY_CAMERA_MODEL).GetValueDouble() ==
               third.Value(ORVA_META_KEY_CAMERA_MODEL).GetValueDouble());
}

/// A stream gives what its bytes give, as far as the header says that it goes.
void compareWithStream(const std::uint8_t* data, std::size_t size) {
  const fuzz::MemoryFile file(data, size);
  CFrameMetaData fromStream;
  const int status = fromStream.Parse(file.stream());
  if (size < 8 || !CFrameMetaData::IsRCDFrame(data, static_cast<unsigned int>(size))) return;
  const std::size_t stated = data[4] * 256u + data[5];
  if (stated < 8 || stated > 1024 || stated > size) {
    FUZZ_REQUIRE(status <= 0);
    return;
  }
  Bytes exact = fuzz::copyOf(data, stated);
  CFrameMetaData fromBytes;
  FUZZ_REQUIRE(fromBytes.Parse(exact.data(), fuzz::length(exact)) == status);
  FUZZ_REQUIRE(textOf(fromBytes) == textOf(fromStream));
  FUZZ_REQUIRE(written(fromBytes) == written(fromStream));
}

void readFields(Bytes& bytes) {
  for (unsigned int count : {0u, 1u, 3u, 4u, 8u, 40u}) {
    unsigned char* position = bytes.data();
    unsigned int left = fuzz::length(bytes);
    CMetaValues value, b, c, d;
    const auto moved = [&](int status, unsigned int by) {
      const std::size_t read = bytes.size() - left;
      FUZZ_REQUIRE(read == (status == 0 ? by : 0) && (read == 0 || position == bytes.data() + read));
      FUZZ_REQUIRE(by == 0 || (status == 0) == (by <= bytes.size()));
      position = bytes.data();
      left = fuzz::length(bytes);
    };
    if (count <= 4) moved(CFrameMetaData::ParseUint(position, left, value, count), count);
    if (count <= 4) moved(CFrameMetaData::ParseInt(position, left, value, count), count);
    if (count <= 4) moved(CFrameMetaData::ParseIntSignedMagnitude(position, left, value, count), count);
    if (count <= 8) moved(CFrameMetaData::ParseUint64(position, left, value, count), count);
    if (count <= 8) moved(CFrameMetaData::ParseInt64(position, left, value, count), count);
    moved(CFrameMetaData::ParseString(position, left, value, count), count);
    moved(CFrameMetaData::ParseGPSLocation(position, left, value, b, c, d), 4);
  }
}

}  // namespace

FUZZ_TARGET(data, size) {
  const Bytes original = fuzz::copyOf(data, size);
  Bytes bytes = original;
  CFrameMetaData header;
  const int status = header.Parse(bytes.data(), fuzz::length(bytes));
  FUZZ_REQUIRE(status >= -1);
  requireOnlySignBitsCleared(original, bytes);

  askValues(header);
  askGeometry(header);
  renderTexts(header);

  CFrameMetaData copy(header);
  FUZZ_REQUIRE(textOf(copy) == textOf(header));
  copy.ReInitialize((size & 1) != 0);
  copy = header;
  FUZZ_REQUIRE(written(copy) == written(header));

  writeBack(header);
  compareWithStream(data, size);
  readFields(bytes);
  return 0;
}
