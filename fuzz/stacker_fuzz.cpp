// The stacker under any sequence of calls, against sums of its own.

#include <orvacam.h>

#include "fuzz_support.h"

/// Sizes beyond any memory are asked for: the sanitizer answers them as the C library does.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

using fuzz::Bytes;
using fuzz::Pixels;

/// What the stacker must have added up so far.
struct Model {
  bool ready = false;
  std::vector<std::uint64_t> low, high;
  std::uint64_t frames = 0;
};

template <typename Pixel>
void add(std::vector<std::uint64_t>& sums, const std::vector<Pixel>& plane) {
  for (std::size_t i = 0; i < sums.size(); ++i)
    sums[i] += plane[i];
}

void requireMeans(const unsigned short* means, const std::vector<std::uint64_t>& sums, std::uint64_t frames) {
  for (std::size_t i = 0; i < sums.size(); ++i)
    FUZZ_REQUIRE(means[i] == (frames == 0 ? 0 : sums[i] / frames));
}

void finish(CStacker& stacker, Model& model) {
  unsigned short *low = nullptr, *high = nullptr;
  unsigned int pixels = 0;
  FUZZ_REQUIRE(stacker.Finish(&low, &high, nullptr) == -1);
  FUZZ_REQUIRE(stacker.Finish(&low, &high, &pixels) == (model.ready ? 0 : -1));
  if (!model.ready) return;
  FUZZ_REQUIRE(pixels == model.low.size());
  requireMeans(low, model.low, model.frames);
  requireMeans(high, model.high, model.frames);
  model.frames = 0;
  std::fill(model.low.begin(), model.low.end(), 0);
  std::fill(model.high.begin(), model.high.end(), 0);
}

void initialize(CStacker& stacker, Model& model, fuzz::Input& input) {
  const unsigned int pixels = input.upTo(70);
  // A size that no memory holds leaves the stacker empty.
  if (pixels == 70) {
    FUZZ_REQUIRE(stacker.Initialize(0xFFFFFFFFFFFFFFF0UL >> input.upTo(3)) == -1);
    model = Model();
    return;
  }
  FUZZ_REQUIRE(stacker.Initialize(pixels) == 0);
  model = Model();
  model.ready = true;
  model.low.resize(pixels);
  model.high.resize(pixels);
}

void stack(CStacker& stacker, Model& model, fuzz::Input& input, unsigned int kind) {
  const bool right = input.byte() % 4 != 0;
  const std::size_t count = right ? model.low.size() : input.upTo(70);
  const bool fits = model.ready && count == model.low.size();
  Bytes small = input.bytes(kind == 0 ? count : 0);
  small.resize(count);
  const Pixels low = input.pixels(kind != 0 ? count : 0), high = input.pixels(kind == 2 ? count : 0);
  int status = 0;
  if (kind == 0) status = stacker.StackNextFrame(small.data(), count);
  if (kind == 1) status = stacker.StackNextFrame(low.data(), count);
  if (kind == 2) status = stacker.StackNextFrame(low.data(), high.data(), count);
  if (kind == 3) status = stacker.StackNextFrame(low.data(), nullptr, count);
  if (count == 0) return;  // an empty plane has no address to speak of
  FUZZ_REQUIRE(status == (fits ? 0 : -1));
  if (!fits) return;
  ++model.frames;
  if (kind == 0) add(model.low, small);
  if (kind != 0) add(model.low, low);
  if (kind == 2) add(model.high, high);
}

void describe(CStacker& stacker, fuzz::Input& input) {
  Bytes header = input.bytes(input.word() % 4000);  // a FITS header takes 2880
  unsigned char* stacked = nullptr;
  unsigned int length = 0;
  const int status = stacker.GetStackedMetaData(header.data(), fuzz::length(header), &stacked, &length);
  if (status < 0 || stacked == nullptr) return;
  CFrameMetaData metaData;
  // What the longest header takes, and the block that came with one.
  FUZZ_REQUIRE(length >= 384 && length <= 65535 + 4000);
  // The magic number is a value like any other, which a FITS text may set.
  if (!CFrameMetaData::IsRCDFrame(stacked, length)) return;
  metaData.Parse(stacked, length);
  FUZZ_REQUIRE(metaData.Value(ORVA_META_KEY_TEST_IS_STACKED_FRAME).GetValueBool());
  FUZZ_REQUIRE(!metaData.Value(ORVA_META_KEY_HDR_MODE).GetValueBool());
}

}  // namespace

FUZZ_TARGET(data, size) {
  fuzz::Input input(data, size);
  CStacker stacker;
  Model model;
  while (input.left() > 0) {
    const unsigned int step = input.byte() % 12;
    if (step < 2) initialize(stacker, model, input);
    if (step >= 2 && step < 8) stack(stacker, model, input, step % 4);
    if (step == 8) finish(stacker, model);
    if (step == 9) describe(stacker, input);
    if (step == 10) {
      stacker.ResetStack();
      const std::size_t pixels = model.low.size();
      const bool ready = model.ready;
      model = Model();
      model.ready = ready;
      model.low.resize(pixels);
      model.high.resize(pixels);
    }
    if (step == 11) {
      stacker.Deinitialize();
      model = Model();
    }
  }
  finish(stacker, model);
  return 0;
}
