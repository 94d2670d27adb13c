// A program with several cameras: each has a thread with objects, settings and files of its own. What a
// thread makes is what the same work makes alone; only the log is shared.

#include <gtest/gtest.h>
#include <orvacam.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "gain/CalibrationBlock.h"
#include "simulator/Scene.h"
#include "threads/Together.h"

namespace {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;

/// A camera and how its program is set up. Two cameras of one kind differ in their calibration and settings:
/// nothing of one may reach the other.
struct Station {
  const char* camera;
  const char* mode;
  unsigned int format;       // of merged planes in memory
  double storedElectrons;    // per count of every gain, in the camera's memory; 0 for none
  unsigned short threshold;  // of the merge
};

const Station stations[] = {
    {"GSENSE400", "hdr", ORVA_IMAGE_FORMAT_RAW, 0, 3700},
    {"GSENSE400", "hdr", ORVA_IMAGE_FORMAT_TIFF, 7.5, 1000},
    {"GSENSE2020", "hdr", ORVA_IMAGE_FORMAT_RAW, 3.25, 3000},
    {"GSENSE4040", "single", ORVA_IMAGE_FORMAT_RAW, 0, 3700},
    {"GSENSE6060", "hdr", ORVA_IMAGE_FORMAT_TIFF, 2.5, 2000},
    {"CCD230-84", "single", ORVA_IMAGE_FORMAT_RAW, 0, 3700},
};
constexpr std::size_t stationCount = sizeof stations / sizeof *stations;
constexpr unsigned long framesOfAStation = 4;

/// All that came out, flattened, so that two runs can be compared byte by byte.
class Product {
 public:
  void add(const void* bytes, std::size_t size) {
    const auto* const first = static_cast<const unsigned char*>(bytes);
    if (size > 0) m_bytes.insert(m_bytes.end(), first, first + size);
  }
  template <typename Number>
  void add(Number number) {
    add(&number, sizeof number);
  }
  void add(const Bytes& bytes) { add(bytes.data(), bytes.size()); }
  void add(const image_plane_stats_t& stats) {
    for (const double value : {stats.dMean, stats.dStdDev, stats.dMode, stats.dMidpoint})
      add(value);
    for (const unsigned int value : {stats.uiMin, stats.uiMax, stats.uiLowClip, stats.uiHighClip})
      add(value);
    if (stats.pHistogram != nullptr) add(stats.pHistogram, stats.uiHistogramSize * sizeof(double));
  }
  const Bytes& bytes() const { return m_bytes; }

 private:
  Bytes m_bytes;
};

/// What a station's thread works on, made before the threads start.
struct Work {
  explicit Work(const Station& s) : station(s), camera(*sim::findCamera(s.camera)) {
    sim::HeaderFields fields = *sim::headerFor(camera, s.mode);
    fields.width = 60;
    fields.height = 24;
    fields.lowGain = 1;
    fields.highGain = 2;
    sim::Sky sky;
    for (unsigned long i = 0; i < framesOfAStation; ++i) {
      sky.seed = i + 1;
      fields.frameNumber = static_cast<unsigned int>(i);
      frames.push_back(sim::encodeFrame(fields, 3, sim::exposeSky(camera, fields, sky)));
    }
    dsnu = sim::dsnuFile(camera, fields, sky);
    prnu = sim::prnuFile(camera, fields, sky);
    CalibrationBlock block;
    block.ratios(1, 1, 22.0, 30.0);
    block.counts(8, 8, 0, 0);
    for (unsigned int gain = 0; gain < 16; ++gain)
      block.electrons(gain % 8, s.storedElectrons + gain / 8);
    calibration = block.block(4);
  }

  Station station;
  const sim::Camera& camera;
  std::vector<Bytes> frames;
  Bytes dsnu, prnu, calibration;
};

/// Frames in memory through one façade, as a camera loop does, with statistics.
void mergeImages(const Work& work, CAlgo& algo, Product& product) {
  unpacked_images_t images{};
  images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  images.bMetaDataRequest = true;
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = true;
  for (Bytes frame : work.frames) {
    product.add(algo.MergeImage(frame.data(), frame.size(), &images, &stats));
    product.add(images.pLowImage, images.ulLowImageSize);
    product.add(images.pHighImage, images.ulHighImageSize);
    product.add(images.pMergedImage, images.ulMergedImageSize);
    product.add(images.pMergedMetaData, images.uiMetaDataSize);
    product.add(stats.statsLow);
    product.add(stats.statsHigh);
    product.add(stats.statsMerged);
  }
  algo.FreeFramePointers(&images);
  algo.FreeStatsPointers(&stats);
}

/// Text and numbers of the header, and the gain tables behind them.
void describe(const Work& work, CCameraNVMergeSettings* calibration, Product& product) {
  Bytes frame = work.frames.front();
  CFrameMetaData header;
  header.Parse(frame.data(), static_cast<unsigned int>(frame.size()));
  char text[8192];
  product.add(text, static_cast<std::size_t>(header.ToString(text, sizeof text)));
  product.add(header.GetLowGainValue());
  gain_type_info_t camera{};
  header.GetDeviceType(camera.uiDeviceType);
  CMergeSettings settings;
  settings.Initialize(camera, calibration);
  product.add(settings.GetGainRatio(1, 2));
  product.add(settings.GetADUValue(2));
}

void convertFiles(const Work& work, CAlgo& algo, const TestFolder& folder, Product& product) {
  const std::wstring source = folder.write("frame.raw", work.frames.front());
  const std::wstring dsnu = folder.write("dsnu.raw", work.dsnu), prnu = folder.write("prnu.raw", work.prnu);
  const conv_info_t info{ORVA_IMAGE_FORMAT_TIFF, dsnu.c_str(), prnu.c_str()};
  product.add(algo.ConvertFile(source.c_str(), &info, folder.wideFile("out.raw").c_str()));
  const conv_info_t fits{ORVA_IMAGE_FORMAT_FITS, nullptr, nullptr};
  product.add(algo.ConvertFile(source.c_str(), &fits, folder.wideFile("out.raw").c_str()));
  for (const char* name : {"out.tiff", "out_LOW.tiff", "out_HIGH.tiff", "out_MERGED.tiff"})
    product.add(folder.read(name));
  for (const char* name : {"out.fit", "out_LOW.fit", "out_HIGH.fit", "out_MERGED.fit"}) {
    const Bytes image = folder.read(name);
    if (image.size() > 5760)
      product.add(image.data() + 5760, image.size() - 5760);  // the header has the time
    CFrameMetaData header;
    bool end = false;
    if (!image.empty())
      CFitsInterface::ParseMetaData(image.data(), static_cast<unsigned int>(image.size()), header, end);
    product.add(end);
  }
}

void stackFrames(const Work& work, Product& product) {
  const auto algo = std::make_unique<CAlgo>();
  CStacker stacker;
  for (unsigned long i = 0; i < work.frames.size(); ++i) {
    Bytes frame = work.frames[i];
    unpacked_images_t images{};
    images.bLowImageRequest = images.bHighImageRequest = true;
    algo->MergeImage(frame.data(), frame.size(), &images, nullptr);
    if (i == 0) product.add(stacker.Initialize(images.ulLowImagePixels));
    product.add(stacker.StackNextFrame(images.pLowImage, images.pHighImage, images.ulLowImagePixels));
    algo->FreeFramePointers(&images);
  }
  unsigned short *low = nullptr, *high = nullptr;
  unsigned int pixels = 0;
  product.add(stacker.Finish(&low, &high, &pixels));
  product.add(low, 2UL * pixels);
  product.add(high, 2UL * pixels);
}

/// The table-driven merge with settings of the thread's own.
void mergeByTable(const Work& work, CCameraNVMergeSettings* calibration, Product& product) {
  Bytes frame = work.frames.front();
  CFrameMetaData header;
  header.Parse(frame.data(), static_cast<unsigned int>(frame.size()));
  gain_type_info_t camera{};
  header.GetDeviceType(camera.uiDeviceType);
  CMergeSettings settings;
  settings.Initialize(camera, calibration);
  const auto merge = std::make_unique<CMergeAlgoLegacy>();
  merge->SetMergeSettings(&settings);
  header.SetBitsPerPixel(8);
  merge->SetMetaData(header);
  merge->EnableStatistics(true);
  std::vector<unsigned short> low(600), high(600), merged(600);
  for (unsigned short i = 0; i < 600; ++i) {
    low[i] = i % 256;
    high[i] = i * 7 % 256;
  }
  product.add(merge->MergeFrames(low.data(), high.data(), merged.data(), merged.size()));
  product.add(merged.data(), 2 * merged.size());
}

/// Everything that a station's thread does.
Bytes run(const Work& work, const CCameraNVMergeSettings& shared) {
  Product product;
  CCameraNVMergeSettings own;
  own.Initialize(work.calibration.data(), static_cast<unsigned int>(work.calibration.size()));
  CCameraNVMergeSettings* const calibration = work.station.storedElectrons > 0 ? &own : nullptr;

  const TestFolder folder;
  const auto algo = std::make_unique<CAlgo>();
  Bytes first = work.frames.front();
  CFrameMetaData header;
  header.Parse(first.data(), static_cast<unsigned int>(first.size()));
  gain_type_info_t camera{};
  header.GetDeviceType(camera.uiDeviceType);
  algo->Initialize(camera, calibration);
  algo->SetHWMergeEnables({0, work.station.format, 0});
  algo->SetHWMergeThresholds(work.station.threshold, 128);
  mergeImages(work, *algo, product);
  describe(work, calibration, product);
  convertFiles(work, *algo, folder, product);
  stackFrames(work, product);
  mergeByTable(work, calibration, product);
  // An initialized calibration is only read, also by several threads.
  double electrons = 0;
  for (unsigned int gain = 0; gain < 8; ++gain) {
    product.add(shared.GetNVElectronsPerCount(gain, true, electrons));
    product.add(electrons);
  }
  return product.bytes();
}

class SeveralCameras : public ::testing::Test {
 protected:
  SeveralCameras() {
    for (const Station& station : stations)
      works.emplace_back(station);
    shared.Initialize(works[1].calibration.data(), static_cast<unsigned int>(works[1].calibration.size()));
    for (const Work& work : works)
      alone.push_back(run(work, shared));
  }

  const LogCapture log;  // first, as the others keep the log
  std::vector<Work> works;
  CCameraNVMergeSettings shared;
  std::vector<Bytes> alone;
};

TEST_F(SeveralCameras, DoSomethingElseEach) {
  for (std::size_t i = 0; i < stationCount; ++i) {
    EXPECT_GT(alone[i].size(), 10000u);
    for (std::size_t j = 0; j < i; ++j)
      EXPECT_NE(alone[i], alone[j]) << i << ", " << j;
  }
}

TEST_F(SeveralCameras, MakeInThreadsWhatEachMakesAlone) {
  for (int round = 0; round < 3; ++round) {
    std::vector<Bytes> made(stationCount);
    together(stationCount, [&](std::size_t i) { made[i] = run(works[i], shared); });
    for (std::size_t i = 0; i < stationCount; ++i)
      EXPECT_TRUE(made[i] == alone[i]) << stations[i].camera << ", round " << round;
  }
}

TEST_F(SeveralCameras, OfOneKindAndSettingsMakeTheSame) {
  std::vector<Bytes> made(4);
  together(made.size(), [&](std::size_t i) { made[i] = run(works[i % 2], shared); });
  for (std::size_t i = 0; i < made.size(); ++i)
    EXPECT_TRUE(made[i] == alone[i % 2]) << i;
}

TEST_F(SeveralCameras, WriteWholeLinesIntoOneLog) {
  std::vector<Bytes> made(stationCount);
  together(stationCount, [&](std::size_t i) {
    made[i] = run(works[i], shared);
    for (int line = 0; line < 200; ++line)
      CLog::getInstance()->logInfo(L"%s: camera %d of %d says %d\n", "Thread", static_cast<int>(i),
                                   static_cast<int>(stationCount), line);
  });
  for (std::size_t i = 0; i < stationCount; ++i)
    EXPECT_TRUE(made[i] == alone[i]) << stations[i].camera;
  // Every line of every thread is there once and in order.
  const std::string text = log.text();
  std::vector<int> next(stationCount, 0);
  std::size_t lines = 0;
  for (std::size_t at = text.find("Thread: camera "); at != text.npos;
       at = text.find("Thread: camera ", at + 1)) {
    const std::string line = text.substr(at, text.find('\n', at) - at);
    const std::size_t camera = static_cast<std::size_t>(line.at(15) - '0');
    ASSERT_LT(camera, stationCount) << line;
    EXPECT_EQ(line, "Thread: camera " + std::to_string(camera) + " of " + std::to_string(stationCount) +
                        " says " + std::to_string(next[camera]++));
    ++lines;
  }
  EXPECT_EQ(lines, 200 * stationCount);
}

}  // namespace
