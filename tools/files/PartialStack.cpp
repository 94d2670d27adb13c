#include "files/PartialStack.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "files/PartialLayout.h"
#include "files/Sha256.h"

namespace orvacam::files {

namespace {

constexpr double unitsPerSecond = 100000;
constexpr double mostDegreesApart = 1.0;

}  // namespace

void StackRecord::add(const Frame& frame, bool digest) {
  const Header& header = frame.header();
  exposure += static_cast<std::uint64_t>(header.number("ExposureTime"));
  if (const auto time = header.time()) {
    earliest = earliest ? std::min(*earliest, *time) : *time;
    const auto length = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(header.exposure_seconds()));
    const Instant last = *time > Instant::max() - length ? Instant::max() : *time + length;
    end = end ? std::max(*end, last) : last;
  }
  if (const auto temperature = header.temperature_celsius()) {
    coldest = coldest ? std::min(*coldest, *temperature) : *temperature;
    warmest = warmest ? std::max(*warmest, *temperature) : *temperature;
  }
  if (digest) frames.push_back(sha256(frame.bytes().data(), frame.bytes().size()));
}

StackFacts StackRecord::facts(bool isSum) const {
  StackFacts facts;
  facts.sum = isSum;
  facts.exposure = static_cast<double>(exposure) / unitsPerSecond;
  facts.earliest = earliest;
  facts.end = end;
  return facts;
}

Subject PartialStack::subject(bool isSum) const {
  Subject subject = subjectOf(stack.header(), stack.plane());
  subject.stack = record.facts(isSum);
  subject.stack->frames = stack.count();
  subject.merge = record.merge;
  subject.bias = record.bias;
  subject.history = record.history;
  return subject;
}

namespace {

void requireAlike(const PartialStack& sum, const PartialStack& part, bool allowUnlike) {
  const StackRecord &one = sum.record, &other = part.record;
  require_alike(sum.stack.header(), part.stack.header(), allowUnlike ? Unlike::settings : Unlike::nothing);
  for (const auto& [role, keyword] : partial::roles)
    if (one.corrections.count(role) != other.corrections.count(role) ||
        (one.corrections.count(role) > 0 && one.corrections.at(role) != other.corrections.at(role)))
      partial::refuse(std::string("was made with another ") + role + " reference than the first part");
  const auto rule = [](const std::optional<MergeFacts>& m) {
    return m ? std::to_string(m->high) + ", " + std::to_string(m->difference) + " and type " +
                   std::to_string(m->type)
             : "no merge";
  };
  if (rule(one.merge) != rule(other.merge))
    partial::refuse("was merged with thresholds " + rule(other.merge) + ", the first part with " +
                    rule(one.merge));
  if (allowUnlike) return;
  if (other.forced) partial::refuse("holds frames that may be unlike, as --force allowed");
  const auto first = sum.stack.header().temperature_celsius();
  for (const auto& temperature : {other.coldest, other.warmest})
    if (first && temperature && std::fabs(*temperature - *first) > mostDegreesApart)
      partial::refuse("is unlike the first frame: SensorChipTemp is " + numberText(*temperature) +
                      " degrees Celsius, of the first frame " + numberText(*first) + " degrees Celsius");
}

void requireOtherFrames(const StackRecord& sum, const StackRecord& part) {
  const std::set<std::string> known(sum.frames.begin(), sum.frames.end());
  for (const std::string& frame : part.frames)
    if (known.count(frame) > 0)
      partial::refuse("holds a frame that another part holds, too; it would be counted twice (SHA-256 " +
                      frame + ")");
}

template <typename Type, typename Choose>
void join(std::optional<Type>& mine, const std::optional<Type>& other, const Choose& choose) {
  if (other) mine = mine ? choose(*mine, *other) : *other;
}

}  // namespace

void addPart(PartialStack& sum, const PartialStack& part, bool allowUnlike) {
  requireOtherFrames(sum.record, part.record);
  requireAlike(sum, part, allowUnlike);
  std::vector<std::string> frames = sum.record.frames;
  frames.insert(frames.end(), part.record.frames.begin(), part.record.frames.end());
  sum.stack.allow_unlike(allowUnlike).merge(part.stack);
  StackRecord& record = sum.record;
  record.frames = std::move(frames);
  record.exposure += part.record.exposure;
  record.forced = record.forced || part.record.forced;
  const auto least = [](auto a, auto b) { return std::min(a, b); };
  const auto most = [](auto a, auto b) { return std::max(a, b); };
  join(record.earliest, part.record.earliest, least);
  join(record.end, part.record.end, most);
  join(record.coldest, part.record.coldest, least);
  join(record.warmest, part.record.warmest, most);
}

}  // namespace orvacam::files
