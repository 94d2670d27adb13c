#include "frames/Quadrants.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernels/Kernels.h"
#include "statistics/PlaneCounts.h"

namespace orvacam {

namespace {

enum Stores { Cached, Streamed };

void swapPixels(const unsigned short* source, unsigned short* target, std::size_t count, bool mirrored,
                Stores stores) {
  const kernels::KernelTable& kernel = kernels::active();
  const auto swap = mirrored
                        ? stores == Streamed ? kernel.swapBytesMirroredStreaming : kernel.swapBytesMirrored
                    : stores == Streamed ? kernel.swapBytesStreaming
                                         : kernel.swapBytes;
  swap(source, target, count);
}

/// Pixels, at any address, into a run of the plane, mirrored or not.
void readPixels(const unsigned char* source, unsigned short* target, std::size_t count, bool mirrored,
                Stores stores = Cached) {
  if (reinterpret_cast<std::uintptr_t>(source) % alignof(unsigned short) == 0) {
    swapPixels(reinterpret_cast<const unsigned short*>(source), target, count, mirrored, stores);
    return;
  }
  constexpr std::size_t block = 1024;
  unsigned short aligned[block];
  for (std::size_t done = 0; done < count;) {
    const std::size_t n = std::min(block, count - done);
    std::memcpy(aligned, source + 2 * done, 2 * n);
    swapPixels(aligned, mirrored ? target + count - done - n : target + done, n, mirrored, stores);
    done += n;
  }
}

/// Lines that lie apart are not guessed by the processor: they are asked for while the row before is counted.
constexpr std::size_t countedAtOnce = 512;

void fetchAhead(const unsigned char* bytes, std::size_t count) {
  constexpr std::size_t cacheLine = 64;
  for (std::size_t i = 0; i < count; i += cacheLine)
    __builtin_prefetch(bytes + i);
}

/// The lines of a frame that all amplifiers read: an upper and a lower row in turn, from the outside to the
/// middle; the second half of a line is mirrored.
class Lines {
 public:
  explicit Lines(const CcdFrame& frame)
      : m_frame(frame), m_whole(std::min(pairs(), frame.source.length / (4 * frame.width))) {}

  bool areWhole() const { return m_whole == pairs(); }

  /// Of a row of the plane; null where there is none.
  const unsigned char* of(std::size_t y) const {
    if (y >= m_frame.height) return nullptr;
    const bool upper = y < pairs();
    const std::size_t pair = upper ? y : m_frame.height - 1 - y;
    return pair < m_whole ? m_frame.source.bytes + (2 * pair + (upper ? 0 : 1)) * 2 * m_frame.width : nullptr;
  }

  /// Pixels x to x + count of a row.
  void read(const unsigned char* line, std::size_t x, std::size_t count, unsigned short* target,
            Stores stores) const {
    const std::size_t half = m_frame.width / 2 + m_frame.width % 2;
    const std::size_t inFirst = x < half ? std::min(count, half - x) : 0;
    const std::size_t ahead = m_frame.width - (x + count);  // pixels of the line, behind half, before these
    if (inFirst > 0) readPixels(line + 2 * x, target, inFirst, false, stores);
    if (inFirst < count)
      readPixels(line + 2 * (half + ahead), target + inFirst, count - inFirst, true, stores);
  }

 private:
  std::size_t pairs() const { return m_frame.height / 2; }

  const CcdFrame& m_frame;
  std::size_t m_whole;  ///< pairs of lines
};

}  // namespace

int readAllAmplifiers(const CcdFrame& frame) {
  const Lines lines(frame);
  // A large plane is written past the caches, and its pixels are made once more to be counted.
  const Stores stores = 2 * frame.width * frame.height >= kernels::streamFromBytes ? Streamed : Cached;
  unsigned short again[countedAtOnce];
  // Rows in the order of the plane, each counted while it is in the cache.
  for (std::size_t y = 0; y < frame.height; ++y) {
    unsigned short* const row = frame.plane + y * frame.width;
    const unsigned char* const line = lines.of(y);
    const unsigned char* const next = lines.of(y + 1);
    const bool streamed = line != nullptr && stores == Streamed;
    if (line != nullptr) lines.read(line, 0, frame.width, row, stores);
    for (std::size_t x = 0; x < frame.width; x += countedAtOnce) {
      const std::size_t count = std::min(countedAtOnce, frame.width - x);
      if (next != nullptr) fetchAhead(next + 2 * x, 2 * count);
      if (streamed) lines.read(line, x, count, again, Cached);
      addRow(frame.statistics, streamed ? again : row + x, count, static_cast<int>(x), static_cast<int>(y));
    }
  }
  if (stores == Streamed) kernels::active().finishStreaming();
  return lines.areWhole() ? 0 : -1;
}

int readOneAmplifier(const CcdFrame& frame, bool mirrorColumns, bool mirrorRows) {
  const std::size_t width = frame.width;
  const std::size_t wholeRows = std::min(frame.height, frame.source.length / (2 * width));
  for (std::size_t y = 0; y < wholeRows; ++y) {
    const std::size_t row = mirrorRows ? frame.height - 1 - y : y;
    const unsigned short* const sampled = frame.plane + y * width;
    // Intended: the statistics sample the sequential position right after each pixel is written. In a row
    // that is mirrored in place, that position is ahead of the writer in the first half: it holds what was
    // there before.
    const std::size_t before = row == y && mirrorColumns ? width / 2 : 0;
    addRow(frame.statistics, sampled, before, 0, static_cast<int>(y));
    readPixels(frame.source.bytes + 2 * y * width, frame.plane + row * width, width, mirrorColumns);
    addRow(frame.statistics, sampled + before, width - before, static_cast<int>(before), static_cast<int>(y));
  }
  return wholeRows == frame.height ? 0 : -1;
}

int readAmplifiers(const CcdFrame& frame, unsigned int amplifiers) {
  static constexpr struct {
    Amplifier amplifier;
    bool mirrorColumns, mirrorRows;
  } readers[] = {{UpperLeft, false, false},
                 {UpperRight, true, false},
                 {LowerLeft, false, true},
                 {LowerRight, true, true}};
  if ((amplifiers & AllAmplifiers) == AllAmplifiers) return readAllAmplifiers(frame);
  for (const auto& reader : readers)
    if ((amplifiers & reader.amplifier) != 0)
      return readOneAmplifier(frame, reader.mirrorColumns, reader.mirrorRows);
  return -1;
}

}  // namespace orvacam
