// Corrections: references, bias frames, calibration blocks.

#include <sys/stat.h>

#include <algorithm>

#include "face/FaceTesting.h"
#include "gain/CalibrationBlock.h"
#include "support/Contains.h"

using namespace face_testing;
using orvacam::Decoded;
using orvacam::Decoder;
using orvacam::Frame;
using orvacam::Plane;

namespace {

constexpr unsigned int width = 24;
constexpr unsigned int height = 10;

/// Terms of two planes behind a header.
Bytes referenceBytes(const char* model, unsigned int w, unsigned int h,
                     const std::vector<unsigned short>& low, const std::vector<unsigned short>& high) {
  sim::HeaderFields fields;
  fields.model = model;
  fields.width = w;
  fields.height = h;
  Bytes bytes = sim::writeHeader(fields, 3);
  for (const auto* plane : {&low, &high})
    for (unsigned int i = 0; i < w * h; ++i) {
      const unsigned short term = (*plane)[i % plane->size()];
      bytes.push_back(static_cast<unsigned char>(term & 255));
      bytes.push_back(static_cast<unsigned char>(term >> 8));
    }
  return bytes;
}

std::vector<std::uint16_t> machineryMerge(const std::filesystem::path& frame,
                                          const std::filesystem::path& dsnu,
                                          const std::filesystem::path& prnu) {
  return Machinery().mergedOf(frame, dsnu.wstring(), prnu.wstring());
}

const std::vector<unsigned short> dsnuLow = {8, 0xFFF8, 16, 3, 0xFFD0};
const std::vector<unsigned short> dsnuHigh = {0xFFFF, 5, 24};
const std::vector<unsigned short> prnuLow = {10240, 9000, 11000, 8191};
const std::vector<unsigned short> prnuHigh = {1024, 1000, 1040};

}  // namespace

class FaceReferencesOf : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Pairs, FaceReferencesOf,
                         testing::Values("GSense400Hdr", "GSense2020Hdr", "GSense4040Hdr", "GSense6060Hdr"));

TEST_P(FaceReferencesOf, MergeAsTheDocumentedClassesDo) {
  const Mode& mode = modeNamed(GetParam());
  const TestFolder folder;
  const auto frame = folder.put("a.raw", simulate(fieldsOf(mode)).bytes);
  const auto dsnu = folder.put("d.ref", referenceBytes(mode.model, width, height, dsnuLow, dsnuHigh));
  const auto prnu = folder.put("p.ref", referenceBytes(mode.model, width, height, prnuLow, prnuHigh));
  Decoder decoder;
  decoder.dsnu(dsnu);
  EXPECT_EQ(pixelsOf(decoder.decode(Frame::read(frame)).merged), machineryMerge(frame, dsnu, ""));
  decoder.prnu(prnu);
  EXPECT_EQ(pixelsOf(decoder.decode(Frame::read(frame)).merged), machineryMerge(frame, dsnu, prnu));
  decoder.dsnu("");
  EXPECT_EQ(pixelsOf(decoder.decode(Frame::read(frame)).merged), machineryMerge(frame, "", prnu));
  decoder.prnu("");
  EXPECT_EQ(pixelsOf(decoder.decode(Frame::read(frame)).merged), machineryMerge(frame, "", ""));
}

TEST_P(FaceReferencesOf, ApplyFromTheStartRowOn) {
  const Mode& mode = modeNamed(GetParam());
  const TestFolder folder;
  sim::HeaderFields fields = fieldsOf(mode);
  fields.startRow = 5;
  const auto frame = folder.put("a.raw", simulate(fields).bytes);
  const auto dsnu = folder.put("d.ref", referenceBytes(mode.model, width, height + 5, dsnuLow, dsnuHigh));
  Decoder decoder;
  decoder.dsnu(dsnu);
  EXPECT_EQ(pixelsOf(decoder.decode(Frame::read(frame)).merged), machineryMerge(frame, dsnu, ""));
}

TEST_P(FaceReferencesOf, FollowTheGainsOfFrames) {
  const Mode& mode = modeNamed(GetParam());
  const TestFolder folder;
  const auto dsnu = folder.put("d.ref", referenceBytes(mode.model, width, height, dsnuLow, dsnuHigh));
  Decoder decoder;
  decoder.dsnu(dsnu);
  for (const unsigned int gain : {1, 2, 1}) {
    sim::HeaderFields fields = fieldsOf(mode);
    fields.lowGain = gain;
    const auto frame = folder.put("a.raw", simulate(fields).bytes);
    EXPECT_EQ(pixelsOf(decoder.decode(Frame::read(frame)).merged), machineryMerge(frame, dsnu, ""));
  }
}

TEST(FaceReferences, AreOpenedForReadingOnly) {
  const TestFolder folder;
  const auto dsnu = folder.put("d.ref", referenceBytes("VESTRA VS400", width, height, dsnuLow, dsnuHigh));
  chmod(dsnu.c_str(), 0444);
  struct stat before {};
  struct stat after {};
  stat(dsnu.c_str(), &before);
  Decoder decoder;
  decoder.dsnu(dsnu);
  stat(dsnu.c_str(), &after);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  std::filesystem::remove(dsnu);  // read by now
  EXPECT_NO_THROW(decoder.decode(frameOf(fieldsOf("GSense400Hdr"))));
}

TEST(FaceReferences, ThatDoNotCoverTheFrameAreAMismatchWithBothSizes) {
  const TestFolder folder;
  Decoder decoder;
  decoder.dsnu(folder.put("d.ref", referenceBytes("VESTRA VS400", width, height, dsnuLow, dsnuHigh)));
  const auto mismatchOf = [&](const sim::HeaderFields& fields) {
    const auto error = errorOf([&] { decoder.decode(frameOf(fields)); });
    EXPECT_EQ(error.reason(), Reason::mismatch);
    return std::string(error.what());
  };
  EXPECT_TRUE(contains(mismatchOf(fieldsOf(modeNamed("GSense400Hdr"), 22, height)), {"24 x 10", "22 x 10"}));
  EXPECT_TRUE(contains(mismatchOf(fieldsOf(modeNamed("GSense400Hdr"), width, 11)), "24 x 11"));
  sim::HeaderFields lower = fieldsOf("GSense400Hdr");
  lower.startRow = 1;
  EXPECT_TRUE(contains(mismatchOf(lower), "from row 1 on"));
  EXPECT_TRUE(contains(mismatchOf(fieldsOf("GSense4040Hdr")), {"GSENSE400", "GSENSE4040"}));
  // Fewer rows are covered.
  EXPECT_NO_THROW(decoder.decode(frameOf(fieldsOf(modeNamed("GSense400Hdr"), width, 4))));
}

TEST(FaceReferences, OnFramesWithoutAnythingToMergeAreAMismatch) {
  const TestFolder folder;
  Decoder decoder;
  decoder.prnu(folder.put("p.ref", referenceBytes("VESTRA IMX183", width, height, prnuLow, prnuHigh)));
  for (const char* mode : {"Imx183", "GSense400Single", "GSense6060Twelve"})
    EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(fieldsOf(mode))); }), Reason::mismatch) << mode;
}

TEST(FaceReferences, PrnuFramesStandInForARatioThatTheMergeCannotHold) {
  const TestFolder folder;
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.lowGain = 0;
  fields.highGain = 7;
  Decoder decoder;
  decoder.prnu(folder.put("p.ref", referenceBytes("VESTRA VS400", width, height, prnuLow, prnuHigh)));
  EXPECT_FALSE(decoder.decode(frameOf(fields)).merged.empty());
  EXPECT_EQ(decoder.merge_info(frameOf(fields).header()).gain_ratio, 0);
  decoder.prnu("");
  EXPECT_TRUE(decoder.decode(frameOf(fields)).merged.empty());
  decoder.dsnu(folder.put("d.ref", referenceBytes("VESTRA VS400", width, height, dsnuLow, dsnuHigh)));
  EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(fields)); }), Reason::mismatch);
}

TEST(FaceReferences, ThatAreRefusedLeaveTheEarlierOneInPlace) {
  const TestFolder folder;
  const Bytes frame = simulate(fieldsOf("GSense400Hdr")).bytes;
  const Bytes good = referenceBytes("VESTRA VS400", width, height, dsnuLow, dsnuHigh);
  Decoder decoder;
  decoder.dsnu(folder.put("d.ref", good));
  const auto before = pixelsOf(decoder.decode(viewed(frame)).merged);

  EXPECT_EQ(reasonOf([&] { decoder.dsnu(folder.path() / "missing"); }), Reason::io);
  EXPECT_EQ(reasonOf([&] { decoder.dsnu(folder.put("text", Bytes(5000, 'x'))); }), Reason::not_a_frame);
  Bytes cut = good;
  cut.pop_back();
  const auto truncated = errorOf([&] { decoder.dsnu(folder.put("cut", cut)); });
  EXPECT_EQ(truncated.reason(), Reason::truncated);
  EXPECT_EQ(truncated.needed(), good.size());
  EXPECT_EQ(truncated.available(), good.size() - 1);
  EXPECT_EQ(truncated.path(), (folder.path() / "cut").string());
  Bytes inverted = good;
  inverted[122] = 9;
  EXPECT_EQ(reasonOf([&] { decoder.dsnu(folder.put("inverted", inverted)); }), Reason::bad_geometry);
  Bytes brief = good;
  brief[4] = 0, brief[5] = 200;  // states a header of 200 bytes, and the version needs 384
  EXPECT_EQ(reasonOf([&] { decoder.dsnu(folder.put("brief", brief)); }), Reason::bad_geometry);
  const auto other =
      folder.put("other", referenceBytes("VESTRA VS400", width, height + 1, prnuLow, prnuHigh));
  const auto mismatch = errorOf([&] { decoder.prnu(other); });
  EXPECT_EQ(mismatch.reason(), Reason::mismatch);
  EXPECT_TRUE(contains(mismatch.what(), {"24 x 10", "24 x 11"}));
  const Bytes wider = referenceBytes("VESTRA VS400", width + 2, height, prnuLow, prnuHigh);
  EXPECT_EQ(reasonOf([&] { decoder.prnu(folder.put("wider", wider)); }), Reason::mismatch);
  EXPECT_EQ(
      reasonOf([&] {
        decoder.prnu(folder.put("sensor", referenceBytes("VESTRA VS4040", width, height, prnuLow, prnuHigh)));
      }),
      Reason::mismatch);
  EXPECT_EQ(pixelsOf(decoder.decode(viewed(frame)).merged), before);
}

// ---- Bias

namespace {

Plane biasPlane(unsigned int w, unsigned int h, unsigned int first) {
  std::vector<std::uint16_t> pixels(std::size_t{w} * h);
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<std::uint16_t>(first + i % 7);
  return Plane::copy({w, h}, pixels.data());
}

std::vector<std::uint16_t> subtracted(const std::vector<std::uint16_t>& plane, const Plane& bias,
                                      unsigned int row) {
  std::vector<std::uint16_t> result = plane;
  for (std::size_t i = 0; i < plane.size(); ++i) {
    const std::uint16_t b = bias.data()[row * width + i];
    result[i] = static_cast<std::uint16_t>(plane[i] > b ? plane[i] - b : 0);
  }
  return result;
}

}  // namespace

ORVACAM_OF_EVERY_MODE(FaceBiasOf);

TEST_P(FaceBiasOf, IsSubtractedFromEveryPlaneAndStopsAtZero) {
  sim::HeaderFields fields = fieldsOf(mode);
  const SimulatedFrame frame = simulate(fields);
  const Plane low = biasPlane(width, height, 400);
  const Plane high = biasPlane(width, height, 900);
  Decoder decoder;
  decoder.bias(low, high);
  const Decoded decoded = decoder.decode(viewed(frame.bytes));
  if (planes.size() == 1) {
    EXPECT_EQ(pixelsOf(decoded.image), subtracted(frame.planes[0], low, 0));
    return;
  }
  EXPECT_EQ(pixelsOf(decoded.low), subtracted(frame.planes[0], low, 0));
  EXPECT_EQ(pixelsOf(decoded.high), subtracted(frame.planes[1], high, 0));
  if (planes.size() == 3) {
    // As if the camera had sent the planes without their bias.
    const Bytes clean = sim::encodeFrame(
        fields, 3, {subtracted(frame.planes[0], low, 0), subtracted(frame.planes[1], high, 0)});
    EXPECT_EQ(pixelsOf(decoded.merged), pixelsOf(Decoder().decode(viewed(clean)).merged));
  }
  decoder.bias(Plane(), Plane());
  EXPECT_EQ(pixelsOf(decoder.decode(viewed(frame.bytes)).low), frame.planes[0]);
}

TEST_P(FaceBiasOf, AppliesFromTheStartRowOn) {
  sim::HeaderFields fields = fieldsOf(mode);
  fields.startRow = 3;
  const SimulatedFrame frame = simulate(fields);
  const Plane low = biasPlane(width, height + 3, 100);
  const Plane high = biasPlane(width, height + 3, 200);
  Decoder decoder;
  decoder.bias(low, high);
  const Decoded decoded = decoder.decode(viewed(frame.bytes));
  const Plane& first = planes.size() == 1 ? decoded.image : decoded.low;
  EXPECT_EQ(pixelsOf(first), subtracted(frame.planes[0], low, 3));
}

TEST_P(FaceBiasOf, MakesStatisticsThoseOfTheCorrectedPlane) {
  const SimulatedFrame frame = simulate(fieldsOf(mode));
  Decoder decoder;
  decoder.bias(biasPlane(width, height, 300), biasPlane(width, height, 300));
  orvacam::Planes wanted;
  wanted.statistics = true;
  const Decoded decoded = decoder.decode(viewed(frame.bytes), wanted);
  const Plane& first = planes.size() == 1 ? decoded.image : decoded.low;
  const auto pixels = pixelsOf(first);
  EXPECT_EQ(first.statistics()->minimum.value, *std::min_element(pixels.begin(), pixels.end()));
  EXPECT_EQ(first.statistics()->maximum.value, *std::max_element(pixels.begin(), pixels.end()));
}

TEST(FaceBias, ThatDoesNotCoverTheFrameIsAMismatch) {
  Decoder decoder;
  decoder.bias(biasPlane(width, height, 1), biasPlane(width, height, 1));
  EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(fieldsOf(modeNamed("GSense400Hdr"), 22, height))); }),
            Reason::mismatch);
  EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(fieldsOf(modeNamed("Imx183"), width, 11))); }),
            Reason::mismatch);
  sim::HeaderFields lower = fieldsOf("Imx183");
  lower.startRow = 1;
  EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(lower)); }), Reason::mismatch);
  EXPECT_NO_THROW(decoder.decode(frameOf(fieldsOf(modeNamed("Imx183"), width, 9))));
}

TEST(FaceBias, OfAPairNeedsBothPlanes) {
  Decoder decoder;
  decoder.bias(biasPlane(width, height, 1), Plane());
  const auto error = errorOf([&] { decoder.decode(frameOf(fieldsOf("GSense400Hdr"))); });
  EXPECT_EQ(error.reason(), Reason::mismatch);
  EXPECT_NO_THROW(decoder.decode(frameOf(fieldsOf("Imx183"))));
  decoder.bias(Plane(), biasPlane(width, height, 1));
  EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(fieldsOf("GSense400Hdr"))); }), Reason::mismatch);
  EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(fieldsOf("Imx183"))); }), Reason::mismatch);
}

TEST(FaceBias, FramesThatAreUnlikeAreRefusedAndTheEarlierOnesHold) {
  const SimulatedFrame frame = simulate(fieldsOf("GSense400Hdr"));
  const Plane bias = biasPlane(width, height, 50);
  Decoder decoder;
  decoder.bias(bias, bias);
  EXPECT_EQ(reasonOf([&] { decoder.bias(bias, biasPlane(width, height + 1, 1)); }), Reason::mismatch);
  EXPECT_EQ(reasonOf([&] { decoder.bias(bias, biasPlane(width + 1, height, 1)); }), Reason::mismatch);
  const Plane high = Decoder().decode(viewed(frame.bytes)).high;
  sim::HeaderFields lower = fieldsOf("GSense400Hdr");
  lower.startRow = 1;
  const Plane elsewhere = Decoder().decode(frameOf(lower)).low;
  EXPECT_EQ(reasonOf([&] { decoder.bias(elsewhere, high); }), Reason::mismatch);
  const Plane other = Decoder().decode(frameOf(fieldsOf("GSense4040Hdr"))).low;
  EXPECT_EQ(reasonOf([&] { decoder.bias(other, high); }), Reason::mismatch);
  EXPECT_EQ(pixelsOf(decoder.decode(viewed(frame.bytes)).low), subtracted(frame.planes[0], bias, 0));
}

TEST(FaceBias, OfAnotherSensorIsAMismatch) {
  const Plane bias = Decoder().decode(frameOf(fieldsOf("GSense400Single"))).image;
  Decoder decoder;
  decoder.bias(bias, Plane());
  EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(fieldsOf("Imx183"))); }), Reason::mismatch);
  EXPECT_NO_THROW(decoder.decode(frameOf(fieldsOf("GSense400Single"))));
}

TEST(FaceBias, TakenWithTheFramesOwnRegionCoversIt) {
  sim::HeaderFields fields = fieldsOf("Imx183");
  fields.startRow = 100;
  const Plane bias = Decoder().decode(frameOf(fields)).image;
  Decoder decoder;
  decoder.bias(bias, Plane());
  const auto pixels = pixelsOf(decoder.decode(frameOf(fields)).image);
  EXPECT_TRUE(std::all_of(pixels.begin(), pixels.end(), [](std::uint16_t pixel) { return pixel == 0; }));
  fields.startRow = 99;
  EXPECT_EQ(reasonOf([&] { decoder.decode(frameOf(fields)); }), Reason::mismatch);
}

TEST(FaceBias, IsCopied) {
  const SimulatedFrame frame = simulate(fieldsOf("Imx183"));
  Decoder decoder;
  {
    const Plane bias = biasPlane(width, height, 77);
    decoder.bias(bias, Plane());
  }
  EXPECT_EQ(pixelsOf(decoder.decode(viewed(frame.bytes)).image),
            subtracted(frame.planes[0], biasPlane(width, height, 77), 0));
}

// ---- Calibration

class FaceCalibration : public testing::Test {
 protected:
  FaceCalibration() {
    fields.lowGain = fields.highGain = 2;
    bytes = simulate(fields).bytes;
    stored.Initialize(block.data(), static_cast<unsigned int>(block.size()));
  }

  sim::HeaderFields fields = fieldsOf("GSense4040Hdr");
  Bytes bytes;
  const Bytes block = CalibrationBlock::ofGain(2, 2.0, 31.0);
  CCameraNVMergeSettings stored;
  Decoder decoder;
};

TEST_F(FaceCalibration, GivesTheRatioOfTheCamerasOwnValues) {
  const auto plain = pixelsOf(decoder.decode(viewed(bytes)).merged);
  decoder.calibration(block.data(), block.size());
  EXPECT_EQ(decoder.merge_info(viewed(bytes).header()).gain_ratio, 15.5);

  const auto expected = Machinery().mergedOf(bytes, &stored);
  EXPECT_EQ(pixelsOf(decoder.decode(viewed(bytes)).merged), expected);
  EXPECT_NE(expected, plain);

  decoder.calibration(nullptr, 0);
  EXPECT_EQ(pixelsOf(decoder.decode(viewed(bytes)).merged), plain);
}

TEST_F(FaceCalibration, OfOneDecoderDoesNotShowInAnother) {
  const Bytes two = CalibrationBlock::ofGain(2, 1.0, 40.0);
  Decoder plain, first, second;
  first.calibration(block.data(), block.size());
  second.calibration(two.data(), two.size());
  const double builtIn = Decoder().merge_info(viewed(bytes).header()).gain_ratio;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(first.merge_info(viewed(bytes).header()).gain_ratio, 15.5);
    EXPECT_EQ(second.merge_info(viewed(bytes).header()).gain_ratio, 40.0);
    EXPECT_EQ(plain.merge_info(viewed(bytes).header()).gain_ratio, builtIn);
    EXPECT_EQ(Decoder().merge_info(viewed(bytes).header()).gain_ratio, builtIn);
  }
}

TEST_F(FaceCalibration, OfADecoderDoesNotShowInTheDocumentedClasses) {
  CMergeSettings settings;
  settings.Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
  const double before = settings.GetGainRatio(2, 2);
  decoder.calibration(block.data(), block.size());
  decoder.decode(frameOf(fields));
  orvacam::gains("GSENSE4040", false, block.data(), block.size());
  EXPECT_EQ(settings.GetGainRatio(2, 2), before);
  // Nor the other way round.
  settings.Initialize({ORVA_DEVICE_GSENSE4040, false}, &stored);
  EXPECT_EQ(Decoder().merge_info(frameOf(fields).header()).gain_ratio, std::floor(before * 1024) / 1024);
  EXPECT_EQ(settings.GetGainRatio(2, 2), 15.5);
}

TEST_F(FaceCalibration, BlocksThatAreNoneAreRefusedAndTheEarlierOneHolds) {
  const orvacam::Header header = frameOf(fields).header();
  decoder.calibration(block.data(), block.size());
  const auto refused = [&](const Bytes& other) {
    const auto error = errorOf([&] { decoder.calibration(other.data(), other.size()); });
    EXPECT_EQ(error.reason(), Reason::bad_argument);
    EXPECT_TRUE(contains(error.what(), "is no camera's calibration block"));
  };
  refused({1});
  refused(Bytes(100, 0));
  Bytes bad = block;
  bad[7] = 5;
  refused(bad);
  bad = block;
  bad[5] = 8;
  refused(bad);
  bad = block;
  bad.pop_back();
  refused(bad);
  bad = block;
  bad[25] = 200;  // more values than there are
  refused(bad);
  for (const std::size_t ratio : {16u, 20u}) {  // a gain ratio of millions
    bad = block;
    std::fill_n(bad.begin() + static_cast<std::ptrdiff_t>(ratio), 4, 255);
    refused(bad);
  }
  refused(sim::writeHeader(fields, 3));
  EXPECT_EQ(decoder.merge_info(header).gain_ratio, 15.5);
}

TEST(FaceGains, AreTheSensorsTables) {
  const auto gains = orvacam::gains("GSENSE400");
  ASSERT_EQ(gains.size(), 8u);
  EXPECT_EQ(gains[1].index, 1u);
  EXPECT_DOUBLE_EQ(gains[1].low_gain, 1.85);
  EXPECT_DOUBLE_EQ(gains[1].low_electrons, 17.3611);
  EXPECT_DOUBLE_EQ(gains[1].high_electrons, 2.5661);
  EXPECT_DOUBLE_EQ(gains[1].ratio, 17.3611 / 2.5661);
  EXPECT_EQ(orvacam::gains("GSENSE2020").size(), 64u);
  EXPECT_EQ(orvacam::gains("GSENSE2020", true).size(), 26u);
  EXPECT_EQ(orvacam::gains("LUMORA420").size(), 481u);
  EXPECT_EQ(orvacam::gains("GENERIC").size(), 1u);
  EXPECT_EQ(reasonOf([] { orvacam::gains("gsense400"); }), Reason::bad_argument);
  const Bytes block = CalibrationBlock::ofGain(2, 2.0, 31.0);
  for (const orvacam::Gain& gain : orvacam::gains("GSENSE4040", false, block.data(), block.size()))
    if (gain.index == 2) EXPECT_DOUBLE_EQ(gain.ratio, 15.5);
}
