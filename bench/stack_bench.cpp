// A stack of frames: adding one, and taking the means.

#include <benchmark/benchmark.h>
#include <orvacam.h>

#include <algorithm>
#include <orvacam.hpp>
#include <vector>

#include "Benchmarks.h"
#include "Compare.h"
#include "HdrFrame.h"

namespace {

using namespace orvacam::bench;

constexpr unsigned int framesBefore = 3;

/// What a user would write: sums in doubles.
struct PlainStack {
  explicit PlainStack(std::size_t pixels) : sums(pixels), means(pixels) {}
  void add(const Plane& plane) {
    for (std::size_t i = 0; i < plane.size(); ++i)
      sums[i] += plane[i];
    ++frames;
  }
  void finish() {
    for (std::size_t i = 0; i < sums.size(); ++i)
      means[i] = static_cast<unsigned short>(sums[i] / frames);
    std::fill(sums.begin(), sums.end(), 0.0);
    frames = 0;
  }
  std::vector<double> sums;
  Plane means;
  unsigned int frames = 0;
};

void stackFrames(CStacker& stacker, const HdrFrame& frame) {
  require(stacker.StackNextFrame(frame.low.data(), frame.pixels()) == 0, "StackNextFrame");
  for (unsigned int i = 0; i < framesBefore; ++i)
    require(stacker.StackNextFrame(frame.high.data(), frame.pixels()) == 0, "StackNextFrame");
}

void checkMeans(CStacker& stacker, const HdrFrame& frame) {
  unsigned short* means = nullptr;
  unsigned int count = 0;
  require(stacker.Finish(&means, nullptr, &count) == 0 && count == frame.pixels(), "Finish");
  for (std::size_t i = 0; i < frame.pixels(); ++i)
    require(means[i] == (frame.low[i] + framesBefore * frame.high[i]) / (framesBefore + 1), "mean");
}

void stackNextFrame(benchmark::State& state, unsigned int side) {
  const HdrFrame& frame = hdrFrame(side);
  CStacker stacker;
  require(stacker.Initialize(frame.pixels()) == 0, "Initialize");
  stackFrames(stacker, frame);
  checkMeans(stacker, frame);
  stackFrames(stacker, frame);
  PlainStack plain(frame.pixels());
  compareWithCopies(state, 10 * frame.pixels(),
                    [&] { stacker.StackNextFrame(frame.low.data(), frame.pixels()); },
                    {{"plain loop", [&] { plain.add(frame.low); }}});
}

/// Every round starts with a stack of a few frames, whose adding is not timed.
void finish(benchmark::State& state, unsigned int side) {
  const HdrFrame& frame = hdrFrame(side);
  CStacker stacker;
  require(stacker.Initialize(frame.pixels()) == 0, "Initialize");
  stackFrames(stacker, frame);
  checkMeans(stacker, frame);
  PlainStack plain(frame.pixels());
  unsigned short* means = nullptr;
  unsigned int count = 0;
  compareWithCopies(
      state, 6 * frame.pixels(), [&] { stacker.Finish(&means, nullptr, &count); },
      {{"plain loop", [&] { plain.finish(); }}}, 1,
      [&] {
        stackFrames(stacker, frame);
        plain.add(frame.low);
      });
}

/// The exact sums of the face, of planes and of their squares, decoding included.
void addToMean(benchmark::State& state, unsigned int side) {
  const HdrFrame& hdr = hdrFrame(side);
  const orvacam::Frame frame = orvacam::Frame::view(hdr.bytes.data(), hdr.bytes.size());
  orvacam::Stack stack;
  stack.plane("low");
  stack.add(frame);
  require(stack.result_u16()(1, 1) == hdr.low[side + 1], "mean");
  orvacam::Decoder decoder;
  orvacam::Planes low;
  low.high = low.merged = false;
  compareWithCopies(state, 39 * hdr.pixels(), [&] { stack.add(frame); },
                    {{"decode", [&] { decoder.decode(frame, low); }}});
}

/// Rows of frames that lie in memory, a few of them shifted against each other.
void combineRows(benchmark::State& state, unsigned int side, orvacam::Stack::Method method) {
  constexpr std::size_t frames = 16;
  const HdrFrame& hdr = hdrFrame(side);
  const std::size_t pixels = hdr.pixels() - frames;
  std::vector<const std::uint16_t*> rows;
  for (std::size_t f = 0; f < frames; ++f)
    rows.push_back(hdr.low.data() + f);
  const orvacam::Combining how{method};
  std::vector<double> values(pixels);
  const auto run = [&] { orvacam::combine(how, rows, pixels, {values.data(), nullptr, nullptr}); };
  run();
  std::vector<std::uint16_t> first(hdr.low.begin(), hdr.low.begin() + frames);
  std::sort(first.begin(), first.end());
  require(method != orvacam::Stack::Method::median || values[0] == (first[7] + first[8]) / 2.0, "median");
  compareWithCopies(state, (2 * frames + 8) * pixels, run);
}

}  // namespace

void orvacam::bench::addStackRows(bool small) {
  const unsigned int side = fullSide(small);
  addRowForTables("StackNextFrame, 16-bit", side,
                  [side](benchmark::State& state) { stackNextFrame(state, side); });
  addRowForTables("Finish of a stack", side, [side](benchmark::State& state) { finish(state, side); });
  addRow("face: add to a mean", side, [side](benchmark::State& state) { addToMean(state, side); });
  addRow("face: median of 16 rows", side,
         [side](benchmark::State& state) { combineRows(state, side, orvacam::Stack::Method::median); });
  addRow("face: sigma-clipped mean of 16 rows", side,
         [side](benchmark::State& state) { combineRows(state, side, orvacam::Stack::Method::sigma_clip); });
}
