#ifndef ORVACAM_FILES_SUBJECT_H
#define ORVACAM_FILES_SUBJECT_H

#include <orvacam.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "files/Text.h"

namespace orvacam::files {

/// What a frame's header says, by the documented names of its values. Implementations are immutable.
class Fields {
 public:
  virtual ~Fields() = default;
  /// 1 to 4.
  virtual unsigned version() const = 0;
  /// None for a value that is not known.
  virtual std::optional<double> number(const char* key) const = 0;
  virtual std::optional<std::string> text(const char* key) const = 0;
};

/// The values of a raw header.
std::shared_ptr<const Fields> fieldsOf(const Header& header);

/// How two planes became one.
struct MergeFacts {
  double ratio = 0;                   ///< low gain to high gain, as the merge uses it
  bool prnu = false;                  ///< a PRNU reference stands for the ratio
  unsigned high = 0, difference = 0;  ///< thresholds
  int type = 0;
};

/// How frames became one.
struct StackFacts {
  bool sum = false;
  std::uint64_t frames = 0;
  double exposure = 0;  ///< s, of all frames together
  std::optional<Instant> earliest, end;
};

/// What a file is about: one plane, and how it came to be.
struct Subject {
  std::shared_ptr<const Fields> fields;
  std::string plane;  ///< "low", "high", "merged", "image"; "" for what all planes of a frame share
  Size size{};        ///< of the plane as it is written
  Region image{};     ///< of it, the pixels that saw the sky
  std::optional<Instant> time;
  bool cameraClock = false;  ///< the time is not that of GPS
  std::optional<MergeFacts> merge;
  std::optional<StackFacts> stack;
  bool isCount = false;  ///< pixels are numbers of frames, no brightness
  double bias = 0;       ///< what a bias frame took away: its median; for a merged plane that of the low gain
  std::vector<std::string> history;
  std::string date;  ///< of writing, "" to leave it out

  /// Whether the setting of the high gain holds for the plane.
  bool highGain() const;
  bool hasReferences() const { return image.width != size.width || image.height != size.height; }
  /// The largest value that means something, in ADU.
  double saturation() const;
  /// s; of a sum the total.
  double exposure() const;
  /// µm of a binned pixel; 0 when it is not known.
  double pixelWidth() const;
  double pixelHeight() const;
  std::string model() const;
};

/// The subject of a frame's plane: header, geometry and time. What else is known is the caller's to add.
Subject subjectOf(const Header& header, const std::string& plane);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_SUBJECT_H
