// The list of tables, and the one choice for the processor that runs.

#include "kernels/Kernels.h"

#include <atomic>

#include "kernels/KernelTables.h"

namespace orvacam::kernels {

namespace {

constexpr const KernelTable* tables[] = {
    &referenceTable,
#if defined(__x86_64__)
    &avx2Table,
    &avx512Table,
#elif defined(__aarch64__)
    &neonTable,
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

std::atomic<const KernelTable*> given{nullptr};

}  // namespace

const KernelTable* const* allTables(std::size_t& count) {
  count = tableCount;
  return tables;
}

const KernelTable& reference() {
  return referenceTable;
}

const KernelTable& active() {
  if (const KernelTable* const table = given.load(std::memory_order_relaxed)) return *table;
  static const KernelTable& chosen = choose();
  return chosen;
}

void setActive(const KernelTable* table) {
  given.store(table, std::memory_order_relaxed);
}

}  // namespace orvacam::kernels
