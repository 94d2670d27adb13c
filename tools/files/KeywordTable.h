#ifndef ORVACAM_FILES_KEYWORD_TABLE_H
#define ORVACAM_FILES_KEYWORD_TABLE_H

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "files/Subject.h"

namespace orvacam::files {

/// Nothing: the keyword is left out.
using Value = std::variant<std::monostate, bool, std::int64_t, double, std::string>;

/// A keyword of the files that this library writes, and where its value comes from.
struct Keyword {
  enum Scope { Frame, Plane };  ///< whether all planes of a frame share the value
  const char* name;
  const char* unit;
  const char* source;  ///< the header's value, "" when there is no single one
  unsigned since;      ///< the first header version that carries the source
  Scope scope;
  Value (*value)(const Subject& subject, const Keyword& row);
  const char* meaning;
};

/// All of them, in the order in which they are written.
const std::vector<Keyword>& keywords();

struct Card {
  std::string keyword;
  Value value;
  std::string comment;  ///< with the unit in brackets
};

/// What a file says about its subject, HISTORY cards included.
std::vector<Card> cardsOf(const Subject& subject);

/// The same as a JSON object; HISTORY is a list.
std::string jsonOf(const std::vector<Card>& cards);

/// What the description of a TIFF file says: the header as JSON, and the keywords beside it. ASCII.
std::string descriptionOf(const Header& header, const std::vector<Card>& cards);

/// The page docs/keywords.md.
std::string keywordsPage();

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_KEYWORD_TABLE_H
