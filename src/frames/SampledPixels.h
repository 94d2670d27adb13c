#ifndef ORVACAM_SRC_FRAMES_SAMPLED_PIXELS_H
#define ORVACAM_SRC_FRAMES_SAMPLED_PIXELS_H

#include <cstddef>
#include <cstdint>

#include "frames/FrameParts.h"

namespace orvacam {

/// Pixels of correlated multiple sampling come in groups of eight, in 13 bytes.

/// Bytes that are looked at for so many pixels.
std::uint64_t sampledBytes(std::uint64_t pixels);

/// Decodes so many pixels, or those that are whole; the number of pixels decoded.
std::size_t decodeSampled(SourceBytes source, unsigned short* target, std::size_t pixels);

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_SAMPLED_PIXELS_H
