#ifndef ORVACAM_FRAMES_CFRAMEFACTORY_H
#define ORVACAM_FRAMES_CFRAMEFACTORY_H

#include <orvacam/frames/IFrame.h>
#include <orvacam/types/export.h>

/// Makes the frame object of a sensor.
/// Any thread may use it; the frame is the thread's own.
class ORVACAM_API CFrameFactory {
 public:
  /// A new frame of a device type (ORVADEVICETYPE), not initialized; unknown types get CFrameGeneric. The
  /// caller deletes it. Null without memory.
  static IFrame* Create(unsigned int uiDeviceType);
  /// A new frame of the metadata's device type that holds its own copy of the metadata and no source data
  /// yet.
  static IFrame* Create(const CFrameMetaData& metaData);
};

#endif  // ORVACAM_FRAMES_CFRAMEFACTORY_H
