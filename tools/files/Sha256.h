#ifndef ORVACAM_FILES_SHA256_H
#define ORVACAM_FILES_SHA256_H

#include <cstddef>
#include <string>

namespace orvacam::files {

/// The SHA-256 of some bytes, as FIPS 180-4 has it: 64 hexadecimal digits.
std::string sha256(const void* bytes, std::size_t length);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_SHA256_H
