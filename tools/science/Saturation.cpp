#include <cmath>
#include <optional>

#include "science/TransferSteps.h"

namespace orvacam::science {

namespace {

constexpr double coarseLevels = 0.1;  // between two of them, a part of the signal

/// EMVA 1288 puts saturation where the temporal variance is greatest. From the brightest point down: the
/// greatest variance before it falls again by more than its error. Where all points are alike or rise to the
/// last, saturation was not reached, unless the brightest is at full scale.
std::optional<std::size_t> saturationPoint(const PlaneTransfer& plane) {
  std::optional<std::size_t> best;
  bool fell = false;  // brighter points have less variance
  const auto differs = [&](const CurvePoint& more, const CurvePoint& less) {
    return more.moments.variance - less.moments.variance >
           3 * std::hypot(more.moments.varianceError, less.moments.varianceError);
  };
  for (std::size_t i = plane.curve.size(); i-- > 0;) {
    const CurvePoint& point = plane.curve[i];
    if (point.between) continue;
    if (!best) {
      best = i;
    } else if (point.moments.variance > plane.curve[*best].moments.variance) {
      fell = fell || differs(point, plane.curve[*best]);
      best = i;
    } else if (differs(plane.curve[*best], point)) {
      break;
    }
  }
  if (best && !fell && plane.curve[*best].moments.atFull <= fewPixels) return std::nullopt;
  return best;
}

/// Distance to the next brighter point: the true saturation lies within, on the mean square a third of it
/// away.
double gapAbove(const PlaneTransfer& plane, std::size_t i) {
  return i + 1 < plane.curve.size() ? plane.curve[i + 1].signal - plane.curve[i].signal : 0;
}

}  // namespace

void findSaturation(PlaneTransfer& plane) {
  const auto at = saturationPoint(plane);
  if (!at) {
    say(plane, "saturation_e",
        "The flats do not reach saturation: the noise does not fall again towards the brightest flat. "
        "Saturation capacity and dynamic range are not known.");
    return;
  }
  const CurvePoint& point = plane.curve[*at];
  if (point.signal <= 0) {
    say(plane, "saturation_e", "No flat between the darks and saturation: saturation is not known.");
    return;
  }
  const double gap = gapAbove(plane, *at);
  plane.saturationAdu = {point.signal, gap / std::sqrt(3.0)};
  if (gap > coarseLevels * point.signal)
    say(plane, "saturation_e",
        "Saturation lies between the levels of " + number(point.signal) + " and " +
            number(point.signal + gap) + " ADU; the lower one is given, and saturation may be up to " +
            number(100 * gap / point.signal) + " % more. Levels closer together there make it sharp.");
  for (std::size_t i = 0; i < plane.curve.size(); ++i)
    plane.curve[i].saturated = i > *at;
}

}  // namespace orvacam::science
