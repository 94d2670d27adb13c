#ifndef ORVACAM_FRAMES_CFRAMEGENERIC_H
#define ORVACAM_FRAMES_CFRAMEGENERIC_H

#include <orvacam/frames/CFramePlain.h>
#include <orvacam/types/export.h>

/// Frames of every camera that no other class knows.
class ORVACAM_API CFrameGeneric : public CFramePlain {};

#endif  // ORVACAM_FRAMES_CFRAMEGENERIC_H
