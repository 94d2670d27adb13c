#ifndef ORVACAM_SRC_FACE_LIKENESS_H
#define ORVACAM_SRC_FACE_LIKENESS_H

#include <string>

#include "face/HeaderValues.h"

namespace orvacam::face {

/// What keeps a frame out of a stack with another one: the field's name and both values; "" for nothing. With
/// `sameKindOnly`, sensor, mode and size alone are looked at.
std::string unlikeness(const HeaderValues& first, const HeaderValues& frame, bool sameKindOnly);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_LIKENESS_H
