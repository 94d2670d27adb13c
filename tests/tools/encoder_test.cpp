// The streams that the simulator sends, pixel by pixel as the sensors send them; and its gain settings.

#include <gmock/gmock.h>
#include <orvacam.h>

#include <memory>

#include "simulator/Scene.h"

namespace {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;
using Stream = std::vector<unsigned int>;

sim::HeaderFields fieldsOf(const char* camera, const char* mode, unsigned int width, unsigned int height) {
  sim::HeaderFields fields = sim::headerFor(*sim::findCamera(camera), mode).value();
  fields.width = width;
  fields.height = height;
  return fields;
}

/// Planes whose pixels are numbered, from 0 on in the first and from 100 on in the second.
std::vector<sim::Plane> numbered(const sim::Layout& layout) {
  std::vector<sim::Plane> planes(layout.planes);
  for (unsigned int p = 0; p < layout.planes; ++p)
    for (std::size_t i = 0; i < layout.pixelsPerPlane(); ++i)
      planes[p].push_back(static_cast<std::uint16_t>(100 * p + i));
  return planes;
}

/// The 12-bit pixels of a stream: two in three bytes, high bits first.
Stream unpacked(const Bytes& bytes) {
  Stream pixels;
  for (std::size_t i = 0; i + 2 < bytes.size(); i += 3) {
    const unsigned int three = static_cast<unsigned int>(bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2]);
    pixels.push_back(three >> 12);
    pixels.push_back(three & 0xFFF);
  }
  return pixels;
}

Stream streamOf(const sim::HeaderFields& fields) {
  const sim::Layout layout = sim::layoutOf(fields);
  return unpacked(sim::encodePixels(fields, layout, numbered(layout)));
}

TEST(PackedStream, HasTwoPixelsInThreeBytes) {
  const sim::HeaderFields fields = fieldsOf("GSENSE400", "single", 2, 2);
  EXPECT_EQ(sim::encodePixels(fields, sim::layoutOf(fields), {{0xABC, 0xDEF, 0x001, 0x800}}),
            (Bytes{0xAB, 0xCD, 0xEF, 0x00, 0x18, 0x00}));
}

TEST(PackedStream, OfOneGainIsThePlane) {
  sim::HeaderFields fields = fieldsOf("GSENSE4040", "single", 2, 1);
  fields.preRefPixels = 2, fields.postRefPixels = 2, fields.preRefRows = 1, fields.postRefRows = 1;
  Stream expected(18);
  for (unsigned int i = 0; i < 18; ++i)
    expected[i] = i;
  EXPECT_EQ(streamOf(fields), expected);
}

TEST(PackedStream, FillsEachOddRunWithAPixel) {
  sim::HeaderFields fields = fieldsOf("GSENSE2020", "single", 3, 1);
  fields.preRefPixels = 1, fields.preRefRows = 1;
  const sim::Layout layout = sim::layoutOf(fields);
  EXPECT_EQ(layout.pixelsPerPlane(), 4u + 2 + 4);
  EXPECT_EQ(layout.bytes(), 15u);
}

TEST(Gsense400Stream, SendsRowsInTurnAndSharesTheReferencePixelsBehindThem) {
  sim::HeaderFields fields = fieldsOf("GSENSE400", "hdr", 2, 1);
  fields.postRefPixels = 2, fields.preRefRows = 1, fields.postRefRows = 1;
  // Rows ahead are as long as the image's, rows behind as long as the frame's.
  EXPECT_EQ(streamOf(fields), (Stream{0, 1, 100, 101, 102, 103,                        // row ahead
                                      4, 5, 104, 105, 106, 107,                        // image
                                      8, 9, 10,  11,  108, 109, 110, 111, 112, 113}))  // row behind
      << "shared pixels are numbered as in the second plane";
  const std::vector<sim::Plane> planes =
      sim::makePlanes(sim::layoutOf(fields), [](const sim::PixelPlace& place) {
        return static_cast<std::uint16_t>(place.plane * 100 + place.x + 10 * place.image);
      });
  EXPECT_EQ(planes[0], (sim::Plane{0, 1, 100, 101, 10, 11, 100, 101, 0, 1, 2, 3, 100, 101}));
}

TEST(Gsense2020Stream, SendsReferencePixelsBehindEachRowOnly) {
  for (const char* camera : {"GSENSE2020", "GSENSE4040"}) {
    sim::HeaderFields fields = fieldsOf(camera, "hdr", 2, 1);
    fields.preRefPixels = 2, fields.postRefPixels = 2, fields.preRefRows = 1, fields.postRefRows = 1;
    EXPECT_EQ(
        streamOf(fields),
        (Stream{0,  1,  2,  3,  4,   5,   100, 101, 102, 103, 104, 105,     // rows ahead: the frame's width
                6,  7,  8,  9,  106, 107, 108, 109,                         // image and reference pixels
                10, 11, 12, 13, 14,  15,  110, 111, 112, 113, 114, 115}));  // rows behind
  }
}

TEST(Gsense6060Stream, SendsReferencePixelsAroundEachRow) {
  sim::HeaderFields fields = fieldsOf("GSENSE6060", "hdr", 3, 2);
  fields.preRefPixels = 2, fields.postRefPixels = 2;
  EXPECT_EQ(streamOf(fields), (Stream{0, 1, 2,  3,  4,  5,  6,  7,  100, 101, 102, 103, 104, 105, 106, 107,
                                      8, 9, 10, 11, 12, 13, 14, 15, 108, 109, 110, 111, 112, 113, 114, 115}));
  fields.hdr = false;  // 12-bit data is always two planes
  EXPECT_EQ(sim::layoutOf(fields).planes, 2u);
}

TEST(BinnedStream, RoundsEachCountUpOnItsOwn) {
  sim::HeaderFields fields = fieldsOf("GSENSE6060", "16bit", 5, 7);
  fields.preRefPixels = 3, fields.postRefPixels = 1, fields.preRefRows = 4, fields.postRefRows = 2;
  fields.horizontalBinning = 2, fields.verticalBinning = 3;
  EXPECT_EQ(sim::layoutOf(fields).pixelsPerPlane(), (2u + 3 + 1) * (2 + 3 + 1));
}

TEST(PlainStream, HasTheLowByteFirst) {
  const sim::HeaderFields fields = fieldsOf("IMX183", "single", 2, 1);
  EXPECT_EQ(sim::encodePixels(fields, sim::layoutOf(fields), {{0x1234, 0xABCD}}),
            (Bytes{0x34, 0x12, 0xCD, 0xAB}));
}

TEST(SampledStream, HasThirteenBitsOfEachPixel) {
  const sim::HeaderFields fields = fieldsOf("GSENSE2020", "cms", 4, 2);
  const sim::Layout layout = sim::layoutOf(fields);
  EXPECT_EQ(layout.bytes(), 13u);
  EXPECT_EQ(sim::encodePixels(fields, layout, {{0x1FFF, 0, 0, 0, 0, 0, 0, 1}}),
            (Bytes{0xFF, 0xF8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
}

/// The order in which a CCD's pixels come; a pixel of column x in row y is 10 * y + x.
Stream ccdOrder(unsigned int amplifiers, unsigned int width, unsigned int height) {
  sim::HeaderFields fields = fieldsOf("CCD230-42", "single", width, height);
  fields.quadrants = amplifiers;
  const sim::Layout layout = sim::layoutOf(fields);
  const auto planes = sim::makePlanes(
      layout, [](const sim::PixelPlace& p) { return static_cast<std::uint16_t>(10 * p.y + p.x); });
  const Bytes bytes = sim::encodePixels(fields, layout, planes);
  EXPECT_EQ(bytes.size(), layout.bytes());
  Stream stream;
  for (std::size_t i = 0; i < bytes.size(); i += 2)
    stream.push_back(static_cast<unsigned int>(bytes[i] << 8 | bytes[i + 1]));
  return stream;
}

TEST(CcdStream, ComesFromFourCornersAtOnce) {
  EXPECT_EQ(ccdOrder(0x3C, 4, 4), (Stream{0, 1, 3, 2, 30, 31, 33, 32,  // outer rows, right halves mirrored
                                          10, 11, 13, 12, 20, 21, 23, 22}));
  EXPECT_EQ(ccdOrder(0x3C, 3, 2), (Stream{0, 1, 2, 10, 11, 12})) << "the left half has the middle column";
  EXPECT_EQ(ccdOrder(0x3C, 2, 3), (Stream{0, 1, 20, 21, 10, 11})) << "the middle row comes last";
}

TEST(CcdStream, ComesMirroredFromOneCorner) {
  EXPECT_EQ(ccdOrder(0x20, 3, 2), (Stream{0, 1, 2, 10, 11, 12}));
  EXPECT_EQ(ccdOrder(0x10, 3, 2), (Stream{2, 1, 0, 12, 11, 10}));
  EXPECT_EQ(ccdOrder(0x08, 3, 2), (Stream{10, 11, 12, 0, 1, 2}));
  EXPECT_EQ(ccdOrder(0x04, 3, 2), (Stream{12, 11, 10, 2, 1, 0}));
  EXPECT_EQ(ccdOrder(0x18, 3, 2), ccdOrder(0x10, 3, 2)) << "of several amplifiers the first counts";
}

TEST(OldHeader, LeavesTheReferencePixelsOfSomeSensorsToTheReader) {
  for (const char* model : {"VESTRA VS400", "VESTRA VS2020", "VESTRA VS4040", "VESTRA VS6060",
                            "argent 230-84", "ARGENT 4320", "ARGENT 9999", "VESTRA IMX183", "VESTRA PLAIN"})
    for (unsigned int version = 1; version <= 4; ++version) {
      sim::HeaderFields fields;
      fields.model = model;
      fields.preRefPixels = 3, fields.postRefPixels = 7;
      fields.quadrants = 0x24;
      fields.correlatedMultipleSampling = true;
      Bytes bytes = sim::writeHeader(fields, version);
      CFrameMetaData header;
      ASSERT_GE(header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size())), 0);
      const sim::HeaderFields read = sim::asVersion(fields, version);
      const auto number = [&](ORVA_META_KEYS key) { return header.Value(key).GetValueUint(); };
      SCOPED_TRACE(std::string(model) + " " + std::to_string(version));
      EXPECT_EQ(read.preRefPixels, number(ORVA_META_KEY_PRE_ROW_REF_PIXELS));
      EXPECT_EQ(read.postRefPixels, number(ORVA_META_KEY_POST_ROW_REF_PIXELS));
      EXPECT_EQ(read.quadrants, number(ORVA_META_KEY_SENSOR_READ_QUADRANTS));
      EXPECT_EQ(read.correlatedMultipleSampling, number(ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE) != 0);
    }
}

TEST(SimulatedGains, AreThoseOfTheSensors) {
  const struct {
    const char* camera;
    std::size_t settings;
    unsigned int index;
    double low, high;
  } rows[] = {{"GSENSE400", 8, 0, 47.8469, 7.5988},     {"GSENSE400", 8, 7, 4.8544, 0.5549},
              {"GSENSE400", 8, 8, 47.8469, 7.5988},     {"GSENSE2020", 64, 0, 18.6916, 0.8194},
              {"GSENSE2020", 64, 49, 10.0, 10.0},       {"GSENSE4040", 58, 62, 0.8194, 0.8194},
              {"GSENSE4040", 58, 200, 18.6916, 0.8194}, {"GSENSE6060", 58, 0, 12.5, 2.494},
              {"GSENSE6060", 58, 37, 35.714, 2.494},    {"IMX183", 0, 0, 2.0, 0.0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.camera) + " " + std::to_string(row.index));
    const sim::Camera& camera = *sim::findCamera(row.camera);
    EXPECT_EQ(camera.gains.size(), row.settings);
    EXPECT_EQ(camera.lowAt(row.index), row.low);
    EXPECT_EQ(camera.highAt(row.index), row.high);
  }
}

TEST(SimulatedGains, AreInTheCountsOfBothPlanes) {
  const sim::Camera& camera = *sim::findCamera("GSENSE400");
  sim::Sky sky;
  sky.stars = 0;
  sky.background = 900;
  sky.readNoise = sky.columnPattern = sky.rowPattern = sky.gainPattern = 0;
  for (unsigned int index = 0; index < 8; ++index) {
    sim::HeaderFields fields = fieldsOf("GSENSE400", "hdr", 64, 64);
    fields.lowGain = fields.highGain = index;
    const std::vector<sim::Plane> planes = sim::exposeSky(camera, fields, sky);
    double mean[2] = {};
    for (unsigned int p = 0; p < 2; ++p)
      for (const std::uint16_t pixel : planes[p])
        mean[p] += pixel / (64.0 * 64.0);
    const double ratio = camera.gains[index].electronsLow / camera.gains[index].electronsHigh;
    // A dark pixel has 20 high-gain counts; 4096 pixels of 900 electrons are known to half an electron.
    EXPECT_NEAR(mean[1], 20 + 900 / camera.gains[index].electronsHigh, 2 / camera.gains[index].electronsHigh);
    EXPECT_NEAR(mean[0], mean[1] / ratio, 0.05) << index;
  }
}

}  // namespace
