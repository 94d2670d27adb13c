#include <fcntl.h>
#include <orvacam/imagefiles/CTiffMaker.h>
#include <orvacam/metadata/CFrameMetaData.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "imagefiles/FileWriting.h"
#include "imagefiles/FramePixels.h"
#include "imagefiles/ImageFormats.h"
#include "metadata/Values.h"
#include "support/OpenFile.h"

namespace {

// The fixed block: header, directory, out-of-line data.
constexpr unsigned int directoryOffset = 14;
constexpr unsigned int entrySize = 12;
constexpr unsigned int dataOffset = 400;
using orvacam::numberOf;
using orvacam::tiffBlockSize;
constexpr unsigned int tagLimit = 30;  // one more is added while the list does not hold more than this
static_assert(directoryOffset + 2 + (tagLimit + 1) * entrySize + 4 <= dataOffset,
              "the directory ends before its data");

enum Tag : unsigned short {
  NewSubfileType = 254,
  ImageWidth = 256,
  ImageLength = 257,
  BitsPerSample = 258,
  Compression = 259,
  PhotometricInterpretation = 262,
  StripOffsets = 273,
  SamplesPerPixel = 277,
  RowsPerStrip = 278,
  StripByteCounts = 279,
  XResolution = 282,
  YResolution = 283,
  ResolutionUnit = 296,
  PageNumber = 297
};
constexpr unsigned int uncompressed = 1;
constexpr unsigned int blackIsZero = 1;
constexpr unsigned int centimetre = 3;
constexpr unsigned int tenthsOfMicrometreInCentimetre = 100000;

/// How the elements of a type are stored: as a number of words of one size.
struct TypeLayout {
  unsigned int wordSize;
  unsigned int words;
  unsigned int elementSize() const { return wordSize * words; }
};

constexpr TypeLayout layoutOf(unsigned int type) {
  switch (type) {
    case TIFF_TAGTYPE_SHORT:
      return {2, 1};
    case TIFF_TAGTYPE_LONG:
      return {4, 1};
    case TIFF_TAGTYPE_RATIONAL:
      return {4, 2};
    default:
      return {1, 1};
  }
}

std::uint64_t dataSize(const _tiff_tag_complete_t& node) {
  return std::uint64_t{node.uiNumElements} * layoutOf(node.tag.usType).elementSize();
}

/// Bytes of the value field that a value takes; an offset always takes all four.
unsigned int valueSize(const _tiff_tag_complete_t& node) {
  if (node.pData != nullptr) return 4;
  return node.tag.usType == TIFF_TAGTYPE_BYTE ? 1 : node.tag.usType == TIFF_TAGTYPE_SHORT ? 2 : 4;
}

bool liesInBlock(const _tiff_tag_complete_t& node) {
  if (node.pData == nullptr) return true;
  return node.tag.uiValue >= dataOffset && node.tag.uiValue + dataSize(node) <= tiffBlockSize;
}

/// Writes integers one after the other in the file's byte order. What is written lies in the block: the
/// directory of the most tags ends before the data, and data is checked before.
class Writer {
 public:
  Writer(unsigned char* bytes, bool bigEndian) : m_next(bytes), m_bigEndian(bigEndian) {}

  void put(unsigned int value, unsigned int size) {
    for (unsigned int i = 0; i < size; ++i)
      *m_next++ = static_cast<unsigned char>(value >> 8 * (m_bigEndian ? size - 1 - i : i));
  }
  void skip(unsigned int size) { m_next += size; }

 private:
  unsigned char* m_next;
  bool m_bigEndian;
};

void putEntry(Writer& writer, const _tiff_tag_complete_t& node) {
  writer.put(node.tag.usTag, 2);
  writer.put(node.tag.usType, 2);
  writer.put(node.tag.uiCount, 4);
  writer.put(node.tag.uiValue, valueSize(node));
  writer.skip(4 - valueSize(node));
}

/// Words of the machine's (little-endian) order become words of the file's.
void putData(Writer writer, const _tiff_tag_complete_t& node) {
  const unsigned int wordSize = layoutOf(node.tag.usType).wordSize;
  for (std::uint64_t i = 0; i < dataSize(node); i += wordSize) {
    unsigned int word = 0;
    std::memcpy(&word, node.pData + i, wordSize);
    writer.put(word, wordSize);
  }
}

}  // namespace

CTiffMaker::CTiffMaker() : m_pTags(nullptr), m_uiNumTags(0), m_uiCursor(dataOffset) {
  InitTags(0);
}

CTiffMaker::~CTiffMaker() {
  ClearTags();
}

// ---- The list of tags

int CTiffMaker::InitTags(unsigned int uiMetaDataLength) {
  ClearTags();
  const bool all = SetTag(NewSubfileType, TIFF_TAGTYPE_LONG, 0) == 0 && SetBitsPerSample(16) == 0 &&
                   SetTag(Compression, TIFF_TAGTYPE_SHORT, uncompressed) == 0 &&
                   SetTag(PhotometricInterpretation, TIFF_TAGTYPE_SHORT, blackIsZero) == 0 &&
                   SetTag(SamplesPerPixel, TIFF_TAGTYPE_SHORT, 1) == 0 &&
                   SetTag(StripOffsets, TIFF_TAGTYPE_LONG, uiMetaDataLength + tiffBlockSize) == 0;
  return all ? 0 : -1;
}

void CTiffMaker::ClearTags() {
  while (m_pTags != nullptr) {
    _tiff_tag_complete_t* const node = m_pTags;
    m_pTags = node->pNext;
    delete[] node->pData;
    delete node;
  }
  m_uiNumTags = 0;
  m_uiCursor = dataOffset;
}

int CTiffMaker::AddTag(const _tiff_tag_t& tag, const void* pData, unsigned int uiNumElements) {
  if (m_uiNumTags > tagLimit) return -1;
  std::unique_ptr<_tiff_tag_complete_t> node(new (std::nothrow)
                                                 _tiff_tag_complete_t{tag, 0, nullptr, nullptr});
  if (node == nullptr || AssignTagData(node.get(), pData, uiNumElements) != 0) return -1;

  _tiff_tag_complete_t** place = &m_pTags;
  if (m_pTags != nullptr) place = &m_pTags->pNext;  // intended: never before the first tag
  while (*place != nullptr && (*place)->tag.usTag <= tag.usTag)
    place = &(*place)->pNext;
  node->pNext = *place;
  *place = node.release();
  ++m_uiNumTags;
  return 0;
}

int CTiffMaker::AssignTagData(_tiff_tag_complete_t* pNode, const void* pData, unsigned int uiNumElements) {
  if (pNode == nullptr || pData == nullptr || uiNumElements == 0) return 0;
  const std::size_t bytes = std::size_t{uiNumElements} * layoutOf(pNode->tag.usType).elementSize();
  auto* const copy = new (std::nothrow) _tiff_type_data_t[bytes];
  if (copy == nullptr) return -1;
  std::memcpy(copy, pData, bytes);
  delete[] pNode->pData;
  pNode->pData = copy;
  pNode->uiNumElements = uiNumElements;
  pNode->tag.uiValue = m_uiCursor;
  m_uiCursor += static_cast<unsigned int>(bytes + bytes % 16);  // intended: not rounded up to 16
  return 0;
}

_tiff_tag_complete_t* CTiffMaker::FindTag(unsigned short usTag) const {
  _tiff_tag_complete_t* node = m_pTags;
  while (node != nullptr && node->tag.usTag != usTag)
    node = node->pNext;
  return node;
}

int CTiffMaker::SetTag(unsigned short usTag, TIFF_TAGTYPE eType, unsigned int uiValue) {
  if (eType == TIFF_TAGTYPE_ASCII || eType == TIFF_TAGTYPE_RATIONAL) return -1;
  const _tiff_tag_t tag{usTag, static_cast<unsigned short>(eType), 1, uiValue};
  _tiff_tag_complete_t* const node = FindTag(usTag);
  if (node == nullptr) return AddTag(tag, nullptr, 0);
  node->tag = tag;  // the value is no longer the offset of any data
  delete[] node->pData;
  node->pData = nullptr;
  node->uiNumElements = 0;
  return 0;
}

int CTiffMaker::SetBitsPerSample(unsigned int uiBits) {
  return SetTag(BitsPerSample, TIFF_TAGTYPE_SHORT, uiBits);
}

int CTiffMaker::SetPageNumber(unsigned int uiNumber) {
  return SetTag(PageNumber, TIFF_TAGTYPE_SHORT, uiNumber);  // intended: one value, not two
}

int CTiffMaker::SetImageDimensions(unsigned int uiWidth, unsigned int uiHeight) {
  // Intended: sizes above 65535 are cut to 16 bits.
  int result = SetTag(ImageWidth, TIFF_TAGTYPE_SHORT, uiWidth);
  if (result == 0) result = SetTag(ImageLength, TIFF_TAGTYPE_SHORT, uiHeight);
  if (result == 0) result = SetTag(RowsPerStrip, TIFF_TAGTYPE_SHORT, uiHeight);
  if (result == 0) result = SetTag(StripByteCounts, TIFF_TAGTYPE_LONG, uiWidth * uiHeight * 2);
  return result;
}

/// Pixels per centimetre from a size in tenths of a micrometre.
static int setResolution(CTiffMaker& maker, unsigned short tag, unsigned int size) {
  const unsigned int ratio[2] = {tenthsOfMicrometreInCentimetre, size};
  _tiff_tag_complete_t* const node = maker.FindTag(tag);
  if (node == nullptr) return maker.AddTag({tag, TIFF_TAGTYPE_RATIONAL, 1, 0}, ratio, 1);
  if (node->pData == nullptr || dataSize(*node) < sizeof ratio) return -1;
  std::memcpy(node->pData, ratio, sizeof ratio);
  return 0;
}

int CTiffMaker::SetPixelSize(unsigned int uiX, unsigned int uiY) {
  const int resultX = setResolution(*this, XResolution, uiX);
  if (setResolution(*this, YResolution, uiY) != 0) return -1;
  return SetTag(ResolutionUnit, TIFF_TAGTYPE_SHORT, centimetre) == 0 ? resultX : -1;
}

// ---- Writing

int CTiffMaker::Binarize(unsigned char* pBuffer, unsigned int uiSize, bool bBigEndian) const {
  if (pBuffer == nullptr || uiSize < tiffBlockSize) return -1;
  for (const _tiff_tag_complete_t* node = m_pTags; node != nullptr; node = node->pNext)
    if (!liesInBlock(*node)) return -1;

  std::memset(pBuffer, 0, tiffBlockSize);
  pBuffer[0] = pBuffer[1] = bBigEndian ? 'M' : 'I';
  Writer writer(pBuffer + 2, bBigEndian);
  writer.put(42, 2);
  writer.put(directoryOffset, 4);
  writer.skip(directoryOffset - 8);
  writer.put(m_uiNumTags, 2);
  for (const _tiff_tag_complete_t* node = m_pTags; node != nullptr; node = node->pNext) {
    putEntry(writer, *node);
    if (node->pData != nullptr) putData(Writer(pBuffer + node->tag.uiValue, bBigEndian), *node);
  }
  return tiffBlockSize;
}

int CTiffMaker::WriteHeader(unsigned char* pBuffer, unsigned int uiSize, CFrameMetaData& meta,
                            bool bBigEndian) {
  const unsigned int metaSize = meta.GetBinarizeSize();
  const std::uint64_t size = std::uint64_t{metaSize} + tiffBlockSize;
  if (size > uiSize || size > INT_MAX) return -1;
  unsigned int width = 0;
  unsigned int height = 0;
  meta.GetFrameDimensionsBinned(width, height);

  if (InitTags(metaSize) != 0 || SetImageDimensions(width, height) != 0 ||
      SetPixelSize(numberOf(meta, ORVA_META_KEY_HORIZONTAL_PIXEL_SIZE),
                   numberOf(meta, ORVA_META_KEY_VERTICAL_PIXEL_SIZE)) != 0 ||
      SetPageNumber(numberOf(meta, ORVA_META_KEY_FRAME_NUMBER)) != 0 ||
      Binarize(pBuffer, uiSize, bBigEndian) < 0)
    return -1;
  // Intended: a header too short for the one layout that is written (version 1) is left out.
  if (meta.Binarize(pBuffer + tiffBlockSize, metaSize) < 0) std::memset(pBuffer + tiffBlockSize, 0, metaSize);
  return static_cast<int>(size);
}

int CTiffMaker::CreateImageFile(const std::string& path, const unsigned short* pPixels,
                                CFrameMetaData& meta) {
  unsigned int pixels = 0;
  if (pPixels == nullptr || !orvacam::framePixels(meta, pixels)) return -1;
  const unsigned int headerSize = meta.GetBinarizeSize() + tiffBlockSize;
  const std::unique_ptr<unsigned char[]> header(new (std::nothrow) unsigned char[headerSize]);
  if (header == nullptr) return -1;

  const int file = orvacam::openForWriting(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666);
  if (file < 0) return -1;
  const bool bigEndian = !meta.Value(ORVA_META_KEY_PIXEL_ORDERED_IMAGE).GetValueBool();
  int result = WriteHeader(header.get(), headerSize, meta, bigEndian);
  if (result >= 0 && !(orvacam::writeAll(file, header.get(), headerSize) &&
                       orvacam::writeAll(file, pPixels, sizeof *pPixels * pixels)))
    result = -1;
  if (close(file) != 0) result = -1;  // some file systems say only now that the disk is full
  return result;
}
