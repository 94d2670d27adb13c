#ifndef ORVACAM_METADATA_CMETAVALUES_H
#define ORVACAM_METADATA_CMETAVALUES_H

#include <orvacam/types/export.h>

#include <memory>

/// One metadata value: a number of some kind, a flag, or a text. Copies are deep. A wrong kind is no error:
/// it reads 0, -1 (text length) or false. Setting a text may throw std::bad_alloc, as may copying one.
/// One object is used by one thread at a time.
class ORVACAM_API CMetaValues {
 public:
  /// Which member of the value is live.
  enum Kind : unsigned int { Uint32 = 0, Uint64 = 1, Int32 = 2, Int64 = 3, Double = 4, Bytes = 5, Bool = 6 };

  /// The number 0 of kind Uint32.
  CMetaValues();
  CMetaValues(const CMetaValues& other);
  CMetaValues& operator=(const CMetaValues& other);
  ~CMetaValues();

  /// Each replaces kind and value.
  void SetValueUint(unsigned int uiValue);
  void SetValueUint64(unsigned long ulValue);
  void SetValueInt(int iValue);
  void SetValueInt64(long lValue);
  void SetValueDouble(double dValue);
  void SetValueBool(bool bValue);
  /// Stores a copy of uiCount bytes, followed by a zero byte; no bytes at all for null.
  void SetValueByte(const void* pBytes, unsigned int uiCount);
  /// The same with the text's length; an empty text for null.
  void SetValueStr(const char* pText);

  /// Conversions to the asked type; 0 for a text. Doubles are truncated toward zero and saturate.
  int GetValueInt() const;
  unsigned int GetValueUint() const;
  unsigned long GetValueUint64() const;
  double GetValueDouble() const;
  bool GetValueBool() const;

  /// A text. With a null buffer: iSize becomes the length and the internal bytes are returned, which stay the
  /// value's. With a buffer: iSize bytes of it are cleared, iSize becomes the smaller of itself and the
  /// length, that many bytes are copied, and the buffer is returned. A number sets iSize to -1 and yields
  /// null.
  unsigned char* GetValue(void* pBuffer, int& iSize) const;
  /// The address of the number, as wide as its kind; it stays the value's.
  void* GetValuePtr();
  /// Whether this is a text.
  bool IsStringValue() const;

  /// Comparisons by value across the numeric kinds; a flag never equals a number.
  bool IsEqual(const void* pBytes, unsigned int uiCount) const;
  bool IsEqual(unsigned int uiValue) const;
  bool IsEqual(unsigned long ulValue) const;
  bool IsEqual(int iValue) const;
  bool IsEqual(long lValue) const;
  /// False whenever a negative integer is stored: a stored -5 never equals -5.0.
  bool IsEqual(double dValue) const;

 protected:
  union Number {
    unsigned int uint32;
    unsigned long uint64;
    int int32;
    long int64;
    double real;
    bool flag;
  };

  unsigned int m_uiKind;
  unsigned int m_uiLength;
  std::unique_ptr<unsigned char[]> m_pBytes;
  Number m_Value;
};

#endif  // ORVACAM_METADATA_CMETAVALUES_H
