#ifndef ORVACAM_SRC_FACE_FRAME_LOOK_H
#define ORVACAM_SRC_FACE_FRAME_LOOK_H

#include <orvacam_c.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "face/Failure.h"
#include "face/HeaderValues.h"
#include "frames/DecodePlan.h"

namespace orvacam::face {

/// Planes by name, in the order in which they are told.
struct PlaneName {
  unsigned int bit;  ///< an orva_plane
  const char* name;
  orva_target orva_request::*target;
  orva_image* orva_decoded::*image;
};
constexpr PlaneName planeNames[] = {
    {ORVA_PLANE_LOW, "low", &orva_request::low, &orva_decoded::low},
    {ORVA_PLANE_HIGH, "high", &orva_request::high, &orva_decoded::high},
    {ORVA_PLANE_MERGED, "merged", &orva_request::merged, &orva_decoded::merged},
    {ORVA_PLANE_IMAGE, "image", &orva_request::image, &orva_decoded::image},
};
/// Where planeNames has an orva_plane.
constexpr std::size_t placeOf(unsigned int plane) {
  return static_cast<std::size_t>(__builtin_ctz(plane));
}
static_assert(planeNames[placeOf(ORVA_PLANE_HIGH)].bit == ORVA_PLANE_HIGH &&
              planeNames[placeOf(ORVA_PLANE_IMAGE)].bit == ORVA_PLANE_IMAGE);

/// What frames yield.
constexpr unsigned int imagePlane = ORVA_PLANE_IMAGE;
constexpr unsigned int pairPlanes = ORVA_PLANE_LOW | ORVA_PLANE_HIGH;
constexpr unsigned int mergedPlanes = pairPlanes | ORVA_PLANE_MERGED;

struct Check;

/// What a frame is, from its header and its bytes: the frame's plan, and what the plan means to a user. All
/// that says what a frame is, needs, yields and lacks asks here.
class FrameLook {
 public:
  /// The header must outlive the look; the bytes count from the header's first.
  FrameLook(const HeaderValues& header, const unsigned char* bytes, std::uint64_t length);

  const HeaderValues& header() const { return *m_header; }
  const DecodePlan& plan() const { return m_plan; }

  const FrameGeometry& geometryFacts() const { return m_plan.facts.geometry; }
  bool hasGeometry() const { return !geometryFacts().fault(); }
  /// Throws Failure (bad_geometry) where there is none.
  orva_geometry geometry() const;

  /// Whether all planes can be decoded.
  bool isDecodable() const { return m_firstError == nullptr; }
  /// Throws the Failure of the first error.
  void requireDecodable() const;
  bool isPair() const { return m_plan.kind == StreamKind::PackedPair; }
  /// Whether the pair is to be merged, as far as its gain ratio lets it.
  bool wantsMerge() const { return isPair() && m_plan.facts.hdr; }
  /// As orva_plane bits; with the sensor's own gain ratio.
  unsigned int planes() const;

  /// Where the frame ends that begins the bytes.
  std::uint64_t end() const { return std::max<std::uint64_t>(m_plan.firstByte, m_plan.bytesNeeded); }
  std::uint64_t trailing() const { return m_length > end() ? m_length - end() : 0; }
  bool isFollowedByFrame() const;

 private:
  const HeaderValues* m_header;
  const unsigned char* m_bytes;
  std::uint64_t m_length;
  DecodePlan m_plan;
  const Check* m_firstError;
};

/// A header alone: as if all of its frame's bytes were there.
FrameLook lookAtHeader(const HeaderValues& header);

/// What a check has to say; nothing where it does not apply.
using Said = std::optional<std::string>;

/// One thing that a look can bring up. The table of them is what check, decoding errors and the documentation
/// are made of.
struct Check {
  orva_finding kind;  ///< its text is the meaning
  Said (*say)(const FrameLook& look);
};

/// Errors first, then warnings, then notes; each in the order in which they are told.
constexpr std::size_t checkCount = 20;
extern const Check checks[checkCount];

struct FindingText {
  const Check* check;
  std::string text;
};
std::vector<FindingText> findingsOf(const FrameLook& look);

/// An error as what decoding throws.
Failure failureOf(const FrameLook& look, const Check& error);

/// What keeps a frame out of a stack with another one: the field's name and both values; "" for nothing.
/// `allowed` is an orva_allowance. Throws Failure (bad_geometry).
std::string unlikeness(const HeaderValues& first, const HeaderValues& frame, int allowed);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_FRAME_LOOK_H
