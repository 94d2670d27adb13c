#ifndef ORVACAM_TOOL_STACKING_H
#define ORVACAM_TOOL_STACKING_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Inputs.h"
#include "Options.h"
#include "PlaneFile.h"
#include "files/PartialStack.h"

namespace tool {

struct StackOptions {
  InputOptions inputs;
  CorrectionOptions corrections;
  OutputOptions outputs;
  std::string output, format, partial, rejectedMap;
  std::string method = "mean", type = "float32", plane, normalization = "none", weights = "none";
  bool hasSigma = false;
  double sigmaLow = 3, sigmaHigh = 3;
  std::uint64_t memory = std::uint64_t{1} << 30;
  bool force = false, combine = false;

  /// Whether exact sums are all that is needed.
  bool isSummed() const {
    return (method == "mean" || method == "sum") && normalization == "none" && weights == "none";
  }
  bool rejects() const { return method == "sigma" || method == "winsorized"; }
};

/// One frame of many, and where frames were rejected.
struct Stacked {
  Product product;
  std::optional<Product> rejected;
};

/// The names of the methods.
Names stackMethods();

/// Frames, or partial stacks, as a partial stack; none when one failed, which was reported. Throws Failure,
/// orvacam::Error for references.
std::optional<files::PartialStack> sumsOf(const StackOptions& options, const std::vector<Input>& inputs);
/// The frame that a partial stack amounts to.
Stacked stackedOf(const StackOptions& options, files::PartialStack part);
/// Frames as one, by any method. None when one failed, which was reported.
std::optional<Stacked> stackedOf(const StackOptions& options, const std::vector<Input>& inputs);

}  // namespace tool

#endif  // ORVACAM_TOOL_STACKING_H
