#include "files/PartialStack.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "files/FitsReader.h"
#include "files/Sha256.h"

namespace orvacam::files {

namespace {

constexpr std::int64_t layoutVersion = 1;
constexpr std::uint64_t mostFrames = std::uint64_t{1} << 30;
constexpr std::size_t digestBytes = 32;
constexpr double unitsPerSecond = 100000;
constexpr double mostDegreesApart = 1.0;

/// Reference files, and the keywords of their sums.
constexpr struct {
  const char *role, *keyword;
} roles[] = {{"DSNU", "PARTDSNU"}, {"PRNU", "PARTPRNU"}, {"BIAS", "PARTBIAS"}, {"CALIBRATION", "PARTCALI"}};

constexpr const char* planes[] = {"low", "high", "merged", "image"};

constexpr struct {
  const char* name;
  std::int64_t bits;
} units[] = {{"SUM", 64}, {"SUMSQ", 64}, {"HEADER", 8}, {"FRAMES", 8}, {"HISTORY", 8}};
enum UnitIndex { Sum, Squares, FirstHeader, Frames, History, unitCount };

[[noreturn]] void refuse(const std::string& what) {
  throw std::runtime_error(what);
}

}  // namespace

void StackRecord::add(const Frame& frame, bool digest) {
  const Header& header = frame.header();
  exposure += static_cast<std::uint64_t>(header.number("ExposureTime"));
  if (const auto time = header.time()) {
    const auto last = *time + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                  std::chrono::duration<double>(header.exposure_seconds()));
    earliest = earliest ? std::min(*earliest, *time) : *time;
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

// ---- Writing

namespace {

std::int64_t nanoseconds(Instant time) {
  return time.time_since_epoch().count();
}

std::vector<Card> cardsOf(const PartialStack& part) {
  const StackRecord& record = part.record;
  std::vector<Card> cards = {
      {"PARTVERS", layoutVersion, "a partial stack; layout of this file"},
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
  for (const auto& [role, keyword] : roles)
    if (const auto at = record.corrections.find(role); at != record.corrections.end())
      cards.push_back({keyword, at->second, ""});
  return cards;
}

std::vector<unsigned char> digestsOf(const std::vector<std::string>& frames) {
  std::vector<unsigned char> bytes;
  bytes.reserve(frames.size() * digestBytes);
  for (const std::string& digits : frames)
    for (std::size_t i = 0; i < digestBytes; ++i)
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
  if (part.stack.count() >= mostFrames || part.record.frames.size() != part.stack.count())
    refuse("a partial stack holds " + std::to_string(part.stack.count()) + " frames and " +
           std::to_string(part.record.frames.size()) + " digests of them");
  const Image<std::uint64_t> sums = part.stack.sums(), squares = part.stack.squares();
  const Header first = part.stack.header();
  const std::vector<unsigned char> digests = digestsOf(part.record.frames);
  const std::string history = historyText(part.record.history);
  const Raster rasters[unitCount] = {{sums.size(), Raster::I64, sums.data()},
                                     {squares.size(), Raster::I64, squares.data()},
                                     bytesOf(first.bytes().size(), 1, first.bytes().data()),
                                     bytesOf(digestBytes, part.stack.count(), digests.data()),
                                     bytesOf(history.size(), 1, history.data())};
  std::vector<FitsImage> images;
  for (std::size_t i = 0; i < unitCount; ++i)
    images.push_back({{{"EXTNAME", std::string(units[i].name), ""}}, rasters[i]});
  FitsLayout layout{true, false, cardsOf(part)};
  Subject subject = part.subject(false);
  subject.plane.clear();
  for (Card& card : files::cardsOf(subject))
    layout.primary.push_back(std::move(card));
  return FitsFile(images, layout);
}

// ---- Reading

namespace {

/// A card's value of one kind. Throws where there is none.
template <typename Kind>
std::optional<Kind> optionalOf(const FitsUnit& unit, const char* keyword) {
  const Value* const value = unit.find(keyword);
  if (value == nullptr) return std::nullopt;
  if constexpr (std::is_same_v<Kind, double>)
    if (const auto* whole = std::get_if<std::int64_t>(value)) return static_cast<double>(*whole);
  const Kind* const kind = std::get_if<Kind>(value);
  bool isMeant = kind != nullptr;
  if constexpr (std::is_same_v<Kind, double>) isMeant = isMeant && std::isfinite(*kind);
  if (!isMeant) refuse(std::string("its keyword ") + keyword + " has a value that cannot be meant");
  return *kind;
}

template <typename Kind>
Kind valueOf(const FitsUnit& unit, const char* keyword) {
  const std::optional<Kind> value = optionalOf<Kind>(unit, keyword);
  if (!value) refuse(std::string("lacks the keyword ") + keyword);
  return *value;
}

std::int64_t wholeOf(const FitsUnit& unit, const char* keyword, std::int64_t least, std::int64_t most) {
  const auto value = valueOf<std::int64_t>(unit, keyword);
  if (value < least || value > most)
    refuse(std::string("its keyword ") + keyword + " is " + std::to_string(value));
  return value;
}

/// The file's units, whose data lie in the file as they should.
class PartFile {
 public:
  explicit PartFile(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) refuse("is no regular file");
    m_units = readFitsUnits(path);
    m_file.open(path, std::ios::binary);
    m_size = std::filesystem::file_size(path, error);
    if (!m_file || error) refuse("cannot be read");
    requireLayout();
    for (std::size_t i = 0; i < m_units.size(); ++i)
      requireChecksum(i);
  }

  const FitsUnit& primary() const { return m_units.front(); }
  std::uint64_t columns(UnitIndex unit) const { return axis(unit, "NAXIS1"); }
  std::uint64_t rows(UnitIndex unit) const { return axis(unit, "NAXIS2"); }
  std::vector<unsigned char> bytes(UnitIndex unit) {
    std::vector<unsigned char> bytes(at(unit).dataBytes);
    read(at(unit).dataStart, bytes.size(), bytes.data());
    return bytes;
  }
  /// As many as the size says, which is that of the unit.
  Image<std::uint64_t> numbers(UnitIndex unit, Size size) {
    std::vector<std::uint64_t> words(std::size_t{size.width} * size.height);
    read(at(unit).dataStart, words.size() * sizeof(std::uint64_t), words.data());
    for (std::uint64_t& word : words)
      word = __builtin_bswap64(word);
    return Image<std::uint64_t>::copy(size, words.data());
  }

 private:
  static constexpr std::uint64_t block = 2880;

  const FitsUnit& at(UnitIndex unit) const { return m_units[std::size_t{unit} + 1]; }
  std::uint64_t axis(UnitIndex unit, const char* keyword) const {
    return static_cast<std::uint64_t>(wholeOf(at(unit), keyword, 1, 0xFFFFFFFF));
  }
  std::uint64_t endOf(std::size_t i) const {
    return m_units[i].dataStart + (m_units[i].dataBytes + block - 1) / block * block;
  }

  void requireLayout() const {
    if (primary().find("PARTVERS") == nullptr) refuse("is no partial stack");
    if (const auto version = valueOf<std::int64_t>(primary(), "PARTVERS"); version != layoutVersion)
      refuse("is a partial stack of layout " + std::to_string(version) + ", this program knows layout 1");
    if (m_units.size() != unitCount + 1 || endOf(unitCount) != m_size)
      refuse("has " + std::to_string(m_units.size()) + " FITS units and ends at byte " +
             std::to_string(m_size) + "; " + std::to_string(unitCount + 1) + " units end at byte " +
             std::to_string(endOf(m_units.size() - 1)));
    for (std::size_t i = 0; i < unitCount; ++i) {
      const FitsUnit& unit = m_units[i + 1];
      const bool isPlain = unit.find("BZERO") == nullptr && unit.find("BSCALE") == nullptr &&
                           unit.number("PCOUNT", 0) == 0 && unit.number("GCOUNT", 1) == 1;
      if (unit.text("EXTNAME") != units[i].name || valueOf<std::int64_t>(unit, "BITPIX") != units[i].bits ||
          unit.number("NAXIS", 0) != 2 || !isPlain)
        refuse(std::string("its unit ") + units[i].name + " is not laid out as it should be");
    }
  }

  /// Header and data of a unit add up to all ones where no bit has changed.
  void requireChecksum(std::size_t i) {
    if (m_units[i].find("CHECKSUM") == nullptr) refuse("lacks a checksum");
    std::vector<unsigned char> piece(block * 400);
    std::uint32_t sum = 0;
    for (std::uint64_t at = i == 0 ? 0 : endOf(i - 1); at < endOf(i); at += piece.size()) {
      const std::size_t length = std::min<std::uint64_t>(piece.size(), endOf(i) - at);
      read(at, length, piece.data());
      sum = addedSums(sum, wordSum(piece.data(), length));
    }
    if (sum != 0xFFFFFFFF && sum != 0)
      refuse(std::string("is damaged: the checksum of its ") + (i == 0 ? "header" : units[i - 1].name) +
             " does not fit");
  }

  void read(std::uint64_t at, std::uint64_t length, void* to) {
    if (at + length > m_size) refuse("ends too early");
    if (!m_file.seekg(static_cast<std::streamoff>(at)) ||
        !m_file.read(static_cast<char*>(to), static_cast<std::streamsize>(length)))
      refuse("cannot be read");
  }

  std::vector<FitsUnit> m_units;
  std::ifstream m_file;
  std::uint64_t m_size = 0;
};

Instant instantOf(std::int64_t time) {
  return Instant(std::chrono::nanoseconds(time));
}

std::optional<MergeFacts> mergeOf(const FitsUnit& unit) {
  if (unit.find("PARTRATI") == nullptr) return std::nullopt;
  MergeFacts merge;
  merge.ratio = valueOf<double>(unit, "PARTRATI");
  constexpr double mostRatio = 64;
  if (!(merge.ratio >= 0 && merge.ratio <= mostRatio)) refuse("its keyword PARTRATI cannot be meant");
  merge.prnu = valueOf<bool>(unit, "PARTMPRN");
  merge.high = static_cast<unsigned>(wholeOf(unit, "PARTTHRH", 0, 65535));
  merge.difference = static_cast<unsigned>(wholeOf(unit, "PARTTHRD", 0, 65535));
  merge.type = static_cast<int>(wholeOf(unit, "PARTMTYP", 0, 65535));
  return merge;
}

std::vector<std::string> framesOf(PartFile& file, std::int64_t count) {
  if (file.columns(Frames) != digestBytes || file.rows(Frames) != static_cast<std::uint64_t>(count))
    refuse("its unit FRAMES has " + std::to_string(file.columns(Frames)) + " x " +
           std::to_string(file.rows(Frames)) + " bytes for " + std::to_string(count) + " frames");
  constexpr char digits[] = "0123456789abcdef";
  std::vector<std::string> frames(static_cast<std::size_t>(count));
  const std::vector<unsigned char> bytes = file.bytes(Frames);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    frames[i / digestBytes] += digits[bytes[i] >> 4];
    frames[i / digestBytes] += digits[bytes[i] & 15];
  }
  if (std::set<std::string>(frames.begin(), frames.end()).size() != frames.size())
    refuse("counts a frame twice");
  return frames;
}

std::vector<std::string> historyOf(const std::vector<unsigned char>& bytes) {
  std::vector<std::string> history;
  std::string line;
  for (const unsigned char byte : bytes) {
    if (byte != 0) {
      line += static_cast<char>(byte);
    } else if (!line.empty()) {
      history.push_back(std::exchange(line, {}));
    }
  }
  return history;
}

bool isDigest(const std::string& text) {
  return text.size() == 2 * digestBytes && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

StackRecord recordOf(PartFile& file, std::int64_t count) {
  const FitsUnit& unit = file.primary();
  StackRecord record;
  constexpr std::int64_t longestExposure = 0xFFFFFFFF;
  record.exposure = static_cast<std::uint64_t>(wholeOf(unit, "PARTEXPO", 0, longestExposure * count));
  record.forced = valueOf<bool>(unit, "PARTFORC");
  record.bias = valueOf<double>(unit, "PARTBLEV");
  if (!(record.bias >= 0 && record.bias <= 65535)) refuse("its keyword PARTBLEV cannot be meant");
  if (const auto time = optionalOf<std::int64_t>(unit, "PARTBEG")) record.earliest = instantOf(*time);
  if (const auto time = optionalOf<std::int64_t>(unit, "PARTEND")) record.end = instantOf(*time);
  record.coldest = optionalOf<double>(unit, "PARTTMIN");
  record.warmest = optionalOf<double>(unit, "PARTTMAX");
  record.merge = mergeOf(unit);
  for (const auto& [role, keyword] : roles)
    if (const auto digest = optionalOf<std::string>(unit, keyword)) {
      if (!isDigest(*digest)) refuse(std::string("its keyword ") + keyword + " is no SHA-256");
      record.corrections[role] = *digest;
    }
  record.frames = framesOf(file, count);
  record.history = historyOf(file.bytes(History));
  return record;
}

Header headerOf(PartFile& file) {
  constexpr std::uint64_t longestHeader = 65536;
  if (file.columns(FirstHeader) > longestHeader || file.rows(FirstHeader) != 1)
    refuse("its unit HEADER is too long");
  const std::vector<unsigned char> bytes = file.bytes(FirstHeader);
  return Header::parse(bytes.data(), bytes.size());
}

}  // namespace

PartialStack readPartialStack(const std::string& path, Stack::Method method) {
  PartFile file(path);
  const std::int64_t count = wholeOf(file.primary(), "PARTNUM", 1, mostFrames - 1);
  const auto plane = valueOf<std::string>(file.primary(), "PARTPLAN");
  if (std::find(std::begin(planes), std::end(planes), plane) == std::end(planes))
    refuse("its keyword PARTPLAN names no plane");
  StackRecord record = recordOf(file, count);
  // What other readers go by is to say the same.
  if (const std::int64_t said = wholeOf(file.primary(), "NCOMBINE", 1, mostFrames - 1); said != count)
    refuse("its keyword NCOMBINE is " + std::to_string(said) + ", its keyword PARTNUM " +
           std::to_string(count));
  const Header first = headerOf(file);
  const Size size = first.frame_size();
  for (const UnitIndex unit : {Sum, Squares})
    if (file.columns(unit) != size.width || file.rows(unit) != size.height)
      refuse(std::string("its unit ") + units[unit].name + " has " + std::to_string(file.columns(unit)) +
             " x " + std::to_string(file.rows(unit)) + " pixels, its frames " + std::to_string(size.width) +
             " x " + std::to_string(size.height));
  Stack stack = Stack::from_sums(first, static_cast<std::uint64_t>(count), file.numbers(Sum, size),
                                 file.numbers(Squares, size), plane, method);
  return {std::move(record), std::move(stack)};
}

// ---- Combining

namespace {

void requireAlike(const PartialStack& sum, const PartialStack& part, bool allowUnlike) {
  const StackRecord &one = sum.record, &other = part.record;
  require_alike(sum.stack.header(), part.stack.header(), allowUnlike ? Unlike::settings : Unlike::nothing);
  for (const auto& [role, keyword] : roles)
    if (one.corrections.count(role) != other.corrections.count(role) ||
        (one.corrections.count(role) > 0 && one.corrections.at(role) != other.corrections.at(role)))
      refuse(std::string("was made with another ") + role + " reference than the first part");
  const auto rule = [](const std::optional<MergeFacts>& m) {
    return m ? std::to_string(m->high) + ", " + std::to_string(m->difference) + " and type " +
                   std::to_string(m->type)
             : "no merge";
  };
  if (rule(one.merge) != rule(other.merge))
    refuse("was merged with thresholds " + rule(other.merge) + ", the first part with " + rule(one.merge));
  if (allowUnlike) return;
  if (other.forced) refuse("holds frames that may be unlike, as --force allowed");
  const auto first = sum.stack.header().temperature_celsius();
  for (const auto& temperature : {other.coldest, other.warmest})
    if (first && temperature && std::fabs(*temperature - *first) > mostDegreesApart)
      refuse("is unlike the first frame: SensorChipTemp is " + numberText(*temperature) +
             " degrees Celsius, of the first frame " + numberText(*first) + " degrees Celsius");
}

void requireOtherFrames(const StackRecord& sum, const StackRecord& part) {
  const std::set<std::string> known(sum.frames.begin(), sum.frames.end());
  for (const std::string& frame : part.frames)
    if (known.count(frame) > 0)
      refuse("holds a frame that another part holds, too; it would be counted twice (SHA-256 " + frame + ")");
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
