#ifndef ORVACAM_FRAMES_CFRAMELSGEN_H
#define ORVACAM_FRAMES_CFRAMELSGEN_H

#include <orvacam/frames/CFramePlain.h>
#include <orvacam/types/export.h>

/// Frames of the LSGEN device.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameLSGEN : public CFramePlain {};

#endif  // ORVACAM_FRAMES_CFRAMELSGEN_H
