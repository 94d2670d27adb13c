#ifndef ORVACAM_METADATA_CFRAMEMETADATA_H
#define ORVACAM_METADATA_CFRAMEMETADATA_H

#include <orvacam/metadata/CFrameOtherMetaData.h>
#include <orvacam/metadata/CMetaValues.h>
#include <orvacam/types/export.h>
#include <orvacam/types/meta_keys.h>

#include <cstdio>
#include <string>

/// What a frame says of itself: the header's fields as one hundred keyed values (ORVA_META_KEYS), the
/// geometry that follows from them, and the header as bytes and as text.
///
/// \code
///   CFrameMetaData header;
///   if (header.Parse(frame, length) >= 0) {
///     unsigned int width = 0, height = 0;
///     header.GetFrameDimensionsBinned(width, height);
///   }
/// \endcode
///
/// Terms. The image is the region from the image start column and row to the stop column and row, both
/// inclusive. The frame is the image with its reference pixels (before and after each row) and reference rows
/// (before and after the image). Binned sizes are divided by the binning factors, rounded up; a factor of 0
/// or 1 means none.
///
/// Statuses: 0 (or a positive value) is success, -1 failure; nothing is logged. A failed parse keeps every
/// field that it read before the failure, and out of memory is a failure. Copies are complete and deep.
/// Copying, and the setters that store texts, may throw std::bad_alloc. One object is used by one thread at a
/// time; it is about 4.5 KiB large.
class ORVACAM_API CFrameMetaData {
 public:
  CFrameMetaData();
  CFrameMetaData(const CFrameMetaData& other);
  CFrameMetaData& operator=(const CFrameMetaData& other);

  /// Back to an empty header; the high-gain black levels keep their values. With true, then the header of a
  /// synthetic frame: 4096 x 4096 pixels of 16 bits of a "VESTRA VS4040", version 3.
  void ReInitialize(bool bAsDefaultFrame);

  // ---- Parsing

  /// Parses a raw frame's header, or a FITS header, that starts the buffer. uiLength bytes are given and
  /// nothing beyond is read; a version 4 header's other-type block is found in them. The sign bits of the
  /// header's sign-magnitude fields are cleared in the caller's buffer. -1 for anything else and for a header
  /// that is cut.
  int Parse(unsigned char* pBuffer, unsigned int uiLength);
  /// The same from the start of a stream, which stays open and the caller's. -1 for null, for a header of
  /// more than 1024 bytes and for one that does not parse; 0 with nothing parsed when the stream is neither
  /// or is cut off.
  int Parse(std::FILE* pStream);

  /// Whether the bytes start with "Meta".
  static bool IsRCDFrame(const unsigned char* pBuffer, unsigned int uiLength);
  /// Whether the magic number is right.
  bool IsValid() const;
  /// Whether this is a merged frame: no HDR pair, and 16 bits per pixel.
  bool IsMerged() const;
  /// Sets the reference pixels per row of sensors whose headers of versions 1 and 2 do not state them. A
  /// parse that succeeds ends with it; nothing for other versions and other sensors.
  void FixRefPixels();

  // ---- Values

  /// Reads one value and sets the cursor of GetValueNext behind its key; the key number, or -1 for a key
  /// above 99.
  int GetValue(ORVA_META_KEYS eKey, meta_data_value_t& value);
  /// Reads the value at the cursor; every Parse sets it to key 0. -1 behind the last key.
  int GetValueNext(meta_data_value_t& value);
  /// Does nothing and yields 0; kept for callers that link it.
  static int GetValueUint(const unsigned char* pBuffer, unsigned int uiCount, ORVA_META_KEYS eKey,
                          unsigned int& uiValue);
  /// The tagged value under a key (key 0 for a key above 99); the reference stays the object's.
  const CMetaValues& Value(ORVA_META_KEYS eKey) const;
  /// The other-type block of version 4.
  const CFrameOtherMetaData& OtherMetaData() const { return m_OtherMetaData; }

  /// Stores a value read from text: a text for the models, serial and info keys, a time for the capture date
  /// (which also sets the capture time), a number for every other key. Keys above 99 are ignored.
  void SetValue(ORVA_META_KEYS eKey, const std::string& text);

  // ---- Geometry

  /// The device type (ORVADEVICETYPE) of the camera model; -1, with the type left alone, for an unknown
  /// model.
  int GetDeviceType(unsigned int& uiType) const;
  /// Width and height in pixels. -1 when a stop lies before its start; that dimension is then not set, though
  /// the binned queries divide, and those of the binned frame add to, what the caller passed.
  int GetImageDimensions(unsigned int& uiWidth, unsigned int& uiHeight) const;
  int GetFrameDimensions(unsigned int& uiWidth, unsigned int& uiHeight) const;
  int GetImageDimensionsBinned(unsigned int& uiWidth, unsigned int& uiHeight) const;
  int GetFrameDimensionsBinned(unsigned int& uiWidth, unsigned int& uiHeight) const;
  /// Width times height, modulo 2^32; the unbinned ones are written on success only.
  int GetImageSizePixels(unsigned int& uiPixels) const;
  int GetFrameSizePixels(unsigned int& uiPixels) const;
  int GetImageSizePixelsBinned(unsigned int& uiPixels) const;
  int GetFrameSizePixelsBinned(unsigned int& uiPixels) const;
  /// Reference pixels before and after each row, reference rows before and after the image. Always 0.
  int GetRefPixelsBinned(unsigned int& uiPre, unsigned int& uiPost) const;
  int GetRefRowsBinned(unsigned int& uiPre, unsigned int& uiPost) const;
  /// Bits per pixel of the data. Always 0.
  int GetPixelSize(unsigned int& uiBits) const;
  /// Bytes of the raw pixel data behind the header, modulo 2^32; -1 and 0 bytes for an unknown device.
  int GetImageSizeBytes(unsigned int& uiBytes) const;
  /// Degrees Celsius.
  double GetSensorTemperature() const;
  /// Degrees, north and east positive; 0 for version 1.
  double GetGPSLatitude() const;
  double GetGPSLongitude() const;
  /// Electrons per count of the frame's gain settings; 1.0 where the sensor has no table.
  double GetLowGainValue() const;
  double GetHighGainValue() const;
  /// "YYYY-MM-DDThh:mm:ss.nnnnnnnnn", cut at uiSize - 1 characters; the buffer is cleared first.
  void GetCaptureDate(char* pText, unsigned int uiSize) const;
  /// "h:m.s.uuuuuu" of a time span in microseconds, cut at uiSize - 1 characters.
  static void GetClockFromUsecs(unsigned long ulUsecs, char* pText, unsigned int uiSize);
  /// Copies the header as received (as many bytes as it states); -1 for null, or when it states more than
  /// uiSize or than the 1024 bytes that are kept.
  int GetRawMetaData(unsigned char* pBuffer, unsigned int uiSize) const;

  // ---- Writing

  /// Writes a header of version 4, 384 bytes, whatever was parsed; the rest of the uiSize bytes becomes zero.
  /// 384, or -1 for null or less than 384 bytes.
  int Binarize(unsigned char* pBuffer, unsigned int uiSize);
  /// The same followed by a block, whose length the header then states: uiOtherLength bytes of pOther, for
  /// which the buffer must have room behind the 384 bytes of the header, whatever uiSize says; else, with
  /// pOther null, the stored other-type block with its type, which must fit into uiSize. 384, or -1 with
  /// nothing written.
  int BinarizeEx(unsigned char* pBuffer, unsigned int uiSize, const unsigned char* pOther,
                 unsigned int uiOtherLength);
  /// The header's stated length.
  unsigned int GetBinarizeSize() const;
  /// The same plus the length of the stored other-type block.
  unsigned int GetBinarizeSizeEx() const;
  /// States version 3 or 4, length 384; other versions are ignored.
  void SetBinarizeVersion(unsigned int uiVersion);

  /// Mark a header as processed. Each keeps the flag and the flag byte that is written in agreement.
  void SetHDRFrame(bool bValue);
  /// True: pixels are in a little-endian machine's order.
  void SetPixelEndianFormat(bool bValue);
  void SetIsHighFrame(bool bValue);
  void SetIsMergedFrame(bool bValue);
  void SetIsStackedFrame(bool bValue);
  /// Sensor and data bit depth.
  void SetBitsPerPixel(unsigned int uiBits);
  /// The first min(uiLength, 40) bytes; null is ignored.
  void SetModelName(const char* pText, unsigned int uiLength);
  /// The first min(uiLength, 24) bytes; null is ignored.
  void SetSerialNumber(const char* pText, unsigned int uiLength);
  /// Size and image region; ignored when width or height is 0.
  void SetDimensions(unsigned int uiStartColumn, unsigned int uiStartRow, unsigned int uiWidth,
                     unsigned int uiHeight);
  void SetDimensions(unsigned int uiWidth, unsigned int uiHeight);

  /// Writes the low n bytes of a value most significant first; nothing for null or an n above 4 (8).
  static void Uint32ToBuf(unsigned int uiValue, unsigned char* pBuffer, unsigned int n);
  static void Uint64ToBuf(unsigned long ulValue, unsigned char* pBuffer, unsigned int n);

  // ---- Text

  /// The header as text, a line per field, cut at uiSize - 1 characters; the buffer is cleared first. Like
  /// snprintf, the length of the whole text; -1 for null. Numbers do not follow the program's locale.
  int ToString(char* pText, unsigned int uiSize);
  /// The same in wide characters; yields the narrow length.
  int ToString(wchar_t* pText, unsigned int uiSize);
  /// "YYYY/MM/DD hh:mm:ss.nnnnnnnnn", after "ERROR: " when the capture time did not parse.
  void TimeMetaToString2(char* pText, unsigned int uiSize) const;

  // ---- Byte readers

  /// Big-endian integers of n bytes (at most 4 or 8); 0 for null or n = 0. The signed ones extend the sign.
  static unsigned int BufToUint32(const unsigned char* pBuffer, unsigned int n);
  static unsigned long BufToUint64(const unsigned char* pBuffer, unsigned int n);
  static int BufToInt32(const unsigned char* pBuffer, unsigned int n);
  static long BufToInt64(const unsigned char* pBuffer, unsigned int n);
  /// With a sign pointer: the byte without its top bit, and -1 or 1; without one: the byte.
  static unsigned char CheckForSignMagnitude(unsigned char ucByte, int* pSign);

  /// Field readers: each reads n bytes at the position, stores the value and moves on; -1, with nothing
  /// moved, for a null position or fewer than n bytes.
  static int ParseUint(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                       unsigned int n);
  static int ParseInt(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                      unsigned int n);
  static int ParseUint64(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                         unsigned int n);
  static int ParseInt64(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                        unsigned int n);
  /// Clears the sign bit in the buffer.
  static int ParseIntSignedMagnitude(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                                     unsigned int n);
  /// "<>" for n zero bytes; else the bytes from the first one that is not zero.
  static int ParseString(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& value,
                         unsigned int n);
  /// Four bytes into the raw word, the whole degrees, the minutes and the hemisphere flag.
  static int ParseGPSLocation(unsigned char*& pPosition, unsigned int& uiRemaining, CMetaValues& raw,
                              CMetaValues& degrees, CMetaValues& minutes, CMetaValues& hemisphere);

 protected:
  static constexpr unsigned int s_uiTimeTextSize = 30;
  static constexpr unsigned int s_uiPaddingSize = 1024;
  static constexpr unsigned int s_uiRawHeaderSize = 1024;

  void DoInitialize();
  int DoParse(unsigned char* pBuffer, unsigned int uiLength);

  int DoGetDeviceType(unsigned int& uiType) const;
  static double DoGetConvertedTemperature(int iTenths);
  double DoGetGPSLocation(unsigned int uiRaw) const;
  static unsigned int DoComputeFrameSizeFromPixelSize(unsigned int uiBits, unsigned int uiWidth,
                                                      unsigned int uiHeight);

  int DoToString(char* pText, unsigned int uiSize);
  int DoToString1(char* pText, unsigned int uiSize);
  int DoToString2(char* pText, unsigned int uiSize);
  int DoToString3(char* pText, unsigned int uiSize, bool bPadding);
  int DoToString4(char* pText, unsigned int uiSize);

  /// By ORVA_META_KEYS; behind them what is kept whole as received and as written back: Control Block,
  /// Control Block 2, extra flags, Control Block Test, the reserved bytes of version 2.
  CMetaValues m_Values[ORVA_META_KEY_COUNT + 5];
  unsigned int m_uiCursor;                       ///< of GetValueNext
  char m_CaptureTimeText[s_uiTimeTextSize + 1];  ///< the time string of versions 2 to 4
  unsigned char m_Padding[s_uiPaddingSize];      ///< raw tail bytes of versions 2 and 3
  CFrameOtherMetaData m_OtherMetaData;
  bool m_bCaptureTimeValid;
  unsigned char m_Reserved1[12];                 ///< of version 1, kept raw
  unsigned char m_RawHeader[s_uiRawHeaderSize];  ///< the first bytes of the last header parsed
};

#endif  // ORVACAM_METADATA_CFRAMEMETADATA_H
