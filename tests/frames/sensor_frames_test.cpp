// What the sensors' frame classes do with their frames. tests/facade decodes whole frames of every mode.

#include <orvacam/frames/CFrameGSense2020.h>
#include <orvacam/frames/CFrameGSense400.h>
#include <orvacam/frames/CFrameGSense4040.h>
#include <orvacam/frames/CFrameGSense6060.h>

#include "frames/FrameTesting.h"
#include "support/Cameras.h"

namespace {

using namespace frame_testing;

using cameras::Mode;
using cameras::Stream;

class EverySensor : public ::testing::TestWithParam<Mode> {};

INSTANTIATE_TEST_SUITE_P(Modes, EverySensor, ::testing::ValuesIn(cameras::modesThat([](const Mode& mode) {
                           return mode.stream == Stream::Packed || mode.stream == Stream::Wide ||
                                  (mode.stream == Stream::Plain && !mode.hdr);
                         })),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(EverySensor, GivesNoMergedPlaneWithoutOneAskedFor) {
  RawFrame raw(header(GetParam().model, GetParam().bits, GetParam().hdr, 8, 4));
  Bench bench(raw);
  LowImage images;
  EXPECT_EQ(bench.frame->Merge(&images), 0);
  EXPECT_EQ(images.low(), raw.plane(0));
  EXPECT_EQ(images.pHighImage, nullptr);
  EXPECT_EQ(images.pMergedImage, nullptr);
}

TEST_P(EverySensor, RefusesWhatIsMissing) {
  RawFrame raw(header(GetParam().model, GetParam().bits, GetParam().hdr, 8, 4));
  Images images;
  Images::all(images);
  const std::unique_ptr<IFrame> bare(CFrameFactory::Create(raw.metaData));
  EXPECT_EQ(bare->Unpack(&images), -1);  // no source
  EXPECT_EQ(bare->Merge(&images), -1);
  Bench bench(raw);
  EXPECT_EQ(bench.frame->Merge(nullptr), 0);
  EXPECT_EQ(bench.frame->Unpack(nullptr), -1);
  frame_roi_t roi{0, 0, 2, 1};
  unsigned char buffer[1024];
  if (std::string(GetParam().model) != "VESTRA VS4040")
    EXPECT_EQ(bench.frame->CopyROIToBuffer(roi, buffer, sizeof buffer), -1);
}

TEST_P(EverySensor, SubtractsBiasFramesAsItsSensorDoes) {
  RawFrame raw(header(GetParam().model, GetParam().bits, GetParam().hdr, 8, 4));
  Bench bench(raw);
  const Pixels low(32, 10), high(32, 20);
  ASSERT_EQ(bench.merge->SetBiasFrames(8, 4, low.data(), high.data()), 0);
  Images images;
  Images::all(images);
  ASSERT_EQ(bench.frame->Unpack(&images), 0);
  // Single images of the GSENSE2020, 4040 and 6060 stay uncorrected, those of the GSENSE400 and plain cameras
  // do not.
  const std::string name = GetParam().name;
  const bool pair = raw.planes.size() == 2;
  const bool corrected = pair || name == "GSense400Single" || name == "Imx183" || name == "Generic";
  const auto subtract = [](Pixels plane, unsigned short bias) {
    for (unsigned short& pixel : plane)
      pixel = pixel > bias ? pixel - bias : 0;
    return plane;
  };
  EXPECT_EQ(images.low(), corrected ? subtract(raw.plane(0), 10) : raw.plane(0));
  if (pair) EXPECT_EQ(images.high(), subtract(raw.plane(1), 20));
}

// ---- What is special to a sensor

template <typename Frame>
struct Exposed : Frame {
  using Frame::m_bMergeStatistics;
};

struct Exposed400 : CFrameGSense400 {
  using CFrameGSense400::DoUnpackHDR;
};
struct Exposed2020 : CFrameGSense2020 {
  using CFrameGSense2020::DoUnpackSingle13to16;
};
struct Exposed6060 : CFrameGSense6060 {
  using CFrameGSense6060::DoUnpack12;
  using CFrameGSense6060::DoUnpackSingle;
};

TEST(PackedSingleImage, OfAnOddWidthWritesThePairsOfEachRow) {
  sim::HeaderFields f = header("VESTRA VS400", 12, false, 5, 2);
  Bytes bytes = sim::writeHeader(f, 3);
  // Two rows of 5 pixels, 9 bytes each: the third pair's second pixel is written, too.
  bytes.insert(bytes.end(), {0xAB, 0xCD, 0xEF, 0x00, 0x10, 0x02, 0x00, 0x3F, 0xFF,  //
                             0x12, 0x34, 0x56, 0x00, 0x40, 0x05, 0x00, 0x60, 0x07});
  CFrameMetaData metaData;
  ASSERT_EQ(metaData.Parse(bytes.data(), bytes.size()), 0);
  CFrameGSense400 frame;
  frame.Initialize(metaData, bytes.data(), bytes.size(), nullptr);
  Pixels out(13, 9);
  EXPECT_EQ(frame.UnpackImage12to16(out.data(), 12), 0);
  EXPECT_EQ(out, (Pixels{0xABC, 0xDEF, 1, 2, 3, 0xFFF, 0x123, 0x456, 4, 5, 6, 7, 9}));
  EXPECT_EQ(frame.UnpackImage12to16(out.data(), 11), -1);
}

TEST(PackedSingleImage, WithoutDimensionsWritesNothing) {
  RawFrame raw(header("VESTRA VS400", 12, false, 4, 2));
  raw.metaData.SetValue(ORVA_META_KEY_IMAGE_START_ROW, "2");  // one behind the last
  raw.metaData.SetValue(ORVA_META_KEY_IMAGE_STOP_ROW, "0");
  raw.metaData.SetValue(ORVA_META_KEY_IMAGE_STOP_COLUMN, "0");
  raw.metaData.SetValue(ORVA_META_KEY_IMAGE_START_COLUMN, "1");
  CFrameGSense400 frame;
  frame.Initialize(raw.metaData, raw.bytes.data(), raw.bytes.size(), nullptr);
  Pixels out(8, 9);
  EXPECT_EQ(frame.UnpackImage12to16(out.data(), 8), 0);
  EXPECT_EQ(out, Pixels(8, 9));
}

TEST(GSense400, PostReferenceRowsAreAFrameWideAndPreReferenceRowsAnImage) {
  sim::HeaderFields f = header("VESTRA VS400", 12, true, 6, 2);
  f.preRefRows = 1;
  f.postRefRows = 1;
  f.preRefPixels = 4;
  f.postRefPixels = 2;
  RawFrame raw(f);
  // Per plane: (6 + 2) + 2 x (6 + 2) + (12 + 2).
  ASSERT_EQ(raw.planes[0].size(), 38u);
  Exposed400 frame;
  frame.Initialize(raw.metaData, raw.bytes.data(), raw.bytes.size(), nullptr);
  Pixels low(38), high(38);
  EXPECT_EQ(frame.DoUnpackHDR(low.data(), 38, high.data(), 38), 0);
  EXPECT_EQ(low, raw.planes[0]);
  EXPECT_EQ(high, raw.planes[1]);
  EXPECT_EQ(low[6], high[6]);  // the first shared pixel
}

TEST(GSense400, ThatIsBinnedIsRefusedAsItsPlanesAreCheckedAgainstTheUnbinnedImage) {
  for (const bool hdr : {false, true}) {
    sim::HeaderFields f = header("VESTRA VS400", 12, hdr, 24, 12);
    f.horizontalBinning = 2;
    RawFrame raw(f);
    Bench bench(raw);
    Images images;
    Images::all(images);
    EXPECT_EQ(bench.frame->Merge(&images), -1);
    EXPECT_EQ(images.low(), Pixels(raw.framePixels(), 0));
  }
}

TEST(GSense400, SingleImageLeavesTheHighGainStatisticsReset) {
  RawFrame raw(header("VESTRA VS400", 12, false, 8, 4));
  Bench bench(raw);
  bench.frame->EnableMergeStatistics(true);
  LowImage images;
  ASSERT_EQ(bench.frame->Unpack(&images), 0);
  EXPECT_EQ(bench.high().dMean, 0.0);  // reset, not computed
  EXPECT_TRUE(std::isnan(bench.low().dMean));
}

TEST(GSense2020, DecodesTruthValuesOfThirteenBitPixels) {
  sim::HeaderFields f = header("VESTRA VS2020", 12, false, 8, 2);
  f.correlatedMultipleSampling = true;
  for (const unsigned char fill : {0x00, 0xFF, 0x01, 0x10, 0x80}) {
    Bytes bytes = sim::writeHeader(f, 3);
    const std::size_t start = bytes.size();
    bytes.insert(bytes.end(), 26, fill);
    CFrameMetaData metaData;
    ASSERT_EQ(metaData.Parse(bytes.data(), bytes.size()), 0);
    const Pixels pixels = unpackedLow(metaData, bytes.data(), bytes.size());
    EXPECT_EQ(pixels, sampledPixels(bytes.data() + start, 16)) << "bytes of " << int{fill};
    if (fill == 0xFF) EXPECT_EQ((Pixels{pixels[0], pixels[1]}), (Pixels{0x21, 0x405}));

    Exposed2020 frame;
    frame.Initialize(metaData, bytes.data(), bytes.size(), nullptr);
    EXPECT_EQ(frame.DoUnpackSingle13to16(nullptr, 0), 0);
    Pixels more(17, 7);
    EXPECT_EQ(frame.DoUnpackSingle13to16(more.data(), 17), -1);  // no byte is left for the last one
    EXPECT_EQ(more[16], 7);
    EXPECT_EQ(Pixels(more.begin(), more.end() - 1), pixels);
  }
}

TEST(GSense2020, CopiesSixteenBitFramesOfCorrelatedMultipleSampling) {
  sim::HeaderFields f = header("VESTRA VS2020", 16, false, 8, 2);
  f.correlatedMultipleSampling = true;
  RawFrame raw(f);
  EXPECT_EQ(Bench(raw).unpacked(), raw.plane(0));
}

TEST(SixteenBitFrames, ThatAreShortAreLeftUncopiedWithoutAnError) {
  for (const char* model : {"VESTRA VS2020", "VESTRA VS4040", "VESTRA VS6060"}) {
    RawFrame raw(header(model, 16, false, 8, 2));
    raw.bytes.pop_back();
    Bench bench(raw);
    LowImage images;
    EXPECT_EQ(bench.frame->Unpack(&images), 0) << model;
    EXPECT_EQ(images.low(), Pixels(16, 0)) << model;
  }
}

TEST(SingleImages, ComputeTheHighGainStatisticsOnTheirResetState) {
  RawFrame raw(header("VESTRA VS4040", 12, false, 8, 4));
  Bench bench(raw);
  bench.frame->EnableMergeStatistics(true);
  LowImage images;
  ASSERT_EQ(bench.frame->Unpack(&images), 0);
  EXPECT_TRUE(std::isnan(bench.high().dMean));
}

TEST(GSense6060, SixteenBitHdrDataAndOtherSizesFailWithStatisticsComputed) {
  for (const auto& [bits, hdr] : {std::pair{16u, true}, std::pair{14u, false}}) {
    RawFrame raw(header("VESTRA VS6060", bits, hdr, 8, 2));
    Bench bench(raw);
    bench.frame->EnableMergeStatistics(true);
    LowImage images;
    EXPECT_EQ(bench.frame->Merge(&images), -1);
    EXPECT_TRUE(std::isnan(bench.low().dMean));
  }
}

TEST(GSense6060, DecoderAloneResetsTheStatisticsAndNeedsMetadata) {
  Exposed6060 empty;
  Pixels out(8);
  EXPECT_EQ(empty.DoUnpack12(out.data(), 8, out.data(), 8), -1);
  RawFrame raw(header("VESTRA VS6060", 12, false, 8, 2));
  Exposed6060 frame;
  frame.Initialize(raw.metaData, raw.bytes.data(), raw.bytes.size(), nullptr);
  EXPECT_EQ(frame.DoUnpackSingle(out.data(), 8), -1);  // 12-bit data
  frame.EnableMergeStatistics(true);
  Pixels low(16), high(16);
  EXPECT_EQ(frame.DoUnpack12(low.data(), 16, high.data(), 16), 0);
  EXPECT_EQ(frame.DoUnpack12(low.data(), 16, high.data(), 16), 0);
  EXPECT_EQ(low, raw.planes[0]);
}

TEST(PlainFrames, OfOtherPixelSizesFailWithoutCopying) {
  RawFrame raw(header("VESTRA PLAIN", 12, false, 8, 2));
  EXPECT_EQ(Bench(raw).unpacked(-1), Pixels(16, 0));
}

TEST(PlainFrames, CopyAsManyPixelsAsTheImageHasInOneRun) {
  sim::HeaderFields f = header("VESTRA PLAIN", 16, false, 4, 2);
  f.preRefPixels = 1;
  f.postRefRows = 1;  // 5 x 3
  RawFrame raw(f);
  Bench bench(raw);
  LowImage images;
  EXPECT_EQ(bench.frame->Unpack(&images), 0);
  Pixels expected = raw.planes[0];
  std::fill(expected.begin() + 8, expected.end(), 0);
  EXPECT_EQ(images.low(), expected);
}

TEST(PlainFrames, AreTakenAsBarePixelsWithoutAHeader) {
  RawFrame raw(header("VESTRA PLAIN", 16, false, 8, 2));
  Bytes bare(raw.bytes.end() - 32, raw.bytes.end());
  EXPECT_EQ(unpackedLow(raw.metaData, bare.data(), bare.size()), raw.plane(0));
}

TEST(PlainFrames, OfAnHdrPairAreMergedWithWhateverTheHighPlaneHolds) {
  RawFrame raw(header("VESTRA PLAIN", 16, true, 8, 2));
  Bench bench(raw);
  Images images;
  Images::all(images);
  EXPECT_EQ(bench.frame->Merge(&images), 0);
  EXPECT_EQ(images.high(), Pixels(16, 0));
  EXPECT_EQ(images.merged()[0],
            std::min(65535.0, std::round(std::min<double>(raw.planes[0][0], 4095.875) * 6.25)));
}

// ---- Regions of interest

class Region : public ::testing::TestWithParam<bool> {
 protected:
  Region() : fields(header("VESTRA VS4040", 12, GetParam(), 20, 6)) {}
  sim::HeaderFields fields;
};
INSTANTIATE_TEST_SUITE_P(SingleAndHdr, Region, ::testing::Bool(),
                         [](const auto& info) { return std::string(info.param ? "Hdr" : "Single"); });

TEST_P(Region, IsTheFramesOwnBytesBehindRoomForTheHeader) {
  RawFrame raw(fields);
  Bench bench(raw);
  frame_roi_t roi{4, 2, 8, 3};
  const unsigned int rows = GetParam() ? 6 : 3;
  Bytes out(384 + rows * 12 + 1, 0xEE);
  ASSERT_EQ(bench.frame->CopyROIToBuffer(roi, out.data(), 384 + rows * 12), 0);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 384), Bytes(384, 0xEE));
  EXPECT_EQ(out.back(), 0xEE);
  for (unsigned int row = 0; row < rows; ++row)
    for (unsigned int i = 0; i < 12; ++i)
      // 30 bytes a row; the rows ahead are skipped once, also where an HDR stream holds each twice.
      ASSERT_EQ(out[384 + row * 12 + i], raw.bytes[384 + (2 + row) * 30 + 6 + i]) << row << " " << i;
}

TEST_P(Region, StartsBehindReferencePixelsAndRows) {
  fields.preRefPixels = 4;
  fields.postRefPixels = 2;
  fields.preRefRows = 3;
  RawFrame raw(fields);
  Bench bench(raw);
  frame_roi_t roi{2, 1, 2, 1};
  Bytes out(384 + 6);
  ASSERT_EQ(bench.frame->CopyROIToBuffer(roi, out.data(), out.size()), 0);
  // A row of 26 pixels takes 39 bytes, 3 + 1 of them lie ahead; then 6 bytes of reference pixels and 3 of
  // column 2.
  for (unsigned int i = 0; i < 3; ++i)
    EXPECT_EQ(out[384 + i], raw.bytes[384 + 4 * 39 + 6 + 3 + i]);
}

TEST_P(Region, ThatIsOddOutsideOrTooLargeIsRefusedWithNothingWritten) {
  RawFrame raw(fields);
  Bench bench(raw);
  const frame_roi_t wrong[] = {{1, 0, 2, 1},          {0, 0, 3, 1},          {20, 0, 2, 1},
                               {0, 6, 2, 1},          {0, 0, 22, 1},         {0, 0, 2, 7},
                               {0xFFFFFFFE, 0, 4, 1}, {0, 0xFFFFFFFF, 2, 2}, {0, 0, 0xFFFFFFFE, 1},
                               {0, 0, 2, 0xFFFFFFFF}};
  Bytes out(2000, 0xEE);
  for (frame_roi_t roi : wrong)
    EXPECT_EQ(bench.frame->CopyROIToBuffer(roi, out.data(), out.size()), -1);
  frame_roi_t whole{0, 0, 20, 6};
  EXPECT_EQ(bench.frame->CopyROIToBuffer(whole, out.data(), 384 + (GetParam() ? 360 : 180) - 1), -1);
  EXPECT_EQ(bench.frame->CopyROIToBuffer(whole, nullptr, 2000), -1);
  EXPECT_EQ(out, Bytes(2000, 0xEE));
  raw.bytes.pop_back();
  bench.frame->SetSourceImage(raw.bytes.data(), raw.bytes.size());
  EXPECT_EQ(bench.frame->CopyROIToBuffer(whole, out.data(), out.size()), -1);
}

// ---- Frames that lie about themselves; tests/robustness cuts and damages them

TEST(HostileGeometry, AFrameOfWhichLittleArrivedIsStillDecodedUpToEightMegabytes) {
  sim::HeaderFields f = header("VESTRA VS400", 12, false, 2048, 2048);  // 8 MiB a plane
  Bytes bytes = sim::writeHeader(f, 3);
  bytes.insert(bytes.end(), {0xAB, 0xCD, 0xEF});
  CFrameMetaData metaData;
  ASSERT_EQ(metaData.Parse(bytes.data(), bytes.size()), 0);
  const std::unique_ptr<IFrame> frame(CFrameFactory::Create(metaData));
  frame->Initialize(metaData, bytes.data(), bytes.size(), nullptr);
  LowImage images;
  EXPECT_EQ(frame->Unpack(&images), -1);
  ASSERT_NE(images.pLowImage, nullptr);
  EXPECT_EQ(images.pLowImage[0], 0xABC);
  EXPECT_EQ(images.pLowImage[1], 0xDEF);
  EXPECT_EQ(images.pLowImage[2], 0);
}

TEST(HostileBuffers, AMergedPlaneThatNobodyAskedForIsNotWrittenBeyondItsSize) {
  sim::HeaderFields fields = header("VESTRA VS400", 12, true, 10, 4);
  fields.preRefRows = 1;
  fields.postRefPixels = 2;
  RawFrame raw(fields);
  Bench bench(raw);
  const Pixels before(raw.framePixels(), 7);
  for (const bool fewerPixels : {false, true})
    for (const bool smallerBuffer : {false, true}) {
      Pixels merged = before;
      unpacked_images_t images{};
      images.pMergedImage = merged.data();
      images.ulMergedImagePixels = merged.size() - (fewerPixels ? 1 : 0);
      images.ulMergedImageSize = 2 * merged.size() - (smallerBuffer ? 1 : 0);
      EXPECT_EQ(bench.frame->Merge(&images), 0);
      EXPECT_EQ(merged == before, fewerPixels || smallerBuffer);
    }
}

}  // namespace
