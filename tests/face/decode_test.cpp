// Decoding: planes, statistics, memory.

#include <set>

#include "face/FaceTesting.h"
#include "statistics/NaiveStatistics.h"
#include "support/Contains.h"

using namespace face_testing;
using orvacam::Decoded;
using orvacam::Decoder;
using orvacam::Frame;
using orvacam::Plane;
using orvacam::Planes;

namespace {

const Plane& planeOf(const Decoded& decoded, const std::string& name) {
  return name == "low"      ? decoded.low
         : name == "high"   ? decoded.high
         : name == "merged" ? decoded.merged
                            : decoded.image;
}

/// Where a frame's stream says that each plane's pixels lie: the simulator's CCD planes are in plane order.
void expectPlanes(const Decoded& decoded, const Mode& mode, const std::vector<sim::Plane>& planes) {
  const std::vector<std::string> names = planesOf(mode);
  for (const char* name : {"low", "high", "merged", "image"})
    EXPECT_EQ(planeOf(decoded, name).empty(), std::count(names.begin(), names.end(), name) == 0) << name;
  for (std::size_t i = 0; i < planes.size(); ++i)
    EXPECT_EQ(pixelsOf(planeOf(decoded, names[i])), planes[i]) << names[i];
}

/// The merged plane does not depend on the row at which the frame starts.
void expectMergedAsAtRowZero(sim::HeaderFields fields, unsigned int startRow, const char* mode) {
  const Bytes atTop = simulate(fields).bytes;
  fields.startRow = startRow;
  const Bytes below = simulate(fields).bytes;
  Decoder decoder;
  EXPECT_EQ(pixelsOf(decoder.decode(viewed(below)).merged), pixelsOf(decoder.decode(viewed(atTop)).merged))
      << mode;
}

}  // namespace

ORVACAM_OF_EVERY_MODE(FaceDecoderOf);

TEST_P(FaceDecoderOf, LeavesTheFramesBytesAlone) {
  sim::HeaderFields fields = fieldsOf(mode);
  fields.shutterOpenDelay = -5;
  const Bytes bytes = simulate(fields).bytes;
  const Bytes before = bytes;
  Decoder().decode(viewed(bytes));
  EXPECT_EQ(bytes, before);
}

TEST_P(FaceDecoderOf, YieldsWhatIsAskedForAndNothingElse) {
  const Bytes bytes = simulate(fieldsOf(mode)).bytes;
  Decoder decoder;
  const Decoded all = decoder.decode(viewed(bytes));
  for (int wanted = 0; wanted < 16; ++wanted) {
    Planes asked;
    asked.low = (wanted & 1) != 0;
    asked.high = (wanted & 2) != 0;
    asked.merged = (wanted & 4) != 0;
    asked.image = (wanted & 8) != 0;
    const Decoded some = decoder.decode(viewed(bytes), asked);
    EXPECT_EQ(pixelsOf(some.low), asked.low ? pixelsOf(all.low) : sim::Plane());
    EXPECT_EQ(pixelsOf(some.high), asked.high ? pixelsOf(all.high) : sim::Plane());
    EXPECT_EQ(pixelsOf(some.merged), asked.merged ? pixelsOf(all.merged) : sim::Plane());
    EXPECT_EQ(pixelsOf(some.image), asked.image ? pixelsOf(all.image) : sim::Plane());
  }
}

TEST_P(FaceDecoderOf, GivesEachPlaneItsProcessedHeader) {
  const SimulatedFrame frame = simulate(fieldsOf(mode));
  const Decoded decoded = Decoder().decode(viewed(frame.bytes));
  for (const std::string& name : planes) {
    const orvacam::Header& header = planeOf(decoded, name).header();
    EXPECT_FALSE(header.hdr());
    EXPECT_EQ(header.number("DataPixelBitDepth"), 16);
    EXPECT_EQ(header.number("TestIsHighFrame"), name == "high");
    EXPECT_EQ(header.number("TestIsMergedFrame"), name == "merged");
    EXPECT_EQ(header.number("MetadataVersion"), 4);
    EXPECT_EQ(header.sensor(), sensorOf(mode));
    EXPECT_DOUBLE_EQ(header.temperature_celsius().value(), -19.5);
    EXPECT_EQ(header.frame_size(), planeOf(decoded, name).size());
    EXPECT_EQ(header.time(), viewed(frame.bytes).header().time());
  }
}

TEST_P(FaceDecoderOf, HeadersOfPlanesComeFromTheRawHeaderAlone) {
  const SimulatedFrame frame = simulate(fieldsOf(mode));
  const Decoded decoded = Decoder().decode(viewed(frame.bytes));
  const orvacam::Header raw = viewed(frame.bytes).header();
  for (const std::string& name : planes) {
    const orvacam::Header made = raw.of_plane(name), decodedOne = planeOf(decoded, name).header();
    EXPECT_EQ(made.to_json(), decodedOne.to_json());
    EXPECT_EQ(made.bytes(), decodedOne.bytes());
  }
  EXPECT_EQ(reasonOf([&] { raw.of_plane("middle"); }), orvacam::Reason::bad_argument);
}

TEST_P(FaceDecoderOf, CountsTheImageRegionExactly) {
  sim::HeaderFields fields = fieldsOf(mode);
  if (mode.bits == 12) {
    fields.postRefPixels = 2;
    fields.preRefRows = 3;
  }
  const Bytes bytes = simulate(fields).bytes;
  Planes wanted;
  wanted.histograms = true;
  const Decoded decoded = Decoder().decode(viewed(bytes), wanted);
  const orvacam::Region region = viewed(bytes).header().image_region();
  for (const std::string& name : planes) {
    const Plane& plane = planeOf(decoded, name);
    ASSERT_TRUE(plane.statistics().has_value()) << name;
    const orvacam::Statistics& s = *plane.statistics();
    frame_testing::NaiveStatistics naive(true);
    for (unsigned int y = region.y; y < region.y + region.height; ++y)
      for (unsigned int x = region.x; x < region.x + region.width; ++x)
        naive.add(plane(x, y), static_cast<int>(x), static_cast<int>(y));
    EXPECT_EQ(s.count, naive.count);
    EXPECT_DOUBLE_EQ(s.mean, naive.mean());
    EXPECT_NEAR(s.deviation, naive.deviation(), 1e-9);
    EXPECT_EQ(s.minimum.value, naive.min);
    EXPECT_EQ(static_cast<int>(s.minimum.x), naive.minPoint.x);
    EXPECT_EQ(static_cast<int>(s.minimum.y), naive.minPoint.y);
    EXPECT_EQ(s.maximum.value, naive.max);
    EXPECT_EQ(static_cast<int>(s.maximum.x), naive.maxPoint.x);
    EXPECT_EQ(static_cast<int>(s.maximum.y), naive.maxPoint.y);
    EXPECT_EQ(s.mode, naive.mode());
    EXPECT_EQ(s.clip_low, naive.lowClip());
    EXPECT_EQ(s.clip_high, naive.highClip());
    EXPECT_EQ(std::vector<double>(s.histogram.begin(), s.histogram.end()), naive.histogram);
  }
}

TEST(FaceStatistics, AreThereWhenAskedForAlone) {
  const Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  Decoder decoder;
  EXPECT_FALSE(decoder.decode(viewed(bytes)).low.statistics().has_value());
  Planes wanted;
  wanted.statistics = true;
  const Decoded counted = decoder.decode(viewed(bytes), wanted);
  EXPECT_TRUE(counted.low.statistics().has_value());
  EXPECT_TRUE(counted.low.statistics()->histogram.empty());
}

TEST(FaceStatistics, TakeSquaresOfBrightPixelsAndTheBrightestValueForWhatTheyAre) {
  sim::HeaderFields fields = fieldsOf(modeNamed("Generic"), 4, 1);
  Bytes bytes = sim::writeHeader(fields, 3);
  for (const unsigned int value : {65535, 65535, 60000, 0}) {
    bytes.push_back(static_cast<unsigned char>(value));
    bytes.push_back(static_cast<unsigned char>(value >> 8));
  }
  Planes wanted;
  wanted.histograms = true;
  const orvacam::Statistics s = *Decoder().decode(viewed(bytes), wanted).image.statistics();
  EXPECT_DOUBLE_EQ(s.mean, 47767.5);
  EXPECT_DOUBLE_EQ(s.deviation, 27670.99666166725);
  EXPECT_EQ(s.mode, 65535);
  EXPECT_EQ(s.histogram[65535], 2u);
  EXPECT_EQ(s.clip_high, 65535);
}

TEST(FaceStatistics, OfLargePlanesAreThoseOfSmallOnes) {
  // The same rows many times over: everything but the count stays.
  sim::HeaderFields fields = fieldsOf(modeNamed("Imx183"), 512, 4);
  const SimulatedFrame small = simulate(fields);
  fields.height = 512;
  Bytes large = sim::writeHeader(fields, 3);
  for (int i = 0; i < 128; ++i)
    large.insert(large.end(), small.bytes.begin() + 384, small.bytes.end());
  Planes wanted;
  wanted.histograms = true;
  Decoder decoder;
  const orvacam::Statistics a = *decoder.decode(viewed(small.bytes), wanted).image.statistics();
  const orvacam::Statistics b = *decoder.decode(viewed(large), wanted).image.statistics();
  EXPECT_EQ(b.count, 128 * a.count);
  EXPECT_DOUBLE_EQ(a.mean, b.mean);
  EXPECT_DOUBLE_EQ(a.deviation, b.deviation);
  EXPECT_EQ(a.mode, b.mode);
  EXPECT_EQ(a.minimum.x, b.minimum.x);
  EXPECT_EQ(a.minimum.y, b.minimum.y);
  EXPECT_EQ(a.maximum.x, b.maximum.x);
  EXPECT_EQ(a.maximum.y, b.maximum.y);
  for (unsigned int value = 0; value < 65536; ++value)
    ASSERT_EQ(128 * a.histogram[value], b.histogram[value]);
}

TEST(FaceStatistics, OfOneFrameDoNotShowInTheNext) {
  Decoder decoder;
  Planes wanted;
  wanted.histograms = true;
  const Bytes bright = simulate(fieldsOf("Imx183")).bytes;
  Bytes dark = bright;
  std::fill(dark.begin() + 384, dark.end(), 0);
  decoder.decode(viewed(bright), wanted);
  const orvacam::Statistics s = *decoder.decode(viewed(dark), wanted).image.statistics();
  EXPECT_EQ(s.maximum.value, 0);
  EXPECT_EQ(s.histogram[0], 240u);
  EXPECT_EQ(s.mean, 0);
  EXPECT_EQ(s.deviation, 0);
  EXPECT_EQ(s.minimum.x, 0u);
}

// ---- Sampled frames

TEST(FaceDecoder, DecodesSampledFramesOfAnyNumberOfPixels) {
  for (unsigned int width = 1; width <= 17; ++width)
    for (const unsigned int height : {1, 3}) {
      sim::HeaderFields fields = fieldsOf("GSense2020Single");
      fields.correlatedMultipleSampling = true;
      fields.dataBits = 13;
      fields.width = width;
      fields.height = height;
      const Bytes bytes = simulate(fields).bytes;
      ASSERT_EQ(bytes.size(), 384 + (width * height * 13 + 7) / 8);
      const Decoded decoded = Decoder().decode(viewed(bytes));
      ASSERT_EQ(decoded.image.size(), (orvacam::Size{width, height}));
      EXPECT_EQ(viewed(bytes).planes(), std::vector<std::string>{"image"});
    }
}

TEST(FaceDecoder, ReadsSampledPixelsAsTheCameraDefinesThem) {
  sim::HeaderFields fields = fieldsOf("GSense2020Single");
  fields.correlatedMultipleSampling = true;
  fields.width = 8;
  fields.height = 1;
  Bytes bytes = sim::writeHeader(fields, 3);
  bytes.insert(bytes.end(), 13, 0xFF);
  const Plane image = Decoder().decode(viewed(bytes)).image;
  EXPECT_EQ(image(0, 0), 0x21);
  EXPECT_EQ(image(1, 0), 0x405);
}

// ---- Merging

TEST(FaceDecoder, MergesFramesThatStartBelowRowZeroAsOthers) {
  for (const char* mode : {"GSense400Hdr", "GSense2020Hdr", "GSense4040Hdr", "GSense6060Hdr"})
    expectMergedAsAtRowZero(fieldsOf(mode), 1000, mode);
}

TEST(FaceDecoder, MergesTheLastRowOfTheWidestFrames) {
  for (const char* mode : {"GSense400Hdr", "GSense2020Hdr", "GSense4040Hdr", "GSense6060Hdr"})
    expectMergedAsAtRowZero(fieldsOf(modeNamed(mode), 65536, 1), 65535, mode);
}

TEST(FaceDecoder, TakesThresholdsForTheMergeAlone) {
  const SimulatedFrame frame = simulate(fieldsOf("GSense400Hdr"));
  Decoder decoder;
  decoder.thresholds(0, 128);
  const Decoded decoded = decoder.decode(viewed(frame.bytes));
  EXPECT_EQ(pixelsOf(decoded.low), frame.planes[0]);
  Machinery machinery;
  machinery.algo->SetHWMergeThresholds(0, 128);
  EXPECT_EQ(pixelsOf(decoded.merged), machinery.mergedOf(frame.bytes));
  decoder.thresholds(65535, 65535);
  EXPECT_EQ(pixelsOf(decoder.decode(viewed(frame.bytes)).merged), frame.planes[1]);
  EXPECT_NO_THROW(decoder.decode(frameOf(fieldsOf("Generic"))));
}

TEST(FaceDecoder, RefusesThresholdsThatNoPixelReaches) {
  Decoder decoder;
  decoder.thresholds(1000, 50);
  EXPECT_EQ(reasonOf([&] { decoder.thresholds(65536, 0); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { decoder.thresholds(0, 70000); }), Reason::bad_argument);
  const auto info = decoder.merge_info(frameOf(fieldsOf("GSense400Hdr")).header());
  EXPECT_EQ(info.high_threshold, 1000u);
  EXPECT_EQ(info.difference_threshold, 50u);
}

TEST(FaceDecoder, FollowsSensorSizeAndGainsFromFrameToFrame) {
  Decoder decoder;
  for (int round = 0; round < 2; ++round)
    for (const Mode& mode : modes())
      for (const unsigned int width : {24, 40})
        for (const unsigned int gain : {0, 3}) {
          sim::HeaderFields fields = fieldsOf(mode, width, 8);
          fields.lowGain = gain;
          const SimulatedFrame frame = simulate(fields);
          const Decoded decoded = decoder.decode(viewed(frame.bytes));
          expectPlanes(decoded, mode, frame.planes);
          if (mode.hdr) EXPECT_EQ(pixelsOf(decoded.merged), Machinery().mergedOf(frame.bytes));
        }
}

TEST(FaceDecoder, TellsHowItMerges) {
  Decoder decoder;
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.lowGain = 0;
  fields.highGain = 0;
  const auto info = decoder.merge_info(frameOf(fields).header());
  EXPECT_TRUE(info.merges);
  EXPECT_EQ(info.gain_ratio, std::floor(47.8469 / 7.5988 * 1024) / 1024);
  EXPECT_EQ(info.high_threshold, 3700u);
  EXPECT_EQ(info.difference_threshold, 128u);
  EXPECT_EQ(info.type, 0u);
  EXPECT_FALSE(info.dsnu || info.prnu || info.bias);
  EXPECT_FALSE(decoder.merge_info(frameOf(fieldsOf("Generic")).header()).merges);
}

TEST(FaceDecoder, RatiosThatTheMergeCannotHoldLeaveTwoPlanes) {
  // Low gain 0 has 47.8 electrons a count, high gain 7 has 0.55: more than 86.
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.lowGain = 0;
  fields.highGain = 7;
  const SimulatedFrame frame = simulate(fields);
  const Frame view = viewed(frame.bytes);
  EXPECT_EQ(view.planes(), (std::vector<std::string>{"low", "high"}));
  EXPECT_EQ(idsOf(view.check()), std::vector<std::string>{"ratio_too_large"});
  EXPECT_TRUE(contains(view.check()[0].text, "86.2"));
  const Decoded decoded = Decoder().decode(view);
  EXPECT_EQ(pixelsOf(decoded.low), frame.planes[0]);
  EXPECT_EQ(pixelsOf(decoded.high), frame.planes[1]);
  EXPECT_TRUE(decoded.merged.empty());
}

TEST(FaceDecoder, DecodesFramesWhoseTimeCannotBeRead) {
  const SimulatedFrame frame = simulate(fieldsOf("GSense400Hdr"));
  Bytes bytes = frame.bytes;
  std::fill_n(bytes.begin() + 152, 30, 0);
  const Decoded broken = Decoder().decode(viewed(bytes));
  EXPECT_EQ(pixelsOf(broken.merged), pixelsOf(Decoder().decode(viewed(frame.bytes)).merged));
  EXPECT_FALSE(broken.merged.header().time().has_value());
}

// ---- Memory

TEST(FaceDecoder, UsesMemoryAgainThatPlanesLetGo) {
  const Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  Decoder decoder;
  std::set<const void*> places;
  for (int i = 0; i < 10; ++i) {
    const Decoded decoded = decoder.decode(viewed(bytes));
    for (const Plane* plane : {&decoded.low, &decoded.high, &decoded.merged})
      places.insert(plane->data());
  }
  EXPECT_EQ(places.size(), 3u);
}

TEST(FaceDecoder, PlanesKeepTheirPixelsWhateverComesAfterThem) {
  const SimulatedFrame one = simulate(fieldsOf("GSense400Hdr"), 3, 1);
  const SimulatedFrame two = simulate(fieldsOf("GSense400Hdr"), 3, 2);
  Plane low;
  {
    Decoder decoder;
    low = decoder.decode(viewed(one.bytes)).low;
    decoder.decode(viewed(two.bytes));
    EXPECT_EQ(pixelsOf(low), one.planes[0]);
  }
  EXPECT_EQ(pixelsOf(low), one.planes[0]);  // and the decoder's end
  EXPECT_EQ(low.header().number("DataPixelBitDepth"), 16);
}

TEST(FaceDecoder, FillsTheCallersMemory) {
  const SimulatedFrame frame = simulate(fieldsOf("GSense400Hdr"));
  const std::size_t pixels = frame.planes[0].size();
  std::vector<std::uint16_t> low(pixels + 1, 0xABCD), merged(pixels, 0xABCD);
  orvacam::Targets targets;
  targets.low = {low.data(), low.size()};
  targets.merged = {merged.data(), merged.size()};
  Decoder decoder;
  const Decoded decoded = decoder.decode(viewed(frame.bytes), Planes(), targets);
  EXPECT_EQ(decoded.low.data(), low.data());
  EXPECT_EQ(decoded.merged.data(), merged.data());
  EXPECT_EQ(low[pixels], 0xABCD);
  low.pop_back();
  EXPECT_EQ(low, frame.planes[0]);
  EXPECT_EQ(merged, pixelsOf(decoder.decode(viewed(frame.bytes)).merged));
  EXPECT_EQ(pixelsOf(decoded.high), frame.planes[1]);
}

TEST(FaceDecoder, RefusesMemoryThatIsTooSmallOrSharedBeforeItWrites) {
  const SimulatedFrame frame = simulate(fieldsOf("GSense400Hdr"));
  const std::size_t pixels = frame.planes[0].size();
  std::vector<std::uint16_t> memory(2 * pixels, 0xABCD);
  const std::vector<std::uint16_t> before = memory;
  Decoder decoder;
  orvacam::Targets targets;
  targets.low = {memory.data(), pixels - 1};
  const auto small = errorOf([&] { decoder.decode(viewed(frame.bytes), Planes(), targets); });
  EXPECT_EQ(small.reason(), Reason::bad_argument);
  EXPECT_STREQ(small.what(), "the memory for low holds 239 pixels of 240");
  targets.low = {memory.data(), pixels};
  targets.high = {memory.data() + pixels - 1, pixels};
  EXPECT_EQ(reasonOf([&] { decoder.decode(viewed(frame.bytes), Planes(), targets); }), Reason::bad_argument);
  EXPECT_EQ(memory, before);
  targets.high = {memory.data() + pixels, pixels};
  EXPECT_NO_THROW(decoder.decode(viewed(frame.bytes), Planes(), targets));
}

TEST(FaceDecoder, RefusesTheFramesOwnBytesAsMemory) {
  Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  const Bytes before = bytes;
  orvacam::Targets targets;
  targets.low = {reinterpret_cast<std::uint16_t*>(bytes.data()), bytes.size() / 2};
  EXPECT_EQ(reasonOf([&] { Decoder().decode(viewed(bytes), Planes(), targets); }), Reason::bad_argument);
  EXPECT_EQ(bytes, before);
}

TEST(FaceDecoder, PassesOverMemoryForPlanesThatAreNotThere) {
  const Bytes bytes = simulate(fieldsOf("Generic")).bytes;
  std::uint16_t small = 0;
  orvacam::Targets targets;
  targets.low = {&small, 1};
  EXPECT_NO_THROW(Decoder().decode(viewed(bytes), Planes(), targets));
}

TEST(FaceDecoder, IsAsGoodAsNewAfterAnError) {
  const SimulatedFrame frame = simulate(fieldsOf("GSense400Hdr"));
  Decoder decoder;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(reasonOf([&] { decoder.decode(Frame::view(frame.bytes.data(), frame.bytes.size() - 1)); }),
              Reason::truncated);
    EXPECT_EQ(pixelsOf(decoder.decode(viewed(frame.bytes)).low), frame.planes[0]);
  }
}

TEST(FaceDecoder, DecodesGeometriesAsTheyAreSentOrRefusesThem) {
  unsigned int state = 7;
  const auto random = [&](unsigned int below) {
    state = state * 1664525u + 1013904223u;
    return (state >> 8) % below;
  };
  int decodedFrames = 0;
  Decoder decoder;
  for (int i = 0; i < 3000; ++i) {
    const Mode& mode = modes()[random(static_cast<unsigned int>(modes().size()))];
    sim::HeaderFields fields = fieldsOf(mode, 1 + random(20), 1 + random(6));
    if (random(2) == 0) fields.width += fields.width % 2;
    if (random(3) == 0) fields.preRefPixels = random(5);
    if (random(3) == 0) fields.postRefPixels = 2 * random(3);
    if (random(3) == 0) fields.preRefRows = random(4);
    if (random(4) == 0) fields.postRefRows = random(4);
    if (random(4) == 0) fields.horizontalBinning = random(4);
    if (random(4) == 0) fields.verticalBinning = random(4);
    if (random(8) == 0) fields.startRow = random(100);
    SimulatedFrame frame = simulate(fields);
    const Frame view = viewed(frame.bytes);
    if (fields.frameHeight() % 2 != 0 && fields.quadrants == 0x3C)
      std::fill_n(frame.planes[0].begin() + fields.frameHeight() / 2 * fields.frameWidth(),
                  fields.frameWidth(),
                  0);  // which four amplifiers do not send
    if (view.planes().empty()) {
      EXPECT_EQ(reasonOf([&] { decoder.decode(view); }), view.check()[0].reason);
      continue;
    }
    ++decodedFrames;
    const Decoded decoded = decoder.decode(view);
    const std::vector<std::string> names = planesOf(mode);
    ASSERT_EQ(planeOf(decoded, names[0]).size(), view.header().frame_size());
    for (std::size_t plane = 0; plane < frame.planes.size(); ++plane)
      ASSERT_EQ(pixelsOf(planeOf(decoded, names[plane])), frame.planes[plane]) << mode.name;
  }
  EXPECT_GT(decodedFrames, 1000);
}

// ---- Values

TEST(FaceImage, CopiesPixelsAndStartsEmpty) {
  const std::vector<float> pixels = {1.5f, 2.5f, 3.5f, 4.5f, 5.5f, 6.5f};
  const auto image = orvacam::Image<float>::copy({3, 2}, pixels.data());
  EXPECT_EQ(image.size(), (orvacam::Size{3, 2}));
  EXPECT_EQ(image(2, 1), 6.5f);
  EXPECT_EQ(image.row(1), image.data() + 3);
  EXPECT_NE(image.data(), pixels.data());
  const orvacam::Image<float> empty;
  EXPECT_TRUE(empty.empty());
  EXPECT_EQ(empty.data(), nullptr);
  EXPECT_EQ(empty.size(), (orvacam::Size{0, 0}));
  EXPECT_TRUE(orvacam::Image<std::uint64_t>::copy({0, 5}, nullptr).empty());
  EXPECT_EQ(reasonOf([] { orvacam::Image<float>::copy({1, 1}, nullptr); }), Reason::bad_argument);
}

TEST(FaceImage, MovedFromOnesAreEmptyAndCanBeAssigned) {
  const std::uint16_t pixels[] = {1, 2};
  Plane plane = Plane::copy({2, 1}, pixels);
  const Plane moved = std::move(plane);
  EXPECT_TRUE(plane.empty());
  EXPECT_EQ(moved(1, 0), 2);
  plane = moved;
  EXPECT_EQ(plane.data(), moved.data());
}

TEST(FaceImage, PlanesWithoutAHeaderSaySo) {
  const std::uint16_t pixel = 1;
  EXPECT_EQ(reasonOf([] { Plane().header(); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { Plane::copy({1, 1}, &pixel).header(); }), Reason::bad_argument);
  EXPECT_FALSE(Plane().statistics().has_value());
}

TEST(FaceError, CarriesWhatItKnowsAndIsCopied) {
  const auto error = errorOf([] { orvacam::Header::parse("Meta", 4); });
  const orvacam::Error copy = error;
  EXPECT_EQ(copy.reason(), Reason::truncated);
  EXPECT_STREQ(copy.what(), error.what());
  EXPECT_EQ(copy.path(), "");
  EXPECT_EQ(copy.needed(), 8u);
  EXPECT_EQ(copy.available(), 4u);
  EXPECT_EQ(copy.system_error(), 0);
}

TEST(FaceLibrary, NamesItselfItsSensorsAndReasons) {
  EXPECT_EQ(orvacam::version(), "2.1.4");
  const std::vector<std::string> names = orvacam::sensors();
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()),
            (std::set<std::string>{"GSENSE400", "GSENSE2020", "GSENSE4040", "GSENSE6060", "IMX183", "LSGEN",
                                   "CCD230-42", "CCD230-84", "CCD4320", "GENERIC"}));
  EXPECT_EQ(names.size(), 10u);
  EXPECT_EQ(orvacam::reason_name(Reason::not_a_frame), "not_a_frame");
  EXPECT_EQ(orvacam::reason_name(Reason::internal), "internal");
  EXPECT_EQ(orvacam::reason_name(static_cast<Reason>(0)), "");
  EXPECT_EQ(static_cast<int>(Reason::internal), 9);
}
