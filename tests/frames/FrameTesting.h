#ifndef ORVACAM_TESTS_FRAMES_FRAME_TESTING_H
#define ORVACAM_TESTS_FRAMES_FRAME_TESTING_H

#include <gtest/gtest.h>
#include <orvacam/frames/CFrameFactory.h>
#include <orvacam/frames/IFrame.h>
#include <orvacam/merge/CHWMergeReferenceFrames.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "merge/MergeRule.h"
#include "simulator/Encoder.h"
#include "simulator/Header.h"
#include "simulator/Scene.h"
#include "statistics/NaiveStatistics.h"

namespace frame_testing {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;
using Pixels = std::vector<unsigned short>;

/// A raw frame of random pixels, the planes that a right decoder yields, and how often each image pixel
/// counts.
struct RawFrame {
  RawFrame(const sim::HeaderFields& header, unsigned int version = 3, unsigned int seed = 1)
      : fields(header), layout(sim::layoutOf(header)) {
    std::mt19937 random(seed);
    const unsigned int largest = layout.packing == sim::Packing::Packed12   ? 4095
                                 : layout.packing == sim::Packing::Packed13 ? 8191
                                                                            : 65534;
    planes = sim::makePlanes(layout, [&](const sim::PixelPlace&) {
      const std::uint32_t bits = random();
      return static_cast<std::uint16_t>(bits % 5 == 0 ? largest : bits >> 8 & largest);
    });
    encode(version);
  }
  /// A frame of these planes.
  RawFrame(const sim::HeaderFields& header, std::vector<sim::Plane> given)
      : fields(header), layout(sim::layoutOf(header)), planes(std::move(given)) {
    encode(3);
  }

  void encode(unsigned int version) {
    bytes = sim::encodeFrame(fields, version, planes);
    Bytes copy = bytes;  // the parser clears sign bits in what it reads
    if (metaData.Parse(copy.data(), static_cast<unsigned int>(copy.size())) < 0)
      ADD_FAILURE() << "header does not parse";
  }

  std::size_t framePixels() const {
    unsigned int width = 0, height = 0;
    metaData.GetFrameDimensionsBinned(width, height);
    return std::size_t{width} * height;
  }
  /// A plane as the frame's buffer holds it: what the stream brings, then zeros.
  Pixels plane(unsigned int index) const {
    Pixels result(framePixels(), 0);
    if (index < planes.size())
      std::copy_n(planes[index].begin(), std::min(result.size(), planes[index].size()), result.begin());
    return result;
  }

  sim::HeaderFields fields;
  sim::Layout layout;
  std::vector<sim::Plane> planes;
  Bytes bytes;
  CFrameMetaData metaData;
};

/// The six buffers of a record.
inline std::array<void*, 6> buffersOf(const unpacked_images_t& images) {
  return {images.pLowMetaData, images.pLowImage,       images.pHighMetaData,
          images.pHighImage,   images.pMergedMetaData, images.pMergedImage};
}

/// The caller's record, given back at the end.
struct Images : unpacked_images_t {
  Images() : unpacked_images_t{} {}
  Images(const Images&) = delete;
  Images& operator=(const Images&) = delete;
  ~Images() {
    for (void* buffer : buffersOf(*this))
      std::free(buffer);
  }
  static void all(unpacked_images_t& images) {
    images.bMetaDataRequest = images.bLowImageRequest = images.bHighImageRequest =
        images.bMergedImageRequest = true;
  }
  Pixels low() const { return {pLowImage, pLowImage + ulLowImagePixels}; }
  Pixels high() const { return {pHighImage, pHighImage + ulHighImagePixels}; }
  Pixels merged() const { return {pMergedImage, pMergedImage + ulMergedImagePixels}; }
};

/// The same, with the low-gain plane asked for.
struct LowImage : Images {
  LowImage() { bLowImageRequest = true; }
};

/// What the frame class of these bytes unpacks into the low-gain plane, with this status.
inline Pixels unpackedLow(const CFrameMetaData& metaData, unsigned char* bytes, std::size_t size,
                          int status = 0) {
  const std::unique_ptr<IFrame> frame(CFrameFactory::Create(metaData));
  frame->Initialize(metaData, bytes, size, nullptr);
  LowImage images;
  EXPECT_EQ(frame->Unpack(&images), status);
  return images.low();
}

/// The 13-bit decoding: pixels of truth values.
inline Pixels sampledPixels(const unsigned char* s, std::size_t count) {
  // Step, S1, S0, R1, R2 of each pixel of a group.
  constexpr int table[8][5] = {{1, 0, 5, 3, 8}, {2, 2, 10, 0, 6}, {1, 0, 7, 1, 8},  {2, 4, 12, 0, 4},
                               {2, 1, 9, 0, 7}, {1, 0, 6, 2, 8},  {2, 3, 11, 0, 5}, {2, 0, 8, 0, 8}};
  Pixels pixels;
  for (std::size_t i = 0; i < count; ++i) {
    const auto& [step, s1, s0, r1, r2] = table[i % 8];
    int value = (s[0] != 0) << s0 | (s[1] >> r1 != 0) << s1;
    if (s1 != 0 && s[2] >> r2 != 0) value |= 1;
    pixels.push_back(static_cast<unsigned short>(value));
    s += step;
  }
  return pixels;
}

/// Statistics of a row-interleaved stream: image pixels, the extra pixel of an odd row included, at (column,
/// row of both planes together).
inline NaiveStatistics streamStatistics(const RawFrame& raw, unsigned int plane) {
  NaiveStatistics naive;
  std::size_t position = 0;
  const auto even = [](unsigned int n) { return n + n % 2; };
  for (const sim::Section& section : raw.layout.sections)
    for (unsigned int row = 0; row < section.rows; ++row) {
      position += even(section.before);
      for (unsigned int x = 0; x < even(section.pixels); ++x, ++position)
        if (section.kind == sim::Section::Image)
          naive.add(raw.planes[plane][position], static_cast<int>(x), static_cast<int>(2 * row + plane));
      position += even(section.after) + even(section.shared);
    }
  return naive;
}

/// Statistics of a CCD frame read through one amplifier, the first of the header's: every output position in
/// order, sampled right after the pixel of that turn is written.
inline NaiveStatistics amplifierStatistics(const RawFrame& raw) {
  const unsigned int quadrants = raw.fields.quadrants;
  const unsigned int first = quadrants & 0x20   ? 0x20
                             : quadrants & 0x10 ? 0x10
                             : quadrants & 0x08 ? 0x08
                                                : 0x04;
  const bool right = first == 0x10 || first == 0x04, lower = first == 0x08 || first == 0x04;
  const unsigned int width = raw.fields.frameWidth(), height = raw.fields.frameHeight();
  Pixels output(std::size_t{width} * height, 0);
  NaiveStatistics naive;
  for (unsigned int y = 0; y < height; ++y)
    for (unsigned int x = 0; x < width; ++x) {
      const std::size_t place = std::size_t{lower ? height - 1 - y : y} * width + (right ? width - 1 - x : x);
      output[place] = raw.planes[0][place];
      naive.add(output[std::size_t{y} * width + x], static_cast<int>(x), static_cast<int>(y));
    }
  return naive;
}

/// What a merge with identity frames makes of two pixels: the low-gain one is multiplied by the gain ratio in
/// fixed point.
inline unsigned short mergedPixel(double ratio, unsigned short low, unsigned short high) {
  const merge_rule::Correction lowGain(0.0, std::floor(ratio * 1024) / 1024, 3), highGain(0.0, 1.0, 3);
  return merge_rule::merged(lowGain(low), highGain(high), 3700, 128, 0);
}

/// A frame object with a merge algorithm, as the façade sets them up.
struct Bench {
  explicit Bench(RawFrame& raw)
      : merge(std::make_unique<CHWMergeReferenceFrames>()), frame(CFrameFactory::Create(raw.metaData)) {
    merge->SetMetaData(raw.metaData);
    unsigned int width = 0, height = 0;
    raw.metaData.GetFrameDimensions(width, height);
    merge->CreateIdentityFrames(width, height, 6.25, 1.0, nullptr);
    frame->Initialize(raw.metaData, raw.bytes.data(), raw.bytes.size(), merge.get());
  }
  /// The low-gain plane of an unpacking with this status.
  Pixels unpacked(int status = 0) const {
    LowImage images;
    EXPECT_EQ(frame->Unpack(&images), status);
    return images.low();
  }
  image_plane_stats_t low() {
    image_plane_stats_t s{};
    frame->GetLowFrameStats(s);
    return s;
  }
  image_plane_stats_t high() {
    image_plane_stats_t s{};
    frame->GetHighFrameStats(s);
    return s;
  }
  image_plane_stats_t merged() {
    image_plane_stats_t s{};
    frame->GetMergedFrameStats(s);
    return s;
  }

  std::unique_ptr<CHWMergeReferenceFrames> merge;
  std::unique_ptr<IFrame> frame;
};

inline sim::HeaderFields header(const char* model, unsigned int bits, bool hdr, unsigned int width,
                                unsigned int height) {
  sim::HeaderFields f;
  f.model = model;
  f.dataBits = f.sensorBits = bits;
  f.hdr = hdr;
  f.width = width;
  f.height = height;
  return f;
}

}  // namespace frame_testing

#endif  // ORVACAM_TESTS_FRAMES_FRAME_TESTING_H
