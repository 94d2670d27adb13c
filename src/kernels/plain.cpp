// The plain table: the loops, compiled for any processor of the architecture.

#include "kernels/KernelLoops.h"
#include "kernels/KernelTables.h"

namespace orvacam::kernels {

constexpr KernelTable plainTable = loops::table("plain", 0);

}  // namespace orvacam::kernels
