// The base of all frames, and the factory.

#include <gmock/gmock.h>
#include <orvacam/frames/CFrameArgent23084.h>
#include <orvacam/frames/CFrameGSense2020.h>
#include <orvacam/frames/CFrameGSense400.h>
#include <orvacam/frames/CFrameGSense4040.h>
#include <orvacam/frames/CFrameGSense6060.h>
#include <orvacam/frames/CFrameGeneric.h>
#include <orvacam/frames/CFrameIMX183.h>
#include <orvacam/frames/CFrameLSGEN.h>

#include <cstdlib>
#include <typeinfo>

#include "TestFolder.h"
#include "frames/FrameParts.h"
#include "frames/FrameTesting.h"
#include "support/Contains.h"

namespace {

using namespace frame_testing;

template <typename Frame>
void expectClass(unsigned int device) {
  const std::unique_ptr<IFrame> frame(CFrameFactory::Create(device));
  const IFrame& object = *frame;
  EXPECT_EQ(typeid(object), typeid(Frame)) << std::hex << device;
}

TEST(FrameFactory, KnowsEveryDevice) {
  expectClass<CFrameGSense400>(0x01000400);
  expectClass<CFrameGSense2020>(0x01002020);
  expectClass<CFrameGSense4040>(0x01004040);
  expectClass<CFrameGSense6060>(0x01006060);
  expectClass<CFrameArgent23084>(0x03004320);
  expectClass<CFrameArgent23084>(0x03023042);
  expectClass<CFrameArgent23084>(0x03023084);
  expectClass<CFrameIMX183>(0x04000183);
  expectClass<CFrameLSGEN>(0x850F0000);
  for (const unsigned int other : {0u, 0x05000420u, 0x01000401u, 0xFFFFFFFFu})
    expectClass<CFrameGeneric>(other);
}

TEST(FrameFactory, ReadsTheDeviceFromTheMetadata) {
  CFrameMetaData metaData;
  metaData.SetModelName("VESTRA VS6060", 13);
  const std::unique_ptr<IFrame> known(CFrameFactory::Create(metaData));
  EXPECT_NE(dynamic_cast<CFrameGSense6060*>(known.get()), nullptr);
  metaData.SetModelName("ARGENT 9999", 11);
  const std::unique_ptr<IFrame> unknown(CFrameFactory::Create(metaData));
  EXPECT_NE(dynamic_cast<CFrameGeneric*>(unknown.get()), nullptr);
  unsigned char buffer[384];
  EXPECT_EQ(unknown->GetProcessedLowMetaData(buffer, 384), 0);  // it has its own copy of the metadata
}

/// A frame class of an outside program.
class OutsideFrame : public IFrame {
 public:
  using IFrame::m_bSourceByteSwapped;
  using IFrame::m_pSource;
  using IFrame::m_uiWorkSize;
  using IFrame::m_uiWorkSizeWithHeader;
  using IFrame::m_ulSourceLength;
  using IFrame::m_UserMergeBuffers;
};

/// A merge algorithm of an outside program, which notes what the frame tells it.
class OutsideMerge : public CCustomMergeAlgo {
 public:
  int MergeFrames(unsigned short* pLow, unsigned short* pHigh, unsigned short* pMerged,
                  unsigned long ulNumPixels) override {
    merges.push_back({pLow, pHigh, pMerged, ulNumPixels, m_bMergedStatistics});
    return 3;
  }
  void GetMergeHeaderSize(ORVA_IMAGE_FORMAT eFormat, unsigned long ulNumPixels, unsigned int uiBitsPerPixel,
                          unsigned int& uiLeading, unsigned int& uiTrailing) override {
    askedFormat = eFormat;
    askedPixels = ulNumPixels;
    askedBits = uiBitsPerPixel;
    uiLeading = 10;
    uiTrailing = 6;
  }
  void SetStartRowOffset(unsigned int uiRow) override { startRow = uiRow; }

  struct Call {
    unsigned short *low, *high, *merged;
    unsigned long pixels;
    bool statistics;
  };
  std::vector<Call> merges;
  unsigned int askedFormat = 99, askedBits = 0, startRow = 0;
  unsigned long askedPixels = 0;
};

class FrameBase : public ::testing::Test {
 protected:
  FrameBase() : raw(header("VESTRA VS400", 12, true, 8, 4)) {}
  void initialize(CCustomMergeAlgo* algo = nullptr) {
    frame.Initialize(raw.metaData, raw.bytes.data(), raw.bytes.size(), algo);
  }

  RawFrame raw;
  OutsideFrame frame;
};

TEST_F(FrameBase, CannotMergeUnpackOrCopyRegions) {
  initialize();
  Images images;
  frame_roi_t roi{};
  EXPECT_EQ(frame.Merge(&images), -1);
  EXPECT_EQ(frame.Unpack(&images), -1);
  EXPECT_EQ(frame.CopyROIToBuffer(roi, raw.bytes.data(), 10), -1);
}

TEST_F(FrameBase, AllocatesWhatTheCallerLeavesNull) {
  initialize();
  Images images;
  Images::all(images);
  ASSERT_EQ(frame.AllocateUserMergeBuffers(&images), 0);
  EXPECT_EQ(images.uiMetaDataSize, 384u);
  EXPECT_EQ(images.ulLowImageSize, 64u);
  EXPECT_EQ(images.ulHighImageSize, 64u);
  EXPECT_EQ(images.ulMergedImageSize, 64u);
  EXPECT_EQ(images.ulLowImagePixels, 32u);
  EXPECT_EQ(images.ulHighImagePixels, 32u);
  EXPECT_EQ(images.ulMergedImagePixels, 32u);
  EXPECT_EQ(Bytes(images.pHighMetaData, images.pHighMetaData + 384), Bytes(384, 0));
}

TEST_F(FrameBase, LeavesTheCallersFieldsOfPlanesThatWereNotAskedFor) {
  initialize();
  LowImage images;
  ASSERT_EQ(frame.AllocateUserMergeBuffers(&images), 0);
  EXPECT_EQ(images.pHighImage, nullptr);
  EXPECT_EQ(images.ulHighImagePixels, 0u);
  EXPECT_NE(frame.m_UserMergeBuffers.pHighImage, nullptr);
  EXPECT_EQ(frame.m_UserMergeBuffers.ulHighImagePixels, 32u);
  EXPECT_EQ(frame.m_UserMergeBuffers.ulHighImageSize, 64u);
  EXPECT_NE(frame.m_UserMergeBuffers.pMergedImage, nullptr);
  EXPECT_EQ(frame.m_UserMergeBuffers.pLowImage, images.pLowImage);
}

TEST_F(FrameBase, ClearsACallersBufferAlsoWhenItIsTooSmall) {
  initialize();
  for (const unsigned long capacity : {62ul, 64ul, 66ul}) {
    Pixels plane(40, 7);
    unpacked_images_t images{};
    images.bLowImageRequest = true;
    images.pLowImage = plane.data();
    images.ulLowImageSize = capacity;
    EXPECT_EQ(frame.AllocateUserMergeBuffers(&images), capacity < 64 ? -1 : 0);
    EXPECT_EQ(plane[capacity / 2 - 1], 0);
    EXPECT_EQ(plane[capacity / 2], 7);
  }
}

TEST_F(FrameBase, RefusesACallersMetadataBufferThatIsTooSmallAndDoesNotClearIt) {
  initialize();
  Bytes buffer(383, 9);
  unpacked_images_t images{};
  images.bMetaDataRequest = true;
  images.uiMetaDataSize = 383;
  images.pLowMetaData = buffer.data();
  EXPECT_EQ(frame.AllocateUserMergeBuffers(&images), -1);
  EXPECT_EQ(buffer, Bytes(383, 9));
}

TEST_F(FrameBase, MakesRoomForTheMergedImagesHeader) {
  const auto algo = std::make_unique<CHWMergeReferenceFrames>();
  algo->SetMetaData(raw.metaData);
  const struct {
    unsigned int format;
    unsigned long size;
  } formats[] = {{ORVA_IMAGE_FORMAT_RAW, 64},
                 {ORVA_IMAGE_FORMAT_TIFF, 64 + 656 + 384},
                 {ORVA_IMAGE_FORMAT_FITS, 64 + 5760 + 2816},
                 {9, 64}};
  for (const auto& format : formats) {
    algo->SetMergeEnables({0, format.format, 0});
    for (CCustomMergeAlgo* owner :
         {static_cast<CCustomMergeAlgo*>(algo.get()), static_cast<CCustomMergeAlgo*>(nullptr)}) {
      initialize(algo.get());                     // takes the format
      if (owner == nullptr) initialize(nullptr);  // keeps it
      Images images;
      images.bMergedImageRequest = true;
      ASSERT_EQ(frame.AllocateUserMergeBuffers(&images), 0);
      EXPECT_EQ(images.ulMergedImageSize, format.size);
      EXPECT_EQ(images.ulMergedImagePixels, 32u);
    }
  }
}

TEST_F(FrameBase, AsksTheAlgorithmForRoomAndTellsItTheImagesFirstRow) {
  sim::HeaderFields f = header("VESTRA VS400", 12, true, 8, 4);
  f.startRow = 21;
  RawFrame lower(f);
  const auto algo = std::make_unique<OutsideMerge>();
  algo->SetMergeEnables({0, 5, 0});
  frame.Initialize(lower.metaData, lower.bytes.data(), lower.bytes.size(), algo.get());
  Images images;
  ASSERT_EQ(frame.AllocateUserMergeBuffers(&images), 0);
  EXPECT_EQ(algo->askedFormat, 99u);  // nobody wants a merged plane
  images.bMergedImageRequest = true;
  ASSERT_EQ(frame.AllocateUserMergeBuffers(&images), 0);
  EXPECT_EQ(algo->askedFormat, 5u);
  EXPECT_EQ(algo->askedPixels, 32u);
  EXPECT_EQ(algo->askedBits, 16u);
  EXPECT_EQ(algo->startRow, 21u);
  EXPECT_EQ(images.ulMergedImageSize, 64u + 10 + 6);
  EXPECT_EQ(images.ulMergedImagePixels, 32u);
}

TEST_F(FrameBase, HandsTheAlgorithmItsPlanesAndTheStatisticsFlag) {
  const auto algo = std::make_unique<OutsideMerge>();
  initialize(algo.get());
  Pixels low(4), high(4), merged(4);
  for (const bool enabled : {true, false}) {
    frame.EnableMergeStatistics(enabled);
    algo->merges.clear();
    EXPECT_EQ(frame.MergeFrame(low.data(), high.data(), merged.data(), 4), 3);  // the algorithm's status
    ASSERT_EQ(algo->merges.size(), 1u);
    EXPECT_EQ(algo->merges[0].low, low.data());
    EXPECT_EQ(algo->merges[0].high, high.data());
    EXPECT_EQ(algo->merges[0].merged, merged.data());
    EXPECT_EQ(algo->merges[0].pixels, 4u);
    EXPECT_EQ(algo->merges[0].statistics, enabled);
  }
  frame.EnableMergeStatistics(true);
  initialize(algo.get());  // clears the flag
  frame.MergeFrame(low.data(), high.data(), merged.data(), 4);
  EXPECT_FALSE(algo->merges.back().statistics);
}

TEST_F(FrameBase, KeepsTheStatusOfUnpackingWhateverTheAlgorithmSays) {
  const auto algo = std::make_unique<OutsideMerge>();
  Bench bench(raw);
  bench.frame->Initialize(raw.metaData, raw.bytes.data(), raw.bytes.size(), algo.get());
  Images images;
  Images::all(images);
  EXPECT_EQ(bench.frame->Merge(&images), 0);
  ASSERT_EQ(algo->merges.size(), 1u);
  EXPECT_EQ(algo->merges[0].low, images.pLowImage);
  EXPECT_EQ(algo->merges[0].high, images.pHighImage);
  EXPECT_EQ(algo->merges[0].merged, images.pMergedImage);
  EXPECT_EQ(algo->merges[0].pixels, 32u);
  EXPECT_EQ(images.low(), raw.plane(0));
  EXPECT_EQ(images.high(), raw.plane(1));
}

TEST_F(FrameBase, KeepsItsWorkingBuffersWhenTheyAreLargeEnough) {
  ASSERT_EQ(frame.AllocateFrameBuffers(100, 10), 0);
  EXPECT_EQ(frame.m_uiWorkSize, 100u);
  EXPECT_EQ(frame.m_uiWorkSizeWithHeader, 110u);
  ASSERT_EQ(frame.AllocateFrameBuffers(100, 5000), 0);  // a larger header alone changes nothing
  EXPECT_EQ(frame.m_uiWorkSizeWithHeader, 110u);
  ASSERT_EQ(frame.AllocateFrameBuffers(101, 20), 0);
  EXPECT_EQ(frame.m_uiWorkSizeWithHeader, 121u);
  frame.FreeUnpackedBuffers();
  EXPECT_EQ(frame.m_uiWorkSize, 0u);
}

TEST_F(FrameBase, TakesAGivenBufferForWhatItHolds) {
  unsigned short pixels[3] = {1, 2, 3};
  unsigned short* image = pixels;
  unsigned long capacity = sizeof pixels;
  EXPECT_EQ(frame.AllocateBufferPointer(4, &image, &capacity), 0);
  EXPECT_THAT(pixels, ::testing::Each(0)) << "an image is cleared over its capacity";
  EXPECT_TRUE(image == pixels && capacity == sizeof pixels);
  pixels[0] = pixels[1] = pixels[2] = 9;
  capacity = 4;
  EXPECT_EQ(frame.AllocateBufferPointer(6, &image, &capacity), -1);
  EXPECT_THAT(pixels, ::testing::ElementsAre(0, 0, 9)) << "also when it is too small, and not beyond it";

  unsigned char bytes[3] = {1, 2, 3};
  unsigned char* metaData = bytes;
  unsigned int metaCapacity = sizeof bytes;
  EXPECT_EQ(frame.AllocateMetaDataPointer(3, &metaData, &metaCapacity), 0);
  EXPECT_EQ(frame.AllocateMetaDataPointer(4, &metaData, &metaCapacity), -1);
  EXPECT_THAT(bytes, ::testing::ElementsAre(1, 2, 3)) << "a header's buffer is never cleared";
}

TEST_F(FrameBase, MakesABufferOfTheSizeWhereThereIsNone) {
  unsigned short* image = nullptr;
  unsigned long capacity = 7;
  ASSERT_EQ(frame.AllocateBufferPointer(8, &image, &capacity), 0);
  EXPECT_EQ(capacity, 8u);
  EXPECT_THAT(std::vector<unsigned short>(image, image + 4), ::testing::Each(0));
  std::free(image);
  unsigned char* metaData = nullptr;
  unsigned int metaCapacity = 7;
  ASSERT_EQ(frame.AllocateMetaDataPointer(5, &metaData, &metaCapacity), 0);
  EXPECT_EQ(metaCapacity, 5u);
  std::free(metaData);
}

TEST_F(FrameBase, RefusesNullBufferPointers) {
  unsigned long capacity = 0;
  unsigned int metaCapacity = 0;
  unsigned short* image = nullptr;
  unsigned char* metaData = nullptr;
  EXPECT_EQ(frame.AllocateBufferPointer(4, nullptr, &capacity), -1);
  EXPECT_EQ(frame.AllocateBufferPointer(4, &image, nullptr), -1);
  EXPECT_EQ(frame.AllocateMetaDataPointer(4, nullptr, &metaCapacity), -1);
  EXPECT_EQ(frame.AllocateMetaDataPointer(4, &metaData, nullptr), -1);
  EXPECT_EQ(frame.AllocateUserMergeBuffers(nullptr), -1);
}

TEST_F(FrameBase, WritesEachPlanesProcessedHeader) {
  initialize();
  Bytes low(384), high(384), merged(384);
  ASSERT_EQ(frame.GetProcessedLowMetaData(low.data(), 384), 0);
  ASSERT_EQ(frame.GetProcessedHighMetaData(high.data(), 384), 0);
  ASSERT_EQ(frame.GetProcessedMergedMetaData(merged.data(), 384), 0);
  const struct {
    Bytes& bytes;
    bool high, merged;
  } planes[] = {{low, false, false}, {high, true, false}, {merged, false, true}};
  for (const auto& plane : planes) {
    CFrameMetaData metaData;
    ASSERT_EQ(metaData.Parse(plane.bytes.data(), 384), 0);
    EXPECT_EQ(metaData.Value(ORVA_META_KEY_TEST_IS_HIGH_FRAME).GetValueBool(), plane.high);
    EXPECT_EQ(metaData.Value(ORVA_META_KEY_TEST_IS_MERGED_FRAME).GetValueBool(), plane.merged);
    EXPECT_EQ(metaData.Value(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH).GetValueUint(), 16u);
    EXPECT_FALSE(metaData.Value(ORVA_META_KEY_HDR_MODE).GetValueBool());
    EXPECT_TRUE(metaData.Value(ORVA_META_KEY_PIXEL_ORDERED_IMAGE).GetValueBool());
  }
  frame.m_bSourceByteSwapped = true;
  ASSERT_EQ(frame.GetProcessedLowMetaData(low.data(), 384), 0);
  CFrameMetaData swapped;
  ASSERT_EQ(swapped.Parse(low.data(), 384), 0);
  EXPECT_FALSE(swapped.Value(ORVA_META_KEY_PIXEL_ORDERED_IMAGE).GetValueBool());

  Bytes small(383, 9);
  EXPECT_EQ(frame.GetProcessedHighMetaData(small.data(), 383), -1);
  EXPECT_EQ(small, Bytes(383, 9));
  OutsideFrame empty;
  EXPECT_EQ(empty.GetProcessedLowMetaData(low.data(), 384), -1);
}

TEST_F(FrameBase, LeavesAHeaderThatIsTooShortToBeWritten) {
  RawFrame old(header("VESTRA VS400", 12, false, 8, 4), 1);
  frame.Initialize(old.metaData, old.bytes.data(), old.bytes.size(), nullptr);
  Bytes buffer(156, 9);
  EXPECT_EQ(frame.GetProcessedLowMetaData(buffer.data(), 156), 0);
  EXPECT_EQ(buffer, Bytes(156, 9));
}

TEST_F(FrameBase, MergesNothingForANullPlaneOrNoPixels) {
  initialize();
  Pixels plane(4);
  EXPECT_EQ(frame.MergeFrame(nullptr, plane.data(), plane.data(), 4), 0);
  EXPECT_EQ(frame.MergeFrame(plane.data(), nullptr, plane.data(), 4), 0);
  EXPECT_EQ(frame.MergeFrame(plane.data(), plane.data(), nullptr, 4), 0);
  EXPECT_EQ(frame.MergeFrame(plane.data(), plane.data(), plane.data(), 0), 0);
  EXPECT_EQ(frame.MergeFrame(plane.data(), plane.data(), plane.data(), 4), -1);  // no algorithm
}

TEST_F(FrameBase, GivesTheMergedStatisticsOfTheAlgorithm) {
  const auto algo = std::make_unique<CHWMergeReferenceFrames>();
  algo->SetMetaData(raw.metaData);
  algo->CreateIdentityFrames(8, 4, nullptr);
  initialize(algo.get());
  frame.EnableMergeStatistics(true);
  Pixels low(32, 1), high(32, 5), merged(32);
  ASSERT_EQ(frame.MergeFrame(low.data(), high.data(), merged.data(), 32), 0);
  image_plane_stats_t stats{};
  frame.GetMergedFrameStats(stats);
  EXPECT_EQ(stats.dMean, 5.0);
  frame.Initialize(raw.metaData, raw.bytes.data(), raw.bytes.size(), nullptr);
  frame.GetMergedFrameStats(stats);
  EXPECT_EQ(stats.dMean, 0.0);  // its own, reset
}

// ---- Source data

TEST_F(FrameBase, ReadsAWholeFileAndLeavesTheStreamOpen) {
  const TestFolder folder;
  folder.write("frame", raw.bytes);
  std::FILE* file = std::fopen(folder.file("frame").c_str(), "rb");
  std::fseek(file, 100, SEEK_SET);
  EXPECT_EQ(frame.Initialize(raw.metaData, file, nullptr), 0);
  EXPECT_EQ(frame.m_ulSourceLength, raw.bytes.size());
  EXPECT_EQ(frame.SetSourceImage(file), 0);   // once more
  EXPECT_EQ(frame.ReadSourceImage(file), 0);  // which gives back what was read before
  EXPECT_GE(std::ftell(file), 0);
  std::fclose(file);
  frame.FreeSourceImageBuffer();
  EXPECT_EQ(frame.m_ulSourceLength, 0u);
}

TEST_F(FrameBase, ReadsIntoItsMemoryAgainWhereTheFileHasTheSameLength) {
  const TestFolder folder;
  folder.write("frame", raw.bytes);
  std::FILE* file = std::fopen(folder.file("frame").c_str(), "rb");
  const unsigned long length = raw.bytes.size();
  EXPECT_EQ(frame.Initialize(raw.metaData, file, nullptr), 0);
  const unsigned char* const memory = frame.m_pSource;
  EXPECT_EQ(frame.SetSourceImage(file), 0);
  EXPECT_EQ(frame.m_pSource, memory);
  EXPECT_TRUE(std::equal(raw.bytes.begin(), raw.bytes.end(), memory));

  folder.write("longer", Bytes(length + 1, 7));
  std::FILE* longer = std::fopen(folder.file("longer").c_str(), "rb");
  EXPECT_EQ(frame.SetSourceImage(longer), 0);
  EXPECT_EQ(frame.m_ulSourceLength, length + 1);
  EXPECT_EQ(Bytes(frame.m_pSource, frame.m_pSource + length + 1), Bytes(length + 1, 7));
  std::fclose(longer);
  EXPECT_EQ(frame.SetSourceImage(file), 0);
  frame.SetSourceImage(raw.bytes.data(), length);  // the caller's
  EXPECT_EQ(frame.SetSourceImage(file), 0);
  EXPECT_NE(frame.m_pSource, raw.bytes.data());
  EXPECT_EQ(frame.SetSourceImage(nullptr), -1);
  EXPECT_EQ(frame.m_ulSourceLength, 0u);
  std::fclose(file);
}

TEST_F(FrameBase, TakesBytesThatAreLent) {
  const TestFolder folder;
  folder.write("frame", raw.bytes);
  std::FILE* file = std::fopen(folder.file("frame").c_str(), "rb");
  orvacam::OwnedMemory memory;
  ASSERT_TRUE(orvacam::readWhole(file, memory));
  EXPECT_EQ(memory.length, raw.bytes.size());
  const unsigned char* const bytes = memory.bytes.get();
  EXPECT_TRUE(std::equal(raw.bytes.begin(), raw.bytes.end(), bytes));
  ASSERT_TRUE(orvacam::readWhole(file, memory));
  EXPECT_EQ(memory.bytes.get(), bytes) << "once more into the same memory";
  EXPECT_FALSE(orvacam::readWhole(nullptr, memory));
  EXPECT_EQ(memory.bytes.get(), bytes) << "as it was";
  std::fclose(file);

  CFrameGSense400 sensor;
  EXPECT_EQ(sensor.Initialize(raw.metaData, static_cast<std::FILE*>(nullptr), nullptr), -1);
  for (const bool whole : {true, false}) {
    orvacam::lendSource(sensor, memory, whole);
    LowImage images;
    EXPECT_EQ(sensor.Unpack(&images), whole ? 0 : -1);
    if (whole) EXPECT_EQ(images.low(), raw.plane(0));
  }
  orvacam::lendSource(sensor, {}, false);  // nothing could be read
  Images images;
  EXPECT_EQ(sensor.Merge(&images), -1);
}

// tests/robustness has what else is no regular file with contents.
TEST_F(FrameBase, RefusesStreamsThatAreNullOrCannotBeRead) {
  EXPECT_EQ(frame.Initialize(raw.metaData, static_cast<std::FILE*>(nullptr), nullptr), -1);
  EXPECT_EQ(frame.ReadSourceImage(nullptr), -1);
  const TestFolder folder;
  std::FILE* writeOnly = std::fopen(folder.file("write").c_str(), "wb");
  std::fputs("bytes", writeOnly);
  std::fflush(writeOnly);
  EXPECT_EQ(frame.Initialize(raw.metaData, writeOnly, nullptr), -1);
  std::fclose(writeOnly);
}

TEST(FrameLog, TellsOfInitializationAndSource) {
  const LogCapture log;
  RawFrame raw(header("VESTRA VS400", 12, true, 8, 4));
  CFrameGSense400 frame;
  frame.Initialize(raw.metaData, raw.bytes.data(), 480, nullptr);
  frame.SetSourceImage(nullptr, 5);  // says nothing
  EXPECT_EQ(log.text(),
            "UNKNO, Initialize: Entered\nUNKNO, SetSourceImage: Entered uiSourceImageLength= 480 (0x1e0)\n"
            "UNKNO, SetSourceImage: Leaving\nUNKNO, Initialize: Leaving\n");
  LowImage images;
  frame.Unpack(&images);
  EXPECT_TRUE(contains(log.text(),
                       "UNKNO, Unpack: uiPixelSize= 32\nUNKNO, Unpack: uiFrameWidth= 8, uiFrameHeight= 4\n"
                       "UNKNO, DoUnpackHDR: uiTotalFrameWidth= 8, uiTotalFrameHeight= 4\n"
                       "UNKNO, DoUnpackHDR: uiImageWidth= 8, uiImageHeight= 4\n"));
}

}  // namespace
