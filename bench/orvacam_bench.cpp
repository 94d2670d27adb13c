// What the library's operations cost, beside copies that move as many bytes as the operation must at least
// move, and beside what else a user might do. scripts/bench turns the output into tables.
//
//   orvacam_bench [--small] [Google Benchmark options]      --small: tiny frames, for a test of the
//   benchmarks

#include <benchmark/benchmark.h>

#include "Benchmarks.h"
#include "Compare.h"
#include "Tables.h"

namespace {

/// The kernels of the row that runs; null for those that the library chooses.
const orvacam::kernels::KernelTable* tableOfRow = nullptr;

/// Rounds of each row. A fixed number: to find one by trying would set every row up again and again.
int rounds = 15;

void registerRow(const std::string& name, const orvacam::bench::Run& run) {
  benchmark::RegisterBenchmark(name.c_str(), run)
      ->UseManualTime()
      ->Iterations(rounds)
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace

/// The library is linked without its own definition, so that each row brings its kernels.
const orvacam::kernels::KernelTable& orvacam::kernels::active() {
  return tableOfRow != nullptr ? *tableOfRow : bench::chosenTable();
}

void orvacam::bench::addRow(const std::string& name, unsigned int side, const Run& run) {
  registerRow(name + "/chosen/" + std::to_string(side), run);
}

void orvacam::bench::addRowForTables(const std::string& name, unsigned int side, const Run& run) {
  for (const auto& [tableName, table] : tablesToCompare()) {
    const auto runWithTable = [&table = *table, run](benchmark::State& state) {
      tableOfRow = &table;
      run(state);
      tableOfRow = nullptr;
    };
    registerRow(name + "/" + tableName + "/" + std::to_string(side), runWithTable);
  }
}

int main(int argc, char** argv) {
  const bool small = orvacam::bench::takeSmallOption(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  if (small) rounds = 1;
  for (const auto addRows : {orvacam::bench::addMergeImageRows, orvacam::bench::addOtherFrameRows,
                             orvacam::bench::addStatisticsRows, orvacam::bench::addStackRows,
                             orvacam::bench::addFileRows, orvacam::bench::addFaceRows})
    addRows(small);
  orvacam::bench::addContext();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
