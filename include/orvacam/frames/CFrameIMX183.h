#ifndef ORVACAM_FRAMES_CFRAMEIMX183_H
#define ORVACAM_FRAMES_CFRAMEIMX183_H

#include <orvacam/frames/CFramePlain.h>
#include <orvacam/types/export.h>

/// Frames of the IMX183 sensor.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameIMX183 : public CFramePlain {};

#endif  // ORVACAM_FRAMES_CFRAMEIMX183_H
