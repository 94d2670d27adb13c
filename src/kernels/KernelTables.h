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

#endif  // ORVACAM_SRC_KERNELS_KERNEL_TABLES_H
