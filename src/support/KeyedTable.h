#ifndef ORVACAM_SRC_SUPPORT_KEYED_TABLE_H
#define ORVACAM_SRC_SUPPORT_KEYED_TABLE_H

#include <cstddef>

namespace orvacam {

/// Whether every row of a table stands at the place that its key names, so that the key finds it: for
/// static_assert.
template <typename Row, std::size_t count, typename Key>
constexpr bool standsAtItsKeys(const Row (&rows)[count], Key Row::*key) {
  for (std::size_t place = 0; place < count; ++place)
    if (static_cast<std::size_t>(rows[place].*key) != place) return false;
  return true;
}

/// The same for a table that must also have a row for each of `keys` keys.
template <typename Row, std::size_t count, typename Key>
constexpr bool hasARowForEach(std::size_t keys, const Row (&rows)[count], Key Row::*key) {
  return count == keys && standsAtItsKeys(rows, key);
}

/// Whether each key follows the one before.
template <typename Key, typename... Keys>
constexpr bool areNeighbours(Key first, Keys... others) {
  std::size_t next = first;
  return ((static_cast<std::size_t>(others) == ++next) && ...);
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_KEYED_TABLE_H
