#ifndef ORVACAM_SRC_GAIN_CALIBRATION_BLOCK_H
#define ORVACAM_SRC_GAIN_CALIBRATION_BLOCK_H

/// The merge calibration that a camera keeps: "Meta", the block's length, its version, then the settings.
namespace orvacam::calibration {

constexpr unsigned int headerSize = 8;
constexpr unsigned int smallestBlock = 9;  // header included
constexpr unsigned int largestBlock = 1024;
constexpr unsigned int newestVersion = 4;

}  // namespace orvacam::calibration

#endif  // ORVACAM_SRC_GAIN_CALIBRATION_BLOCK_H
