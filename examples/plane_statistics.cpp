// The statistics of each plane, and its median out of the histogram.
//
//   plane_statistics FRAME

#include <iostream>
#include <orvacam.hpp>

namespace {

unsigned int medianOf(const orvacam::Statistics& statistics) {
  std::uint64_t below = 0;
  unsigned int value = 0;
  while (2 * (below + statistics.histogram[value]) < statistics.count)
    below += statistics.histogram[value++];
  return value;
}

void show(const char* name, const orvacam::Plane& plane) {
  if (plane.empty()) return;
  const orvacam::Statistics& s = *plane.statistics();
  std::cout << name << ": mean " << s.mean << ", deviation " << s.deviation << ", median " << medianOf(s)
            << ", brightest " << s.maximum.value << " at " << s.maximum.x << ", " << s.maximum.y << '\n';
}

}  // namespace

int main(int argc, char** argv) try {
  orvacam::Planes wanted;
  wanted.histograms = true;
  const auto frame = orvacam::Frame::read(argc > 1 ? argv[1] : "frame.raw");
  const orvacam::Decoded planes = orvacam::Decoder().decode(frame, wanted);
  show("low", planes.low);
  show("high", planes.high);
  show("merged", planes.merged);
  show("image", planes.image);
} catch (const orvacam::Error& error) {
  std::cerr << error.path() << ": " << error.what() << '\n';
  return 1;
}
