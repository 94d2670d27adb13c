// The reference table: the plain definitions, compiled for any processor of the architecture.

#include "kernels/KernelLoops.h"
#include "kernels/KernelTables.h"

namespace orvacam::kernels {

static bool always() {
  return true;
}

static void nothingToFinish() {}

extern const KernelTable referenceTable = {"reference",
                                           always,
                                           loops::unpack12,
                                           loops::swapBytes,
                                           loops::swapBytesMirrored,
                                           loops::subtractBias,
                                           loops::countValues,
                                           loops::placePairs,
                                           loops::findExtremes,
                                           loops::findFirst,
                                           loops::findEach,
                                           loops::mergeUniform,
                                           loops::mergePlanes,
                                           loops::mergeMapped,
                                           loops::mergeByLine,
                                           loops::addToSums8,
                                           loops::addToSums16,
                                           loops::startSums8,
                                           loops::startSums16,
                                           loops::emptySums,
                                           loops::meansOfSums,
                                           loops::meansOfRecentSums,
                                           loops::unpack12,
                                           loops::swapBytes,
                                           loops::swapBytesMirrored,
                                           loops::mergeUniform,
                                           loops::mergePlanes,
                                           nothingToFinish,
                                           loops::mergePacked<UniformTerms>,
                                           loops::mergePacked<PlaneTerms>,
                                           loops::mergePacked<UniformTerms>,
                                           loops::mergePacked<PlaneTerms>};

}  // namespace orvacam::kernels
