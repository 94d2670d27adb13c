#ifndef ORVACAM_BENCH_BENCHMARKS_H
#define ORVACAM_BENCH_BENCHMARKS_H

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace orvacam::bench {

/// Rows of the tables, named "operation/kernel table/side of the frame". Small ones are for a test of the
/// benchmarks: tiny frames.
void addMergeImageRows(bool small);
void addOtherFrameRows(bool small);
void addStatisticsRows(bool small);
void addStackRows(bool small);
void addFileRows(bool small);
void addFaceRows(bool small);

inline unsigned int fullSide(bool small) {
  return small ? 128 : 4096;
}

using Run = std::function<void(benchmark::State&)>;

/// A row for the kernel table that the library chooses.
void addRow(const std::string& name, unsigned int side, const Run& run);
/// A row for each table that this processor runs.
void addRowForTables(const std::string& name, unsigned int side, const Run& run);

}  // namespace orvacam::bench

#endif  // ORVACAM_BENCH_BENCHMARKS_H
