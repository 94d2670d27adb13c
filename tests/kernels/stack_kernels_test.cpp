// The kernels that make one frame of many, in every table.

#include <algorithm>

#include "kernels/KernelTesting.h"

namespace {

using namespace kernel_testing;

class StackKernels : public EveryTable {};
INSTANTIATE_TEST_SUITE_P(Kernels, StackKernels, ::testing::ValuesIn(runnableTables()), tableName);

constexpr std::size_t columns = kernels::sortedColumns;

template <typename Value>
void sortsEachColumn(void (*sort)(Value*, std::size_t), std::size_t rows, std::mt19937& random) {
  const std::vector<std::uint16_t> values = noise<std::uint16_t>(rows * columns, random);
  Guarded<Value> sorted(rows * columns, rows % 5);
  // Doubles of both signs, with fractions.
  const auto made = [](std::uint16_t value) {
    return std::is_same_v<Value, double> ? static_cast<Value>((value - 30000) / 8.0)
                                         : static_cast<Value>(value);
  };
  std::transform(values.begin(), values.end(), sorted.data(), made);
  sort(sorted.data(), rows);
  ASSERT_TRUE(sorted.intact()) << rows;
  for (std::size_t column = 0; column < columns; ++column) {
    std::vector<std::uint16_t> expected;
    for (std::size_t row = 0; row < rows; ++row)
      expected.push_back(values[row * columns + column]);
    std::sort(expected.begin(), expected.end());
    for (std::size_t row = 0; row < rows; ++row)
      ASSERT_EQ(sorted.data()[row * columns + column], made(expected[row]))
          << rows << " rows, column " << column << ", seed " << seed;
  }
}

TEST_P(StackKernels, SortEveryColumnOfAnyNumberOfRows) {
  std::mt19937 random(seed);
  std::vector<std::size_t> counts(70);
  for (std::size_t rows = 0; rows < counts.size(); ++rows)
    counts[rows] = rows;
  counts.insert(counts.end(), {127, 128, 129, 500});
  for (const std::size_t rows : counts) {
    sortsEachColumn<std::uint16_t>(table().sortColumns16, rows, random);
    sortsEachColumn<double>(table().sortColumns64, rows, random);
  }
}

TEST_P(StackKernels, SortAllColumnsOfZerosAndOnes) {
  // What sorts all columns of zeros and ones sorts everything: all of them, of up to 12 rows.
  for (std::size_t rows = 1; rows <= 12; ++rows)
    for (std::size_t first = 0; first < std::size_t{1} << rows; first += columns) {
      std::vector<std::uint16_t> values(rows * columns);
      for (std::size_t row = 0; row < rows; ++row)
        for (std::size_t column = 0; column < columns; ++column)
          values[row * columns + column] = static_cast<std::uint16_t>((first + column) >> row & 1);
      table().sortColumns16(values.data(), rows);
      for (std::size_t column = 0; column < columns; ++column) {
        const int ones = __builtin_popcountll((first + column) & ((std::size_t{1} << rows) - 1));
        for (std::size_t row = 0; row < rows; ++row)
          ASSERT_EQ(values[row * columns + column], row + static_cast<std::size_t>(ones) >= rows)
              << rows << " rows, pattern " << first + column;
      }
    }
}

TEST_P(StackKernels, AddUpAndKeepExtremesAtAllLengths) {
  std::mt19937 random(seed);
  for (std::size_t count = 0; count <= 100; ++count)
    for (const std::size_t shift : {0, 1, 7, 16}) {
      const std::vector<std::uint16_t> pixels = noise<std::uint16_t>(count, random);
      const std::vector<std::uint16_t> before = noise<std::uint16_t>(count, random);
      Guarded<std::uint64_t> sums(count, shift), squares(count, shift);
      Guarded<std::uint16_t> lesser(count, shift), greater(count, shift);
      std::copy(before.begin(), before.end(), lesser.data());
      std::copy(before.begin(), before.end(), greater.data());
      for (std::size_t i = 0; i < count; ++i) {
        sums.data()[i] = std::uint64_t{before[i]} << 30;
        squares.data()[i] = std::uint64_t{before[i]} << 40;
      }
      table().addToMoments(pixels.data(), sums.data(), squares.data(), count);
      table().keepLesser(lesser.data(), pixels.data(), count);
      table().keepGreater(greater.data(), pixels.data(), count);
      for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t pixel = pixels[i];
        ASSERT_EQ(sums.data()[i], (std::uint64_t{before[i]} << 30) + pixel) << "seed " << seed;
        ASSERT_EQ(squares.data()[i], (std::uint64_t{before[i]} << 40) + pixel * pixel);
        ASSERT_EQ(lesser.data()[i], std::min(before[i], pixels[i]));
        ASSERT_EQ(greater.data()[i], std::max(before[i], pixels[i]));
      }
      ASSERT_TRUE(sums.intact() && squares.intact() && lesser.intact() && greater.intact()) << count;
    }
}

}  // namespace
