// The list of tables.

#include "kernels/Kernels.h"

#include "kernels/KernelTables.h"

namespace orvacam::kernels {

namespace {

constexpr const KernelTable* tables[] = {
    &plainTable,
#if defined(__x86_64__)
    &avx2Table,
    &avx512Table,
#elif defined(__aarch64__)
    &neonTable,
#endif
};

}  // namespace

const KernelTable* const* allTables(std::size_t& count) {
  count = sizeof tables / sizeof tables[0];
  return tables;
}

const KernelTable& plain() {
  return plainTable;
}

}  // namespace orvacam::kernels
