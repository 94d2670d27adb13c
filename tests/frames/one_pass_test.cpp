// Merging while unpacking gives what unpacking and then merging gives, and is left alone where it would not.

#include <orvacam/frames/CFrameGSense2020.h>
#include <orvacam/frames/CFrameGSense400.h>
#include <orvacam/frames/CFrameGSense4040.h>
#include <orvacam/frames/CFrameGSense6060.h>

#include <cstring>

#include "frames/FrameTesting.h"
#include "frames/OnePassMerge.h"
#include "kernels/Kernels.h"

namespace {

using namespace frame_testing;

/// A class of somebody else's, whose Unpack might want to see the planes before they are merged: never merged
/// while it is unpacked.
template <typename Sensor>
class OfOthers : public Sensor {};

struct SensorCase {
  const char* camera;
  std::unique_ptr<IFrame> (*ofOthers)();
};

template <typename Sensor>
std::unique_ptr<IFrame> makeOfOthers() {
  return std::make_unique<OfOthers<Sensor>>();
}

const SensorCase sensors[] = {{"GSENSE400", makeOfOthers<CFrameGSense400>},
                              {"GSENSE2020", makeOfOthers<CFrameGSense2020>},
                              {"GSENSE4040", makeOfOthers<CFrameGSense4040>},
                              {"GSENSE6060", makeOfOthers<CFrameGSense6060>}};

sim::HeaderFields hdrHeader(const char* camera) {
  return *sim::headerFor(*sim::findCamera(camera), "hdr");
}

/// What a caller sees of one merge, in buffers of its own that are larger than needed and start anywhere.
struct Outcome {
  static constexpr std::size_t spare = 40;

  Outcome(IFrame& frame, RawFrame& raw, CHWMergeReferenceFrames& algorithm, const unpacked_images_t& wanted,
          std::size_t shift, bool statistics) {
    unpacked_images_t images = wanted;
    const std::size_t bytes = 2 * raw.framePixels() + 8192;  // room for the header of an image file
    struct {
      Pixels& buffer;
      unsigned short*& image;
      unsigned long& size;
      bool requested;
    } planes[] = {{low, images.pLowImage, images.ulLowImageSize, images.bLowImageRequest},
                  {high, images.pHighImage, images.ulHighImageSize, images.bHighImageRequest},
                  {merged, images.pMergedImage, images.ulMergedImageSize, images.bMergedImageRequest}};
    for (auto& plane : planes) {
      plane.buffer.assign(bytes / 2 + shift + spare, 0x5A5A);
      if (!plane.requested) continue;
      plane.image = plane.buffer.data() + shift;
      plane.size = bytes;
    }
    algorithm.SetMetaData(raw.metaData);
    frame.Initialize(raw.metaData, raw.bytes.data(), raw.bytes.size(), &algorithm);
    frame.EnableMergeStatistics(statistics);
    status = frame.Merge(&images);
    clearDate(reinterpret_cast<char*>(merged.data() + shift), algorithm);
    histograms.assign(3, std::vector<double>(65535));
    for (unsigned int i = 0; i < 3; ++i) {
      stats[i].pHistogram = histograms[i].data();
      stats[i].uiHistogramSize = 65535;
    }
    frame.GetLowFrameStats(stats[0]);
    frame.GetHighFrameStats(stats[1]);
    frame.GetMergedFrameStats(stats[2]);
    header.assign(512, 0);
    frame.GetProcessedMergedMetaData(header.data(), static_cast<unsigned int>(header.size()));
    algorithmHeader.assign(512, 0);
    algorithm.GetMetaData().Binarize(algorithmHeader.data(),
                                     static_cast<unsigned int>(algorithmHeader.size()));
  }

  /// The time of writing, to the nanosecond, is no part of the outcome.
  static void clearDate(char* file, const CHWMergeReferenceFrames& algorithm) {
    hw_merge_enables_t enables{};
    algorithm.GetMergeEnables(enables);
    constexpr std::size_t card = 80;
    for (std::size_t i = 0; enables.uiImageFormat == ORVA_IMAGE_FORMAT_FITS && i < 2880; i += card)
      if (std::memcmp(file + i, "DATE    ", 8) == 0) std::memset(file + i, 0, card);
  }

  int status = 0;
  Pixels low, high, merged;
  image_plane_stats_t stats[3] = {};
  std::vector<std::vector<double>> histograms;
  Bytes header, algorithmHeader;
};

void expectSame(const Outcome& actual, const Outcome& expected) {
  EXPECT_EQ(actual.status, expected.status);
  EXPECT_TRUE(actual.low == expected.low) << "low-gain plane, or around it";
  EXPECT_TRUE(actual.high == expected.high) << "high-gain plane, or around it";
  const auto difference = std::mismatch(actual.merged.begin(), actual.merged.end(), expected.merged.begin());
  EXPECT_TRUE(actual.merged == expected.merged)
      << "merged plane, its header, or around it, from pixel " << difference.first - actual.merged.begin()
      << " on: " << *difference.first << " for " << *difference.second;
  EXPECT_EQ(actual.header, expected.header);
  EXPECT_EQ(actual.algorithmHeader, expected.algorithmHeader);
  for (unsigned int i = 0; i < 3; ++i) {
    SCOPED_TRACE(::testing::Message() << "statistics of plane " << i);
    frame_testing::expectSame(actual.stats[i], expected.stats[i]);
  }
}

enum Terms {
  Identity,
  SmallRatio,
  LargeRatio,
  Uniform,
  ManyFractionBits,
  Ramps,
  AdditivePlanes,
  AllPlanes,
  termKinds
};

void setTerms(CHWMergeReferenceFrames& algorithm, Terms kind, unsigned int width, unsigned int height,
              std::mt19937& random) {
  std::vector<unsigned short> terms(std::size_t{width} * height);
  const auto noisy = [&](unsigned int around, unsigned int spread) {
    for (unsigned short& term : terms)
      term = static_cast<unsigned short>(around - spread + random() % (2 * spread + 1));
    return terms.data();
  };
  const auto additive = [&] { return reinterpret_cast<const short*>(noisy(0, 200)); };
  const auto count = static_cast<unsigned int>(terms.size());
  switch (kind) {
    case SmallRatio:
      algorithm.CreateIdentityFrames(width, height, 6.2966, 1.0, nullptr);
      break;
    case LargeRatio:
      algorithm.CreateIdentityFrames(width, height, 22.8113, 1.0, nullptr);
      break;
    case Uniform:
      algorithm.CreateIdentityFrames(width, height, -12.5, 3.25, 7.5, 1.25, 3, 10, nullptr);
      break;
    case ManyFractionBits:
      algorithm.CreateIdentityFrames(width, height, -1.0, 0.5, 7.5, 1.25, 5, 10, nullptr);
      break;
    case Ramps:
      algorithm.CreateIdentityFrames(width, height, -3.0, 1.0, 5.0, 1.0, 3, 10, 0.125, 0.0009765625, nullptr);
      break;
    case AdditivePlanes:
    case AllPlanes:
      algorithm.CreateIdentityFrames(width, height, 9.0, 1.0, nullptr);
      ASSERT_EQ(algorithm.SetAdditiveLowFromBuffer(additive(), count), 0);
      ASSERT_EQ(algorithm.SetAdditiveHighFromBuffer(additive(), count), 0);
      if (kind == AdditivePlanes) break;
      ASSERT_EQ(algorithm.SetMultiplicativeLowFromBuffer(noisy(6500, 300), count), 0);
      ASSERT_EQ(algorithm.SetMultiplicativeHighFromBuffer(noisy(1024, 40), count), 0);
      break;
    default:
      algorithm.CreateIdentityFrames(width, height, static_cast<ref_frames_t*>(nullptr));
      break;
  }
}

class MergeInOnePass : public ::testing::TestWithParam<SensorCase> {};

TEST_P(MergeInOnePass, MergesWhileUnpackingWhatItMergesAfterwards) {
  constexpr unsigned int seed = 71;
  std::mt19937 random(seed);
  // Around the vector widths, below them, odd, and wider than a block.
  const unsigned int widths[] = {2, 6, 14, 16, 18, 30, 31, 32, 34, 62, 64, 66, 96, 130, 4100};
  for (unsigned int round = 0; round < 240; ++round) {
    sim::HeaderFields fields = hdrHeader(GetParam().camera);
    fields.width = widths[round % std::size(widths)];
    fields.height = 1 + random() % 6;
    fields.preRefPixels = random() % 3 == 0 ? 2 * (random() % 10) : 0;
    fields.postRefPixels = random() % 2 * 2 * (random() % 20);
    fields.preRefRows = random() % 3;
    fields.postRefRows = random() % 3;
    if (random() % 8 == 0) fields.horizontalBinning = fields.verticalBinning = 2;
    RawFrame raw(fields, 3, random());
    if (round % 11 == 10) raw.bytes.resize(raw.bytes.size() - 1 - random() % 40);  // cut off

    unsigned int width = 0, height = 0;
    raw.metaData.GetFrameDimensions(width, height);
    CHWMergeReferenceFrames algorithm;
    const auto kind = static_cast<Terms>(random() % termKinds);
    setTerms(algorithm, kind, width, height, random);
    const unsigned int formats[] = {ORVA_IMAGE_FORMAT_RAW, ORVA_IMAGE_FORMAT_TIFF, ORVA_IMAGE_FORMAT_FITS};
    const unsigned int format = formats[random() % 3];
    algorithm.SetMergeEnables({0, format, random() % 3});
    algorithm.SetMergeThresholds(static_cast<unsigned short>(random() % 2 * 3700), 128);
    CHWMergeReferenceFrames other(algorithm);

    unpacked_images_t wanted{};
    wanted.bLowImageRequest = random() % 4 != 0;
    wanted.bHighImageRequest = random() % 4 != 0;
    wanted.bMergedImageRequest = random() % 8 != 0;
    const bool statistics = random() % 2 == 0;
    const std::size_t shift = random() % 33;
    SCOPED_TRACE(::testing::Message()
                 << "round " << round << " of seed " << seed << ", width " << fields.width << ", terms "
                 << kind << ", format " << format << ", requests " << wanted.bLowImageRequest
                 << wanted.bHighImageRequest << wanted.bMergedImageRequest << ", bytes " << raw.bytes.size());

    const std::unique_ptr<IFrame> ours(CFrameFactory::Create(raw.metaData));
    const std::unique_ptr<IFrame> theirs = GetParam().ofOthers();
    const Outcome inOnePass(*ours, raw, algorithm, wanted, shift, statistics);
    const Outcome oneAfterTheOther(*theirs, raw, other, wanted, shift, statistics);
    expectSame(inOnePass, oneAfterTheOther);
    if (HasFailure()) return;
  }
}

TEST_P(MergeInOnePass, MergesLargeFramesPastTheCachesAllTheSame) {
  // As large as planes that are streamed.
  sim::HeaderFields fields = hdrHeader(GetParam().camera);
  fields.width = 4096;
  fields.height = static_cast<unsigned int>(orvacam::kernels::streamFromBytes / 2 / 4096);
  RawFrame raw(fields, 3, 5);
  unpacked_images_t wanted{};
  wanted.bLowImageRequest = wanted.bHighImageRequest = wanted.bMergedImageRequest = true;
  for (const std::size_t shift : {0, 8}) {
    if (shift == 0 && GetParam().camera != std::string("GSENSE2020")) continue;  // the streams alone differ
    CHWMergeReferenceFrames algorithm;
    algorithm.CreateIdentityFrames(fields.width, fields.height, 22.8113, 1.0, nullptr);
    CHWMergeReferenceFrames other(algorithm);
    const std::unique_ptr<IFrame> ours(CFrameFactory::Create(raw.metaData));
    const std::unique_ptr<IFrame> theirs = GetParam().ofOthers();
    const Outcome inOnePass(*ours, raw, algorithm, wanted, shift, true);
    const Outcome oneAfterTheOther(*theirs, raw, other, wanted, shift, true);
    expectSame(inOnePass, oneAfterTheOther);
  }
}

// ---- Frames large enough that pixels of both gains are counted together, where most of them are close to a
// sky

enum Scene {
  Sky,
  Dark,
  RisingSky,
  WideSky,
  SkyAndNoise,
  SkyAndSaturation,
  SkyWithLateExtremes,  ///< of a plane, a little beyond what came before
  LateMergedMinimum,    ///< of pixels that came before, but not together
  LateMergedMaximum,    ///< the same
  Noise,
  NarrowFrame,  ///< of a sky that rises; its runs have few pixels
  scenes
};

/// The low-gain and the high-gain pixel of a place, from random bits of its own.
std::pair<unsigned int, unsigned int> exposed(Scene scene, const sim::PixelPlace& place, unsigned int height,
                                              std::uint32_t bits) {
  const unsigned int noise = bits % 8 + (bits >> 3) % 8;
  const auto shot = [&](unsigned int level) {
    return std::pair(level / 20 + 20 + noise / 5, level + 8 * noise);
  };
  const bool lowerHalf = place.y > height / 2;
  switch (scene) {
    case Dark:
      return {noise / 4, noise / 4};
    case NarrowFrame:
    case RisingSky:
      return shot(200 + 3000 * place.y / height);
    case SkyAndNoise:
      return lowerHalf ? std::pair(bits >> 8 & 4095, bits >> 20) : shot(500);
    case SkyAndSaturation:
      return lowerHalf && place.x % 300 > 100 ? std::pair(4095u, 4095u) : shot(500);
    case WideSky:
      return {20 + bits % 16, 500 + (bits >> 8) % 512};
    case SkyWithLateExtremes: {
      const std::pair<unsigned int, unsigned int> late[] = {{43, 520}, {46, 480}, {50, 560}, {46, 640}};
      return place.y > height / 3 && bits % 5000 < 4 ? late[bits % 5000] : shot(500);
    }
    case LateMergedMinimum:
    case LateMergedMaximum: {
      // Of the smallest high-gain pixel the low-gain one is taken at first.
      using Pair = std::pair<unsigned int, unsigned int>;
      const Pair early[] = {{33, 400}, scene == LateMergedMinimum ? Pair{100, 4095} : Pair{20, 400}};
      const Pair late = scene == LateMergedMinimum ? Pair{21, 400} : Pair{35, 420};
      if (bits % 300 < 4) return lowerHalf ? late : early[bits % 2];
      return {20 + (bits >> 12) % 16, 420 + 22 * ((bits >> 12) % 16)};
    }
    case Noise:
      return {bits >> 8 & 4095, bits >> 20};
    default:
      return bits % 70 == 0 ? shot(bits >> 20) : shot(500);
  }
}

RawFrame frameOf(Scene scene, const char* camera) {
  sim::HeaderFields fields = hdrHeader(camera);
  const bool narrow = scene == NarrowFrame;
  fields.width = narrow ? 6 : 1024;
  fields.height = narrow ? 30000 : 256;
  return RawFrame(fields, sim::makePlanes(sim::layoutOf(fields), [&](const sim::PixelPlace& place) {
                    std::minstd_rand random(place.y * 8192 + place.x + 1);
                    random.discard(3);  // seeds are alike, what follows is not
                    const auto [low, high] = exposed(scene, place, fields.height,
                                                     static_cast<std::uint32_t>(random() ^ random() << 16));
                    return static_cast<std::uint16_t>(std::min(place.plane == 0 ? low : high, 4095u));
                  }));
}

TEST_P(MergeInOnePass, CountsScenesOfAllKindsLikeTheGeneralWay) {
  std::mt19937 random(91);
  for (unsigned int scene = 0; scene < scenes; ++scene) {
    RawFrame raw = frameOf(static_cast<Scene>(scene), GetParam().camera);
    const NaiveStatistics naive[] = {streamStatistics(raw, 0), streamStatistics(raw, 1)};
    unsigned int width = 0, height = 0;
    raw.metaData.GetFrameDimensions(width, height);
    unpacked_images_t wanted{};
    wanted.bLowImageRequest = wanted.bMergedImageRequest = true;
    constexpr Terms kinds[] = {Identity, SmallRatio, LargeRatio, Uniform, AdditivePlanes, AllPlanes};
    for (const Terms kind : kinds) {
      // All of them on one sensor; on the others, whose streams alone differ, two by turns.
      const bool byTurns = static_cast<unsigned int>(kind) % 3 == scene % 3;
      if (GetParam().camera != std::string("GSENSE2020") && !byTurns) continue;
      SCOPED_TRACE(::testing::Message() << "scene " << scene << ", terms " << kind);
      CHWMergeReferenceFrames algorithm;
      setTerms(algorithm, kind, width, height, random);
      // Both planes' pixels at least once, for combinations of them.
      algorithm.SetMergeEnables({0, ORVA_IMAGE_FORMAT_RAW, kind == LargeRatio ? 0 : random() % 3});
      CHWMergeReferenceFrames other(algorithm);
      const std::unique_ptr<IFrame> ours(CFrameFactory::Create(raw.metaData));
      const std::unique_ptr<IFrame> theirs = GetParam().ofOthers();
      const Outcome inOnePass(*ours, raw, algorithm, wanted, 8, true);
      const Outcome oneAfterTheOther(*theirs, raw, other, wanted, 8, true);
      expectSame(inOnePass, oneAfterTheOther);
      // Worked out pixel by pixel, from the simulator's own planes.
      for (unsigned int gain = 0; gain < 2; ++gain) {
        SCOPED_TRACE(::testing::Message() << "plane " << gain);
        frame_testing::expectSame(inOnePass.stats[gain], naive[gain]);
      }
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Frames, MergeInOnePass, ::testing::ValuesIn(sensors),
                         [](const auto& info) { return std::string(info.param.camera); });

// ---- Where one pass would not do

class OnePass : public ::testing::Test {
 protected:
  static constexpr unsigned int width = 64, height = 4;

  OnePass() : raw(fields()) { algorithm.CreateIdentityFrames(width, height, 6.0, 1.0, nullptr); }

  static sim::HeaderFields fields() {
    sim::HeaderFields header = hdrHeader("GSENSE2020");
    header.width = width;
    header.height = height;
    return header;
  }
  bool fits(CCustomMergeAlgo* algo) const {
    return orvacam::OnePassMerge(algo, orvacam::FrameGeometry(raw.metaData), layout)
        .fits({nullptr, nullptr, merged, pixels});
  }

  RawFrame raw;
  CHWMergeReferenceFrames algorithm;
  orvacam::StreamLayout layout = {{{0, 0, width, 0, 0, false}, {2 * height, 0, width, 0, 0, true}, {}}};
  unsigned char buffer[2 * width * height + 1];
  unsigned char* merged =
      reinterpret_cast<unsigned char*>((reinterpret_cast<std::uintptr_t>(buffer) + 1) / 2 * 2);
  unsigned long pixels = width * height;
};

TEST_F(OnePass, FitsAWholeFrameAndTheCamerasOwnMerge) {
  EXPECT_TRUE(fits(&algorithm));
}

TEST_F(OnePass, IsNotForOtherMerges) {
  class Derived : public CHWMergeReferenceFrames {};
  Derived derived;
  derived.CreateIdentityFrames(width, height, 6.0, 1.0, nullptr);
  EXPECT_FALSE(fits(nullptr));
  EXPECT_FALSE(fits(&derived));
}

TEST_F(OnePass, IsNotForBiasFrames) {
  const Pixels bias(pixels, 1);
  algorithm.SetMetaData(raw.metaData);
  ASSERT_EQ(algorithm.SetBiasFrames(width, height, nullptr, bias.data()), 0);
  EXPECT_FALSE(fits(&algorithm));
  ASSERT_EQ(algorithm.SetBiasFrames(width, height, nullptr, nullptr), 0);
  EXPECT_TRUE(fits(&algorithm));
}

TEST_F(OnePass, IsNotForReferenceFramesThatDoNotCoverTheImage) {
  algorithm.SetStartRowOffset(1);
  EXPECT_FALSE(fits(&algorithm));
  algorithm.SetStartRowOffset(height);  // to be reset with a warning
  EXPECT_FALSE(fits(&algorithm));
  algorithm.SetStartRowOffset(0);
  algorithm.CreateIdentityFrames(width, height - 1, 6.0, 1.0, nullptr);
  EXPECT_FALSE(fits(&algorithm));
}

TEST_F(OnePass, IsNotForMoreFractionBitsThanAPackedPixelLeaves) {
  algorithm.CreateIdentityFrames(width, height, orvacam::kernels::packedFractionBits, 10, nullptr);
  EXPECT_TRUE(fits(&algorithm));
  algorithm.CreateIdentityFrames(width, height, orvacam::kernels::packedFractionBits + 1, 10, nullptr);
  EXPECT_FALSE(fits(&algorithm));
}

TEST_F(OnePass, IsNotForStreamsThatShareAPairOrMissThePlanes) {
  layout.sections[1].pixels = width - 1;
  EXPECT_FALSE(fits(&algorithm));
  layout.sections[1].pixels = width;
  layout.sections[1].after = 2;
  EXPECT_FALSE(fits(&algorithm));
  layout.sections[1].after = 0;
  pixels += 2;
  EXPECT_FALSE(fits(&algorithm));
}

TEST_F(OnePass, IsNotForImagesElsewhereThanTheMetaDataHasThem) {
  layout.sections[1].pixels = width - 4;
  layout.sections[1].before = 4;
  EXPECT_FALSE(fits(&algorithm));
  layout.sections[1].before = 0;
  layout.sections[1].after = 4;
  EXPECT_FALSE(fits(&algorithm));
}

TEST_F(OnePass, IsNotForMergedPixelsAtOddAddresses) {
  ++merged;
  EXPECT_FALSE(fits(&algorithm));
}

}  // namespace
