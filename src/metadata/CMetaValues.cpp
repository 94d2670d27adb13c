#include <orvacam/metadata/CMetaValues.h>

#include <cstring>

#include "support/CheckedMath.h"

namespace {

using orvacam::truncated;

constexpr unsigned int noLength = 0xFFFFFFFFu;

constexpr bool isInteger(unsigned int kind) {
  return kind <= CMetaValues::Int64;
}
constexpr bool isSigned(unsigned int kind) {
  return kind == CMetaValues::Int32 || kind == CMetaValues::Int64;
}

}  // namespace

CMetaValues::CMetaValues() : m_uiKind(Uint32), m_uiLength(noLength), m_Value{} {
  m_Value.uint64 = 0;
}

// A frame's header is copied several times, a hundred values each, nearly all of them numbers.
CMetaValues::CMetaValues(const CMetaValues& other)
    : m_uiKind(other.m_uiKind), m_uiLength(noLength), m_pBytes(nullptr), m_Value(other.m_Value) {
  if (m_uiKind == Bytes) *this = other;
}

CMetaValues& CMetaValues::operator=(const CMetaValues& other) {
  if (this == &other) return *this;
  if (other.m_uiKind == Bytes)
    SetValueByte(other.m_pBytes.get(), other.m_pBytes != nullptr ? other.m_uiLength : 0);
  m_uiKind = other.m_uiKind;
  m_Value = other.m_Value;
  return *this;
}

CMetaValues::~CMetaValues() = default;

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
  std::unique_ptr<unsigned char[]> copy;
  if (pBytes != nullptr) {
    copy = std::make_unique<unsigned char[]>(std::size_t{uiCount} + 1);
    std::memcpy(copy.get(), pBytes, uiCount);
  }
  m_uiLength = copy != nullptr ? uiCount : 0;
  m_pBytes = std::move(copy);
  m_uiKind = Bytes;
}

void CMetaValues::SetValueStr(const char* pText) {
  if (pText == nullptr) pText = "";
  SetValueByte(pText, static_cast<unsigned int>(std::strlen(pText)));
}

int CMetaValues::GetValueInt() const {
  return m_uiKind == Double ? truncated<int>(m_Value.real) : static_cast<int>(GetValueUint64());
}

unsigned int CMetaValues::GetValueUint() const {
  return m_uiKind == Double ? truncated<unsigned int>(m_Value.real)
                            : static_cast<unsigned int>(GetValueUint64());
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
      return truncated<unsigned long>(m_Value.real);
    case Bool:
      return m_Value.flag ? 1 : 0;
    default:
      return 0;
  }
}

double CMetaValues::GetValueDouble() const {
  if (m_uiKind == Double) return m_Value.real;
  const unsigned long bits = GetValueUint64();
  return isSigned(m_uiKind) ? static_cast<double>(static_cast<long>(bits)) : static_cast<double>(bits);
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
    return m_pBytes.get();
  }
  if (iSize > 0) std::memset(pBuffer, 0, static_cast<unsigned int>(iSize));
  if (iSize > length) iSize = length;
  if (m_pBytes != nullptr && iSize > 0)
    std::memcpy(pBuffer, m_pBytes.get(), static_cast<unsigned int>(iSize));
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
         std::memcmp(m_pBytes.get(), pBytes, uiCount) == 0;
}

bool CMetaValues::IsEqual(unsigned int uiValue) const {
  return IsEqual(static_cast<unsigned long>(uiValue));
}

bool CMetaValues::IsEqual(unsigned long ulValue) const {
  if (m_uiKind == Double) return m_Value.real == static_cast<double>(ulValue);
  const unsigned long bits = GetValueUint64();
  const bool negative = isSigned(m_uiKind) && static_cast<long>(bits) < 0;
  return isInteger(m_uiKind) && !negative && bits == ulValue;
}

bool CMetaValues::IsEqual(int iValue) const {
  return IsEqual(static_cast<long>(iValue));
}

bool CMetaValues::IsEqual(long lValue) const {
  if (m_uiKind == Double) return m_Value.real == static_cast<double>(lValue);
  return isInteger(m_uiKind) && GetValueUint64() == static_cast<unsigned long>(lValue);
}

bool CMetaValues::IsEqual(double dValue) const {
  if (m_uiKind == Double) return m_Value.real == dValue;
  // Intended: a negative integer never equals a double.
  const bool negative = isSigned(m_uiKind) && static_cast<long>(GetValueUint64()) < 0;
  return isInteger(m_uiKind) && !negative && GetValueDouble() == dValue;
}
