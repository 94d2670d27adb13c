// CCD frames read through one or four amplifiers.

#include <orvacam/types/device_types.h>

#include "frames/FrameTesting.h"

namespace {

using namespace frame_testing;

sim::HeaderFields ccd(unsigned int quadrants, unsigned int width, unsigned int height) {
  sim::HeaderFields f = header("ARGENT 230-84", 16, false, width, height);
  f.quadrants = quadrants;
  return f;
}

TEST(SingleAmplifier, PutsTheImageInItsNaturalOrientation) {
  for (const unsigned int quadrants :
       {0x20u, 0x10u, 0x08u, 0x04u, 0x30u, 0x1Cu, 0x0Cu, 0x3Cu - 0x20u, 0x3Cu - 0x04u})
    for (const auto& [width, height] :
         {std::pair{8u, 6u}, std::pair{7u, 5u}, std::pair{1u, 1u}, std::pair{2300u, 3u}}) {
      SCOPED_TRACE(std::to_string(quadrants) + ", " + std::to_string(width) + " x " + std::to_string(height));
      RawFrame raw(ccd(quadrants, width, height));
      Bench bench(raw);
      LowImage images;
      ASSERT_EQ(bench.frame->Merge(&images), 0);
      EXPECT_EQ(images.low(), raw.plane(0));
      expectSame(bench.low(), amplifierStatistics(raw));  // gathered although nobody asked
    }
}

TEST(FourAmplifiers, PutTheQuadrantsInPlace) {
  for (const auto& [width, height] : {std::pair{8u, 6u}, std::pair{6u, 2u}, std::pair{2050u, 4u},
                                      std::pair{3001u, 2800u}}) {  // the last is written past the caches
    RawFrame raw(ccd(0x3C, width, height));
    Bench bench(raw);
    LowImage images;
    ASSERT_EQ(bench.frame->Merge(&images), 0);
    EXPECT_EQ(images.low(), raw.plane(0));
    NaiveStatistics naive;
    for (unsigned int y = 0; y < height; ++y)
      for (unsigned int x = 0; x < width; ++x)
        naive.add(raw.planes[0][y * width + x], x, y);
    expectSame(bench.low(), naive);
    expectReset(bench.high());
  }
}

TEST(FourAmplifiers, ReadTheSourceAsDocumented) {
  // 4 x 2: line 0 fills the top row, line 1 the bottom row; second halves are mirrored.
  sim::HeaderFields f = ccd(0x3C, 4, 2);
  Bytes bytes = sim::writeHeader(f, 3);
  for (const unsigned char value : {1, 2, 3, 4, 5, 6, 7, 8})
    bytes.insert(bytes.end(), {0x12, value});
  CFrameMetaData metaData;
  ASSERT_EQ(metaData.Parse(bytes.data(), bytes.size()), 0);
  EXPECT_EQ(unpackedLow(metaData, bytes.data(), bytes.size()),
            (Pixels{0x1201, 0x1202, 0x1204, 0x1203, 0x1205, 0x1206, 0x1208, 0x1207}));
}

TEST(CcdFrame, IsReadFromAnyAddress) {
  for (const unsigned int quadrants : {0x3Cu, 0x20u, 0x10u})
    for (const std::size_t shift : {0u, 1u, 2u, 3u}) {
      const RawFrame raw(ccd(quadrants, 2300, 4));
      Bytes bytes(shift, 0xEE);
      bytes.insert(bytes.end(), raw.bytes.begin(), raw.bytes.end());
      CFrameMetaData metaData;
      ASSERT_EQ(metaData.Parse(bytes.data() + shift, raw.bytes.size()), 0);
      EXPECT_EQ(unpackedLow(metaData, bytes.data() + shift, raw.bytes.size()), raw.plane(0))
          << quadrants << ", shift " << shift;
    }
}

TEST(FourAmplifiers, LeaveTheMiddleRowOfAnOddHeightAsItWas) {
  RawFrame raw(ccd(0x3C, 4, 5));
  Bench bench(raw);
  LowImage images;
  ASSERT_EQ(bench.frame->Unpack(&images), 0);
  Pixels expected = raw.plane(0);
  for (unsigned int x = 0; x < 4; ++x)
    expected[8 + x] = 0;
  EXPECT_EQ(images.low(), expected);
}

TEST(NoAmplifier, FailsWithStatisticsComputedAndNoBias) {
  RawFrame raw(ccd(0, 4, 4));
  Bench bench(raw);
  const Pixels bias(16, 1);
  ASSERT_EQ(bench.merge->SetBiasFrames(4, 4, bias.data(), nullptr), 0);
  LowImage images;
  EXPECT_EQ(bench.frame->Unpack(&images), -1);
  EXPECT_TRUE(std::isnan(bench.low().dMean));
  EXPECT_EQ(images.low(), Pixels(16, 0));
}

TEST(CcdFrame, IsTakenAsBarePixelsWithoutAHeader) {
  RawFrame raw(ccd(0x10, 6, 4));
  Bytes bare(raw.bytes.begin() + 384, raw.bytes.end());
  EXPECT_EQ(unpackedLow(raw.metaData, bare.data(), bare.size()), raw.plane(0));
}

TEST(CcdFrame, ThatIsCutDecodesTheWholeLinesAndFails) {
  for (const unsigned int quadrants : {0x20u, 0x3Cu}) {
    RawFrame raw(ccd(quadrants, 4, 4));
    raw.bytes.resize(raw.bytes.size() - 9);
    Bench bench(raw);
    LowImage images;
    EXPECT_EQ(bench.frame->Unpack(&images), -1);
    const Pixels all = raw.plane(0);
    Pixels expected(16, 0);
    const unsigned int rows = 2;
    for (unsigned int row = 0; row < rows; ++row) {
      const unsigned int y = quadrants == 0x20 ? row : row == 0 ? 0 : 3;
      std::copy_n(all.begin() + y * 4, 4, expected.begin() + y * 4);
    }
    EXPECT_EQ(images.low(), expected) << quadrants;
  }
}

TEST(CcdFrame, ThatIsBinnedBelowItsFullSizeIsRefused) {
  sim::HeaderFields f = ccd(0x20, 8, 8);
  f.horizontalBinning = 2;  // the readers work on the unbinned frame, which the planes do not hold
  for (const unsigned int quadrants : {0x20u, 0x3Cu}) {
    f.quadrants = quadrants;
    RawFrame raw(f);
    Bench bench(raw);
    LowImage images;
    EXPECT_EQ(bench.frame->Merge(&images), -1);
  }
}

TEST(CcdFrame, RefusesWhatIsMissing) {
  RawFrame raw(ccd(0x20, 4, 4));
  Images images;
  const std::unique_ptr<IFrame> empty(CFrameFactory::Create(ORVA_DEVICE_ARGENT_23042));
  EXPECT_EQ(empty->Merge(&images), -1);
  Bench bench(raw);
  EXPECT_EQ(bench.frame->Merge(nullptr), 0);
}

}  // namespace
