// Whole frames of every sensor in every mode, through memory, files and conversions: each plane, statistic
// and header byte against what the documentation says of the simulated planes.

#include <orvacam.h>

#include <cstring>

#include "TestFolder.h"
#include "frames/FrameTesting.h"
#include "support/Cameras.h"

namespace {

using namespace frame_testing;

using cameras::Mode;
using cameras::Stream;

/// What the frame of a mode must come out as.
struct Expected {
  bool decodes = true;  ///< odd runs and shared pixels may need more than the frame
  Pixels low, high, merged;
  NaiveStatistics lowStats, highStats, mergedStats;
};

void expectMerge(Expected& expected, const RawFrame& raw, double ratio) {
  unsigned int width = 0, height = 0, left = 0, above = 0, unused = 0, imageWidth = 0, imageHeight = 0;
  raw.metaData.GetFrameDimensionsBinned(width, height);
  raw.metaData.GetImageDimensionsBinned(imageWidth, imageHeight);
  raw.metaData.GetRefPixelsBinned(left, unused);
  raw.metaData.GetRefRowsBinned(above, unused);
  for (unsigned int i = 0; i < expected.low.size(); ++i) {
    expected.merged[i] = mergedPixel(ratio, expected.low[i], expected.high[i]);
    const unsigned int x = i % width, y = i / width;
    if (x >= left && x < left + imageWidth && y >= above && y < above + imageHeight)
      expected.mergedStats.add(expected.merged[i], static_cast<int>(x), static_cast<int>(y));
  }
}

Expected expectedOf(const Mode& mode, const RawFrame& raw, std::size_t headerSize) {
  const sim::HeaderFields& f = raw.fields;
  const std::size_t pixels = raw.framePixels();
  Expected expected;
  expected.low = raw.plane(0);
  expected.high = raw.plane(1);
  expected.merged.assign(pixels, 0);
  switch (mode.stream) {
    case Stream::Packed:
      expected.decodes = raw.planes[0].size() <= pixels;
      if (raw.planes.size() == 2) {
        expected.lowStats = streamStatistics(raw, 0);
        expected.highStats = streamStatistics(raw, 1);
      }
      break;
    case Stream::Sampled:
      expected.low = sampledPixels(raw.bytes.data() + headerSize, pixels);
      break;
    case Stream::Ccd:
      if (mode.quadrants == 0x3C) {
        if (f.frameHeight() % 2 != 0)  // nobody reads the middle row
          std::fill_n(expected.low.begin() + f.frameHeight() / 2 * f.frameWidth(), f.frameWidth(), 0);
        for (unsigned int i = 0; i < pixels; ++i)
          expected.lowStats.add(expected.low[i], static_cast<int>(i % f.frameWidth()),
                                static_cast<int>(i / f.frameWidth()));
      } else {
        expected.lowStats = amplifierStatistics(raw);
      }
      break;
    default:
      break;
  }
  if (mode.hdr) expectMerge(expected, raw, mode.camera().ratio);
  return expected;
}

/// Sizes around the blocks of the vector code, odd ones, reference rows and pixels, binning.
std::vector<sim::HeaderFields> framesOf(const Mode& mode) {
  sim::HeaderFields base = header(mode.model, mode.bits, mode.hdr, 8, 4);
  base.quadrants = mode.quadrants;
  base.correlatedMultipleSampling = mode.stream == Stream::Sampled;
  base.lowGain = 1;
  base.highGain = 2;
  std::vector<sim::HeaderFields> frames;
  for (const unsigned int width : {1u,  2u,  3u,  7u,  8u,  15u, 16u, 17u, 18u, 30u,  31u,  32u,
                                   33u, 34u, 48u, 62u, 63u, 64u, 65u, 66u, 98u, 130u, 257u, 1026u}) {
    frames.push_back(base);
    frames.back().width = width;
    frames.back().height = 1 + width % 5;
  }
  base.width = 70;
  base.height = 6;
  const auto withReferences = [&base](unsigned int pre, unsigned int post, unsigned int above,
                                      unsigned int below) {
    sim::HeaderFields fields = base;
    fields.preRefPixels = pre;
    fields.postRefPixels = post;
    fields.preRefRows = above;
    fields.postRefRows = below;
    return fields;
  };
  const bool imageAlone = mode.stream == Stream::Plain;  // these send no reference pixels or rows
  if (!imageAlone)
    for (const unsigned int pre : {0u, 3u, 4u})
      for (const unsigned int post : {0u, 5u, 6u})
        for (const unsigned int above : {0u, 1u, 2u})
          for (const unsigned int below : {0u, 1u, 3u})
            frames.push_back(withReferences(pre, post, above, below));
  base.height = 61;
  frames.push_back(base);
  // A binned GSENSE400 or CCD frame is refused, which other tests show.
  if (mode.stream == Stream::Ccd || mode.camera().device == 0x01000400) return frames;
  for (const auto& [x, y] :
       {std::pair{2u, 1u}, std::pair{1u, 2u}, std::pair{2u, 2u}, std::pair{3u, 4u}, std::pair{5u, 3u}}) {
    base.horizontalBinning = x;
    base.verticalBinning = y;
    frames.push_back(base);
    if (!imageAlone) frames.push_back(withReferences(4, 6, 2, 3));
    if (!imageAlone) frames.push_back(withReferences(4, 5, 3, 1));
  }
  return frames;
}

// ---- Headers and files

/// The header that the camera sent, marked as processed.
Bytes processedHeader(const sim::HeaderFields& fields, unsigned int version, bool high, bool merged) {
  Bytes bytes = sim::writeHeader(fields, version);
  bytes.resize(384);
  bytes[6] = 0, bytes[7] = 4;
  bytes[79] = 16;
  bytes[80] = 15;
  bytes[98] = static_cast<unsigned char>((bytes[98] & ~0x20) | 0x40);
  bytes[147] = static_cast<unsigned char>(0xFF & ~(high ? 0x20 : 0) & ~(merged ? 0x10 : 0));
  std::memset(bytes.data() + 190, 0, 24);
  std::memcpy(bytes.data() + 202, "2.1.4", 5);
  // The chip temperature comes in as sign and magnitude and goes out as two's complement.
  bytes[91] = static_cast<unsigned char>(fields.chipTemperature >> 8);
  bytes[92] = static_cast<unsigned char>(fields.chipTemperature);
  return bytes;
}

/// That header read and written once more, as image files have it.
Bytes convertedHeader(const sim::HeaderFields& fields, unsigned int version, bool high, bool merged) {
  Bytes bytes = processedHeader(fields, version, high, merged);
  const unsigned int word = bytes[91] << 8 | bytes[92];
  const int read = (word & 0x8000) != 0 ? -static_cast<int>(word & 0x7FFF) : static_cast<int>(word);
  bytes[91] = static_cast<unsigned char>(read >> 8);
  bytes[92] = static_cast<unsigned char>(read);
  return bytes;
}

void append(Bytes& bytes, unsigned int value, unsigned int size) {
  for (unsigned int i = 0; i < size; ++i)
    bytes.push_back(static_cast<unsigned char>(value >> 8 * i));
}

Bytes tiffFile(const Bytes& metaData, unsigned int width, unsigned int height,
               const sim::HeaderFields& fields, const Pixels& pixels) {
  constexpr unsigned int shortType = 3, longType = 4, rationalType = 5;
  const unsigned int tags[][3] = {{254, longType, 0},         {256, shortType, width},
                                  {257, shortType, height},   {258, shortType, 16},
                                  {259, shortType, 1},        {262, shortType, 1},
                                  {273, longType, 656 + 384}, {277, shortType, 1},
                                  {278, shortType, height},   {279, longType, width * height * 2},
                                  {282, rationalType, 400},   {283, rationalType, 416},
                                  {296, shortType, 3},        {297, shortType, fields.frameNumber}};
  Bytes bytes = {'I', 'I', 42, 0, 14, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  append(bytes, 14, 2);
  for (const auto& [tag, type, value] : tags) {
    append(bytes, tag, 2);
    append(bytes, type, 2);
    append(bytes, 1, 4);
    append(bytes, value, 4);
  }
  bytes.resize(400);
  append(bytes, 100000, 4);
  append(bytes, fields.horizontalPixelSize, 4);
  bytes.resize(416);
  append(bytes, 100000, 4);
  append(bytes, fields.verticalPixelSize, 4);
  bytes.resize(656);
  bytes.insert(bytes.end(), metaData.begin(), metaData.end());
  for (const unsigned short pixel : pixels)
    append(bytes, pixel, 2);
  return bytes;
}

/// The value of a card, blanks and comment cut off; "?" without such a card.
std::string cardValue(const Bytes& file, std::string keyword) {
  keyword.resize(8, ' ');
  for (std::size_t at = 0; at + 80 <= std::min<std::size_t>(file.size(), 5760); at += 80) {
    const std::string card(file.begin() + static_cast<std::ptrdiff_t>(at),
                           file.begin() + static_cast<std::ptrdiff_t>(at) + 80);
    if (card.compare(0, 10, keyword + "= ") == 0) return card.substr(10, card.find(" /") - 10);
  }
  return "?";
}

void expectFitsFile(const Bytes& file, const RawFrame& raw, const Pixels& pixels, bool high, bool merged) {
  unsigned int width = 0, height = 0;
  raw.metaData.GetFrameDimensionsBinned(width, height);
  ASSERT_EQ(file.size(), 2 * pixels.size());  // as long as the pixels alone
  Bytes expected;
  for (std::size_t i = 0; 5760 + 2 * i < file.size(); ++i) {
    expected.push_back(static_cast<unsigned char>(pixels[i] >> 8));
    expected.push_back(static_cast<unsigned char>(pixels[i] & 255));
  }
  if (expected.empty()) return;  // not even the header is whole
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), file.begin() + 5760));
  const sim::HeaderFields& f = raw.fields;
  const std::pair<const char*, std::string> cards[] = {{"SIMPLE", "T"},
                                                       {"BITPIX", "16"},
                                                       {"NAXIS", "2"},
                                                       {"NAXIS1", std::to_string(width)},
                                                       {"NAXIS2", std::to_string(height)},
                                                       {"INSTRUME", "'" + f.model + "'"},
                                                       {"SERIAL", "'" + f.serial + "'"},
                                                       {"VERAPI", "'Created By liborvacam 2.1.4'"},
                                                       {"MDVER", "4"},
                                                       {"CCD-TEMP", std::to_string(f.coolerTemperature)},
                                                       {"FPGATEMP", std::to_string(f.fpgaTemperature)},
                                                       {"XBINNING", std::to_string(f.horizontalBinning)},
                                                       {"YBINNING", std::to_string(f.verticalBinning)},
                                                       {"EXPTIME", std::to_string(f.exposure)},
                                                       {"FRAMENUM", std::to_string(f.frameNumber)},
                                                       {"ISHIFRM", high ? "1" : "0"},
                                                       {"ISMRGFRM", merged ? "1" : "0"},
                                                       {"GAINHIGH", high ? "2.000000" : "?"},
                                                       {"GAINLOW", high ? "?" : "1.000000"},
                                                       {"GEO_LAT", "48.000000"},
                                                       {"GEO_LONG", "-16.000000"},
                                                       {"HDR-MODE", "0"},
                                                       {"PXLORDIM", "1"},
                                                       {"PREREFRW", std::to_string(f.preRefRows)},
                                                       {"PSTREFRW", std::to_string(f.postRefRows)},
                                                       {"PRFPXPRW", std::to_string(f.preRefPixels)},
                                                       {"RFPXLPRW", std::to_string(f.postRefPixels)},
                                                       {"SNRPXLDP", "16"},
                                                       {"SHUTOPDL", std::to_string(f.shutterOpenDelay)}};
  for (const auto& [keyword, value] : cards)
    EXPECT_EQ(cardValue(file, keyword), value) << keyword;
}

// ---- The ways in and out

class WholeFrames : public ::testing::TestWithParam<Mode> {
 protected:
  enum Frames : unsigned int { All = 1, EveryFourth = 4 };
  /// Calls check(raw frame, what it must come out as, header version) for frames of the mode. Every fourth
  /// one and the large ones, of which FITS files have pixels, serve the other ways in and out: each kind of
  /// reference region is among them by turns.
  template <typename Check>
  void forEachFrame(Frames which, const Check& check) {
    unsigned int number = 0;
    for (const sim::HeaderFields& fields : framesOf(GetParam())) {
      if (++number % which != 0 && fields.width * fields.height < 4000) continue;
      const unsigned int version = 3 + number / which % 2;
      RawFrame raw(fields, version, number);
      SCOPED_TRACE(std::to_string(fields.width) + " x " + std::to_string(fields.height) + ", refs " +
                   std::to_string(fields.preRefPixels) + " " + std::to_string(fields.postRefPixels) + " " +
                   std::to_string(fields.preRefRows) + " " + std::to_string(fields.postRefRows) + ", bins " +
                   std::to_string(fields.horizontalBinning) + " " + std::to_string(fields.verticalBinning));
      check(raw, expectedOf(GetParam(), raw, 384), version);
      if (HasFailure()) return;
    }
  }

  /// One merge, whose planes, statistics and headers are compared.
  template <typename Merge>
  void checkMerge(const RawFrame& raw, const Expected& expected, unsigned int version, const Merge& merge) {
    CAlgo algo;
    algo.Initialize({GetParam().camera().device, false}, nullptr);
    Images images;
    Images::all(images);
    unpacked_stats_t stats{};
    stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = true;
    EXPECT_EQ(merge(algo, images, stats), expected.decodes ? 0 : -1);
    EXPECT_EQ(images.low(), expected.low);
    EXPECT_EQ(images.high(), expected.high);
    EXPECT_EQ(images.uiMetaDataSize, 384u);
    if (expected.decodes) {
      EXPECT_EQ(images.merged(), expected.merged);
      expectStatistics(stats, expected);
      const Bytes low(images.pLowMetaData, images.pLowMetaData + 384);
      const Bytes high(images.pHighMetaData, images.pHighMetaData + 384);
      const Bytes merged(images.pMergedMetaData, images.pMergedMetaData + 384);
      EXPECT_EQ(low, processedHeader(raw.fields, version, false, false));
      EXPECT_EQ(high, processedHeader(raw.fields, version, true, false));
      EXPECT_EQ(merged, processedHeader(raw.fields, version, false, true));
    }
    algo.FreeStatsPointers(&stats);
  }

  void expectStatistics(const unpacked_stats_t& stats, const Expected& expected) {
    for (const image_plane_stats_t* plane : {&stats.statsLow, &stats.statsHigh, &stats.statsMerged})
      EXPECT_EQ(plane->uiHistogramSize, 65535u);
    // Single images of most sensors are computed without having been counted.
    expectSame(stats.statsLow, expected.lowStats);
    const bool onlyLow =
        GetParam().stream == Stream::Ccd || (GetParam().camera().device == 0x01000400 && !GetParam().hdr);
    if (onlyLow)
      expectReset(stats.statsHigh);
    else
      expectSame(stats.statsHigh, expected.highStats);
    if (GetParam().hdr)
      expectSame(stats.statsMerged, expected.mergedStats);
    else
      expectReset(stats.statsMerged);
  }

  struct File {
    const char* suffix;
    const Pixels& pixels;
    bool high, merged;
  };
  /// The files that a conversion of the frame writes.
  std::vector<File> filesOf(const Expected& expected) const {
    if (!GetParam().hdr) return {{"", expected.low, false, false}};
    return {{"_LOW", expected.low, false, false},
            {"_HIGH", expected.high, true, false},
            {"_MERGED", expected.merged, false, true}};
  }

  /// Converts the frame and calls check(the file's bytes, which file) for each file that must be there.
  template <typename Check>
  void convert(const RawFrame& raw, const Expected& expected, unsigned int format, const char* extension,
               const Check& check) {
    const TestFolder folder;
    const std::wstring source = folder.write("source.bin", raw.bytes);
    const conv_info_t info{format, nullptr, nullptr};
    CAlgo algo;
    const int status = algo.ConvertFile(source.c_str(), &info, folder.wideFile("out.raw").c_str());
    std::size_t count = 1;
    if (expected.decodes) {
      EXPECT_GE(status, 0);
      for (const File& file : filesOf(expected)) {
        const std::string name = std::string("out") + file.suffix + extension;
        SCOPED_TRACE(name);
        ASSERT_TRUE(folder.has(name));
        check(folder.read(name), file);
        ++count;
      }
    } else {
      EXPECT_EQ(status, -1);
    }
    const std::filesystem::directory_iterator all(folder.path());
    EXPECT_EQ(static_cast<std::size_t>(std::distance(begin(all), end(all))), count);  // and no others
  }
};

INSTANTIATE_TEST_SUITE_P(Modes, WholeFrames, ::testing::ValuesIn(cameras::modes),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(WholeFrames, InMemory) {
  forEachFrame(All, [&](RawFrame& raw, const Expected& expected, unsigned int version) {
    checkMerge(raw, expected, version, [&](CAlgo& algo, Images& images, unpacked_stats_t& stats) {
      return algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats);
    });
  });
}

TEST_P(WholeFrames, IntoTheBuffersOfTheFrameBefore) {
  forEachFrame(EveryFourth, [&](RawFrame& raw, const Expected& expected, unsigned int version) {
    RawFrame before(raw.fields, version, 99);
    checkMerge(raw, expected, version, [&](CAlgo& algo, Images& images, unpacked_stats_t& stats) {
      EXPECT_EQ(algo.MergeImage(before.bytes.data(), before.bytes.size(), &images, &stats),
                expected.decodes ? 0 : -1);
      const unsigned short* const low = images.pLowImage;
      const double* const histogram = stats.statsLow.pHistogram;
      const int result = algo.MergeImage(raw.bytes.data(), raw.bytes.size(), &images, &stats);
      EXPECT_EQ(images.pLowImage, low);
      EXPECT_EQ(stats.statsLow.pHistogram, histogram);
      return result;
    });
  });
}

TEST_P(WholeFrames, FromFiles) {
  const TestFolder folder;
  forEachFrame(EveryFourth, [&](RawFrame& raw, const Expected& expected, unsigned int version) {
    const std::wstring file = folder.write("frame.raw", raw.bytes);
    checkMerge(raw, expected, version, [&](CAlgo& algo, Images& images, unpacked_stats_t& stats) {
      return algo.MergeFile(file.c_str(), &images, &stats, nullptr, nullptr);
    });
  });
}

TEST_P(WholeFrames, ConvertedToTiff) {
  forEachFrame(EveryFourth, [&](RawFrame& raw, const Expected& expected, unsigned int version) {
    unsigned int width = 0, height = 0;
    raw.metaData.GetFrameDimensionsBinned(width, height);
    convert(raw, expected, ORVA_IMAGE_FORMAT_TIFF, ".tiff", [&](const Bytes& bytes, const File& file) {
      const Bytes metaData = convertedHeader(raw.fields, version, file.high, file.merged);
      EXPECT_EQ(bytes, tiffFile(metaData, width, height, raw.fields, file.pixels));
    });
  });
}

TEST_P(WholeFrames, ConvertedToFits) {
  forEachFrame(EveryFourth, [&](RawFrame& raw, const Expected& expected, unsigned int) {
    convert(raw, expected, ORVA_IMAGE_FORMAT_FITS, ".fit", [&](const Bytes& bytes, const File& file) {
      expectFitsFile(bytes, raw, file.pixels, file.high, file.merged);
    });
  });
}

}  // namespace
