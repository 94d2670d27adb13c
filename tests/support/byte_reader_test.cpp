// The reader and the writer of foreign bytes, at every boundary.

#include "support/ByteReader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "support/ByteWriter.h"
#include "support/CheckedMath.h"

namespace {

using namespace orvacam;

const unsigned char bytes[] = {0x80, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0xFF};

TEST(ByteReader, ReadsBigEndianIntegersOfOneToEightBytes) {
  const std::uint64_t expected[] = {0x80,         0x8001,         0x800102,         0x80010203,
                                    0x8001020304, 0x800102030405, 0x80010203040506, 0x8001020304050607};
  for (unsigned int n = 1; n <= 8; ++n) {
    ByteReader reader(bytes, sizeof bytes);
    std::uint64_t value = 0;
    ASSERT_TRUE(reader.readUint(n, value));
    EXPECT_EQ(value, expected[n - 1]);
    EXPECT_EQ(reader.position(), n);
  }
}

TEST(ByteReader, ExtendsTheSign) {
  ByteReader reader(bytes, sizeof bytes);
  std::int64_t value = 0;
  ASSERT_TRUE(reader.readInt(2, value));
  EXPECT_EQ(value, -32767);
  ASSERT_TRUE(reader.readInt(1, value));
  EXPECT_EQ(value, 2);
  ASSERT_TRUE(reader.seek(8));
  ASSERT_TRUE(reader.readInt(1, value));
  EXPECT_EQ(value, -1);
  ASSERT_TRUE(reader.seek(0));
  ASSERT_TRUE(reader.readInt(8, value));
  EXPECT_EQ(value, static_cast<std::int64_t>(0x8001020304050607u));
}

TEST(ByteReader, AnswersNoInsteadOfPassingItsEnd) {
  for (std::size_t size = 0; size <= 8; ++size)
    for (unsigned int n = 0; n <= 9; ++n) {
      ByteReader reader(bytes, size);
      std::uint64_t value = 77;
      std::int64_t number = 77;
      const bool fits = n >= 1 && n <= 8 && n <= size;
      EXPECT_EQ(reader.readUint(n, value), fits);
      EXPECT_EQ(value == 77, !fits);
      EXPECT_EQ(reader.position(), fits ? n : 0u);
      ByteReader again(bytes, size);
      EXPECT_EQ(again.readInt(n, number), fits);
    }
}

TEST(ByteReader, SkipsTakesAndSeeksWithinItsBytes) {
  ByteReader reader(bytes, 4);
  const unsigned char* taken = nullptr;
  EXPECT_TRUE(reader.take(3, taken));
  EXPECT_EQ(taken, bytes);
  EXPECT_FALSE(reader.skip(2));
  EXPECT_FALSE(reader.take(2, taken));
  EXPECT_EQ(taken, bytes);
  EXPECT_TRUE(reader.skip(1));
  EXPECT_EQ(reader.remaining(), 0u);
  EXPECT_TRUE(reader.skip(0));
  EXPECT_FALSE(reader.seek(5));
  EXPECT_TRUE(reader.seek(4));
  EXPECT_FALSE(reader.skip(std::numeric_limits<std::size_t>::max()));
}

TEST(ByteReader, SubReaderSeesNothingOutsideItsParent) {
  const ByteReader reader(bytes, 5);
  ByteReader part;
  EXPECT_TRUE(reader.sub(5, 0, part));
  EXPECT_FALSE(reader.sub(5, 1, part));
  EXPECT_FALSE(reader.sub(6, 0, part));
  EXPECT_FALSE(reader.sub(1, std::numeric_limits<std::size_t>::max(), part));
  ASSERT_TRUE(reader.sub(3, 2, part));
  EXPECT_EQ(part.size(), 2u);
  std::uint64_t value = 0;
  EXPECT_FALSE(part.readUint(3, value));
  EXPECT_TRUE(part.readUint(2, value));
  EXPECT_EQ(value, 0x0304u);
}

TEST(ByteReader, OfNullIsEmptyWhateverTheSize) {
  ByteReader reader(nullptr, 100);
  std::uint64_t value = 0;
  EXPECT_EQ(reader.size(), 0u);
  EXPECT_EQ(reader.current(), nullptr);
  EXPECT_FALSE(reader.readUint(1, value));
  ByteReader part;
  EXPECT_TRUE(reader.sub(0, 0, part));
  EXPECT_EQ(ByteReader().size(), 0u);
}

TEST(ByteWriter, WritesWhatFitsAndRefusesTheRest) {
  unsigned char out[6] = {9, 9, 9, 9, 9, 9};
  ByteWriter writer(out, 5);
  EXPECT_EQ(writer.size(), 5u);
  EXPECT_TRUE(writer.putUint(1, 2, 0x123456));
  EXPECT_EQ(out[1], 0x34);
  EXPECT_EQ(out[2], 0x56);
  EXPECT_FALSE(writer.putUint(4, 2, 1));
  EXPECT_FALSE(writer.putUint(0, 0, 1));
  EXPECT_FALSE(writer.putUint(0, 9, 1));
  EXPECT_FALSE(writer.putUint(std::numeric_limits<std::size_t>::max(), 1, 1));
  EXPECT_TRUE(writer.putBytes(3, "ab", 2));
  EXPECT_FALSE(writer.putBytes(4, "ab", 2));
  EXPECT_TRUE(writer.putBytes(5, nullptr, 0));
  EXPECT_EQ(out[4], 'b');
  EXPECT_EQ(out[5], 9);
  EXPECT_FALSE(ByteWriter(nullptr, 5).putUint(0, 1, 1));
}

TEST(CheckedMath, SaysWhenAResultDoesNotFit) {
  std::uint64_t result = 5;
  EXPECT_TRUE(checkedMultiply(0xFFFFFFFFu, 0xFFFFFFFFu, result));
  EXPECT_EQ(result, 0xFFFFFFFE00000001u);
  EXPECT_FALSE(checkedMultiply(result, 2, result));
  EXPECT_EQ(result, 0xFFFFFFFE00000001u);
  EXPECT_FALSE(checkedAdd(result, result, result));
  EXPECT_TRUE(checkedAdd(1, 2, result));
  EXPECT_EQ(result, 3u);
  EXPECT_EQ(ceilDivide(7u, 2u), 4u);
  EXPECT_EQ(ceilDivide(8u, 2u), 4u);
  EXPECT_EQ(ceilDivide(0u, 3u), 0u);
  EXPECT_EQ(ceilDivide(0xFFFFFFFFu, 2u), 0x80000000u);
}

}  // namespace
