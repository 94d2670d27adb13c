#include "files/PartialLayout.h"
#include "files/PartialStack.h"

namespace orvacam::files {

namespace {

std::int64_t nanoseconds(Instant time) {
  return time.time_since_epoch().count();
}

std::vector<Card> cardsOf(const PartialStack& part) {
  const StackRecord& record = part.record;
  std::vector<Card> cards = {
      {"PARTVERS", partial::version, "a partial stack; layout of this file"},
      {"PARTPLAN", part.stack.plane(), "plane that was stacked"},
      {"PARTNUM", static_cast<std::int64_t>(part.stack.count()), "frames"},
      {"PARTEXPO", static_cast<std::int64_t>(record.exposure), "[10 us] exposure of all frames"},
      {"PARTFORC", record.forced, "whether settings may be unlike"},
      {"PARTBLEV", record.bias, "[adu] median of the bias frame"}};
  if (record.earliest)
    cards.push_back({"PARTBEG", nanoseconds(*record.earliest), "[ns] since 1970, earliest"});
  if (record.end) cards.push_back({"PARTEND", nanoseconds(*record.end), "[ns] since 1970, end of the last"});
  if (record.coldest) cards.push_back({"PARTTMIN", *record.coldest, "[deg C] coldest sensor"});
  if (record.warmest) cards.push_back({"PARTTMAX", *record.warmest, "[deg C] warmest sensor"});
  if (record.merge) {
    cards.push_back({"PARTRATI", record.merge->ratio, "gain ratio of the merge"});
    cards.push_back({"PARTMPRN", record.merge->prnu, "whether a PRNU reference replaces it"});
    cards.push_back({"PARTTHRH", static_cast<std::int64_t>(record.merge->high), "high threshold"});
    cards.push_back(
        {"PARTTHRD", static_cast<std::int64_t>(record.merge->difference), "difference threshold"});
    cards.push_back({"PARTMTYP", static_cast<std::int64_t>(record.merge->type), "type of the merge"});
  }
  for (const auto& [role, keyword] : partial::roles)
    if (const auto at = record.corrections.find(role); at != record.corrections.end())
      cards.push_back({keyword, at->second, ""});
  return cards;
}

std::vector<unsigned char> digestsOf(const std::vector<std::string>& frames) {
  std::vector<unsigned char> bytes;
  bytes.reserve(frames.size() * partial::digestBytes);
  for (const std::string& digits : frames)
    for (std::size_t i = 0; i < partial::digestBytes; ++i)
      bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(2 * i, 2), nullptr, 16)));
  return bytes;
}

/// Each line ended by a NUL, at least one.
std::string historyText(const std::vector<std::string>& history) {
  std::string text(history.empty() ? 1 : 0, '\0');
  for (const std::string& line : history)
    text += line + '\0';
  return text;
}

Raster bytesOf(std::size_t width, std::size_t height, const void* bytes) {
  return {{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)}, Raster::U8, bytes};
}

}  // namespace

FitsFile partialStackFile(const PartialStack& part) {
  if (part.stack.count() >= partial::mostFrames || part.record.frames.size() != part.stack.count())
    partial::refuse("a partial stack holds " + std::to_string(part.stack.count()) + " frames and " +
                    std::to_string(part.record.frames.size()) + " digests of them");
  const Image<std::uint64_t> sums = part.stack.sums(), squares = part.stack.squares();
  const Header first = part.stack.header();
  const std::vector<unsigned char> digests = digestsOf(part.record.frames);
  const std::string history = historyText(part.record.history);
  const Raster rasters[partial::unitCount] = {
      {sums.size(), Raster::I64, sums.data()},
      {squares.size(), Raster::I64, squares.data()},
      bytesOf(first.bytes().size(), 1, first.bytes().data()),
      bytesOf(partial::digestBytes, part.stack.count(), digests.data()),
      bytesOf(history.size(), 1, history.data())};
  std::vector<FitsImage> images;
  for (std::size_t i = 0; i < partial::unitCount; ++i)
    images.push_back({{{"EXTNAME", std::string(partial::units[i].name), ""}}, rasters[i]});
  FitsLayout layout{true, false, cardsOf(part)};
  Subject subject = part.subject(false);
  subject.plane.clear();
  for (Card& card : files::cardsOf(subject))
    layout.primary.push_back(std::move(card));
  return FitsFile(images, layout);
}

}  // namespace orvacam::files
