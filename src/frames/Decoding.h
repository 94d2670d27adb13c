#ifndef ORVACAM_SRC_FRAMES_DECODING_H
#define ORVACAM_SRC_FRAMES_DECODING_H

#include "frames/DecodePlan.h"
#include "frames/FrameParts.h"

namespace orvacam {

/// The way of a frame. Unpack and Merge of every class but the CCD's merge are these.
int unpackFrame(IFrame& frame, PlanMaker maker, unpacked_images_t* images);
int mergeFrame(IFrame& frame, PlanMaker maker, unpacked_images_t* images);

/// Merges the frame's planes where the caller has a merged plane of enough pixels and the frame is an HDR
/// pair. Intended: a merged plane that is there without being asked for is merged into as well.
void mergePlanes(IFrame& frame, const unpacked_images_t& images);

// ---- For the documented steps of the classes

/// The bytes behind a header of so many bytes.
SourceBytes pixelBytes(const FrameParts& parts, std::uint64_t headerBytes);
/// Whether the source starts with a header.
bool hasHeader(const FrameParts& parts);
void resetStatistics(const FrameParts& parts);
void logStreamSizes(const FrameParts& parts);

struct PlaneRoom {
  unsigned short* plane;
  unsigned long pixels;
};

/// Decode packed pixels into planes with this room. 0; -1, with what is whole and fits decoded, without
/// metadata or source, when the source ends early or a plane is too small. Pairs are counted where statistics
/// are enabled.
int decodePair(IFrame& frame, StreamMaker maker, const PlaneRoom& low, const PlaneRoom& high);
int decodeSingle(IFrame& frame, const PlaneRoom& room);
/// Copies 16-bit pixels. Intended: all that there is room for or, without an error, none. 0.
int copyWhole16(IFrame& frame, const PlaneRoom& room);

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_DECODING_H
