#ifndef ORVACAM_SRC_FACE_KEYS_H
#define ORVACAM_SRC_FACE_KEYS_H

#include <orvacam_c.h>

#include <array>
#include <cstddef>

namespace orvacam::face {

/// The keys that have a name, by number.
constexpr std::size_t keyCount = 93;
extern const std::array<orva_key, keyCount> keys;

/// The key of a name. Throws Failure (bad_argument) for a name that none has.
const orva_key& keyOf(const char* name);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_KEYS_H
