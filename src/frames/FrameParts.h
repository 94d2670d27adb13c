#ifndef ORVACAM_SRC_FRAMES_FRAME_PARTS_H
#define ORVACAM_SRC_FRAMES_FRAME_PARTS_H

#include <orvacam/frames/IFrame.h>

#include <cstddef>

#include "support/FileMemory.h"

namespace orvacam {

/// The protected members of a frame, for the steps of the library's own classes, which are free functions.
struct FrameParts {
  CFrameMetaData*& metaData;
  unsigned char*& source;
  unsigned long& sourceLength;
  bool& sourceIncomplete;
  unsigned char*& lowWork;
  unsigned char*& highWork;
  unsigned char*& mergedWork;
  unsigned int& workSize;
  unsigned int& workSizeWithHeader;
  unsigned int& leadingBytes;
  bool& statisticsEnabled;
  CFrameStatistics& low;
  CFrameStatistics& high;
  CFrameStatistics& merged;
  unsigned int& imageFormat;
  CLog*& log;
  CCustomMergeAlgo*& algorithm;
  unpacked_images_t& planes;  ///< the caller's record, completed with working planes
};

FrameParts partsOf(IFrame& frame);

/// Gives a frame a file's bytes, which stay the lender's; where they are not whole, its operations fail.
void lendSource(IFrame& frame, const OwnedMemory& file, bool whole);

/// The bytes of a frame from some place on.
struct SourceBytes {
  const unsigned char* bytes = nullptr;
  std::size_t length = 0;

  /// None where the place lies behind them, or where there are none.
  SourceBytes from(std::size_t place) const {
    return bytes != nullptr && place < length ? SourceBytes{bytes + place, length - place} : SourceBytes{};
  }
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_FRAME_PARTS_H
