#ifndef ORVACAM_TESTS_TOOLS_PROGRAM_H
#define ORVACAM_TESTS_TOOLS_PROGRAM_H

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "simulator/Scene.h"
#include "support/ReadImages.h"
#include "support/RunProgram.h"
#include "support/Sanitized.h"

namespace program_testing {

namespace fs = std::filesystem;
namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;
using Pixels = std::vector<unsigned short>;
using Names = std::set<std::string>;
using Arguments = std::vector<std::string>;

inline std::string textOf(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

/// Runs orvacam in a folder.
inline Ran run(const fs::path& folder, const Arguments& arguments, const Surroundings& surroundings = {}) {
  return runProgram(ORVACAM_TOOL, folder, arguments, surroundings);
}

/// A raw frame of random pixels and the planes that are in it.
struct Sample {
  Sample(const sim::HeaderFields& header, unsigned int seed, unsigned int headerVersion = 3)
      : fields(header), version(headerVersion) {
    const sim::Layout layout = sim::layoutOf(fields);
    const unsigned int largest = layout.packing == sim::Packing::Packed12 ? 4095 : 65534;
    unsigned int state = seed;
    planes = sim::makePlanes(layout, [&](const sim::PixelPlace&) {
      state = state * 1664525u + 1013904223u;
      return static_cast<std::uint16_t>((state >> 12) % (largest + 1));
    });
    bytes = sim::encodeFrame(fields, version, planes);
  }
  unsigned short at(unsigned int plane, unsigned int x, unsigned int y) const {
    return planes.at(plane).at(std::size_t{y} * fields.frameWidth() + x);
  }

  sim::HeaderFields fields;
  unsigned int version;
  std::vector<sim::Plane> planes;
  Bytes bytes;
};

inline sim::HeaderFields fieldsOf(const char* camera, const char* mode, unsigned int width,
                                  unsigned int height) {
  sim::HeaderFields fields = sim::headerFor(*sim::findCamera(camera), mode).value();
  fields.width = width;
  fields.height = height;
  return fields;
}

/// A calibration block of version 1 with electrons per count of setting 1: 3 (high gain), 15 (low gain).
inline Bytes blockOfASetting() {
  Bytes block = {'M', 'e', 't', 'a', 0, 44, 0, 1};
  const auto number = [&block](int bytes, unsigned int value) {
    while (bytes-- > 0)
      block.push_back(static_cast<unsigned char>(value >> 8 * bytes));
  };
  for (const unsigned int ratio : {1000u, 1000u, 5000u, 40000u})
    number(4, ratio);
  for (const unsigned int count : {1u, 1u, 0u, 0u})
    number(2, count);
  number(2, 1), number(4, 30000);
  number(2, 1), number(4, 150000);
  return block;
}

/// A folder to run the program in.
class Program : public ::testing::Test {
 protected:
  Ran orvacam(const Arguments& arguments, const Surroundings& surroundings = {}) const {
    return run(folder.path(), arguments, surroundings);
  }
  /// A run that works and has nothing to complain of; what it prints.
  std::string good(const Arguments& arguments, const Surroundings& surroundings = {}) const {
    const Ran ran = orvacam(arguments, surroundings);
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    EXPECT_THAT(ran.err, ::testing::IsEmpty());
    return ran.out;
  }
  /// A run that fails with one sentence about a file and leaves the folder as it was: 1 for an input, 3 for
  /// an output.
  void bad(const Arguments& arguments, const std::string& about, const std::string& what,
           int exitCode = 1) const {
    const auto before = contents();
    const Ran ran = orvacam(arguments);
    EXPECT_EQ(ran.exitCode, exitCode) << ::testing::PrintToString(arguments);
    EXPECT_THAT(ran.err, ::testing::StartsWith("orvacam: " + about + ": "));
    EXPECT_THAT(ran.err, ::testing::HasSubstr(what));
    EXPECT_EQ(lines(ran.err), 1u) << ran.err;
    EXPECT_EQ(contents(), before) << "something was left behind";
  }
  /// A run that is refused for its options.
  void refused(const Arguments& arguments, const std::string& what) const {
    const auto before = contents();
    const Ran ran = orvacam(arguments);
    EXPECT_EQ(ran.exitCode, 2) << ::testing::PrintToString(arguments);
    EXPECT_THAT(ran.err, ::testing::AllOf(::testing::StartsWith("orvacam: "), ::testing::HasSubstr(what)));
    EXPECT_EQ(lines(ran.err), 1u) << ran.err;
    EXPECT_THAT(ran.out, ::testing::IsEmpty());
    EXPECT_EQ(contents(), before);
  }

  /// The names in the folder or one in it, hidden ones included, the log's aside.
  Names files(const std::string& name = "") const {
    Names names;
    for (const auto& entry : fs::directory_iterator(folder.path() / name))
      if (entry.path().filename() != "MarloLogs") names.insert(entry.path().filename().string());
    return names;
  }
  /// Everything below the folder, but for the library's log.
  std::map<std::string, Bytes> contents() const {
    std::map<std::string, Bytes> all;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
      const std::string name = fs::relative(entry.path(), folder.path()).string();
      if (name.rfind("MarloLogs", 0) == 0) continue;
      all[name] = entry.is_regular_file() ? folder.read(name) : Bytes();
    }
    return all;
  }
  Names allNames() const {
    Names all;
    for (const auto& [name, bytes] : contents())
      all.insert(name);
    return all;
  }
  /// The pixels of files that everybody reads.
  Pixels tiff(const std::string& name, unsigned int directory = 0) const {
    return read_images::tiffPixels(folder.file(name), directory);
  }
  Pixels fits(const std::string& name, int unit = 1) const {
    return read_images::fitsPixels(folder.file(name), unit);
  }
  std::string keyword(const std::string& name, const char* key, int unit = 1) const {
    return read_images::fitsValue(folder.file(name), key, unit);
  }
  /// The pixels of a fixed TIFF file: behind the 656 bytes of its own header and the frame's 384.
  Pixels fixedTiff(const std::string& name) const { return pixels(folder.read(name), 656 + 384, false); }
  /// The pixels of a fixed FITS file as far as it goes: behind two blocks of header.
  Pixels fixedFits(const std::string& name) const { return pixels(folder.read(name), 5760, true); }

  /// A 16-bit frame of a plain sensor, its pixels given by column and row.
  template <typename Value>
  void writePlain(const std::string& name, unsigned int width, unsigned int height, Value value) const {
    const sim::HeaderFields fields = fieldsOf("GENERIC", "single", width, height);
    const auto planes = sim::makePlanes(sim::layoutOf(fields), [&](const sim::PixelPlace& p) {
      return static_cast<std::uint16_t>(value(p.x, p.y));
    });
    folder.write(name, sim::encodeFrame(fields, 3, planes));
  }
  /// The same of 6 x 4 pixels of one value.
  void writeFlat(const std::string& name, unsigned int value) const {
    writePlain(name, 6, 4, [value](unsigned int, unsigned int) { return value; });
  }
  /// A packed HDR frame: the low-gain plane counts pixels up to 159, the high-gain plane has 3500 more.
  std::vector<sim::Plane> writeHdr(const std::string& name, unsigned int width, unsigned int height,
                                   unsigned int preRows = 0) const {
    sim::HeaderFields fields = fieldsOf("GSENSE4040", "hdr", width, height);
    fields.preRefRows = preRows;
    const auto planes = sim::makePlanes(sim::layoutOf(fields), [&](const sim::PixelPlace& p) {
      return static_cast<std::uint16_t>((p.y * width + p.x) % 160 + 3500 * p.plane + (p.image ? 0 : 200));
    });
    folder.write(name, sim::encodeFrame(fields, 3, planes));
    return planes;
  }

  static Pixels pixels(const Bytes& bytes, std::size_t from, bool bigEndian) {
    Pixels result;
    for (std::size_t i = from; i + 1 < bytes.size(); i += 2)
      result.push_back(static_cast<unsigned short>(bigEndian ? bytes[i] << 8 | bytes[i + 1]
                                                             : bytes[i + 1] << 8 | bytes[i]));
    return result;
  }
  static std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }

  TestFolder folder;
};

}  // namespace program_testing

#endif  // ORVACAM_TESTS_TOOLS_PROGRAM_H
