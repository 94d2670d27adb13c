#include "header_mutator.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>

#include "metadata/HeaderFields.h"
#include "metadata/KeyNames.h"

namespace fuzz {

namespace {

namespace header = orvacam::header;
namespace fits = orvacam::fits;
using Bytes = std::vector<std::uint8_t>;
using Random = std::mt19937;

constexpr std::size_t cardSize = 80;

/// The fields that sizes follow from, which are changed as often as all others together.
constexpr unsigned char geometryKeys[] = {
    ORVA_META_KEY_METADATA_LENGTH,     ORVA_META_KEY_IMAGE_START_COLUMN, ORVA_META_KEY_IMAGE_STOP_COLUMN,
    ORVA_META_KEY_IMAGE_START_ROW,     ORVA_META_KEY_IMAGE_STOP_ROW,     ORVA_META_KEY_PRE_ROW_REF_PIXELS,
    ORVA_META_KEY_POST_ROW_REF_PIXELS, ORVA_META_KEY_PRE_REFERENCE_ROWS, ORVA_META_KEY_POST_REFERENCE_ROWS,
    ORVA_META_KEY_HORIZONTAL_BINNING,  ORVA_META_KEY_VERTICAL_BINNING,   ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH};

/// Two values that say little alone: what is worked out of both wraps, or ends before it starts.
struct WrapPair {
  unsigned char firstKey;
  std::uint64_t first;
  unsigned char secondKey;
  std::uint64_t second;
};
constexpr WrapPair wrapPairs[] = {
    {ORVA_META_KEY_IMAGE_START_COLUMN, 0, ORVA_META_KEY_IMAGE_STOP_COLUMN, 0xFFFFFFFF},
    {ORVA_META_KEY_IMAGE_START_ROW, 0, ORVA_META_KEY_IMAGE_STOP_ROW, 0xFFFFFFFF},
    {ORVA_META_KEY_IMAGE_START_COLUMN, 1, ORVA_META_KEY_IMAGE_STOP_COLUMN, 0},
    {ORVA_META_KEY_IMAGE_START_ROW, 0x8000, ORVA_META_KEY_IMAGE_STOP_ROW, 0x7FFF},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, 0xFFFFFFFF, ORVA_META_KEY_IMAGE_STOP_ROW, 0xFFFFFFFE},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, 0xFFFF, ORVA_META_KEY_IMAGE_STOP_ROW, 0xFFFF},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, 0x7FFFFFFF, ORVA_META_KEY_IMAGE_STOP_ROW, 0x7FFFFFFF},
    {ORVA_META_KEY_IMAGE_STOP_COLUMN, 0x7FFFFFFE, ORVA_META_KEY_IMAGE_STOP_ROW, 0x7FFFFFFE},
    {ORVA_META_KEY_PRE_ROW_REF_PIXELS, 0xFFFFFFFF, ORVA_META_KEY_POST_ROW_REF_PIXELS, 1},
    {ORVA_META_KEY_PRE_REFERENCE_ROWS, 0xFFFFFFFF, ORVA_META_KEY_POST_REFERENCE_ROWS, 1},
    {ORVA_META_KEY_PRE_REFERENCE_ROWS, 0x80000000, ORVA_META_KEY_POST_REFERENCE_ROWS, 0x80000000},
    {ORVA_META_KEY_HORIZONTAL_BINNING, 0x10000, ORVA_META_KEY_VERTICAL_BINNING, 0x10000},
    {ORVA_META_KEY_HORIZONTAL_BINNING, 0x10000, ORVA_META_KEY_IMAGE_STOP_COLUMN, 0xFFFF},
    {ORVA_META_KEY_VERTICAL_BINNING, 0xFFFF, ORVA_META_KEY_PRE_REFERENCE_ROWS, 0x1001},
    {ORVA_META_KEY_HORIZONTAL_BINNING, 0xFFFF, ORVA_META_KEY_PRE_ROW_REF_PIXELS, 0x101},
    {ORVA_META_KEY_METADATA_LENGTH, 0xFFFFFFFF, ORVA_META_KEY_OTHER_TYPE_LENGTH, 1},
    {ORVA_META_KEY_OTHER_TYPE_LENGTH, 0xFFFFFFFF, ORVA_META_KEY_OTHER_TYPE_OFFSET, 0xFFFFFE80},
};

unsigned int below(Random& random, std::size_t limit) {
  return static_cast<unsigned int>(random() % limit);
}

bool isOfGeometry(unsigned int key) {
  return std::find(std::begin(geometryKeys), std::end(geometryKeys), key) != std::end(geometryKeys);
}

// ---- Binary headers

struct Place {
  unsigned int offset, width, key;
};

/// The fields of a header of this version that hold numbers, flags included.
std::vector<Place> placesOf(unsigned int version) {
  std::vector<Place> places = {{4, 2, ORVA_META_KEY_METADATA_LENGTH}, {6, 2, ORVA_META_KEY_METADATA_VERSION}};
  const header::Versions set = header::setOf(version);
  const auto add = [&](const header::Field& field) {
    if ((field.versions & set) == 0 || field.width > 8) return;
    places.push_back({field.offset, field.width, field.key});
    // A field of two halves, which belong to neighbouring keys.
    if (field.read == header::Encoding::ReferenceRows)
      places.push_back({field.offset, field.width, field.key + 1u});
  };
  for (const header::Field& field : header::fields)
    add(field);
  if (set == header::V34)
    for (const header::Field& field : header::version4Fields)
      add(field);
  return places;
}

bool putNumber(Bytes& bytes, std::size_t at, unsigned int width, std::uint64_t value) {
  if (at > bytes.size() || bytes.size() - at < width) return false;
  for (unsigned int i = 0; i < width; ++i)
    bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * (width - 1 - i)));
  return true;
}

bool setBinary(Bytes& bytes, std::size_t headerAt, unsigned int key, std::uint64_t value) {
  bool set = false;
  for (const Place& place : placesOf(bytes[headerAt + 6] * 256u + bytes[headerAt + 7]))
    if (place.key == key) set = putNumber(bytes, headerAt + place.offset, place.width, value) || set;
  return set;
}

bool mutateBinary(Bytes& bytes, std::size_t headerAt, Random& random) {
  std::vector<Place> places = placesOf(bytes[headerAt + 6] * 256u + bytes[headerAt + 7]);
  if (random() % 2 == 0)
    places.erase(std::remove_if(places.begin(), places.end(),
                                [](const Place& place) { return !isOfGeometry(place.key); }),
                 places.end());
  const Place& place = places[below(random, places.size())];
  return putNumber(bytes, headerAt + place.offset, place.width,
                   edgeValue(below(random, edgeValues), 8 * place.width));
}

// ---- FITS headers

std::string_view cardAt(const Bytes& bytes, std::size_t at) {
  return {reinterpret_cast<const char*>(bytes.data()) + at, cardSize};
}

std::string_view keywordOf(std::string_view card) {
  return card.substr(0, std::min(card.substr(0, 8).find_first_of(" ="), std::size_t{8}));
}

void putCard(Bytes& bytes, std::size_t at, std::string card) {
  card.resize(cardSize, ' ');
  std::memcpy(bytes.data() + at, card.data(), cardSize);
}

std::string fitsNumber(Random& random) {
  const std::string digits = std::to_string(edgeValue(below(random, edgeValues), 64));
  switch (below(random, 8)) {
    case 0:
      return "-" + digits;
    case 1:
      return digits + ".5";
    case 2:
      return digits + "e" + std::to_string(below(random, 400));
    default:
      return digits;
  }
}

bool mutateFits(Bytes& bytes, std::size_t headerAt, std::size_t capacity, Random& random) {
  const unsigned int key = random() % 2 == 0 ? geometryKeys[below(random, std::size(geometryKeys))]
                                             : below(random, ORVA_META_KEY_COUNT);
  return setFitsCard(bytes, headerAt, fits::keywords[key].name, fitsNumber(random), capacity);
}

std::vector<std::size_t> placesOfWord(const Bytes& bytes, std::string_view word, std::size_t behind) {
  std::vector<std::size_t> found;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  for (std::size_t at = text.find(word); at != text.npos; at = text.find(word, at + 1))
    if (bytes.size() - at >= behind) found.push_back(at);
  return found;
}

}  // namespace

std::uint64_t edgeValue(unsigned int choice, unsigned int bits) {
  choice %= edgeValues;
  const std::uint64_t mask = bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
  if (choice == 0) return 0;
  if (choice == 1) return mask;
  const unsigned int k = (choice - 2) / 3 % (bits + 1);
  const std::uint64_t power = k < 64 ? std::uint64_t{1} << k : 0;
  return (power + (choice - 2) % 3 - 1) & mask;
}

std::vector<std::size_t> binaryHeaders(const Bytes& bytes) {
  return placesOfWord(bytes, "Meta", header::prefixSize);
}

std::vector<std::size_t> fitsHeaders(const Bytes& bytes) {
  return placesOfWord(bytes, "SIMPLE", cardSize);
}

bool setFitsCard(Bytes& bytes, std::size_t headerAt, std::string_view keyword, const std::string& value,
                 std::size_t capacity) {
  std::string card(keyword);
  card.resize(8, ' ');
  card += "= " + value;
  std::size_t at = headerAt;
  for (; at + cardSize <= bytes.size(); at += cardSize) {
    const std::string_view found = keywordOf(cardAt(bytes, at));
    if (found == keyword) {
      putCard(bytes, at, card);
      return true;
    }
    if (found == "END") break;
  }
  if (at + cardSize > bytes.size()) return false;  // no END
  // Blanks behind END make room; else what follows moves on.
  const std::size_t next = at + cardSize;
  const bool room =
      next + cardSize <= bytes.size() && cardAt(bytes, next).find_first_not_of(' ') == std::string_view::npos;
  if (!room) {
    if (bytes.size() + cardSize > capacity) return false;
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(next), cardSize, ' ');
  }
  putCard(bytes, at, card);
  putCard(bytes, next, "END");
  return true;
}

bool mutateHeader(Bytes& bytes, std::size_t capacity, unsigned int seed) {
  Random random(seed);
  const std::vector<std::size_t> binary = binaryHeaders(bytes);
  const std::vector<std::size_t> text = fitsHeaders(bytes);
  if (binary.empty() && text.empty()) return false;
  const std::size_t choice = below(random, binary.size() + text.size());
  const bool isText = choice >= binary.size();
  const std::size_t at = isText ? text[choice - binary.size()] : binary[choice];

  if (below(random, 4) == 0) {
    const WrapPair& pair = wrapPairs[below(random, std::size(wrapPairs))];
    const auto set = [&](unsigned int key, std::uint64_t value) {
      return isText ? setFitsCard(bytes, at, fits::keywords[key].name, std::to_string(value), capacity)
                    : setBinary(bytes, at, key, value);
    };
    const bool first = set(pair.firstKey, pair.first);
    if (set(pair.secondKey, pair.second) || first) return true;  // else this version has neither
  }
  return isText ? mutateFits(bytes, at, capacity, random) : mutateBinary(bytes, at, random);
}

}  // namespace fuzz
