#ifndef ORVACAM_SCIENCE_CAMERA_MEASUREMENT_H
#define ORVACAM_SCIENCE_CAMERA_MEASUREMENT_H

#include <functional>
#include <optional>
#include <orvacam.hpp>
#include <string>
#include <vector>

#include "science/ChangeOver.h"
#include "science/PhotonTransfer.h"
#include "science/Refused.h"

namespace orvacam::science {

struct MeasuredPlane {
  std::string name;  ///< "low", "high", "merged" or "image"
  double fullScale;  ///< ADU
  PlaneTransfer transfer;
};

struct CameraMeasurement {
  std::size_t flats = 0, darks = 0;  ///< frames
  std::optional<Header> first;       ///< of the first flat
  std::vector<MeasuredPlane> planes;
  MergeInfo merge{};                     ///< how the frames were merged
  std::optional<ChangeOver> changeOver;  ///< of frames that are merged
};

/// Where frames come from, and how they are decoded.
struct MeasurementSource {
  std::vector<std::string> flats, darks;          ///< names of frames
  std::function<Frame(const std::string&)> read;  ///< a frame by its name; frames are read up to four times
  Decoder decoder;                                ///< with corrections of the merge, if any
};

/// Measures a camera from flats of rising levels and darks. Flats are paired in their order within equal
/// exposure. Two frames are in memory at a time, and one sum a pixel. Throws Refused: a flat without a second
/// one, or without two darks of its exposure; a frame that is unlike the first flat; a frame that does not
/// decode. Throws what `read` throws.
CameraMeasurement measureCamera(MeasurementSource source);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_CAMERA_MEASUREMENT_H
