#ifndef ORVACAM_SCIENCE_CALIBRATION_DRAFT_H
#define ORVACAM_SCIENCE_CALIBRATION_DRAFT_H

#include <array>
#include <string>
#include <vector>

#include "science/Calibration.h"

// A calibration while it is made: what its steps, each in a file of its own, work on.

namespace orvacam::science {

/// The means of a plane's pixels over all frames; of flats responses, once findOddPixels has seen them.
struct PlaneMeans {
  std::vector<float> means;
  RowSums sums;
};

struct CalibrationDraft {
  const CalibrationSource& source;
  const CalibrationSurvey& survey;
  Calibration result;
  std::vector<PlaneMeans> maps;            ///< by plane
  std::array<double, 2> usualLevels = {};  ///< of the frames, by plane

  bool flat() const { return source.kind == CalibrationKind::flat; }
  std::size_t pixels() const { return std::size_t{survey.size.width} * survey.size.height; }
  std::uint64_t imagePixels() const { return std::uint64_t{survey.image.width} * survey.image.height; }
  /// Calls visit(pixel) for the image region.
  template <class Visit>
  void eachImagePixel(const Visit& visit) const {
    const Region& image = survey.image;
    for (std::uint32_t y = image.y; y < image.y + image.height; ++y)
      for (std::uint32_t x = image.x; x < image.x + image.width; ++x)
        visit(std::size_t{y} * survey.size.width + x);
  }
  /// Puts a pixel of the image region on the list and into the mask.
  void list(unsigned plane, std::size_t pixel, OddKind kind, double value);
  /// Whether a frame lies so far from the others that its values are left out. Flats are measured in parts of
  /// their level.
  bool isOff(std::size_t frame, unsigned plane, double noise) const;
};

/// Takes the values out of their order; not known of none.
double medianIn(std::vector<float>& values);

/// Lists hot pixels of darks and bias frames, dead ones of flats, whose means become responses. Throws
/// Refused: flats of which half of the pixels do not
/// see half of the light.
void findOddPixels(CalibrationDraft& draft);
/// Level, noise and fixed pattern of each plane.
void describePlanes(CalibrationDraft& draft);

/// The ratio as measured and as used. Throws Refused: one that the merge does not take.
void setRatio(CalibrationDraft& draft);
/// Of darks, behind describePlanes and setRatio. Throws Refused: one that is too small.
void setPedestal(CalibrationDraft& draft);
/// The reference file, behind all of these. Throws Refused: what does not fit into one.
void makeFile(CalibrationDraft& draft);

/// What a user should know, at the end.
void addWarnings(CalibrationDraft& draft);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_CALIBRATION_DRAFT_H
