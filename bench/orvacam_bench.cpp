// What the library's operations cost, beside copies that move as many bytes as the operation must at least
// move, and beside what else a user might do. scripts/bench turns the output into tables.
//
//   orvacam_bench [--small] [Google Benchmark options]      --small: tiny frames, for a test of the
//   benchmarks

#include <benchmark/benchmark.h>

#include "Benchmarks.h"
#include "Compare.h"
#include "kernels/Kernels.h"

namespace kernels = orvacam::kernels;

namespace {

/// Rounds of each row. A fixed number: to find one by trying would set every row up again and again.
int rounds = 15;

void registerRow(const std::string& name, const orvacam::bench::Run& run) {
  benchmark::RegisterBenchmark(name.c_str(), run)
      ->UseManualTime()
      ->Iterations(rounds)
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace

void orvacam::bench::addRow(const std::string& name, unsigned int side, const Run& run) {
  registerRow(name + "/chosen/" + std::to_string(side), run);
}

void orvacam::bench::addRowForTables(const std::string& name, unsigned int side, const Run& run) {
  std::size_t count = 0;
  const kernels::KernelTable* const* tables = kernels::allTables(count);
  for (std::size_t i = 0; i < count; ++i) {
    const kernels::KernelTable* const table = tables[i];
    if (!table->supported()) continue;
    const auto runWithTable = [table, run](benchmark::State& state) {
      kernels::setActive(table);
      run(state);
      kernels::setActive(nullptr);
    };
    registerRow(name + "/" + table->name + "/" + std::to_string(side), runWithTable);
  }
}

int main(int argc, char** argv) {
  const bool small = orvacam::bench::takeSmallOption(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  if (small) rounds = 1;
  for (const auto addRows :
       {orvacam::bench::addMergeImageRows, orvacam::bench::addOtherFrameRows,
        orvacam::bench::addStatisticsRows, orvacam::bench::addStackRows, orvacam::bench::addFileRows})
    addRows(small);
  benchmark::AddCustomContext("compiler", __VERSION__);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
