#ifndef ORVACAM_FILES_STRETCH_H
#define ORVACAM_FILES_STRETCH_H

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "files/Raster.h"

namespace orvacam::files {

enum class StretchKind { Auto, Asinh, Linear };

/// "auto", "asinh", "linear"; none for another name.
std::optional<StretchKind> stretchNamed(std::string_view name);

/// How pixel values become brightnesses from 0 to 255: made from a plane's image region, then the same for
/// every pixel of it, and for means of pixels.
class Stretch {
 public:
  /// `white` is the largest value that means something.
  Stretch(const Image<std::uint16_t>& plane, const Region& image, double white, StretchKind kind);
  std::uint8_t at(double value) const;

 private:
  enum class Curve { Flat, Linear, Midtone, Asinh } m_curve;
  double m_from = 0, m_to = 1, m_midtone = 0.5;
};

/// An 8-bit picture.
struct Picture {
  Size size{};
  std::vector<std::uint8_t> pixels;
  Raster raster() const { return {size, Raster::U8, pixels.data()}; }
};

/// The region of a plane, scaled down by area until its longer side is at most `longest` (never up),
/// stretched.
Picture pictureOf(const Image<std::uint16_t>& plane, const Region& region, std::uint32_t longest,
                  const Stretch& stretch);

/// The median of the region's values: the mean of the middle two where they are two.
double medianOf(const Image<std::uint16_t>& plane, const Region& region);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_STRETCH_H
