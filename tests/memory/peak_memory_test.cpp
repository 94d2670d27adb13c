// How much memory the big operations take beside what the caller gives them. Each runs in a process of its
// own on a frame whose planes are larger than the room that is allowed, so that one plane too many shows.

#include <gtest/gtest.h>
#include <orvacam/types/image_format.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "simulator/Header.h"
#include "support/RunProgram.h"

namespace {

constexpr unsigned long mebibyte = 1UL << 20;
constexpr unsigned long side = 4096;
constexpr unsigned long planeBytes = 2 * side * side;

class PeakMemory : public ::testing::Test {
 protected:
  PeakMemory() {
    orvacam::simulator::HeaderFields fields;
    fields.model = "VESTRA VS4040";
    fields.hdr = true;
    fields.width = fields.height = side;
    std::vector<unsigned char> row(2 * side * 3 / 2);
    for (std::size_t i = 0; i < row.size(); ++i)
      row[i] = static_cast<unsigned char>(i * 7);
    const std::vector<unsigned char> header = orvacam::simulator::writeHeader(fields, 3);
    std::ofstream file(frame(), std::ios::binary);
    const auto write = [&file](const std::vector<unsigned char>& bytes) {
      file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    };
    write(header);
    for (unsigned long y = 0; y < side; ++y)
      write(row);
    frameBytes = header.size() + side * row.size();
  }

  std::string frame() const { return folder.file("frame.raw"); }

  /// The most bytes that were resident.
  static unsigned long run(const std::vector<std::string>& arguments) {
    const Ran ran = runProgram(ORVACAM_MEMORY_PROBE, ".", arguments);
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    return std::strtoul(ran.out.c_str(), nullptr, 10);
  }

  TestFolder folder;
  unsigned long frameBytes = 0;
};

TEST_F(PeakMemory, OfMergeImageIntoTheCallersPlanesIsTheFrameAndALittle) {
  for (const char* const statistics : {"plain", "statistics"}) {
    const unsigned long peak = run({"merge", frame(), std::to_string(side), statistics});
    EXPECT_GT(peak, frameBytes + 3 * planeBytes);
    EXPECT_LT(peak, frameBytes + 3 * planeBytes + 16 * mebibyte) << statistics;
  }
}

TEST_F(PeakMemory, OfConvertFileIsTheFileThreePlanesAndALittle) {
  for (const unsigned int format : {ORVA_IMAGE_FORMAT_TIFF, ORVA_IMAGE_FORMAT_FITS}) {
    const unsigned long peak = run({"convert", frame(), folder.file("out.raw"), std::to_string(format)});
    EXPECT_GT(peak, frameBytes);
    EXPECT_LT(peak, frameBytes + 3 * planeBytes + 32 * mebibyte) << format;
  }
}

}  // namespace
