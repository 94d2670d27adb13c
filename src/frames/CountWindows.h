#ifndef ORVACAM_SRC_FRAMES_COUNT_WINDOWS_H
#define ORVACAM_SRC_FRAMES_COUNT_WINDOWS_H

#include <algorithm>
#include <cstddef>

namespace orvacam {

/// A window of 2^bits values, the first of which may be negative.
struct CountWindow {
  int first;
  unsigned int bits;

  int size() const { return 1 << bits; }
  int last() const { return first + size() - 1; }
};

/// Where nine tenths of some values are.
struct Spread {
  int first, last;

  /// Of a window with room for twice as many values.
  unsigned int bits() const {
    unsigned int bits = 1;
    while (1 << bits < 2 * (last - first + 1))
      ++bits;
    return bits;
  }
};

/// Of these values, which are reordered.
template <std::size_t samples>
Spread spreadOf(int (&values)[samples]) {
  int* const low = values + samples / 20;
  int* const high = values + samples - 1 - samples / 20;
  std::nth_element(values, low, values + samples);
  std::nth_element(low + 1, high, values + samples);
  return {*low, *high};
}

/// The window of these bits around a spread: most of its spare room is above, as stars and cosmic rays are
/// bright.
inline CountWindow windowAround(const Spread& spread, unsigned int bits) {
  return {spread.first - (1 << bits) / 8, bits};
}

/// The window moved to lie among the values from 0 to the largest.
inline CountWindow movedWithin(CountWindow window, int largest) {
  window.first = std::clamp(window.first, 0, largest + 1 - window.size());
  return window;
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_FRAMES_COUNT_WINDOWS_H
