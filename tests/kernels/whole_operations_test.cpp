// Whole operations of the library with each table of kernels give what they give with the plain one. The
// library's own choice is one of these tables; the other test programs run with that.

#include <orvacam/stack/CStacker.h>

#include "frames/FrameTesting.h"
#include "kernels/KernelTesting.h"

namespace {
const orvacam::kernels::KernelTable* tableOfTest = nullptr;
}

/// Linked instead of the library's own: the table of the test.
const orvacam::kernels::KernelTable& orvacam::kernels::active() {
  return *tableOfTest;
}

namespace {

using namespace frame_testing;
namespace kernels = orvacam::kernels;

/// Everything that a caller sees of a merge.
struct Merged {
  Merged(const kernels::KernelTable& table, RawFrame& raw, bool termsPerPixel) {
    tableOfTest = &table;
    Bench bench(raw);
    unsigned int width = 0, height = 0;
    raw.metaData.GetFrameDimensions(width, height);
    if (termsPerPixel) setTerms(*bench.merge, std::size_t{width} * height);
    bench.frame->EnableMergeStatistics(true);
    Images images;
    images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
    status = bench.frame->Merge(&images);
    if (images.pLowImage != nullptr) low = images.low();
    if (images.pHighImage != nullptr) high = images.high();
    if (images.pMergedImage != nullptr) merged = images.merged();
    histograms.assign(3, std::vector<double>(65536));
    for (std::size_t i = 0; i < 3; ++i) {
      stats[i].pHistogram = histograms[i].data();
      stats[i].uiHistogramSize = 65536;
    }
    bench.frame->GetLowFrameStats(stats[0]);
    bench.frame->GetHighFrameStats(stats[1]);
    bench.frame->GetMergedFrameStats(stats[2]);
  }

  static void setTerms(CHWMergeReferenceFrames& algorithm, std::size_t pixels) {
    std::mt19937 random(7);
    std::vector<unsigned short> terms(pixels);
    const auto noisy = [&](unsigned int first, unsigned int count) {
      for (unsigned short& term : terms)
        term = static_cast<unsigned short>(first + random() % count);
      return terms.data();
    };
    const auto count = static_cast<unsigned int>(pixels);
    EXPECT_EQ(algorithm.SetAdditiveLowFromBuffer(reinterpret_cast<const short*>(noisy(0, 64)), count), 0);
    EXPECT_EQ(algorithm.SetAdditiveHighFromBuffer(reinterpret_cast<const short*>(noisy(0, 64)), count), 0);
    EXPECT_EQ(algorithm.SetMultiplicativeLowFromBuffer(noisy(6400, 128), count), 0);
    EXPECT_EQ(algorithm.SetMultiplicativeHighFromBuffer(noisy(1024, 32), count), 0);
  }

  int status = 0;
  Pixels low, high, merged;
  std::vector<std::vector<double>> histograms;
  image_plane_stats_t stats[3] = {};
};

void expectSame(const Merged& actual, const Merged& expected) {
  EXPECT_EQ(actual.status, expected.status);
  EXPECT_TRUE(actual.low == expected.low);
  EXPECT_TRUE(actual.high == expected.high);
  EXPECT_TRUE(actual.merged == expected.merged);
  for (unsigned int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    frame_testing::expectSame(actual.stats[i], expected.stats[i]);
  }
}

/// A sky with some bright pixels.
RawFrame skyOf(const sim::HeaderFields& fields) {
  std::mt19937 random(11);
  return RawFrame(fields, sim::makePlanes(sim::layoutOf(fields), [&](const sim::PixelPlace& place) {
                    const std::uint32_t bits = random();
                    const unsigned int noise = bits % 8 + (bits >> 3) % 8;
                    const unsigned int level = (bits >> 6) % 128 == 0 ? bits >> 20 : 500 + 8 * noise;
                    return static_cast<std::uint16_t>(place.plane == 0 ? level / 20 + 20 : level);
                  }));
}

std::vector<const kernels::KernelTable*> vectorTables() {
  std::vector<const kernels::KernelTable*> tables = kernel_testing::runnableTables();
  tables.erase(tables.begin());  // the plain one
  return tables;
}

using WholeOperations = kernel_testing::EveryTable;
INSTANTIATE_TEST_SUITE_P(Kernels, WholeOperations, ::testing::ValuesIn(vectorTables()),
                         kernel_testing::tableName);

TEST_P(WholeOperations, MergeFramesOfEveryCameraLikeThePlainTable) {
  for (const sim::Camera& camera : sim::cameras())
    for (const char* const mode : {"single", "hdr", "16bit", "cms"}) {
      std::optional<sim::HeaderFields> fields = sim::headerFor(camera, mode);
      if (!fields) continue;
      fields->width = 1030;  // no whole registers, and enough pixels to be counted in windows
      fields->height = 160;
      for (RawFrame raw : {RawFrame(*fields), skyOf(*fields)})
        for (const bool termsPerPixel : {false, true}) {
          SCOPED_TRACE(std::string(camera.name) + ", " + mode + ", terms " + std::to_string(termsPerPixel));
          const Merged expected(plain(), raw, termsPerPixel);
          EXPECT_EQ(expected.status, 0);
          expectSame(Merged(table(), raw, termsPerPixel), expected);
        }
    }
}

TEST_P(WholeOperations, MergeFramesLargeEnoughToBeStreamedLikeThePlainTable) {
  sim::HeaderFields fields = *sim::headerFor(*sim::findCamera("GSENSE4040"), "hdr");
  fields.width = 4096;
  fields.height = static_cast<unsigned int>(kernels::streamFromBytes / 2 / 4096);
  RawFrame raw = skyOf(fields);
  for (const bool termsPerPixel : {false, true})
    expectSame(Merged(table(), raw, termsPerPixel), Merged(plain(), raw, termsPerPixel));
}

TEST_P(WholeOperations, StackFramesLikeThePlainTable) {
  constexpr std::size_t pixels = 10001;
  std::mt19937 random(13);
  const std::vector<std::uint16_t> first = kernel_testing::noise<std::uint16_t>(pixels, random);
  const std::vector<std::uint16_t> second = kernel_testing::noise<std::uint16_t>(pixels, random);
  const auto mean = [&](const kernels::KernelTable& of) {
    tableOfTest = &of;
    CStacker stacker;
    EXPECT_EQ(stacker.Initialize(pixels), 0);
    for (const auto* const plane : {&first, &second, &first})
      EXPECT_EQ(stacker.StackNextFrame(plane->data(), pixels), 0);
    unsigned short* result = nullptr;
    unsigned int count = 0;
    EXPECT_EQ(stacker.Finish(&result, nullptr, &count), 0);
    return std::vector<std::uint16_t>(result, result + count);
  };
  const std::vector<std::uint16_t> expected = mean(plain());
  EXPECT_EQ(expected.at(0), (2 * first[0] + second[0]) / 3);
  EXPECT_EQ(mean(table()), expected);
}

}  // namespace
