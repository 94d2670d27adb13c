#include "science/Calibration.h"

#include <algorithm>
#include <tuple>

#include "science/CalibrationDraft.h"

namespace orvacam::science {

namespace {

CalibrationDraft begun(const CalibrationSource& source, const CalibrationSurvey& survey) {
  CalibrationDraft draft{source, survey, {}, {}, {}};
  Calibration& result = draft.result;
  result.kind = source.kind;
  result.frames = survey.levels.size();
  result.header = survey.header;
  result.size = survey.size;
  draft.maps.resize(survey.planes.size());
  for (unsigned p = 0; p < survey.planes.size(); ++p) {
    CalibratedPlane plane;
    plane.name = survey.planes[p];
    if (survey.gains[p] > 0) plane.gain = survey.gains[p];
    plane.fullScale = survey.fullScale;
    plane.mask.assign(draft.pixels(), 0);
    result.planes.push_back(std::move(plane));
    draft.maps[p].means.reserve(draft.pixels());
  }
  return draft;
}

void addSums(RowSums& all, const RowSums& row) {
  all.rejected += row.rejected;
  all.temporal += row.temporal;
  all.freedom += row.freedom;
  all.halves += row.halves;
  all.halfSquares += row.halfSquares;
  all.halfPixels += row.halfPixels;
  all.blinking += row.blinking;
}

/// The next rows.
void add(CalibrationDraft& draft, const CombinedRows& band) {
  for (unsigned p = 0; p < band.planes.size(); ++p) {
    const CombinedPlane& plane = band.planes[p];
    PlaneMeans& map = draft.maps[p];
    for (std::size_t i = 0; i < plane.blinking.size(); ++i)
      if (plane.blinking[i] > 0) draft.list(p, map.means.size() + i, Blinking, plane.blinking[i]);
    map.means.insert(map.means.end(), plane.means.begin(), plane.means.end());
    for (const RowSums& row : plane.sums)
      addSums(map.sums, row);
  }
}

Calibration finished(CalibrationDraft draft) {
  const bool dark = draft.source.kind == CalibrationKind::dark;
  if (draft.flat()) setRatio(draft);
  findOddPixels(draft);
  describePlanes(draft);
  if (dark) {
    setRatio(draft);
    setPedestal(draft);
  }
  makeFile(draft);
  addWarnings(draft);
  std::vector<OddPixel>& odd = draft.result.oddPixels;
  std::sort(odd.begin(), odd.end(), [](const OddPixel& a, const OddPixel& b) {
    return std::make_tuple(a.plane, a.y, a.x, a.kind) < std::make_tuple(b.plane, b.y, b.x, b.kind);
  });
  return std::move(draft.result);
}

}  // namespace

Calibration finishCalibration(const CalibrationSource& source, const CalibrationSurvey& survey,
                              const std::vector<CombinedRows>& bands) {
  CalibrationDraft draft = begun(source, survey);
  for (const CombinedRows& band : bands)
    add(draft, band);
  return finished(std::move(draft));
}

Calibration calibrate(const CalibrationSource& source) {
  std::optional<CalibrationDraft> draft;
  CalibrationSurvey whole;  // complete by the first band
  combineFrames(source, [&](const CalibrationSurvey& survey, const CombinedRows& rows) {
    if (!draft) {
      whole = survey;
      draft.emplace(begun(source, whole));
    }
    add(*draft, rows);
  });
  return finished(std::move(draft.value()));
}

}  // namespace orvacam::science
