#include "files/FitsReader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <stdexcept>

#include "files/FitsBlocks.h"
#include "files/FitsWriter.h"

namespace orvacam::files {

namespace {

constexpr std::size_t largestHeader = (std::size_t{1} << 20) / blockSize * blockSize;

std::string_view trimmed(std::string_view text) {
  const std::size_t last = text.find_last_not_of(' ');
  return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

/// A text between quotes, in which a quote stands twice; where it ends.
std::string quoted(std::string_view field, std::size_t& end) {
  std::string text;
  for (end = 1; end < field.size(); ++end) {
    if (field[end] == '\'') {
      ++end;
      if (end == field.size() || field[end] != '\'') break;
    }
    text += field[end];
  }
  return std::string(trimmed(text));
}

Value numberIn(std::string_view word) {
  std::string digits(word);
  std::replace(digits.begin(), digits.end(), 'D', 'E');
  const char* const from = digits.c_str() + (digits.front() == '+' ? 1 : 0);
  const char* const to = digits.c_str() + digits.size();
  std::int64_t whole = 0;
  if (const auto read = std::from_chars(from, to, whole); read.ec == std::errc() && read.ptr == to)
    return whole;
  double number = 0;
  if (const auto read = std::from_chars(from, to, number); read.ec == std::errc() && read.ptr == to)
    return number;
  return digits;
}

}  // namespace

std::optional<Card> cardOf(std::string_view bytes) {
  Card card{std::string(trimmed(bytes.substr(0, 8))), {}, ""};
  if (card.keyword == "HISTORY") {
    card.value = std::string(trimmed(bytes.substr(8)));
    return card;
  }
  if (card.keyword.empty() || card.keyword == "END" || bytes.substr(8, 2) != "= ") return std::nullopt;
  std::string_view field = bytes.substr(10);
  const std::size_t start = field.find_first_not_of(' ');
  if (start == std::string_view::npos) return std::nullopt;
  field.remove_prefix(start);
  std::size_t end = 0;
  if (field.front() == '\'') {
    card.value = quoted(field, end);
  } else {
    end = std::min(field.find('/'), field.size());
    const std::string_view word = trimmed(field.substr(0, end));
    if (word.empty()) return std::nullopt;
    card.value = word == "T" ? Value(true) : word == "F" ? Value(false) : numberIn(word);
  }
  const std::size_t slash = field.find('/', end);
  if (slash != std::string_view::npos) {
    const std::size_t from = field.find_first_not_of(' ', slash + 1);
    if (from != std::string_view::npos) card.comment = trimmed(field.substr(from));
  }
  return card;
}

const Value* FitsUnit::find(std::string_view keyword) const {
  for (const Card& card : cards)
    if (card.keyword == keyword) return &card.value;
  return nullptr;
}

std::uint64_t FitsUnit::end() const {
  return dataStart + (dataBytes + blockSize - 1) / blockSize * blockSize;
}

double FitsUnit::number(std::string_view keyword, double otherwise) const {
  const Value* const value = find(keyword);
  if (value == nullptr) return otherwise;
  if (const auto* whole = std::get_if<std::int64_t>(value)) return static_cast<double>(*whole);
  if (const auto* number = std::get_if<double>(value)) return *number;
  if (const auto* truth = std::get_if<bool>(value)) return *truth ? 1 : 0;
  return otherwise;
}

std::string FitsUnit::text(std::string_view keyword) const {
  const Value* const value = find(keyword);
  const auto* const text = value != nullptr ? std::get_if<std::string>(value) : nullptr;
  return text != nullptr ? *text : "";
}

namespace {

/// What a CONTINUE card adds to a text that ends in "&".
void addContinuation(std::vector<Card>& cards, std::string_view bytes) {
  auto* const text = cards.empty() ? nullptr : std::get_if<std::string>(&cards.back().value);
  const std::size_t start = bytes.find_first_not_of(' ', 8);
  if (text == nullptr || text->empty() || text->back() != '&' || start == std::string_view::npos ||
      bytes[start] != '\'')
    return;
  text->pop_back();
  std::size_t end = 0;
  *text += quoted(bytes.substr(start), end);
}

/// |BITPIX| / 8 x GCOUNT x (PCOUNT + NAXIS1 x NAXIS2 x ...), without NAXIS1 where it is 0 as the mark of
/// random groups; none when that is nothing that a file could hold.
std::optional<std::uint64_t> dataBytesOf(const FitsUnit& unit) {
  const double axes = unit.number("NAXIS", 0);
  double pixels = axes > 0 ? 1 : 0;
  const bool groups = unit.number("GROUPS", 0) != 0 && unit.number("NAXIS1", 1) == 0;
  for (int i = groups ? 2 : 1; i <= std::min(axes, 999.0); ++i)
    pixels *= unit.number("NAXIS" + std::to_string(i), 0);
  const double bytes = std::fabs(unit.number("BITPIX", 8)) / 8 * unit.number("GCOUNT", 1) *
                       (unit.number("PCOUNT", 0) + pixels);
  constexpr double largest = 1e15;
  if (!(bytes >= 0 && bytes <= largest)) return std::nullopt;
  return static_cast<std::uint64_t>(bytes);
}

/// Reads a header from where the file stands; false when there is none.
bool readHeader(std::istream& file, FitsUnit& unit, std::uint64_t at) {
  char block[blockSize];
  for (std::size_t length = 0; length < largestHeader; length += blockSize) {
    if (!file.read(block, blockSize)) return false;
    for (std::size_t card = 0; card < blockSize; card += cardSize) {
      const std::string_view bytes(block + card, cardSize);
      if (trimmed(bytes.substr(0, 8)) == "END") {
        unit.dataStart = at + length + blockSize;
        return true;
      }
      if (bytes.substr(0, 8) == "CONTINUE")
        addContinuation(unit.cards, bytes);
      else if (auto parsed = cardOf(bytes))
        unit.cards.push_back(std::move(*parsed));
    }
  }
  return false;
}

}  // namespace

std::uint64_t visitFitsUnits(const std::string& path, const std::function<bool(FitsUnit&&)>& visit) {
  std::ifstream file(path, std::ios::binary);
  std::uint64_t at = 0;
  for (bool goesOn = true; goesOn && file.seekg(static_cast<std::streamoff>(at));) {
    FitsUnit unit;
    unit.headerStart = at;
    if (!readHeader(file, unit, at)) break;
    if (at == 0 && unit.find("SIMPLE") == nullptr) break;
    const auto bytes = dataBytesOf(unit);
    unit.dataBytes = bytes.value_or(0);
    unit.isSized = bytes.has_value();
    at = unit.end();
    goesOn = visit(std::move(unit)) && bytes;
  }
  if (at == 0) throw std::runtime_error("has no FITS header that can be read");
  return at;
}

std::uint32_t fileSum(std::istream& file, std::uint64_t from, std::uint64_t to) {
  std::vector<unsigned char> piece(blockSize * 400);
  std::uint32_t sum = 0;
  for (std::uint64_t at = from; at < to; at += piece.size()) {
    const std::size_t length = std::min<std::uint64_t>(piece.size(), to - at);
    if (!file.seekg(static_cast<std::streamoff>(at)) ||
        !file.read(reinterpret_cast<char*>(piece.data()), static_cast<std::streamsize>(length)))
      throw std::runtime_error("cannot be read at byte " + std::to_string(at));
    sum = addedSums(sum, wordSum(piece.data(), length));
  }
  return sum;
}

std::vector<FitsUnit> readFitsUnits(const std::string& path) {
  constexpr std::size_t mostUnits = 16;
  std::vector<FitsUnit> units;
  visitFitsUnits(path, [&units](FitsUnit&& unit) {
    units.push_back(std::move(unit));
    return units.size() < mostUnits;
  });
  return units;
}

}  // namespace orvacam::files
