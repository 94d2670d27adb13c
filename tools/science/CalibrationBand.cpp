#include "science/CalibrationBand.h"

#include <limits>

namespace orvacam::science {

namespace {

/// One pass over the frames, each shown to `see` with its planes.
void pass(const CalibrationSource& source, const std::vector<std::string>& planes,
          const std::function<void(const std::string&, const std::vector<Plane>&)>& see) {
  BandSettings settings;
  settings.planes = planes;
  settings.memory = std::numeric_limits<std::uint64_t>::max();  // the caller's matter
  withSeries(source, [&](FrameSeries series) {
    FrameScan scan(std::move(series), std::move(settings));
    scan.pass([&](const SeenFrame& seen) { see(source.frames[seen.index], seen.planes); });
  });
}

/// Room for some rows of all frames.
struct KeptRows {
  KeptRows(const CalibrationSurvey& survey, std::size_t frames, std::uint32_t first, std::uint32_t rows)
      : band{first, rows, survey.size.width, {}}, pixels(survey.planes.size()) {
    for (auto& plane : pixels)
      plane.resize(frames * band.count());
    for (const auto& plane : pixels) {
      band.pixels.emplace_back();
      for (std::size_t i = 0; i < frames; ++i)
        band.pixels.back().push_back(plane.data() + i * band.count());
    }
  }
  void keep(std::size_t frame, const std::vector<Plane>& planes) {
    for (std::size_t p = 0; p < planes.size(); ++p) {
      const std::uint16_t* const from = planes[p].row(band.first);
      std::copy(from, from + band.count(), pixels[p].data() + frame * band.count());
    }
  }

  Band band;
  std::vector<std::vector<std::uint16_t>> pixels;  ///< by plane
};

}  // namespace

CombinedRows combineBand(const CalibrationSource& source, std::uint32_t first, std::uint32_t rows) {
  CalibrationSurveyor surveyor(source);
  const std::uint32_t height = surveyor.survey().size.height;
  if (rows == 0 || first >= height || rows > height - first)
    throw std::out_of_range("the planes do not have these rows");
  KeptRows kept(surveyor.survey(), source.frames.size(), first, rows);
  std::size_t frame = 0;
  pass(source, surveyor.survey().planes, [&](const std::string& path, const std::vector<Plane>& planes) {
    surveyor.see(path, planes);
    kept.keep(frame++, planes);
  });
  return combineRows(surveyor.survey(), kept.band, source.pause);
}

CalibrationSurvey surveyFrames(const CalibrationSource& source) {
  CalibrationSurveyor surveyor(source);
  pass(source, surveyor.survey().planes,
       [&](const std::string& path, const std::vector<Plane>& planes) { surveyor.see(path, planes); });
  return surveyor.survey();
}

}  // namespace orvacam::science
