#include "science/CameraMeasurement.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace orvacam::science {

namespace {

constexpr double wellBelow = 0.9;         // of the threshold: no noise reaches from there to it
constexpr double sameLevel = 0.01;        // flats whose signals differ by less may be averaged
constexpr unsigned never = 65535;         // a threshold that nothing reaches
constexpr std::uint32_t pairFull = 4095;  // of the planes of a pair

using Paths = std::vector<std::string>;

struct Pair {
  double exposure;
  std::string first, second;
};

struct PlaneOf {
  const char* name;
  Plane Decoded::*plane;
  bool Planes::*wanted;
};
constexpr PlaneOf allPlanes[] = {{"low", &Decoded::low, &Planes::low},
                                 {"high", &Decoded::high, &Planes::high},
                                 {"merged", &Decoded::merged, &Planes::merged},
                                 {"image", &Decoded::image, &Planes::image}};

std::string seconds(double exposure) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g s", exposure);
  return text;
}

/// Of both frames of a pair: what the merge chooses from, and how; ADU and parts of the pixels.
struct Choice {
  double low = 0, high = 0, lift = 0, liftError = 0;
  double fromLow = 0, atThreshold = 0, nearThreshold = 0;
};

/// What is gathered of one plane.
struct Gathered {
  const PlaneOf* which;
  double fullScale;
  std::vector<CurvePoint> points;
  std::map<double, DarkLevel> darks;
};

class Measurement {
 public:
  explicit Measurement(MeasurementSource source) : m_source(std::move(source)) {}

  CameraMeasurement run();

 private:
  Frame read(const std::string& path);
  Decoded decode(const std::string& path, const Planes& wanted);
  template <typename Task>
  auto blaming(const std::string& path, const Task& task);

  void lookAtHeaders();
  void pairFlats(const std::map<double, Paths>& flats);
  void requireDarks() const;
  void choosePlanes();
  void gatherDarks();
  void addDarkPair(const std::string& a, const std::string& b, double exposure);
  void gatherFlats();
  void addMergedPoint(const Pair& pair, const Decoded& a, const Decoded& b,
                      const std::vector<PairMoments>& moments);
  MergedPoint darkPoint();
  Plane mergedWith(const std::string& path, unsigned high, unsigned difference);
  void addNonuniformityOf(MeasuredPlane& plane, const Gathered& gathered);
  SpatialVariance spatial(const Paths& paths, const PlaneOf& which, const TemporalVariance& temporal);

  MeasurementSource m_source;
  std::optional<Header> m_first;
  Region m_region{};
  MergeInfo m_merge{};
  bool m_merges = false;  ///< there is a merged plane beside low and high
  std::map<double, Paths> m_darks;
  std::vector<Pair> m_pairs;
  std::vector<Gathered> m_planes;
  std::vector<MergedPoint> m_mergedPoints;
};

/// Failures without a file of their own are the frame's.
template <typename Task>
auto Measurement::blaming(const std::string& path, const Task& task) {
  try {
    return task();
  } catch (const Error& error) {
    throw Refused(error.path().empty() ? path : error.path(), error.what());
  }
}

Frame Measurement::read(const std::string& path) {
  return blaming(path, [&] { return m_source.read(path); });
}

Decoded Measurement::decode(const std::string& path, const Planes& wanted) {
  const Frame frame = read(path);
  return blaming(path, [&] {
    // Files may change between two passes.
    require_alike(*m_first, frame.header(), Unlike::exposure);
    return m_source.decoder.decode(frame, wanted);
  });
}

void Measurement::lookAtHeaders() {
  std::map<double, Paths> flats;
  const auto look = [&](const Paths& paths, std::map<double, Paths>& byExposure) {
    for (const std::string& path : paths) {
      const Header header = blaming(path, [&] { return Header::read(path); });
      if (!m_first) m_first = header;
      blaming(path, [&] { require_alike(*m_first, header, Unlike::exposure); });
      byExposure[header.exposure_seconds()].push_back(path);
    }
  };
  look(m_source.flats, flats);
  look(m_source.darks, m_darks);
  pairFlats(flats);
}

void Measurement::pairFlats(const std::map<double, Paths>& flats) {
  for (const auto& [exposure, paths] : flats) {
    if (paths.size() % 2 != 0)
      throw Refused(paths.back(), "is a flat of " + seconds(exposure) +
                                      " without a second one: flats of equal exposure are taken in pairs");
    for (std::size_t i = 0; i < paths.size(); i += 2)
      m_pairs.push_back({exposure, paths[i], paths[i + 1]});
  }
}

void Measurement::requireDarks() const {
  for (const Pair& pair : m_pairs) {
    const auto darks = m_darks.find(pair.exposure);
    const std::size_t count = darks == m_darks.end() ? 0 : darks->second.size();
    if (count < 2)
      throw Refused(pair.first, "is a flat of " + seconds(pair.exposure) + " and has " +
                                    std::to_string(count) + (count == 1 ? " dark" : " darks") +
                                    " of its exposure; it takes two");
  }
}

void Measurement::choosePlanes() {
  const Frame frame = read(m_pairs.front().first);
  blaming(m_pairs.front().first, [&] {
    m_region = frame.header().image_region();
    const std::vector<std::string> names = frame.planes();
    // What no frame can be decoded from says so itself.
    if (names.empty()) m_source.decoder.decode(frame);
    m_merge = m_source.decoder.merge_info(frame.header());
    constexpr double largest = 65535;
    for (const PlaneOf& plane : allPlanes) {
      if (std::find(names.begin(), names.end(), plane.name) == names.end()) continue;
      double full = pairFull;
      if (plane.plane == &Decoded::image) full = std::exp2(frame.header().number("DataPixelBitDepth")) - 1;
      if (plane.plane == &Decoded::merged)
        full =
            m_merge.gain_ratio > 0 ? std::fmin(largest, std::round(pairFull * m_merge.gain_ratio)) : largest;
      m_planes.push_back({&plane, full, {}, {}});
      m_planes.back().points.reserve(m_pairs.size());
      for (const auto& [exposure, darks] : m_darks)
        m_planes.back().darks[exposure].frameMeans.reserve(darks.size());
      m_merges = m_merges || plane.plane == &Decoded::merged;
    }
    m_mergedPoints.reserve(m_pairs.size());
  });
}

/// The mean of `before` estimates and one more, and its error.
void include(Estimate& mean, double before, const Estimate& next) {
  const Estimate old = before > 0 ? mean : Estimate{0, 0};
  mean = {(old.value * before + next.value) / (before + 1),
          std::hypot(old.error * before, next.error) / (before + 1)};
}

void Measurement::addDarkPair(const std::string& a, const std::string& b, double exposure) {
  const Decoded first = decode(a, {});
  const Decoded second = decode(b, {});
  for (Gathered& plane : m_planes) {
    const PairMoments m = momentsOf(first.*plane.which->plane, second.*plane.which->plane, m_region);
    DarkLevel& dark = plane.darks[exposure];
    const std::size_t pairs = dark.frameMeans.size() / 2;
    const auto before = static_cast<double>(pairs);
    dark.exposure = exposure;
    dark.pixels = m.pixels;
    if (a != b) {
      include(dark.variance, before, {m.variance, m.varianceError});
      include(dark.row, before, m.row);
      include(dark.column, before, m.column);
      dark.meanVariance += (m.meanVariance - dark.meanVariance) / (before + 1);
      dark.frameMeans.push_back(m.mean[0]);
    }
    dark.frameMeans.push_back(m.mean[1]);
    const auto now = static_cast<double>(dark.frameMeans.size());
    const double more = a != b ? 2 : 1;
    dark.atZero += (m.atZero - dark.atZero) * more / now;
  }
}

/// A last dark without a second one counts for the mean, not for the noise.
void Measurement::gatherDarks() {
  for (const auto& [exposure, paths] : m_darks)
    for (std::size_t i = 0; i < paths.size(); i += 2)
      addDarkPair(paths[i], i + 1 < paths.size() ? paths[i + 1] : paths[i], exposure);
}

void Measurement::gatherFlats() {
  for (std::size_t i = 0; i < m_pairs.size(); ++i) {
    const Decoded first = decode(m_pairs[i].first, {});
    const Decoded second = decode(m_pairs[i].second, {});
    std::vector<PairMoments> moments;
    for (Gathered& plane : m_planes) {
      moments.push_back(momentsOf(first.*plane.which->plane, second.*plane.which->plane, m_region,
                                  static_cast<std::uint32_t>(plane.fullScale)));
      CurvePoint point;
      point.pair = i;
      point.exposure = m_pairs[i].exposure;
      point.moments = moments.back();
      plane.points.push_back(point);
    }
    if (m_merges) addMergedPoint(m_pairs[i], first, second, moments);
  }
}

/// What the merge makes of a frame with thresholds of its own.
Plane Measurement::mergedWith(const std::string& path, unsigned high, unsigned difference) {
  m_source.decoder.thresholds(high, difference);
  Plane plane = decode(path, {false, false, true, false}).merged;
  m_source.decoder.thresholds(m_merge.high_threshold, m_merge.difference_threshold);
  return plane;
}

/// Adds what the merge chooses from, in one frame: with a threshold of 0 it takes the low gain everywhere,
/// with one that nothing reaches the high gain.
void addChoice(Choice& sum, const Plane& low, const Plane& high, const Plane& merged, const Region& r,
               unsigned threshold) {
  std::uint64_t lows = 0, highs = 0, all = 0, fromLow = 0, at = 0, near = 0;
  const auto close = static_cast<std::uint32_t>(wellBelow * threshold);
  for (std::uint32_t y = r.y; y < r.y + r.height; ++y)
    for (std::uint32_t x = r.x; x < r.x + r.width; ++x) {
      const std::uint32_t l = low(x, y), h = high(x, y), m = merged(x, y);
      lows += l, highs += h, all += m;
      fromLow += static_cast<std::uint32_t>(m != h);
      at += static_cast<std::uint32_t>(h >= threshold);
      near += static_cast<std::uint32_t>(h >= close);
    }
  const double pixels = static_cast<double>(r.width) * r.height;
  const double lift = (static_cast<double>(all) - static_cast<double>(highs)) / pixels;
  sum.low += static_cast<double>(lows) / pixels / 2;
  sum.high += static_cast<double>(highs) / pixels / 2;
  sum.fromLow += static_cast<double>(fromLow) / pixels / 2;
  sum.atThreshold += static_cast<double>(at) / pixels / 2;
  sum.nearThreshold += static_cast<double>(near) / pixels / 2;
  sum.liftError = std::fabs(lift - 2 * sum.lift) / 2;  // of the second frame: half of what they differ by
  sum.lift += lift / 2;
}

/// Both gains, raw and as the merge sees them; says of the merged point where the pixels come from.
void Measurement::addMergedPoint(const Pair& pair, const Decoded& a, const Decoded& b,
                                 const std::vector<PairMoments>& moments) {
  const PairMoments &low = moments[0], &high = moments[1];
  Choice choice;
  addChoice(choice, mergedWith(pair.first, 0, 0), mergedWith(pair.first, never, never), a.merged, m_region,
            m_merge.high_threshold);
  addChoice(choice, mergedWith(pair.second, 0, 0), mergedWith(pair.second, never, never), b.merged, m_region,
            m_merge.high_threshold);
  MergedPoint point;
  point.low = low.meanOfBoth();
  point.high = high.meanOfBoth();
  point.correctedLow = choice.low;
  point.correctedHigh = choice.high;
  point.lift = choice.lift;
  point.liftError = choice.liftError;
  point.fromLow = choice.fromLow;
  const double pixels = 2 * low.pixels;
  point.lowVariance = low.variance / pixels;
  point.highVariance = high.variance / pixels;
  point.covariance = covarianceOf(a.low, b.low, a.high, b.high, m_region) / pixels;
  point.below = choice.nearThreshold <= fewPixels;
  m_mergedPoints.push_back(point);
  CurvePoint& curve = m_planes[2].points.back();
  curve.above = choice.atThreshold >= 1 - fewPixels;
  curve.between = !curve.above && !point.below;
  curve.fromLow = choice.fromLow;
  curve.moments.atFull = std::max(curve.moments.atFull, low.atFull);
}

/// The darks of the shortest exposure; what the merge chooses from is that of their first frame.
MergedPoint Measurement::darkPoint() {
  const DarkLevel& low = m_planes[0].darks.begin()->second;
  const DarkLevel& high = m_planes[1].darks.begin()->second;
  const std::string& path = m_darks.begin()->second.front();
  Choice choice;
  const Plane corrected[] = {mergedWith(path, 0, 0), mergedWith(path, never, never)};
  for (int i = 0; i < 2; ++i)  // as of a pair
    addChoice(choice, corrected[0], corrected[1], corrected[1], m_region, m_merge.high_threshold);
  MergedPoint point;
  point.low = low.mean();
  point.high = high.mean();
  point.correctedLow = choice.low;
  point.correctedHigh = choice.high;
  if (low.variance.known()) point.lowVariance = low.variance.value / low.pixels;
  if (high.variance.known()) point.highVariance = high.variance.value / high.pixels;
  return point;
}

SpatialVariance Measurement::spatial(const Paths& paths, const PlaneOf& which,
                                     const TemporalVariance& temporal) {
  Planes wanted{false, false, false, false};
  wanted.*which.wanted = true;
  MeanImage mean(m_region);
  for (const std::string& path : paths)
    mean.add(decode(path, wanted).*which.plane);
  return mean.variance(temporal);
}

/// All flats of the level nearest to half of saturation, and the darks of their exposure.
void Measurement::addNonuniformityOf(MeasuredPlane& plane, const Gathered& gathered) {
  const auto at = pointForUniformity(plane.transfer, plane.fullScale);
  if (!at) {
    plane.transfer.notes.push_back(
        {"prnu_percent", "DSNU and PRNU are not known: no flat lies between the darks and saturation."});
    return;
  }
  const CurvePoint& chosen = plane.transfer.curve[*at];
  Paths flats;
  TemporalVariance temporal;
  for (const CurvePoint& point : plane.transfer.curve) {
    if (point.exposure != chosen.exposure ||
        std::fabs(point.signal - chosen.signal) > sameLevel * chosen.signal)
      continue;
    const double before = static_cast<double>(flats.size()) / 2;
    include(temporal.total, before, {point.moments.variance, point.moments.varianceError});
    include(temporal.row, before, point.moments.row);
    include(temporal.column, before, point.moments.column);
    flats.push_back(m_pairs[point.pair].first);
    flats.push_back(m_pairs[point.pair].second);
  }
  const DarkLevel& darks = gathered.darks.at(chosen.exposure);
  const SpatialVariance flat = spatial(flats, *gathered.which, temporal);
  const SpatialVariance dark =
      spatial(m_darks.at(chosen.exposure), *gathered.which, {darks.variance, darks.row, darks.column});
  plane.transfer.uniformityExposure = chosen.exposure;
  addNonuniformity(plane.transfer, flat, dark);
}

CameraMeasurement Measurement::run() {
  lookAtHeaders();
  requireDarks();
  choosePlanes();
  gatherDarks();
  gatherFlats();
  CameraMeasurement result;
  result.flats = m_source.flats.size();
  result.darks = m_source.darks.size();
  result.first = m_first;
  result.merge = m_merge;
  for (const Gathered& gathered : m_planes) {
    std::vector<DarkLevel> darks;
    for (const auto& [exposure, dark] : gathered.darks)
      darks.push_back(dark);
    result.planes.push_back({gathered.which->name, gathered.fullScale,
                             photonTransfer(gathered.points, std::move(darks), gathered.fullScale)});
    addNonuniformityOf(result.planes.back(), gathered);
  }
  if (m_merges)
    result.changeOver =
        changeOver(m_mergedPoints, darkPoint(), m_merge.high_threshold, result.planes[1].transfer);
  return result;
}

}  // namespace

CameraMeasurement measureCamera(MeasurementSource source) {
  if (source.flats.empty() || source.darks.empty())
    throw Refused("", source.flats.empty() ? "there are no flats" : "there are no darks");
  return Measurement(std::move(source)).run();
}

}  // namespace orvacam::science
