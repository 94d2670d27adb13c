#ifndef ORVACAM_SRC_FRAMES_QUADRANTS_H
#define ORVACAM_SRC_FRAMES_QUADRANTS_H

#include <cstddef>

#include "frames/FrameParts.h"

namespace orvacam {

/// The amplifiers at a CCD's corners, as the header has them. Each alone reads the whole sensor; all together
/// read a quarter each.
enum Amplifier : unsigned int {
  UpperLeft = 0x20,
  UpperRight = 0x10,
  LowerLeft = 0x08,
  LowerRight = 0x04,
  AllAmplifiers = 0x3C
};

/// A CCD frame of 16-bit big-endian pixels, and a plane with room for it. Every pixel is counted.
struct CcdFrame {
  SourceBytes source;
  std::size_t width, height;  ///< not 0
  unsigned short* plane;
  CFrameStatistics& statistics;
};

/// All read what is whole: 0, or -1 when the source ends early.
int readAllAmplifiers(const CcdFrame& frame);
int readOneAmplifier(const CcdFrame& frame, bool mirrorColumns, bool mirrorRows);
/// By these amplifiers, or the first one of them; -1 when there is none.
int readAmplifiers(const CcdFrame& frame, unsigned int amplifiers);

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_QUADRANTS_H
