// The same bytes through every kernel table that this processor runs; stops when one differs from the
// reference.

#include <cstring>

#include "fuzz_support.h"
#include "kernels/Kernels.h"

namespace {

namespace kernels = orvacam::kernels;

std::vector<std::uint16_t> words(const std::uint8_t* data, std::size_t count) {
  std::vector<std::uint16_t> result(count);
  if (count > 0) std::memcpy(result.data(), data, 2 * count);
  return result;
}

void compare(const kernels::KernelTable& table, const std::uint8_t* data, std::size_t size) {
  const kernels::KernelTable& reference = kernels::reference();

  const std::size_t pairs = size / 3;
  std::vector<std::uint16_t> expected(2 * pairs), actual(2 * pairs);
  reference.unpack12(data, expected.data(), pairs);
  table.unpack12(data, actual.data(), pairs);
  FUZZ_REQUIRE(expected == actual);

  const std::size_t pixels = size / 4;
  const auto low = words(data, pixels), high = words(data + 2 * pixels, pixels);
  const kernels::MergeRule rule{
      static_cast<std::uint32_t>(size % 16), static_cast<std::uint32_t>(size / 16 % 17),
      static_cast<std::int32_t>(size % 5000), 128, static_cast<std::uint32_t>(size % 3)};
  const kernels::UniformTerms terms{static_cast<std::int16_t>(size), static_cast<std::int16_t>(-3),
                                    static_cast<std::uint16_t>(1024 + size), 1000};
  expected.resize(pixels);
  actual.resize(pixels);
  reference.mergeUniform(low.data(), high.data(), expected.data(), pixels, rule, terms);
  table.mergeUniform(low.data(), high.data(), actual.data(), pixels, rule, terms);
  FUZZ_REQUIRE(expected == actual);

  expected = low;
  actual = low;
  reference.subtractBias(expected.data(), high.data(), pixels);
  table.subtractBias(actual.data(), high.data(), pixels);
  FUZZ_REQUIRE(expected == actual);

  if (pixels > 0) {
    std::uint16_t wantedMin = 0, wantedMax = 0, foundMin = 0, foundMax = 0;
    reference.findExtremes(low.data(), pixels, &wantedMin, &wantedMax);
    table.findExtremes(low.data(), pixels, &foundMin, &foundMax);
    FUZZ_REQUIRE(wantedMin == foundMin && wantedMax == foundMax);
    FUZZ_REQUIRE(reference.findFirst(low.data(), pixels, wantedMax) ==
                 table.findFirst(low.data(), pixels, wantedMax));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::size_t count = 0;
  const kernels::KernelTable* const* tables = kernels::allTables(count);
  for (std::size_t i = 0; i < count; ++i)
    if (tables[i]->supported()) compare(*tables[i], data, size);
  return 0;
}
