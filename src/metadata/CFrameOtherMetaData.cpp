#include <orvacam/metadata/CFrameOtherMetaData.h>

#include <cstring>

CFrameOtherMetaData::CFrameOtherMetaData() : m_uiType(0), m_uiLength(0), m_pData(nullptr) {}

CFrameOtherMetaData::CFrameOtherMetaData(const CFrameOtherMetaData& other) : CFrameOtherMetaData() {
  *this = other;
}

CFrameOtherMetaData& CFrameOtherMetaData::operator=(const CFrameOtherMetaData& other) {
  if (this == &other) return *this;
  unsigned char* copy = nullptr;
  if (other.m_pData != nullptr) {
    copy = new unsigned char[other.m_uiLength];
    std::memcpy(copy, other.m_pData, other.m_uiLength);
  }
  delete[] m_pData;
  m_pData = copy;
  m_uiType = other.m_uiType;
  m_uiLength = other.m_uiLength;
  return *this;
}

CFrameOtherMetaData::~CFrameOtherMetaData() {
  delete[] m_pData;
}

void CFrameOtherMetaData::SetData(const void* pBytes, unsigned int uiLength, unsigned char ucType) {
  if (pBytes == nullptr) return;
  auto* copy = new unsigned char[uiLength];
  std::memcpy(copy, pBytes, uiLength);
  delete[] m_pData;
  m_pData = copy;
  m_uiLength = uiLength;
  m_uiType = ucType;
}
