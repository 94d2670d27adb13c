#ifndef ORVACAM_TESTS_FACE_FACE_TESTING_H
#define ORVACAM_TESTS_FACE_FACE_TESTING_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <orvacam.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "simulator/Encoder.h"
#include "simulator/Header.h"

namespace face_testing {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;
using orvacam::Reason;

/// A way in which a sensor sends its pixels, and what the face makes of it.
struct Mode {
  const char* name;
  const char* sensor;
  const char* model;
  unsigned int bits;
  bool hdr, sampled;
  std::vector<std::string> planes;
};

inline const std::vector<Mode>& modes() {
  static const std::vector<std::string> merged = {"low", "high", "merged"};
  static const std::vector<std::string> pair = {"low", "high"};
  static const std::vector<std::string> image = {"image"};
  static const std::vector<Mode> all = {
      {"GSense400Hdr", "GSENSE400", "VESTRA VS400", 12, true, false, merged},
      {"GSense400Single", "GSENSE400", "VESTRA VS400", 12, false, false, image},
      {"GSense2020Hdr", "GSENSE2020", "VESTRA VS2020", 12, true, false, merged},
      {"GSense2020Single", "GSENSE2020", "VESTRA VS2020", 12, false, false, image},
      {"GSense2020Sixteen", "GSENSE2020", "VESTRA VS2020", 16, false, false, image},
      {"GSense4040Hdr", "GSENSE4040", "VESTRA VS4040", 12, true, false, merged},
      {"GSense4040Single", "GSENSE4040", "VESTRA VS4040", 12, false, false, image},
      {"GSense4040Sixteen", "GSENSE4040", "VESTRA VS4040", 16, false, false, image},
      {"GSense6060Hdr", "GSENSE6060", "VESTRA VS6060", 12, true, false, merged},
      {"GSense6060Pair", "GSENSE6060", "VESTRA VS6060", 12, false, false, pair},
      {"GSense6060Sixteen", "GSENSE6060", "VESTRA VS6060", 16, false, false, image},
      {"Ccd23042", "CCD230-42", "ARGENT 230-42", 16, false, false, image},
      {"Ccd23084", "CCD230-84", "ARGENT 230-84", 16, false, false, image},
      {"Ccd4320", "CCD4320", "ARGENT 4320", 16, false, false, image},
      {"Imx183", "IMX183", "VESTRA IMX183", 16, false, false, image},
      {"Lsgen", "LSGEN", "LSGEN 1", 16, false, false, image},
      {"Generic", "GENERIC", "VESTRA PLAIN", 16, false, false, image},
  };
  return all;
}

inline const Mode& modeNamed(const std::string& name) {
  for (const Mode& mode : modes())
    if (name == mode.name) return mode;
  throw std::invalid_argument(name);
}

inline void PrintTo(const Mode& mode, std::ostream* out) {
  *out << mode.name;
}

inline sim::HeaderFields fieldsOf(const Mode& mode, unsigned int width = 24, unsigned int height = 10) {
  sim::HeaderFields fields;
  fields.model = mode.model;
  fields.dataBits = fields.sensorBits = mode.bits;
  fields.hdr = mode.hdr;
  fields.correlatedMultipleSampling = mode.sampled;
  fields.width = width;
  fields.height = height;
  fields.quadrants = 0x3C;
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

inline orvacam::Frame frameOf(const sim::HeaderFields& fields, unsigned int version = 3) {
  const Bytes bytes = simulate(fields, version).bytes;
  return orvacam::Frame::copy(bytes.data(), bytes.size());
}

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

/// A folder of the test's own, gone at its end.
class TestFolder {
 public:
  TestFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "orvacam-face-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    m_path = name;
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  const std::filesystem::path& path() const { return m_path; }
  std::filesystem::path write(const std::string& name, const Bytes& bytes) const {
    const std::filesystem::path file = m_path / name;
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return file;
  }

 private:
  std::filesystem::path m_path;
};

inline Bytes readBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace face_testing

namespace orvacam {
inline void PrintTo(Reason reason, std::ostream* out) {
  *out << reason_name(reason);
}
}  // namespace orvacam

#endif  // ORVACAM_TESTS_FACE_FACE_TESTING_H
