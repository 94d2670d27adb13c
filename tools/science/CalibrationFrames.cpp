#include "science/CalibrationFrames.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "science/Estimate.h"
#include "science/Refused.h"

namespace orvacam::science {

namespace {

constexpr double saturatedFrom = 0.98;      // of the full scale
constexpr double mostSaturated = 0.001;     // of the image pixels
constexpr std::uint64_t keptPerPixel = 16;  // bytes: means, mask, terms and the file; values to sort
constexpr double darkestFlat = 1;           // counts above the dark

std::string sizeText(const Size& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

/// Electrons per count as the header's maker measured them; 0 where it does not say.
std::array<double, 2> gainsOf(const Header& header, const MergeInfo& merge) {
  const double perElectron = header.version() >= 3 ? header.number("HighGainADUe") / 1000 : 0;
  if (!merge.merges || perElectron <= 0) return {0, 0};
  return {merge.gain_ratio / perElectron, 1 / perElectron};
}

void decodeFor(const std::string& path, const Frame& frame) {
  try {
    Decoder().decode(frame);
  } catch (const Error& error) {
    if (!error.path().empty()) throw;
    throw Refused(path, error.what());
  }
}

void requirePair(const CalibrationSource& source, const std::string& path, const Frame& frame,
                 const MergeInfo& merge) {
  if (source.kind == CalibrationKind::bias || merge.merges) return;
  const std::vector<std::string> planes = frame.planes();
  if (planes.size() < 2)
    throw Refused(path,
                  "has one plane: DSNU and PRNU files correct the merge of two gains (a bias file is for "
                  "every camera)");
  throw Refused(path, "holds two gains that are not merged: DSNU and PRNU files would correct nothing");
}

double fullScaleOf(const Header& header, bool pair) {
  return pair ? 4095 : std::exp2(header.number("DataPixelBitDepth")) - 1;
}

// ---- Levels

/// Calls visit(values) with every image row's counts less their offset.
template <class Visit>
void eachRow(const CalibrationSurvey& survey, const Plane& plane, unsigned index, const Visit& visit) {
  const Region& image = survey.image;
  std::vector<double> offset(survey.size.width), values(image.width);
  for (std::uint32_t y = image.y; y < image.y + image.height; ++y) {
    if (!survey.offset.empty()) survey.offset.row(index, y, offset);
    const std::uint16_t* const row = plane.row(y) + image.x;
    for (std::uint32_t x = 0; x < image.width; ++x)
      values[x] = row[x] - offset[image.x + x];
    visit(values);
  }
}

/// Mean and deviation of what lies within 4 deviations of the mean; twice.
double levelOf(const CalibrationSurvey& survey, const Plane& plane, unsigned index) {
  double mean = 0, limit = std::numeric_limits<double>::infinity();
  for (int round = 0; round < 3; ++round) {
    double count = 0, sum = 0, squares = 0;
    eachRow(survey, plane, index, [&](const std::vector<double>& values) {
      for (const double value : values) {
        const double off = value - mean;
        const double stays = std::fabs(off) <= limit ? 1 : 0;
        count += stays;
        sum += stays * off;
        squares += stays * off * off;
      }
    });
    mean += sum / count;
    limit = 4 * std::sqrt(std::fmax(squares / count - sum / count * sum / count, 0)) + 1;
  }
  return mean;
}

/// One of the first frames' planes.
struct FirstPlane {
  const Plane& plane;
  double level;  ///< of flats, which are measured in parts of it; else 1
};

/// Half the variance of two frames' difference, outliers aside: temporal noise.
double pairVariance(const CalibrationSurvey& survey, unsigned index, const FirstPlane& a, const FirstPlane& b,
                    bool flat) {
  const Region& image = survey.image;
  const double scaleA = 1 / a.level, scaleB = 1 / b.level;
  std::vector<double> offset(survey.size.width);
  double variance = 0, limit = std::numeric_limits<double>::infinity();
  for (int round = 0; round < 6; ++round) {
    double count = 0, sum = 0, squares = 0;
    for (std::uint32_t y = image.y; y < image.y + image.height; ++y) {
      if (flat) survey.offset.row(index, y, offset);
      const std::uint16_t* const rowA = a.plane.row(y);
      const std::uint16_t* const rowB = b.plane.row(y);
      for (std::uint32_t x = image.x; x < image.x + image.width; ++x) {
        const double difference = (rowA[x] - offset[x]) * scaleA - (rowB[x] - offset[x]) * scaleB;
        const double stays = std::fabs(difference) <= limit ? 1 : 0;
        count += stays;
        sum += stays * difference;
        squares += stays * difference * difference;
      }
    }
    if (count == 0) break;
    variance = std::fmax(squares / count - sum / count * sum / count, 0) / 2;
    limit = 6 * std::sqrt(2 * variance) + (flat ? 1e-9 : 0.5);
  }
  const double rounding = 1.0 / 12 * scaleA * scaleA;
  return std::fmax(variance, rounding);
}

void refuseSaturated(const std::string& path, const CalibrationSurvey& survey, const Plane& plane,
                     const std::string& name) {
  const Region& image = survey.image;
  const double limit = saturatedFrom * survey.fullScale;
  std::uint64_t saturated = 0;
  for (std::uint32_t y = image.y; y < image.y + image.height; ++y)
    for (std::uint32_t x = image.x; x < image.x + image.width; ++x)
      if (plane.row(y)[x] >= limit) ++saturated;
  const auto pixels = static_cast<double>(std::uint64_t{image.width} * image.height);
  const double part = static_cast<double>(saturated) / pixels;
  if (part > mostSaturated)
    throw Refused(path, "is saturated: " + fixedText(100 * part, 2) + " % of the " + name +
                            " plane's image pixels are at " + fixedText(std::ceil(limit), 0) +
                            " or above, which is " + fixedText(saturatedFrom, 2) +
                            " of full scale; a flat may have " + fixedText(100 * mostSaturated, 1) + " %");
}

void refuseDark(const std::string& path, const CalibrationSurvey& survey,
                const std::array<double, 2>& levels) {
  for (std::size_t p = 0; p < survey.planes.size(); ++p)
    if (levels[p] < darkestFlat)
      throw Refused(path, "shows no light: the " + survey.planes[p] + " plane lies " +
                              fixedText(levels[p], 2) + " counts above the dark");
}

/// The first frame: what all others are held to.
CalibrationSurvey begin(const CalibrationSource& source, const std::string& path) {
  const Frame frame = source.read(path);
  CalibrationSurvey survey;
  survey.header = frame.header();
  survey.size = frame.header().frame_size();
  survey.image = frame.header().image_region();
  const std::vector<std::string> names = frame.planes();
  if (names.empty()) decodeFor(path, frame);  // says why
  const bool pair = names.front() == "low";
  survey.planes = pair ? std::vector<std::string>{"low", "high"} : std::vector<std::string>{"image"};
  survey.merge = Decoder().merge_info(frame.header());
  requirePair(source, path, frame, survey.merge);
  survey.fullScale = fullScaleOf(frame.header(), pair);
  survey.gains = gainsOf(frame.header(), survey.merge);
  if (source.kind == CalibrationKind::flat)
    survey.offset = FlatOffset(source, frame.header(), survey.merge.gain_ratio);
  return survey;
}

}  // namespace

FlatOffset::FlatOffset(const CalibrationSource& source, const Header& frames, double tableRatio)
    : m_dsnu(!source.dark.empty()), m_startRow(frames.start_row()) {
  const std::string& path = m_dsnu ? source.dark : source.bias;
  auto file = std::make_shared<ReferenceFile>(readReferenceFile(path));
  const Size size = frames.frame_size();
  if (file->sensor != frames.sensor())
    throw Refused(path, "is of a " + file->sensor + ", the flats are of a " + frames.sensor());
  if (file->planes < 2)
    throw Refused(path, "holds one plane, the flats have two: these need " +
                            std::to_string(file->bytesOfPair) + " bytes, and it ends at byte " +
                            std::to_string(file->bytes));
  if (file->size.width != size.width || std::uint64_t{m_startRow} + size.height > file->size.height)
    throw Refused(path, "of " + sizeText(file->size) + " does not cover flats of " + sizeText(size) +
                            (m_startRow > 0 ? " from row " + std::to_string(m_startRow) + " on" : ""));
  if (m_dsnu && file->pedestal > 0) {
    m_ratio = file->gainRatio >= 1 && file->gainRatio < 64 ? file->gainRatio : tableRatio;
    m_pedestals[0] = file->pedestal / m_ratio;
    m_pedestals[1] = file->pedestal;
  }
  requireKind(path, *file, m_dsnu ? ReferenceKind::dsnu : ReferenceKind::bias);
  m_file = std::move(file);
}

void FlatOffset::row(unsigned plane, std::uint32_t y, std::vector<double>& counts) const {
  const std::uint16_t* const terms =
      m_file->plane(plane) + (std::size_t{m_startRow} + y) * m_file->size.width;
  const FixedPoint format = m_dsnu ? dsnuTerms() : biasTerms();
  for (std::size_t x = 0; x < counts.size(); ++x)
    counts[x] = m_dsnu ? m_pedestals[plane] - format.back(terms[x]) : terms[x];
}

CalibrationSurveyor::CalibrationSurveyor(const CalibrationSource& source) : m_kind(source.kind) {
  if (source.frames.size() < 2)
    throw Refused(source.frames.empty() ? "" : source.frames.front(),
                  "is one frame: a calibration needs two at least, and ten to be good");
  m_survey = begin(source, source.frames.front());
}

void CalibrationSurveyor::see(const std::string& path, const std::vector<Plane>& planes) {
  const bool flat = m_kind == CalibrationKind::flat;
  const std::size_t index = m_survey.levels.size();
  if (index == 0) m_survey.planeHeader = planes.front().header();
  if (flat)
    for (std::size_t p = 0; p < planes.size(); ++p)
      refuseSaturated(path, m_survey, planes[p], m_survey.planes[p]);
  std::array<double, 2> levels{};
  for (unsigned p = 0; p < planes.size(); ++p)
    levels[p] = levelOf(m_survey, planes[p], p);
  if (flat) refuseDark(path, m_survey, levels);
  m_survey.levels.push_back(levels);
  learnNoise(planes);
}

/// From the two of the first three frames that differ least: one of them may be spoilt. An empty frame has no
/// noise, but another level.
void CalibrationSurveyor::learnNoise(const std::vector<Plane>& planes) {
  constexpr std::size_t looked = 3;
  const bool flat = m_kind == CalibrationKind::flat;
  const auto& levels = m_survey.levels;
  const std::size_t b = levels.size() - 1;
  for (std::size_t a = 0; a < m_earlier.size(); ++a)
    for (unsigned p = 0; p < planes.size(); ++p) {
      const double levelA = levels[a][p], levelB = levels[b][p];
      const double variance = pairVariance(m_survey, p, {m_earlier[a][p], flat ? levelA : 1},
                                           {planes[p], flat ? levelB : 1}, flat);
      const double differ = variance + (flat ? 0 : (levelA - levelB) * (levelA - levelB) / 2);
      if (m_leastDiffer[p] >= 0 && m_leastDiffer[p] <= differ) continue;
      m_leastDiffer[p] = differ;
      // Shot noise of hot pixels, where the gain is known; else that of one electron per count.
      const double perCount = m_survey.gains[p] > 0 ? 1 / m_survey.gains[p] : 1;
      m_survey.noise[p] = {variance, flat ? 1 : (levelA + levelB) / 2, perCount, flat};
    }
  m_earlier.push_back(planes);
  if (levels.size() >= looked) m_earlier.clear();
}

namespace {

const std::uint16_t* rowOf(const Band& band, unsigned plane, std::size_t frame, std::uint32_t y) {
  return band.pixels[plane][frame] + std::size_t{y - band.first} * band.width;
}

/// A row of every flat less the offset, in parts of its level.
class FlatRows {
 public:
  FlatRows(const CalibrationSurvey& survey, std::size_t frames)
      : m_survey(survey),
        m_offset(survey.size.width),
        m_values(frames, std::vector<double>(survey.size.width)) {}

  std::vector<const double*> take(const Band& band, unsigned plane, std::uint32_t y) {
    m_survey.offset.row(plane, y, m_offset);
    std::vector<const double*> rows;
    for (std::size_t i = 0; i < m_values.size(); ++i) {
      const std::uint16_t* const row = rowOf(band, plane, i, y);
      const double scale = 1 / m_survey.levels[i][plane];
      for (std::size_t x = 0; x < m_offset.size(); ++x)
        m_values[i][x] = (row[x] - m_offset[x]) * scale;
      rows.push_back(m_values[i].data());
    }
    return rows;
  }

 private:
  const CalibrationSurvey& m_survey;
  std::vector<double> m_offset;
  std::vector<std::vector<double>> m_values;
};

}  // namespace

CombinedRows combineRows(const CalibrationSurvey& survey, const Band& band,
                         const std::function<void()>& pause) {
  const std::size_t frames = survey.levels.size();
  const Region& image = survey.image;
  CombinedRows result{band.first, band.rows, {}};
  RowCombiner combiner(survey.size.width);
  std::optional<FlatRows> flats;
  if (!survey.offset.empty()) flats.emplace(survey, frames);
  for (unsigned p = 0; p < survey.planes.size(); ++p) {
    CombinedPlane plane;
    for (std::uint32_t y = band.first; y < band.first + band.rows; ++y) {
      pause();
      const bool inImage = y >= image.y && y < image.y + image.height;
      const std::uint32_t last = inImage ? image.x + image.width : image.x;
      if (flats) {
        plane.sums.push_back(combiner.combine(flats->take(band, p, y), survey.noise[p], image.x, last));
      } else {
        std::vector<const std::uint16_t*> rows;
        for (std::size_t i = 0; i < frames; ++i)
          rows.push_back(rowOf(band, p, i, y));
        plane.sums.push_back(combiner.combine(rows, survey.noise[p], image.x, last));
      }
      plane.means.insert(plane.means.end(), combiner.means().begin(), combiner.means().end());
      plane.blinking.insert(plane.blinking.end(), combiner.blinking().begin(), combiner.blinking().end());
    }
    result.planes.push_back(std::move(plane));
  }
  return result;
}

void withSeries(const CalibrationSource& source, const std::function<void(FrameSeries)>& use) {
  std::size_t last = 0;
  Decoder decoder;
  FrameSeries series;
  series.count = source.frames.size();
  series.read = [&](std::size_t index) {
    last = index;
    source.pause();
    return source.read(source.frames[index]);
  };
  series.decode = [&](const Frame& frame, Planes wanted) { return decoder.decode(frame, wanted); };
  try {
    use(std::move(series));
  } catch (const SeriesError& error) {
    throw Refused(source.frames[last], error.what());
  } catch (const Error& error) {
    if (!error.path().empty()) throw;
    throw Refused(source.frames[last], error.what());
  }
}

CalibrationSurvey combineFrames(
    const CalibrationSource& source,
    const std::function<void(const CalibrationSurvey&, const CombinedRows&)>& use) {
  CalibrationSurveyor surveyor(source);
  const std::vector<std::string>& planes = surveyor.survey().planes;
  BandSettings settings;
  settings.planes = planes;
  settings.memory = source.memory;
  settings.bytesPerPixel = keptPerPixel * planes.size();
  withSeries(source, [&](FrameSeries series) {
    FrameBands bands(std::move(series), std::move(settings));
    bands.run([&](const SeenFrame& seen) { surveyor.see(source.frames[seen.index], seen.planes); },
              [&](const Band& band) {
                use(surveyor.survey(), combineRows(surveyor.survey(), band, source.pause));
              });
  });
  return surveyor.survey();
}

}  // namespace orvacam::science
