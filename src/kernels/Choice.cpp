#include "kernels/Choice.h"

#include <initializer_list>

#include "kernels/KernelTables.h"

namespace orvacam::kernels {

namespace {

/// On processors of this maker and family, `table` takes some entries from another table. Its name then says
/// so.
struct Exception {
  Maker maker;
  std::uint32_t family;
  const KernelTable* table;
  const KernelTable* better;
  void (*take)(KernelTable& table, const KernelTable& better);
  const char* name;
};

template <auto... Entries>
void take(KernelTable& table, const KernelTable& better) {
  ((table.*Entries = better.*Entries), ...);
}

constexpr std::initializer_list<Exception> exceptions = {
#if defined(__x86_64__)
    // Measured with 16 megapixels, AVX-512 against AVX2: unpack12 from memory to memory 2.72 against 1.44 ms,
    // an HDR frame into two planes 5.98 against 2.87 ms, a merge with terms per pixel and statistics 2.48
    // against 1.98 times memcpy.
    {Maker::amd, 26, &avx512Table, &avx2Table,
     take<&KernelTable::unpack12, &KernelTable::unpack12Streaming, &KernelTable::mergePackedPlanesStreaming>,
     "avx512 with avx2's unpack12, unpack12Streaming, mergePackedPlanesStreaming"},
#endif
};

/// The last one: later tables are faster.
const KernelTable& lastThatRuns(const Processor& processor) {
  std::size_t count = 0;
  const KernelTable* const* const tables = allTables(count);
  while (--count > 0 && !runs(processor, *tables[count])) {
  }
  return *tables[count];
}

}  // namespace

bool runs(const Processor& processor, const KernelTable& table) {
  return (table.needs & ~processor.features) == 0;
}

KernelTable choose(const Processor& processor) {
  const KernelTable& table = lastThatRuns(processor);
  KernelTable chosen = table;
  for (const Exception& exception : exceptions)
    if (exception.maker == processor.maker && exception.family == processor.family &&
        exception.table == &table && runs(processor, *exception.better)) {
      exception.take(chosen, *exception.better);
      chosen.name = exception.name;
    }
  return chosen;
}

}  // namespace orvacam::kernels
