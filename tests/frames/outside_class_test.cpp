// A sensor's class that lives outside the library, as docs/api-guide.md promises: it uses the installed
// headers and the shared library alone, and decodes an HDR stream as the library's own class does.

#include <gtest/gtest.h>
#include <orvacam.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

/// Frames whose low-gain and high-gain rows alternate, two packed pixels in three bytes.
class OutsideSensor : public IFrame {
 public:
  int Unpack(unpacked_images_t* pImages) override {
    if (m_pMetaData == nullptr || m_pSource == nullptr || pImages == nullptr) return -1;
    if (AllocateUserMergeBuffers(pImages) != 0) return -1;
    unsigned int width = 0, height = 0;
    m_pMetaData->GetFrameDimensionsBinned(width, height);
    const unsigned long header = m_pMetaData->GetBinarizeSize();
    if (width % 2 != 0 || m_ulSourceLength < header + 3UL * width * height) return -1;
    m_LowStatistics.Reset();
    m_HighStatistics.Reset();
    unsigned short* const planes[] = {m_UserMergeBuffers.pLowImage, m_UserMergeBuffers.pHighImage};
    CFrameStatistics* const statistics[] = {&m_LowStatistics, &m_HighStatistics};
    const unsigned char* s = m_pSource + header;
    for (unsigned int row = 0; row < 2 * height; ++row) {
      unsigned short* const out = planes[row % 2] + (row / 2) * width;
      for (unsigned int x = 0; x < width; x += 2, s += 3) {
        out[x] = static_cast<unsigned short>(s[0] << 4 | s[1] >> 4);
        out[x + 1] = static_cast<unsigned short>((s[1] & 15) << 8 | s[2]);
        const int column = static_cast<int>(x), line = static_cast<int>(row);
        if (m_bMergeStatistics)
          statistics[row % 2]->AddPixels(out[x], {column, line}, out[x + 1], {column + 1, line});
      }
    }
    if (m_pMergeAlgo != nullptr) {
      m_pMergeAlgo->ApplyBiasFrame(planes[0], width, height, m_LowStatistics, false);
      m_pMergeAlgo->ApplyBiasFrame(planes[1], width, height, m_HighStatistics, true);
    }
    if (m_bMergeStatistics) {
      m_LowStatistics.Compute();
      m_HighStatistics.Compute();
    }
    return 0;
  }

  int Merge(unpacked_images_t* pImages) override {
    if (pImages == nullptr) return 0;
    const int result = Unpack(pImages);
    if (result >= 0 && pImages->bMergedImageRequest)
      MergeFrame(m_UserMergeBuffers.pLowImage, m_UserMergeBuffers.pHighImage, pImages->pMergedImage,
                 m_UserMergeBuffers.ulLowImagePixels);
    return result;
  }
};

/// A class of the library's with another Unpack, which sees the planes before they are merged.
class Inverted : public CFrameGSense2020 {
 public:
  int Unpack(unpacked_images_t* pImages) override {
    const int result = CFrameGSense2020::Unpack(pImages);
    if (result < 0) return result;
    for (unsigned long i = 0; i < m_UserMergeBuffers.ulLowImagePixels; ++i)
      for (unsigned short* plane : {m_UserMergeBuffers.pLowImage, m_UserMergeBuffers.pHighImage})
        plane[i] = static_cast<unsigned short>(4095 - plane[i]);
    return result;
  }
};

/// What a frame class makes of the frame.
struct Outcome {
  explicit Outcome(std::unique_ptr<IFrame> frame, Bytes bytes, bool bias) {
    CFrameMetaData metaData;
    metaData.Parse(bytes.data(), static_cast<unsigned int>(bytes.size()));
    const auto merge = std::make_unique<CHWMergeReferenceFrames>();
    merge->SetMetaData(metaData);
    merge->CreateIdentityFrames(side, side, 6.25, 1.0, nullptr);
    const std::vector<unsigned short> offsets(side * side, 7);
    if (bias) EXPECT_EQ(merge->SetBiasFrames(side, side, offsets.data(), offsets.data()), 0);
    EXPECT_EQ(frame->Initialize(metaData, bytes.data(), bytes.size(), merge.get()), 0);
    frame->EnableMergeStatistics(true);
    unpacked_images_t images{};
    images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
    status = frame->Merge(&images);
    const auto take = [](unsigned short* image) {
      std::vector<unsigned short> pixels;
      if (image != nullptr) pixels.assign(image, image + side * side);
      std::free(image);
      return pixels;
    };
    low = take(images.pLowImage);
    high = take(images.pHighImage);
    merged = take(images.pMergedImage);
    frame->GetLowFrameStats(stats[0]);
    frame->GetHighFrameStats(stats[1]);
    frame->GetMergedFrameStats(stats[2]);
  }

  static constexpr unsigned int side = 64;
  int status;
  std::vector<unsigned short> low, high, merged;
  image_plane_stats_t stats[3] = {};
};

Bytes hdrFrame() {
  constexpr unsigned int headerSize = 384;
  CFrameMetaData metaData;
  metaData.ReInitialize(true);
  metaData.SetModelName("VESTRA VS2020", 13);
  metaData.SetDimensions(Outcome::side, Outcome::side);
  metaData.SetBitsPerPixel(12);
  metaData.SetHDRFrame(true);
  Bytes bytes(headerSize);
  EXPECT_EQ(metaData.Binarize(bytes.data(), headerSize), static_cast<int>(headerSize));
  for (unsigned int row = 0; row < 2 * Outcome::side; ++row)
    for (unsigned int x = 0; x < Outcome::side; x += 2) {
      const unsigned int first = (x * 61 + row * 529) % 4096, second = (x * 61 + row * 17 + 61) % 4096;
      bytes.push_back(static_cast<unsigned char>(first >> 4));
      bytes.push_back(static_cast<unsigned char>((first & 15) << 4 | second >> 8));
      bytes.push_back(static_cast<unsigned char>(second & 255));
    }
  return bytes;
}

TEST(OutsideClass, DecodesAnHdrStreamLikeOneOfTheLibrary) {
  for (const bool bias : {false, true}) {
    const Outcome ours(std::make_unique<CFrameGSense2020>(), hdrFrame(), bias);
    const Outcome outside(std::make_unique<OutsideSensor>(), hdrFrame(), bias);
    ASSERT_EQ(outside.status, 0);
    EXPECT_EQ(outside.low, ours.low);
    EXPECT_EQ(outside.high, ours.high);
    EXPECT_EQ(outside.merged, ours.merged);
    for (unsigned int i = 0; i < 3; ++i) {
      EXPECT_EQ(outside.stats[i].dMean, ours.stats[i].dMean);
      EXPECT_EQ(outside.stats[i].dStdDev, ours.stats[i].dStdDev);
      EXPECT_EQ(outside.stats[i].uiMax, ours.stats[i].uiMax);
      EXPECT_EQ(outside.stats[i].maxPoint.x, ours.stats[i].maxPoint.x);
      EXPECT_EQ(outside.stats[i].maxPoint.y, ours.stats[i].maxPoint.y);
    }
    EXPECT_GT(outside.stats[2].dMean, 0.0);
  }
}

TEST(OutsideClass, IsRefusedACutFrame) {
  Bytes cut = hdrFrame();
  cut.pop_back();
  EXPECT_EQ(Outcome(std::make_unique<OutsideSensor>(), cut, false).status, -1);
}

TEST(OutsideClass, SeesThePlanesBeforeTheyAreMerged) {
  const Outcome ours(std::make_unique<CFrameGSense2020>(), hdrFrame(), false);
  const Outcome inverted(std::make_unique<Inverted>(), hdrFrame(), false);
  ASSERT_EQ(inverted.status, 0);
  EXPECT_EQ(inverted.low[0], 4095 - ours.low[0]);
  CHWMergeReferenceFrames merge;
  merge.CreateIdentityFrames(Outcome::side, Outcome::side, 6.25, 1.0, nullptr);
  std::vector<unsigned short> low = inverted.low, high = inverted.high, merged(low.size());
  ASSERT_EQ(merge.MergeFrames(low.data(), high.data(), merged.data(), merged.size()), 0);
  EXPECT_EQ(inverted.merged, merged);
}

}  // namespace
