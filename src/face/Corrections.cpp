#include "face/Corrections.h"

#include <cstring>

#include "face/Frames.h"

namespace orvacam::face {

namespace {

std::unique_ptr<ReferenceTerms> takeReference(FileBytes file) {
  const auto header = HeaderValues::parse(file.bytes.get(), file.length);
  const FrameLook look = lookAtHeader(*header);
  look.geometry();  // throws where there is none
  if (header->statedLength() < header->neededLength())
    fail(ORVA_BAD_GEOMETRY, "states a header of " + std::to_string(header->statedLength()) + " bytes");
  // Terms are those of the whole frame, whatever the header says of binning.
  const FrameGeometry& all = look.geometryFacts();
  auto reference = std::make_unique<ReferenceTerms>();
  reference->sensor = header->sensor();
  reference->width = static_cast<std::uint32_t>(all.columns().frame());
  reference->height = static_cast<std::uint32_t>(all.rows().frame());
  const std::size_t bytes = 2 * sizeof(std::uint16_t) * reference->count();
  const std::size_t begin = header->statedLength();
  if (file.length - begin < bytes)
    throw Failure{ORVA_TRUNCATED,
                  "needs " + std::to_string(begin + bytes) + " bytes (" +
                      sizeText(reference->width, reference->height) +
                      " terms of 16 bits in two planes behind a header of " + std::to_string(begin) +
                      " bytes), ends at byte " + std::to_string(file.length),
                  begin + bytes, file.length};
  std::memmove(file.bytes.get(), file.bytes.get() + begin, bytes);
  reference->terms = std::move(file);
  return reference;
}

}  // namespace

std::unique_ptr<const ReferenceTerms> readReference(const char* what, const char* path) {
  if (path == nullptr || *path == '\0') return nullptr;
  auto reference = withPath(path, [&] { return takeReference(readFile(path, requireHeader)); });
  reference->what = what;
  return reference;
}

Coverage coverageOf(const ReferenceTerms& reference) {
  return {reference.what, reference.sensor, reference.width, reference.height, 0};
}

Coverage coverageOf(const char* what, const orva_image& bias) {
  if (!bias.header) return {what, nullptr, bias.width, bias.height, 0};
  const HeaderValues& header = bias.header->values();
  return {what, header.sensor(), bias.width, bias.height, header.number(ORVA_META_KEY_IMAGE_START_ROW)};
}

std::size_t rowOfFrame(const Coverage& correction, const FrameLook& frame) {
  const orva_geometry plane = frame.geometry();
  const std::uint64_t first = plane.start_row;
  const std::uint64_t end = first + plane.height;
  const std::uint64_t covered = std::uint64_t{correction.startRow} + correction.height;
  if (correction.sensor != nullptr && std::strcmp(correction.sensor, frame.header().sensor()) != 0)
    fail(ORVA_MISMATCH,
         correction.what + " is of a " + correction.sensor + ", the frame of a " + frame.header().sensor());
  if (correction.width != plane.width || first < correction.startRow || end > covered)
    fail(ORVA_MISMATCH,
         correction.what + " of " + sizeText(correction.width, correction.height) +
             (correction.startRow > 0 ? " from row " + std::to_string(correction.startRow) + " on" : "") +
             " does not cover the frame of " + sizeText(plane.width, plane.height) +
             (first > 0 ? " from row " + std::to_string(first) + " on" : ""));
  return first - correction.startRow;
}

void requireAlike(const Coverage& one, const Coverage& other) {
  if (one.sensor != nullptr && other.sensor != nullptr && std::strcmp(one.sensor, other.sensor) != 0)
    fail(ORVA_MISMATCH, one.what + " is of a " + one.sensor + ", " + other.what + " of a " + other.sensor);
  if (one.width != other.width || one.height != other.height || one.startRow != other.startRow)
    fail(ORVA_MISMATCH, one.what + " has " + sizeText(one.width, one.height) + ", " + other.what + " " +
                            sizeText(other.width, other.height));
}

}  // namespace orvacam::face
