// What one operation takes of memory, in a process of its own: prints the most bytes that were resident.
//
//   memory_probe merge FRAME SIDE statistics|plain     MergeImage into planes that are there before
//   memory_probe convert FRAME DESTINATION FORMAT      ConvertFile, twice

#include <orvacam.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

/// Since this program began; what its parent took does not count.
unsigned long mostResident() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word)
    if (word == "VmHWM:") {
      unsigned long kibibytes = 0;
      status >> kibibytes;
      return kibibytes * 1024;
    }
  return 0;
}

int merge(const std::string& path, unsigned long side, bool statistics) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  std::vector<char> frame(static_cast<std::size_t>(file.tellg()));
  file.seekg(0);
  file.read(frame.data(), static_cast<std::streamsize>(frame.size()));
  std::vector<unsigned short> low(side * side, 1), high(side * side, 1), merged(side * side, 1);

  unpacked_images_t images{};
  images.pLowImage = low.data();
  images.pHighImage = high.data();
  images.pMergedImage = merged.data();
  images.ulLowImageSize = images.ulHighImageSize = images.ulMergedImageSize = 2 * side * side;
  images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  unpacked_stats_t stats{};
  stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = statistics;
  CAlgo algo;
  algo.Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
  const int status =
      algo.MergeImage(reinterpret_cast<unsigned char*>(frame.data()), frame.size(), &images, &stats);
  algo.FreeStatsPointers(&stats);
  return status;
}

int convert(const std::string& source, const std::string& destination, unsigned int format) {
  const conv_info_t info{format, nullptr, nullptr};
  CAlgo algo;
  int status = 0;
  for (int i = 0; i < 2 && status >= 0; ++i)
    status = algo.ConvertFile(std::wstring(source.begin(), source.end()).c_str(), &info,
                              std::wstring(destination.begin(), destination.end()).c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() != 4) return 2;
  const int status =
      arguments[0] == "merge"
          ? merge(arguments[1], std::stoul(arguments[2]), arguments[3] == "statistics")
          : convert(arguments[1], arguments[2], static_cast<unsigned int>(std::stoul(arguments[3])));
  if (status < 0) return 1;
  std::cout << mostResident() << '\n';
  return 0;
}
