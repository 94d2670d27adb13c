// The list of tables, and the one choice for the processor that runs.

#include "kernels/Kernels.h"

#include "kernels/KernelTables.h"

namespace orvacam::kernels {

namespace {

constexpr const KernelTable* tables[] = {
    &referenceTable,
#if defined(__x86_64__)
    &avx2Table,
    &avx512Table,
#endif
};
constexpr std::size_t tableCount = sizeof tables / sizeof tables[0];

/// The last one that the processor runs: later tables are faster.
const KernelTable& choose() {
  std::size_t best = tableCount;
  while (--best > 0 && !tables[best]->supported()) {
  }
  return *tables[best];
}

}  // namespace

const KernelTable* const* allTables(std::size_t& count) {
  count = tableCount;
  return tables;
}

const KernelTable& reference() {
  return referenceTable;
}

const KernelTable& active() {
  static const KernelTable& chosen = choose();
  return chosen;
}

}  // namespace orvacam::kernels
