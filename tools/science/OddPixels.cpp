#include <algorithm>
#include <cmath>

#include "science/CalibrationDraft.h"
#include "science/Refused.h"

namespace orvacam::science {

namespace {

constexpr double hotFrom = 6, hotAtLeast = 1;  // robust deviations; counts
constexpr double leastResponse = 0.5, mostResponse = 2;

void findHot(CalibrationDraft& draft) {
  for (unsigned p = 0; p < draft.maps.size(); ++p) {
    const std::vector<float>& means = draft.maps[p].means;
    std::vector<float> values;
    draft.eachImagePixel([&](std::size_t pixel) { values.push_back(means[pixel]); });
    const double median = medianIn(values);
    for (float& value : values)
      value = std::fabs(value - static_cast<float>(median));
    const double limit = std::max(hotAtLeast, hotFrom * 1.4826 * medianIn(values));
    draft.eachImagePixel([&](std::size_t pixel) {
      const bool blinks = draft.result.planes[p].mask[pixel] != 0;
      if (!blinks && means[pixel] - median > limit) draft.list(p, pixel, Hot, means[pixel] - median);
    });
  }
}

/// Responses become parts of the mean response of pixels that are not dead.
void findDead(CalibrationDraft& draft) {
  for (unsigned p = 0; p < draft.maps.size(); ++p) {
    std::vector<float>& means = draft.maps[p].means;
    std::vector<float> values;
    draft.eachImagePixel([&](std::size_t pixel) { values.push_back(means[pixel]); });
    const double median = medianIn(values);
    if (!(median >= leastResponse && median <= mostResponse))
      throw Refused("", "the frames are no flats: half of the image pixels of the " + draft.survey.planes[p] +
                            " plane show less than " + fixedText(median, 2) + " of their mean light");
    double sum = 0, count = 0;
    for (const float value : values)
      if (value > leastResponse * median && value < mostResponse * median) {
        sum += value;
        count += 1;
      }
    const double mean = sum / count;
    for (float& value : means)
      value = static_cast<float>(value / mean);
    draft.eachImagePixel([&](std::size_t pixel) {
      if (means[pixel] < leastResponse || means[pixel] > mostResponse)
        draft.list(p, pixel, Dead, means[pixel]);
    });
  }
}

}  // namespace

double medianIn(std::vector<float>& values) {
  if (values.empty()) return unknown;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void CalibrationDraft::list(unsigned plane, std::size_t pixel, OddKind kind, double value) {
  const auto x = static_cast<std::uint32_t>(pixel % survey.size.width);
  const auto y = static_cast<std::uint32_t>(pixel / survey.size.width);
  const Region& image = survey.image;
  if (x < image.x || x >= image.x + image.width || y < image.y || y >= image.y + image.height) return;
  CalibratedPlane& of = result.planes[plane];
  of.mask[pixel] = static_cast<std::uint8_t>(of.mask[pixel] | kind);
  ++(kind == Hot ? of.hot : kind == Dead ? of.dead : of.blinking);
  result.oddPixels.push_back({plane, x, y, kind, value});
}

void findOddPixels(CalibrationDraft& draft) {
  if (draft.flat())
    findDead(draft);
  else
    findHot(draft);
}

}  // namespace orvacam::science
