#ifndef ORVACAM_TOOL_CORRECTIONS_H
#define ORVACAM_TOOL_CORRECTIONS_H

#include <map>
#include <optional>
#include <orvacam.hpp>
#include <string>
#include <vector>

#include "Inputs.h"
#include "Options.h"
#include "files/Subject.h"

namespace tool {

namespace files = orvacam::files;

/// The corrections that a call asks for: what they do to frames, and what files say of them.
class Corrections {
 public:
  /// Reads the files. Throws orvacam::Error, Failure.
  explicit Corrections(const CorrectionOptions& options);

  /// Throws Failure for a frame that a correction does not apply to.
  void requireApplicable(const orvacam::Frame& frame) const;
  /// The planes of a frame. Also throws orvacam::Error.
  orvacam::Decoded decode(const orvacam::Frame& frame, orvacam::Planes wanted);
  /// A decoder with these corrections, to keep.
  orvacam::Decoder decoder() const;

  /// Adds to a subject what the corrections have done to its plane.
  void describe(files::Subject& subject, const orvacam::Header& header);
  /// SHA-256 of the files by role: "DSNU", "PRNU", "BIAS", "CALIBRATION".
  const std::map<std::string, std::string>& digests() const { return m_digests; }

 private:
  void apply(orvacam::Decoder& decoder) const;
  void readBias(const std::string& path);
  void requireOffsets() const;
  double biasLevel(const files::Subject& subject, const orvacam::Header& header) const;

  CorrectionOptions m_options;
  std::string m_block;                   // the camera's calibration
  orvacam::Plane m_biasLow, m_biasHigh;  // of single images: low
  std::string m_biasSensor;
  void addReference(const char* role, const std::string& text, const std::string& path);

  std::vector<std::string> m_history;
  std::map<std::string, std::string> m_digests;
  orvacam::Decoder m_decoder, m_withoutPrnu;  // the second knows the gain ratio that a PRNU file replaces
};

/// Tells the run that reference files are not to be written to.
void addInputs(Targets& targets, const CorrectionOptions& options);

}  // namespace tool

#endif  // ORVACAM_TOOL_CORRECTIONS_H
