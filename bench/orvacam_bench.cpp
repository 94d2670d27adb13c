// How long an operation takes, as a ratio to moving as many bytes as it must at least move: to memcpy, and to
// C, the faster of memcpy and a streaming copy. Operation and copies take turns in one run; medians are
// compared.
//
//   orvacam_bench [--small] [Google Benchmark options]

#include <benchmark/benchmark.h>
#include <orvacam.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kernels/Kernels.h"
#include "simulator/Scene.h"

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

namespace {

namespace kernels = orvacam::kernels;
namespace sim = orvacam::simulator;
using Pixels = std::vector<unsigned short>;
using Bytes = std::vector<unsigned char>;

unsigned int frameSize = 4096;
std::size_t pixelCount() {
  return std::size_t{frameSize} * frameSize;
}

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "wrong result: %s\n", what);
  std::exit(1);
}

void streamingCopy(unsigned char* target, const unsigned char* source, std::size_t bytes) {
#if defined(__x86_64__)
  for (std::size_t i = 0; i + 16 <= bytes; i += 16) {
    _mm_prefetch(reinterpret_cast<const char*>(source + i + 512), _MM_HINT_NTA);
    _mm_stream_si128(reinterpret_cast<__m128i*>(target + i),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i)));
  }
  _mm_sfence();
#else
  std::memcpy(target, source, bytes);
#endif
}

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

/// Runs the operation beside copies that move `bytes` in all (half read, half written).
void measure(benchmark::State& state, std::size_t bytes, const std::function<void()>& operation) {
  const std::size_t half = bytes / 2;
  auto* const source = static_cast<unsigned char*>(std::aligned_alloc(64, (half + 63) / 64 * 64));
  auto* const target = static_cast<unsigned char*>(std::aligned_alloc(64, (half + 63) / 64 * 64));
  std::memset(source, 1, half);
  std::memset(target, 2, half);
  operation();  // warm
  std::vector<double> own, copy, stream;
  for (auto _ : state) {
    own.push_back(secondsOf(operation));
    copy.push_back(secondsOf([&] { std::memcpy(target, source, half); }));
    benchmark::DoNotOptimize(target[half / 2]);
    stream.push_back(secondsOf([&] { streamingCopy(target, source, half); }));
    state.SetIterationTime(own.back());
  }
  state.counters["memcpy"] = median(own) / median(copy);
  state.counters["C"] = median(own) / std::min(median(copy), median(stream));
  state.counters["GBps"] = static_cast<double>(bytes) / median(own) / 1e9;
  std::free(source);
  std::free(target);
}

Pixels noise(std::size_t count, unsigned int largest) {
  Pixels pixels(count);
  unsigned int bits = 12345;
  for (unsigned short& pixel : pixels) {
    bits = bits * 1664525 + 1013904223;
    pixel = static_cast<unsigned short>((bits >> 12) % (largest + 1));
  }
  return pixels;
}

// ---- Kernels
// -------------------------------------------------------------------------------------------------

void unpack(benchmark::State& state, const kernels::KernelTable* table) {
  const std::size_t pairs = pixelCount() / 2;
  Bytes packed(3 * pairs);
  for (std::size_t i = 0; i < packed.size(); ++i)
    packed[i] = static_cast<unsigned char>(i * 7);
  Pixels out(2 * pairs), expected(2 * pairs);
  measure(state, 3 * pairs + 4 * pairs, [&] { table->unpack12(packed.data(), out.data(), pairs); });
  kernels::reference().unpack12(packed.data(), expected.data(), pairs);
  require(out == expected, "unpack12");
}

void mergeUniform(benchmark::State& state, const kernels::KernelTable* table) {
  const Pixels low = noise(pixelCount(), 4095), high = noise(pixelCount(), 4095);
  Pixels out(pixelCount()), expected(pixelCount());
  const kernels::MergeRule rule = {3, 10, 3700, 128, 0};
  const kernels::UniformTerms terms = {0, 0, 6448, 1024};
  measure(state, 6 * pixelCount(),
          [&] { table->mergeUniform(low.data(), high.data(), out.data(), out.size(), rule, terms); });
  kernels::reference().mergeUniform(low.data(), high.data(), expected.data(), out.size(), rule, terms);
  require(out == expected, "mergeUniform");
}

void mergePlanes(benchmark::State& state, const kernels::KernelTable* table) {
  const Pixels low = noise(pixelCount(), 4095), high = noise(pixelCount(), 4095);
  const std::vector<std::int16_t> add(pixelCount(), -3);
  const Pixels mul(pixelCount(), 1024);
  Pixels out(pixelCount()), expected(pixelCount());
  const kernels::MergeRule rule = {3, 10, 3700, 128, 0};
  const kernels::PlaneTerms terms = {add.data(), add.data(), mul.data(), mul.data()};
  measure(state, 10 * pixelCount(),
          [&] { table->mergePlanes(low.data(), high.data(), out.data(), out.size(), rule, terms); });
  kernels::reference().mergePlanes(low.data(), high.data(), expected.data(), out.size(), rule, terms);
  require(out == expected, "mergePlanes");
}

void swapBytes(benchmark::State& state, const kernels::KernelTable* table) {
  const Pixels source = noise(pixelCount(), 65535);
  Pixels out(pixelCount());
  measure(state, 4 * pixelCount(), [&] { table->swapBytes(source.data(), out.data(), out.size()); });
  require(out[3] == static_cast<unsigned short>(source[3] << 8 | source[3] >> 8), "swapBytes");
}

void subtractBias(benchmark::State& state, const kernels::KernelTable* table) {
  Pixels plane = noise(pixelCount(), 65535);
  const Pixels bias(pixelCount(), 0);
  const Pixels before = plane;
  measure(state, 6 * pixelCount(), [&] { table->subtractBias(plane.data(), bias.data(), plane.size()); });
  require(plane == before, "subtractBias");
}

// ---- Operations
// ----------------------------------------------------------------------------------------------

void statistics(benchmark::State& state) {
  const Pixels plane = noise(pixelCount(), 4095);
  const auto stats = std::make_unique<CFrameStatistics>();
  image_plane_stats_t result{};
  measure(state, 2 * pixelCount(), [&] {
    stats->Reset();
    for (unsigned int y = 0; y < frameSize; ++y)
      stats->AddRow(plane.data() + std::size_t{y} * frameSize, frameSize, 0, static_cast<int>(y));
    stats->Compute();
    stats->GetResults(result);
  });
  double sum = 0;
  for (const unsigned short pixel : plane)
    sum += pixel;
  require(result.dMean == sum / static_cast<double>(plane.size()), "statistics");
}

struct HdrFrame {
  HdrFrame() {
    const sim::Camera& camera = *sim::findCamera("GSENSE4040");
    sim::HeaderFields fields = *sim::headerFor(camera, "hdr");
    fields.width = fields.height = frameSize;
    sim::Sky sky;
    sky.background = 60;
    planes = sim::exposeSky(camera, fields, sky);
    bytes = sim::encodeFrame(fields, 3, planes);
  }
  static const HdrFrame& get() {
    static const HdrFrame frame;
    return frame;
  }
  std::vector<sim::Plane> planes;
  Bytes bytes;
};

void mergeImage(benchmark::State& state, bool withStatistics) {
  Bytes frame = HdrFrame::get().bytes;
  CAlgo algo;
  algo.Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
  unpacked_images_t images{};
  images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = withStatistics;
  measure(state, 9 * pixelCount(), [&] {
    require(algo.MergeImage(frame.data(), frame.size(), &images, withStatistics ? &stats : nullptr) == 0,
            "status");
  });
  require(std::equal(images.pLowImage, images.pLowImage + pixelCount(), HdrFrame::get().planes[0].begin()),
          "low plane");
  algo.FreeFramePointers(&images);
  algo.FreeStatsPointers(&stats);
}

void imageFile(benchmark::State& state, bool tiff) {
  const Pixels plane = noise(pixelCount(), 65535);
  CFrameMetaData header;
  header.ReInitialize(true);
  header.SetDimensions(frameSize, frameSize);
  header.SetPixelEndianFormat(true);
  const std::string path =
      (std::filesystem::temp_directory_path() / ("orvacam-bench-" + std::to_string(getpid()))).string();
  measure(state, 4 * pixelCount(), [&] {
    const int status = tiff ? CTiffMaker().CreateImageFile(path, plane.data(), header)
                            : CFitsInterface().CreateImageFile(path, plane.data(), header);
    require(status >= 0, "file");
  });
  std::filesystem::remove(path);
}

void stackFrame(benchmark::State& state) {
  const Pixels plane = noise(pixelCount(), 65535);
  CStacker stacker;
  require(stacker.Initialize(plane.size()) == 0, "stack");
  measure(state, 10 * pixelCount(),
          [&] { require(stacker.StackNextFrame(plane.data(), plane.size()) == 0, "stack"); });
  unsigned short* mean = nullptr;
  unsigned int count = 0;
  require(stacker.Finish(&mean, nullptr, &count) == 0 && std::equal(plane.begin(), plane.end(), mean),
          "mean");
}

void add(const std::string& name, const std::function<void(benchmark::State&)>& run) {
  benchmark::RegisterBenchmark(name.c_str(), run)->UseManualTime()->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> arguments;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--small") == 0)
      frameSize = 256;
    else
      arguments.push_back(argv[i]);
  }
  int count = static_cast<int>(arguments.size());
  std::size_t tables = 0;
  const kernels::KernelTable* const* all = kernels::allTables(tables);
  for (std::size_t i = 0; i < tables; ++i) {
    const kernels::KernelTable* const table = all[i];
    if (!table->supported()) continue;
    const std::string suffix = std::string("/") + table->name;
    add("unpack 12-bit" + suffix, [table](benchmark::State& state) { unpack(state, table); });
    add("merge, uniform terms" + suffix, [table](benchmark::State& state) { mergeUniform(state, table); });
    add("merge, terms per pixel" + suffix, [table](benchmark::State& state) { mergePlanes(state, table); });
    add("swap bytes" + suffix, [table](benchmark::State& state) { swapBytes(state, table); });
    add("subtract bias" + suffix, [table](benchmark::State& state) { subtractBias(state, table); });
  }
  add("statistics of a plane", statistics);
  add("MergeImage, three planes", [](benchmark::State& state) { mergeImage(state, false); });
  add("MergeImage, three planes and statistics", [](benchmark::State& state) { mergeImage(state, true); });
  add("FITS file", [](benchmark::State& state) { imageFile(state, false); });
  add("TIFF file", [](benchmark::State& state) { imageFile(state, true); });
  add("StackNextFrame", stackFrame);
  benchmark::Initialize(&count, arguments.data());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
