#ifndef ORVACAM_SRC_KERNELS_VECTOR_KERNELS_H
#define ORVACAM_SRC_KERNELS_VECTOR_KERNELS_H

// The kernels over registers of pixels, and the table of them. The source of an instruction set defines
// Register and the operations on it, then includes this file last. Everything is static or unnamed: an inline
// function that was built for a new processor must not be linked into code for an old one.

#include "kernels/KernelLoops.h"
#include "kernels/Kernels.h"
#include "kernels/VectorMerge.h"
#include "kernels/VectorPackedMerge.h"
#include "kernels/VectorRegisters.h"
#include "kernels/VectorStatistics.h"

namespace orvacam::kernels {

// ---- 12-bit pairs

template <Stores stores>
static void unpackPairs(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  constexpr std::size_t pairsOfRegister = lanes / 2;
  if (pairs < pairsOfRegister) {
    loops::unpack12(packed, pixels, pairs);
    return;
  }
  std::size_t pair = 0;
  for (; pair + pairsOfRegister <= pairs; pair += pairsOfRegister)
    put<stores>(pixels + 2 * pair, unpacked(packed + 3 * pair));
  if (stores == streaming) {  // an overlapping register would read streamed lines back
    loops::unpack12(packed + 3 * pair, pixels + 2 * pair, pairs - pair);
  } else if (pair < pairs) {
    pair = pairs - pairsOfRegister;  // the last register overlaps
    store(pixels + 2 * pair, unpacked(packed + 3 * pair));
  }
}

/// Through the caches up to the first cache line; all of it where no pair begins at one.
template <Stores stores>
static void unpack12(const std::uint8_t* packed, std::uint16_t* pixels, std::size_t pairs) {
  const std::size_t ahead = pixelsToLine(pixels);
  const bool streams = stores == streaming && ahead % 2 == 0 && ahead / 2 <= pairs;
  const std::size_t through = streams ? ahead / 2 : pairs;
  unpackPairs<cached>(packed, pixels, through);
  if (streams) unpackPairs<streaming>(packed + 3 * through, pixels + ahead, pairs - through);
}

// ---- Byte order

static void swapBytesStreaming(const std::uint16_t* source, std::uint16_t* destination, std::size_t count) {
  const std::size_t ahead = pixelsToLine(destination);
  std::size_t i = ahead < count ? ahead : count;
  loops::swapBytes(source, destination, i);
  for (; i + lanes <= count; i += lanes)
    stream(destination + i, bytesSwapped16(load(source + i)));
  loops::swapBytes(source + i, destination + i, count - i);
}

static void swapBytesMirroredStreaming(const std::uint16_t* source, std::uint16_t* destination,
                                       std::size_t count) {
  const std::size_t ahead = pixelsToLine(destination);
  std::size_t i = ahead < count ? ahead : count;
  loops::swapBytesMirrored(source + count - i, destination, i);
  for (; i + lanes <= count; i += lanes)  // reversing all bytes reverses the lanes and swaps their bytes
    stream(destination + i, bytesReversed(load(source + count - i - lanes)));
  loops::swapBytesMirrored(source, destination + i, count - i);
}

// ---- Merge by a line

/// Registers hold the places, the values are looked up one by one. Pixels outside the map get place 0, whose
/// value is 0.
static void mergeByLine(const std::uint16_t* low, const std::uint16_t* high, std::uint16_t* merged,
                        std::size_t count, const std::uint16_t* values, std::uint32_t size,
                        std::uint32_t mergeRow) {
  constexpr std::size_t block = 512;
  std::uint16_t places[block];
  const Register lastRow = spread16(mergeRow - 1);
  const Register last = spread16(size - 1);
  const Register columns = spread16(size);
  std::size_t done = 0;
  while (count - done >= lanes) {
    const std::size_t run = count - done < block ? (count - done) / lanes * lanes : block;
    for (std::size_t i = 0; i < run; i += lanes) {
      const Register column = load(low + done + i);
      const Register row = load(high + done + i);
      const Register place = whereAtMost16(row, lastRow, row, eitherBits(column, columns));
      store(places + i, whereAtMost16(maximum16(row, column), last, place, spread16(0)));
    }
    for (std::size_t i = 0; i < run; i += 4) {
      const std::uint64_t four = load4(places + i);
      merged[done + i] = values[four & 0xFFFF];
      merged[done + i + 1] = values[four >> 16 & 0xFFFF];
      merged[done + i + 2] = values[four >> 32 & 0xFFFF];
      merged[done + i + 3] = values[four >> 48];
    }
    done += run;
  }
  loops::mergeByLine(low + done, high + done, merged + done, count - done, values, size, mergeRow);
}

/// The plain loops, compiled for this instruction set, with the kernels above in place of those that
/// compilers do not vectorise well.
static constexpr KernelTable vectorTable() {
  KernelTable table = loops::table(tableName, tableNeeds);
  ORVACAM_PUT_STORES(table, kernels, unpack12);
  ORVACAM_PUT(table, kernels, swapBytesStreaming);
  ORVACAM_PUT(table, kernels, swapBytesMirroredStreaming);
  ORVACAM_PUT(table, kernels, mergeByLine);
  ORVACAM_PUT(table, kernels, finishStreaming);
  putStatistics(table);
  putMerges(table);
  putPackedMerges(table);
  return table;
}

}  // namespace orvacam::kernels

#endif  // ORVACAM_SRC_KERNELS_VECTOR_KERNELS_H
