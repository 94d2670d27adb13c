#ifndef ORVACAM_FILES_PARTIAL_LAYOUT_H
#define ORVACAM_FILES_PARTIAL_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

// How a partial stack lies in its file: what its writer and its reader have to agree on.

namespace orvacam::files::partial {

constexpr std::int64_t version = 1;
constexpr std::uint64_t mostFrames = std::uint64_t{1} << 30;
constexpr std::size_t digestBytes = 32;

/// Reference files, and the keywords of their sums.
constexpr struct {
  const char *role, *keyword;
} roles[] = {{"DSNU", "PARTDSNU"}, {"PRNU", "PARTPRNU"}, {"BIAS", "PARTBIAS"}, {"CALIBRATION", "PARTCALI"}};

/// The units behind the primary array.
constexpr struct {
  const char* name;
  std::int64_t bits;
} units[] = {{"SUM", 64}, {"SUMSQ", 64}, {"HEADER", 8}, {"FRAMES", 8}, {"HISTORY", 8}};
enum Unit { Sum, Squares, FirstHeader, Frames, History, unitCount };

[[noreturn]] inline void refuse(const std::string& what) {
  throw std::runtime_error(what);
}

}  // namespace orvacam::files::partial

#endif  // ORVACAM_FILES_PARTIAL_LAYOUT_H
