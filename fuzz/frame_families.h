#ifndef ORVACAM_FUZZ_FRAME_FAMILIES_H
#define ORVACAM_FUZZ_FRAME_FAMILIES_H

#include <orvacam.h>

#include <memory>

#include "fuzz_support.h"

/// What tells the families of sensors apart: their models, and the decoding steps that derived classes can
/// call, each into planes of exactly the size that it is told.
namespace fuzz::families {

struct Planes {
  explicit Planes(Input& input) : low(input.upTo(600)), high(input.upTo(600)) {}
  Pixels low, high;
};

struct gsense400 : CFrameGSense400 {
  void decode(Input& input) {
    Planes p(input);
    DoUnpackHDR(p.low.data(), p.low.size(), p.high.data(), p.high.size());
  }
};

struct gsense2020 : CFrameGSense2020 {
  void decode(Input& input) {
    Planes p(input);
    DoUnpack(p.low.data(), p.low.size(), p.high.data(), p.high.size());
    DoUnpackSingle(p.low.data(), p.low.size());
    DoUnpackCMS(p.high.data(), p.high.size());
    DoUnpackSingle13to16(p.low.data(), p.low.size());
  }
};

struct gsense4040 : CFrameGSense4040 {
  void decode(Input& input) {
    Planes p(input);
    DoUnpack(p.low.data(), p.low.size(), p.high.data(), p.high.size());
    DoUnpackSingle(p.low.data(), p.low.size());
  }
};

struct gsense6060 : CFrameGSense6060 {
  void decode(Input& input) {
    Planes p(input);
    DoUnpack12(p.low.data(), p.low.size(), p.high.data(), p.high.size());
    DoUnpackSingle(p.low.data(), p.low.size());
  }
};

struct ccd : CFrameArgent23084 {
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
  void decode(Input& input) {
    Planes p(input);
    UnpackImage12to16(p.low.data(), p.low.size());
  }
};

/// A frame as a family decodes it, by every step in turn.
template <typename Family>
void decodeAs(const CFrameMetaData& metaData, Bytes& bytes, Input& input) {
  struct Steps : Family {
    void all(const CFrameMetaData& header, Bytes& source, Input& sizes) {
      this->Initialize(header, source.data(), source.size(), nullptr);
      this->EnableMergeStatistics(sizes.flag());
      this->decode(sizes);
      Pixels out(sizes.upTo(600));
      this->UnpackImage12to16(out.data(), out.size());
    }
  };
  const std::unique_ptr<Steps> steps(new Steps);  // not make_unique, which clears megabytes first
  steps->all(metaData, bytes, input);
}

struct Model {
  const char* name;
  void (*decode)(const CFrameMetaData& metaData, Bytes& bytes, Input& input);
};
/// The first byte of an input is an index of this table.
constexpr Model models[] = {
    {"VS400", decodeAs<gsense400>},   {"VS2020", decodeAs<gsense2020>},
    {"VS4040", decodeAs<gsense4040>}, {"VS6060", decodeAs<gsense6060>},
    {"ARGENT 230-42", decodeAs<ccd>}, {"ARGENT 230-84", decodeAs<ccd>},
    {"ARGENT 4320", decodeAs<ccd>},   {"IMX183", decodeAs<plain>},
    {"PLAIN", decodeAs<plain>},       {"", decodeAs<plain>},
    {"\xFF", decodeAs<plain>},
};

}  // namespace fuzz::families

#endif  // ORVACAM_FUZZ_FRAME_FAMILIES_H
