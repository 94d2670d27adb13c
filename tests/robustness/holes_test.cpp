// Holes that hostile input once had, each as the input that went through it.

#include <orvacam.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "TestFolder.h"
#include "frames/FrameTesting.h"
#include "robustness/Frames.h"
#include "robustness/Surroundings.h"
#include "simulator/FitsHeader.h"

namespace {

using namespace robustness;
using sim::Cards;

/// A frame whose header is these cards, and so many bytes of pixels.
Bytes fitsFrame(const Cards& cards, std::size_t pixelBytes = 0) {
  Bytes bytes = sim::writeCards(cards);
  for (std::size_t i = 0; i < pixelBytes; ++i)
    bytes.push_back(static_cast<unsigned char>(1 + i % 251));
  return bytes;
}

/// Runs a body in a process of its own that may hold 64 MiB beyond what it has at its start; more is a
/// complaint.
std::string inLittleMemory(const std::function<std::string()>& body) {
  return inChild([&] {
    const auto held = [] {
      rusage usage{};
      getrusage(RUSAGE_SELF, &usage);
      return usage.ru_maxrss;
    };
    const long before = held();
    std::string complaints = body();
    // The sanitizers' own memory would count, too.
    if (!sanitized && held() - before >= 64 * 1024)
      complaints += "took " + std::to_string(held() - before) + " KiB";
    return complaints;
  });
}

// ---- Header buffers

/// A raw frame whose header states this many bytes.
Bytes frameWithHeaderOf(unsigned int length) {
  sim::HeaderFields fields = fieldsOf(modeNamed("Generic"), 4, 2);
  Bytes frame = frameOf(fields);
  frame.insert(frame.begin() + 384, length - 384, 0);
  frame[4] = static_cast<unsigned char>(length >> 8);
  frame[5] = static_cast<unsigned char>(length & 255);
  return frame;
}

/// Header buffers of a caller's: each is given or left null. What is given has a guard behind it.
struct HeaderBuffers {
  HeaderBuffers(unsigned int given, unsigned int capacity) : size(capacity) {
    unsigned char** const buffers[] = {&images.pLowMetaData, &images.pHighMetaData, &images.pMergedMetaData};
    images.bMetaDataRequest = images.bLowImageRequest = true;
    images.uiMetaDataSize = capacity;
    for (int i = 0; i < 3; ++i) {
      if ((given >> i & 1) == 0) continue;
      own[i].assign(capacity + 4096, guard);
      *buffers[i] = own[i].data();
    }
  }
  HeaderBuffers(const HeaderBuffers&) = delete;
  HeaderBuffers& operator=(const HeaderBuffers&) = delete;
  ~HeaderBuffers() {
    for (const auto& [pointer, bytes] : {std::pair(&images.pLowMetaData, &own[0]),
                                         {&images.pHighMetaData, &own[1]},
                                         {&images.pMergedMetaData, &own[2]}})
      if (*pointer != bytes->data()) std::free(*pointer);
    std::free(images.pLowImage);
  }
  bool intact() const {
    return std::all_of(std::begin(own), std::end(own), [this](const Bytes& bytes) {
      return bytes.empty() || std::count(bytes.begin() + size, bytes.end(), guard) == 4096;
    });
  }

  static constexpr unsigned char guard = 0xA5;
  unsigned int size;
  unpacked_images_t images{};
  Bytes own[3];
};

TEST(Holes, AGivenHeaderBufferIsHeldToItsCapacityWhateverIsAllocatedBesides) {
  constexpr unsigned int stated = 1000;
  const TestFolder folder;
  const Bytes frame = frameWithHeaderOf(stated);
  const std::wstring name = folder.write("frame.raw", frame);
  const auto algo = std::make_unique<CAlgo>();
  for (const bool fromFile : {false, true})
    for (unsigned int given = 0; given < 8; ++given)
      for (const unsigned int capacity : {0u, 1u, 384u, stated - 1, stated, stated + 1, 2000u}) {
        HeaderBuffers buffers(given, capacity);
        Bytes bytes = frame;
        const int status = fromFile
                               ? algo->MergeFile(name.c_str(), &buffers.images, nullptr, nullptr, nullptr)
                               : algo->MergeImage(bytes.data(), bytes.size(), &buffers.images, nullptr);
        const bool fits = given == 0 || capacity >= stated;
        EXPECT_EQ(status, fits ? 0 : -1) << given << ", " << capacity;
        EXPECT_TRUE(buffers.intact()) << given << ", " << capacity;
        // The caller can call again: the capacity is that of the smallest buffer.
        EXPECT_LE(buffers.images.uiMetaDataSize, given != 0 ? std::max(capacity, 0u) : stated);
        if (!fits) {
          EXPECT_EQ(buffers.images.uiMetaDataSize, capacity);
          continue;
        }
        for (const unsigned char* header :
             {buffers.images.pLowMetaData, buffers.images.pHighMetaData, buffers.images.pMergedMetaData})
          EXPECT_EQ(std::string(header, header + 4), "Meta");
      }
}

// ---- Conversion

TEST(Holes, AGeometryThatAProcessedHeaderDoesNotHoldIsNotConverted) {
  const Cards plain = {{"INSTRUME", "'VESTRA PLAIN'"}, {"MDLENGTH", "384"}, {"DPIXDEP", "16"}};
  const Cards hostile[] = {
      {{"IMGSTPCL", "1000"}, {"IMGSTPRW", "1000"}, {"XBINNING", "65536"}, {"YBINNING", "65536"}},
      {{"IMGSTPCL", "1000"}, {"IMGSTPRW", "1000"}, {"XBINNING", "65537"}},
      {{"IMGSTPCL", "4294967295"}, {"IMGSTPRW", "100"}},
      {{"IMGSTPCL", "65536"}},
      {{"IMGSTPCL", "100"}, {"IMGSTPRW", "100"}, {"PREREFRW", "4097"}, {"YBINNING", "65535"}},
      {{"IMGSTPCL", "100"}, {"IMGSTPRW", "100"}, {"PSTREFRW", "4096"}},
      {{"IMGSTPCL", "100"}, {"PRFPXPRW", "256"}, {"XBINNING", "300"}},
      {{"IMGSTPCL", "100"}, {"RFPXLPRW", "4294967295"}},
      {{"IMGSTPCL", "100"}, {"MAGIC", "1"}}};
  const auto algo = std::make_unique<CAlgo>();
  for (const Cards& cards : hostile)
    for (const unsigned int format : {1u, 2u}) {
      const TestFolder folder;
      Cards all = plain;
      all.insert(all.end(), cards.begin(), cards.end());
      const std::wstring source = folder.write("source.fit", fitsFrame(all, 100000));
      const conv_info_t info{format, nullptr, nullptr};
      EXPECT_EQ(algo->ConvertFile(source.c_str(), &info, folder.wideFile("out.raw").c_str()), -1)
          << cards[0].first << ", format " << format;
      EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
    }
}

TEST(Holes, AFitsSourceThatAProcessedHeaderHoldsIsConverted) {
  const TestFolder folder;
  const Cards cards = {{"INSTRUME", "'VESTRA PLAIN'"},
                       {"DPIXDEP", "16"},
                       {"MDLENGTH", "384"},
                       {"IMGSTPCL", "7"},
                       {"IMGSTPRW", "3"},
                       {"XBINNING", "2"},
                       {"PREREFRW", "1"},
                       {"PXLORDIM", "1"}};
  const Bytes source = fitsFrame(cards, 100);
  const std::wstring name = folder.write("source.fit", source);
  const conv_info_t info{ORVA_IMAGE_FORMAT_TIFF, nullptr, nullptr};
  const auto algo = std::make_unique<CAlgo>();
  ASSERT_GT(algo->ConvertFile(name.c_str(), &info, folder.wideFile("out.raw").c_str()), 0);
  const Bytes file = folder.read("out.tiff");
  // 4 columns and 5 rows; such a sensor's source need not begin with a header.
  ASSERT_EQ(file.size(), 656u + 384 + 2 * 4 * 5);
  EXPECT_TRUE(std::equal(file.begin() + 1040, file.begin() + 1040 + 2 * 4 * 4, source.begin()));
}

// ---- Regions

TEST(Holes, ARegionWhoseBytesWrapAt64BitsIsNotCopied) {
  // 1.5 x width x (rows ahead of the region + 1) is 2^64 + 452: the region seemed to end within the source,
  // and its first row lay gigabytes ahead of it.
  constexpr unsigned int width = 3201754728, rows = 1920482739;
  const Bytes source = fitsFrame({{"INSTRUME", "'VESTRA VS4040'"},
                                  {"MDLENGTH", "384"},
                                  {"DPIXDEP", "12"},
                                  {"IMGSTPCL", std::to_string(width - 1)},
                                  {"IMGSTPRW", "2000000000"},
                                  {"PREREFRW", std::to_string(rows)}});
  EXPECT_EQ(
      inChild([&]() -> std::string {
        Bytes bytes = source;
        CAlgo algo;
        CFrameMetaData metaData;
        metaData.Parse(bytes.data(), static_cast<unsigned int>(bytes.size()));
        const std::unique_ptr<IFrame> frame(algo.InitFrame(&metaData, bytes.data(), bytes.size(), nullptr));
        Bytes copied(384 + 6);
        frame_roi_t region{};
        region.uiY = rows;
        region.uiWidth = region.uiHeight = 2;
        return frame->CopyROIToBuffer(region, copied.data(), 390) == -1 ? "" : "it is copied";
      }),
      "");
}

// ---- Memory

TEST(Holes, AHeaderLengthOfAFewHundredMegabytesTakesNone) {
  for (const char* length : {"65536", "200000000", "4294967295"})
    for (const char* model : models)
      EXPECT_EQ(inLittleMemory([&]() -> std::string {
                  const TestFolder folder;
                  Bytes bytes = fitsFrame({{"INSTRUME", "'" + std::string(model) + "'"},
                                           {"MDLENGTH", length},
                                           {"DPIXDEP", "16"},
                                           {"HDR-MODE", "1"}});
                  const std::wstring name = folder.write("source.fit", bytes);
                  CAlgo algo;
                  unpacked_images_t images{};
                  images.bMetaDataRequest = images.bLowImageRequest = images.bMergedImageRequest = true;
                  std::string complaints;
                  if (algo.MergeImage(bytes.data(), bytes.size(), &images, nullptr) != -1)
                    complaints += "MergeImage takes it\n";
                  if (algo.MergeFile(name.c_str(), &images, nullptr, nullptr, nullptr) != -1)
                    complaints += "MergeFile takes it\n";
                  algo.FreeFramePointers(&images);
                  for (const unsigned int format : {1u, 2u}) {
                    const conv_info_t info{format, nullptr, nullptr};
                    if (algo.ConvertFile(name.c_str(), &info, folder.wideFile("out.raw").c_str()) != -1)
                      complaints += "ConvertFile takes it\n";
                  }
                  CStacker stacker;
                  unsigned char* header = nullptr;
                  unsigned int size = 0;
                  if (stacker.GetStackedMetaData(bytes.data(), static_cast<unsigned int>(bytes.size()),
                                                 &header, &size) != -1)
                    complaints += "GetStackedMetaData takes it\n";
                  return complaints;
                }),
                "")
          << length << ", " << model;
}

// ---- Time

TEST(Holes, RowsOfNothingAreNotWalked) {
  // As wide as a number of 32 bits that wraps to none; the process ends within a minute, which the rows of
  // one of these frames would take.
  for (const char* model : models)
    for (const char* bits : {"12", "16"})
      for (const char* hdr : {"0", "1"})
        EXPECT_EQ(inChild([&]() -> std::string {
                    Bytes bytes = fitsFrame({{"INSTRUME", "'" + std::string(model) + "'"},
                                             {"MDLENGTH", "384"},
                                             {"DPIXDEP", bits},
                                             {"HDR-MODE", hdr},
                                             {"SENSRDQ", "60"},
                                             {"IMGSTPCL", "4294967295"},
                                             {"IMGSTPRW", "4294967294"}},
                                            5000);
                    CAlgo algo;
                    for (int i = 0; i < 10; ++i) {
                      unpacked_images_t images{};
                      unpacked_stats_t stats{};
                      images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
                      stats.statsLow.bRequest = stats.statsMerged.bRequest = true;
                      const int status = algo.MergeImage(bytes.data(), bytes.size(), &images, &stats);
                      algo.FreeFramePointers(&images);
                      algo.FreeStatsPointers(&stats);
                      if (status != -1) return "it is taken";
                    }
                    return "";
                  }),
                  "")
            << model << ", " << bits << " bits, HDR " << hdr;
}

TEST(Holes, ABiasOfNoColumnsIsNotWalked) {
  EXPECT_EQ(inChild([]() -> std::string {
              CHWMergeReferenceFrames merge;
              CFrameMetaData metaData;  // one pixel
              merge.SetMetaData(metaData);
              unsigned short bias = 5, plane = 9;
              if (merge.SetBiasFrames(1, 1, &bias, nullptr) != 0) return "no bias";
              CFrameStatistics statistics;
              for (int i = 0; i < 100; ++i)
                merge.ApplyBiasFrame(&plane, 0, 0xFFFFFFFF, statistics, false);
              return plane == 9 ? "" : "a pixel changed";
            }),
            "");
}

// ---- Exceptions

TEST(Holes, AReferenceFileWhoseBytesWrapAt64BitsIsRefusedWithoutAnException) {
  const TestFolder folder;
  const std::wstring frame = folder.write("frame.raw", frameOf(fieldsOf(modeNamed("GSense400Hdr"))));
  for (const auto& [width, height] : {std::pair("2147483648", "2147483648"),
                                      {"2147483647", "2147483647"},
                                      {"4294967296", "4294967296"},
                                      {"1073741824", "1073741824"},
                                      {"4294967296", "1"}}) {
    // The last column and row, one less than the size.
    const auto last = [](const char* size) { return std::to_string(std::stoull(size) - 1); };
    const std::wstring reference =
        folder.write("reference.fit",
                     fitsFrame({{"MDLENGTH", "384"}, {"IMGSTPCL", last(width)}, {"IMGSTPRW", last(height)}}));
    const auto algo = std::make_unique<CAlgo>();
    const auto merge = std::make_unique<CHWMergeReferenceFrames>();
    for (const bool dsnu : {false, true})
      for (const bool prnu : {false, true}) {
        if (!dsnu && !prnu) continue;
        const wchar_t* const first = dsnu ? reference.c_str() : nullptr;
        const wchar_t* const second = prnu ? reference.c_str() : nullptr;
        EXPECT_EQ(merge->CreateReferenceFrames(first, second, 1.0, 1.0, nullptr), -1) << width;
        ref_frames_t terms{};
        EXPECT_EQ(merge->CreateReferenceFrames(first, second, 1.0, 1.0, &terms), -1) << width;
        EXPECT_EQ(terms.pAdditiveLow, nullptr);
        unpacked_images_t images{};
        images.bMergedImageRequest = true;
        EXPECT_EQ(algo->MergeFile(frame.c_str(), &images, nullptr, first, second), -1) << width;
        algo->FreeFramePointers(&images);
        const conv_info_t info{ORVA_IMAGE_FORMAT_TIFF, first, second};
        EXPECT_EQ(algo->ConvertFile(frame.c_str(), &info, folder.wideFile("out.raw").c_str()), -1) << width;
      }
  }
}

}  // namespace
