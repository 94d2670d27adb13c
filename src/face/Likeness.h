#ifndef ORVACAM_SRC_FACE_LIKENESS_H
#define ORVACAM_SRC_FACE_LIKENESS_H

#include <string>

#include "face/HeaderValues.h"

namespace orvacam::face {

/// What keeps a frame out of a stack with another one: the field's name and both values; "" for nothing.
/// `allowed` is an orva_allowance.
std::string unlikeness(const HeaderValues& first, const HeaderValues& frame, int allowed);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_LIKENESS_H
