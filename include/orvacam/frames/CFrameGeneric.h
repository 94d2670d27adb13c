#ifndef ORVACAM_FRAMES_CFRAMEGENERIC_H
#define ORVACAM_FRAMES_CFRAMEGENERIC_H

#include <orvacam/frames/CFramePlain.h>
#include <orvacam/types/export.h>

/// Frames of every camera that no other class knows.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameGeneric : public CFramePlain {};

#endif  // ORVACAM_FRAMES_CFRAMEGENERIC_H
