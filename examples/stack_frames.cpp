// Averages the low-gain planes of raw frames of one camera and writes a TIFF file.
//
//   stack_frames OUT.tiff FRAME...

#include <orvacam.h>

#include <cstdio>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: stack_frames OUT.tiff FRAME...\n");
    return 2;
  }
  CAlgo algo;
  CStacker stacker;
  unpacked_images_t images{};  // kept between the frames, so that planes are allocated once
  images.bMetaDataRequest = images.bLowImageRequest = true;
  int status = 0;
  for (int i = 2; i < argc && status >= 0; ++i) {
    const std::wstring name = utilCharToWideStrStatic(argv[i]);
    status = algo.MergeFile(name.c_str(), &images, nullptr, nullptr, nullptr);
    if (status >= 0 && i == 2) status = stacker.Initialize(images.ulLowImagePixels);
    if (status >= 0) status = stacker.StackNextFrame(images.pLowImage, images.ulLowImagePixels);
  }

  unsigned short* mean = nullptr;
  unsigned int pixels = 0;
  unsigned char* header = nullptr;
  unsigned int headerLength = 0;
  CFrameMetaData stacked;
  if (status >= 0) status = stacker.Finish(&mean, nullptr, &pixels);
  if (status >= 0)
    status = stacker.GetStackedMetaData(images.pLowMetaData, images.uiMetaDataSize, &header, &headerLength);
  if (status >= 0) status = stacked.Parse(header, headerLength);
  if (status >= 0) {
    std::string path = argv[1];
    CTiffMaker tiff;
    status = tiff.CreateImageFile(path, mean, stacked);
  }
  algo.FreeFramePointers(&images);
  if (status < 0) std::fprintf(stderr, "stacking failed (status %d)\n", status);
  return status < 0 ? 1 : 0;
}
