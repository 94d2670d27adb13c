#ifndef ORVACAM_SRC_FACE_KEYS_H
#define ORVACAM_SRC_FACE_KEYS_H

#include <orvacam_c.h>

#include <cstddef>
#include <string_view>

namespace orvacam::face {

/// The keys that have a name, by number.
constexpr std::size_t keyCount = 93;
extern const orva_key keys[keyCount];

/// The key of a name. Throws Failure (bad_argument) for a name that none has.
const orva_key& keyOf(const char* name);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_KEYS_H
