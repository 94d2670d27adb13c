#ifndef ORVACAM_SCIENCE_REFERENCE_FILE_H
#define ORVACAM_SCIENCE_REFERENCE_FILE_H

#include <cstdint>
#include <orvacam.hpp>
#include <string>
#include <vector>

namespace orvacam::science {

/// 16-bit planes behind a header of version 3: the files that the merge reads terms from, and bias files.
/// Terms stand where the sensor's rows are: row 0 of a plane is row 0 of the sensor.
///
///     DSNU  signed, 3 fraction bits, added to a pixel
///     PRNU  unsigned, 10 fraction bits, multiplied with what DSNU leaves
///     bias  counts, subtracted from a pixel
struct ReferenceFile {
  Size size{};           ///< of a plane
  std::string sensor;    ///< that the frames must be of
  double exposure = 0;   ///< s, of the frames that it was made from
  double gainRatio = 0;  ///< of the header: that of a calibration made here
  double pedestal = 0;   ///< counts that a DSNU file leaves in the merged image; 0 where it names none
  unsigned planes = 2;   ///< low and high, or one
  std::uint64_t bytes = 0, bytesOfPair = 0;  ///< of the file; that two planes take
  std::vector<std::uint16_t> terms;          ///< plane after plane

  const std::uint16_t* plane(unsigned index) const {
    return terms.data() + std::size_t{index} * size.width * size.height;
  }
};

/// Reads one. Throws Refused, naming the path: what is no such file or too short; orvacam::Error.
ReferenceFile readReferenceFile(const std::string& path);

enum class ReferenceKind { bias, dsnu, prnu };

/// Files of the three kinds look alike. Throws Refused, naming the path, where a plane's median says that a
/// file of two planes is of another kind: an offset that it takes off is none of -5 (another maker may leave
/// a few) to 4095 counts; or it corrects the high gain by less than 1/4 or more than 4.
void requireKind(const std::string& path, const ReferenceFile& file, ReferenceKind kind);

/// What the header of a reference file says beside what the frames' header says.
struct ReferenceHeader {
  double gainRatio = 0;   ///< of low to high gain; 0: none
  unsigned pedestal = 0;  ///< counts
};

/// The header for planes of frames with this header (that of a decoded plane): version 3, 384 bytes, binning
/// 1, start row 0, as many rows ahead of the planes' as the frames start below the sensor's first. Throws
/// Refused where a header cannot hold that size.
std::string referenceHeader(const Header& ofPlane, const ReferenceHeader& facts);

/// A term as 16 bits, rounded to nearest, halves to even; what the format does not hold is cut off, and
/// counted.
struct FixedPoint {
  double one;          ///< 8 or 1024
  double least, most;  ///< of the number that is stored
  std::uint64_t clipped = 0;

  std::uint16_t operator()(double value);
  /// The value that a stored number stands for.
  double back(std::uint16_t stored) const;
};
inline FixedPoint dsnuTerms() {
  return {8, -32768, 32767, 0};
}
inline FixedPoint prnuTerms() {
  return {1024, 0, 65535, 0};
}
inline FixedPoint biasTerms() {
  return {1, 0, 65535, 0};
}

/// Appends 16-bit values, the low byte first.
void appendTerms(std::string& file, const std::vector<std::uint16_t>& terms);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_REFERENCE_FILE_H
