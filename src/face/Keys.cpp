// The names of a header's values.

#include <cstring>
#include <string>

#include "face/Failure.h"
#include "face/HeaderValues.h"
#include "metadata/HeaderFields.h"
#include "metadata/KeyNames.h"

namespace orvacam::face {

namespace {

constexpr orva_key_kind kindOf(unsigned int number) {
  const char kind = header::kindOf(number);
  return kind == 'f' ? ORVA_KEY_FLAG : kind == 't' ? ORVA_KEY_TEXT : ORVA_KEY_NUMBER;
}

constexpr std::array<orva_key, keyCount> namedKeys() {
  std::array<orva_key, keyCount> named{};
  std::size_t next = 0;
  for (const fits::Keyword& row : fits::keywords)
    if (*row.key != '\0')
      named[next++] = {sizeof(orva_key),
                       row.key,
                       row.unit,
                       kindOf(row.place),
                       static_cast<int>(row.place),
                       static_cast<int>(header::firstVersionOf(row.place)),
                       static_cast<int>(header::writtenVersion)};
  return named;
}

}  // namespace

constexpr std::array<orva_key, keyCount> keys = namedKeys();
static_assert(keys.back().name != nullptr, "there are fewer names");

const orva_key& keyOf(const char* name) {
  for (const orva_key& candidate : keys)
    if (std::strcmp(candidate.name, &required(name, "the key")) == 0) return candidate;
  fail(ORVA_BAD_ARGUMENT, "\"" + std::string(name) + "\" is no key of a header");
}

}  // namespace orvacam::face

extern "C" {

size_t orva_key_count(void) {
  return orvacam::face::keyCount;
}

const orva_key* orva_key_at(size_t index) {
  return index < orvacam::face::keyCount ? &orvacam::face::keys[index] : nullptr;
}
}
