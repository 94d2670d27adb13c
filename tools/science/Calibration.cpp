#include "science/Calibration.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <tuple>

#include "science/Refused.h"

namespace orvacam::science {

namespace {

constexpr double hotFrom = 6, hotAtLeast = 1;  // robust deviations; counts
constexpr double leastResponse = 0.5, mostResponse = 2;
constexpr double pedestalNoise = 6;   // deviations of the high plane's noise
constexpr double largestFactor = 64;  // what 10 fraction bits leave room for
constexpr double high12 = 4095;       // where a high-gain pixel saturates
constexpr std::size_t goodFrames = 10;
constexpr double mostOffset = 0.25;   // of full scale
constexpr double leastOffset = 3;     // deviations of a frame's noise
constexpr double offLevel = 4;        // of the same; beyond, values are left out
constexpr double longBias = 0.1;      // seconds
constexpr double poorCorrection = 1;  // percent

/// A plane of means and what is odd in it.
struct Map {
  std::vector<float> means;
  RowSums sums;
};

double medianIn(std::vector<float>& values) {
  if (values.empty()) return unknown;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Everything of one calibration while it is made.
class Maker {
 public:
  Maker(const CalibrationSource& source, const CalibrationSurvey& survey)
      : m_source(source), m_survey(survey) {
    m_result.kind = source.kind;
    m_result.frames = survey.levels.size();
    m_result.header = survey.header;
    m_result.size = survey.size;
    m_maps.resize(survey.planes.size());
    for (unsigned p = 0; p < survey.planes.size(); ++p) {
      CalibratedPlane plane;
      plane.name = survey.planes[p];
      if (survey.gains[p] > 0) plane.gain = survey.gains[p];
      plane.fullScale = survey.fullScale;
      plane.mask.assign(pixels(), 0);
      m_result.planes.push_back(std::move(plane));
      m_maps[p].means.reserve(pixels());
    }
  }

  void add(const CombinedRows& band) {
    for (unsigned p = 0; p < band.planes.size(); ++p) {
      const CombinedPlane& plane = band.planes[p];
      Map& map = m_maps[p];
      for (std::size_t i = 0; i < plane.blinking.size(); ++i)
        if (plane.blinking[i] > 0) list(p, map.means.size() + i, Blinking, plane.blinking[i]);
      map.means.insert(map.means.end(), plane.means.begin(), plane.means.end());
      for (const RowSums& row : plane.sums)
        addSums(map.sums, row);
    }
  }

  Calibration finish() {
    if (flat()) {
      setRatio();
      findDead();
    } else {
      findHot();
    }
    for (unsigned p = 0; p < m_maps.size(); ++p) {
      m_medianLevels[p] = medianLevel(p);
      describe(p);
    }
    if (m_source.kind == CalibrationKind::dark) {
      setRatio();
      setPedestal();
    }
    for (unsigned p = 0; p < m_maps.size(); ++p)
      makeTerms(p);
    assemble();
    warn();
    sortOdd();
    return std::move(m_result);
  }

 private:
  bool flat() const { return m_source.kind == CalibrationKind::flat; }
  std::size_t pixels() const { return std::size_t{m_survey.size.width} * m_survey.size.height; }
  bool inImage(std::uint32_t x, std::uint32_t y) const {
    const Region& image = m_survey.image;
    return x >= image.x && x < image.x + image.width && y >= image.y && y < image.y + image.height;
  }

  static void addSums(RowSums& all, const RowSums& row) {
    all.rejected += row.rejected;
    all.temporal += row.temporal;
    all.freedom += row.freedom;
    all.halves += row.halves;
    all.halfSquares += row.halfSquares;
    all.halfPixels += row.halfPixels;
    all.blinking += row.blinking;
  }

  void list(unsigned plane, std::size_t pixel, OddKind kind, double value) {
    const auto x = static_cast<std::uint32_t>(pixel % m_survey.size.width);
    const auto y = static_cast<std::uint32_t>(pixel / m_survey.size.width);
    if (!inImage(x, y)) return;
    CalibratedPlane& of = m_result.planes[plane];
    of.mask[pixel] = static_cast<std::uint8_t>(of.mask[pixel] | kind);
    ++(kind == Hot ? of.hot : kind == Dead ? of.dead : of.blinking);
    m_result.oddPixels.push_back({plane, x, y, kind, value});
  }

  /// Calls visit(pixel) for the image region.
  template <class Visit>
  void eachImagePixel(const Visit& visit) const {
    const Region& image = m_survey.image;
    for (std::uint32_t y = image.y; y < image.y + image.height; ++y)
      for (std::uint32_t x = image.x; x < image.x + image.width; ++x)
        visit(std::size_t{y} * m_survey.size.width + x);
  }

  void findHot() {
    for (unsigned p = 0; p < m_maps.size(); ++p) {
      const std::vector<float>& means = m_maps[p].means;
      std::vector<float> values;
      eachImagePixel([&](std::size_t pixel) { values.push_back(means[pixel]); });
      const double median = medianIn(values);
      for (float& value : values)
        value = std::fabs(value - static_cast<float>(median));
      const double limit = std::max(hotAtLeast, hotFrom * 1.4826 * medianIn(values));
      eachImagePixel([&](std::size_t pixel) {
        const bool blinks = m_result.planes[p].mask[pixel] != 0;
        if (!blinks && means[pixel] - median > limit) list(p, pixel, Hot, means[pixel] - median);
      });
    }
  }

  /// Responses become parts of the mean response of pixels that are not dead.
  void findDead() {
    for (unsigned p = 0; p < m_maps.size(); ++p) {
      std::vector<float>& means = m_maps[p].means;
      std::vector<float> values;
      eachImagePixel([&](std::size_t pixel) { values.push_back(means[pixel]); });
      const double median = medianIn(values);
      double sum = 0, count = 0;
      for (const float value : values)
        if (value > leastResponse * median && value < mostResponse * median) {
          sum += value;
          count += 1;
        }
      const double mean = sum / count;
      for (float& value : means)
        value = static_cast<float>(value / mean);
      eachImagePixel([&](std::size_t pixel) {
        if (means[pixel] < leastResponse || means[pixel] > mostResponse) list(p, pixel, Dead, means[pixel]);
      });
    }
  }

  // ---- What the frames say of a plane

  double medianLevel(unsigned p) const {
    std::vector<float> levels;
    for (const auto& level : m_survey.levels)
      levels.push_back(static_cast<float>(level[p]));
    return medianIn(levels);
  }

  void describe(unsigned p) {
    CalibratedPlane& plane = m_result.planes[p];
    const RowSums& sums = m_maps[p].sums;
    plane.rejected = sums.rejected;
    const double unit = flat() ? 100 : 1;                       // percent of the level
    Estimate temporal = {m_survey.noise[p].variance, unknown};  // where no pixel is ordinary
    if (sums.freedom > 0) {
      temporal.value = sums.temporal / sums.freedom;
      temporal.error = temporal.value * std::sqrt(2 / sums.freedom);
    }
    setLevel(p, temporal);
    setPattern(p, temporal, unit);
    plane.noise = rootOf(temporal);
    if (flat()) {  // from parts of the level to counts
      plane.noise.value *= plane.level.value;
      plane.noise.error *= plane.level.value;
    }
    plane.after = unit * std::sqrt(leftInMean(sums, temporal.value));
  }

  /// Variance that a mean of all frames still has: half of them against the other half. Where one half was
  /// left out (few frames, one of them spoilt), by the noise of what is left.
  double leftInMean(const RowSums& sums, double temporal) const {
    const auto frames = static_cast<double>(m_result.frames), pixels = static_cast<double>(imagePixels());
    if (sums.halfPixels < pixels / 2)
      return temporal / std::fmax(1, frames - static_cast<double>(sums.rejected) / pixels);
    const double even = std::ceil(frames / 2), odd = std::floor(frames / 2);
    const double mean = sums.halves / sums.halfPixels;
    return std::fmax(sums.halfSquares / sums.halfPixels - mean * mean, 0) * even * odd / (frames * frames);
  }

  /// Of the frames whose level is not off; the drift is that of all.
  void setLevel(unsigned p, const Estimate& temporal) {
    CalibratedPlane& plane = m_result.planes[p];
    std::vector<double> levels;
    double least = std::numeric_limits<double>::infinity(), most = -least, mean = 0, squares = 0;
    for (std::size_t i = 0; i < m_survey.levels.size(); ++i) {
      const double level = m_survey.levels[i][p];
      least = std::fmin(least, level);
      most = std::fmax(most, level);
      if (!isOff(i, p, std::sqrt(temporal.value))) levels.push_back(level);
    }
    plane.drift = most - least;
    const auto frames = static_cast<double>(levels.size());
    for (const double level : levels)
      mean += level / frames;
    for (const double level : levels)
      squares += (level - mean) * (level - mean);
    // Light that changes from flat to flat, or an offset that drifts, is more than the pixels' noise.
    const double scale = flat() ? mean : 1;
    const double noise = temporal.value * scale * scale / frames / static_cast<double>(imagePixels());
    plane.level = {mean, std::sqrt(std::fmax(noise, frames > 1 ? squares / (frames - 1) / frames : 0))};
  }

  /// Whether a frame lies so far from the others that its values are left out. Flats are measured in parts of
  /// their level.
  bool isOff(std::size_t frame, unsigned p, double noise) const {
    return !flat() && std::fabs(m_survey.levels[frame][p] - m_medianLevels[p]) > offLevel * noise;
  }

  std::uint64_t imagePixels() const { return std::uint64_t{m_survey.image.width} * m_survey.image.height; }

  /// The variance of the means over the image region, in parts of columns, rows and pixels, less the noise
  /// that a mean of these frames still has. Listed pixels count as the mean.
  void setPattern(unsigned p, const Estimate& temporal, double unit) {
    const Region& image = m_survey.image;
    const std::vector<float>& means = m_maps[p].means;
    const std::vector<std::uint8_t>& mask = m_result.planes[p].mask;
    const double width = image.width, height = image.height;
    double sum = 0, count = 0;
    eachImagePixel([&](std::size_t pixel) {
      if (mask[pixel] != 0) return;
      sum += means[pixel];
      count += 1;
    });
    const double mean = sum / count;
    std::vector<double> rows(image.height), columns(image.width);
    const auto off = [&](std::size_t pixel) { return mask[pixel] != 0 ? 0.0 : means[pixel] - mean; };
    eachImagePixel([&](std::size_t pixel) {
      rows[pixel / m_survey.size.width - image.y] += off(pixel) / width;
      columns[pixel % m_survey.size.width - image.x] += off(pixel) / height;
    });
    double rest = 0;
    eachImagePixel([&](std::size_t pixel) {
      const double r = off(pixel) - rows[pixel / m_survey.size.width - image.y] -
                       columns[pixel % m_survey.size.width - image.x];
      rest += r * r;
    });
    const auto part = [](double squares, double freedom) {
      return freedom > 0 ? Estimate{squares / freedom, squares / freedom * std::sqrt(2 / freedom)}
                         : Estimate{};
    };
    const auto squared = [](const std::vector<double>& values) {
      double all = 0;
      for (const double value : values)
        all += value * value;
      return all;
    };
    const Estimate white = part(rest, (width - 1) * (height - 1));
    const double noise = temporal.value / static_cast<double>(m_result.frames);
    CalibratedPlane& plane = m_result.planes[p];
    const auto scaled = [unit](Estimate variance, double less) {
      variance.value -= less;
      const Estimate root = rootOf(variance);
      return Estimate{unit * root.value, unit * root.error};
    };
    const Estimate column = part(squared(columns), width - 1), row = part(squared(rows), height - 1);
    plane.pixels = scaled(white, noise);
    plane.columns = scaled(column, white.value / height);
    plane.rows = scaled(row, white.value / width);
    const Estimate total = {white.value + column.value + row.value,
                            std::hypot(white.error, column.error, row.error)};
    plane.before = scaled(total, noise + white.value / height + white.value / width);
  }

  // ---- Terms

  void setRatio() {
    m_result.tableRatio = m_survey.merge.gain_ratio;
    if (flat()) {
      std::vector<double> ratios;
      double mean = 0;
      for (const auto& level : m_survey.levels)
        ratios.push_back(level[1] / level[0]);
      const auto frames = static_cast<double>(ratios.size());
      for (const double ratio : ratios)
        mean += ratio / frames;
      double squares = 0;
      for (const double ratio : ratios)
        squares += (ratio - mean) * (ratio - mean);
      // The offset is known to a part of its file's step.
      const double step = m_source.dark.empty() ? 1 : 1 / dsnuTerms().one;
      const double offset = step / 2 / std::sqrt(12.0);
      const auto& level = m_survey.levels.front();
      m_result.measuredRatio = {mean, std::hypot(std::sqrt(squares / (frames - 1) / frames),
                                                 mean * offset / level[0], mean * offset / level[1])};
    }
    m_result.usedRatio =
        m_source.measuredRatio ? m_result.measuredRatio.value : m_source.ratio.value_or(m_result.tableRatio);
    if (m_result.usedRatio >= largestFactor)
      throw Refused("", "the gain ratio of " + fixedText(m_result.usedRatio, 3) +
                            " does not fit the merge, which takes factors below 64");
  }

  /// High-gain pixels that saturate must reach the merge's threshold; what lies lower than the noise must not
  /// be cut off.
  void setPedestal() {
    double darkest = 0;  // the highest dark of pixels that are not listed
    const std::vector<float>& means = m_maps[1].means;
    eachImagePixel([&](std::size_t pixel) {
      if (m_result.planes[1].mask[pixel] == 0) darkest = std::fmax(darkest, means[pixel]);
    });
    const double threshold = m_source.highThreshold.value_or(m_survey.merge.high_threshold);
    const double smallest = std::fmax(0, std::ceil(threshold - high12 + darkest));
    const double usual = std::ceil(pedestalNoise * m_result.planes[1].noise.value);
    m_result.smallestPedestal = static_cast<unsigned>(smallest);
    m_result.pedestal = m_source.pedestal.value_or(static_cast<unsigned>(std::fmax(smallest, usual)));
    if (m_result.pedestal < m_result.smallestPedestal)
      throw Refused("", "a pedestal of " + std::to_string(m_result.pedestal) +
                            " is too small: a high-gain pixel that saturates would reach " +
                            fixedText(high12 + m_result.pedestal - darkest, 1) +
                            ", and the merge's high threshold is " + fixedText(threshold, 0) +
                            "; the smallest that serves is " + std::to_string(m_result.smallestPedestal));
  }

  void makeTerms(unsigned p) {
    m_format = m_source.kind == CalibrationKind::bias ? biasTerms() : flat() ? prnuTerms() : dsnuTerms();
    if (flat())
      makeCorrections(p);
    else
      makeOffsets(p);
    CalibratedPlane& plane = m_result.planes[p];
    plane.clipped = m_format.clipped;
    m_terms.push_back(std::move(m_plane));
  }

  void addTerms(double neutral) {
    m_plane.assign(std::size_t{m_survey.planeHeader->start_row()} * m_survey.size.width, m_format(neutral));
    m_plane.reserve(m_plane.size() + pixels());
  }

  void makeOffsets(unsigned p) {
    const bool bias = m_source.kind == CalibrationKind::bias;
    const double pedestal = bias ? 0 : p == 1 ? m_result.pedestal : m_result.pedestal / m_result.usedRatio;
    addTerms(0);
    double rounding = 0;
    for (const float mean : m_maps[p].means) {
      const double term = bias ? double{mean} : pedestal - mean;
      m_plane.push_back(m_format(term));
      const double error = m_format.back(m_plane.back()) - term;
      rounding += error * error;
    }
    addRounding(p, rounding, 1);
  }

  void makeCorrections(unsigned p) {
    const std::vector<float>& responses = m_maps[p].means;
    const std::vector<std::uint8_t>& mask = m_result.planes[p].mask;
    double sum = 0, count = 0;
    eachImagePixel([&](std::size_t pixel) {
      if ((mask[pixel] & Dead) != 0) return;
      sum += 1 / double{responses[pixel]};
      count += 1;
    });
    const double scale = count / sum;  // so that corrections have mean 1
    const double factor = p == 1 ? 1 : m_result.usedRatio;
    std::vector<double> corrections(pixels(), 1);
    double largest = 0;
    eachImagePixel([&](std::size_t pixel) {
      if ((mask[pixel] & Dead) == 0) corrections[pixel] = scale / responses[pixel];
      largest = std::fmax(largest, factor * corrections[pixel]);
    });
    if (largest >= largestFactor)
      throw Refused("", "a low-gain pixel needs the factor " + fixedText(largest, 3) + " (the ratio of " +
                            fixedText(factor, 3) +
                            " times its correction), and the merge takes factors below 64");
    addTerms(factor);
    double rounding = 0;
    for (const double correction : corrections) {
      m_plane.push_back(m_format(factor * correction));
      const double error = m_format.back(m_plane.back()) / factor - correction;
      rounding += error * error;
    }
    addRounding(p, rounding, 100);
  }

  void addRounding(unsigned p, double squares, double unit) {
    CalibratedPlane& plane = m_result.planes[p];
    plane.after = std::hypot(plane.after, unit * std::sqrt(squares / static_cast<double>(pixels())));
  }

  void assemble() {
    ReferenceHeader facts;
    facts.gainRatio = m_source.kind == CalibrationKind::bias
                          ? m_survey.planeHeader->number("MergeGainRatio") / 1000
                          : m_result.usedRatio;
    facts.pedestal = m_result.pedestal;
    m_result.file = referenceHeader(*m_survey.planeHeader, facts);
    for (const std::vector<std::uint16_t>& plane : m_terms)
      appendTerms(m_result.file, plane);
    m_terms.clear();
  }

  // ---- What a user should know

  void warn() {
    std::vector<std::string>& all = m_result.warnings;
    if (m_result.frames < goodFrames)
      all.push_back("made from " + std::to_string(m_result.frames) + " frames: ten or more are better");
    const double exposure = m_survey.header->exposure_seconds();
    if (m_source.kind == CalibrationKind::bias && exposure > longBias)
      all.push_back("these frames were exposed for " + fixedText(exposure, 3) +
                    " s: bias frames have the shortest exposure");
    for (const CalibratedPlane& plane : m_result.planes)
      if (plane.clipped > 0)
        all.push_back(std::to_string(plane.clipped) + " terms of the " + plane.name +
                      " plane do not fit the file's numbers and were cut off");
    if (flat())
      warnOfFlats();
    else
      warnOfLevels();
    warnOfFrames();
  }

  /// Of offsets that hardly are some.
  void warnOfLevels() {
    for (const CalibratedPlane& plane : m_result.planes) {
      const std::string where = "the " + plane.name + " plane's offset of " + fixedText(plane.level.value, 1);
      if (plane.level.value > mostOffset * plane.fullScale)
        m_result.warnings.push_back(where + " is more than a quarter of full scale, " +
                                    fixedText(plane.fullScale, 0) + ": were these frames taken in the dark?");
      if (plane.level.value < leastOffset * plane.noise.value || plane.level.value == 0)
        m_result.warnings.push_back(where + " is below three times the noise of a frame, " +
                                    fixedText(plane.noise.value, 1) + ": noise is cut off at 0");
    }
  }

  /// Of frames that were left out as a whole, or nearly.
  void warnOfFrames() {
    std::string names;
    for (std::size_t i = 0; i < m_survey.levels.size(); ++i)
      for (unsigned p = 0; p < m_result.planes.size(); ++p)
        if (isOff(i, p, m_result.planes[p].noise.value)) {
          names += (names.empty() ? "" : ", ") + m_source.frames[i];
          break;
        }
    if (!names.empty())
      m_result.warnings.push_back("left out, as their level is more than four deviations off: " + names);
    for (const CalibratedPlane& plane : m_result.planes)
      if (names.empty() && 2 * plane.rejected > imagePixels())
        m_result.warnings.push_back(std::to_string(plane.rejected) + " values of the " + plane.name +
                                    " plane were left out, and a frame has " + std::to_string(imagePixels()) +
                                    ": one or more frames are unlike the others");
  }

  void warnOfFlats() {
    std::vector<std::string>& all = m_result.warnings;
    const double other = m_survey.offset.ratio();
    if (other > 0 && std::fabs(other - m_result.usedRatio) > 0.001)
      all.push_back("the gain ratio is " + fixedText(m_result.usedRatio, 4) +
                    ", and the DSNU file was made with " + fixedText(other, 4));
    const double dark = m_survey.offset.exposure(), exposure = m_survey.header->exposure_seconds();
    if (!m_source.dark.empty() && std::fabs(dark - exposure) > 0.01 * std::fmax(dark, exposure))
      all.push_back("the flats were exposed for " + fixedText(exposure, 3) + " s, the darks for " +
                    fixedText(dark, 3) + " s");
    for (const CalibratedPlane& plane : m_result.planes)
      if (plane.after > poorCorrection)
        all.push_back("the corrections of the " + plane.name + " plane are known to " +
                      fixedText(plane.after, 2) + " % only: more flats, or brighter ones, make them better");
  }

  void sortOdd() {
    std::sort(m_result.oddPixels.begin(), m_result.oddPixels.end(), [](const OddPixel& a, const OddPixel& b) {
      return std::make_tuple(a.plane, a.y, a.x, a.kind) < std::make_tuple(b.plane, b.y, b.x, b.kind);
    });
  }

  const CalibrationSource& m_source;
  const CalibrationSurvey& m_survey;
  Calibration m_result;
  std::vector<Map> m_maps;
  std::array<double, 2> m_medianLevels{};  ///< of the frames, by plane
  FixedPoint m_format = biasTerms();
  std::vector<std::uint16_t> m_plane;
  std::vector<std::vector<std::uint16_t>> m_terms;
};

}  // namespace

Calibration finishCalibration(const CalibrationSource& source, const CalibrationSurvey& survey,
                              const std::vector<CombinedRows>& bands) {
  Maker maker(source, survey);
  for (const CombinedRows& band : bands)
    maker.add(band);
  return maker.finish();
}

Calibration calibrate(const CalibrationSource& source) {
  std::optional<Maker> maker;
  CalibrationSurvey whole;  // complete by the first band
  combineFrames(source, [&](const CalibrationSurvey& survey, const CombinedRows& rows) {
    if (!maker) {
      whole = survey;
      maker.emplace(source, whole);
    }
    maker->add(rows);
  });
  return maker->finish();
}

}  // namespace orvacam::science
