#ifndef ORVACAM_IMAGEFILES_CFITSINTERFACE_H
#define ORVACAM_IMAGEFILES_CFITSINTERFACE_H

#include <orvacam/types/export.h>

#include <cstddef>
#include <cstdio>
#include <string>

class CFrameMetaData;

/// The type of a FITS header value.
enum FITS_VALUE_TYPE : unsigned int {
  FITS_VALUE_LOGICAL = 14,   ///< T or F
  FITS_VALUE_STRING = 16,    ///< quoted, at most 68 characters
  FITS_VALUE_UNSIGNED = 30,  ///< decimal, 32 bits
  FITS_VALUE_SIGNED = 31,    ///< decimal, 32 bits
  FITS_VALUE_FLOAT = 42      ///< fixed, six decimals
};

/// Writes a 16-bit frame with its metadata as a FITS image (FITS Standard 4.0), in memory or as a file, and
/// reads the metadata of such a header back.
///
/// The header takes 5760 bytes: one card for each value that a reader of images would want, blanks behind
/// them. The pixels follow row by row, most significant byte first. They are stored as they are, although the
/// header declares BZERO 32768: a reader that applies it sees each pixel plus 32768 (a pixel above 32767 less
/// 32768).
///
/// Numbers do not follow the program's locale. Statuses: 0 is success, -1 failure. Files are logged through
/// CLog at level 1, whether they were written or not. One object is used by one thread at a time; the
/// operations that only read are static and may run in any thread.
class ORVACAM_API CFitsInterface {
 public:
  CFitsInterface();
  CFitsInterface(const CFitsInterface&) = delete;
  CFitsInterface& operator=(const CFitsInterface&) = delete;
  ~CFitsInterface();

  /// Whether at least 6 bytes are given and start with "SIMPLE", whatever the case.
  static bool IsFitsFrame(const unsigned char* pBuffer, unsigned int uiLength);
  /// Whether this build writes and reads FITS: always.
  static bool IsSupportIncluded();

  // ---- Writing

  /// Room for a header before, and the fill up to a whole block of 2880 bytes after, pixels in memory.
  static void ExtraBytes(unsigned long ulNumPixels, unsigned int uiBitsPerPixel, unsigned int& uiHeaderBytes,
                         unsigned int& uiTrailerBytes);

  /// Turns a buffer of uiHeaderBytes of room followed by uiNumPixels pixels into a FITS image: the header
  /// goes into the room, the pixels' bytes are swapped in place unless bSwapped says that they are already.
  /// -1, with nothing changed, for null and for less than 5760 bytes of room.
  int CreateImageBuffer(unsigned short* pBuffer, unsigned int uiHeaderBytes, unsigned int uiNumPixels,
                        const CFrameMetaData& meta, bool bSwapped);

  /// Writes a frame as a file of mode 0600; pPixels holds the whole frame at the metadata's binned size, in
  /// the machine's order, and is left alone. The file is pixels x 2 bytes long in all, header included, so
  /// that the last 5760 bytes of the pixels are missing; an existing file that is longer keeps its end. -1
  /// for null, for a frame without a size or of 4 GiB and more, for a FIFO, when memory runs out and when the
  /// file cannot be written whole.
  int CreateImageFile(const std::string& path, const unsigned short* pPixels, const CFrameMetaData& meta);

  /// Makes sure of an image-copy buffer of at least uiNumPixels x 2 + uiHeaderBytes bytes; a larger one is
  /// kept. -1, with no buffer, when memory runs out.
  int AllocateImageCopy(unsigned int uiNumPixels, unsigned int uiHeaderBytes);
  /// Frees the image-copy buffer.
  void FreeAll();

  /// Writes one card at the write position and moves behind it. pValue points to a bool, to the text itself,
  /// to an unsigned int, an int or a double, by type; null stands for the default text (empty), or for no
  /// value where the type is a number. The comment may be null. -1, with nothing written, when the buffer is
  /// null or has no room for 80 bytes.
  int RecWriteNextKey(unsigned char* pBuffer, unsigned int uiSize, const char* pKeyword, unsigned int uiType,
                      const void* pValue, const char* pComment);
  /// Writes a text as as many COMMENT cards as it takes, 70 characters each; nothing for an empty or null
  /// text. -1 when a card does not fit.
  int RecWriteNextKey(unsigned char* pBuffer, unsigned int uiSize, const char* pText);

  // ---- Reading

  /// Reads header cards into the metadata until "END" (bEnd is then true), a card that does not parse, or the
  /// last whole card. The result of the last card; -1 when there is none.
  static int ParseMetaData(const unsigned char* pBuffer, unsigned int uiLength, CFrameMetaData& meta,
                           bool& bEnd);
  /// The same from the start of a stream, block by block. -1 for null and for a header without "END"; what
  /// was read until then is kept.
  static int ParseMetaData(std::FILE* pStream, CFrameMetaData& meta);

  /// Splits one card of at least 80 bytes into keyword and value. 0, also for a comment and a blank card,
  /// else -1. A quoted value ends at the next quote or "/", any other at the first blank or "/". May throw
  /// std::bad_alloc.
  static int ParseNextKey(const unsigned char* pCard, unsigned int uiLength, std::string& keyword,
                          std::string& value);
  /// The place (0 to 112) of a keyword in the keyword table, whatever the case, or -1. Places below 100 are
  /// metadata keys.
  static int FindKeyIndex(const std::string& keyword);
  /// Stores a value read from a card under the keyword's metadata key, if there is one. May throw
  /// std::bad_alloc.
  static void ProcessKeyValue(const std::string& keyword, const std::string& value, CFrameMetaData& meta);

  /// Does nothing; kept for callers that link it.
  static void LogFitsError(const char* pOperation, const char* pText, int iStatus);

 protected:
  /// Fills the buffer with blanks and writes all cards. The result of the first card; later ones that do not
  /// fit are left out.
  int DoWriteHeader(unsigned char* pBuffer, unsigned int uiSize, const CFrameMetaData& meta);

  const char* m_pDefaultText;     ///< stands for null texts
  unsigned char* m_pImageCopy;    ///< owned
  std::size_t m_ulImageCopySize;  ///< in bytes
  unsigned int m_uiPosition;      ///< bytes of header written so far
  char m_ValueText[81];           ///< one formatted value
};

#endif  // ORVACAM_IMAGEFILES_CFITSINTERFACE_H
