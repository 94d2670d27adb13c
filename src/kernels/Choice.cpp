#include "kernels/Choice.h"

#include <initializer_list>

#include "kernels/KernelTables.h"

namespace orvacam::kernels {

namespace {

/// On processors of this maker and family, `table` is better off with one entry of another table.
struct Exception {
  Maker maker;
  std::uint32_t family;
  const KernelTable* table;
  const KernelTable* better;
  const char* entry;
  void (*take)(KernelTable& table, const KernelTable& better);
};

template <auto Entry>
void take(KernelTable& table, const KernelTable& better) {
  table.*Entry = better.*Entry;
}

#define ORVACAM_ENTRY(name) #name, take < &KernelTable::name>

constexpr std::initializer_list<Exception> exceptions = {
#if defined(__x86_64__)
    // Measured with 16 megapixels, AVX-512 against AVX2: unpack12 from memory to memory 2.72 against 1.44 ms,
    // an HDR frame into two planes 5.98 against 2.87 ms, a merge with terms per pixel and statistics 2.48
    // against 1.98 times memcpy.
    {Maker::amd, 26, &avx512Table, &avx2Table, ORVACAM_ENTRY(unpack12)},
    {Maker::amd, 26, &avx512Table, &avx2Table, ORVACAM_ENTRY(unpack12Streaming)},
    {Maker::amd, 26, &avx512Table, &avx2Table, ORVACAM_ENTRY(mergePackedPlanesStreaming)},
#endif
};

#undef ORVACAM_ENTRY

/// The last one: later tables are faster.
const KernelTable& lastThatRuns(const Processor& processor) {
  std::size_t count = 0;
  const KernelTable* const* const tables = allTables(count);
  while (--count > 0 && !runs(processor, *tables[count])) {
  }
  return *tables[count];
}

template <typename Each>
void forEachException(const Processor& processor, const KernelTable& table, const Each& each) {
  for (const Exception& exception : exceptions)
    if (exception.maker == processor.maker && exception.family == processor.family &&
        exception.table == &table && runs(processor, *exception.better))
      each(exception);
}

}  // namespace

bool runs(const Processor& processor, const KernelTable& table) {
  return (table.needs & ~processor.features) == 0;
}

KernelTable choose(const Processor& processor) {
  const KernelTable& table = lastThatRuns(processor);
  KernelTable chosen = table;
  forEachException(processor, table,
                   [&](const Exception& exception) { exception.take(chosen, *exception.better); });
  return chosen;
}

std::string choiceInWords(const Processor& processor) {
  const KernelTable& table = lastThatRuns(processor);
  std::string words = table.name;
  const KernelTable* last = nullptr;
  forEachException(processor, table, [&](const Exception& exception) {
    words += exception.better == last ? ", " : std::string(" with ") + exception.better->name + "'s ";
    words += exception.entry;
    last = exception.better;
  });
  return words;
}

}  // namespace orvacam::kernels
