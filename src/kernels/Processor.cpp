#include "kernels/Processor.h"

#include "kernels/Kernels.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace orvacam::kernels {

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

}  // namespace orvacam::kernels
