#ifndef ORVACAM_SRC_KERNELS_KERNEL_TABLES_H
#define ORVACAM_SRC_KERNELS_KERNEL_TABLES_H

#include "kernels/Kernels.h"

namespace orvacam::kernels {

// One source each.
extern const KernelTable plainTable;
#if defined(__x86_64__)
extern const KernelTable avx2Table;
extern const KernelTable avx512Table;
#elif defined(__aarch64__)
extern const KernelTable neonTable;
#endif

}  // namespace orvacam::kernels

/// Puts a function into a table's entry of the same name. The name stands once, so that no two entries can be
/// mixed up.
#define ORVACAM_PUT(table, scope, kernel) ((table).kernel = scope::kernel)
/// The same, and into the entry of the name with "Streaming": plain loops do not stream.
#define ORVACAM_PUT_TWICE(table, scope, kernel) ((table).kernel = (table).kernel##Streaming = scope::kernel)
/// The same of a template over Stores.
#define ORVACAM_PUT_STORES(table, scope, kernel) \
  ((table).kernel = scope::kernel<cached>, (table).kernel##Streaming = scope::kernel<streaming>)

#endif  // ORVACAM_SRC_KERNELS_KERNEL_TABLES_H
