#include "face/FrameLook.h"

#include <cstring>
#include <limits>

#include "face/Gains.h"

namespace orvacam::face {

namespace {

constexpr std::uint64_t allThere = std::numeric_limits<std::uint64_t>::max() / 2;

const Check* firstErrorOf(const FrameLook& look) {
  for (const Check& check : checks)
    if (check.kind.severity == ORVA_ERROR && check.say(look)) return &check;
  return nullptr;
}

}  // namespace

FrameLook::FrameLook(const HeaderValues& header, const unsigned char* bytes, std::uint64_t length)
    : m_header(&header),
      m_bytes(bytes),
      m_length(length),
      m_plan(makePlan(planMakerOf(header.device()), header, length)),
      m_firstError(firstErrorOf(*this)) {}

FrameLook lookAtHeader(const HeaderValues& header) {
  return {header, nullptr, allThere};
}

orva_geometry FrameLook::geometry() const {
  if (!hasGeometry()) throw failureOf(*this, *m_firstError);
  const FrameGeometry& all = geometryFacts();
  return {sizeof(orva_geometry),
          narrow(all.binnedColumns().frame()),
          narrow(all.binnedRows().frame()),
          narrow(all.binnedColumns().before),
          narrow(all.binnedRows().before),
          narrow(all.binnedColumns().image),
          narrow(all.binnedRows().image),
          m_header->number(ORVA_META_KEY_IMAGE_START_ROW)};
}

void FrameLook::requireDecodable() const {
  if (m_firstError != nullptr) throw failureOf(*this, *m_firstError);
}

unsigned int FrameLook::planes() const {
  if (!isDecodable()) return 0;
  if (!isPair()) return imagePlane;
  return wantsMerge() && isMergeable(gainRatioOf(*m_header, nullptr)) ? mergedPlanes : pairPlanes;
}

bool FrameLook::isFollowedByFrame() const {
  constexpr char magic[] = {'M', 'e', 't', 'a'};
  return trailing() >= sizeof magic && std::memcmp(m_bytes + end(), magic, sizeof magic) == 0;
}

std::vector<FindingText> findingsOf(const FrameLook& look) {
  std::vector<FindingText> findings;
  for (const Check& check : checks)
    if (Said said = check.say(look)) findings.push_back({&check, *std::move(said)});
  return findings;
}

Failure failureOf(const FrameLook& look, const Check& error) {
  Failure failure{error.kind.reason, error.say(look).value_or("")};
  if (error.kind.reason == ORVA_TRUNCATED) {
    failure.needed = look.plan().bytesNeeded;
    failure.available = look.plan().bytesGiven;
  }
  return failure;
}

}  // namespace orvacam::face
