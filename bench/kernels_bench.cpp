// Each kernel of each table over planes of 4096 x 4096 and 512 x 512 pixels, beside copies of as many bytes
// as it moves. scripts/bench turns the output into a table of ratios.
//
//   kernels_bench [--small] [Google Benchmark options]      --small: tiny frames, for a test of the
//   benchmarks

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Compare.h"
#include "Tables.h"
#include "kernels/Kernels.h"

namespace {

namespace kernels = orvacam::kernels;
using kernels::KernelTable;

/// Frames are handed to kernels row by row, as the library does.
constexpr std::size_t rowPixels = 4096;

/// Memory that begins on a cache line, where the library puts its planes and the copies have theirs.
template <typename T>
struct LineAllocator {
  using value_type = T;
  LineAllocator() = default;
  template <typename Other>
  LineAllocator(const LineAllocator<Other>&) {}
  T* allocate(std::size_t count) { return static_cast<T*>(::operator new(count * sizeof(T), line)); }
  void deallocate(T* memory, std::size_t) { ::operator delete(memory, line); }
  bool operator==(const LineAllocator&) const { return true; }
  bool operator!=(const LineAllocator&) const { return false; }
  static constexpr std::align_val_t line{64};
};

template <typename T>
using OnLines = std::vector<T, LineAllocator<T>>;
using Plane = OnLines<std::uint16_t>;

/// Planes of a frame of a star field: a narrow sky, a few bright pixels; the high gain saturates at 4095.
struct Frame {
  std::size_t pixels;
  OnLines<std::uint8_t> packed;
  Plane low, high, wide, noise, addLow, addHigh, mulLow, mulHigh, output;
  OnLines<std::uint32_t> sums, counts;
  std::uint16_t smallest = 0, largest = 0;

  explicit Frame(std::size_t count)
      : pixels(count), packed(count / 2 * 3), output(count), sums(count), counts(65536) {
    std::mt19937 random(20240517);
    std::normal_distribution<float> sky(100.0F, 3.0F);
    for (std::uint8_t& byte : packed)
      byte = static_cast<std::uint8_t>(random());
    for (auto* plane : {&low, &high, &wide, &noise, &addLow, &addHigh, &mulLow, &mulHigh})
      plane->resize(count);
    for (std::size_t i = 0; i < count; ++i) {
      const auto bits = static_cast<std::uint32_t>(random());
      const float signal = sky(random) + (bits % 256 == 0 ? static_cast<float>(bits >> 22) : 0.0F);
      low[i] = static_cast<std::uint16_t>(std::min(signal, 4095.0F));
      high[i] = static_cast<std::uint16_t>(std::min(6.0F * signal, 4095.0F));
      wide[i] = static_cast<std::uint16_t>(6.0F * signal);
      noise[i] = static_cast<std::uint16_t>(bits >> 8 & 4095);
      addLow[i] = static_cast<std::uint16_t>(bits & 63);
      addHigh[i] = static_cast<std::uint16_t>(bits >> 6 & 63);
      mulLow[i] = static_cast<std::uint16_t>(6144 + (bits >> 12 & 127));
      mulHigh[i] = static_cast<std::uint16_t>(1024 + (bits >> 20 & 31));
    }
  }
};

constexpr kernels::MergeRule rule = {3, 10, 3700, 128, 0};
constexpr kernels::UniformTerms identity = {0, 0, 1024, 1024};

kernels::PlaneTerms planeTerms(const Frame& frame, std::size_t first) {
  return {reinterpret_cast<const std::int16_t*>(frame.addLow.data() + first),
          reinterpret_cast<const std::int16_t*>(frame.addHigh.data() + first), frame.mulLow.data() + first,
          frame.mulHigh.data() + first};
}

std::uint16_t swappedNaively(std::uint16_t value) {
  return static_cast<std::uint16_t>(value % 256 * 256 + value / 256);
}

/// What a benchmark does, how many bytes it must at least move, and whether its output is right.
struct Operation {
  const char* name;
  double bytesPerPixel;
  std::function<void(const KernelTable&, Frame&)> run;
  std::function<bool(const Frame&)> isRight;
};

template <typename Kernel>
void byRows(const Frame& frame, const Kernel& kernel) {
  for (std::size_t first = 0; first < frame.pixels; first += rowPixels)
    kernel(first, std::min(rowPixels, frame.pixels - first));
}

bool outputIs(const Frame& frame, const std::function<std::uint16_t(std::size_t)>& expected) {
  for (std::size_t i = 0; i < frame.pixels; ++i)
    if (frame.output[i] != expected(i)) return false;
  return true;
}

bool isUnpacked(const Frame& frame) {
  return outputIs(frame, [&](std::size_t i) {
    const std::uint8_t* const three = frame.packed.data() + i / 2 * 3;
    const std::uint32_t whole = three[0] * 65536U + three[1] * 256U + three[2];
    return static_cast<std::uint16_t>(i % 2 == 0 ? whole >> 12 : whole & 4095U);
  });
}

/// Every value of these planes is far from the clamps, so that the rule is short.
std::uint16_t mergedNaively(std::uint32_t low, std::uint32_t high) {
  return static_cast<std::uint16_t>(high >= 3700 || (low > high && low - high > 128) ? low : high);
}

bool isMergedByIdentity(const Frame& frame) {
  return outputIs(frame, [&](std::size_t i) { return mergedNaively(frame.low[i], frame.high[i]); });
}

bool isMergedByPlanes(const Frame& frame) {
  const auto corrected = [](std::uint16_t pixel, std::uint16_t additive, std::uint16_t multiplicative) {
    const double sum = std::min(pixel + additive / 8.0, 4095.875);
    return static_cast<std::uint32_t>(std::min(sum * (multiplicative / 1024.0), 65535.0) + 0.5);
  };
  return outputIs(frame, [&](std::size_t i) {
    return mergedNaively(corrected(frame.low[i], frame.addLow[i], frame.mulLow[i]),
                         corrected(frame.high[i], frame.addHigh[i], frame.mulHigh[i]));
  });
}

template <typename Unpack>
void unpackFrame(Frame& frame, const Unpack& unpack) {
  byRows(frame, [&](std::size_t first, std::size_t count) {
    unpack(frame.packed.data() + first / 2 * 3, frame.output.data() + first, count / 2);
  });
}

template <typename Merge>
void mergeUniformly(Frame& frame, const Merge& merge) {
  byRows(frame, [&](std::size_t first, std::size_t count) {
    merge(frame.low.data() + first, frame.high.data() + first, frame.output.data() + first, count, rule,
          identity);
  });
}

template <typename Merge>
void mergeByPlanes(Frame& frame, const Merge& merge) {
  byRows(frame, [&](std::size_t first, std::size_t count) {
    merge(frame.low.data() + first, frame.high.data() + first, frame.output.data() + first, count, rule,
          planeTerms(frame, first));
  });
}

/// Extremes and counts of each row, as the statistics of a plane take them.
Operation counting(const char* name, Plane Frame::*plane) {
  return {name, 2,
          [plane](const KernelTable& table, Frame& frame) {
            const std::uint16_t* const pixels = (frame.*plane).data();
            frame.smallest = frame.largest = pixels[0];
            byRows(frame, [&](std::size_t first, std::size_t count) {
              kernels::Extremes extremes;
              table.findExtremes(pixels + first, count, &extremes);
              frame.smallest = std::min(frame.smallest, extremes.minimum);
              frame.largest = std::max(frame.largest, extremes.maximum);
              table.countValues(pixels + first, count, frame.counts.data(), 0, pixels + first + count,
                                2 * count);
            });
          },
          [plane](const Frame& frame) {
            std::vector<std::uint32_t> expected(65536);
            for (const std::uint16_t pixel : frame.*plane)
              ++expected[pixel];
            const auto extremes = std::minmax_element((frame.*plane).begin(), (frame.*plane).end());
            return std::equal(expected.begin(), expected.end(), frame.counts.begin()) &&
                   frame.smallest == *extremes.first && frame.largest == *extremes.second;
          }};
}

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = {
      {"unpack12", 3.5, [](const KernelTable& table, Frame& frame) { unpackFrame(frame, table.unpack12); },
       isUnpacked},
      {"unpack12Streaming", 3.5,
       [](const KernelTable& table, Frame& frame) {
         unpackFrame(frame, table.unpack12Streaming);
         table.finishStreaming();
       },
       isUnpacked},
      {"mergeUniform", 6,
       [](const KernelTable& table, Frame& frame) { mergeUniformly(frame, table.mergeUniform); },
       isMergedByIdentity},
      {"mergeUniformStreaming", 6,
       [](const KernelTable& table, Frame& frame) {
         mergeUniformly(frame, table.mergeUniformStreaming);
         table.finishStreaming();
       },
       isMergedByIdentity},
      {"mergePlanes", 14,
       [](const KernelTable& table, Frame& frame) { mergeByPlanes(frame, table.mergePlanes); },
       isMergedByPlanes},
      {"mergePlanesStreaming", 14,
       [](const KernelTable& table, Frame& frame) {
         mergeByPlanes(frame, table.mergePlanesStreaming);
         table.finishStreaming();
       },
       isMergedByPlanes},
      counting("count, sky", &Frame::low),
      counting("count, 12-bit noise", &Frame::noise),
      counting("count, merged", &Frame::wide),
      {"swapBytes", 4,
       [](const KernelTable& table, Frame& frame) {
         table.swapBytes(frame.low.data(), frame.output.data(), frame.pixels);
       },
       [](const Frame& frame) {
         return outputIs(frame, [&](std::size_t i) { return swappedNaively(frame.low[i]); });
       }},
      {"swapBytesStreaming", 4,
       [](const KernelTable& table, Frame& frame) {
         table.swapBytesStreaming(frame.low.data(), frame.output.data(), frame.pixels);
         table.finishStreaming();
       },
       [](const Frame& frame) {
         return outputIs(frame, [&](std::size_t i) { return swappedNaively(frame.low[i]); });
       }},
      {"swapBytes in place", 4,
       [](const KernelTable& table, Frame& frame) {
         table.swapBytes(frame.output.data(), frame.output.data(), frame.pixels);
       },
       [](const Frame& frame) {  // from an output that held the high-gain plane
         return outputIs(frame, [&](std::size_t i) { return swappedNaively(frame.high[i]); });
       }},
      {"subtractBias", 6,
       [](const KernelTable& table, Frame& frame) {
         table.subtractBias(frame.output.data(), frame.addLow.data(), frame.pixels);
       },
       [](const Frame& frame) {  // from an output that held the high-gain plane
         return outputIs(frame, [&](std::size_t i) {
           return static_cast<std::uint16_t>(std::max(frame.high[i] - frame.addLow[i], 0));
         });
       }},
      {"addToSums16", 10,
       [](const KernelTable& table, Frame& frame) {
         table.addToSums16(frame.low.data(), frame.sums.data(), frame.pixels);
       },
       [](const Frame& frame) { return std::equal(frame.low.begin(), frame.low.end(), frame.sums.begin()); }},
  };
  return all;
}

bool allRight = true;

void fail(benchmark::State& state) {
  state.SkipWithError("wrong output");
  allRight = false;
}

void benchmarkKernel(benchmark::State& state, const Operation& operation, const KernelTable& table,
                     Frame& frame) {
  std::fill(frame.counts.begin(), frame.counts.end(), 0U);
  std::fill(frame.sums.begin(), frame.sums.end(), 0U);
  frame.output = frame.high;
  operation.run(table, frame);
  if (!operation.isRight(frame)) {
    fail(state);
    return;
  }
  for (auto _ : state) {
    operation.run(table, frame);
    benchmark::ClobberMemory();
  }
  state.counters["bytes"] = operation.bytesPerPixel * static_cast<double>(frame.pixels);
}

// ---- What to compare with

void benchmarkCopy(benchmark::State& state, bool streaming, std::size_t bytes) {
  const std::size_t half = bytes / 2 / 64 * 64;  // read once, written once
  const OnLines<std::uint8_t> source(half, 1);
  OnLines<std::uint8_t> target(half, 2);
  for (auto _ : state) {
    if (streaming)
      orvacam::bench::copyPastCaches(target.data(), source.data(), half);
    else
      std::memcpy(target.data(), source.data(), half);
    benchmark::ClobberMemory();
  }
  state.counters["bytes"] = static_cast<double>(bytes);
  if (source != target) fail(state);
}

void benchmarkRead(benchmark::State& state, const Frame& frame) {
  std::uint64_t seen = 0;
  for (auto _ : state) {
    for (std::size_t i = 0; i + 4 <= frame.pixels; i += 4) {
      std::uint64_t four = 0;
      std::memcpy(&four, frame.low.data() + i, sizeof four);
      seen ^= four;
    }
    benchmark::DoNotOptimize(seen);
  }
  state.counters["bytes"] = 2.0 * static_cast<double>(frame.pixels);
}

void registerSize(std::size_t side) {
  const auto frame = std::make_shared<Frame>(side * side);
  const std::string size = "/" + std::to_string(side);
  std::set<std::size_t> copies;
  for (const Operation& operation : operations()) {
    for (const auto& [name, table] : orvacam::bench::tablesToCompare())
      benchmark::RegisterBenchmark((operation.name + ("/" + name) + size).c_str(),
                                   [&operation, &table = *table, frame](benchmark::State& state) {
                                     benchmarkKernel(state, operation, table, *frame);
                                   })
          ->Unit(benchmark::kMicrosecond);
    copies.insert(static_cast<std::size_t>(operation.bytesPerPixel * static_cast<double>(frame->pixels)));
  }
  for (const std::size_t bytes : copies)
    for (const bool streaming : {false, true})
      benchmark::RegisterBenchmark(
          ((streaming ? "copy streaming/" : "copy memcpy/") + std::to_string(bytes) + size).c_str(),
          [streaming, bytes](benchmark::State& state) { benchmarkCopy(state, streaming, bytes); })
          ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark(("read/" + std::to_string(2 * frame->pixels) + size).c_str(),
                               [frame](benchmark::State& state) { benchmarkRead(state, *frame); })
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
  const bool small = orvacam::bench::takeSmallOption(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  for (const std::size_t side : small ? std::vector<std::size_t>{128} : std::vector<std::size_t>{4096, 512})
    registerSize(side);
  orvacam::bench::addContext();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return allRight ? 0 : 1;
}
