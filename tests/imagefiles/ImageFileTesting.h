#ifndef ORVACAM_TESTS_IMAGEFILES_IMAGE_FILE_TESTING_H
#define ORVACAM_TESTS_IMAGEFILES_IMAGE_FILE_TESTING_H

#include <cstddef>
#include <string>
#include <vector>

#include "TestFolder.h"
#include "metadata/SettableHeader.h"

inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

inline void fill(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// A version 3 header of a frame of width x height pixels that holds something in every value that image
/// files show.
inline SettableHeader frameHeader(unsigned int width, unsigned int height) {
  SettableHeader header;
  header.ReInitialize(true);
  header.SetDimensions(width, height);
  header.SetModelName("VESTRA VS4040", 13);
  header.SetSerialNumber("SN-0042", 7);
  header.set(43, 90).set(91, 45).set(25, 321);
  header.setInt(15, -105).setInt(24, 405).setInt(4, 314).setInt(74, -253);
  header.set(12, 2024U << 16 | 2 << 8 | 29).setDouble(13, 3723.0).setDouble(14, 4005006.0);
  header.set(29, 0x81C9C380).set(33, 0x01C9C380);  // 50 degrees north, 50 west
  header.set(26, 2).set(28, 7).set(22, 1200).set(89, 0x10203);
  header.setInt(45, -45).setInt(46, 46).setInt(77, 77).setInt(76, -76);
  return header;
}

/// Values that differ in both bytes everywhere.
inline std::vector<unsigned short> ramp(std::size_t count) {
  std::vector<unsigned short> pixels(count);
  for (std::size_t i = 0; i < count; ++i)
    pixels[i] = static_cast<unsigned short>(i * 40503U + 12345U);
  return pixels;
}

#endif  // ORVACAM_TESTS_IMAGEFILES_IMAGE_FILE_TESTING_H
