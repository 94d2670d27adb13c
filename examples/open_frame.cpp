// Opens a frame and says what it is, without decoding it.
//
//   open_frame FRAME

#include <iostream>
#include <orvacam.hpp>

int main(int argc, char** argv) try {
  const orvacam::Frame frame = orvacam::Frame::read(argc > 1 ? argv[1] : "frame.raw");
  const orvacam::Header& header = frame.header();
  std::cout << header.model() << " (" << header.sensor() << "), " << header.exposure_seconds() << " s";
  if (const auto temperature = header.temperature_celsius()) std::cout << ", " << *temperature << " degC";
  std::cout << ", gain " << header.number("LDRGain") << '\n';
  for (const std::string& plane : frame.planes())
    std::cout << "  plane " << plane << '\n';
} catch (const orvacam::Error& error) {
  std::cerr << error.path() << ": " << error.what() << '\n';
  return 1;
}
