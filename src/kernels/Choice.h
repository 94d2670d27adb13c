#ifndef ORVACAM_SRC_KERNELS_CHOICE_H
#define ORVACAM_SRC_KERNELS_CHOICE_H

// Which kernels a processor gets: the last table that it runs, but for the entries of which another table's
// were measured to be faster on it. Choice.cpp holds these exceptions as a table.

#include <cstdint>

#include "kernels/Kernels.h"

namespace orvacam::kernels {

enum class Maker { other, amd };

/// What the choice of kernels looks at.
struct Processor {
  Maker maker;
  std::uint32_t family;    ///< the maker's number; 0 where the architecture has none
  std::uint32_t features;  ///< bits of Feature that processor and operating system support
};

/// The processor that runs this program.
Processor thisProcessor();

/// Whether the processor has what the table needs.
bool runs(const Processor& processor, const KernelTable& table);

/// A copy of the last table that the processor runs, with the entries of others that are faster on it. Its
/// name says what it is: "avx512", or "avx512 with avx2's unpack12, ...".
KernelTable choose(const Processor& processor);

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_CHOICE_H
