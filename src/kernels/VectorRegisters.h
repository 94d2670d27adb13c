#ifndef ORVACAM_SRC_KERNELS_VECTOR_REGISTERS_H
#define ORVACAM_SRC_KERNELS_VECTOR_REGISTERS_H

// A part of VectorKernels.h: what its kernels share about registers.

#include "kernels/KernelLoops.h"
#include "kernels/Kernels.h"

namespace orvacam::kernels {

constexpr std::size_t lanes = sizeof(Register) / sizeof(std::uint16_t);

enum Stores { cached, streaming };

template <Stores stores>
static void put(std::uint16_t* target, Register pixels) {
  if (stores == streaming)
    stream(target, pixels);
  else
    store(target, pixels);
}

static std::uint64_t load4(const std::uint16_t* pixels) {
  std::uint64_t four;
  __builtin_memcpy(&four, pixels, sizeof four);
  return four;
}

constexpr std::size_t lineBytes = 64;
constexpr std::size_t pixelsOfLine = lineBytes / sizeof(std::uint16_t);

/// Pixels ahead of the first cache line, where streaming begins.
static std::size_t pixelsToLine(const std::uint16_t* target) {
  return (0 - reinterpret_cast<std::uintptr_t>(target)) % lineBytes / sizeof *target;
}

namespace {

/// Smallest and largest pixels of each lane.
struct WideExtremes {
  Register minimum, maximum;
};

}  // namespace

static WideExtremes noExtremes() {
  return {spread16(65535), spread16(0)};
}

static void extend(Register pixels, WideExtremes* extremes) {
  *extremes = {minimum16(extremes->minimum, pixels), maximum16(extremes->maximum, pixels)};
}

static Extremes narrowed(const WideExtremes& wide) {
  const Register all = spread16(65535);
  const auto largest = static_cast<std::uint16_t>(65535 - smallestLane16(subtract16(all, wide.maximum)));
  return {smallestLane16(wide.minimum), largest};
}

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_REGISTERS_H
