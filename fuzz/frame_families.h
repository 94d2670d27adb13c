#ifndef ORVACAM_FUZZ_FRAME_FAMILIES_H
#define ORVACAM_FUZZ_FRAME_FAMILIES_H

#include <orvacam.h>

#include <array>

#include "fuzz_support.h"

/// What tells the families of sensors apart: their models, and the decoding steps that derived classes can
/// call, each into planes of exactly the size that it is told.
namespace fuzz::families {

struct Planes {
  explicit Planes(Input& input) : low(input.upTo(600)), high(input.upTo(600)) {}
  Pixels low, high;
};

struct gsense400 : CFrameGSense400 {
  static constexpr std::array models = {"VS400"};
  void decode(Input& input) {
    Planes p(input);
    DoUnpackHDR(p.low.data(), p.low.size(), p.high.data(), p.high.size());
  }
};

struct gsense2020 : CFrameGSense2020 {
  static constexpr std::array models = {"VS2020"};
  void decode(Input& input) {
    Planes p(input);
    DoUnpack(p.low.data(), p.low.size(), p.high.data(), p.high.size());
    DoUnpackSingle(p.low.data(), p.low.size());
    DoUnpackCMS(p.high.data(), p.high.size());
    DoUnpackSingle13to16(p.low.data(), p.low.size());
  }
};

struct gsense4040 : CFrameGSense4040 {
  static constexpr std::array models = {"VS4040"};
  void decode(Input& input) {
    Planes p(input);
    DoUnpack(p.low.data(), p.low.size(), p.high.data(), p.high.size());
    DoUnpackSingle(p.low.data(), p.low.size());
  }
};

struct gsense6060 : CFrameGSense6060 {
  static constexpr std::array models = {"VS6060"};
  void decode(Input& input) {
    Planes p(input);
    DoUnpack12(p.low.data(), p.low.size(), p.high.data(), p.high.size());
    DoUnpackSingle(p.low.data(), p.low.size());
  }
};

struct ccd : CFrameArgent23084 {
  static constexpr std::array models = {"ARGENT 230-42", "ARGENT 230-84", "ARGENT 4320"};
  void decode(Input& input) {
    Planes p(input);
    DoUnpackFourQuadrantRead(p.low.data(), p.low.size());
    DoUnpackSingleQuadrantRead(p.low.data(), p.low.size());
    DoUnpackSingleUpperLeft(p.low.data(), p.low.size());
    DoUnpackSingleUpperRight(p.high.data(), p.high.size());
    DoUnpackSingleLowerLeft(p.low.data(), p.low.size());
    DoUnpackSingleLowerRight(p.high.data(), p.high.size());
  }
};

struct plain : CFrameGeneric {
  static constexpr std::array models = {"IMX183", "PLAIN", "", "\xFF"};
  void decode(Input& input) {
    Planes p(input);
    UnpackImage12to16(p.low.data(), p.low.size());
  }
};

}  // namespace fuzz::families

#endif  // ORVACAM_FUZZ_FRAME_FAMILIES_H
