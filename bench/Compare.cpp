#include "Compare.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace orvacam::bench {

namespace {

constexpr std::size_t slowRounds = 3;

double processorTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double secondsOf(const std::function<void()>& work, std::size_t repeats) {
  const double start = processorTime();
  for (std::size_t i = 0; i < repeats; ++i)
    work();
  return (processorTime() - start) / static_cast<double>(repeats);
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

using Buffer = std::unique_ptr<unsigned char, decltype(&std::free)>;

Buffer alignedBuffer(std::size_t bytes, int value) {
  Buffer buffer(static_cast<unsigned char*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64)), &std::free);
  require(buffer != nullptr, "memory for a copy");
  std::memset(buffer.get(), value, bytes);
  return buffer;
}

/// Medians of the operation and of each contender.
std::vector<double> mediansOf(benchmark::State& state, const std::function<void()>& operation,
                              const std::vector<Contender>& contenders, std::size_t repeats,
                              const std::function<void()>& prepare) {
  if (prepare) prepare();
  operation();  // warm
  std::vector<std::vector<double>> times(contenders.size() + 1);
  std::size_t round = 0;
  for (auto _ : state) {
    if (prepare) prepare();
    times[0].push_back(secondsOf(operation, repeats));
    for (std::size_t i = 0; i < contenders.size(); ++i)
      if (!contenders[i].slow || round < slowRounds)
        times[i + 1].push_back(secondsOf(contenders[i].run, contenders[i].slow ? 1 : repeats));
    state.SetIterationTime(times[0].back() * static_cast<double>(repeats));
    ++round;
  }
  std::vector<double> medians;
  medians.reserve(times.size());
  for (const std::vector<double>& values : times)
    medians.push_back(median(values));
  state.counters["us"] = medians[0] * 1e6;
  return medians;
}

}  // namespace

void require(bool right, const char* what) {
  if (right) return;
  std::fprintf(stderr, "wrong result: %s\n", what);
  std::exit(1);
}

bool takeSmallOption(int& argc, char** argv) {
  const auto isSmall = [](const char* argument) { return std::strcmp(argument, "--small") == 0; };
  char** const end = std::remove_if(argv + 1, argv + argc, isSmall);
  const bool small = end != argv + argc;
  argc = static_cast<int>(end - argv);
  return small;
}

void copyPastCaches(unsigned char* target, const unsigned char* source, std::size_t bytes) {
  std::size_t i = 0;
#if defined(__SSE2__)
  for (; i + 64 <= bytes; i += 64) {
    __builtin_prefetch(source + i + 1024);
    for (std::size_t part = i; part < i + 64; part += 16)
      _mm_stream_si128(reinterpret_cast<__m128i*>(target + part),
                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + part)));
  }
  _mm_sfence();
#endif
  std::memcpy(target + i, source + i, bytes - i);
}

void compare(benchmark::State& state, const std::function<void()>& operation,
             const std::vector<Contender>& contenders, std::size_t repeats) {
  const std::vector<double> medians = mediansOf(state, operation, contenders, repeats, nullptr);
  for (std::size_t i = 0; i < contenders.size(); ++i)
    state.counters["over " + contenders[i].name] = medians[0] / medians[i + 1];
}

void compareWithCopies(benchmark::State& state, std::size_t bytes, const std::function<void()>& operation,
                       std::vector<Contender> contenders, std::size_t repeats,
                       const std::function<void()>& prepare) {
  const std::size_t half = bytes / 2;
  const Buffer source = alignedBuffer(half, 1);
  const Buffer target = alignedBuffer(half, 2);
  const std::size_t own = contenders.size();
  contenders.push_back({"memcpy", [&] {
                          std::memcpy(target.get(), source.get(), half);
                          benchmark::DoNotOptimize(*target);
                          benchmark::ClobberMemory();
                        }});
  contenders.push_back({"streaming copy", [&] { copyPastCaches(target.get(), source.get(), half); }});

  const std::vector<double> medians = mediansOf(state, operation, contenders, repeats, prepare);
  for (std::size_t i = 0; i <= own; ++i)
    state.counters["over " + contenders[i].name] = medians[0] / medians[i + 1];
  state.counters["over copy"] = medians[0] / std::min(medians[own + 1], medians[own + 2]);
  state.counters["bytes"] = static_cast<double>(bytes);
}

}  // namespace orvacam::bench
