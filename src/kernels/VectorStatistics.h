#ifndef ORVACAM_SRC_KERNELS_VECTOR_STATISTICS_H
#define ORVACAM_SRC_KERNELS_VECTOR_STATISTICS_H

// A part of VectorKernels.h: extremes, positions and counts.

#include "kernels/VectorRegisters.h"

namespace orvacam::kernels {

/// Two chains of registers, as each minimum waits for the one before it.
static void findExtremes(const std::uint16_t* pixels, std::size_t count, Extremes* extremes) {
  if (count < 2 * lanes) {
    loops::findExtremes(pixels, count, extremes);
    return;
  }
  WideExtremes some = noExtremes();
  WideExtremes others = noExtremes();
  for (std::size_t i = 0; i < count; i += 2 * lanes) {
    const std::size_t at = i + 2 * lanes <= count ? i : count - 2 * lanes;  // the last register overlaps
    extend(load(pixels + at), &some);
    extend(load(pixels + at + lanes), &others);
  }
  *extremes = narrowed({minimum16(some.minimum, others.minimum), maximum16(some.maximum, others.maximum)});
}

static std::size_t findFirst(const std::uint16_t* pixels, std::size_t count, std::uint16_t value) {
  const Register wanted = spread16(value);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes)
    if (const unsigned found = lanesEqual16(load(pixels + i), wanted))
      return i + static_cast<unsigned>(__builtin_ctz(found)) / bitsOfLane;
  return i + loops::findFirst(pixels + i, count - i, value);
}

static std::size_t findEach(const std::uint16_t* values, std::size_t count, std::uint16_t value,
                            std::uint16_t* positions) {
  constexpr unsigned firstBits = ~0U / ((1U << bitsOfLane) - 1);  // one for each lane
  constexpr std::size_t blockRegisters = 64;
  const Register wanted = spread16(value);
  std::size_t found = 0;
  std::size_t i = 0;
  // First a list of the registers that hold the value, without a branch: the processor cannot predict them.
  while (i + lanes <= count) {
    const std::size_t registers = (count - i) / lanes < blockRegisters ? (count - i) / lanes : blockRegisters;
    std::uint8_t some[blockRegisters];
    std::size_t having = 0;
    for (std::size_t r = 0; r < registers; ++r) {
      some[having] = static_cast<std::uint8_t>(r);
      having += lanesEqual16(load(values + i + r * lanes), wanted) != 0 ? 1U : 0U;
    }
    for (std::size_t k = 0; k < having; ++k) {
      const std::size_t first = i + some[k] * lanes;
      for (unsigned equal = lanesEqual16(load(values + first), wanted) & firstBits; equal != 0;
           equal &= equal - 1)
        positions[found++] =
            static_cast<std::uint16_t>(first + static_cast<unsigned>(__builtin_ctz(equal)) / bitsOfLane);
    }
    i += registers * lanes;
  }
  const std::size_t behind = loops::findEach(values + i, count - i, value, positions + found);
  for (const std::size_t end = found + behind; found < end; ++found)
    positions[found] = static_cast<std::uint16_t>(positions[found] + i);
  return found;
}

/// Counting has no vector form: each value takes one addition to memory, about one a cycle.
static void countValues(const std::uint16_t* values, std::size_t count, std::uint32_t* counts,
                        std::size_t stride, const void* next, std::size_t nextBytes) {
  static_assert(countBanks == 4);
  constexpr std::size_t valuesOfTurn = 16, bytesOfTurn = 64;
  const auto ahead = reinterpret_cast<std::uintptr_t>(next);
  std::uint32_t* const second = counts + stride;
  std::uint32_t* const third = second + stride;
  std::uint32_t* const fourth = third + stride;
  std::size_t i = 0;
  for (std::size_t asked = 0; i + valuesOfTurn <= count; i += valuesOfTurn, asked += bytesOfTurn) {
    if (asked < nextBytes) __builtin_prefetch(reinterpret_cast<const void*>(ahead + asked));
    for (std::size_t of = 0; of < valuesOfTurn; of += 4) {
      const std::uint64_t four = load4(values + i + of);
      ++counts[four & 0xFFFF];
      ++second[four >> 16 & 0xFFFF];
      ++third[four >> 32 & 0xFFFF];
      ++fourth[four >> 48];
    }
  }
  loops::countValues(values + i, count - i, counts, stride, nullptr, 0);
}

static Register pairPlaces(Register pixels, Register first) {
  const Register distances = subtract16(pixels, first);
  const Register together = eitherBits(distances, shiftRight32(distances, spread32(16 - pairWindowBits)));
  constexpr std::uint32_t outside = 0xFFFFU >> pairWindowBits << pairWindowBits;
  return keepWhereNone32(bothBits(together, spread32((1U << 2 * pairWindowBits) - 1)),
                         bothBits(distances, spread16(outside)));
}

static void placePairs(const std::uint16_t* pixels, std::size_t pairs, std::uint16_t first,
                       std::uint16_t* places, Extremes* extremes) {
  if (pairs < lanes) {
    loops::placePairs(pixels, pairs, first, places, extremes);
    return;
  }
  const Register wideFirst = spread16(first);
  Register smallest = spread16(65535);
  Register largest = spread16(0);
  for (std::size_t pair = 0; pair < pairs; pair += lanes) {
    const std::size_t at = pair + lanes <= pairs ? pair : pairs - lanes;  // the last register overlaps
    const Register some = load(pixels + 2 * at);
    const Register others = load(pixels + 2 * at + lanes);
    store(places + at, narrowed32(pairPlaces(some, wideFirst), pairPlaces(others, wideFirst)));
    smallest = minimum16(smallest, minimum16(some, others));
    largest = maximum16(largest, maximum16(some, others));
  }
  *extremes = narrowed({smallest, largest});
}

namespace {

/// Sums of lanes of 64 bits, and the largest counts of lanes of 32.
struct WideSums {
  Register pixels, values, squares, largest;
};

}  // namespace

static void addLanes(Register counts, Register values, WideSums* sums) {
  const Register oddCounts = upperHalves64(counts);
  const Register oddValues = upperHalves64(values);
  sums->pixels = add64(sums->pixels, add64(lowerHalves64(counts), oddCounts));
  sums->values =
      add64(sums->values, add64(multiplyEven32(counts, values), multiplyEven32(oddCounts, oddValues)));
  sums->squares =
      add64(sums->squares, add64(multiplyEven32(counts, multiplyEven32(values, values)),
                                 multiplyEven32(oddCounts, multiplyEven32(oddValues, oddValues))));
  sums->largest = maximum32(sums->largest, counts);
}

static std::uint64_t sumOfLanes64(Register values) {
  constexpr std::size_t lanes64 = sizeof(Register) / sizeof(std::uint64_t);
  std::uint64_t sums[lanes64];
  store(sums, values);
  for (std::size_t i = 1; i < lanes64; ++i)
    sums[0] += sums[i];
  return sums[0];
}

static void addNarrowed(const WideSums& wide, CountSums* sums) {
  constexpr std::size_t lanes32 = sizeof(Register) / sizeof(std::uint32_t);
  sums->pixels += sumOfLanes64(wide.pixels);
  sums->values += sumOfLanes64(wide.values);
  sums->squares += sumOfLanes64(wide.squares);
  std::uint32_t largest[lanes32];
  store(largest, wide.largest);
  for (const std::uint32_t count : largest)
    sums->largest = count > sums->largest ? count : sums->largest;
}

static void sumCounts(const std::uint32_t* counts, std::size_t size, std::uint32_t first, CountSums* sums) {
  constexpr std::size_t lanes32 = sizeof(Register) / sizeof(std::uint32_t);
  constexpr std::size_t registers = countGroup / lanes32;
  constexpr unsigned allLanes = ~0U >> (32 - lanes * bitsOfLane);
  static constexpr std::uint32_t from0[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  const Register none = spread16(0);
  const Register steps = load(from0);
  WideSums wide = {none, none, none, none};
  for (std::size_t i = 0; i < size; i += countGroup) {
    Register any = load(counts + i);
    for (std::size_t r = 1; r < registers; ++r)
      any = eitherBits(any, load(counts + i + r * lanes32));
    if (lanesEqual16(any, none) == allLanes) continue;
    for (std::size_t at = i; at < i + countGroup; at += lanes32)
      addLanes(load(counts + at), add32(steps, spread32(first + static_cast<std::uint32_t>(at))), &wide);
  }
  addNarrowed(wide, sums);
}

static constexpr void putStatistics(KernelTable& table) {
  ORVACAM_PUT(table, kernels, findExtremes);
  ORVACAM_PUT(table, kernels, findFirst);
  ORVACAM_PUT(table, kernels, sumCounts);
  ORVACAM_PUT(table, kernels, findEach);
  ORVACAM_PUT(table, kernels, countValues);
  ORVACAM_PUT(table, kernels, placePairs);
}

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_STATISTICS_H
