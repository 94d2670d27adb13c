#include <orvacam/metadata/CFrameOtherMetaData.h>

#include <cstring>
#include <utility>

CFrameOtherMetaData::CFrameOtherMetaData() : m_uiType(0), m_uiLength(0) {}

CFrameOtherMetaData::CFrameOtherMetaData(const CFrameOtherMetaData& other) : CFrameOtherMetaData() {
  *this = other;
}

CFrameOtherMetaData& CFrameOtherMetaData::operator=(const CFrameOtherMetaData& other) {
  if (this == &other) return *this;
  if (other.m_pData == nullptr) m_pData = nullptr;
  SetData(other.m_pData.get(), other.m_uiLength, 0);
  m_uiType = other.m_uiType;
  m_uiLength = other.m_uiLength;
  return *this;
}

CFrameOtherMetaData::~CFrameOtherMetaData() = default;

void CFrameOtherMetaData::SetData(const void* pBytes, unsigned int uiLength, unsigned char ucType) {
  if (pBytes == nullptr) return;
  std::unique_ptr<unsigned char[]> copy(new unsigned char[uiLength]);
  std::memcpy(copy.get(), pBytes, uiLength);
  m_pData = std::move(copy);
  m_uiLength = uiLength;
  m_uiType = ucType;
}
