// Frames that lie about themselves. tests/robustness cuts and damages them.

#include "frames/FrameTesting.h"

namespace {

using namespace frame_testing;

sim::HeaderFields smallFrame(const char* model, bool hdr) {
  const bool gsense = std::string(model).find("VS") != std::string::npos;
  sim::HeaderFields f = header(model, gsense ? 12 : 16, hdr && gsense, 10, 4);
  f.preRefRows = gsense ? 1 : 0;
  f.postRefPixels = gsense ? 2 : 0;
  f.quadrants = 0x3C;
  return f;
}

int mergeBytes(Bytes bytes) {  // a copy of exactly this size, so that a sanitizer sees a byte read too far
  CFrameMetaData metaData;
  if (metaData.Parse(bytes.data(), bytes.size()) < 0) return -1;
  const auto algo = std::make_unique<CHWMergeReferenceFrames>();
  algo->SetMetaData(metaData);
  const std::unique_ptr<IFrame> frame(CFrameFactory::Create(metaData));
  frame->Initialize(metaData, bytes.data(), bytes.size(), algo.get());
  frame->EnableMergeStatistics(true);
  Images images;
  Images::all(images);
  return frame->Merge(&images);
}

TEST(HostileGeometry, InvertedImagesAreRefused) {
  RawFrame raw(smallFrame("VESTRA VS400", true));
  for (const std::size_t stop : {126u, 128u}) {  // stop row, stop column
    Bytes bytes = raw.bytes;
    bytes[stop - 4] = 0x10;  // the start lies beyond
    EXPECT_EQ(mergeBytes(bytes), -1);
  }
}

TEST(HostileGeometry, ProductsThatWrapAreNotFollowed) {
  // 65536 x 65536 pixels wrap to 0 in 32 bits.
  sim::HeaderFields f = header("VESTRA VS2020", 12, true, 65535, 65535);
  f.postRefPixels = 1;
  f.postRefRows = 1;
  Bytes bytes = sim::writeHeader(f, 3);
  bytes.resize(4096);
  EXPECT_EQ(mergeBytes(bytes), -1);
}

TEST(HostileGeometry, AFrameOfWhichLittleArrivedIsStillDecodedUpToEightMegabytes) {
  sim::HeaderFields f = header("VESTRA VS400", 12, false, 2048, 2048);  // 8 MiB a plane
  Bytes bytes = sim::writeHeader(f, 3);
  bytes.insert(bytes.end(), {0xAB, 0xCD, 0xEF});
  CFrameMetaData metaData;
  ASSERT_EQ(metaData.Parse(bytes.data(), bytes.size()), 0);
  const std::unique_ptr<IFrame> frame(CFrameFactory::Create(metaData));
  frame->Initialize(metaData, bytes.data(), bytes.size(), nullptr);
  Images images;
  images.bLowImageRequest = true;
  EXPECT_EQ(frame->Unpack(&images), -1);
  ASSERT_NE(images.pLowImage, nullptr);
  EXPECT_EQ(images.pLowImage[0], 0xABC);
  EXPECT_EQ(images.pLowImage[1], 0xDEF);
  EXPECT_EQ(images.pLowImage[2], 0);
}

TEST(HostileBuffers, AMergedPlaneThatNobodyAskedForIsNotWrittenBeyondItsSize) {
  RawFrame raw(smallFrame("VESTRA VS400", true));
  Bench bench(raw);
  Pixels merged(raw.framePixels(), 7);
  unpacked_images_t images{};
  images.pMergedImage = merged.data();
  images.ulMergedImagePixels = raw.framePixels();
  images.ulMergedImageSize = 2 * raw.framePixels() - 1;
  EXPECT_EQ(bench.frame->Merge(&images), 0);
  EXPECT_EQ(merged, Pixels(raw.framePixels(), 7));
  images.ulMergedImageSize = 2 * raw.framePixels();
  EXPECT_EQ(bench.frame->Merge(&images), 0);
  EXPECT_NE(merged, Pixels(raw.framePixels(), 7));
}

TEST(HostileBuffers, AMergedPlaneOfFewerPixelsIsSkippedSilently) {
  RawFrame raw(smallFrame("VESTRA VS400", true));
  Bench bench(raw);
  Pixels merged(raw.framePixels(), 7);
  unpacked_images_t images{};
  images.pMergedImage = merged.data();
  images.ulMergedImagePixels = raw.framePixels() - 1;
  images.ulMergedImageSize = 2 * raw.framePixels();
  EXPECT_EQ(bench.frame->Merge(&images), 0);
  EXPECT_EQ(merged, Pixels(raw.framePixels(), 7));
}

}  // namespace
