#include "metadata/FitsCards.h"

#include <orvacam/metadata/CFrameMetaData.h>

#include <algorithm>
#include <exception>

#include "metadata/KeyNames.h"

namespace orvacam::fits {

namespace {

/// ASCII only: the program's locale has no say in a FITS header.
constexpr char upperCase(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return upperCase(x) == upperCase(y); });
}

bool startsWithIgnoringCase(std::string_view text, std::string_view start) {
  return equalsIgnoringCase(text.substr(0, start.size()), start);
}

std::string_view view(const unsigned char* bytes, std::size_t length) {
  return bytes == nullptr ? std::string_view()
                          : std::string_view(reinterpret_cast<const char*>(bytes), length);
}

void skipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

/// Cuts the text at the first of the given characters.
std::string_view until(std::string_view text, const char* characters) {
  return text.substr(0, text.find_first_of(characters));
}

}  // namespace

bool isFitsFrame(const unsigned char* bytes, std::size_t length) {
  return startsWithIgnoringCase(view(bytes, length), keywords[Simple].name);
}

int parseNextKey(const unsigned char* card, std::size_t length, std::string& keyword, std::string& value) {
  keyword.clear();
  value.clear();
  if (card == nullptr || length < cardSize) return -1;
  std::string_view rest = view(card, cardSize);

  const std::string_view name = until(rest.substr(0, keywordSize), " =");
  keyword.assign(name);
  rest.remove_prefix(name.size());
  if (name == keywords[Comment].name) return 0;

  skipBlanks(rest);
  if (rest.empty()) return 0;
  if (rest.front() != '=') return -1;
  rest.remove_prefix(1);
  skipBlanks(rest);
  // Intended: a "/" inside a quoted text ends it, and a doubled quote ends it too.
  const bool quoted = !rest.empty() && rest.front() == '\'';
  value.assign(quoted ? until(rest.substr(1), "'/") : until(rest, " /"));
  return 0;
}

int findKeyIndex(std::string_view keyword) {
  const auto* const found =
      std::find_if(std::begin(keywords), std::end(keywords),
                   [keyword](const Keyword& row) { return equalsIgnoringCase(row.name, keyword); });
  return found != std::end(keywords) ? static_cast<int>(found - std::begin(keywords)) : -1;
}

void processKeyValue(std::string_view keyword, const std::string& value, CFrameMetaData& meta) {
  const int index = findKeyIndex(keyword);
  if (index >= 0) meta.SetValue(static_cast<ORVA_META_KEYS>(index), value);
}

int parseMetaData(const unsigned char* bytes, unsigned int length, CFrameMetaData& meta, bool& end) try {
  end = false;
  int result = -1;
  std::string keyword;
  std::string value;
  for (std::string_view cards = view(bytes, length); cards.size() >= cardSize;
       cards.remove_prefix(cardSize)) {
    result = parseNextKey(reinterpret_cast<const unsigned char*>(cards.data()), cardSize, keyword, value);
    end = result >= 0 && startsWithIgnoringCase(keyword, keywords[End].name);
    if (result < 0 || end) break;
    processKeyValue(keyword, value, meta);
  }
  return result;
} catch (const std::exception&) {
  return -1;
}

int parseMetaData(std::FILE* stream, CFrameMetaData& meta) {
  if (stream == nullptr || std::fseek(stream, 0, SEEK_SET) != 0) return -1;
  unsigned char block[blockSize];
  std::size_t count = 0;
  bool end = false;
  int result = 0;
  do {
    count = std::fread(block, 1, blockSize, stream);
    result = parseMetaData(block, static_cast<unsigned int>(count), meta, end);
  } while (count == blockSize && !end && result >= 0);
  return end ? result : -1;
}

}  // namespace orvacam::fits
