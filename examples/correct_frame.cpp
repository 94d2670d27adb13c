// Merges with the camera's correction files, and says how.
//
//   correct_frame FRAME DSNU PRNU

#include <iostream>
#include <orvacam.hpp>

int main(int argc, char** argv) try {
  if (argc != 4) return 2;
  orvacam::Decoder decoder;
  decoder.dsnu(argv[2]).prnu(argv[3]).thresholds(3600, 128);
  const orvacam::Frame frame = orvacam::Frame::read(argv[1]);
  const orvacam::Plane merged = decoder.decode(frame).merged;
  const orvacam::MergeInfo how = decoder.merge_info(frame.header());
  std::cout << merged.size().width << " x " << merged.size().height << " pixels, thresholds "
            << how.high_threshold << " and " << how.difference_threshold << '\n';
} catch (const orvacam::Error& error) {
  std::cerr << error.path() << ": " << error.what() << '\n';
  return error.reason() == orvacam::Reason::mismatch ? 3 : 1;
}
