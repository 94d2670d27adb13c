#ifndef ORVACAM_SRC_KERNELS_PROCESSOR_H
#define ORVACAM_SRC_KERNELS_PROCESSOR_H

#include <cstdint>

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

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_PROCESSOR_H
