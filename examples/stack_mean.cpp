// The mean of a night's frames. One bad frame does not spoil it.
//
//   stack_mean FRAME...

#include <iostream>
#include <orvacam.hpp>

int main(int argc, char** argv) try {
  orvacam::Stack stack;
  for (int i = 1; i < argc; ++i)
    try {
      stack.add(orvacam::Frame::read(argv[i]));
    } catch (const orvacam::Error& error) {  // the stack is as before
      std::cerr << argv[i] << " is left out: " << error.what() << '\n';
    }
  const orvacam::Image<float> mean = stack.result();
  std::cout << stack.count() << " frames of " << mean.size().width << " x " << mean.size().height
            << " pixels, the first has mean " << mean(0, 0) << '\n';
} catch (const orvacam::Error& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
