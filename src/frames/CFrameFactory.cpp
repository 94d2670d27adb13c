#include <orvacam/frames/CFrameArgent23084.h>
#include <orvacam/frames/CFrameFactory.h>
#include <orvacam/frames/CFrameGSense2020.h>
#include <orvacam/frames/CFrameGSense400.h>
#include <orvacam/frames/CFrameGSense4040.h>
#include <orvacam/frames/CFrameGSense6060.h>
#include <orvacam/frames/CFrameGeneric.h>
#include <orvacam/frames/CFrameIMX183.h>
#include <orvacam/frames/CFrameLSGEN.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/types/device_types.h>

#include <new>

namespace {

template <typename Frame>
IFrame* make() {
  return new (std::nothrow) Frame;
}

constexpr struct {
  unsigned int device;
  IFrame* (*make)();
} makers[] = {
    {ORVA_DEVICE_GSENSE400, make<CFrameGSense400>},
    {ORVA_DEVICE_GSENSE2020, make<CFrameGSense2020>},
    {ORVA_DEVICE_GSENSE4040, make<CFrameGSense4040>},
    {ORVA_DEVICE_GSENSE6060, make<CFrameGSense6060>},
    {ORVA_DEVICE_ARGENT_4320, make<CFrameArgent23084>},
    {ORVA_DEVICE_ARGENT_23042, make<CFrameArgent23084>},
    {ORVA_DEVICE_ARGENT_23084, make<CFrameArgent23084>},
    {ORVA_DEVICE_IMX183, make<CFrameIMX183>},
    {ORVA_DEVICE_LSGEN, make<CFrameLSGEN>},
};

}  // namespace

IFrame* CFrameFactory::Create(unsigned int uiDeviceType) {
  for (const auto& maker : makers)
    if (maker.device == uiDeviceType) return maker.make();
  return make<CFrameGeneric>();
}

IFrame* CFrameFactory::Create(const CFrameMetaData& metaData) {
  unsigned int device = ORVA_DEVICE_UNKNOWN;
  metaData.GetDeviceType(device);
  IFrame* const frame = Create(device);
  // Takes the metadata; fails for want of a stream, which does not matter here.
  if (frame != nullptr) frame->Initialize(metaData, static_cast<std::FILE*>(nullptr), nullptr);
  return frame;
}
