// A program outside the project: one header, one library, one stack of frames.
#include <orvacam.h>

#include <cstdio>

int main() {
  const unsigned short first[] = {10, 20, 65535};
  const unsigned short second[] = {11, 20, 65535};
  CStacker stacker;
  unsigned short* mean = nullptr;
  unsigned int pixels = 0;
  if (stacker.Initialize(3) < 0 || stacker.StackNextFrame(first, 3) < 0 ||
      stacker.StackNextFrame(second, 3) < 0 || stacker.Finish(&mean, nullptr, &pixels) < 0)
    return 1;
  std::printf("liborvacam %s: means %u %u %u\n", ORVACAM_VERSION_STRING, mean[0], mean[1], mean[2]);
  return 0;
}
