#ifndef ORVACAM_SRC_FACADE_PIPELINE_H
#define ORVACAM_SRC_FACADE_PIPELINE_H

#include <orvacam/facade/CAlgo.h>

#include "support/FileMemory.h"

class IFrame;

/// The way of a frame through the façade, which MergeImage, MergeFile and ConvertFile share.
namespace orvacam {

gain_type_info_t cameraOf(const CFrameMetaData& metaData);

/// Gain tables of the camera that a header names. False without memory: the ratio would be another camera's.
bool takeGains(CMergeSettings& settings, const CFrameMetaData& metaData);
/// High to low gain ratio of a frame, from the tables that the settings hold.
double gainRatio(const CMergeSettings& settings, const CFrameMetaData& metaData);
/// Reference frames from files (either may be null), or of a gain ratio and the frame's size.
int takeReferences(CHWMergeReferenceFrames& merge, const CFrameMetaData& metaData, const wchar_t* dsnu,
                   const wchar_t* prnu, double ratio);

/// Which processed headers are delivered.
enum class Headers : unsigned char {
  WhereAskedFor,  ///< all, if the caller's record asks for them
  WhereGiven      ///< into each buffer that is there
};

/// Merges, then delivers statistics, also after a failure, and processed headers. The first failure.
int mergeAndDeliver(CAlgo& algo, IFrame& frame, unpacked_images_t& images, unpacked_stats_t* stats,
                    Headers headers);

/// Frees and nulls the six buffers.
void freeBuffers(unpacked_images_t& images);

/// Memory that one conversion leaves to the next of frames of the same size: fresh pages cost several times
/// what is done with them.
struct ConversionMemory {
  ConversionMemory() = default;
  ConversionMemory(const ConversionMemory&) = delete;
  ConversionMemory& operator=(const ConversionMemory&) = delete;
  ~ConversionMemory() { freeBuffers(images); }

  OwnedMemory file;
  unpacked_images_t images{};  ///< their buffers, too
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_FACADE_PIPELINE_H
