// What bench/python_compare.py holds Python to: the C++ face reads a file and decodes its merged plane.
// Prints the seconds of wall time and of processor time of each round.
//
//   read_merged FRAME ROUNDS

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <orvacam.hpp>

int main(int argc, char** argv) try {
  if (argc != 3) return 2;
  orvacam::Planes merged;
  merged.low = merged.high = merged.image = false;
  for (int round = std::atoi(argv[2]); round > 0; --round) {
    const auto start = std::chrono::steady_clock::now();
    const std::clock_t processor = std::clock();
    {
      const orvacam::Frame frame = orvacam::Frame::read(argv[1]);
      const orvacam::Plane plane = orvacam::Decoder().decode(frame, merged).merged;
      if (plane.empty()) return 1;
    }
    std::cout << std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() << ' '
              << static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC << '\n';
  }
} catch (const orvacam::Error& error) {
  std::cerr << error.path() << ": " << error.what() << '\n';
  return 1;
}
