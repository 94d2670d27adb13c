#ifndef ORVACAM_SRC_STATISTICS_COUNT_WINDOWS_H
#define ORVACAM_SRC_STATISTICS_COUNT_WINDOWS_H

#include <algorithm>
#include <cstddef>

namespace orvacam {

/// A window of 2^bits values, the first of which may be negative. Pixels whose values are in windows are
/// counted together, several with one addition; those outside are counted one by one.
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

/// When windows are looked for and when they are left: they follow the plane, but not one that has too much
/// in it.
class WindowWatch {
 public:
  struct Rules {
    std::size_t pixelsToJudge;  ///< windows are judged after so many pixels
    std::size_t outsideOneIn;   ///< they are left when more than one pixel in so many was outside
    std::size_t shortLife;  ///< after fewer pixels than this in windows, new ones are not looked for at once
  };
  explicit WindowWatch(const Rules& rules) : m_rules(rules) {}

  void restart() { *this = WindowWatch(m_rules); }
  bool inWindows() const { return m_inWindows; }
  /// Adds pixels that were not counted in windows; whether to look for windows now.
  bool isDue(std::size_t pixels) {
    m_pause -= std::min(m_pause, pixels);
    return m_pause == 0;
  }
  /// Says whether windows were found.
  void looked(bool found) {
    m_inWindows = found;
    m_pause = found ? 0 : pauseAfterShortLife();
    m_life = m_judged = m_outside = 0;
  }
  /// Adds pixels that were counted in windows, but for those outside; whether the windows have to be left.
  bool isOver(std::size_t pixels, std::size_t outside) {
    m_life += pixels;
    m_judged += pixels;
    m_outside += outside;
    if (m_judged < m_rules.pixelsToJudge) return false;
    const bool over = m_outside > m_judged / m_rules.outsideOneIn;
    m_judged = m_outside = 0;
    return over;
  }
  void left() {
    m_inWindows = false;
    m_pause = m_life < m_rules.shortLife ? pauseAfterShortLife() : 0;
  }

 private:
  std::size_t pauseAfterShortLife() const { return 4 * m_rules.shortLife; }

  Rules m_rules;
  bool m_inWindows = false;
  std::size_t m_pause = 0;    ///< pixels until windows are looked for
  std::size_t m_life = 0;     ///< pixels in these windows
  std::size_t m_judged = 0;   ///< since they were last judged
  std::size_t m_outside = 0;  ///< of these
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_STATISTICS_COUNT_WINDOWS_H
