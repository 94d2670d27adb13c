#include <orvacam/frames/CFrameArgent23084.h>
#include <orvacam/frames/CFrameFactory.h>
#include <orvacam/frames/CFrameGSense2020.h>
#include <orvacam/frames/CFrameGSense400.h>
#include <orvacam/frames/CFrameGSense4040.h>
#include <orvacam/frames/CFrameGSense6060.h>
#include <orvacam/frames/CFrameGeneric.h>
#include <orvacam/frames/CFrameIMX183.h>
#include <orvacam/frames/CFrameLSGEN.h>
#include <orvacam/merge/CHWMergeReferenceFrames.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/types/device_types.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <typeinfo>

#include "frames/DecodePlan.h"
#include "frames/OwnClasses.h"
#include "sensors/Sensors.h"
#include "support/KeyedTable.h"

using orvacam::FrameClass;

namespace {

template <typename Frame>
IFrame* make() {
  return new (std::nothrow) Frame;
}

struct Maker {
  FrameClass frame;
  IFrame* (*make)();
  const std::type_info* type;
  orvacam::PlanMaker plan;
};

constexpr Maker makers[] = {
    {FrameClass::GSense400, make<CFrameGSense400>, &typeid(CFrameGSense400), orvacam::planGSense400},
    {FrameClass::GSense2020, make<CFrameGSense2020>, &typeid(CFrameGSense2020), orvacam::planGSense2020},
    {FrameClass::GSense4040, make<CFrameGSense4040>, &typeid(CFrameGSense4040), orvacam::planGSense4040},
    {FrameClass::GSense6060, make<CFrameGSense6060>, &typeid(CFrameGSense6060), orvacam::planGSense6060},
    {FrameClass::Argent23084, make<CFrameArgent23084>, &typeid(CFrameArgent23084), orvacam::planArgent23084},
    {FrameClass::IMX183, make<CFrameIMX183>, &typeid(CFrameIMX183), orvacam::planPlain},
    {FrameClass::LSGEN, make<CFrameLSGEN>, &typeid(CFrameLSGEN), orvacam::planPlain},
    {FrameClass::Generic, make<CFrameGeneric>, &typeid(CFrameGeneric), orvacam::planPlain},
};
static_assert(orvacam::hasARowForEach(orvacam::frameClassCount, makers, &Maker::frame));

const Maker& makerOf(unsigned int device) {
  return makers[static_cast<unsigned int>(orvacam::sensorOf(device).frame)];
}

}  // namespace

IFrame* CFrameFactory::Create(unsigned int uiDeviceType) {
  return makerOf(uiDeviceType).make();
}

IFrame* CFrameFactory::Create(const CFrameMetaData& metaData) {
  unsigned int device = ORVA_DEVICE_UNKNOWN;
  metaData.GetDeviceType(device);
  IFrame* const frame = Create(device);
  // Takes the metadata; fails for want of a stream, which does not matter here.
  if (frame != nullptr) frame->Initialize(metaData, static_cast<std::FILE*>(nullptr), nullptr);
  return frame;
}

orvacam::PlanMaker orvacam::planMakerOf(unsigned int device) {
  return makerOf(device).plan;
}

bool orvacam::isOwnClass(const IFrame& frame) {
  return std::any_of(std::begin(makers), std::end(makers),
                     [&](const Maker& maker) { return *maker.type == typeid(frame); });
}

CHWMergeReferenceFrames* orvacam::asOwnMerge(CCustomMergeAlgo* algorithm) {
  if (algorithm == nullptr || typeid(*algorithm) != typeid(CHWMergeReferenceFrames)) return nullptr;
  return static_cast<CHWMergeReferenceFrames*>(algorithm);
}
