#include "science/CameraMeasurement.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "science/Likeness.h"

namespace orvacam::science {

namespace {

constexpr double fewPixels = 0.001;       // a part of the pixels that does not matter
constexpr double wellBelow = 0.9;         // of the threshold: no noise reaches from there to it
constexpr double sameLevel = 0.01;        // flats whose signals differ by less may be averaged
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
  Limits limitsOf(const Gathered& plane) const;
  void addMergedPoint(const Decoded& a, const Decoded& b, const std::vector<PairMoments>& moments);
  MergedPoint darkPoint() const;
  void addNonuniformityOf(MeasuredPlane& plane, const Gathered& gathered);
  SpatialVariance spatial(const Paths& paths, const PlaneOf& which, const Estimate& temporal);

  MeasurementSource m_source;
  std::optional<Header> m_first;
  Region m_region{};
  MergeInfo m_merge{};
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
    const std::string unlike = unlikeness(*m_first, frame.header(), false);
    if (!unlike.empty()) throw Refused(path, "is unlike the first flat: " + unlike);
    return m_source.decoder.decode(frame, wanted);
  });
}

void Measurement::lookAtHeaders() {
  std::map<double, Paths> flats;
  const auto look = [&](const Paths& paths, std::map<double, Paths>& byExposure) {
    for (const std::string& path : paths) {
      const Header header = blaming(path, [&] { return Header::read(path); });
      if (!m_first) m_first = header;
      const std::string unlike = blaming(path, [&] { return unlikeness(*m_first, header, false); });
      if (!unlike.empty()) throw Refused(path, "is unlike the first flat: " + unlike);
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
    }
  });
}

/// What is counted in a plane: in the high one pixels near the merge's threshold, in the merged one those
/// that the low gain gave.
Limits Measurement::limitsOf(const Gathered& plane) const {
  Limits limits;
  limits.full = static_cast<std::uint32_t>(plane.fullScale);
  if (plane.which->plane == &Decoded::high)
    limits.threshold = static_cast<std::uint32_t>(wellBelow * m_merge.high_threshold);
  if (plane.which->plane == &Decoded::merged) limits.threshold = m_merge.high_threshold;
  return limits;
}

void Measurement::addDarkPair(const std::string& a, const std::string& b, double exposure) {
  const Decoded first = decode(a, {});
  const Decoded second = decode(b, {});
  for (Gathered& plane : m_planes) {
    const PairMoments m = momentsOf(first.*plane.which->plane, second.*plane.which->plane, m_region);
    DarkLevel& dark = plane.darks[exposure];
    const auto before = static_cast<double>(dark.frameMeans.size() / 2);
    dark.exposure = exposure;
    dark.pixels = m.pixels;
    if (a != b) {
      // The mean of the pairs so far, and its error.
      const Estimate old = before > 0 ? dark.variance : Estimate{0, 0};
      dark.variance = {(old.value * before + m.variance) / (before + 1),
                       std::hypot(old.error * before, m.varianceError) / (before + 1)};
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
      moments.push_back(
          momentsOf(first.*plane.which->plane, second.*plane.which->plane, m_region, limitsOf(plane)));
      CurvePoint point;
      point.pair = i;
      point.exposure = m_pairs[i].exposure;
      point.moments = moments.back();
      plane.points.push_back(point);
    }
    if (m_planes.size() == 3) addMergedPoint(first, second, moments);
  }
}

/// Low, high and merged plane of a pair; says of its merged point where the pixels come from.
void Measurement::addMergedPoint(const Decoded& a, const Decoded& b,
                                 const std::vector<PairMoments>& moments) {
  const PairMoments &low = moments[0], &high = moments[1], &merged = moments[2];
  MergedPoint point;
  point.low = low.meanOfBoth();
  point.high = high.meanOfBoth();
  point.merged = merged.meanOfBoth();
  const double pixels = 2 * low.pixels;
  point.lowVariance = low.variance / pixels;
  point.highVariance = high.variance / pixels;
  point.covariance = covarianceOf(a.low, b.low, a.high, b.high, m_region) / pixels;
  point.below = merged.aboveThreshold <= fewPixels && high.aboveThreshold <= fewPixels;
  const bool above = merged.aboveThreshold >= 1 - fewPixels && point.high >= m_merge.high_threshold;
  point.above = above && low.atFull <= fewPixels;
  m_mergedPoints.push_back(point);
  CurvePoint& curve = m_planes[2].points.back();
  curve.above = above;
  curve.between = !above && !point.below;
  curve.moments.atFull = low.atFull;
}

/// The darks of the shortest exposure.
MergedPoint Measurement::darkPoint() const {
  const DarkLevel& low = m_planes[0].darks.begin()->second;
  const DarkLevel& high = m_planes[1].darks.begin()->second;
  const auto frames = static_cast<double>(low.frameMeans.size());
  MergedPoint point;
  point.low = low.mean();
  point.high = high.mean();
  if (low.variance.known()) point.lowVariance = low.variance.value / low.pixels / frames;
  if (high.variance.known()) point.highVariance = high.variance.value / high.pixels / frames;
  return point;
}

SpatialVariance Measurement::spatial(const Paths& paths, const PlaneOf& which, const Estimate& temporal) {
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
  Estimate temporal{0, 0};
  for (const CurvePoint& point : plane.transfer.curve) {
    if (point.exposure != chosen.exposure ||
        std::fabs(point.signal - chosen.signal) > sameLevel * chosen.signal)
      continue;
    flats.push_back(m_pairs[point.pair].first);
    flats.push_back(m_pairs[point.pair].second);
    temporal.value += point.moments.variance;
    temporal.error = std::hypot(temporal.error, point.moments.varianceError);
  }
  const double pairs = static_cast<double>(flats.size()) / 2;
  temporal = {temporal.value / pairs, temporal.error / pairs};
  const SpatialVariance flat = spatial(flats, *gathered.which, temporal);
  const SpatialVariance dark =
      spatial(m_darks.at(chosen.exposure), *gathered.which, gathered.darks.at(chosen.exposure).variance);
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
  if (m_planes.size() == 3) {
    const MergeSettings settings = {m_merge.gain_ratio, m_merge.dsnu,
                                    static_cast<double>(m_merge.high_threshold)};
    result.changeOver = changeOver(m_mergedPoints, darkPoint(), settings, result.planes[1].transfer);
  }
  return result;
}

}  // namespace

CameraMeasurement measureCamera(MeasurementSource source) {
  if (source.flats.empty() || source.darks.empty())
    throw Refused("", source.flats.empty() ? "there are no flats" : "there are no darks");
  return Measurement(std::move(source)).run();
}

}  // namespace orvacam::science
