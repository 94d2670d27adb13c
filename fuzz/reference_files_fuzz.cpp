// A pair of reference files, whose headers are binary or FITS text: two bytes say how long the first one is,
// one byte which of them are given.

#include <orvacam.h>

#include "fuzz_support.h"

namespace {

using fuzz::Bytes;

/// The length that a header states.
std::size_t headerOf(Bytes file) {
  CFrameMetaData metaData;
  metaData.Parse(file.data(), fuzz::length(file));
  return metaData.GetBinarizeSize();
}

/// A term of a file: behind the header, low-gain plane first.
unsigned int termAt(const Bytes& file, std::size_t header, std::size_t plane, std::size_t pixels,
                    std::size_t i) {
  const std::size_t at = header + 2 * (plane * pixels + i);
  return file.at(at) + file.at(at + 1) * 256u;
}

void compareTerms(const ref_frames_t& planes, const Bytes* dsnu, const Bytes* prnu) {
  const std::size_t pixels = std::size_t{planes.uiWidth} * planes.uiHeight;
  const std::size_t dsnuHeader = dsnu != nullptr ? headerOf(*dsnu) : 0;
  const std::size_t prnuHeader = prnu != nullptr ? headerOf(*prnu) : 0;
  for (std::size_t i = 0; i < pixels; ++i) {
    if (dsnu != nullptr) {
      FUZZ_REQUIRE(static_cast<unsigned short>(planes.pAdditiveLow[i]) ==
                   termAt(*dsnu, dsnuHeader, 0, pixels, i));
      FUZZ_REQUIRE(static_cast<unsigned short>(planes.pAdditiveHigh[i]) ==
                   termAt(*dsnu, dsnuHeader, 1, pixels, i));
    } else {
      FUZZ_REQUIRE(planes.pAdditiveLow[i] == 0 && planes.pAdditiveHigh[i] == 0);
    }
    if (prnu != nullptr && dsnu != nullptr) {
      FUZZ_REQUIRE(planes.pMultiplicativeLow[i] == termAt(*prnu, prnuHeader, 0, pixels, i));
      FUZZ_REQUIRE(planes.pMultiplicativeHigh[i] == termAt(*prnu, prnuHeader, 1, pixels, i));
    }
    if (prnu == nullptr) FUZZ_REQUIRE(planes.pMultiplicativeLow[i] == 10240);
  }
}

/// A merge with the terms, against the rule pixel by pixel.
void merge(CHWMergeReferenceFrames& algo, const ref_frames_t& planes) {
  const std::size_t pixels = std::size_t{planes.uiWidth} * planes.uiHeight;
  fuzz::Pixels low(pixels), high(pixels), merged(pixels, 7);
  for (std::size_t i = 0; i < pixels; ++i) {
    low[i] = static_cast<unsigned short>(i * 7 % 4096);
    high[i] = static_cast<unsigned short>(i * 31 % 4096);
  }
  FUZZ_REQUIRE(algo.MergeFrames(low.data(), high.data(), merged.data(), pixels) == 0);
  const double most = CHWMergeReferenceFrames::PositiveIntMax(3);
  for (std::size_t i = 0; i < pixels; ++i) {
    const int l = algo.CorrectPixel(low[i], planes.pAdditiveLow[i], planes.pMultiplicativeLow[i], most);
    const int h = algo.CorrectPixel(high[i], planes.pAdditiveHigh[i], planes.pMultiplicativeHigh[i], most);
    FUZZ_REQUIRE(merged[i] == (h >= 3700 || l - h > 128 ? l : h));
  }
}

void free(ref_frames_t& planes) {
  delete[] planes.pAdditiveLow;
  delete[] planes.pAdditiveHigh;
  delete[] planes.pMultiplicativeLow;
  delete[] planes.pMultiplicativeHigh;
}

}  // namespace

FUZZ_TARGET(data, size) {
  fuzz::Input input(data, size);
  const unsigned int firstLength = input.word();
  const unsigned int given = input.byte();
  const Bytes first = input.bytes(firstLength);
  const Bytes second = input.rest();
  const fuzz::MemoryFile dsnu(first), prnu(second);
  const std::wstring dsnuName = dsnu.path(), prnuName = prnu.path();
  const bool withDsnu = (given & 1) == 0, withPrnu = (given & 2) == 0;

  CHWMergeReferenceFrames algo;
  algo.CreateIdentityFrames(4, 4, nullptr);  // the size where no file gives one
  ref_frames_t planes{};
  const int status = algo.CreateReferenceFrames(withDsnu ? dsnuName.c_str() : nullptr,
                                                withPrnu ? prnuName.c_str() : nullptr, 10.0, 1.0, &planes);
  FUZZ_REQUIRE(status == 0 || status == -1);
  const std::size_t pixels = std::size_t{planes.uiWidth} * planes.uiHeight;
  // Handed out all four or none, and not out of proportion to what came.
  FUZZ_REQUIRE((planes.pAdditiveLow == nullptr) == (planes.pMultiplicativeHigh == nullptr));
  FUZZ_REQUIRE(4 * pixels <= 16u << 20 || 4 * pixels / 8 <= size);
  if (status == 0) {
    FUZZ_REQUIRE(planes.pAdditiveLow != nullptr);
    compareTerms(planes, withDsnu ? &first : nullptr, withPrnu ? &second : nullptr);
    FUZZ_REQUIRE(algo.HasCallerFrames() == (withDsnu || withPrnu));
    merge(algo, planes);
  } else if (planes.pAdditiveLow != nullptr) {
    for (std::size_t i = 0; i < pixels; ++i)
      FUZZ_REQUIRE(planes.pAdditiveHigh[i] >= -32768);  // every term can be read
  }
  free(planes);
  return 0;
}
