#include <orvacam/frames/CFrameArgent23084.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <algorithm>
#include <cstring>

#include "kernels/Kernels.h"

namespace {

namespace kernels = orvacam::kernels;

enum Amplifier : unsigned int {
  UpperLeft = 0x20,
  UpperRight = 0x10,
  LowerLeft = 0x08,
  LowerRight = 0x04,
  All = 0x3C
};

/// Big-endian pixels, at any address, into a run of the plane, mirrored or not.
void readPixels(const unsigned char* pSource, unsigned short* pTarget, unsigned long count, bool bMirrored) {
  constexpr unsigned long block = 1024;
  unsigned short aligned[block];
  for (unsigned long done = 0; done < count;) {
    const unsigned long n = std::min(block, count - done);
    std::memcpy(aligned, pSource + 2 * done, 2 * n);
    if (bMirrored)
      kernels::active().swapBytesMirrored(aligned, pTarget + count - done - n, n);
    else
      kernels::active().swapBytes(aligned, pTarget + done, n);
    done += n;
  }
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
  unsigned int width = 0;
  unsigned int height = 0;
  if (pOut == nullptr || m_pMetaData->GetFrameDimensions(width, height) != 0 ||
      static_cast<unsigned long>(width) * height > ulPixels)
    return -1;
  unsigned long length = 0;
  const unsigned char* const source = DoPixelDataOfAnySource(length);
  const unsigned long lineBytes = 2UL * width;
  const unsigned long half = width / 2 + width % 2;
  const unsigned long otherHalf = width - half;
  const unsigned long pairs = height / 2;
  const unsigned long wholePairs = lineBytes == 0 ? pairs : std::min(pairs, length / (2 * lineBytes));
  for (unsigned long i = 0; i < wholePairs; ++i) {
    const unsigned char* const line = source + 2 * i * lineBytes;
    unsigned short* const top = pOut + i * width;
    unsigned short* const bottom = pOut + (height - 1 - i) * width;
    readPixels(line, top, half, false);
    readPixels(line + 2 * half, top + half, otherHalf, true);
    readPixels(line + lineBytes, bottom, half, false);
    readPixels(line + lineBytes + 2 * half, bottom + half, otherHalf, true);
  }
  for (unsigned int y = 0; y < height; ++y)
    m_LowStatistics.AddRow(pOut + static_cast<unsigned long>(y) * width, width, 0, static_cast<int>(y));
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
  unsigned int width = 0;
  unsigned int height = 0;
  if (pOut == nullptr || m_pMetaData->GetFrameDimensions(width, height) != 0 ||
      static_cast<unsigned long>(width) * height > ulPixels)
    return -1;
  unsigned long length = 0;
  const unsigned char* const source = DoPixelDataOfAnySource(length);
  const unsigned long wholeRows =
      width == 0 ? height : std::min<unsigned long>(height, length / (2UL * width));
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
