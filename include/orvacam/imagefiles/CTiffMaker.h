#ifndef ORVACAM_IMAGEFILES_CTIFFMAKER_H
#define ORVACAM_IMAGEFILES_CTIFFMAKER_H

#include <orvacam/types/export.h>

#include <string>

class CFrameMetaData;

/// TIFF 6.0 field types.
enum TIFF_TAGTYPE : unsigned int {
  TIFF_TAGTYPE_BYTE = 1,
  TIFF_TAGTYPE_ASCII = 2,
  TIFF_TAGTYPE_SHORT = 3,
  TIFF_TAGTYPE_LONG = 4,
  TIFF_TAGTYPE_RATIONAL = 5
};

/// One byte of a tag's out-of-line data, which is an array of elements of the tag's type in the machine's
/// order.
using _tiff_type_data_t = unsigned char;

/// A tag as a caller gives it.
struct _tiff_tag_t {
  unsigned short usTag;
  unsigned short usType;  ///< TIFF_TAGTYPE
  unsigned int uiCount;
  unsigned int uiValue;
};

/// A tag in the list.
struct _tiff_tag_complete_t {
  _tiff_tag_t tag;             ///< its value is the data's offset in the file when there is out-of-line data
  unsigned int uiNumElements;  ///< of the out-of-line data
  _tiff_type_data_t* pData;    ///< owned; null when there is none
  _tiff_tag_complete_t* pNext;
};

/// Writes one 16-bit frame as an uncompressed TIFF 6.0 file with a single strip, which the frame's binary
/// metadata header precedes:
///
///   0    the TIFF header; the directory at 14
///   400  out-of-line tag data, up to 256 bytes
///   656  the metadata header, MetadataLength bytes
///   ...  the pixels, exactly as in memory
///
/// The tags are collected first, then written in the chosen byte order. The order does not touch the pixels:
/// a caller whose pixels are little-endian sets the metadata's pixel order flag, and the file becomes
/// little-endian.
///
/// Statuses: 0 (or a positive value) is success, -1 failure; nothing is logged. One object is used by one
/// thread at a time.
class ORVACAM_API CTiffMaker {
 public:
  /// With the tags of InitTags(0).
  CTiffMaker();
  CTiffMaker(const CTiffMaker&) = delete;
  CTiffMaker& operator=(const CTiffMaker&) = delete;
  virtual ~CTiffMaker();

  /// Starts over with the tags that every file has; pixels begin behind uiMetaDataLength + 656 bytes. 0,
  /// or -1 when memory runs out.
  int InitTags(unsigned int uiMetaDataLength);
  /// Frees all tags.
  void ClearTags();

  /// Adds a tag in order behind those of the same and of lower numbers, but never before the first one, with
  /// a copy of uiNumElements elements of out-of-line data when pData is not null. -1 when there are 31 tags
  /// already or memory runs out.
  int AddTag(const _tiff_tag_t& tag, const void* pData, unsigned int uiNumElements);
  /// Gives a tag in the list a copy of out-of-line data; nothing when there is no node, no data or no
  /// element. -1 when memory runs out.
  int AssignTagData(_tiff_tag_complete_t* pNode, const void* pData, unsigned int uiNumElements);
  /// The first tag of a number, which stays the list's, or null.
  _tiff_tag_complete_t* FindTag(unsigned short usTag) const;

  /// Sets a tag to one value, added when it is missing. -1 for ASCII and RATIONAL and when it cannot be
  /// added.
  int SetTag(unsigned short usTag, TIFF_TAGTYPE eType, unsigned int uiValue);
  int SetBitsPerSample(unsigned int uiBits);
  int SetPageNumber(unsigned int uiNumber);
  /// Width, length, rows per strip (16 bits each, larger sizes are cut) and the strip's bytes for 16-bit
  /// pixels. Stops with -1 at the first tag that cannot be added.
  int SetImageDimensions(unsigned int uiWidth, unsigned int uiHeight);
  /// Resolution in pixels per centimetre from pixel sizes in tenths of a micrometre; a size of 0 is written
  /// as 100000 / 0. -1 when a resolution tag stands without data of its size.
  int SetPixelSize(unsigned int uiX, unsigned int uiY);

  /// Writes TIFF header, directory and out-of-line data, 656 bytes. 656, or -1, with nothing written, for
  /// null, for a shorter buffer and for out-of-line data that does not lie within the block's bytes 400 to
  /// 655.
  int Binarize(unsigned char* pBuffer, unsigned int uiSize, bool bBigEndian) const;
  /// Writes everything that precedes the pixels: the tags of the frame and its metadata header. A metadata
  /// header that cannot be written (MetadataLength below 384) is left zero. MetadataLength + 656, or -1 when
  /// that is more than uiSize, for null, and when memory runs out.
  int WriteHeader(unsigned char* pBuffer, unsigned int uiSize, CFrameMetaData& meta, bool bBigEndian);
  /// Writes a frame as a file, little-endian when the metadata's pixel order flag is set; pPixels holds the
  /// whole frame at the metadata's binned size. -1 for null, for a frame without a size or of 4 GiB and more,
  /// for a metadata length that no header has, for a FIFO, and when the file cannot be written; what was
  /// written then stays on disk.
  int CreateImageFile(const std::string& path, const unsigned short* pPixels, CFrameMetaData& meta);

 protected:
  _tiff_tag_complete_t* m_pTags;  ///< sorted by tag number
  unsigned int m_uiNumTags;
  unsigned int m_uiCursor;  ///< where the next out-of-line data goes
};

#endif  // ORVACAM_IMAGEFILES_CTIFFMAKER_H
