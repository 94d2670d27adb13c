#ifndef ORVACAM_TESTS_ROBUSTNESS_FRAMES_H
#define ORVACAM_TESTS_ROBUSTNESS_FRAMES_H

#include <string>
#include <vector>

#include "simulator/Encoder.h"
#include "simulator/Header.h"
#include "support/Cameras.h"
#include "support/Sanitized.h"

namespace robustness {

namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;

using cameras::Mode;
using cameras::modeNamed;
using cameras::Stream;

/// A mode for each way through the code: the others are a CCD's single amplifiers and what a plain camera
/// ignores.
inline const std::vector<Mode> families = cameras::modesThat([](const Mode& mode) {
  return (mode.stream != Stream::Ccd || mode.quadrants == 0x3C) &&
         (mode.stream != Stream::Plain || !mode.hdr);
});

/// A small frame.
inline sim::HeaderFields fieldsOf(const Mode& mode, unsigned int width = 10, unsigned int height = 4) {
  sim::HeaderFields fields;
  fields.model = std::string(mode.model) + ", longer than a short text";
  fields.dataBits = mode.bits;
  fields.sensorBits = mode.bits;
  fields.hdr = mode.hdr;
  fields.correlatedMultipleSampling = mode.stream == Stream::Sampled;
  fields.width = width;
  fields.height = height;
  fields.quadrants = mode.quadrants;
  fields.lowGain = 1;
  fields.highGain = 2;
  if (mode.stream == Stream::Packed) {
    fields.preRefRows = 1;
    fields.postRefPixels = 2;
  }
  return fields;
}

/// A frame whose pixels all differ from zero.
inline Bytes frameOf(const sim::HeaderFields& fields, unsigned int version = 3) {
  const sim::Layout layout = sim::layoutOf(fields);
  unsigned int state = 1;
  const auto planes = sim::makePlanes(layout, [&](const sim::PixelPlace&) {
    state = state * 1664525u + 1013904223u;
    return static_cast<std::uint16_t>(1 + (state >> 16) % 4000);
  });
  return sim::encodeFrame(fields, version, planes);
}

/// A reference file for frames of a size: the header, then two planes of one term each.
inline Bytes referenceOf(unsigned int width, unsigned int height, unsigned short low, unsigned short high) {
  sim::HeaderFields fields;
  fields.width = width;
  fields.height = height;
  Bytes bytes = sim::writeHeader(fields, 3);
  for (const unsigned short term : {low, high})
    for (unsigned int i = 0; i < width * height; ++i) {
      bytes.push_back(static_cast<unsigned char>(term & 255));
      bytes.push_back(static_cast<unsigned char>(term >> 8));
    }
  return bytes;
}

/// Cameras of every device type, and one that is none.
inline constexpr const char* models[] = {
    "VESTRA VS400",  "VESTRA VS2020", "VESTRA VS4040", "VESTRA VS6060",    "ARGENT 230-42",
    "ARGENT 230-84", "ARGENT 4320",   "VESTRA IMX183", "LUMORA 420 LSGEN", "VESTRA PLAIN"};

/// A file of 2 KiB whose header claims a size.
inline Bytes claim(const char* model, unsigned int version, unsigned int width, unsigned int height, bool hdr,
                   unsigned int bits) {
  sim::HeaderFields fields;
  fields.model = model;
  fields.width = width;
  fields.height = height;
  fields.hdr = hdr;
  fields.dataBits = fields.sensorBits = bits;
  fields.quadrants = 0x3C;
  Bytes bytes = sim::writeHeader(fields, version);
  bytes.resize(2048, 0x11);
  return bytes;
}

}  // namespace robustness

#endif  // ORVACAM_TESTS_ROBUSTNESS_FRAMES_H
