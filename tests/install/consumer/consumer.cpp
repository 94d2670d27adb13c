// A program outside the project: one header, one library, one frame.
#include <orvacam.h>

#include <cstdio>
#include <vector>

int main() {
  CFrameMetaData header;
  header.ReInitialize(true);
  header.SetDimensions(4, 2);
  header.SetModelName("Plain 16-bit", 12);
  header.SetHDRFrame(false);

  std::vector<unsigned char> frame(384 + 4 * 2 * 2);
  if (header.Binarize(frame.data(), static_cast<unsigned int>(frame.size())) != 384) return 1;
  frame[frame.size() - 2] = 0x34;
  frame[frame.size() - 1] = 0x12;

  unpacked_images_t images{};
  images.bLowImageRequest = true;
  CAlgo algo;
  const int status = algo.MergeImage(frame.data(), frame.size(), &images, nullptr);
  const bool merged = status >= 0 && images.ulLowImagePixels == 8 && images.pLowImage[7] == 0x1234;
  algo.FreeFramePointers(&images);
  std::printf("liborvacam %s: merged %d of 1 frame\n", ORVACAM_VERSION_STRING, merged ? 1 : 0);
  return merged ? 0 : 1;
}
