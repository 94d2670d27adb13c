#ifndef ORVACAM_BENCH_MEMORY_H
#define ORVACAM_BENCH_MEMORY_H

#include <cstddef>
#include <functional>

namespace orvacam::bench {

/// Bytes that the work asks of malloc and operator new, in all, given back or not. The linker sends the calls
/// of everything that is linked statically to a counter.
std::size_t bytesAllocatedBy(const std::function<void()>& work);

/// By how many bytes the resident memory of this process grows at most while the work is done; negative where
/// the system does not say.
double residentGrowthOf(const std::function<void()>& work);

}  // namespace orvacam::bench

#endif  // ORVACAM_BENCH_MEMORY_H
