#include "files/NpyWriter.h"

namespace orvacam::files {

std::string npyHeader(const Raster& raster) {
  constexpr const char* descriptions[] = {"|u1", "<u2", "<f4", "<f8", "<i8"};
  constexpr std::size_t ahead = 10, alignment = 64;
  std::string text = "{'descr': '" + std::string(descriptions[raster.sample]) +
                     "', 'fortran_order': False, 'shape': (" + std::to_string(raster.size.height) + ", " +
                     std::to_string(raster.size.width) + "), }";
  text.append(alignment - 1 - (ahead + text.size()) % alignment, ' ');
  text += '\n';
  std::string header("\x93NUMPY\x01\x00", 8);
  header += static_cast<char>(text.size() & 0xFF);
  header += static_cast<char>(text.size() >> 8);
  return header + text;
}

}  // namespace orvacam::files
