#ifndef ORVACAM_SCIENCE_CALIBRATION_FRAMES_H
#define ORVACAM_SCIENCE_CALIBRATION_FRAMES_H

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <orvacam.hpp>
#include <string>
#include <vector>

#include "science/FrameBands.h"
#include "science/ReferenceFile.h"
#include "science/RobustRows.h"

namespace orvacam::science {

enum class CalibrationKind { bias, dark, flat };

/// What a calibration is made from.
struct CalibrationSource {
  CalibrationKind kind = CalibrationKind::bias;
  std::vector<std::string> frames;  ///< names; two or more
  std::function<Frame(const std::string&)> read = [](const std::string& path) { return Frame::read(path); };
  std::uint64_t memory = std::uint64_t{1} << 30;  ///< bytes: rows are combined in bands that fit
  std::string dark, bias;                 ///< of flats: the DSNU or the bias file that takes the offset off
  std::optional<unsigned> pedestal;       ///< of darks: counts; none: the one that serves
  std::optional<unsigned> highThreshold;  ///< of darks: of the merge that they are for; none: the usual one
  std::optional<double> ratio;            ///< of darks and flats; none: that of the gains
  bool measuredRatio = false;             ///< of flats: the one that they show
  /// Called with every frame and row: the caller's moment, to report or to stop by an exception.
  std::function<void()> pause = [] {};
};

/// The offset that is taken off flats.
class FlatOffset {
 public:
  FlatOffset() = default;
  /// Reads the file. Throws Refused where it does not cover frames with this header, orvacam::Error.
  FlatOffset(const CalibrationSource& source, const Header& frames, double tableRatio);

  bool empty() const { return m_file == nullptr; }
  /// Of a row of a frame's plane, counts.
  void row(unsigned plane, std::uint32_t y, std::vector<double>& counts) const;
  /// The ratio that a DSNU file was made with; 0 for none.
  double ratio() const { return m_ratio; }
  double exposure() const { return m_file->exposure; }

 private:
  std::shared_ptr<const ReferenceFile> m_file;
  bool m_dsnu = false;
  std::uint32_t m_startRow = 0;
  double m_pedestals[2] = {};
  double m_ratio = 0;
};

/// What is known of all frames before they are combined.
struct CalibrationSurvey {
  std::optional<Header> header;       ///< of the first frame
  std::optional<Header> planeHeader;  ///< of its first plane
  std::vector<std::string> planes;    ///< {"low", "high"} or {"image"}
  Size size{};
  Region image{};
  MergeInfo merge{};
  double fullScale = 0;           ///< counts
  std::array<double, 2> gains{};  ///< electrons per count, by the header; 0 where it does not say
  /// Of each frame and plane: the mean of the image region less its offset, outliers aside, counts.
  std::vector<std::array<double, 2>> levels;
  std::array<NoiseModel, 2> noise;  ///< of single frames; of flats, in parts of the level
  FlatOffset offset;
};

/// Rows of a plane, combined.
struct CombinedPlane {
  std::vector<float> means;     ///< counts; of flats, parts of the level
  std::vector<float> blinking;  ///< deviation of blinking pixels, else 0
  std::vector<RowSums> sums;    ///< of each row
};
struct CombinedRows {
  std::uint32_t first = 0, rows = 0;
  std::vector<CombinedPlane> planes;
};

/// The survey of frames that are seen one after the other.
class CalibrationSurveyor {
 public:
  /// Reads the first frame, to know what it is. Throws Refused, orvacam::Error, what `read` throws.
  explicit CalibrationSurveyor(const CalibrationSource& source);

  /// Takes the next frame. Throws Refused: one that does not fit.
  void see(const std::string& path, const std::vector<Plane>& planes);
  /// What all of them are; complete when every frame was seen.
  const CalibrationSurvey& survey() const { return m_survey; }

 private:
  void learnNoise(const std::vector<Plane>& planes);

  CalibrationKind m_kind;
  CalibrationSurvey m_survey;
  std::vector<std::vector<Plane>> m_earlier;  ///< the first frames
  double m_leastDiffer[2] = {-1, -1};         ///< of two of them, by plane; below 0: none yet
};

/// Combines rows of all frames; each row depends on itself alone. Calls `pause` with every row.
CombinedRows combineRows(const CalibrationSurvey& survey, const Band& band,
                         const std::function<void()>& pause);

/// Hands over the frames to read in turn. Throws Refused with the name of the frame that was read last where
/// one does not fit or cannot be decoded; orvacam::Error of a file, and what `read` throws.
void withSeries(const CalibrationSource& source, const std::function<void(FrameSeries)>& use);

/// Reads all frames as often as the memory asks for: `use` gets all rows, in their order. Throws Refused,
/// orvacam::Error, and what `read` throws.
CalibrationSurvey combineFrames(
    const CalibrationSource& source,
    const std::function<void(const CalibrationSurvey&, const CombinedRows&)>& use);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_CALIBRATION_FRAMES_H
