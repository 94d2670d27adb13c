#include <algorithm>
#include <cmath>

#include "science/CalibrationDraft.h"
#include "science/Refused.h"

namespace orvacam::science {

namespace {

constexpr double pedestalNoise = 6;    // deviations of the high plane's noise
constexpr double largestFactor = 64;   // what 10 fraction bits leave room for
constexpr double high12 = 4095;        // where a high-gain pixel saturates
constexpr double mostPedestal = 4095;  // what 16 bits with 3 of fraction hold

/// What the flats show; its error is that of the frames, and of the offset, which is known to a part of its
/// file's step.
Estimate measuredRatio(const CalibrationDraft& draft) {
  std::vector<double> ratios;
  double mean = 0;
  for (const auto& level : draft.survey.levels)
    ratios.push_back(level[1] / level[0]);
  const auto frames = static_cast<double>(ratios.size());
  for (const double ratio : ratios)
    mean += ratio / frames;
  double squares = 0;
  for (const double ratio : ratios)
    squares += (ratio - mean) * (ratio - mean);
  const double step = draft.source.dark.empty() ? 1 : 1 / dsnuTerms().one;
  const double offset = step / 2 / std::sqrt(12.0);
  const auto& level = draft.survey.levels.front();
  return {mean, std::hypot(std::sqrt(squares / (frames - 1) / frames), mean * offset / level[0],
                           mean * offset / level[1])};
}

/// The terms of a plane, neutral in the rows ahead of the frames' first one.
class Terms {
 public:
  Terms(const CalibrationDraft& draft, FixedPoint format, double neutral) : m_format(format) {
    const std::size_t ahead = std::size_t{draft.survey.planeHeader->start_row()} * draft.survey.size.width;
    m_terms.reserve(ahead + draft.pixels());
    m_terms.assign(ahead, m_format(neutral));
  }
  /// The unit is that of what is corrected: a factor of the terms.
  void add(double term, double unit = 1) {
    m_terms.push_back(m_format(term));
    m_squares += square((m_format.back(m_terms.back()) - term) / unit);
  }
  /// What rounding leaves, as a deviation.
  double rounding(const CalibrationDraft& draft) const {
    return std::sqrt(m_squares / static_cast<double>(draft.pixels()));
  }
  std::uint64_t clipped() const { return m_format.clipped; }
  const std::vector<std::uint16_t>& all() const { return m_terms; }

 private:
  FixedPoint m_format;
  double m_squares = 0;
  std::vector<std::uint16_t> m_terms;
};

Terms offsetsOf(const CalibrationDraft& draft, unsigned p) {
  const bool bias = draft.source.kind == CalibrationKind::bias;
  const double ratio = p == 1 ? 1 : draft.result.usedRatio;
  const double pedestal = bias ? 0 : draft.result.pedestal / ratio;
  Terms terms(draft, bias ? biasTerms() : dsnuTerms(), 0);
  for (const float mean : draft.maps[p].means)
    terms.add(bias ? double{mean} : pedestal - mean);
  return terms;
}

/// With mean 1; 1 for dead pixels and outside of the image.
std::vector<double> correctionsOf(const CalibrationDraft& draft, unsigned p) {
  const std::vector<float>& responses = draft.maps[p].means;
  const std::vector<std::uint8_t>& mask = draft.result.planes[p].mask;
  double sum = 0, count = 0;
  draft.eachImagePixel([&](std::size_t pixel) {
    if ((mask[pixel] & Dead) != 0) return;
    sum += 1 / double{responses[pixel]};
    count += 1;
  });
  std::vector<double> corrections(draft.pixels(), 1);
  draft.eachImagePixel([&](std::size_t pixel) {
    if ((mask[pixel] & Dead) == 0) corrections[pixel] = count / sum / responses[pixel];
  });
  return corrections;
}

Terms factorsOf(const CalibrationDraft& draft, unsigned p) {
  const std::vector<double> corrections = correctionsOf(draft, p);
  const double ratio = p == 1 ? 1 : draft.result.usedRatio;
  const double largest = ratio * *std::max_element(corrections.begin(), corrections.end());
  if (largest >= largestFactor)
    throw Refused("", "a low-gain pixel needs the factor " + fixedText(largest, 3) + " (the ratio of " +
                          fixedText(ratio, 3) +
                          " times its correction), and the merge takes factors below 64");
  Terms terms(draft, prnuTerms(), ratio);
  for (const double correction : corrections)
    terms.add(ratio * correction, ratio);
  return terms;
}

}  // namespace

void setRatio(CalibrationDraft& draft) {
  draft.result.tableRatio = draft.survey.merge.gain_ratio;
  if (draft.flat()) draft.result.measuredRatio = measuredRatio(draft);
  draft.result.usedRatio = draft.source.measuredRatio ? draft.result.measuredRatio.value
                                                      : draft.source.ratio.value_or(draft.result.tableRatio);
  if (draft.result.usedRatio >= largestFactor)
    throw Refused("", "the gain ratio of " + fixedText(draft.result.usedRatio, 3) +
                          " does not fit the merge, which takes factors below 64");
}

/// High-gain pixels that saturate must reach the merge's threshold; what lies lower than the noise must not
/// be cut off.
void setPedestal(CalibrationDraft& draft) {
  double darkest = 0;  // the highest dark of pixels that are not listed
  const std::vector<float>& means = draft.maps[1].means;
  draft.eachImagePixel([&](std::size_t pixel) {
    if (draft.result.planes[1].mask[pixel] == 0) darkest = std::fmax(darkest, means[pixel]);
  });
  const double threshold = draft.source.highThreshold.value_or(draft.survey.merge.high_threshold);
  const double smallest = std::fmax(0, std::ceil(threshold - high12 + darkest));
  if (smallest > mostPedestal)
    throw Refused("", "the merge's high threshold of " + fixedText(threshold, 0) + " takes a pedestal of " +
                          fixedText(smallest, 0) + ", and a DSNU file holds " + fixedText(mostPedestal, 0) +
                          " at most");
  const double usual = std::ceil(pedestalNoise * draft.result.planes[1].noise.value);
  draft.result.smallestPedestal = static_cast<unsigned>(smallest);
  const double own = std::fmin(std::fmax(smallest, usual), mostPedestal);
  draft.result.pedestal = draft.source.pedestal.value_or(static_cast<unsigned>(own));
  if (draft.result.pedestal < draft.result.smallestPedestal)
    throw Refused("", "a pedestal of " + std::to_string(draft.result.pedestal) +
                          " is too small: a high-gain pixel that saturates would reach " +
                          fixedText(high12 + draft.result.pedestal - darkest, 1) +
                          ", and the merge's high threshold is " + fixedText(threshold, 0) +
                          "; the smallest that serves is " + std::to_string(draft.result.smallestPedestal));
}

void makeFile(CalibrationDraft& draft) {
  Calibration& result = draft.result;
  ReferenceHeader facts;
  facts.gainRatio = draft.source.kind == CalibrationKind::bias
                        ? draft.survey.planeHeader->number("MergeGainRatio") / 1000
                        : result.usedRatio;
  facts.pedestal = result.pedestal;
  std::string file = referenceHeader(*draft.survey.planeHeader, facts);
  const double unit = draft.flat() ? 100 : 1;  // percent
  for (unsigned p = 0; p < draft.maps.size(); ++p) {
    const Terms terms = draft.flat() ? factorsOf(draft, p) : offsetsOf(draft, p);
    CalibratedPlane& plane = result.planes[p];
    plane.clipped = terms.clipped();
    plane.after = std::hypot(plane.after, unit * terms.rounding(draft));
    appendTerms(file, terms.all());
  }
  result.file = std::move(file);
}

}  // namespace orvacam::science
