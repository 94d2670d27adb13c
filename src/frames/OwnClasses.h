#ifndef ORVACAM_SRC_FRAMES_OWN_CLASSES_H
#define ORVACAM_SRC_FRAMES_OWN_CLASSES_H

class CCustomMergeAlgo;
class CHWMergeReferenceFrames;
class IFrame;

namespace orvacam {

// The one place that asks whether a class was derived outside the library: such a class may override a step
// and want to see the planes before they are merged, or merge by another rule.

/// Whether the frame is exactly of one of the classes that CFrameFactory makes.
bool isOwnClass(const IFrame& frame);

/// The algorithm if it is exactly the camera's own merge, else null.
CHWMergeReferenceFrames* asOwnMerge(CCustomMergeAlgo* algorithm);

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_OWN_CLASSES_H
