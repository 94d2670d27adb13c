// A frame of the input's pixels, encoded by the simulator and decoded by the library: what comes out is what
// went in.

#include <orvacam.h>

#include <cstring>

#include "fuzz_support.h"
#include "simulator/Encoder.h"

namespace {

namespace sim = orvacam::simulator;

sim::HeaderFields fieldsOf(const std::uint8_t* data) {
  constexpr const char* models[] = {"VS400", "VS2020", "VS4040", "VS6060", "ARGENT 230-84", "IMX183"};
  sim::HeaderFields f;
  f.model = models[data[0] % 6];
  const bool gsense = data[0] % 6 < 4;
  f.hdr = gsense && (data[1] & 1) != 0;
  f.dataBits = f.sensorBits = gsense ? 12 : 16;
  f.width = 2 + 2 * (data[2] % 40u);
  f.height = 1 + data[3] % 20u;
  f.quadrants = data[4] % 2 != 0 ? 0x3C : 4u << data[4] % 4;
  if (f.quadrants == 0x3C) f.height += f.height % 2;  // the middle row of an odd height is not read
  if (gsense) {
    f.postRefPixels = 2 * (data[5] % 4u);
    f.preRefRows = data[6] % 3u;
  }
  return f;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 16) return 0;
  const sim::HeaderFields fields = fieldsOf(data);
  const sim::Layout layout = sim::layoutOf(fields);
  std::size_t next = 7;
  const std::vector<sim::Plane> planes = sim::makePlanes(layout, [&](const sim::PixelPlace&) {
    const unsigned int value = static_cast<unsigned int>(data[next % size] << 8 | data[(next + 5) % size]);
    next += 3;
    return static_cast<std::uint16_t>(layout.packing == sim::Packing::Packed12 ? value & 4095 : value);
  });
  std::vector<unsigned char> frame = sim::encodeFrame(fields, 1 + data[1] % 4u, planes);

  CAlgo algo;
  unpacked_images_t images{};
  images.bLowImageRequest = images.bHighImageRequest = true;
  const int status = algo.MergeImage(frame.data(), frame.size(), &images, nullptr);
  const std::size_t pixels = planes[0].size();
  if (fields.model == "IMX183" || pixels <= images.ulLowImagePixels) {
    FUZZ_REQUIRE(status == 0 ||
                 data[1] % 4u < 2);  // versions 1 and 2 fix the reference pixels of some cameras
    if (status == 0 && data[1] % 4u >= 2) {
      FUZZ_REQUIRE(std::memcmp(images.pLowImage, planes[0].data(), 2 * pixels) == 0);
      if (planes.size() == 2) FUZZ_REQUIRE(std::memcmp(images.pHighImage, planes[1].data(), 2 * pixels) == 0);
    }
  }
  algo.FreeFramePointers(&images);
  return 0;
}
