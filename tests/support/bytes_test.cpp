// The bounds-checked reader and writer and the checked arithmetic, at every boundary.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "support/ByteReader.h"
#include "support/ByteWriter.h"
#include "support/CheckedMath.h"

namespace {

using orvacam::ByteReader;
using orvacam::ByteWriter;

constexpr std::array<unsigned char, 10> bytes = {0x81, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x89, 0x0A};

TEST(ByteReader, IsEmptyWithoutBytesWhateverTheSizeSays) {
  ByteReader reader(nullptr, 100);
  std::uint64_t value = 7;
  EXPECT_EQ(reader.remaining(), 0u);
  EXPECT_FALSE(reader.readUint(1, value));
  EXPECT_EQ(value, 7u);
}

TEST(ByteReader, ReadsUnsignedIntegersMostSignificantByteFirst) {
  std::uint64_t expected = 0;
  for (unsigned int count = 1; count <= 8; ++count) {
    expected = expected * 256 + bytes[count - 1];
    ByteReader reader(bytes.data(), bytes.size());
    std::uint64_t value = 0;
    ASSERT_TRUE(reader.readUint(count, value));
    EXPECT_EQ(value, expected) << count << " bytes";
    EXPECT_EQ(reader.remaining(), bytes.size() - count);
    ASSERT_TRUE(reader.readUint(1, value));
    EXPECT_EQ(value, bytes[count]);
  }
}

TEST(ByteReader, ExtendsTheSignOfSignedIntegers) {
  constexpr unsigned char minusTwo[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE};
  constexpr unsigned char largest[] = {0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  constexpr unsigned char smallest[] = {0x80, 0, 0, 0, 0, 0, 0, 0};
  for (unsigned int count = 1; count <= 8; ++count) {
    const std::int64_t limit = count == 8 ? INT64_MAX : (std::int64_t{1} << (8 * count - 1)) - 1;
    std::int64_t value = 0;
    ASSERT_TRUE(ByteReader(minusTwo + 8 - count, count).readInt(count, value));
    EXPECT_EQ(value, -2) << count << " bytes";
    ASSERT_TRUE(ByteReader(largest, count).readInt(count, value));
    EXPECT_EQ(value, limit) << count << " bytes";
    ASSERT_TRUE(ByteReader(smallest, count).readInt(count, value));
    EXPECT_EQ(value, -limit - 1) << count << " bytes";
  }
}

TEST(ByteReader, RefusesIntegersOfNoBytesAndOfMoreThanEight) {
  ByteReader reader(bytes.data(), bytes.size());
  std::uint64_t value = 7;
  std::int64_t signedValue = 7;
  for (const unsigned int count : {0u, 9u, 0xFFFFFFFFu}) {
    EXPECT_FALSE(reader.readUint(count, value));
    EXPECT_FALSE(reader.readInt(count, signedValue));
  }
  EXPECT_EQ(value, 7u);
  EXPECT_EQ(signedValue, 7);
  EXPECT_EQ(reader.remaining(), bytes.size());
}

TEST(ByteReader, MovesNothingAtAnyReadBeyondTheEnd) {
  for (std::size_t size = 0; size <= bytes.size(); ++size) {
    // A heap block of exactly as many bytes, so that a read behind them is found.
    const std::vector<unsigned char> exact(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    for (unsigned int first = 0; first <= std::min<std::size_t>(size, 8); ++first)
      for (unsigned int count = 1; count <= 8; ++count) {
        ByteReader reader(exact.data(), size);
        std::uint64_t value = 7;
        std::int64_t signedValue = 7;
        ASSERT_EQ(reader.readUint(first, value), first > 0);
        value = 7;
        ByteReader other = reader;
        const bool fits = first + count <= size;
        EXPECT_EQ(reader.readUint(count, value), fits);
        EXPECT_EQ(other.readInt(count, signedValue), fits);
        for (const ByteReader& one : {reader, other})
          EXPECT_EQ(one.remaining(), size - first - (fits ? count : 0));
        if (fits) continue;
        EXPECT_EQ(value, 7u);
        EXPECT_EQ(signedValue, 7);
      }
  }
}

TEST(ByteWriter, WritesIntegersMostSignificantByteFirst) {
  for (unsigned int count = 1; count <= 8; ++count) {
    std::array<unsigned char, 12> target;
    target.fill(0xEE);
    ASSERT_TRUE(ByteWriter(target.data(), target.size()).putUint(2, count, 0x8102030405060708u));
    std::array<unsigned char, 12> expected;
    expected.fill(0xEE);
    constexpr unsigned char whole[] = {0x81, 2, 3, 4, 5, 6, 7, 8};
    std::copy_n(whole + 8 - count, count, expected.begin() + 2);
    EXPECT_EQ(target, expected) << count << " bytes";
  }
}

TEST(ByteWriter, WritesNothingOfWhatDoesNotFit) {
  for (std::size_t size = 0; size <= 9; ++size)
    for (std::size_t offset = 0; offset <= 10; ++offset)
      for (unsigned int count = 1; count <= 8; ++count) {
        std::vector<unsigned char> target(size, 0xEE);
        const std::vector<unsigned char> before = target;
        const bool fits = offset + count <= size;
        ByteWriter writer(target.data(), size);
        EXPECT_EQ(writer.size(), size);
        EXPECT_EQ(writer.putUint(offset, count, 0), fits);
        EXPECT_EQ(target == before, !fits);
        target = before;
        EXPECT_EQ(writer.putBytes(offset, bytes.data(), count), fits);
        EXPECT_EQ(target == before, !fits);
      }
}

TEST(ByteWriter, RefusesIntegersOfNoBytesAndOfMoreThanEight) {
  std::array<unsigned char, 16> target{};
  ByteWriter writer(target.data(), target.size());
  for (const unsigned int count : {0u, 9u, 0xFFFFFFFFu})
    EXPECT_FALSE(writer.putUint(0, count, ~0UL));
  EXPECT_EQ(target, (std::array<unsigned char, 16>{}));
}

TEST(ByteWriter, IsNotFooledByOffsetsThatWouldWrap) {
  std::array<unsigned char, 4> target{};
  ByteWriter writer(target.data(), target.size());
  for (const std::size_t huge : {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX / 2}) {
    EXPECT_FALSE(writer.putUint(huge, 2, ~0UL));
    EXPECT_FALSE(writer.putBytes(huge, bytes.data(), 2));
    EXPECT_FALSE(writer.putBytes(2, bytes.data(), huge));
  }
  EXPECT_EQ(target, (std::array<unsigned char, 4>{}));
}

TEST(ByteWriter, TakesNoBytesFromNowhere) {
  std::array<unsigned char, 4> target{};
  EXPECT_TRUE(ByteWriter(target.data(), target.size()).putBytes(4, nullptr, 0));
  EXPECT_FALSE(ByteWriter(target.data(), target.size()).putBytes(5, nullptr, 0));
  ByteWriter nowhere(nullptr, 100);
  EXPECT_EQ(nowhere.size(), 0u);
  EXPECT_FALSE(nowhere.putUint(0, 1, 0));
}

TEST(CheckedMath, MultipliesUpToTheLastNumberOf64Bits) {
  constexpr std::uint64_t largest = UINT64_MAX;
  struct Row {
    std::uint64_t a, b;
    bool fits;
    std::uint64_t product;
  };
  for (const Row& row :
       {Row{0, largest, true, 0}, Row{largest, 1, true, largest}, Row{largest, 2, false, 0},
        Row{1ull << 32, 1ull << 31, true, 1ull << 63}, Row{1ull << 32, 1ull << 32, false, 0},
        // 2^64 - 1 = 4294967295 x 4294967297
        Row{4294967295u, 4294967297u, true, largest}, Row{4294967296u, 4294967297u, false, 0},
        Row{largest / 3, 3, true, largest}, Row{largest / 3 + 1, 3, false, 0}}) {
    std::uint64_t product = 77;
    EXPECT_EQ(orvacam::checkedMultiply(row.a, row.b, product), row.fits) << row.a << " * " << row.b;
    EXPECT_EQ(product, row.fits ? row.product : 77) << row.a << " * " << row.b;
    product = 77;
    EXPECT_EQ(orvacam::checkedMultiply(row.b, row.a, product), row.fits);
    EXPECT_EQ(product, row.fits ? row.product : 77);
  }
}

TEST(CheckedMath, TruncatesNumbersIntoTheRangeOfIntegers) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(orvacam::truncated<int>(-3.9), -3);
  EXPECT_EQ(orvacam::truncated<int>(3.9), 3);
  EXPECT_EQ(orvacam::truncated<int>(2147483647.5), INT32_MAX);
  EXPECT_EQ(orvacam::truncated<int>(-2147483649.0), INT32_MIN);
  EXPECT_EQ(orvacam::truncated<unsigned int>(-0.5), 0u);
  EXPECT_EQ(orvacam::truncated<unsigned int>(4294967294.9), 4294967294u);
  EXPECT_EQ(orvacam::truncated<unsigned int>(infinity), UINT32_MAX);
  EXPECT_EQ(orvacam::truncated<std::uint64_t>(18446744073709551616.0), UINT64_MAX);
  EXPECT_EQ(orvacam::truncated<std::int64_t>(-infinity), INT64_MIN);
  EXPECT_EQ(orvacam::truncated<int>(nan), 0);
  EXPECT_EQ(orvacam::truncated<std::uint64_t>(nan), 0u);
}

TEST(CheckedMath, DividesRoundingUpWithoutOverflow) {
  EXPECT_EQ(orvacam::ceilDivide(0u, 5u), 0u);
  EXPECT_EQ(orvacam::ceilDivide(1u, 5u), 1u);
  EXPECT_EQ(orvacam::ceilDivide(5u, 5u), 1u);
  EXPECT_EQ(orvacam::ceilDivide(6u, 5u), 2u);
  EXPECT_EQ(orvacam::ceilDivide(UINT32_MAX, 2u), 0x80000000u);
  EXPECT_EQ(orvacam::ceilDivide(UINT64_MAX, std::uint64_t{2}), 1ull << 63);
  EXPECT_EQ(orvacam::ceilDivide(UINT64_MAX, UINT64_MAX), 1u);
  EXPECT_EQ(orvacam::ceilDivide<unsigned char>(255, 2), 128);
}

}  // namespace
