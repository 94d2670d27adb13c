#ifndef ORVACAM_TESTS_FACE_FACE_TESTING_H
#define ORVACAM_TESTS_FACE_FACE_TESTING_H

#include <gtest/gtest.h>
#include <orvacam.h>

#include <memory>
#include <orvacam.hpp>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "simulator/Encoder.h"
#include "simulator/Header.h"
#include "support/Cameras.h"

namespace face_testing {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;
using orvacam::Reason;

using cameras::Mode;

/// The ways in which sensors send their pixels, but for a pair that no plain camera sends, and samples.
inline const std::vector<Mode>& modes() {
  static const std::vector<Mode> all = [] {
    auto chosen = cameras::modesThat([](const Mode& mode) {
      return mode.stream != cameras::Stream::Sampled && (mode.stream != cameras::Stream::Plain || !mode.hdr);
    });
    chosen.push_back({"Lsgen", "LSGEN 1", cameras::Stream::Plain, 16, false});
    return chosen;
  }();
  return all;
}

inline const Mode& modeNamed(std::string_view name) {
  for (const Mode& mode : modes())
    if (name == mode.name) return mode;
  throw std::invalid_argument(std::string(name));
}

/// What the face makes of a mode: its sensor's name and its planes.
inline std::string sensorOf(const Mode& mode) {
  return mode.name == std::string_view("Lsgen") ? "LSGEN" : mode.camera().sensor;
}
inline std::vector<std::string> planesOf(const Mode& mode) {
  if (mode.hdr) return {"low", "high", "merged"};
  // The GSENSE6060 sends two planes of 12 bits whatever its flag says.
  if (mode.name == std::string_view("GSense6060Twelve")) return {"low", "high"};
  return {"image"};
}

/// A test of each mode.
class OfEveryMode : public testing::TestWithParam<Mode> {
 protected:
  const Mode& mode = GetParam();
  std::vector<std::string> planes = planesOf(mode);
};
#define ORVACAM_OF_EVERY_MODE(suite)                                 \
  using suite = face_testing::OfEveryMode;                           \
  INSTANTIATE_TEST_SUITE_P(Modes, suite, testing::ValuesIn(modes()), \
                           [](const auto& info) { return std::string(info.param.name); })

inline sim::HeaderFields fieldsOf(const Mode& mode, unsigned int width = 24, unsigned int height = 10) {
  sim::HeaderFields fields;
  fields.model = mode.model;
  fields.dataBits = fields.sensorBits = mode.bits;
  fields.hdr = mode.hdr;
  fields.width = width;
  fields.height = height;
  fields.quadrants = mode.quadrants;
  fields.lowGain = 1;
  fields.highGain = 2;
  return fields;
}
inline sim::HeaderFields fieldsOf(const std::string& mode) {
  return fieldsOf(modeNamed(mode));
}

/// A raw frame, and its planes in the order of the stream.
struct SimulatedFrame {
  Bytes bytes;
  std::vector<sim::Plane> planes;
};

inline SimulatedFrame simulate(const sim::HeaderFields& fields, unsigned int version = 3,
                               unsigned int seed = 1) {
  const sim::Layout layout = sim::layoutOf(fields);
  unsigned int state = seed;
  const unsigned int values = layout.packing == sim::Packing::Packed12 ? 4096 : 65536;
  SimulatedFrame frame;
  frame.planes = sim::makePlanes(layout, [&](const sim::PixelPlace&) {
    state = state * 1664525u + 1013904223u;
    return static_cast<std::uint16_t>((state >> 12) % values);
  });
  frame.bytes = sim::encodeFrame(fields, version, frame.planes);
  return frame;
}

inline orvacam::Frame viewed(const Bytes& bytes) {
  return orvacam::Frame::view(bytes.data(), bytes.size());
}
inline orvacam::Frame copied(const Bytes& bytes) {
  return orvacam::Frame::copy(bytes.data(), bytes.size());
}
inline orvacam::Frame frameOf(const sim::HeaderFields& fields, unsigned int version = 3) {
  return copied(simulate(fields, version).bytes);
}

/// What the documented classes make of a frame.
struct Machinery {
  Machinery() { images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true; }
  Machinery(const Machinery&) = delete;
  Machinery& operator=(const Machinery&) = delete;
  ~Machinery() { algo->FreeFramePointers(&images); }

  std::vector<std::uint16_t> mergedOf(Bytes bytes, CCameraNVMergeSettings* stored = nullptr) {
    CFrameMetaData header;
    Bytes start = bytes;
    header.Parse(start.data(), static_cast<unsigned int>(start.size()));
    gain_type_info_t camera{0, header.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
    header.GetDeviceType(camera.uiDeviceType);
    algo->Initialize(camera, stored);
    EXPECT_EQ(algo->MergeImage(bytes.data(), bytes.size(), &images, nullptr), 0);
    return {images.pMergedImage, images.pMergedImage + images.ulMergedImagePixels};
  }
  /// With reference files, or without where a name is empty.
  std::vector<std::uint16_t> mergedOf(const std::filesystem::path& frame, const std::wstring& dsnu,
                                      const std::wstring& prnu) {
    EXPECT_EQ(algo->MergeFile(frame.wstring().c_str(), &images, nullptr,
                              dsnu.empty() ? nullptr : dsnu.c_str(), prnu.empty() ? nullptr : prnu.c_str()),
              0);
    return {images.pMergedImage, images.pMergedImage + images.ulMergedImagePixels};
  }

  std::unique_ptr<CAlgo> algo = std::make_unique<CAlgo>();
  unpacked_images_t images{};
};

/// The reason that a step fails for; a failure of the test when it does not.
template <typename Step>
orvacam::Error errorOf(const Step& step) {
  try {
    step();
  } catch (const orvacam::Error& error) {
    return error;
  }
  throw std::logic_error("nothing was thrown");
}
template <typename Step>
Reason reasonOf(const Step& step) {
  return errorOf(step).reason();
}

inline std::vector<std::uint16_t> pixelsOf(const orvacam::Image<std::uint16_t>& image) {
  const std::size_t count = std::size_t{image.size().width} * image.size().height;
  return image.empty() ? std::vector<std::uint16_t>()
                       : std::vector<std::uint16_t>(image.data(), image.data() + count);
}

inline std::vector<std::string> idsOf(const std::vector<orvacam::Finding>& findings) {
  std::vector<std::string> ids;
  for (const orvacam::Finding& finding : findings)
    ids.push_back(finding.id);
  return ids;
}

}  // namespace face_testing

namespace orvacam {
inline void PrintTo(Reason reason, std::ostream* out) {
  *out << reason_name(reason);
}
}  // namespace orvacam

#endif  // ORVACAM_TESTS_FACE_FACE_TESTING_H
