#ifndef ORVACAM_SRC_KERNELS_STACK_LOOPS_H
#define ORVACAM_SRC_KERNELS_STACK_LOOPS_H

// The plain definition of the kernels that make one frame of many. Compilers vectorise all of them.

#include "kernels/Kernels.h"

namespace orvacam::kernels::loops {

static void addToMoments(const std::uint16_t* pixels, std::uint64_t* sums, std::uint64_t* squares,
                         std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t pixel = pixels[i];
    sums[i] += pixel;
    squares[i] += pixel * pixel;
  }
}

static void keepLesser(std::uint16_t* kept, const std::uint16_t* pixels, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    kept[i] = pixels[i] < kept[i] ? pixels[i] : kept[i];
}

static void keepGreater(std::uint16_t* kept, const std::uint16_t* pixels, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    kept[i] = pixels[i] > kept[i] ? pixels[i] : kept[i];
}

template <typename Value>
static void exchange(Value* __restrict lower, Value* __restrict upper) {
  for (std::size_t i = 0; i < sortedColumns; ++i) {
    const Value a = lower[i];
    const Value b = upper[i];
    lower[i] = b < a ? b : a;
    upper[i] = b < a ? a : b;
  }
}

/// Merge exchange (Batcher; Knuth's algorithm 5.2.2M): which rows are compared does not depend on the values,
/// so that all columns are sorted by the same steps. It takes about rows * log2(rows)^2 / 4 exchanges.
template <typename Value>
static void sortColumns(Value* values, std::size_t rows) {
  std::size_t largest = 1;
  while (2 * largest < rows)
    largest *= 2;
  for (std::size_t p = largest; p > 0 && rows > 1; p /= 2) {
    std::size_t remainder = 0;
    std::size_t distance = p;
    for (std::size_t q = largest;; q /= 2) {
      for (std::size_t i = 0; i + distance < rows; ++i)
        if ((i & p) == remainder)
          exchange(values + i * sortedColumns, values + (i + distance) * sortedColumns);
      if (q == p) break;
      distance = q - p;
      remainder = p;
    }
  }
}

static void sortColumns16(std::uint16_t* values, std::size_t rows) {
  sortColumns(values, rows);
}

static void sortColumns64(double* values, std::size_t rows) {
  sortColumns(values, rows);
}

}  // namespace orvacam::kernels::loops

#endif  // ORVACAM_SRC_KERNELS_STACK_LOOPS_H
