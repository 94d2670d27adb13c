// The camera's calibration block, and everything that is derived from it.

#include <orvacam.h>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<unsigned char> bytes = fuzz::copyOf(data, size);
  CCameraNVMergeSettings calibration;
  FUZZ_REQUIRE(calibration.Initialize(bytes.data(), static_cast<unsigned int>(bytes.size())) == 0);

  double electrons = 0;
  calibration.GetNVElectronsPerCount(0, true, electrons);
  for (unsigned int device : {0x01000400u, 0x01002020u, 0x01004040u, 0x01006060u}) {
    gain_type_info_t camera{device, (size & 1) != 0};
    CMergeSettings settings;
    settings.Initialize(camera, &calibration);
    settings.GetGainRatio(0, 0);
    double ratio = 0;
    int offset = 0;
    unsigned int threshold = 0;
    for (unsigned int gain : {0u, 3u, 57u, 4000000000u})
      settings.CalculateMergeParams(gain, gain, 12.5, ratio, offset, threshold);
    settings.GenerateMergeMappingArrays(4, 1, 2, -3.0);
  }
  return 0;
}
