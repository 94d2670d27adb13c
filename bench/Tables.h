#ifndef ORVACAM_BENCH_TABLES_H
#define ORVACAM_BENCH_TABLES_H

#include <string>
#include <utility>
#include <vector>

#include "kernels/Kernels.h"

namespace orvacam::bench {

/// What the library chooses on this processor.
const kernels::KernelTable& chosenTable();

/// The kernel tables that this processor runs, by name, and "chosen" where the choice is a mixture of them.
/// Those that it does not run are named on stderr, once.
const std::vector<std::pair<std::string, const kernels::KernelTable*>>& tablesToCompare();

/// Adds what the figures depend on to the program's output: the compiler, and the choice of kernels in words.
void addContext();

}  // namespace orvacam::bench

#endif  // ORVACAM_BENCH_TABLES_H
