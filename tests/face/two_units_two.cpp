// The other one.
#include <orvacam.hpp>

std::size_t keysOfOtherUnit() {
  // Every name is used, so that all of the header compiles.
  orvacam::Decoder decoder;
  orvacam::Stack stack;
  const auto decode = [&](const orvacam::Frame& frame) {
    stack.add(frame);
    const orvacam::Decoded planes = decoder.decode(frame, {});
    return planes.low.size().width + stack.result().size().width + stack.result_u16().size().width;
  };
  (void)decode;
  return orvacam::keys().size();
}
