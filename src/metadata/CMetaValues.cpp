#include <orvacam/metadata/CMetaValues.h>

#include <cstring>
#include <limits>

namespace {

constexpr unsigned int noLength = 0xFFFFFFFFu;

/// Truncated toward zero, cut to the target's range; 0 for what is not a number.
template <typename Integer>
Integer saturate(double value) {
  using Limits = std::numeric_limits<Integer>;
  if (!(value > static_cast<double>(Limits::min()))) return value != value ? Integer(0) : Limits::min();
  // The largest 64-bit integer becomes 2^64 or 2^63 as a double, which is already beyond the range.
  if (value >= static_cast<double>(Limits::max())) return Limits::max();
  return static_cast<Integer>(value);
}

}  // namespace

CMetaValues::CMetaValues() : m_uiKind(Uint32), m_uiLength(noLength), m_pBytes(nullptr), m_Value{} {
  m_Value.uint64 = 0;
}

CMetaValues::CMetaValues(const CMetaValues& other) : CMetaValues() {
  *this = other;
}

CMetaValues& CMetaValues::operator=(const CMetaValues& other) {
  if (this == &other) return *this;
  if (other.m_uiKind == Bytes) SetValueByte(other.m_pBytes, other.m_pBytes != nullptr ? other.m_uiLength : 0);
  m_uiKind = other.m_uiKind;
  m_Value = other.m_Value;
  return *this;
}

CMetaValues::~CMetaValues() {
  delete[] m_pBytes;
}

void CMetaValues::SetValueUint(unsigned int uiValue) {
  m_uiKind = Uint32;
  m_Value.uint32 = uiValue;
}

void CMetaValues::SetValueUint64(unsigned long ulValue) {
  m_uiKind = Uint64;
  m_Value.uint64 = ulValue;
}

void CMetaValues::SetValueInt(int iValue) {
  m_uiKind = Int32;
  m_Value.int32 = iValue;
}

void CMetaValues::SetValueInt64(long lValue) {
  m_uiKind = Int64;
  m_Value.int64 = lValue;
}

void CMetaValues::SetValueDouble(double dValue) {
  m_uiKind = Double;
  m_Value.real = dValue;
}

void CMetaValues::SetValueBool(bool bValue) {
  m_uiKind = Bool;
  m_Value.flag = bValue;
}

void CMetaValues::SetValueByte(const void* pBytes, unsigned int uiCount) {
  unsigned char* copy = nullptr;
  if (pBytes != nullptr) {
    copy = new unsigned char[static_cast<unsigned long>(uiCount) + 1]();
    std::memcpy(copy, pBytes, uiCount);
  }
  delete[] m_pBytes;
  m_pBytes = copy;
  m_uiLength = copy != nullptr ? uiCount : 0;
  m_uiKind = Bytes;
}

void CMetaValues::SetValueStr(const char* pText) {
  if (pText == nullptr) pText = "";
  SetValueByte(pText, static_cast<unsigned int>(std::strlen(pText)));
}

int CMetaValues::GetValueInt() const {
  if (m_uiKind == Double) return saturate<int>(m_Value.real);
  return static_cast<int>(GetValueUint());
}

unsigned int CMetaValues::GetValueUint() const {
  switch (m_uiKind) {
    case Uint32:
    case Int32:
      return m_Value.uint32;
    case Uint64:
    case Int64:
      return static_cast<unsigned int>(m_Value.uint64);
    case Double:
      return saturate<unsigned int>(m_Value.real);
    case Bool:
      return m_Value.flag ? 1 : 0;
    default:
      return 0;
  }
}

unsigned long CMetaValues::GetValueUint64() const {
  switch (m_uiKind) {
    case Uint32:
      return m_Value.uint32;
    case Int32:
      return static_cast<unsigned long>(static_cast<long>(m_Value.int32));
    case Uint64:
    case Int64:
      return m_Value.uint64;
    case Double:
      return saturate<unsigned long>(m_Value.real);
    case Bool:
      return m_Value.flag ? 1 : 0;
    default:
      return 0;
  }
}

double CMetaValues::GetValueDouble() const {
  switch (m_uiKind) {
    case Uint32:
      return m_Value.uint32;
    case Int32:
      return m_Value.int32;
    case Uint64:
      return static_cast<double>(m_Value.uint64);
    case Int64:
      return static_cast<double>(m_Value.int64);
    case Double:
      return m_Value.real;
    case Bool:
      return m_Value.flag ? 1.0 : 0.0;
    default:
      return 0.0;
  }
}

bool CMetaValues::GetValueBool() const {
  return m_uiKind == Bool ? m_Value.flag : GetValueUint64() != 0;
}

unsigned char* CMetaValues::GetValue(void* pBuffer, int& iSize) const {
  if (m_uiKind != Bytes) {
    iSize = -1;
    return nullptr;
  }
  const int length = static_cast<int>(m_uiLength);
  if (pBuffer == nullptr) {
    iSize = length;
    return m_pBytes;
  }
  if (iSize > 0) std::memset(pBuffer, 0, static_cast<unsigned int>(iSize));
  if (iSize > length) iSize = length;
  if (m_pBytes != nullptr && iSize > 0) std::memcpy(pBuffer, m_pBytes, static_cast<unsigned int>(iSize));
  return static_cast<unsigned char*>(pBuffer);
}

void* CMetaValues::GetValuePtr() {
  return &m_Value;
}

bool CMetaValues::IsStringValue() const {
  return m_uiKind == Bytes;
}

bool CMetaValues::IsEqual(const void* pBytes, unsigned int uiCount) const {
  return m_uiKind == Bytes && m_uiLength == uiCount && m_pBytes != nullptr && pBytes != nullptr &&
         std::memcmp(m_pBytes, pBytes, uiCount) == 0;
}

bool CMetaValues::IsEqual(unsigned int uiValue) const {
  return IsEqual(static_cast<unsigned long>(uiValue));
}

bool CMetaValues::IsEqual(unsigned long ulValue) const {
  switch (m_uiKind) {
    case Uint32:
      return m_Value.uint32 == ulValue;
    case Uint64:
      return m_Value.uint64 == ulValue;
    case Int32:
      return m_Value.int32 >= 0 && static_cast<unsigned long>(m_Value.int32) == ulValue;
    case Int64:
      return m_Value.int64 >= 0 && static_cast<unsigned long>(m_Value.int64) == ulValue;
    case Double:
      return m_Value.real == static_cast<double>(ulValue);
    default:
      return false;
  }
}

bool CMetaValues::IsEqual(int iValue) const {
  return IsEqual(static_cast<long>(iValue));
}

bool CMetaValues::IsEqual(long lValue) const {
  switch (m_uiKind) {
    case Uint32:
    case Int32:
    case Uint64:
    case Int64:
      return GetValueUint64() == static_cast<unsigned long>(lValue);
    case Double:
      return m_Value.real == static_cast<double>(lValue);
    default:
      return false;
  }
}

bool CMetaValues::IsEqual(double dValue) const {
  switch (m_uiKind) {
    case Int32:
    case Int64:
      // Intended: a negative integer never equals a double.
      return static_cast<long>(GetValueUint64()) >= 0 && GetValueDouble() == dValue;
    case Uint32:
    case Uint64:
    case Double:
      return GetValueDouble() == dValue;
    default:
      return false;
  }
}
