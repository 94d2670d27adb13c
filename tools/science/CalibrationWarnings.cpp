#include <cmath>

#include "science/CalibrationDraft.h"

namespace orvacam::science {

namespace {

constexpr std::size_t goodFrames = 10;
constexpr double mostOffset = 0.25;   // of full scale
constexpr double leastOffset = 3;     // deviations of a frame's noise
constexpr double longBias = 0.1;      // seconds
constexpr double poorCorrection = 1;  // percent

/// Of offsets that hardly are some.
void warnOfLevels(CalibrationDraft& draft) {
  for (const CalibratedPlane& plane : draft.result.planes) {
    const std::string where = "the " + plane.name + " plane's offset of " + fixedText(plane.level.value, 1);
    if (plane.level.value > mostOffset * plane.fullScale)
      draft.result.warnings.push_back(where + " is more than a quarter of full scale, " +
                                      fixedText(plane.fullScale, 0) +
                                      ": were these frames taken in the dark?");
    if (plane.level.value < leastOffset * plane.noise.value || plane.level.value == 0)
      draft.result.warnings.push_back(where + " is below three times the noise of a frame, " +
                                      fixedText(plane.noise.value, 1) + ": noise is cut off at 0");
  }
}

/// Of frames that were left out as a whole, or nearly.
void warnOfFrames(CalibrationDraft& draft) {
  std::string names;
  for (std::size_t i = 0; i < draft.survey.levels.size(); ++i)
    for (unsigned p = 0; p < draft.result.planes.size(); ++p)
      if (draft.isOff(i, p, draft.result.planes[p].noise.value)) {
        names += (names.empty() ? "" : ", ") + draft.source.frames[i];
        break;
      }
  if (!names.empty())
    draft.result.warnings.push_back("left out, as their level is more than four deviations off: " + names);
  for (const CalibratedPlane& plane : draft.result.planes)
    if (names.empty() && 2 * plane.rejected > draft.imagePixels())
      draft.result.warnings.push_back(std::to_string(plane.rejected) + " values of the " + plane.name +
                                      " plane were left out, and a frame has " +
                                      std::to_string(draft.imagePixels()) +
                                      ": one or more frames are unlike the others");
}

void warnOfFlats(CalibrationDraft& draft) {
  std::vector<std::string>& all = draft.result.warnings;
  const double other = draft.survey.offset.ratio();
  if (other > 0 && std::fabs(other - draft.result.usedRatio) > 0.001)
    all.push_back("the gain ratio is " + fixedText(draft.result.usedRatio, 4) +
                  ", and the DSNU file was made with " + fixedText(other, 4));
  const double dark = draft.survey.offset.exposure(), exposure = draft.survey.header->exposure_seconds();
  if (!draft.source.dark.empty() && std::fabs(dark - exposure) > 0.01 * std::fmax(dark, exposure))
    all.push_back("the flats were exposed for " + fixedText(exposure, 3) + " s, the darks for " +
                  fixedText(dark, 3) + " s");
  for (const CalibratedPlane& plane : draft.result.planes)
    if (plane.after > poorCorrection)
      all.push_back("the corrections of the " + plane.name + " plane are known to " +
                    fixedText(plane.after, 2) + " % only: more flats, or brighter ones, make them better");
}

}  // namespace

void addWarnings(CalibrationDraft& draft) {
  std::vector<std::string>& all = draft.result.warnings;
  if (draft.result.frames < goodFrames)
    all.push_back("made from " + std::to_string(draft.result.frames) + " frames: ten or more are better");
  const double exposure = draft.survey.header->exposure_seconds();
  if (draft.source.kind == CalibrationKind::bias && exposure > longBias)
    all.push_back("these frames were exposed for " + fixedText(exposure, 3) +
                  " s: bias frames have the shortest exposure");
  for (const CalibratedPlane& plane : draft.result.planes)
    if (plane.clipped > 0)
      all.push_back(std::to_string(plane.clipped) + " terms of the " + plane.name +
                    " plane do not fit the file's numbers and were cut off");
  if (draft.flat())
    warnOfFlats(draft);
  else
    warnOfLevels(draft);
  warnOfFrames(draft);
}

}  // namespace orvacam::science
