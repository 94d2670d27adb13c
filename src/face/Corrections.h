#ifndef ORVACAM_SRC_FACE_CORRECTIONS_H
#define ORVACAM_SRC_FACE_CORRECTIONS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "face/FileBytes.h"
#include "face/FrameLook.h"
#include "face/Images.h"

namespace orvacam::face {

/// A reference file of the merge: two planes of 16-bit fixed-point terms.
struct ReferenceTerms {
  const char* what = "";  ///< "the DSNU reference"; a literal
  const char* sensor = "";
  std::uint32_t width = 0, height = 0;
  FileBytes terms;  ///< low, then high

  std::size_t count() const { return std::size_t{width} * height; }
  template <typename Term>
  const Term* low() const {
    return reinterpret_cast<const Term*>(terms.bytes.get());
  }
  template <typename Term>
  const Term* high() const {
    return low<Term>() + count();
  }
};

/// Reads one; null for no path. Throws Failure.
std::unique_ptr<const ReferenceTerms> readReference(const char* what, const char* path);

/// A correction frame: where it comes from, and what it covers of the sensor.
struct Coverage {
  std::string what;    ///< "the DSNU reference"
  const char* sensor;  ///< null where it does not say
  std::uint32_t width, height;
  std::uint32_t startRow;
};

/// The row of the correction frame that a frame's first row meets. Throws mismatch where it does not cover
/// the frame.
std::size_t rowOfFrame(const Coverage& correction, const FrameLook& frame);

Coverage coverageOf(const ReferenceTerms& reference);
Coverage coverageOf(const char* what, const orva_image& bias);

/// Throws mismatch unless both are of one size and sensor.
void requireAlike(const Coverage& one, const Coverage& other);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_CORRECTIONS_H
