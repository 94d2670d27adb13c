// The walker of packed streams, on streams small enough to write down.

#include "frames/RowInterleavedStream.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace orvacam;
using Pixels = std::vector<unsigned short>;

const std::vector<unsigned char> fourPairs = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56,
                                              0x00, 0x10, 0x02, 0x00, 0x30, 0x04};
// 0xABC 0xDEF | 0x123 0x456 | 1 2 | 3 4

int decodeOne(const std::vector<unsigned char>& bytes, const StreamLayout& layout, Pixels& out) {
  PlaneCursor plane(out.data(), out.size(), nullptr);
  return decodeStream({bytes.data(), bytes.size()}, layout, &plane, 1);
}

TEST(PackedStream, DecodesTwoPixelsOfThreeBytes) {
  Pixels out(8);
  EXPECT_EQ(decodeOne(fourPairs, {{{1, 0, 8, 0, 0, false}}}, out), 0);
  EXPECT_EQ(out, (Pixels{0xABC, 0xDEF, 0x123, 0x456, 1, 2, 3, 4}));
}

TEST(PackedStream, TakesAWholePairForTheLastPixelOfAnOddRun) {
  Pixels out(8);
  EXPECT_EQ(decodeOne(fourPairs, {{{2, 0, 3, 0, 0, false}}}, out),
            0);  // two rows of 3 pixels, 4 written each
  EXPECT_EQ(out, (Pixels{0xABC, 0xDEF, 0x123, 0x456, 1, 2, 3, 4}));
}

TEST(PackedStream, ThatEndsEarlyDecodesWhatIsWhole) {
  Pixels out(8, 9);
  std::vector<unsigned char> cut(fourPairs.begin(), fourPairs.end() - 1);
  EXPECT_EQ(decodeOne(cut, {{{4, 0, 2, 0, 0, false}}}, out), -1);
  EXPECT_EQ(out, (Pixels{0xABC, 0xDEF, 0x123, 0x456, 1, 2, 9, 9}));
}

TEST(PackedStream, ThatExceedsThePlaneWritesWhatFitsAndNoFurther) {
  Pixels out(6, 9);
  PlaneCursor plane(out.data(), 5, nullptr);
  const StreamLayout layout = {{{4, 0, 2, 0, 0, false}}};
  EXPECT_EQ(decodeStream({fourPairs.data(), fourPairs.size()}, layout, &plane, 1), -1);
  EXPECT_EQ(out, (Pixels{0xABC, 0xDEF, 0x123, 0x456, 1, 9}));
}

TEST(PackedStream, OfNoPixelsNeedsNoBytes) {
  Pixels out;
  EXPECT_EQ(decodeOne({}, {{{0xFFFFFFFF, 0, 0, 0, 0, false}, {0, 1, 1, 1, 1, true}}}, out), 0);
}

TEST(PackedStream, AlternatesBetweenPlanesAndSharesPixelsBehindTheSecond) {
  Pixels low(4, 9), high(4, 9);
  PlaneCursor planes[] = {{low.data(), 4, nullptr}, {high.data(), 4, nullptr}};
  const StreamLayout layout = {{{2, 0, 2, 0, 2, false}}};  // a low row, a high row, two shared pixels
  EXPECT_EQ(decodeStream({fourPairs.data(), 9}, layout, planes, 2), 0);
  EXPECT_EQ(low, (Pixels{0xABC, 0xDEF, 1, 2}));
  EXPECT_EQ(high, (Pixels{0x123, 0x456, 1, 2}));
}

TEST(PackedStream, WithSharedPixelsThatFitOnePlaneOnlyFails) {
  Pixels low(3, 9), high(4, 9);
  PlaneCursor planes[] = {{low.data(), 3, nullptr}, {high.data(), 4, nullptr}};
  const StreamLayout layout = {{{2, 0, 2, 0, 2, false}}};
  EXPECT_EQ(decodeStream({fourPairs.data(), 9}, layout, planes, 2), -1);
  EXPECT_EQ(low, (Pixels{0xABC, 0xDEF, 1}));
  EXPECT_EQ(high, (Pixels{0x123, 0x456, 1, 2}));
}

TEST(PackedStream, WithoutAPlaneFailsWithoutWriting) {
  PlaneCursor plane(nullptr, 100, nullptr);
  const StreamLayout layout = {{{1, 0, 2, 0, 0, false}}};
  EXPECT_EQ(decodeStream({fourPairs.data(), fourPairs.size()}, layout, &plane, 1), -1);
  EXPECT_EQ(decodeStream({nullptr, 100}, layout, &plane, 1), -1);
}

}  // namespace
