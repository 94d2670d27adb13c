#ifndef ORVACAM_SIMULATOR_NOISE_H
#define ORVACAM_SIMULATOR_NOISE_H

#include <cstdint>

namespace orvacam::simulator {

// Random numbers that belong to a place: the same key and index give the same number on every machine and in
// any order. Only operations whose result IEEE 754 fixes are used.

/// 64 random bits of an index in the stream of a key.
inline std::uint64_t bitsAt(std::uint64_t key, std::uint64_t index) {
  std::uint64_t z = key + (index + 1) * 0x9E3779B97F4A7C15u;  // splitmix64
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

/// From 0 to below 1.
inline double uniformOf(std::uint64_t bits) {
  return static_cast<double>(bits >> 11) / 9007199254740992.0;
}

/// Normally distributed with mean 0 and deviation 1; both exact to 1e-4, tails up to seven deviations.
double normalOf(std::uint64_t bits);

/// Poisson distributed with this mean; 0 for a mean of 0 or below. Mean and variance are exact to 1e-3.
double poissonOf(double mean, std::uint64_t bits);

/// Streams of random numbers, each with a key of its own.
inline std::uint64_t keyOf(std::uint64_t seed, std::uint64_t stream, std::uint64_t part = 0) {
  return bitsAt(bitsAt(bitsAt(0, seed), stream), part);
}

}  // namespace orvacam::simulator

#endif  // ORVACAM_SIMULATOR_NOISE_H
