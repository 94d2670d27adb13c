#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

#include "files/FitsReader.h"
#include "files/PartialLayout.h"
#include "files/PartialStack.h"

namespace orvacam::files {

namespace {

constexpr const char* planes[] = {"low", "high", "merged", "image"};

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
  if (!isMeant) partial::refuse(std::string("its keyword ") + keyword + " has a value that cannot be meant");
  return *kind;
}

template <typename Kind>
Kind valueOf(const FitsUnit& unit, const char* keyword) {
  const std::optional<Kind> value = optionalOf<Kind>(unit, keyword);
  if (!value) partial::refuse(std::string("lacks the keyword ") + keyword);
  return *value;
}

std::int64_t wholeOf(const FitsUnit& unit, const char* keyword, std::int64_t least, std::int64_t most) {
  const auto value = valueOf<std::int64_t>(unit, keyword);
  if (value < least || value > most)
    partial::refuse(std::string("its keyword ") + keyword + " is " + std::to_string(value));
  return value;
}

/// The file's units, whose data lie in the file as they should.
class PartFile {
 public:
  explicit PartFile(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) partial::refuse("is no regular file");
    m_units = readFitsUnits(path);
    m_file.open(path, std::ios::binary);
    m_size = std::filesystem::file_size(path, error);
    if (!m_file || error) partial::refuse("cannot be read");
    requireLayout();
    for (std::size_t i = 0; i < m_units.size(); ++i)
      requireChecksum(i);
  }

  const FitsUnit& primary() const { return m_units.front(); }
  std::uint64_t columns(partial::Unit unit) const { return axis(unit, "NAXIS1"); }
  std::uint64_t rows(partial::Unit unit) const { return axis(unit, "NAXIS2"); }
  std::vector<unsigned char> bytes(partial::Unit unit) {
    std::vector<unsigned char> bytes(at(unit).dataBytes);
    read(at(unit).dataStart, bytes.size(), bytes.data());
    return bytes;
  }
  /// As many as the size says, which is that of the unit.
  Image<std::uint64_t> numbers(partial::Unit unit, Size size) {
    std::vector<std::uint64_t> words(std::size_t{size.width} * size.height);
    read(at(unit).dataStart, words.size() * sizeof(std::uint64_t), words.data());
    for (std::uint64_t& word : words)
      word = __builtin_bswap64(word);
    return Image<std::uint64_t>::copy(size, words.data());
  }

 private:
  const FitsUnit& at(partial::Unit unit) const { return m_units[std::size_t{unit} + 1]; }
  std::uint64_t axis(partial::Unit unit, const char* keyword) const {
    return static_cast<std::uint64_t>(wholeOf(at(unit), keyword, 1, 0xFFFFFFFF));
  }
  std::uint64_t endOf(std::size_t i) const { return m_units[i].end(); }

  void requireLayout() const {
    if (primary().find("PARTVERS") == nullptr) partial::refuse("is no partial stack");
    if (const auto version = valueOf<std::int64_t>(primary(), "PARTVERS"); version != partial::version)
      partial::refuse("is a partial stack of layout " + std::to_string(version) +
                      ", this program knows layout 1");
    if (m_units.size() != partial::unitCount + 1 || endOf(partial::unitCount) != m_size)
      partial::refuse("has " + std::to_string(m_units.size()) + " FITS units and ends at byte " +
                      std::to_string(m_size) + "; " + std::to_string(partial::unitCount + 1) +
                      " units end at byte " + std::to_string(endOf(m_units.size() - 1)));
    for (std::size_t i = 0; i < partial::unitCount; ++i) {
      const FitsUnit& unit = m_units[i + 1];
      const bool isPlain = unit.find("BZERO") == nullptr && unit.find("BSCALE") == nullptr &&
                           unit.number("PCOUNT", 0) == 0 && unit.number("GCOUNT", 1) == 1;
      if (unit.text("EXTNAME") != partial::units[i].name ||
          valueOf<std::int64_t>(unit, "BITPIX") != partial::units[i].bits || unit.number("NAXIS", 0) != 2 ||
          !isPlain)
        partial::refuse(std::string("its unit ") + partial::units[i].name +
                        " is not laid out as it should be");
    }
  }

  /// Header and data of a unit add up to all ones where no bit has changed.
  void requireChecksum(std::size_t i) {
    if (m_units[i].find("CHECKSUM") == nullptr) partial::refuse("lacks a checksum");
    const std::uint32_t sum = fileSum(m_file, m_units[i].headerStart, endOf(i));
    if (sum != 0xFFFFFFFF && sum != 0)
      partial::refuse(std::string("is damaged: the checksum of its ") +
                      (i == 0 ? "header" : partial::units[i - 1].name) + " does not fit");
  }

  void read(std::uint64_t at, std::uint64_t length, void* to) {
    if (at + length > m_size) partial::refuse("ends too early");
    if (!m_file.seekg(static_cast<std::streamoff>(at)) ||
        !m_file.read(static_cast<char*>(to), static_cast<std::streamsize>(length)))
      partial::refuse("cannot be read");
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
  if (!(merge.ratio >= 0 && merge.ratio <= mostRatio))
    partial::refuse("its keyword PARTRATI cannot be meant");
  merge.prnu = valueOf<bool>(unit, "PARTMPRN");
  merge.high = static_cast<unsigned>(wholeOf(unit, "PARTTHRH", 0, 65535));
  merge.difference = static_cast<unsigned>(wholeOf(unit, "PARTTHRD", 0, 65535));
  merge.type = static_cast<int>(wholeOf(unit, "PARTMTYP", 0, 65535));
  return merge;
}

std::vector<std::string> framesOf(PartFile& file, std::int64_t count) {
  if (file.columns(partial::Frames) != partial::digestBytes ||
      file.rows(partial::Frames) != static_cast<std::uint64_t>(count))
    partial::refuse("its unit FRAMES has " + std::to_string(file.columns(partial::Frames)) + " x " +
                    std::to_string(file.rows(partial::Frames)) + " bytes for " + std::to_string(count) +
                    " frames");
  constexpr char digits[] = "0123456789abcdef";
  std::vector<std::string> frames(static_cast<std::size_t>(count));
  const std::vector<unsigned char> bytes = file.bytes(partial::Frames);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    frames[i / partial::digestBytes] += digits[bytes[i] >> 4];
    frames[i / partial::digestBytes] += digits[bytes[i] & 15];
  }
  if (std::set<std::string>(frames.begin(), frames.end()).size() != frames.size())
    partial::refuse("counts a frame twice");
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
  return text.size() == 2 * partial::digestBytes &&
         text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

StackRecord recordOf(PartFile& file, std::int64_t count) {
  const FitsUnit& unit = file.primary();
  StackRecord record;
  constexpr std::int64_t longestExposure = 0xFFFFFFFF;
  record.exposure = static_cast<std::uint64_t>(wholeOf(unit, "PARTEXPO", 0, longestExposure * count));
  record.forced = valueOf<bool>(unit, "PARTFORC");
  record.bias = valueOf<double>(unit, "PARTBLEV");
  if (!(record.bias >= 0 && record.bias <= 65535)) partial::refuse("its keyword PARTBLEV cannot be meant");
  if (const auto time = optionalOf<std::int64_t>(unit, "PARTBEG")) record.earliest = instantOf(*time);
  if (const auto time = optionalOf<std::int64_t>(unit, "PARTEND")) record.end = instantOf(*time);
  record.coldest = optionalOf<double>(unit, "PARTTMIN");
  record.warmest = optionalOf<double>(unit, "PARTTMAX");
  record.merge = mergeOf(unit);
  for (const auto& [role, keyword] : partial::roles)
    if (const auto digest = optionalOf<std::string>(unit, keyword)) {
      if (!isDigest(*digest)) partial::refuse(std::string("its keyword ") + keyword + " is no SHA-256");
      record.corrections[role] = *digest;
    }
  record.frames = framesOf(file, count);
  record.history = historyOf(file.bytes(partial::History));
  return record;
}

Header headerOf(PartFile& file) {
  constexpr std::uint64_t longestHeader = 65536;
  if (file.columns(partial::FirstHeader) > longestHeader || file.rows(partial::FirstHeader) != 1)
    partial::refuse("its unit HEADER is too long");
  const std::vector<unsigned char> bytes = file.bytes(partial::FirstHeader);
  return Header::parse(bytes.data(), bytes.size());
}

}  // namespace

PartialStack readPartialStack(const std::string& path, Stack::Method method) {
  PartFile file(path);
  const std::int64_t count = wholeOf(file.primary(), "PARTNUM", 1, partial::mostFrames - 1);
  const auto plane = valueOf<std::string>(file.primary(), "PARTPLAN");
  if (std::find(std::begin(planes), std::end(planes), plane) == std::end(planes))
    partial::refuse("its keyword PARTPLAN names no plane");
  StackRecord record = recordOf(file, count);
  // What other readers go by is to say the same.
  if (const std::int64_t said = wholeOf(file.primary(), "NCOMBINE", 1, partial::mostFrames - 1);
      said != count)
    partial::refuse("its keyword NCOMBINE is " + std::to_string(said) + ", its keyword PARTNUM " +
                    std::to_string(count));
  const Header first = headerOf(file);
  const Size size = first.frame_size();
  for (const partial::Unit unit : {partial::Sum, partial::Squares})
    if (file.columns(unit) != size.width || file.rows(unit) != size.height)
      partial::refuse(std::string("its unit ") + partial::units[unit].name + " has " +
                      std::to_string(file.columns(unit)) + " x " + std::to_string(file.rows(unit)) +
                      " pixels, its frames " + std::to_string(size.width) + " x " +
                      std::to_string(size.height));
  Stack stack = Stack::from_sums(first, static_cast<std::uint64_t>(count), file.numbers(partial::Sum, size),
                                 file.numbers(partial::Squares, size), plane, method);
  return {std::move(record), std::move(stack)};
}

}  // namespace orvacam::files
