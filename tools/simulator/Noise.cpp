#include "Noise.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace orvacam::simulator {

namespace {

constexpr int octaves = 40;  // the rarest number that the table tells apart: once in 2^40
constexpr int cells = 64;    // of an octave

/// For a probability p, the deviation that a normal number passes (up or down) with it. Between 2^-(n+1) and
/// 2^-n the probabilities stand in equal steps, so that the tails are as exact as the middle.
class Quantiles {
 public:
  Quantiles() {
    // Nodes every 1/1024 deviation; the density by recurrence, its integral by Simpson's rule.
    constexpr int nodes = 8 * 1024;
    constexpr double half = 1.0 / 2048;
    const auto small = [](double x) { return 1 - x + x * x / 2 - x * x * x / 6; };  // exp(-x)
    std::vector<double> density(2 * nodes + 1, 0.3989422804014327);
    double factor = small(half * half / 2);
    const double fall = small(half * half);
    for (std::size_t i = 1; i < density.size(); ++i, factor *= fall)
      density[i] = density[i - 1] * factor;
    double passed = 2 * density.back() / 8 * (1 - 1.0 / 64 + 3.0 / 4096);
    std::size_t next = 0;
    for (std::size_t i = nodes; i-- > 0;) {
      const double step = 2 * half / 3 * (density[2 * i] + 4 * density[2 * i + 1] + density[2 * i + 2]);
      for (; next < m_deviations.size() - 1 && probability(next) <= passed + step; ++next)
        m_deviations[next] = (static_cast<double>(i) + 1 - (probability(next) - passed) / step) / 1024;
      passed += step;
    }
    for (; next < m_deviations.size(); ++next)  // probability 1
      m_deviations[next] = 0;
  }

  /// The deviation for (u + 1/2) / 2^63.
  double operator()(std::uint64_t u) const {
    u |= std::uint64_t{1} << (63 - octaves);
    const int octave = __builtin_clzll(u) - 1;
    const std::uint64_t mantissa = u << (octave + 2);  // without its leading one
    const std::size_t cell =
        static_cast<std::size_t>(octaves - 1 - octave) * cells + static_cast<std::size_t>(mantissa >> 58);
    const double fraction = static_cast<double>((mantissa << 6) >> 11) / 9007199254740992.0;
    return m_deviations[cell] + (m_deviations[cell + 1] - m_deviations[cell]) * fraction;
  }

 private:
  static double probability(std::size_t cell) {
    double power = 1;
    for (std::size_t octave = cell / cells; octave < octaves; ++octave)
      power /= 2;
    return power * (1 + static_cast<double>(cell % cells) / cells);
  }

  std::array<double, std::size_t{octaves} * cells + 1> m_deviations{};
};

/// exp(-x) for x from 0 to 16.
double decay(double x) {
  const double y = x / 1024;
  double power = 1 - y * (1 - y / 2 * (1 - y / 3 * (1 - y / 4 * (1 - y / 5))));
  for (int i = 0; i < 10; ++i)
    power *= power;
  return power;
}

}  // namespace

double normalOf(std::uint64_t bits) {
  static const Quantiles quantiles;
  const double deviation = quantiles(bits >> 1);
  return (bits & 1) != 0 ? -deviation : deviation;
}

double poissonOf(double mean, std::uint64_t bits) {
  if (!(mean > 0)) return 0;
  if (mean < 12) {
    double probability = decay(mean);
    double below = probability;
    const double wanted = uniformOf(bits);
    double count = 0;
    while (below <= wanted && count < 80) {
      count += 1;
      probability *= mean / count;
      below += probability;
    }
    return count;
  }
  // A normal number bent to the skewness of the distribution. Bending and rounding add 1/18 and 1/12 to the
  // variance.
  const double z = normalOf(bits);
  const double spread = std::sqrt(mean - 1.0 / 18 - 1.0 / 12);
  return std::max(0.0, std::floor(mean + spread * z + (z * z - 1) / 6 + 0.5));
}

}  // namespace orvacam::simulator
