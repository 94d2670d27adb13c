#include <orvacam/frames/CFramePlain.h>

#include "frames/Decoding.h"

using namespace orvacam;

DecodePlan orvacam::planPlain(const FrameFacts& facts) {
  // Intended: reference pixels and rows are not sent.
  DecodePlan plan = facts.bits == 16
                        ? plain16(facts, facts.geometry.binnedImagePixels(), WhenShort::FillsWhatIsThere)
                        : undecoded(facts, Refusal::PixelSize);
  plan.biased = BothPlanes;  // intended: of the high-gain plane whatever it holds
  plan.takesBarePixels = true;
  return plan;
}

int CFramePlain::Unpack(unpacked_images_t* pImages) {
  return unpackFrame(*this, planPlain, pImages);
}

int CFramePlain::Merge(unpacked_images_t* pImages) {
  return mergeFrame(*this, planPlain, pImages);
}
