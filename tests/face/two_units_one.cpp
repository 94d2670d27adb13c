// One of two translation units that include the C++ face.
#include <orvacam.hpp>

std::size_t keysOfOtherUnit();

int main(int argc, char** argv) {
  if (orvacam::keys().size() != keysOfOtherUnit() || argc != 2) return 1;
  try {
    orvacam::Frame::read(argv[1]);
    return 1;
  } catch (const orvacam::Error& error) {
    return error.reason() == orvacam::Reason::io ? 0 : 1;
  }
}
