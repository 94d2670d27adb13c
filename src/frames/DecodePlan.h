#ifndef ORVACAM_SRC_FRAMES_DECODE_PLAN_H
#define ORVACAM_SRC_FRAMES_DECODE_PLAN_H

#include <cstdint>

#include "frames/Quadrants.h"
#include "frames/StreamLayout.h"
#include "metadata/FrameGeometry.h"

namespace orvacam {

/// How a frame's pixels lie behind its header.
enum class StreamKind : unsigned int {
  None,          ///< in no way that the sensor's class decodes
  PackedPair,    ///< 12 bits, rows of low and of high gain in turn
  PackedSingle,  ///< 12 bits, one image
  Plain16,       ///< 16 bits, little-endian, one image
  Sampled13,     ///< correlated multiple sampling: eight pixels in 13 bytes
  Quadrants      ///< 16 bits, big-endian, as the amplifiers at the sensor's corners read them
};

/// Why a frame cannot be decoded; `DecodePlan` has the numbers.
enum class Refusal : unsigned int {
  None,
  NoGeometry,          ///< facts.geometry.fault(): the header contradicts itself
  PlaneTooLarge,       ///< a plane takes more than 2^32 - 1 bytes: planePixels
  OutOfProportion,     ///< a plane takes more than 8 MiB and 64 times the bytes that there are
  ImageExceedsPlane,   ///< imagePixels > planePixels: binning that the sensor's class does not decode
  PixelSize,           ///< pixels of so many bits are not decoded: facts.bits
  HdrOfSingleImage,    ///< an HDR frame whose pixels come as one image
  NoAmplifier,         ///< no amplifier read the CCD
  StreamExceedsPlane,  ///< streamPixels > planePixels: runs of odd numbers of pixels, reference pixels that
                       ///< come twice, a binned CCD
  SourceEnds           ///< bytesNeeded > bytesGiven
};

/// What a header says that decides how its frame is decoded.
struct FrameFacts {
  explicit FrameFacts(const CFrameMetaData& metaData);

  FrameGeometry geometry;
  unsigned int bits;        ///< of a pixel in the stream
  bool hdr;                 ///< the flag
  bool sampled;             ///< correlated multiple sampling
  unsigned int amplifiers;  ///< those that read the sensor
};

/// Planes as bits.
enum PlaneBits : unsigned int { NoPlane = 0, LowPlane = 1, HighPlane = 2, BothPlanes = LowPlane | HighPlane };

/// What is done with a source that ends before the stream does.
enum class WhenShort : unsigned int {
  FillsWhatIsThere,  ///< -1; the rest of the plane is 0
  IsLeftUncopied     ///< intended, of single 16-bit images of the GSENSE sensors: no error, a plane of 0
};

/// What a sensor's class does with a frame, worked out before anything is decoded. The classes differ in
/// nothing else; one executor carries every plan out.
///
/// A plan without a refusal decodes: operations return -1 for exactly those frames that have one (buffers of
/// the caller's and memory apart).
struct DecodePlan {
  explicit DecodePlan(const FrameFacts& frame) : facts(frame) {}

  FrameFacts facts;
  StreamKind kind = StreamKind::None;
  Refusal refusal = Refusal::None;  ///< the first one, in their order

  /// The stream, of packed pixels.
  StreamLayout stream{};
  /// Planes that the stream fills.
  unsigned int planes = LowPlane;
  /// Whether the class makes a merged plane: of frames with the HDR flag, whatever their pixels are.
  bool merges = false;

  std::uint64_t planePixels = 0;   ///< of each plane: the binned frame, reference rows and pixels included
  std::uint64_t imagePixels = 0;   ///< what the class holds against them
  std::uint64_t streamPixels = 0;  ///< that the stream brings to a plane, from its start on
  std::uint64_t firstByte = 0;     ///< where pixels begin
  std::uint64_t streamBytes = 0;
  std::uint64_t bytesNeeded = 0;  ///< counted from the first byte of the header; 0 for no pixels
  std::uint64_t bytesGiven = 0;

  // ---- What differs between classes for no other reason than that it always did

  /// Planes that a bias frame is subtracted from. Intended: single images of the GSENSE400 and of plain
  /// cameras are corrected, those of other GSENSE sensors are not.
  unsigned int biased = NoPlane;
  /// Planes whose statistics are computed at the end, where they are enabled: also of a plane that the stream
  /// does not fill, also after a failure. Intended: the GSENSE400 leaves those of the high-gain plane of a
  /// single image reset.
  unsigned int computed = BothPlanes;
  /// Intended: a CCD's statistics are gathered whether they are enabled or not.
  bool alwaysCounted = false;
  /// Whether a source may be bare pixels: a header is skipped only where there is one.
  bool takesBarePixels = false;
  WhenShort whenShort = WhenShort::FillsWhatIsThere;
  /// Whether the class logs its sizes.
  bool logsSizes = false;

  /// Whether all bytes of the stream are there.
  bool isWhole() const { return bytesNeeded <= bytesGiven; }
};

/// What one sensor's class does with a frame, before it is held against the bytes that there are.
using PlanMaker = DecodePlan (*)(const FrameFacts& facts);

DecodePlan planGSense400(const FrameFacts& facts);
DecodePlan planGSense2020(const FrameFacts& facts);
DecodePlan planGSense4040(const FrameFacts& facts);
DecodePlan planGSense6060(const FrameFacts& facts);
DecodePlan planArgent23084(const FrameFacts& facts);
DecodePlan planPlain(const FrameFacts& facts);

/// The maker of a device type's plans (ORVADEVICETYPE); planPlain for types that no class knows.
PlanMaker planMakerOf(unsigned int device);

/// The plan of a frame of so many bytes, header included, or bare pixels where `hasHeader` is false.
DecodePlan makePlan(PlanMaker maker, const CFrameMetaData& metaData, std::uint64_t bytesGiven,
                    bool hasHeader = true);
/// The same by the class that CFrameFactory picks for the metadata.
DecodePlan makePlan(const CFrameMetaData& metaData, std::uint64_t bytesGiven, bool hasHeader = true);

/// Why planes of this size are not made for so many bytes: the first reasons of a plan.
Refusal refusalOfPlanes(const FrameGeometry& geometry, std::uint64_t bytesGiven);

// ---- What plans are made of

/// The size of an axis, which is short enough for 31 bits.
constexpr unsigned int narrow(std::uint64_t size) {
  return static_cast<unsigned int>(size);
}

/// A plan that says nothing of the stream yet.
DecodePlan planOf(const FrameFacts& facts);
DecodePlan packedPair(const FrameFacts& facts, const StreamLayout& stream);
DecodePlan packedSingle(const FrameFacts& facts);
DecodePlan plain16(const FrameFacts& facts, std::uint64_t pixels, WhenShort whenShort);
DecodePlan undecoded(const FrameFacts& facts, Refusal refusal);

/// The streams of packed pixels, whatever the frame's mode.
using StreamMaker = StreamLayout (*)(const FrameFacts& facts);
StreamLayout pairStreamGSense400(const FrameFacts& facts);
StreamLayout pairStreamGSense2020(const FrameFacts& facts);
StreamLayout pairStreamGSense6060(const FrameFacts& facts);
StreamLayout singleStream(const FrameFacts& facts);

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_DECODE_PLAN_H
