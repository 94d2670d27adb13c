#include "facade/Pipeline.h"

#include <orvacam/frames/IFrame.h>
#include <orvacam/types/device_types.h>

#include <cstdlib>
#include <utility>

#include "metadata/FrameGeometry.h"
#include "metadata/Values.h"

namespace orvacam {

namespace {

bool wantsStatistics(const unpacked_stats_t* stats) {
  return stats != nullptr &&
         (stats->statsLow.bRequest || stats->statsHigh.bRequest || stats->statsMerged.bRequest);
}

}  // namespace

gain_type_info_t cameraOf(const CFrameMetaData& metaData) {
  gain_type_info_t camera{ORVA_DEVICE_UNKNOWN,
                          metaData.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
  metaData.GetDeviceType(camera.uiDeviceType);
  return camera;
}

bool takeGains(CMergeSettings& settings, const CFrameMetaData& metaData) {
  settings.Initialize(cameraOf(metaData), nullptr);
  return settings.HasGainTables();
}

double gainRatio(const CMergeSettings& settings, const CFrameMetaData& metaData) {
  return settings.GetGainRatio(numberOf(metaData, ORVA_META_KEY_LDR_GAIN),
                               numberOf(metaData, ORVA_META_KEY_HDR_GAIN));
}

int takeReferences(CHWMergeReferenceFrames& merge, const CFrameMetaData& metaData, const wchar_t* dsnu,
                   const wchar_t* prnu, double ratio) {
  if (dsnu != nullptr || prnu != nullptr) return merge.CreateReferenceFrames(dsnu, prnu, ratio, 1.0, nullptr);
  const FrameGeometry geometry(metaData);
  return merge.CreateIdentityFrames(static_cast<unsigned int>(geometry.columns().frame()),
                                    static_cast<unsigned int>(geometry.rows().frame()), ratio, 1.0, nullptr);
}

int mergeAndDeliver(CAlgo& algo, IFrame& frame, unpacked_images_t& images, unpacked_stats_t* stats,
                    Headers headers) {
  frame.EnableMergeStatistics(wantsStatistics(stats));
  int result = frame.Merge(&images);
  algo.GetStats(&frame, stats);
  const struct {
    unsigned char* buffer;
    int (IFrame::*write)(unsigned char*, unsigned int);
  } planes[] = {{images.pLowMetaData, &IFrame::GetProcessedLowMetaData},
                {images.pHighMetaData, &IFrame::GetProcessedHighMetaData},
                {images.pMergedMetaData, &IFrame::GetProcessedMergedMetaData}};
  for (const auto& plane : planes) {
    const bool wanted = headers == Headers::WhereGiven ? plane.buffer != nullptr : images.bMetaDataRequest;
    if (result >= 0 && wanted) result = (frame.*plane.write)(plane.buffer, images.uiMetaDataSize);
  }
  return result;
}

void freeBuffers(unpacked_images_t& images) {
  for (unsigned char** metaData : {&images.pLowMetaData, &images.pHighMetaData, &images.pMergedMetaData})
    std::free(std::exchange(*metaData, nullptr));
  for (unsigned short** image : {&images.pLowImage, &images.pHighImage, &images.pMergedImage})
    std::free(std::exchange(*image, nullptr));
}

}  // namespace orvacam
