#ifndef ORVACAM_SCIENCE_ROBUST_ROWS_H
#define ORVACAM_SCIENCE_ROBUST_ROWS_H

#include <cstdint>
#include <orvacam.hpp>
#include <vector>

namespace orvacam::science {

/// How much a pixel may vary from frame to frame: what the camera's other pixels do, so that a cosmic ray
/// shows even among three frames.
struct NoiseModel {
  double variance = 0;    ///< temporal, of an ordinary pixel
  double level = 0;       ///< of an ordinary pixel
  double perCount = 0;    ///< variance that every count above that level adds: 1 / (electrons per count)
  bool relative = false;  ///< values are of a flat, 1 on average: the variance goes with the value

  double at(double value) const;
};

/// What a row of a plane has in its image pixels; rows add up in any grouping.
struct RowSums {
  std::uint64_t rejected = 0;                          ///< values
  double temporal = 0, freedom = 0;                    ///< sum of squares; degrees of freedom
  double halves = 0, halfSquares = 0, halfPixels = 0;  ///< even frames' mean less odd frames'
  std::uint64_t blinking = 0;
};

/// Combines the rows of many frames, pixel by pixel. Values more than 4 deviations from the median are left
/// out (of two frames: more than 4 sqrt(2) above the lower one), the others averaged. A pixel is blinking
/// when a tenth of the frames, two at least, lie more than 5 deviations off, which takes four frames. From a
/// quarter of them on its mean is that of all; below, these may be cosmic rays.
class RowCombiner {
 public:
  explicit RowCombiner(std::size_t width);

  /// Rows of std::uint16_t or double. Pixels `first` to `last` are image pixels and counted in the sums.
  template <class Pixel>
  RowSums combine(const std::vector<const Pixel*>& rows, const NoiseModel& noise, std::uint32_t first,
                  std::uint32_t last);

  const std::vector<float>& means() const { return m_means; }
  /// Deviation over all frames of blinking pixels, 0 of others.
  const std::vector<float>& blinking() const { return m_blinking; }

 private:
  template <class Pixel>
  void findCentres(const std::vector<const Pixel*>& rows);
  template <class Pixel>
  void average(const std::vector<const Pixel*>& rows);
  template <class Pixel>
  void takeBlinking(const std::vector<const Pixel*>& rows, std::size_t x);
  RowSums summed(const NoiseModel& noise, std::size_t frames, std::uint32_t first, std::uint32_t last) const;

  struct Half {
    std::vector<double> sums, squares, counts;
  };
  std::vector<double> m_centres, m_limits, m_farLimits;
  Half m_halves[2];
  std::vector<std::uint32_t> m_far;
  std::vector<float> m_means, m_blinking;
};

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_ROBUST_ROWS_H
