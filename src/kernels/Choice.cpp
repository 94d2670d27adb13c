#include "kernels/Choice.h"

#include <initializer_list>

#include "kernels/KernelTables.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace orvacam::kernels {

// ---- The tables

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

// ---- The processor

#if defined(__x86_64__)

namespace {

Maker makerOf(unsigned ebx, unsigned ecx, unsigned edx) {
  const bool amd = ebx == signature_AMD_ebx && ecx == signature_AMD_ecx && edx == signature_AMD_edx;
  return amd ? Maker::amd : Maker::other;
}

/// The base family is in bits 8 to 11 of leaf 1; from 15 on the extended family, bits 20 to 27, is added.
std::uint32_t familyOf(unsigned eax) {
  const std::uint32_t base = eax >> 8 & 15;
  return base < 15 ? base : base + (eax >> 20 & 255);
}

}  // namespace

Processor thisProcessor() {
  Processor processor{Maker::other, 0, 0};
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (__get_cpuid(0, &eax, &ebx, &ecx, &edx) != 0) processor.maker = makerOf(ebx, ecx, edx);
  if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0) processor.family = familyOf(eax);
  if (__builtin_cpu_supports("avx2") != 0) processor.features |= featureAvx2;
  if (__builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
      __builtin_cpu_supports("avx512vl") != 0)
    processor.features |= featureAvx512;
  return processor;
}

#else

Processor thisProcessor() {
  return {Maker::other, 0, 0};
}

#endif

// ---- The choice

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
    // AVX-512 over AVX2, medians of turns in one process, 512 KiB and 32 MiB a plane: unpack12 0.99 and 1.10,
    // swapBytes 0.99 and 1.11, swapBytesMirrored 0.92 and 1.12, subtractBias 0.95 and 1.10, addToSums16 1.03
    // and 1.06, keepLesser 1.00 and 1.11. sumCounts 1.6 to 2.1, of a few counts 5.
    {Maker::amd, 25, &avx512Table, &avx2Table,
     take<&KernelTable::unpack12, &KernelTable::swapBytes, &KernelTable::swapBytesMirrored,
          &KernelTable::subtractBias, &KernelTable::addToSums16, &KernelTable::keepLesser,
          &KernelTable::keepGreater, &KernelTable::sumCounts>,
     "avx512 with avx2's unpack12, swapBytes, swapBytesMirrored, subtractBias, addToSums16, keepLesser, "
     "keepGreater, sumCounts"},
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
  const KernelTable* last = tables[0];
  for (const KernelTable* table : tables)
    if (runs(processor, *table)) last = table;
  return *last;
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
