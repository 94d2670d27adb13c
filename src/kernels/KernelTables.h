#ifndef ORVACAM_SRC_KERNELS_KERNEL_TABLES_H
#define ORVACAM_SRC_KERNELS_KERNEL_TABLES_H

#include "kernels/Kernels.h"

namespace orvacam::kernels {

// One source each; where a table has no faster version of a kernel, it names another table's.
extern const KernelTable referenceTable;
#if defined(__x86_64__)
extern const KernelTable avx2Table;
extern const KernelTable avx512Table;
#elif defined(__aarch64__)
extern const KernelTable neonTable;
#endif

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_KERNEL_TABLES_H
