#ifndef ORVACAM_SCIENCE_CALIBRATION_BAND_H
#define ORVACAM_SCIENCE_CALIBRATION_BAND_H

#include "science/CalibrationFrames.h"

// A calibration in parts, for several processes: each combines some rows of all frames, one puts them
// together (finishCalibration). The result is that of one process.

namespace orvacam::science {

/// Rows of all frames, combined in one pass. Their pixels are in memory meanwhile: 2 bytes for each plane and
/// frame; source.memory plays no part. Throws Refused, orvacam::Error, what `read` throws; std::out_of_range:
/// rows that the planes do not have.
CombinedRows combineBand(const CalibrationSource& source, std::uint32_t first, std::uint32_t rows);

/// What all frames are, in one pass. Throws the same.
CalibrationSurvey surveyFrames(const CalibrationSource& source);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_CALIBRATION_BAND_H
