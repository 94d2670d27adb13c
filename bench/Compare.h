#ifndef ORVACAM_BENCH_COMPARE_H
#define ORVACAM_BENCH_COMPARE_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace orvacam::bench {

/// What an operation is compared with. A slow one takes part in the first few rounds only.
struct Contender {
  std::string name;
  std::function<void()> run;
  bool slow = false;
};

/// Runs the operation and its contenders in turns; each round of the benchmark is a round of all. The
/// benchmark's counters are the medians: "us" of the operation, and for each contender "over <name>", the
/// operation's time over the contender's. Times are processor times of this thread. An operation that takes
/// less than a millisecond is timed `repeats` at a time.
void compare(benchmark::State& state, const std::function<void()>& operation,
             const std::vector<Contender>& contenders, std::size_t repeats = 1);

/// The same beside copies that move `bytes` in all, half of them read and half written: "over memcpy", and
/// "over copy", the faster of memcpy and a copy past the caches. What has to be done before each round is not
/// timed.
void compareWithCopies(benchmark::State& state, std::size_t bytes, const std::function<void()>& operation,
                       std::vector<Contender> contenders = {}, std::size_t repeats = 1,
                       const std::function<void()>& prepare = nullptr);

void copyPastCaches(unsigned char* target, const unsigned char* source, std::size_t bytes);

/// Whether "--small" was given to a program; it is taken out of its arguments.
bool takeSmallOption(int& argc, char** argv);

/// Ends the program when a result is wrong: a fast wrong answer is no measurement.
void require(bool right, const char* what);

}  // namespace orvacam::bench

#endif  // ORVACAM_BENCH_COMPARE_H
