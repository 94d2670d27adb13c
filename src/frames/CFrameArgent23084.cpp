#include <orvacam/frames/CFrameArgent23084.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernels/Kernels.h"
#include "metadata/FrameGeometry.h"

namespace {

namespace kernels = orvacam::kernels;

enum Amplifier : unsigned int {
  UpperLeft = 0x20,
  UpperRight = 0x10,
  LowerLeft = 0x08,
  LowerRight = 0x04,
  All = 0x3C
};

/// Columns and rows as they were read off the sensor; no columns where they are more than the plane's pixels,
/// or none at all.
struct ReadSize {
  unsigned long width = 0, height = 0;
};

ReadSize readSize(const CFrameMetaData& metaData, unsigned long planePixels) {
  const orvacam::FrameGeometry geometry(metaData);
  if (geometry.fault() || geometry.framePixels() > planePixels) return {};
  return {geometry.columns().frame(), geometry.rows().frame()};
}

enum Stores { Cached, Streamed };

void swapPixels(const unsigned short* pSource, unsigned short* pTarget, unsigned long count, bool bMirrored,
                Stores stores) {
  const kernels::KernelTable& kernel = kernels::active();
  const auto swap = bMirrored
                        ? stores == Streamed ? kernel.swapBytesMirroredStreaming : kernel.swapBytesMirrored
                    : stores == Streamed ? kernel.swapBytesStreaming
                                         : kernel.swapBytes;
  swap(pSource, pTarget, count);
}

/// Big-endian pixels, at any address, into a run of the plane, mirrored or not.
void readPixels(const unsigned char* pSource, unsigned short* pTarget, unsigned long count, bool bMirrored,
                Stores stores = Cached) {
  if (reinterpret_cast<std::uintptr_t>(pSource) % alignof(unsigned short) == 0) {
    swapPixels(reinterpret_cast<const unsigned short*>(pSource), pTarget, count, bMirrored, stores);
    return;
  }
  constexpr unsigned long block = 1024;
  unsigned short aligned[block];
  for (unsigned long done = 0; done < count;) {
    const unsigned long n = std::min(block, count - done);
    std::memcpy(aligned, pSource + 2 * done, 2 * n);
    swapPixels(aligned, bMirrored ? pTarget + count - done - n : pTarget + done, n, bMirrored, stores);
    done += n;
  }
}

/// Lines that lie apart are not guessed by the processor: they are asked for while the row before is counted.
constexpr unsigned long countedAtOnce = 512;

void fetchAhead(const unsigned char* bytes, unsigned long count) {
  constexpr unsigned long cacheLine = 64;
  for (unsigned long i = 0; i < count; i += cacheLine)
    __builtin_prefetch(bytes + i);
}

}  // namespace

int CFrameArgent23084::Unpack(unpacked_images_t* pImages) {
  if (DoPrepare(pImages) != 0) return -1;
  unsigned int pixels = 0;
  m_pMetaData->GetImageSizePixelsBinned(pixels);
  if (DoCheckPlanes(pixels) != 0) return -1;
  DoResetStatistics();

  const unsigned int quadrants = m_pMetaData->Value(ORVA_META_KEY_SENSOR_READ_QUADRANTS).GetValueUint() & All;
  const unpacked_images_t& planes = m_UserMergeBuffers;
  const int result = quadrants < All ? DoUnpackSingleQuadrantRead(planes.pLowImage, planes.ulLowImagePixels)
                                     : DoUnpackFourQuadrantRead(planes.pLowImage, planes.ulLowImagePixels);
  if (result >= 0) DoApplyBias(false);
  m_LowStatistics.Compute();  // intended: whether statistics are enabled or not
  return result;
}

int CFrameArgent23084::Merge(unpacked_images_t* pImages) {
  if (m_pMetaData == nullptr) return -1;
  return pImages == nullptr ? 0 : Unpack(pImages);
}

int CFrameArgent23084::DoUnpackFourQuadrantRead(unsigned short* pOut, unsigned long ulPixels) {
  const ReadSize size = readSize(*m_pMetaData, ulPixels);
  const unsigned long width = size.width;
  const unsigned long height = size.height;
  if (pOut == nullptr || width == 0) return -1;
  unsigned long length = 0;
  const unsigned char* const source = DoPixelDataOfAnySource(length);
  const unsigned long lineBytes = 2 * width;
  const unsigned long half = width / 2 + width % 2;
  const unsigned long pairs = height / 2;
  const unsigned long wholePairs = std::min(pairs, length / (2 * lineBytes));
  // Rows in the order of the plane, each counted while it is in the cache: the upper ones come from every
  // other line, the lower ones from the lines between, backwards.
  const auto lineOf = [&](unsigned long y) -> const unsigned char* {
    const bool upper = y < pairs;
    const unsigned long pair = upper ? y : height - 1 - y;
    return pair < wholePairs ? source + (2 * pair + (upper ? 0 : 1)) * lineBytes : nullptr;
  };
  // Pixels x to x + count of a row; the second half of a line is mirrored.
  const auto readRun = [&](const unsigned char* line, unsigned long x, unsigned long count,
                           unsigned short* target, Stores stores) {
    const unsigned long inFirst = x < half ? std::min(count, half - x) : 0;
    const unsigned long mirrored =
        width - (x + count);  // pixels that the line has ahead of these, behind half
    if (inFirst > 0) readPixels(line + 2 * x, target, inFirst, false, stores);
    if (inFirst < count)
      readPixels(line + 2 * (half + mirrored), target + inFirst, count - inFirst, true, stores);
  };
  // A large plane is written past the caches, and its pixels are made once more to be counted.
  const Stores stores = 2UL * width * height >= kernels::streamFromBytes ? Streamed : Cached;
  unsigned short again[countedAtOnce];
  for (unsigned long y = 0; y < height; ++y) {
    unsigned short* const row = pOut + y * width;
    const unsigned char* const line = lineOf(y);
    const bool streamed = line != nullptr && stores == Streamed;
    if (line != nullptr) readRun(line, 0, width, row, stores);
    const unsigned char* const next = y + 1 < height ? lineOf(y + 1) : nullptr;
    for (unsigned long x = 0; x < width; x += countedAtOnce) {
      const unsigned long count = std::min(countedAtOnce, width - x);
      if (next != nullptr) fetchAhead(next + 2 * x, 2 * count);
      if (streamed) readRun(line, x, count, again, Cached);
      m_LowStatistics.AddRow(streamed ? again : row + x, count, static_cast<int>(x), static_cast<int>(y));
    }
  }
  if (stores == Streamed) kernels::active().finishStreaming();
  return wholePairs == pairs ? 0 : -1;
}

int CFrameArgent23084::DoUnpackSingleQuadrantRead(unsigned short* pOut, unsigned long ulPixels) {
  static constexpr struct {
    Amplifier amplifier;
    bool mirrorColumns, mirrorRows;
  } readers[] = {{UpperLeft, false, false},
                 {UpperRight, true, false},
                 {LowerLeft, false, true},
                 {LowerRight, true, true}};
  const unsigned int quadrants = m_pMetaData->Value(ORVA_META_KEY_SENSOR_READ_QUADRANTS).GetValueUint();
  for (const auto& reader : readers)
    if ((quadrants & reader.amplifier) != 0)
      return DoUnpackSingle(pOut, ulPixels, reader.mirrorColumns, reader.mirrorRows);
  return -1;
}

void CFrameArgent23084::DoUnpackSingleUpperLeft(unsigned short* pOut, unsigned long ulPixels) {
  DoUnpackSingle(pOut, ulPixels, false, false);
}
void CFrameArgent23084::DoUnpackSingleUpperRight(unsigned short* pOut, unsigned long ulPixels) {
  DoUnpackSingle(pOut, ulPixels, true, false);
}
void CFrameArgent23084::DoUnpackSingleLowerLeft(unsigned short* pOut, unsigned long ulPixels) {
  DoUnpackSingle(pOut, ulPixels, false, true);
}
void CFrameArgent23084::DoUnpackSingleLowerRight(unsigned short* pOut, unsigned long ulPixels) {
  DoUnpackSingle(pOut, ulPixels, true, true);
}

int CFrameArgent23084::DoUnpackSingle(unsigned short* pOut, unsigned long ulPixels, bool bMirrorColumns,
                                      bool bMirrorRows) {
  const ReadSize size = readSize(*m_pMetaData, ulPixels);
  const unsigned long width = size.width;
  const unsigned long height = size.height;
  if (pOut == nullptr || width == 0) return -1;
  unsigned long length = 0;
  const unsigned char* const source = DoPixelDataOfAnySource(length);
  const unsigned long wholeRows = std::min(height, length / (2 * width));
  for (unsigned long y = 0; y < wholeRows; ++y) {
    const unsigned long row = bMirrorRows ? height - 1 - y : y;
    unsigned short* const target = pOut + row * width;
    const unsigned short* const sampled = pOut + y * width;
    // Intended: the statistics sample the sequential position right after each pixel is written. In a row
    // that is mirrored in place, that position is ahead of the writer in the first half: it holds what was
    // there before.
    const unsigned long before = row == y && bMirrorColumns ? width / 2 : 0;
    m_LowStatistics.AddRow(sampled, before, 0, static_cast<int>(y));
    readPixels(source + 2 * y * width, target, width, bMirrorColumns);
    m_LowStatistics.AddRow(sampled + before, width - before, static_cast<int>(before), static_cast<int>(y));
  }
  return wholeRows == height ? 0 : -1;
}
