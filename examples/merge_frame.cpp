// Merges a raw frame of any sensor.
//
//   merge_frame FRAME

#include <iostream>
#include <orvacam.hpp>

int main(int argc, char** argv) try {
  const orvacam::Frame frame = orvacam::Frame::read(argc > 1 ? argv[1] : "frame.raw");
  const orvacam::Decoded planes = orvacam::Decoder().decode(frame);
  const orvacam::Plane& best = !planes.merged.empty()  ? planes.merged
                               : !planes.image.empty() ? planes.image
                                                       : planes.low;  // two gains that do not merge
  std::cout << frame.header().sensor() << ": " << best.size().width << " x " << best.size().height
            << " pixels, the first is " << best(0, 0) << '\n';
} catch (const orvacam::Error& error) {
  std::cerr << error.path() << ": " << error.what() << '\n';
  return 1;
}
