#ifndef ORVACAM_SUPPORT_UTIL_H
#define ORVACAM_SUPPORT_UTIL_H

/// \file
/// Small free functions: time, byte order, BCD, wide and narrow text, files and directories.
///
/// Functions that return a pointer to a static buffer keep one buffer per thread; the next call of the same
/// function in that thread overwrites it. Nothing here throws except where said.
///
/// Wide text becomes narrow text in the encoding of the program's locale; characters that the locale does not
/// have are written as UTF-8, and bytes that are no text at all survive a way there and back.

#include <orvacam/types/export.h>

#include <cstdio>
#include <string>

// ---- Time

/// Sleeps; the status of usleep.
ORVACAM_API int utilSleep(unsigned int uiMilliseconds);

/// The monotonic clock in milliseconds, also stored through the pointer when it is not null.
ORVACAM_API unsigned long utilTimeGetMS(unsigned long* pMilliseconds = nullptr);

/// ulEnd - ulStart; one less than that (modulo 2^64) when the end lies before the start.
ORVACAM_API unsigned long utilTimeDiff(unsigned long ulStart, unsigned long ulEnd);

/// Local time of day: year with four digits, month 1 to 12. A null pointer skips its field.
ORVACAM_API void utilOSGetLocalTime(unsigned int* pYear, unsigned int* pMonth, unsigned int* pDay,
                                    unsigned int* pHour, unsigned int* pMinute, unsigned int* pSecond,
                                    unsigned int* pMillisecond);

/// Clears the buffer and writes the local time as "YYYY-MM-DDThh:mm:ss.mmm", cut at uiSize - 1 characters.
ORVACAM_API void utilOSGetLocalTimeString(char* pText, unsigned int uiSize);

/// Reads "YYYY/MM/DD hh:mm:ss.nnnnnnnnn" (any separators; a 3-digit fraction where the text holds "NOGPS" or
/// "ERROR"). uiLength bytes are given, at least 26; the top bit of the first one is cleared in the caller's
/// buffer. 0, or -1 for a null, short, blank or malformed text; dSeconds (of the day) then holds what was
/// read so far.
ORVACAM_API int utilParseTimeString(char* pText, unsigned int uiLength, unsigned int& uiYear,
                                    unsigned int& uiMonth, unsigned int& uiDay, double& dSeconds);

// ---- Bits, byte order and digits

/// Index (0 to 31) of the lowest set bit, 0xFFFFFFFF for 0.
ORVACAM_API unsigned int utilBitPos(unsigned int uiValue);

/// Two or four bytes as an integer: little-endian when the flag is true, else big-endian.
ORVACAM_API short utilBufToInt16(const unsigned char* pBuffer, bool bLittleEndian);
ORVACAM_API unsigned short utilBufToUint16(const unsigned char* pBuffer, bool bLittleEndian);
ORVACAM_API int utilBufToInt32(const unsigned char* pBuffer, bool bLittleEndian);
ORVACAM_API unsigned int utilBufToUint32(const unsigned char* pBuffer, bool bLittleEndian);

/// The first two bytes as four packed BCD digits, high nibble first. The length is not looked at; nibbles
/// above 9 count as they are.
ORVACAM_API unsigned int utilBufBCDToUint32(const unsigned char* pBuffer, unsigned int uiLength);

/// Writes the low min(uiLength, 4) bytes of the value, most significant first; the number of bytes written.
ORVACAM_API unsigned int utilUint32ToBuf(unsigned int uiValue, unsigned char* pBuffer, unsigned int uiLength);

/// Fills uiLength bytes with the value's packed BCD digits, the last byte holding the lowest two.
ORVACAM_API void utilUint32ToBufBCD(unsigned int uiValue, unsigned char* pBuffer, unsigned int uiLength);

/// Reads uiCount digits and moves the cursor behind them; 0. A character that is no digit gives -1, with the
/// cursor behind that character and the value multiplied once more. The caller vouches for uiCount bytes.
ORVACAM_API int utilParseAsciiDecToNum(unsigned char*& pCursor, unsigned int uiCount, unsigned int& uiValue);
ORVACAM_API int utilParseAsciiHexToNum(unsigned char*& pCursor, unsigned int uiCount, unsigned int& uiValue);

// ---- Wide and narrow text

/// At most 1023 characters in a static buffer, which stays the library's; empty for null.
ORVACAM_API wchar_t* utilCharToWideStrStatic(const char* pText);
/// At most 1023 bytes in a static buffer, which stays the library's; empty for null.
ORVACAM_API char* utilWideToMbsStatic(const wchar_t* pText);
/// Replaces the output by the narrow form, at most as many bytes as the input has characters. May throw
/// std::bad_alloc.
ORVACAM_API void utilW2S(const std::wstring& wide, std::string& narrow);

// ---- Files and directories

/// fopen with wide names: at most 4095 bytes of name and 31 of mode. Null for a null argument or a failing
/// fopen. The caller closes the stream.
ORVACAM_API std::FILE* utilOSWideFileOpen(const wchar_t* pName, const wchar_t* pMode);

/// -1 for a null name or a file that cannot be opened. Else 0, with the destination created empty: nothing is
/// copied, which programs rely on.
ORVACAM_API int utilOSWideCopyFile(const wchar_t* pSource, const wchar_t* pDestination);

/// Clears the buffer and writes the current working directory followed by "/"; left empty when there is none
/// or it does not fit.
ORVACAM_API void utilOSPathGet(wchar_t* pPath, unsigned int uiCapacity);

/// Writes the message's first character, then errno and its text, to standard error.
ORVACAM_API void utilOSShowError(const wchar_t* pMessage);

/// Creates every missing directory along the path with mode 0775. 0, also when the path exists; -1 for null,
/// or the status of the step that failed (errno says why; ENOTDIR where a file is in the way).
ORVACAM_API int utilOSMakeDirectory(const wchar_t* pPath);

/// Whether the path exists and is a directory.
ORVACAM_API bool utilOSDirectoryExists(const std::wstring& path);

/// Bytes available to unprivileged users and bytes in all on the file system of the path; the status of
/// statvfs, with the outputs untouched when it fails.
ORVACAM_API int utilOSGetDiskAvailableSpace(const std::wstring& path, unsigned long& ulAvailable,
                                            unsigned long& ulTotal);

#endif  // ORVACAM_SUPPORT_UTIL_H
