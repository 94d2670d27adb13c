#ifndef ORVACAM_SRC_FACE_COMBINE_H
#define ORVACAM_SRC_FACE_COMBINE_H

#include <orvacam_c.h>

#include <cstddef>

namespace orvacam::face {

/// Throws bad_argument for what is no method of stacking.
void requireMethod(int method);
/// Throws bad_argument unless both are above 0.
void requireSigma(double low, double high);

/// Combines columns as orva_combine says, whose arguments these are. Throws Failure, std::bad_alloc.
void combine(const orva_combining& how, int type, const void* const* rows, std::size_t frames,
             std::size_t count, const orva_combined& out);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_COMBINE_H
