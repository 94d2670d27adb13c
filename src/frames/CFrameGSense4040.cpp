#include <orvacam/frames/CFrameGSense4040.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <cstring>

#include "frames/Decoding.h"
#include "merge/FrameRegions.h"

using namespace orvacam;

DecodePlan orvacam::planGSense4040(const FrameFacts& facts) {
  if (facts.hdr) return packedPair(facts, pairStreamGSense2020(facts));
  if (facts.bits == 16) return plain16(facts, facts.geometry.planePixels(), WhenShort::IsLeftUncopied);
  return packedSingle(facts);
}

int CFrameGSense4040::Unpack(unpacked_images_t* pImages) {
  return unpackFrame(*this, planGSense4040, pImages);
}

int CFrameGSense4040::Merge(unpacked_images_t* pImages) {
  return mergeFrame(*this, planGSense4040, pImages);
}

int CFrameGSense4040::CopyROIToBuffer(frame_roi_t& roi, unsigned char* pBuffer, unsigned int uiBufferSize) {
  if (m_pMetaData == nullptr || m_pSource == nullptr || m_bSourceIncomplete || pBuffer == nullptr) return -1;
  if (roi.uiX % 2 != 0 || roi.uiWidth % 2 != 0) return -1;
  // All that follows fits 64 bits: an axis has at most 2^31 - 1 pixels, a row of both gains twice 1.5 bytes
  // for each.
  const orvacam::FrameGeometry geometry(*m_pMetaData);
  if (geometry.fault()) return -1;
  const orvacam::FrameRegions frame(geometry);
  const unsigned int frameWidth = frame.frameWidth, prePixels = frame.prePixels, preRows = frame.preRows;
  const bool hdr = m_pMetaData->Value(ORVA_META_KEY_HDR_MODE).GetValueBool();

  const unsigned long firstColumn = static_cast<unsigned long>(prePixels) + roi.uiX;
  const unsigned long firstRow = static_cast<unsigned long>(preRows) + roi.uiY;
  if (firstColumn + roi.uiWidth > frameWidth || firstRow + roi.uiHeight > frame.frameHeight) return -1;

  const unsigned long header = m_pMetaData->GetBinarizeSize();
  const unsigned long rowsPerRow = hdr ? 2 : 1;
  const unsigned long rowBytes = packedBytes(frameWidth);
  const unsigned long regionBytes = packedBytes(roi.uiWidth);
  // Intended: rows ahead of the region are skipped once, although an HDR stream holds each of them twice.
  const unsigned long start = header + packedBytes(static_cast<unsigned long>(frameWidth) * preRows) +
                              packedBytes(static_cast<unsigned long>(frameWidth) * roi.uiY);
  const unsigned long firstByte = packedBytes(prePixels) + packedBytes(roi.uiX);
  const unsigned long rows = roi.uiHeight * rowsPerRow;
  const unsigned long sourceEnd = rows == 0 ? 0 : start + (rows - 1) * rowBytes + firstByte + regionBytes;
  if (sourceEnd > m_ulSourceLength || header + rows * regionBytes > uiBufferSize) return -1;

  if (hdr)
    DoCopyROIHDR(m_pSource + start, frameWidth, prePixels, pBuffer + header, roi);
  else
    DoCopyROISingle(m_pSource + start, frameWidth, prePixels, pBuffer + header, roi);
  return 0;
}

void CFrameGSense4040::DoCopyROIHDR(const unsigned char* pSource, unsigned int uiFrameWidth,
                                    unsigned int uiPreRefPixels, unsigned char* pDestination,
                                    const frame_roi_t& roi) {
  // A pair of rows is copied like two single rows.
  frame_roi_t rows = roi;
  rows.uiHeight *= 2;
  DoCopyROISingle(pSource, uiFrameWidth, uiPreRefPixels, pDestination, rows);
}

void CFrameGSense4040::DoCopyROISingle(const unsigned char* pSource, unsigned int uiFrameWidth,
                                       unsigned int uiPreRefPixels, unsigned char* pDestination,
                                       const frame_roi_t& roi) {
  const unsigned long regionBytes = packedBytes(roi.uiWidth);
  const unsigned long first = packedBytes(uiPreRefPixels) + packedBytes(roi.uiX);
  for (unsigned int row = 0; row < roi.uiHeight && regionBytes > 0; ++row)
    std::memcpy(pDestination + row * regionBytes, pSource + row * packedBytes(uiFrameWidth) + first,
                regionBytes);
}
