// The frames that the simulator makes: what their headers say, what a decoder finds in them, and that they
// behave like a camera's.

#include <gmock/gmock.h>
#include <orvacam.h>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <map>

#include "TestFolder.h"
#include "simulator/Scene.h"

namespace {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;
using sim::Plane;

const sim::Camera& camera(const std::string& name) {
  const sim::Camera* const found = sim::findCamera(name);
  if (found == nullptr) throw std::invalid_argument(name);
  return *found;
}

sim::HeaderFields fieldsOf(const sim::Camera& of, const std::string& mode, unsigned int width,
                           unsigned int height) {
  sim::HeaderFields fields = sim::headerFor(of, mode).value();
  fields.width = width;
  fields.height = height;
  return fields;
}

/// A sky in which every pixel of a channel reads what its electrons say: no pattern, no read noise.
sim::Sky plainSky() {
  sim::Sky sky;
  sky.readNoise = sky.columnPattern = sky.rowPattern = sky.gainPattern = 0;
  return sky;
}

/// The planes that the library delivers, given back at the end.
class Delivery {
 public:
  Delivery() { images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true; }
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;
  ~Delivery() { algo.FreeFramePointers(&images); }

  int decode(Bytes frame, bool bothGains) {
    initialize(frame);
    images.bHighImageRequest = images.bMergedImageRequest = bothGains;
    return algo.MergeImage(frame.data(), frame.size(), &images, nullptr);
  }
  int decodeFile(const Bytes& frame, const std::wstring& path, const wchar_t* dsnu, const wchar_t* prnu) {
    initialize(frame);
    return algo.MergeFile(path.c_str(), &images, nullptr, dsnu, prnu);
  }
  Plane low() const { return {images.pLowImage, images.pLowImage + images.ulLowImagePixels}; }
  Plane high() const { return {images.pHighImage, images.pHighImage + images.ulHighImagePixels}; }
  Plane merged() const { return {images.pMergedImage, images.pMergedImage + images.ulMergedImagePixels}; }

 private:
  void initialize(Bytes frame) {
    CFrameMetaData header;
    ASSERT_GE(header.Parse(frame.data(), static_cast<unsigned int>(frame.size())), 0);
    unsigned int device = 0;
    header.GetDeviceType(device);
    algo.Initialize({device, false}, nullptr);
  }

  CAlgo algo;
  unpacked_images_t images{};
};

struct MeanAndDeviation {
  double mean, deviation;
};
MeanAndDeviation momentsOf(const Plane& plane) {
  double sum = 0, squares = 0;
  for (const std::uint16_t v : plane)
    sum += v;
  const double mean = sum / static_cast<double>(plane.size());
  for (const std::uint16_t v : plane)
    squares += (v - mean) * (v - mean);
  return {mean, std::sqrt(squares / static_cast<double>(plane.size()))};
}

// ---- Headers

/// A number that a header of the versions from `first` on carries.
struct Said {
  ORVA_META_KEYS key;
  double value;
  unsigned int first = 1;
  double tolerance = 0;
};

/// Fields that all differ from their defaults and from each other.
sim::HeaderFields distinctFields() {
  sim::HeaderFields f;
  f.model = "VESTRA VS4040 BSI";
  f.serial = "SN 0815-4711";
  f.firmware = 0x0A0B0C0D;
  f.temperatureSetPoint = -251;
  f.coolerDutyCycle = 77;
  f.sensorBits = 14;
  f.dataBits = 12;
  f.dataZeroPoint = 3;
  f.exposure = 123456789;
  f.coolerTemperature = -187;
  f.chipTemperature = -143;
  f.globalGain = 5;
  f.lowGain = 2;
  f.highGain = 6;
  f.startColumn = 101;
  f.startRow = 202;
  f.width = 640;
  f.height = 480;
  f.preRefPixels = 12;
  f.postRefPixels = 34;
  f.preRefRows = 56;
  f.postRefRows = 78;
  f.horizontalBinning = 2;
  f.verticalBinning = 3;
  f.deadPixelCorrection = f.hdr = f.lowNoise = f.lowDarkCurrent = true;
  f.horizontalInvert = f.verticalInvert = f.nonRowAligned = true;
  f.blackLevel = 100001;
  f.blackLevelSun = 1002;
  f.blackLevelHigh = 100003;
  f.blackLevelSunHigh = 1004;
  f.shutterOpenDelay = -301;
  f.shutterCloseDelay = 251;
  f.illuminationStartDelay = -17;
  f.illuminationStopDelay = 18;
  f.trackingStartRow = 21;
  f.trackingStartColumn = 22;
  f.trackingStopRow = 23;
  f.trackingStopColumn = 24;
  f.trackingFramesPerImage = 25;
  f.frameNumber = 4242;
  f.startingExposureRow = 26;
  f.dataChannels = 4;
  f.backSideIlluminated = f.globalReset = f.gpsError = true;
  f.gpsLocked = false;
  f.quadrants = 0x24;
  f.baseTemperature = -31;
  f.fpgaTemperature = 432;
  f.shiftedAveraging = f.highFrame = true;
  f.testLowGain = 111;
  f.testHighGain = 2222;
  f.horizontalPixelSize = 90;
  f.verticalPixelSize = 91;
  f.mergeGainRatio = 22811;
  f.mergeLineOffset = -44;
  f.highGainAduPerElectron = 1220;
  f.correlatedMultipleSampling = f.extraFlagBit7 = true;
  f.imageOffset = 388;
  f.metaInfo = 9;
  f.pixelFormat = 8;
  f.reserved = 7;
  f.otherType = 6;
  f.otherBlock = {1, 2, 3, 4};
  return f;
}

const Said said[] = {
    {ORVA_META_KEY_MAGIC_NUMBER, 0x4D657461},
    {ORVA_META_KEY_BACK_SIDE_ILLUMINATED, 1, 2},
    {ORVA_META_KEY_BASE_TEMPERATURE, -31, 2},
    {ORVA_META_KEY_HORIZONTAL_BINNING, 2, 3},
    {ORVA_META_KEY_VERTICAL_BINNING, 3},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST, 100001},
    {ORVA_META_KEY_BLACK_LEVEL_SUN, 1002},
    {ORVA_META_KEY_BLACK_LEVEL_ADJUST_HIGH, 100003, 2},
    {ORVA_META_KEY_BLACK_LEVEL_SUN_HIGH, 1004, 2},
    {ORVA_META_KEY_CAPTURE_DATE, 2024 * 65536 + 5 * 256 + 17},
    {ORVA_META_KEY_CAPTURE_TIME, 21 * 3600 + 4 * 60 + 33},
    {ORVA_META_KEY_CAPTURE_TIME_NSECS, 123456700, 1, 1},
    {ORVA_META_KEY_SENSOR_COOLER_TEMP, -187},
    {ORVA_META_KEY_COOLER_DUTY_CYCLE, 77, 2},
    {ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE, 1, 3},
    {ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, 12},
    {ORVA_META_KEY_DATA_ZERO_POINT, 3},
    {ORVA_META_KEY_DEAD_PIXEL_CORRECTION, 1},
    {ORVA_META_KEY_EXPOSURE_TIME, 123456789},
    {ORVA_META_KEY_FPGA_TEMPERATURE, 432, 2},
    {ORVA_META_KEY_FRAME_NUMBER, 4242},
    {ORVA_META_KEY_LDR_GAIN, 2},
    {ORVA_META_KEY_GLOBAL_GAIN, 5},
    {ORVA_META_KEY_HDR_GAIN, 6},
    {ORVA_META_KEY_GPS_LATITUDE_DEGREES, 48, 2},
    {ORVA_META_KEY_GPS_LONGITUDE_DEGREES, 16, 2},
    {ORVA_META_KEY_GLOBAL_RESET, 1, 3},
    {ORVA_META_KEY_GPS_ERROR, 1, 3},
    {ORVA_META_KEY_GPS_LOCKED, 0, 2},
    {ORVA_META_KEY_HDR_MODE, 1},
    {ORVA_META_KEY_HIGH_GAIN_ADU_E, 1220, 3},
    {ORVA_META_KEY_HORIZONTAL_PIXELS, 640},
    {ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE, 90, 2},
    {ORVA_META_KEY_HORZ_SCAN_DIR_INVERT, 1},
    {ORVA_META_KEY_ILLUMIN_START_DELAY, -17},
    {ORVA_META_KEY_ILLUMIN_STOP_DELAY, 18},
    {ORVA_META_KEY_IMAGE_START_COLUMN, 101},
    {ORVA_META_KEY_IMAGE_START_ROW, 202},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, 101 + 640 - 1},
    {ORVA_META_KEY_IMAGE_STOP_ROW, 202 + 480 - 1},
    {ORVA_META_KEY_STARTING_EXPOSURE_ROW, 26},
    {ORVA_META_KEY_TEST_IS_HIGH_FRAME, 1, 2},
    {ORVA_META_KEY_EXTRA_FLAG_BIT7, 1, 3},
    {ORVA_META_KEY_TEST_IS_MERGED_FRAME, 0, 2},
    {ORVA_META_KEY_TEST_IS_STACKED_FRAME, 0, 2},
    {ORVA_META_KEY_LOW_DARK_CURRENT, 1},
    {ORVA_META_KEY_LOW_NOISE, 1},
    {ORVA_META_KEY_MERGE_GAIN_RATIO, 22811, 3},
    {ORVA_META_KEY_MERGE_LINE_OFFSET, -44, 3},
    {ORVA_META_KEY_NON_ROW_ALLIGNED_IMAGE, 1},
    {ORVA_META_KEY_NUMBER_OF_DATA_CHANNELS, 4},
    {ORVA_META_KEY_PIXEL_ORDERED_IMAGE, 1},
    {ORVA_META_KEY_POST_REFERENCE_ROWS, 78},
    {ORVA_META_KEY_PRE_REFERENCE_ROWS, 56},
    {ORVA_META_KEY_POST_ROW_REF_PIXELS, 34, 3},
    {ORVA_META_KEY_PRE_ROW_REF_PIXELS, 12},
    {ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH, 14},
    {ORVA_META_KEY_SENSOR_READ_QUADRANTS, 0x24, 3},
    {ORVA_META_KEY_SENSOR_CHIP_TEMP, -143},
    {ORVA_META_KEY_SHUTTER_CLOSE_DELAY, 251},
    {ORVA_META_KEY_SHUTTER_OPEN_DELAY, -301},
    {ORVA_META_KEY_TEMPERATURE_SET_POINT, -251, 2},
    {ORVA_META_KEY_TEST_HIGH_GAIN_ABSOLUTE, 2222, 2},
    {ORVA_META_KEY_TEST_LOW_GAIN_ABSOLUTE, 111, 2},
    {ORVA_META_KEY_TRACKING_FRAMES_PER_IMAGE_FRAME, 25},
    {ORVA_META_KEY_TRACKING_START_COLUMN, 22},
    {ORVA_META_KEY_TRACKING_START_ROW, 21},
    {ORVA_META_KEY_TRACKING_STOP_COLUMN, 24},
    {ORVA_META_KEY_TRACKING_STOP_ROW, 23},
    {ORVA_META_KEY_TEST_USE_SHIFTED_AVERAGING, 1, 2},
    {ORVA_META_KEY_FIRMWARE_VERSION, 0x0A0B0C0D},
    {ORVA_META_KEY_VERTICAL_PIXELS, 480},
    {ORVA_META_KEY_VERTICAL_PIXEL_SIZE, 91, 2},
    {ORVA_META_KEY_VERT_SCAN_DIR_INVERT, 1},
    {ORVA_META_KEY_IMAGE_OFFSET, 388, 4},
    {ORVA_META_KEY_META_INFO, 9, 4},
    {ORVA_META_KEY_PIXEL_FORMAT, 8, 4},
    {ORVA_META_KEY_RESERVED, 7, 4},
    {ORVA_META_KEY_OTHER_TYPE, 6, 4},
    {ORVA_META_KEY_OTHER_TYPE_LENGTH, 4, 4},
};

class SimulatedHeader : public ::testing::TestWithParam<unsigned int> {};

TEST_P(SimulatedHeader, SaysToTheParserWhatItWasGiven) {
  const unsigned int version = GetParam();
  Bytes bytes = sim::writeHeader(distinctFields(), version);
  CFrameMetaData header;
  ASSERT_GE(header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size())), 0);
  meta_data_value_t value{};
  for (const Said& field : said) {
    if (field.first > version) continue;
    ASSERT_GE(header.GetValue(field.key, value), 0);
    EXPECT_EQ(value.length, -1) << field.key;
    EXPECT_NEAR(value.value, field.value, field.tolerance) << "key " << field.key;
  }
  header.GetValue(ORVA_META_KEY_METADATA_VERSION, value);
  EXPECT_EQ(value.value, version);
  header.GetValue(ORVA_META_KEY_CAMERA_MODEL, value);
  EXPECT_STREQ(value.text, "VESTRA VS4040 BSI");
  header.GetValue(ORVA_META_KEY_CAMERA_SERIAL_NUMBER, value);
  EXPECT_STREQ(value.text, "SN 0815-4711");
  if (version == 1) return;
  header.GetValue(ORVA_META_KEY_APP_INFO_STRING, value);
  EXPECT_STREQ(value.text, "app 1.0");
  header.GetValue(ORVA_META_KEY_LIB_INFO_STRING, value);
  EXPECT_STREQ(value.text, "lib 1.0");
  EXPECT_DOUBLE_EQ(header.GetGPSLatitude(), 48.0);
  EXPECT_DOUBLE_EQ(header.GetGPSLongitude(), -16.0);
}

TEST(SimulatedOldHeader, HasTheLowDarkCurrentFlagInItsBinningAndNoReferencePixelsOfItsOwn) {
  for (const unsigned int version : {1u, 2u}) {
    Bytes bytes = sim::writeHeader(distinctFields(), version);
    CFrameMetaData header;
    ASSERT_GE(header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size())), 0);
    EXPECT_EQ(header.Value(ORVA_META_KEY_HORIZONTAL_BINNING).GetValueUint(), 2u + 8u);
    EXPECT_EQ(header.Value(ORVA_META_KEY_POST_ROW_REF_PIXELS).GetValueUint(),
              sim::asVersion(distinctFields(), version).postRefPixels);
  }
}

TEST_P(SimulatedHeader, HasTheLengthOfItsVersionAndSaysIt) {
  const std::size_t lengths[] = {0, 156, 246, 384, 384 + 4};
  Bytes bytes = sim::writeHeader(distinctFields(), GetParam());
  EXPECT_EQ(bytes.size(), lengths[GetParam()]);
  CFrameMetaData header;
  ASSERT_GE(header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size())), 0);
  EXPECT_EQ(header.GetBinarizeSize(), lengths[GetParam()]);
}

INSTANTIATE_TEST_SUITE_P(Version, SimulatedHeader, ::testing::Values(1u, 2u, 3u, 4u));

// ---- Cameras and modes

TEST(SimulatedCamera, IsFoundWhateverTheCaseOfItsName) {
  EXPECT_STREQ(camera("gsense4040").model, "VESTRA VS4040");
  EXPECT_STREQ(camera("Ccd230-42").model, "ARGENT 230-42");
  for (const sim::Camera& each : sim::cameras())
    EXPECT_EQ(sim::findCamera(each.name), &each);
}

TEST(SimulatedCamera, IsNullWhenUnknown) {
  for (const char* name : {"", "GSENSE", "GSENSE40400", " GSENSE400", "no such camera"})
    EXPECT_EQ(sim::findCamera(name), nullptr) << name;
}

TEST(SimulatedCamera, HasTheModesOfItsSensorOnly) {
  const std::vector<std::string> modes = {"single", "hdr", "16bit", "cms"};
  const std::map<std::string, std::string> expected = {
      {"GSENSE400", "single hdr "},        {"GSENSE2020", "single hdr 16bit cms "},
      {"GSENSE4040", "single hdr 16bit "}, {"GSENSE6060", "single hdr 16bit "},
      {"CCD230-42", "single 16bit "},      {"CCD230-84", "single 16bit "},
      {"CCD4320", "single 16bit "},        {"IMX183", "single 16bit "},
      {"GENERIC", "single 16bit "}};
  ASSERT_EQ(sim::cameras().size(), expected.size());
  for (const sim::Camera& each : sim::cameras()) {
    std::string has;
    for (const std::string& mode : modes)
      if (sim::headerFor(each, mode)) has += mode + " ";
    EXPECT_EQ(has, expected.at(each.name)) << each.name;
    for (const char* unknown : {"", "HDR", "single ", "raw"})
      EXPECT_FALSE(sim::headerFor(each, unknown)) << each.name << ", " << unknown;
  }
}

/// Every camera in every mode behind every header.
struct Combination {
  const sim::Camera* camera;
  std::string mode;
  unsigned int version;
};

std::vector<Combination> combinations() {
  std::vector<Combination> all;
  for (const sim::Camera& each : sim::cameras())
    for (const char* mode : {"single", "hdr", "16bit", "cms"})
      for (unsigned int version = 1; version <= 4; ++version)
        if (sim::headerFor(each, mode)) all.push_back({&each, mode, version});
  return all;
}

std::ostream& operator<<(std::ostream& out, const Combination& c) {
  return out << c.camera->name << ' ' << c.mode << ' ' << c.version;
}

std::string nameOf(const ::testing::TestParamInfo<Combination>& info) {
  std::string name = std::string(info.param.camera->name) + "_" + info.param.mode + "_version" +
                     std::to_string(info.param.version);
  name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
  return name;
}

class EverySimulatedFrame : public ::testing::TestWithParam<Combination> {};

TEST_P(EverySimulatedFrame, DecodesToThePlanesThatWereExposed) {
  const auto& [of, mode, version] = GetParam();
  const sim::HeaderFields fields = sim::asVersion(fieldsOf(*of, mode, 40, 22), version);
  const std::vector<Plane> planes = sim::exposeSky(*of, fields, sim::Sky());
  ASSERT_EQ(planes.size(), mode == "hdr" ? 2u : 1u);
  ASSERT_EQ(planes[0].size(), fields.frameWidth() * 22u);
  Delivery delivered;
  const int status = delivered.decode(sim::encodeFrame(fields, version, planes), mode == "hdr");
  if (of->ccd && version < 3) {  // such a header does not say which amplifiers read the sensor
    EXPECT_EQ(status, -1);
    return;
  }
  ASSERT_GE(status, 0);
  if (fields.correlatedMultipleSampling) {
    // The reader of these frames makes each pixel of three truth values at most.
    ASSERT_EQ(delivered.low().size(), planes[0].size());
    for (const std::uint16_t pixel : delivered.low())
      ASSERT_LE(std::bitset<16>(pixel).count(), 3u);
    return;
  }
  EXPECT_EQ(delivered.low(), planes[0]);
  if (mode == "hdr") EXPECT_EQ(delivered.high(), planes[1]);
  EXPECT_GT(momentsOf(planes[0]).deviation, 1) << "a sky without stars";
}

TEST_P(EverySimulatedFrame, IsAsLongAsItsPixelsAndTheirBits) {
  const auto& [of, mode, version] = GetParam();
  const sim::HeaderFields fields = sim::asVersion(fieldsOf(*of, mode, 40, 22), version);
  const bool cms = mode == "cms" && version > 2;
  const std::size_t bits = cms ? 13 : fields.dataBits;
  const std::size_t pixels = std::size_t{fields.frameWidth()} * 22 * (mode == "hdr" ? 2 : 1);
  EXPECT_EQ(sim::layoutOf(fields).bytes(), pixels * bits / 8);
  EXPECT_EQ(sim::encodeFrame(fields, version, sim::exposeSky(*of, fields, sim::Sky())).size(),
            sim::headerSize(version) + pixels * bits / 8);
}

INSTANTIATE_TEST_SUITE_P(All, EverySimulatedFrame, ::testing::ValuesIn(combinations()), nameOf);

TEST(SimulatedCcd, DecodesThroughEachAmplifier) {
  const sim::Camera& ccd = camera("CCD230-42");
  for (const unsigned int amplifiers : {0x20u, 0x10u, 0x08u, 0x04u, 0x3Cu}) {
    sim::HeaderFields fields = fieldsOf(ccd, "single", 30, 16);
    fields.quadrants = amplifiers;
    const std::vector<Plane> planes = sim::exposeSky(ccd, fields, sim::Sky());
    Delivery delivered;
    ASSERT_GE(delivered.decode(sim::encodeFrame(fields, 3, planes), false), 0);
    EXPECT_EQ(delivered.low(), planes[0]) << amplifiers;
  }
}

// ---- The sky

TEST(SimulatedSky, GivesTheSameBytesForTheSameOptions) {
  for (const sim::Camera& each : sim::cameras()) {
    const sim::HeaderFields fields = fieldsOf(each, "single", 32, 20);
    const sim::Sky sky;
    const Bytes first = sim::encodeFrame(fields, 3, sim::exposeSky(each, fields, sky));
    EXPECT_EQ(first, sim::encodeFrame(fields, 3, sim::exposeSky(each, fields, sky))) << each.name;
    EXPECT_EQ(sim::dsnuFile(each, fields, sky), sim::dsnuFile(each, fields, sky)) << each.name;
    EXPECT_EQ(sim::prnuFile(each, fields, sky), sim::prnuFile(each, fields, sky)) << each.name;
  }
}

TEST(SimulatedSky, GivesOtherBytesForAnotherSeed) {
  const sim::Camera& of = camera("GSENSE4040");
  const sim::HeaderFields fields = fieldsOf(of, "hdr", 32, 20);
  sim::Sky other;
  other.seed = 2;
  EXPECT_NE(sim::exposeSky(of, fields, sim::Sky()), sim::exposeSky(of, fields, other));
}

TEST(SimulatedSky, HasTheBackgroundInElectrons) {
  for (const sim::Camera& each : sim::cameras()) {
    sim::Sky sky = plainSky();
    sky.stars = 0;
    sky.background = 5000;
    const Plane plane = sim::exposeSky(each, fieldsOf(each, "single", 100, 100), sky)[0];
    // 20 counts of bias; the mean of 10000 pixels is known to 0.7 electrons, rounding cancels.
    EXPECT_NEAR(momentsOf(plane).mean, 20 + 5000 / each.electronsLow, 5 / each.electronsLow + 0.05)
        << each.name;
    const double photonNoise = std::sqrt(5000.0) / each.electronsLow;
    EXPECT_NEAR(momentsOf(plane).deviation, std::sqrt(photonNoise * photonNoise + 1 / 12.0),
                0.05 * photonNoise + 0.02)
        << each.name;
  }
}

TEST(SimulatedSky, HasStarsThatSaturateTheHighGainPlaneButFewThatSaturateTheLowGainPlane) {
  for (const char* name : {"GSENSE400", "GSENSE2020", "GSENSE4040", "GSENSE6060"}) {
    const sim::Camera& of = camera(name);
    const std::vector<Plane> planes = sim::exposeSky(of, fieldsOf(of, "hdr", 256, 256), sim::Sky());
    const auto saturated = [](const Plane& plane) { return std::count(plane.begin(), plane.end(), 4095); };
    EXPECT_GT(saturated(planes[1]), 100) << name;
    EXPECT_LT(saturated(planes[0]), saturated(planes[1]) / 4) << name;
    EXPECT_EQ(*std::max_element(planes[1].begin(), planes[1].end()), 4095) << name;
  }
}

/// The electrons behind a sky's pixels, read by a sensor of 16 bits that counts four at a time.
std::vector<double> electronsOf(const sim::HeaderFields& like, const sim::Sky& sky) {
  sim::Camera probe = camera("GENERIC");
  probe.electronsLow = 4;
  sim::HeaderFields fields = fieldsOf(probe, "single", like.width, like.height);
  std::vector<double> electrons;
  const Plane plane = sim::exposeSky(probe, fields, sky)[0];
  for (const std::uint16_t counts : plane)
    electrons.push_back((counts - 20.0) * 4.0);
  return electrons;
}

TEST(SimulatedSky, MergesWithoutASeam) {
  // High and low gain at indices 0, 0 of the sensors' data sheets.
  for (const char* name : {"GSENSE400", "GSENSE2020", "GSENSE4040", "GSENSE6060"}) {
    const sim::Camera& of = camera(name);
    const sim::HeaderFields fields = fieldsOf(of, "hdr", 200, 160);
    sim::Sky sky = plainSky();
    sky.stars = 400;
    sky.starRadius = 3;
    const std::vector<double> electrons = electronsOf(fields, sky);
    const std::vector<Plane> planes = sim::exposeSky(of, fields, sky);
    Delivery delivered;
    ASSERT_GE(delivered.decode(sim::encodeFrame(fields, 3, planes), true), 0);
    const Plane merged = delivered.merged();
    ASSERT_EQ(merged.size(), electrons.size());

    const double ratio = of.electronsLow / of.electronsHigh;
    const double probeStep = 2 / of.electronsHigh;
    unsigned int fromHigh = 0, fromLow = 0;
    double error = 0, steps = 0;
    for (std::size_t i = 0; i < merged.size(); ++i) {
      if (planes[0][i] == 4095 || merged[i] == 65535) continue;  // saturated in both channels
      const double expected = 20 + electrons[i] / of.electronsHigh;
      const bool high = planes[1][i] < 3700;
      (high ? fromHigh : fromLow) += 1;
      // Half a count of the channel that was taken; the low-gain one is multiplied in steps of 1/1024.
      const double rounding = high ? 0.5 : 0.5 * ratio + 0.5 + planes[0][i] / 1024.0;
      ASSERT_NEAR(merged[i], expected, rounding + probeStep + 0.01) << name << ", pixel " << i;
      if (high) continue;
      error += merged[i] - expected;
      steps += planes[0][i] / 1024.0;
    }
    ASSERT_GT(fromHigh, 1000u) << name;
    ASSERT_GT(fromLow, 500u) << name;
    // No step where the channels meet: the errors cancel, but for the steps of the multiplier.
    EXPECT_NEAR(error / fromLow, 0, ratio * 0.05 + steps / fromLow) << name;
  }
}

// ---- Reference files

class ReferenceFiles : public ::testing::TestWithParam<const char*> {
 protected:
  MeanAndDeviation merged(const sim::Sky& sky, bool dsnu, bool prnu) {
    const sim::Camera& of = camera(GetParam());
    const sim::HeaderFields fields = fieldsOf(of, "hdr", 64, 48);
    const Bytes frame = sim::encodeFrame(fields, 3, sim::exposeSky(of, fields, sky));
    const std::wstring path = folder.write("frame.raw", frame);
    const std::wstring dsnuPath = folder.write("dsnu", sim::dsnuFile(of, fields, sky));
    const std::wstring prnuPath = folder.write("prnu", sim::prnuFile(of, fields, sky));
    Delivery delivered;
    EXPECT_GE(delivered.decodeFile(frame, path, dsnu ? dsnuPath.c_str() : nullptr,
                                   prnu ? prnuPath.c_str() : nullptr),
              0);
    return momentsOf(delivered.merged());
  }

  TestFolder folder;
};

TEST_P(ReferenceFiles, UndoTheOffsetsOfADarkFrame) {
  sim::Sky dark;
  dark.stars = 0;
  dark.background = dark.readNoise = dark.rowPattern = dark.gainPattern = 0;
  dark.columnPattern = 12;
  const MeanAndDeviation before = merged(dark, false, false);
  EXPECT_NEAR(before.mean, 20, 3);
  EXPECT_NEAR(before.deviation, 12 / std::sqrt(3.0), 1.5);  // of evenly spread offsets
  const MeanAndDeviation after = merged(dark, true, false);
  EXPECT_LT(after.mean, 1);  // the bias goes, too
  EXPECT_LT(after.deviation, 0.5);
}

TEST_P(ReferenceFiles, UndoTheResponseOfAFlatFrame) {
  sim::Sky flat;
  flat.stars = 0;
  flat.readNoise = flat.columnPattern = flat.rowPattern = 0;
  flat.gainPattern = 0.2;
  const sim::Camera& of = camera(GetParam());
  flat.background = 2500 * of.electronsHigh;  // counts that the high-gain channel holds
  const double photonNoise = std::sqrt(flat.background) / of.electronsHigh;
  const MeanAndDeviation before = merged(flat, true, false);
  EXPECT_NEAR(before.mean, 2500, 25);
  EXPECT_NEAR(before.deviation, 2500 * 0.2 / std::sqrt(3.0), 25);
  const MeanAndDeviation after = merged(flat, true, true);
  EXPECT_NEAR(after.mean, 2500, 5);
  EXPECT_NEAR(after.deviation, photonNoise, 0.1 * photonNoise);
}

INSTANTIATE_TEST_SUITE_P(Hdr, ReferenceFiles,
                         ::testing::Values("GSENSE400", "GSENSE2020", "GSENSE4040", "GSENSE6060"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
